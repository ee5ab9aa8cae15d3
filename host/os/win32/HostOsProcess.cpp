// Windows backend of the host: the executable's path and resources (string
// table, version resource), processor affinity, working directory, MoveFile,
// error numbers and their system texts, platform and account identity, the
// environment.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <windows.h>

#include "Host.h"
#include "HostOsWin32.h"

namespace kestrel::host {

namespace {

// A copy of the security identifier of the account running the process,
// kept for other parts of the runtime.
BYTE s_userSid[4096];
bool s_userSidValid = false;

} // namespace

HINSTANCE HostModuleHandle() {
    return GetModuleHandleA(nullptr);
}

RTS_UI32 HostOsLastError() {
    return GetLastError();
}

bool HostOsGetModulePath(char *pszPath, RTS_SIZE ulSize, RTS_UI32 *pulError) {
    DWORD n = GetModuleFileNameA(nullptr, pszPath, static_cast<DWORD>(ulSize));
    if (n == 0 || n >= ulSize) {
        DWORD error = n == 0 ? GetLastError() : ERROR_INSUFFICIENT_BUFFER;
        if (pulError != nullptr)
            *pulError = error;
        SetLastError(error);
        return false;
    }
    return true;
}

char HostOsPathSeparator() {
    return '\\';
}

void HostOsPinToFirstProcessor() {
    SetProcessAffinityMask(GetCurrentProcess(), 1);
}

bool HostOsSetCurrentDirectory(const char *pszDirectory) {
    return SetCurrentDirectoryA(pszDirectory) != 0;
}

bool HostOsMoveFile(const char *pszFrom, const char *pszTo) {
    return MoveFileA(pszFrom, pszTo) != 0;
}

void HostOsErrorText(RTS_UI32 ulError, char *pszText, RTS_SIZE ulSize) {
    if (pszText == nullptr || ulSize == 0)
        return;
    pszText[0] = '\0';
    char text[kSystemTextSize];
    DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, ulError, 0, text,
                             sizeof(text), nullptr);
    // A text of 259 characters or more is dropped, as is a failed lookup.
    if (n == 0 || n >= kSystemTextSize - 1)
        return;
    text[n] = '\0';
    // The system's texts end with a line break; the host log adds its own.
    while (n > 0 && (text[n - 1] == '\r' || text[n - 1] == '\n' || text[n - 1] == ' '))
        text[--n] = '\0';
    std::snprintf(pszText, ulSize, "%s", text);
}

void HostOsSleepMs(RTS_UI32 ulMs) {
    Sleep(ulMs);
}

bool HostOsLoadString(RTS_UI32 ulId, char *pszText, RTS_SIZE ulSize) {
    if (pszText == nullptr || ulSize == 0)
        return false;
    return LoadStringA(HostModuleHandle(), ulId, pszText, static_cast<int>(ulSize)) > 0;
}

void HostOsReadProductVersion(const char *pszModulePath, char *pszVersion, RTS_SIZE ulSize) {
    if (pszVersion == nullptr || ulSize == 0)
        return;
    pszVersion[0] = '\0';
    DWORD handle = 0;
    DWORD size = GetFileVersionInfoSizeA(pszModulePath, &handle);
    if (size == 0)
        return;
    std::vector<char> info(size);
    if (!GetFileVersionInfoA(pszModulePath, 0, size, info.data()))
        return;
    char *value = nullptr;
    UINT length = 0;
    std::string key = std::string("\\StringFileInfo\\") + kVersionBlock + "\\ProductVersion";
    if (VerQueryValueA(info.data(), key.c_str(), reinterpret_cast<void **>(&value), &length) && value != nullptr)
        std::snprintf(pszVersion, ulSize, "%s", value);
}

bool HostOsIsNtFamily(bool *pbIsXp) {
    OSVERSIONINFOA version{};
    version.dwOSVersionInfoSize = sizeof(version);
    if (!GetVersionExA(&version))
        return false;
    if (pbIsXp != nullptr)
        *pbIsXp = version.dwMajorVersion == 5 && version.dwMinorVersion == 1;
    return version.dwPlatformId == VER_PLATFORM_WIN32_NT;
}

void HostOsLookupUserIdentity() {
    char user[260];
    DWORD userLength = sizeof(user);
    if (!GetUserNameA(user, &userLength))
        return;
    BYTE sid[4096];
    DWORD sidLength = sizeof(sid);
    char domain[260];
    DWORD domainLength = sizeof(domain);
    SID_NAME_USE use{};
    if (!LookupAccountNameA(nullptr, user, sid, &sidLength, domain, &domainLength, &use))
        return;
    if (IsValidSid(sid) && GetLengthSid(sid) <= sizeof(s_userSid)) {
        std::memcpy(s_userSid, sid, GetLengthSid(sid));
        s_userSidValid = true;
    }
}

void HostOsConsoleMessage(const char *pszText) {
    if (pszText == nullptr)
        return;
    size_t n = std::strlen(pszText);
    std::fputs(pszText, stderr);
    if (n == 0 || pszText[n - 1] != '\n')
        std::fputc('\n', stderr);
    std::fflush(stderr);
}

void HostOsSetDefaultEnvironment(const char *pszName, const char *pszValue) {
    // The C runtime's environment, which the modules read with getenv.
    if (std::getenv(pszName) == nullptr)
        _putenv((std::string(pszName) + "=" + pszValue).c_str());
}

bool HostOsHelpOptionSupported() {
    return false;
}

} // namespace kestrel::host
