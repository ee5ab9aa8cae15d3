// CMUtlStrICmp and CMUtlSafeStrCpy exist in two forms each: the portable
// one, and one that scans 32 bytes at a time, defined per processor family
// below cpu/ for the processors that have such vector instructions. The C
// functions jump through g_scanForms, which starts out with the portable
// forms and is switched to the wide ones before main() where the processor
// has them. Internal; nothing here is exported.
#pragma once

#include <cstddef>

#include "RtsTypes.h"

namespace kestrel::cmutl {

struct ScanForms {
    RTS_I32 (*pfStrICmp)(const char *psz1, const char *psz2);
    RTS_RESULT (*pfSafeStrCpy)(char *pszDest, RTS_SIZE ulDestSize, const char *pszSrc);
};

// The forms in use.
extern ScanForms g_scanForms;

// The portable forms, with the whole behaviour of the C functions.
RTS_I32 StrICmpPortable(const char *psz1, const char *psz2);
RTS_RESULT SafeStrCpyPortable(char *pszDest, RTS_SIZE ulDestSize, const char *pszSrc);

// The wide forms where the processor has them, else null.
ScanForms WideScanForms();

// The portable copy from byte i on: the wide form hands the rest of a
// string over to it near a page end.
RTS_RESULT SafeStrCpyFrom(unsigned char *dest, std::size_t size, const unsigned char *src, std::size_t i);

} // namespace kestrel::cmutl
