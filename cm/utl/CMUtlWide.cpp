// Wide strings of 16-bit code units: the CMUtlw... family over RTS_WCHAR and
// the identical CMUtlcw... family over RTS_CWCHAR, both instantiated from one
// set of templates, and the conversions between narrow and wide text.
#include <array>
#include <cstring>

#include "CMUtlInternal.h"
#include "CMUtlItf.h"

namespace {

// Narrow text is read as Windows code page 1252: bytes 0x80..0x9F carry the
// typographic characters of that code page, every other byte is the ISO
// 8859-1 character of the same number. The five bytes the code page leaves
// unassigned (0x81, 0x8D, 0x8F, 0x90, 0x9D) stand for themselves.
constexpr RTS_UI16 kCp1252High[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, // 0x80..0x87
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F, // 0x88..0x8F
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014, // 0x90..0x97
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178, // 0x98..0x9F
};

constexpr std::array<RTS_UI16, 256> kCp1252 = [] {
    std::array<RTS_UI16, 256> t{};
    for (int i = 0; i < 256; ++i) {
        t[i] = (i >= 0x80 && i <= 0x9F) ? kCp1252High[i - 0x80] : static_cast<RTS_UI16>(i);
    }
    return t;
}();

template <typename Ch> std::size_t Length(const Ch *s) {
    std::size_t n = 0;
    while (s[n] != 0) {
        ++n;
    }
    return n;
}

template <typename Ch> RTS_I32 Compare(const Ch *a, const Ch *b) {
    if (a == nullptr || b == nullptr) {
        return 0; // null compares equal to anything
    }
    while (*a != 0 && *a == *b) {
        ++a;
        ++b;
    }
    return static_cast<RTS_I32>(*a) - static_cast<RTS_I32>(*b);
}

template <typename Ch> RTS_I32 CompareN(const Ch *a, const Ch *b, RTS_SIZE n) {
    if (a == nullptr || b == nullptr) {
        return 0;
    }
    for (RTS_SIZE i = 0; i < n; ++i) {
        if (a[i] != b[i] || a[i] == 0) {
            return static_cast<RTS_I32>(a[i]) - static_cast<RTS_I32>(b[i]);
        }
    }
    return 0;
}

// Copies while the source goes on, the count lasts and a place for the
// terminator remains; terminates unless the buffer has no room at all.
// Returns the number of units copied.
template <typename Ch> RTS_SIZE CopyBounded(Ch *dest, RTS_SIZE size, const Ch *src, RTS_SIZE count) {
    if (size == 0) {
        return 0;
    }
    const RTS_SIZE limit = count < size - 1 ? count : size - 1;
    RTS_SIZE i = 0;
    for (; i < limit && src[i] != 0; ++i) {
        dest[i] = src[i];
    }
    dest[i] = 0;
    return i;
}

template <typename Ch> RTS_RESULT Copy(Ch *dest, RTS_SIZE size, const Ch *src) {
    if (dest == nullptr || src == nullptr) {
        return ERR_PARAMETER;
    }
    CopyBounded(dest, size, src, ~RTS_SIZE{0});
    return ERR_OK; // also when the text was cut
}

template <typename Ch> RTS_RESULT Concat(Ch *dest, RTS_SIZE size, const Ch *src) {
    if (dest == nullptr || src == nullptr) {
        return ERR_PARAMETER;
    }
    const std::size_t lengthDest = Length(dest);
    if (size <= lengthDest + Length(src)) {
        return ERR_PARAMETER; // nothing is appended unless all of it fits
    }
    CopyBounded(dest + lengthDest, size - lengthDest, src, ~RTS_SIZE{0});
    return ERR_OK;
}

template <typename Ch> RTS_RESULT CopyN(Ch *dest, RTS_SIZE size, const Ch *src, RTS_SIZE count) {
    if (dest == nullptr || src == nullptr) {
        return count != 0 ? ERR_FAILED : ERR_OK;
    }
    // 1 tells the caller that fewer than `count` units were copied.
    return CopyBounded(dest, size, src, count) == count ? ERR_OK : ERR_FAILED;
}

template <typename Ch> Ch *ToLowerAscii(Ch *s) {
    if (s != nullptr) {
        for (Ch *p = s; *p != 0; ++p) {
            if (*p >= 'A' && *p <= 'Z') {
                *p = static_cast<Ch>(*p + ('a' - 'A'));
            }
        }
    }
    return s;
}

template <typename Ch> Ch *ToUpperAscii(Ch *s) {
    if (s != nullptr) {
        for (Ch *p = s; *p != 0; ++p) {
            if (*p >= 'a' && *p <= 'z') {
                *p = static_cast<Ch>(*p - ('a' - 'A'));
            }
        }
    }
    return s;
}

template <typename Ch> Ch *Find(const Ch *s, Ch c) {
    if (s == nullptr) {
        return nullptr;
    }
    for (; *s != 0; ++s) {
        if (*s == c) {
            return const_cast<Ch *>(s);
        }
    }
    return nullptr; // the terminator itself is never found
}

template <typename Ch> RTS_RESULT Widen(const char *src, Ch *dest, RTS_SIZE size) {
    if (src == nullptr || dest == nullptr) {
        return ERR_PARAMETER;
    }
    if (size == 0) {
        return src[0] != 0 ? ERR_FAILED : ERR_OK;
    }
    // Measure first, then convert a known number of bytes: the loop then has
    // no terminator test and no buffer test.
    const std::size_t n = kestrel::cmutl::BoundedLength(src, size - 1);
    const auto *bytes = reinterpret_cast<const unsigned char *>(src);
    std::size_t i = 0;
    // Sixteen bytes at a time: text without a byte in 0x80..0x9F, nearly all
    // text, is simply zero-extended, which the compiler does with vector
    // instructions.
    constexpr std::size_t kBlock = 16;
    for (; i + kBlock <= n; i += kBlock) {
        // A local copy tells the compiler that the stores cannot change the source.
        unsigned char block[kBlock];
        std::memcpy(block, bytes + i, kBlock);
        unsigned char special = 0;
        for (std::size_t j = 0; j < kBlock; ++j) {
            special |= static_cast<unsigned char>(block[j] - 0x80u) < 0x20u ? 1 : 0;
        }
        Ch wide[kBlock];
        if (special == 0) {
            for (std::size_t j = 0; j < kBlock; ++j) {
                wide[j] = static_cast<Ch>(block[j]);
            }
        } else {
            for (std::size_t j = 0; j < kBlock; ++j) {
                wide[j] = static_cast<Ch>(kCp1252[block[j]]);
            }
        }
        std::memcpy(dest + i, wide, sizeof wide);
    }
    for (; i < n; ++i) {
        dest[i] = static_cast<Ch>(kCp1252[bytes[i]]);
    }
    dest[n] = 0;
    return bytes[n] != 0 ? ERR_FAILED : ERR_OK;
}

template <typename Ch> RTS_RESULT Narrow(const Ch *src, char *dest, RTS_SIZE size) {
    if (src == nullptr || dest == nullptr) {
        return ERR_PARAMETER;
    }
    if (size == 0) {
        return src[0] != 0 ? ERR_FAILED : ERR_OK;
    }
    RTS_SIZE i = 0;
    for (; i + 1 < size && src[i] != 0; ++i) {
        dest[i] = static_cast<char>(static_cast<unsigned char>(src[i] & 0xFF)); // the low byte, no reverse mapping
    }
    dest[i] = 0;
    return src[i] != 0 ? ERR_FAILED : ERR_OK;
}

} // namespace

extern "C" {

RTS_I32 CMUtlwstrcmp(const RTS_WCHAR *pwsz1, const RTS_WCHAR *pwsz2) {
    return Compare(pwsz1, pwsz2);
}
RTS_I32 CMUtlwstrncmp(const RTS_WCHAR *pwsz1, const RTS_WCHAR *pwsz2, RTS_SIZE n) {
    return CompareN(pwsz1, pwsz2, n);
}
RTS_RESULT CMUtlwstrcpy(RTS_WCHAR *pwszDest, RTS_SIZE ulDestSize, const RTS_WCHAR *pwszSrc) {
    return Copy(pwszDest, ulDestSize, pwszSrc);
}
RTS_RESULT CMUtlwstrcat(RTS_WCHAR *pwszDest, RTS_SIZE ulDestSize, const RTS_WCHAR *pwszSrc) {
    return Concat(pwszDest, ulDestSize, pwszSrc);
}
RTS_RESULT CMUtlwstrncpy(RTS_WCHAR *pwszDest, RTS_SIZE ulDestSize, const RTS_WCHAR *pwszSrc, RTS_SIZE ulCount) {
    return CopyN(pwszDest, ulDestSize, pwszSrc, ulCount);
}
RTS_SIZE CMUtlwstrlen(const RTS_WCHAR *pwsz) {
    return pwsz == nullptr ? 0 : Length(pwsz);
}
RTS_WCHAR *CMUtlwtolower(RTS_WCHAR *pwsz) {
    return ToLowerAscii(pwsz);
}
RTS_WCHAR *CMUtlwtoupper(RTS_WCHAR *pwsz) {
    return ToUpperAscii(pwsz);
}
RTS_WCHAR *CMUtlwstrchr(const RTS_WCHAR *pwsz, RTS_WCHAR c) {
    return Find(pwsz, c);
}
RTS_RESULT CMUtlStrToW(const char *pszSrc, RTS_WCHAR *pwszDest, RTS_SIZE ulDestSize) {
    return Widen(pszSrc, pwszDest, ulDestSize);
}
RTS_RESULT CMUtlWToStr(const RTS_WCHAR *pwszSrc, char *pszDest, RTS_SIZE ulDestSize) {
    return Narrow(pwszSrc, pszDest, ulDestSize);
}

RTS_I32 CMUtlcwstrcmp(const RTS_CWCHAR *pwsz1, const RTS_CWCHAR *pwsz2) {
    return Compare(pwsz1, pwsz2);
}
RTS_RESULT CMUtlcwstrcpy(RTS_CWCHAR *pwszDest, RTS_SIZE ulDestSize, const RTS_CWCHAR *pwszSrc) {
    return Copy(pwszDest, ulDestSize, pwszSrc);
}
RTS_RESULT CMUtlcwstrcat(RTS_CWCHAR *pwszDest, RTS_SIZE ulDestSize, const RTS_CWCHAR *pwszSrc) {
    return Concat(pwszDest, ulDestSize, pwszSrc);
}
RTS_RESULT CMUtlcwstrncpy(RTS_CWCHAR *pwszDest, RTS_SIZE ulDestSize, const RTS_CWCHAR *pwszSrc, RTS_SIZE ulCount) {
    return CopyN(pwszDest, ulDestSize, pwszSrc, ulCount);
}
RTS_SIZE CMUtlcwstrlen(const RTS_CWCHAR *pwsz) {
    return pwsz == nullptr ? 0 : Length(pwsz);
}
RTS_CWCHAR *CMUtlcwtolower(RTS_CWCHAR *pwsz) {
    return ToLowerAscii(pwsz);
}
RTS_CWCHAR *CMUtlcwtoupper(RTS_CWCHAR *pwsz) {
    return ToUpperAscii(pwsz);
}
RTS_CWCHAR *CMUtlcwstrchr(const RTS_CWCHAR *pwsz, RTS_CWCHAR c) {
    return Find(pwsz, c);
}
RTS_RESULT CMUtlStrToCW(const char *pszSrc, RTS_CWCHAR *pwszDest, RTS_SIZE ulDestSize) {
    return Widen(pszSrc, pwszDest, ulDestSize);
}
RTS_RESULT CMUtlCWToStr(const RTS_CWCHAR *pwszSrc, char *pszDest, RTS_SIZE ulDestSize) {
    return Narrow(pwszSrc, pszDest, ulDestSize);
}

} // extern "C"
