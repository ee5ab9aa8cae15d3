// Win32 backend of the settings file: CreateFile/ReadFile, and the atomic
// replacement with WriteFile, FlushFileBuffers and MoveFileEx replacing the
// target, written through to the disk.
#include "SettingsFileOs.h"

#include <windows.h>

namespace kestrel::settings {
namespace {

RTS_RESULT MapError(DWORD err) {
    switch (err) {
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
        return ERR_DISK_FULL;
    case ERROR_ACCESS_DENIED:
    case ERROR_WRITE_PROTECT:
    case ERROR_SHARING_VIOLATION:
        return ERR_NO_ACCESS_RIGHTS;
    default:
        return ERR_FAILED;
    }
}

bool WriteAll(HANDLE h, const char *p, std::size_t n) {
    while (n > 0) {
        DWORD chunk = n > 0x40000000u ? 0x40000000u : static_cast<DWORD>(n);
        DWORD written = 0;
        if (!WriteFile(h, p, chunk, &written, nullptr) || written == 0)
            return false;
        p += written;
        n -= written;
    }
    return true;
}

} // namespace

RTS_RESULT OsReadFile(const char *pszPath, std::string *pContents) {
    HANDLE h = CreateFileA(pszPath, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                           OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return ERR_NO_OBJECT;
    pContents->clear();
    char buffer[8192];
    for (;;) {
        DWORD got = 0;
        if (!ReadFile(h, buffer, sizeof(buffer), &got, nullptr)) {
            CloseHandle(h);
            return ERR_FAILED;
        }
        if (got == 0)
            break;
        pContents->append(buffer, got);
    }
    CloseHandle(h);
    return ERR_OK;
}

RTS_RESULT OsReplaceFile(const char *pszPath, const std::string &contents, WriteFault fault) {
    std::string temp = std::string(pszPath) + ".tmp";
    HANDLE h = fault == WriteFault::FailCreate ? INVALID_HANDLE_VALUE
                                               : CreateFileA(temp.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                                             FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return fault == WriteFault::FailCreate ? ERR_NO_ACCESS_RIGHTS : MapError(GetLastError());
    RTS_RESULT result = ERR_OK;
    if (fault == WriteFault::DiskFull) {
        WriteAll(h, contents.data(), contents.size() / 2);
        result = ERR_DISK_FULL;
    } else if (!WriteAll(h, contents.data(), contents.size()) || !FlushFileBuffers(h)) {
        result = MapError(GetLastError());
    }
    CloseHandle(h);
    if (result != ERR_OK) {
        DeleteFileA(temp.c_str());
        return result;
    }
    if (fault == WriteFault::CrashBeforeRename)
        return ERR_FAILED; // the temporary file stays behind, as after a real crash
    if (!MoveFileExA(temp.c_str(), pszPath, MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        result = MapError(GetLastError());
        DeleteFileA(temp.c_str());
        return result;
    }
    return ERR_OK;
}

} // namespace kestrel::settings
