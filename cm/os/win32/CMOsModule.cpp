// Windows backend of the component manager's module loader: "<name>.dll" by full path from the
// executable's directory, then from the default safe directories. The process-wide DLL search is
// restricted first, so that a DLL planted in the working directory is never picked up, neither for
// a module nor for the DLLs a module depends on.
#include "CMOs.h"

#include <windows.h>

#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

namespace kestrel::cm::os {

namespace {

const char *const s_suffixes[] = {".dll", ".DLL", nullptr};

std::once_flag s_restrictOnce;

void RestrictDllSearch() {
    std::call_once(s_restrictOnce, [] { SetDefaultDllDirectories(LOAD_LIBRARY_SEARCH_DEFAULT_DIRS); });
}

// Directory of the running executable with a trailing backslash, or empty.
std::string ReadExecutableDirectory() {
    char szPath[MAX_PATH + 1];
    DWORD n = GetModuleFileNameA(nullptr, szPath, MAX_PATH);
    if (n == 0 || n >= MAX_PATH)
        return std::string();
    szPath[n] = '\0';
    char *pSep = std::strrchr(szPath, '\\');
    char *pSlash = std::strrchr(szPath, '/');
    if (pSlash != nullptr && (pSep == nullptr || pSlash > pSep))
        pSep = pSlash;
    if (pSep == nullptr)
        return std::string();
    pSep[1] = '\0';
    return std::string(szPath);
}

// The executable does not move while it runs: its directory is read once.
const std::string &ExecutableDirectory() {
    static const std::string s_directory = ReadExecutableDirectory();
    return s_directory;
}

// The system's text for an error code, without the trailing line break.
void FormatError(DWORD dwError, char *pszError, std::size_t nErrorSize) {
    if (pszError == nullptr || nErrorSize == 0)
        return;
    char szText[512] = "";
    DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, dwError, 0, szText,
                             sizeof(szText), nullptr);
    while (n > 0 && (szText[n - 1] == '\r' || szText[n - 1] == '\n' || szText[n - 1] == ' '))
        szText[--n] = '\0';
    std::snprintf(pszError, nErrorSize, "error %lu: %s", static_cast<unsigned long>(dwError),
                  n > 0 ? szText : "unknown loader error");
}

bool IsPath(const char *pszName) {
    return std::strchr(pszName, '\\') != nullptr || std::strchr(pszName, '/') != nullptr;
}

} // namespace

const char *const *ModuleSuffixes() {
    return s_suffixes;
}

RTS_RESULT LoadModule(const char *pszFileName, RTS_HANDLE *phModule, char *pszError, std::size_t nErrorSize,
                      bool *pbMissing) {
    *phModule = RTS_INVALID_HANDLE;
    *pbMissing = false;
    bool bFileSeen = false;
    RestrictDllSearch();
    // No message box for a missing dependency: the failure goes to the log instead.
    DWORD dwOldMode = 0;
    SetThreadErrorMode(SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX, &dwOldMode);
    HMODULE h = nullptr;
    if (IsPath(pszFileName)) {
        h = LoadLibraryExA(pszFileName, nullptr, LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
    } else {
        std::string local = ExecutableDirectory();
        if (!local.empty()) {
            local += pszFileName;
            bFileSeen = GetFileAttributesA(local.c_str()) != INVALID_FILE_ATTRIBUTES;
            if (bFileSeen)
                h = LoadLibraryExA(local.c_str(), nullptr,
                                   LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
            else
                local.clear();
        }
        // Only without a module beside the executable: the default directories (the application
        // directory, System32 and added directories), which never include the working directory.
        if (local.empty())
            h = LoadLibraryExA(pszFileName, nullptr, LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
    }
    DWORD dwError = h == nullptr ? GetLastError() : 0;
    SetThreadErrorMode(dwOldMode, nullptr);
    if (h == nullptr) {
        // "Module not found" also stands for a missing dependency of a file that is there.
        *pbMissing = !bFileSeen && !IsPath(pszFileName) && dwError == ERROR_MOD_NOT_FOUND;
        FormatError(dwError, pszError, nErrorSize);
        return ERR_NO_OBJECT;
    }
    *phModule = reinterpret_cast<RTS_HANDLE>(h);
    return ERR_OK;
}

RTS_VOID_FCTPTR GetSymbol(RTS_HANDLE hModule, const char *pszSymbol) {
    if (hModule == nullptr || hModule == RTS_INVALID_HANDLE)
        return nullptr;
    FARPROC pf = GetProcAddress(reinterpret_cast<HMODULE>(hModule), pszSymbol);
    return reinterpret_cast<RTS_VOID_FCTPTR>(reinterpret_cast<void (*)()>(pf));
}

RTS_RESULT UnloadModule(RTS_HANDLE hModule) {
    if (hModule == nullptr || hModule == RTS_INVALID_HANDLE)
        return ERR_PARAMETER;
    return FreeLibrary(reinterpret_cast<HMODULE>(hModule)) ? ERR_OK : ERR_FAILED;
}

RTS_UI32 GetMs() {
    return static_cast<RTS_UI32>(GetTickCount64());
}

} // namespace kestrel::cm::os
