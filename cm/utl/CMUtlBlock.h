// Block-at-a-time scanning of zero-terminated strings, shared by the string
// utilities. Internal; nothing here is exported.
//
// A string's length is unknown until its terminator is found, so a scan that
// reads a block of bytes at once may read past the terminator. Such a read
// stays inside the memory page that holds the block's first byte, and that
// page is mapped because the block's first byte belongs to the string; memory
// protection works on whole pages, so the read cannot fault. The scanners
// take a block only when it lies within one page and fall back to a byte at a
// time near a page end, and the bytes behind a terminator never influence a
// result. AddressSanitizer would report these reads as overflows, so the two
// block readers are exempt from its instrumentation (everything else stays
// instrumented). The loops are written so that the compiler turns each block
// into a handful of vector instructions.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kestrel::cmutl {

// The smallest memory page of the targets this runs on (x86 and x86-64,
// Linux and Windows); a larger page only makes the check more cautious.
inline constexpr std::uintptr_t kMinPageSize = 4096;

template <std::size_t N> inline bool BlockInOnePage(const void *p) {
    static_assert(N <= kMinPageSize);
    return (reinterpret_cast<std::uintptr_t>(p) & (kMinPageSize - 1)) <= kMinPageSize - N;
}

// Bytes from p to the end of its page (at least 1).
inline std::size_t PageRoom(const void *p) {
    return static_cast<std::size_t>(kMinPageSize - (reinterpret_cast<std::uintptr_t>(p) & (kMinPageSize - 1)));
}

// Position of the first byte marked non-zero in a block-sized mask, or N.
template <std::size_t N> inline unsigned FirstMarked(const unsigned char (&mask)[N]) {
    static_assert(N % 8 == 0);
    for (std::size_t w = 0; w < N / 8; ++w) {
        std::uint64_t word;
        std::memcpy(&word, mask + 8 * w, sizeof word);
        if (word != 0) {
            const int bit =
                std::endian::native == std::endian::little ? std::countr_zero(word) : std::countl_zero(word);
            return static_cast<unsigned>(8 * w) + (static_cast<unsigned>(bit) >> 3);
        }
    }
    return N;
}

// Copies a block (which must lie within one page) out of a string.
template <std::size_t N>
[[gnu::no_sanitize_address]] inline void LoadBlock(const unsigned char *s, unsigned char (&out)[N]) {
    for (std::size_t j = 0; j < N; ++j) {
        out[j] = s[j];
    }
}

// First position of a zero byte in a loaded block, or N.
template <std::size_t N> inline unsigned FirstZero(const unsigned char (&block)[N]) {
    unsigned char mask[N];
    for (std::size_t j = 0; j < N; ++j) {
        mask[j] = block[j] == 0 ? 0xFF : 0;
    }
    return FirstMarked(mask);
}

// The 16-byte mask of a block as two words, first byte in the low byte of
// `lo` on a little-endian target.
struct BlockMask {
    std::uint64_t lo;
    std::uint64_t hi;
    bool Any() const { return (lo | hi) != 0; }
    unsigned First() const {
        const auto first = [](std::uint64_t w) {
            return static_cast<unsigned>(std::endian::native == std::endian::little ? std::countr_zero(w)
                                                                                    : std::countl_zero(w)) >>
                   3;
        };
        return lo != 0 ? first(lo) : (hi != 0 ? 8 + first(hi) : 16);
    }
};

// Marks the bytes of a 16-byte block where string a ends or where a and b
// differ other than in the case of an ASCII letter (the C locale's case
// mapping). Both blocks must lie within one page each.
[[gnu::no_sanitize_address]] inline BlockMask CaseEvents(const unsigned char *a, const unsigned char *b) {
    unsigned char mask[16];
    for (std::size_t j = 0; j < 16; ++j) {
        const unsigned char ca = a[j];
        const unsigned char cb = b[j];
        const unsigned char x = ca ^ cb;
        const bool letter = static_cast<unsigned char>((ca | 0x20) - 'a') < 26;
        const bool same = (x == 0) | ((x == 0x20) & letter);
        mask[j] = (!same | (ca == 0)) ? 0xFF : 0;
    }
    BlockMask m;
    std::memcpy(&m.lo, mask, sizeof m.lo);
    std::memcpy(&m.hi, mask + 8, sizeof m.hi);
    return m;
}

} // namespace kestrel::cmutl
