// Narrow-string functions of the string utilities: reversal, white space,
// backward search, case-insensitive comparison and search, case conversion,
// length and the checked memory copy. Case mapping is the C locale's.
#include <cstring>

#include "CMUtlBlock.h"
#include "CMUtlInternal.h"
#include "CMUtlItf.h"
#include "CMUtlWideScan.h"

using kestrel::cmutl::BlockMask;
using kestrel::cmutl::CaseEvents;
using kestrel::cmutl::PageRoom;
using kestrel::cmutl::ToLower;
using kestrel::cmutl::ToUpper;

using kestrel::cmutl::CaseVerdict;

namespace kestrel::cmutl {

RTS_I32 StrICmpPortable(const char *psz1, const char *psz2) {
    if (psz1 == nullptr || psz2 == nullptr) {
        return -1;
    }
    const auto *a = reinterpret_cast<const unsigned char *>(psz1);
    const auto *b = reinterpret_cast<const unsigned char *>(psz2);
    // Names looked up in a table mostly differ in their first byte.
    if (a[0] == 0 || ToLower(a[0]) != ToLower(b[0])) {
        return CaseVerdict(a[0], b[0]);
    }
    constexpr std::size_t kStep = 16;
    std::size_t i = 0;
    for (;;) {
        // Whole blocks up to the nearer of the two page ends.
        const std::size_t roomA = PageRoom(a + i);
        const std::size_t roomB = PageRoom(b + i);
        const std::size_t limit = i + (roomA < roomB ? roomA : roomB);
        while (i + kStep <= limit) {
            const BlockMask events = CaseEvents(a + i, b + i);
            if (events.Any()) {
                i += events.First();
                return CaseVerdict(a[i], b[i]);
            }
            i += kStep;
        }
        // Across a page end a byte at a time.
        if (a[i] == 0 || ToLower(a[i]) != ToLower(b[i])) {
            return CaseVerdict(a[i], b[i]);
        }
        ++i;
    }
}

} // namespace kestrel::cmutl

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
    return kestrel::cmutl::g_scanForms.pfStrICmp(psz1, psz2);
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

char *CMUtlStrlwr(char *psz) {
    return psz == nullptr ? nullptr : CMUtlStrToLower(psz);
}

char *CMUtlStrupr(char *psz) {
    return psz == nullptr ? nullptr : CMUtlStrToUpper(psz);
}

RTS_SIZE CMUtlStrLen(const char *psz) {
    return psz == nullptr ? 0 : std::strlen(psz);
}

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
