// Processors without known wider vector instructions: the portable scans.
#include "../../CMUtlWideScan.h"

namespace kestrel::cmutl {

const bool g_bWideScan = false;

RTS_I32 StrICmpWide(const unsigned char *a, const unsigned char *b) {
    return StrICmpFrom(a, b, 0);
}

RTS_RESULT SafeStrCpyWide(unsigned char *dest, std::size_t size, const unsigned char *src) {
    return SafeStrCpyFrom(dest, size, src, 0);
}

} // namespace kestrel::cmutl
