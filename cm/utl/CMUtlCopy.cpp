// Bounded copying, concatenation and formatting of narrow strings. Every
// size counts the whole destination including the terminator.
#include <cstring>

#include "CMUtlBlock.h"
#include "CMUtlFormat.h"
#include "CMUtlInternal.h"
#include "CMUtlItf.h"
#include "CMUtlWideScan.h"

using kestrel::cmutl::BlockInOnePage;
using kestrel::cmutl::BoundedLength;
using kestrel::cmutl::CopySmall;
using kestrel::cmutl::FirstZero;
using kestrel::cmutl::LoadBlock;

namespace {

// An argument list given as null. A va_list is a pointer on the builds of
// this system and a record of pointers elsewhere; either way a null one is
// all zero bytes. Its size is taken from the parameter's adjusted type,
// because va_list is an array type on some targets.
bool IsNullArgList(const void *list, std::size_t size) {
    const auto *bytes = static_cast<const unsigned char *>(list);
    for (std::size_t i = 0; i < size; ++i) {
        if (bytes[i] != 0) {
            return false;
        }
    }
    return true;
}

} // namespace

namespace kestrel::cmutl {

RTS_RESULT SafeStrCpyPortable(char *pszDest, RTS_SIZE ulDestSize, const char *pszSrc) {
    if (pszDest == nullptr || pszSrc == nullptr || ulDestSize == 0) {
        return ERR_PARAMETER;
    }
    return SafeStrCpyFrom(reinterpret_cast<unsigned char *>(pszDest), ulDestSize,
                          reinterpret_cast<const unsigned char *>(pszSrc), 0);
}

RTS_RESULT SafeStrCpyFrom(unsigned char *dest, std::size_t size, const unsigned char *src, std::size_t i) {
    // The first bytes go in whole blocks while the destination has room for
    // them: one pass finds the terminator and copies. Names and keys end
    // within them.
    constexpr std::size_t kBlock = 16;
    constexpr std::size_t kBlockedPart = 32;
    while (i < kBlockedPart && i + kBlock <= size && BlockInOnePage<kBlock>(src + i)) {
        unsigned char block[kBlock];
        LoadBlock(src + i, block);
        const unsigned k = FirstZero(block);
        if (k != kBlock) {
            CopySmall(dest + i, block, k + 1);
            dest[size - 1] = 0;
            return ERR_OK;
        }
        std::memcpy(dest + i, block, kBlock);
        i += kBlock;
    }
    // The rest (a long text, the end of the destination or of a page): only
    // the bytes up to the destination's end matter, either the terminator
    // lies among them or the copy is cut. memchr and memcpy are the C
    // library's widest loops for that.
    const std::size_t rest = size - i;
    const std::size_t length = BoundedLength(reinterpret_cast<const char *>(src + i), rest);
    const std::size_t n = length < rest ? length + 1 : rest;
    CopySmall(dest + i, src + i, n);
    dest[size - 1] = 0;
    return length < rest ? ERR_OK : ERR_BUFFERSIZE;
}

} // namespace kestrel::cmutl

extern "C" {

RTS_RESULT CMUtlSafeStrCpy2(char *pszDest, RTS_SIZE ulDestSize, const char *pszSrc, RTS_UI32 ulIgnored) {
    (void)ulIgnored;
    return kestrel::cmutl::g_scanForms.pfSafeStrCpy(pszDest, ulDestSize, pszSrc);
}

RTS_RESULT CMUtlSafeStrCpy(char *pszDest, RTS_SIZE ulDestSize, const char *pszSrc) {
    return kestrel::cmutl::g_scanForms.pfSafeStrCpy(pszDest, ulDestSize, pszSrc);
}

RTS_RESULT CMUtlSafeStrNCpy(char *pszDest, RTS_SIZE ulDestSize, const char *pszSrc, RTS_SIZE ulCount) {
    // n bytes of the source take part: the text with its terminator, or the
    // first ulCount bytes if that is less.
    const std::size_t length = BoundedLength(pszSrc, ulCount);
    const std::size_t n = length < ulCount ? length + 1 : ulCount;
    if (ulDestSize != 0) {
        CopySmall(pszDest, pszSrc, n < ulDestSize ? n : ulDestSize);
        pszDest[n < ulDestSize - 1 ? n : ulDestSize - 1] = 0;
    }
    // The verdict looks at the count, not at the source: a short source
    // copied with a large count into a small buffer still reports 15.
    return ulDestSize < ulCount ? ERR_BUFFERSIZE : ERR_OK;
}

RTS_RESULT CMUtlSafeStrCat(char *pszDest, RTS_SIZE ulDestSize, const char *pszSrc) {
    const std::size_t lengthDest = std::strlen(pszDest);
    const std::size_t lengthSrc = std::strlen(pszSrc);
    if (ulDestSize == 0) {
        return ERR_BUFFERSIZE;
    }
    if (lengthDest < ulDestSize) {
        const std::size_t room = ulDestSize - lengthDest;
        CopySmall(pszDest + lengthDest, pszSrc, room < lengthSrc + 1 ? room : lengthSrc + 1);
    }
    pszDest[ulDestSize - 1] = 0;
    return ulDestSize < lengthDest + lengthSrc + 1 ? ERR_BUFFERSIZE : ERR_OK;
}

RTS_RESULT CMUtlvsnprintf(char *pszDest, RTS_SIZE ulDestSize, const char *pszFormat, va_list args) {
    if (pszDest == nullptr || pszFormat == nullptr || IsNullArgList(&args, sizeof(decltype(args)))) {
        return ERR_PARAMETER;
    }
    // The formatter follows the C library's vsnprintf, which leaves the same
    // text as the Windows _vsnprintf followed by a terminator in the last
    // byte: all of a shorter output, otherwise its first size - 1 characters.
    // _vsnprintf reports an output of exactly `size` characters as complete,
    // so that one counts as success although its last character gave way to
    // the terminator. A buffer of no bytes can take nothing, not even the
    // terminator.
    const std::ptrdiff_t count = kestrel::cmutl::FormatV(pszDest, ulDestSize, pszFormat, args);
    if (ulDestSize != 0) {
        pszDest[ulDestSize - 1] = 0;
    }
    return count >= 0 && static_cast<std::size_t>(count) <= ulDestSize ? ERR_OK : ERR_BUFFERSIZE;
}

RTS_RESULT CMUtlsnprintf(char *pszDest, RTS_SIZE ulDestSize, const char *pszFormat, ...) {
    if (pszDest == nullptr || pszFormat == nullptr) {
        return ERR_PARAMETER;
    }
    va_list args;
    va_start(args, pszFormat);
    const RTS_RESULT result = CMUtlvsnprintf(pszDest, ulDestSize, pszFormat, args);
    va_end(args);
    return result;
}

} // extern "C"
