// Scans of narrow strings 32 bytes at a time with AVX2, for the x86
// processors that have it. Only these functions are compiled for AVX2, and
// the portable functions call them only when the processor said it has AVX2
// (and the operating system saves its registers).
//
// A block of 32 bytes is read only when it lies within one memory page, and
// the first byte of a block always belongs to the string, so a read may pass
// the terminator but never touches a page the string does not reach; near a
// page end the portable scans take over. AddressSanitizer would report those
// reads, so the block loops are exempt from its instrumentation.
#include <immintrin.h>

#include "../../CMUtlBlock.h"
#include "../../CMUtlInternal.h"
#include "../../CMUtlWideScan.h"

namespace kestrel::cmutl {

namespace {

bool DetectWideScan() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2");
}

} // namespace

const bool g_bWideScan = DetectWideScan();

[[gnu::no_sanitize_address]] __attribute__((target("avx2"))) RTS_I32 StrICmpWide(const unsigned char *a,
                                                                                const unsigned char *b) {
    const __m256i zero = _mm256_setzero_si256();
    const __m256i caseBit = _mm256_set1_epi8(0x20);
    const __m256i lowerA = _mm256_set1_epi8('a');
    const __m256i letters = _mm256_set1_epi8(25);
    std::size_t i = 0;
    while (BlockInOnePage<32>(a + i) && BlockInOnePage<32>(b + i)) {
        const __m256i va = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(a + i));
        const __m256i vb = _mm256_loadu_si256(reinterpret_cast<const __m256i *>(b + i));
        // A byte is an event where a ends, or where the two differ other
        // than in the case bit of an ASCII letter.
        const __m256i x = _mm256_xor_si256(va, vb);
        const __m256i offset = _mm256_sub_epi8(_mm256_or_si256(va, caseBit), lowerA);
        const __m256i letter = _mm256_cmpeq_epi8(_mm256_min_epu8(offset, letters), offset);
        const __m256i same = _mm256_or_si256(_mm256_cmpeq_epi8(x, zero),
                                             _mm256_and_si256(_mm256_cmpeq_epi8(x, caseBit), letter));
        const __m256i end = _mm256_cmpeq_epi8(va, zero);
        const unsigned events = ~static_cast<unsigned>(_mm256_movemask_epi8(same)) |
                                static_cast<unsigned>(_mm256_movemask_epi8(end));
        if (events != 0) {
            i += static_cast<unsigned>(__builtin_ctz(events));
            return CaseVerdict(a[i], b[i]);
        }
        i += 32;
    }
    return StrICmpFrom(a, b, i);
}

[[gnu::no_sanitize_address]] __attribute__((target("avx2"))) RTS_RESULT SafeStrCpyWide(unsigned char *dest,
                                                                                      std::size_t size,
                                                                                      const unsigned char *src) {
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

} // namespace kestrel::cmutl
