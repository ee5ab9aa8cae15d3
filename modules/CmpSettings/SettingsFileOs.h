// Operating-system part of the settings component: reading the settings
// file whole, and replacing it atomically. A replacement writes a temporary
// file beside the target ("<file>.tmp"), flushes it to the disk and renames
// it over the target, so that a crash at any moment leaves either the old or
// the new file, never a partial one.
#pragma once

#include <string>

#include "RtsTypes.h"

namespace kestrel::settings {

// Where a test makes the replacement stop, to act out failures and crashes.
enum class WriteFault {
    None,
    FailCreate,       // the temporary file cannot be created
    DiskFull,         // writing the temporary file runs out of space
    CrashBeforeRename // the process "dies" after flushing, before the rename
};

// ERR_OK; ERR_NO_OBJECT when the file cannot be opened; ERR_FAILED on a read error.
RTS_RESULT OsReadFile(const char *pszPath, std::string *pContents);
// ERR_OK; ERR_DISK_FULL; ERR_NO_ACCESS_RIGHTS; ERR_FAILED for other errors.
RTS_RESULT OsReplaceFile(const char *pszPath, const std::string &contents, WriteFault fault);

} // namespace kestrel::settings
