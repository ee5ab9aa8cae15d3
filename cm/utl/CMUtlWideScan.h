// Scans of narrow strings 32 bytes at a time, for processors that have such
// vector instructions. Each processor family has its own definitions below
// cpu/; the portable functions use them only when g_bWideScan says so, and
// hand them the string from its start. Internal; nothing here is exported.
#pragma once

#include <cstddef>

#include "RtsTypes.h"

namespace kestrel::cmutl {

// Set once before main() runs; false until then, so that a call from an
// earlier static constructor takes the portable path.
extern const bool g_bWideScan;

// The bodies of CMUtlStrICmp and CMUtlSafeStrCpy for checked arguments.
RTS_I32 StrICmpWide(const unsigned char *a, const unsigned char *b);
RTS_RESULT SafeStrCpyWide(unsigned char *dest, std::size_t size, const unsigned char *src);

// Their portable forms, from byte i on: the wide forms hand the rest of a
// string over to them near a page end.
RTS_I32 StrICmpFrom(const unsigned char *a, const unsigned char *b, std::size_t i);
RTS_RESULT SafeStrCpyFrom(unsigned char *dest, std::size_t size, const unsigned char *src, std::size_t i);

} // namespace kestrel::cmutl
