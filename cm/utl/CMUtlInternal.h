// Helpers shared by the string utilities' translation units: the case tables
// and small byte-level primitives. Nothing here is exported.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kestrel::cmutl {

// Case mapping of the C locale, which is the locale the runtime runs in: only
// 'A'..'Z' and 'a'..'z' change; bytes 0x80..0xFF stay as they are. A table
// lookup avoids a call into the C library per byte and the locale fetch that
// comes with it.
inline constexpr std::array<unsigned char, 256> kToLower = [] {
    std::array<unsigned char, 256> t{};
    for (int i = 0; i < 256; ++i) {
        t[i] = static_cast<unsigned char>((i >= 'A' && i <= 'Z') ? i + ('a' - 'A') : i);
    }
    return t;
}();

inline constexpr std::array<unsigned char, 256> kToUpper = [] {
    std::array<unsigned char, 256> t{};
    for (int i = 0; i < 256; ++i) {
        t[i] = static_cast<unsigned char>((i >= 'a' && i <= 'z') ? i - ('a' - 'A') : i);
    }
    return t;
}();

inline unsigned char ToLower(unsigned char c) {
    return kToLower[c];
}
inline unsigned char ToUpper(unsigned char c) {
    return kToUpper[c];
}

// The outcome of a case-insensitive comparison at the first position where
// the strings differ or one of them ends.
inline int CaseVerdict(unsigned char ca, unsigned char cb) {
    if (ca == 0 || cb == 0) {
        return ca == cb ? 0 : (ca == 0 ? -1 : 1);
    }
    return ToLower(ca) - ToLower(cb);
}

// Length of a string known to be at most `limit` bytes long, or `limit` when
// no terminator lies in the first `limit` bytes. memchr stops at the first
// match, so it never reads past the terminator of a shorter string.
inline std::size_t BoundedLength(const char *psz, std::size_t limit) {
    const void *end = std::memchr(psz, 0, limit);
    return end ? static_cast<std::size_t>(static_cast<const char *>(end) - psz) : limit;
}

// Copies n bytes. Short copies are done with two overlapping fixed-size moves,
// which the compiler turns into plain loads and stores; names and keys, the
// common case, then cost no call into the C library.
inline void CopySmall(void *dst, const void *src, std::size_t n) {
    auto *d = static_cast<unsigned char *>(dst);
    const auto *s = static_cast<const unsigned char *>(src);
    if (n >= 16 && n <= 32) {
        unsigned char head[16], tail[16];
        std::memcpy(head, s, 16);
        std::memcpy(tail, s + n - 16, 16);
        std::memcpy(d, head, 16);
        std::memcpy(d + n - 16, tail, 16);
    } else if (n >= 8 && n < 16) {
        std::uint64_t head, tail;
        std::memcpy(&head, s, 8);
        std::memcpy(&tail, s + n - 8, 8);
        std::memcpy(d, &head, 8);
        std::memcpy(d + n - 8, &tail, 8);
    } else if (n >= 4 && n < 8) {
        std::uint32_t head, tail;
        std::memcpy(&head, s, 4);
        std::memcpy(&tail, s + n - 4, 4);
        std::memcpy(d, &head, 4);
        std::memcpy(d + n - 4, &tail, 4);
    } else if (n < 4) {
        for (std::size_t i = 0; i < n; ++i) {
            d[i] = s[i];
        }
    } else {
        std::memcpy(d, s, n);
    }
}

} // namespace kestrel::cmutl
