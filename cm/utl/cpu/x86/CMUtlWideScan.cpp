// CMUtlStrICmp and CMUtlSafeStrCpy scanning 32 bytes at a time with AVX2,
// for the x86 processors that have it. Only these functions are compiled for
// AVX2, and the C functions reach them only when the processor said it has
// AVX2 (and the operating system saves its registers).
//
// A block of 32 bytes is read only when it lies within one memory page, and
// the first byte of a block always belongs to the string, so a read may pass
// the terminator but never touches a page the string does not reach; near a
// page end the bytes before it are taken one at a time (the comparison) or
// the portable scan takes over (the copy). AddressSanitizer would report those
// reads, so the block loops are exempt from its instrumentation.
#include <immintrin.h>

#include "../../CMUtlBlock.h"
#include "../../CMUtlInternal.h"
#include "../../CMUtlWideScan.h"

namespace kestrel::cmutl {

namespace {

// True when the first n bytes from a or from b reach into the next page:
// then the last of them lies in another page than the first.
template <std::uintptr_t n> inline bool NearPageEnd(const unsigned char *a, const unsigned char *b) {
    const auto pa = reinterpret_cast<std::uintptr_t>(a);
    const auto pb = reinterpret_cast<std::uintptr_t>(b);
    return (((pa + n - 1) ^ pa) | ((pb + n - 1) ^ pb)) >= kMinPageSize;
}

// The constants of the comparison, read from memory as operands of the
// instructions that use them rather than built in registers at every call.
struct alignas(32) ByteVector {
    unsigned char bytes[32];
};
constexpr ByteVector Splat(unsigned char value) {
    ByteVector v{};
    for (unsigned char &b : v.bytes) {
        b = value;
    }
    return v;
}
// Adding 0x80 - 'a' moves 'a'..'z' to the lowest signed bytes, -128..-103.
constexpr ByteVector kLowerBias = Splat(static_cast<unsigned char>(0x80 - 'a'));
constexpr ByteVector kLetterEnd = Splat(static_cast<unsigned char>(0x80 + 26));
constexpr ByteVector kCaseBit = Splat(0x20);

[[gnu::no_sanitize_address]] __attribute__((target("avx2"), always_inline)) inline __m256i Load(const void *p) {
    return _mm256_loadu_si256(static_cast<const __m256i *>(p));
}
// A constant as a load: the compiler would otherwise build the known value
// in a register with several instructions at every call.
__attribute__((target("avx2"), always_inline)) inline __m256i LoadConstant(const ByteVector &v) {
    __m256i r;
    asm("vmovdqa %1, %0" : "=x"(r) : "m"(v));
    return r;
}

// The events of one 32-byte block of a and b: bytes where a ends or where
// the two differ other than in the case of an ASCII letter. Two bytes match
// when they are equal, or when they differ only in the case bit and a with
// that bit set is a lower-case letter (then so is b with it set).
[[gnu::no_sanitize_address]] __attribute__((target("avx2"), always_inline)) inline unsigned
CaseEvents32(const unsigned char *a, const unsigned char *b) {
    const __m256i lowerBias = LoadConstant(kLowerBias);
    const __m256i letterEnd = LoadConstant(kLetterEnd);
    const __m256i caseBit = LoadConstant(kCaseBit);
    const __m256i va = Load(a);
    const __m256i vb = Load(b);
    const __m256i same = _mm256_cmpeq_epi8(va, vb);
    const __m256i caseOnly = _mm256_cmpeq_epi8(_mm256_xor_si256(va, vb), caseBit);
    const __m256i letter = _mm256_cmpgt_epi8(letterEnd, _mm256_add_epi8(_mm256_or_si256(va, caseBit), lowerBias));
    const __m256i match = _mm256_or_si256(same, _mm256_and_si256(caseOnly, letter));
    // The minimum with a is 0 where they do not match or a ends.
    const __m256i events = _mm256_cmpeq_epi8(_mm256_min_epu8(va, match), _mm256_setzero_si256());
    return static_cast<unsigned>(_mm256_movemask_epi8(events));
}

// The result at an event. Equal bytes there can only be both terminators,
// the usual end of a comparison of equal names, so that is tested first.
inline RTS_I32 EventVerdict(unsigned char ca, unsigned char cb) {
    if (ca == cb) [[likely]] {
        return 0;
    }
    return CaseVerdict(ca, cb);
}

// The comparison from byte i on where a block of a or of b may reach into
// the next page: whole blocks up to the nearer of the two page ends, the
// bytes before it one at a time, and on with blocks behind it.
[[gnu::no_sanitize_address, gnu::noinline]] __attribute__((target("avx2"))) RTS_I32
StrICmpAcrossPages(const unsigned char *a, const unsigned char *b, std::size_t i) {
    for (;;) {
        const std::size_t roomA = PageRoom(a + i);
        const std::size_t roomB = PageRoom(b + i);
        const std::size_t limit = i + (roomA < roomB ? roomA : roomB);
        for (; i + 32 <= limit; i += 32) {
            const unsigned mask = CaseEvents32(a + i, b + i);
            if (mask != 0) {
                i += static_cast<unsigned>(__builtin_ctz(mask));
                return EventVerdict(a[i], b[i]);
            }
        }
        for (; i < limit; ++i) {
            if (a[i] == 0 || ToLower(a[i]) != ToLower(b[i])) {
                return CaseVerdict(a[i], b[i]);
            }
        }
    }
}

// Compares both strings in their lower-case forms, 32 bytes at a time. A
// block settles most comparisons, a first-byte difference too, so unlike the
// portable form this one takes no separate look at the first byte. The first
// two blocks, where most names and keys end, are taken as they come after one
// page test for both. Then the blocks of a are aligned to 32 bytes (the first
// of them overlaps the second block, whose bytes were all equal and not the
// end): an aligned block never crosses a cache line or a page, so only b's
// blocks need the page test.
[[gnu::no_sanitize_address]] __attribute__((target("avx2"))) RTS_I32 StrICmpWide(const char *psz1, const char *psz2) {
    if (psz1 == nullptr || psz2 == nullptr) {
        return -1;
    }
    const auto *a = reinterpret_cast<const unsigned char *>(psz1);
    const auto *b = reinterpret_cast<const unsigned char *>(psz2);
    if (NearPageEnd<64>(a, b)) {
        return StrICmpAcrossPages(a, b, 0);
    }
    // Each of the first two blocks has its own exit, laid out straight behind it.
    unsigned mask = CaseEvents32(a, b);
    if (mask != 0) [[likely]] {
        const unsigned i = static_cast<unsigned>(__builtin_ctz(mask));
        return EventVerdict(a[i], b[i]);
    }
    mask = CaseEvents32(a + 32, b + 32);
    if (mask != 0) [[likely]] {
        const unsigned i = 32 + static_cast<unsigned>(__builtin_ctz(mask));
        return EventVerdict(a[i], b[i]);
    }
    std::size_t i = 64 - (reinterpret_cast<std::uintptr_t>(a) & 31);
    for (;;) {
        if (!BlockInOnePage<32>(b + i)) {
            return StrICmpAcrossPages(a, b, i);
        }
        mask = CaseEvents32(a + i, b + i);
        if (mask != 0) {
            break;
        }
        i += 32;
    }
    i += static_cast<unsigned>(__builtin_ctz(mask));
    return EventVerdict(a[i], b[i]);
}

[[gnu::no_sanitize_address]] __attribute__((target("avx2"))) RTS_RESULT SafeStrCpyWide(char *pszDest, RTS_SIZE size,
                                                                                       const char *pszSrc) {
    if (pszDest == nullptr || pszSrc == nullptr || size == 0) {
        return ERR_PARAMETER;
    }
    auto *dest = reinterpret_cast<unsigned char *>(pszDest);
    const auto *src = reinterpret_cast<const unsigned char *>(pszSrc);
    const __m256i zero = _mm256_setzero_si256();
    std::size_t i = 0;
    while (i + 32 <= size && BlockInOnePage<32>(src + i)) {
        const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(src + i));
        const unsigned ends = static_cast<unsigned>(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, zero)));
        if (ends != 0) {
            // The text and its terminator fit: the block's first k + 1 bytes.
            const unsigned k = static_cast<unsigned>(__builtin_ctz(ends));
            CopySmall(dest + i, src + i, k + 1);
            dest[size - 1] = 0;
            return ERR_OK;
        }
        _mm256_storeu_si256(reinterpret_cast<__m256i *>(dest + i), v);
        i += 32;
    }
    return SafeStrCpyFrom(dest, size, src, i);
}

} // namespace

// Portable until the processor is known; then, still before main(), the
// wide forms where it has AVX2. A static constructor that runs earlier and
// calls the C functions gets the portable forms. The forms are defined here
// so that every program that calls the C functions links this switch.
ScanForms g_scanForms = {&StrICmpPortable, &SafeStrCpyPortable};
namespace {
const bool s_bSwitched = [] {
    const ScanForms wide = WideScanForms();
    if (wide.pfStrICmp != nullptr) {
        g_scanForms = wide;
    }
    return wide.pfStrICmp != nullptr;
}();
} // namespace

ScanForms WideScanForms() {
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("avx2")) {
        return {nullptr, nullptr};
    }
    return {&StrICmpWide, &SafeStrCpyWide};
}

} // namespace kestrel::cmutl
