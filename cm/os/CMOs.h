// Operating-system services of the component manager: loading and unloading module files,
// finding their entry symbol, and a millisecond clock for when no time component is imported.
// One backend per operating system in os/posix and os/win32 defines these functions.
#pragma once

#include <cstddef>

#include "RtsTypes.h"

namespace kestrel::cm::os {

// Suffixes that mark a name as a complete module file name; the first one is appended to a bare
// component name (".so" on POSIX, ".dll" on Windows). The list ends with a null pointer.
const char *const *ModuleSuffixes();

// Loads a module file: first from the directory of the executable, then from the system's library
// search path (never from the working directory on Windows). Returns 0 and the handle, or 16 and
// the loader's own reason in pszError; *pbMissing then tells whether no file of that name was found
// at all (as opposed to a file that is there but cannot be loaded).
RTS_RESULT LoadModule(const char *pszFileName, RTS_HANDLE *phModule, char *pszError, std::size_t nErrorSize,
                      bool *pbMissing);

// Address of an exported symbol, or null.
RTS_VOID_FCTPTR GetSymbol(RTS_HANDLE hModule, const char *pszSymbol);

// Unloads a module loaded by LoadModule.
RTS_RESULT UnloadModule(RTS_HANDLE hModule);

// Monotonic milliseconds.
RTS_UI32 GetMs();

} // namespace kestrel::cm::os
