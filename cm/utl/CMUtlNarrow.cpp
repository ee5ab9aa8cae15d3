// Narrow-string functions of the string utilities: reversal, white space,
// backward search, case-insensitive comparison and search, case conversion,
// length and the checked memory copy. Case mapping is the C locale's.
#include <cstring>

#include "CMUtlInternal.h"
#include "CMUtlItf.h"

using kestrel::cmutl::ToLower;
using kestrel::cmutl::ToUpper;

namespace {

using Word = std::uint64_t;
constexpr Word kOnes = ~Word{0} / 0xFF; // 0x0101...01
constexpr Word kHighs = kOnes * 0x80;   // 0x8080...80

// Lower-cases the ASCII capitals of eight bytes at once and leaves every other
// byte alone, exactly as the C locale's tolower does byte by byte. Working on
// the low seven bits keeps the per-byte additions from carrying into the next
// byte; the high bit of the original byte then rules out 0x80..0xFF.
inline Word FoldWord(Word x) {
    const Word low7 = x & ~kHighs;
    const Word aboveZ = low7 + kOnes * (0x7F - 'Z'); // high bit set where low7 > 'Z'
    const Word atLeastA = low7 + kOnes * (0x80 - 'A'); // high bit set where low7 >= 'A'
    const Word upper = atLeastA & ~aboveZ & ~x & kHighs;
    return x | (upper >> 2); // 0x80 >> 2 == 0x20, the case bit
}

// Compares n bytes of two strings case-insensitively; both are known to hold
// at least n bytes. Returns the difference of the first differing lower-cased
// bytes, or 0.
inline int CompareFolded(const unsigned char *a, const unsigned char *b, std::size_t n) {
    std::size_t i = 0;
    for (; i + 2 * sizeof(Word) <= n; i += 2 * sizeof(Word)) {
        Word a0, a1, b0, b1;
        std::memcpy(&a0, a + i, sizeof a0);
        std::memcpy(&a1, a + i + sizeof(Word), sizeof a1);
        std::memcpy(&b0, b + i, sizeof b0);
        std::memcpy(&b1, b + i + sizeof(Word), sizeof b1);
        if (((a0 ^ b0) | (a1 ^ b1)) != 0 && ((FoldWord(a0) ^ FoldWord(b0)) | (FoldWord(a1) ^ FoldWord(b1))) != 0) {
            break; // the byte loop below finds the difference
        }
    }
    for (; i < n; ++i) {
        const int d = ToLower(a[i]) - ToLower(b[i]);
        if (d != 0) {
            return d;
        }
    }
    return 0;
}

} // namespace

extern "C" {

char *CMUtlStrrev(char *psz) {
    if (psz == nullptr || psz[0] == 0 || psz[1] == 0) {
        return psz;
    }
    char *lo = psz;
    char *hi = psz + std::strlen(psz) - 1;
    while (lo < hi) {
        const char c = *lo;
        *lo++ = *hi;
        *hi-- = c;
    }
    return psz;
}

char *CMUtlSkipWhiteSpace(char *psz) {
    while (*psz == ' ' || *psz == '\t') {
        ++psz;
    }
    return psz;
}

char *CMUtlStrRChr(char *pszStart, char *pszPosition, char c) {
    if (pszStart == nullptr || pszPosition == nullptr || pszPosition < pszStart) {
        return nullptr;
    }
    // The scan walks down by index so that it never forms a pointer before
    // the start of the caller's array.
    for (std::size_t i = static_cast<std::size_t>(pszPosition - pszStart) + 1; i-- > 0;) {
        if (pszStart[i] == c) {
            return pszStart + i;
        }
    }
    return nullptr;
}

RTS_I32 CMUtlStrICmp(const char *psz1, const char *psz2) {
    if (psz1 == nullptr || psz2 == nullptr) {
        return -1;
    }
    const auto *a = reinterpret_cast<const unsigned char *>(psz1);
    const auto *b = reinterpret_cast<const unsigned char *>(psz2);
    // Short strings are cheapest byte by byte; names and keys mostly end or
    // differ within the first few bytes.
    constexpr std::size_t kHead = 16;
    std::size_t i = 0;
    for (; i < kHead; ++i) {
        const unsigned char ca = a[i];
        const unsigned char cb = b[i];
        if (ca == 0 || cb == 0) {
            return ca == cb ? 0 : (ca == 0 ? -1 : 1);
        }
        const int d = ToLower(ca) - ToLower(cb);
        if (d != 0) {
            return d;
        }
    }
    // Longer strings: measure the common part, then compare it a word at a
    // time. Only bytes up to each string's terminator are read.
    const std::size_t la = i + std::strlen(psz1 + i);
    const std::size_t common = i + kestrel::cmutl::BoundedLength(psz2 + i, la - i);
    const int d = CompareFolded(a + i, b + i, common - i);
    if (d != 0) {
        return d;
    }
    const unsigned char ca = a[common];
    const unsigned char cb = b[common];
    return ca == cb ? 0 : (ca == 0 ? -1 : 1);
}

RTS_I32 CMUtlStrNICmp(const char *psz1, const char *psz2, RTS_SIZE n) {
    if (psz1 == nullptr || psz2 == nullptr) {
        return -1;
    }
    const auto *a = reinterpret_cast<const unsigned char *>(psz1);
    const auto *b = reinterpret_cast<const unsigned char *>(psz2);
    for (RTS_SIZE i = 0; i < n; ++i) {
        const unsigned char ca = a[i];
        const unsigned char cb = b[i];
        if (ca == 0 || cb == 0) {
            // One string ended first: the raw bytes decide.
            return static_cast<int>(ca) - static_cast<int>(cb);
        }
        const int d = ToLower(ca) - ToLower(cb);
        if (d != 0) {
            return d;
        }
    }
    return 0;
}

char *CMUtlStrIStr(const char *pszHaystack, const char *pszNeedle) {
    if (pszHaystack == nullptr || pszNeedle == nullptr) {
        return nullptr;
    }
    const std::size_t lh = std::strlen(pszHaystack);
    const std::size_t ln = std::strlen(pszNeedle);
    if (lh == 0 || ln > lh) {
        return nullptr; // an empty haystack matches nothing, not even an empty needle
    }
    const unsigned char first = ToLower(static_cast<unsigned char>(pszNeedle[0]));
    for (std::size_t p = 0; p + ln <= lh; ++p) {
        // The first byte is checked inline; most positions fail there.
        if (ln != 0 && ToLower(static_cast<unsigned char>(pszHaystack[p])) != first) {
            continue;
        }
        if (CMUtlStrNICmp(pszHaystack + p, pszNeedle, ln) == 0) {
            return const_cast<char *>(pszHaystack + p);
        }
    }
    return nullptr;
}

char *CMUtlStrToLower(char *psz) {
    for (auto *p = reinterpret_cast<unsigned char *>(psz); *p != 0; ++p) {
        *p = ToLower(*p);
    }
    return psz;
}

char *CMUtlStrToUpper(char *psz) {
    for (auto *p = reinterpret_cast<unsigned char *>(psz); *p != 0; ++p) {
        *p = ToUpper(*p);
    }
    return psz;
}

char *CMUtlStrlwr(char *psz) { return psz == nullptr ? nullptr : CMUtlStrToLower(psz); }

char *CMUtlStrupr(char *psz) { return psz == nullptr ? nullptr : CMUtlStrToUpper(psz); }

RTS_SIZE CMUtlStrLen(const char *psz) { return psz == nullptr ? 0 : std::strlen(psz); }

RTS_RESULT CMUtlSafeMemCpy(void *pDest, RTS_SIZE ulDestSize, const void *pSrc, RTS_SIZE ulCount) {
    if (pDest == nullptr || pSrc == nullptr || ulDestSize < ulCount) {
        return ERR_PARAMETER;
    }
    if (ulCount != 0) {
        std::memcpy(pDest, pSrc, ulCount);
    }
    return ERR_OK;
}

} // extern "C"
