// POSIX backend of the component manager's module loader: dlopen of "<name>.so" by full path in
// the executable's directory, then through the library search path; RTLD_NOW so that a module
// with unresolved symbols fails at load time with the loader's reason, not later at a call.
#include "CMOs.h"

#include <dlfcn.h>
#include <limits.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

namespace kestrel::cm::os {

namespace {

const char *const s_suffixes[] = {".so", nullptr};

// Directory of the running executable with a trailing slash, or empty when it cannot be read.
std::string ReadExecutableDirectory() {
    char szPath[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", szPath, sizeof(szPath) - 1);
    if (n <= 0)
        return std::string();
    szPath[n] = '\0';
    char *pSlash = std::strrchr(szPath, '/');
    if (pSlash == nullptr)
        return std::string();
    pSlash[1] = '\0';
    return std::string(szPath);
}

// The executable does not move while it runs: its directory is read once.
const std::string &ExecutableDirectory() {
    static const std::string s_directory = ReadExecutableDirectory();
    return s_directory;
}

void CopyError(char *pszError, std::size_t nErrorSize, const char *pszText) {
    if (pszError == nullptr || nErrorSize == 0)
        return;
    std::snprintf(pszError, nErrorSize, "%s", pszText != nullptr ? pszText : "unknown loader error");
}

} // namespace

const char *const *ModuleSuffixes() {
    return s_suffixes;
}

RTS_RESULT LoadModule(const char *pszFileName, RTS_HANDLE *phModule, char *pszError, std::size_t nErrorSize,
                      bool *pbMissing) {
    *phModule = RTS_INVALID_HANDLE;
    *pbMissing = false;
    std::string path;
    if (std::strchr(pszFileName, '/') != nullptr) {
        path = pszFileName; // a path is taken as it is
    } else {
        // The module beside the executable wins; only when there is none does the search path
        // (LD_LIBRARY_PATH, the cache, the system directories) get a say.
        const std::string &directory = ExecutableDirectory();
        std::string local = directory.empty() ? std::string() : directory + pszFileName;
        path = (!local.empty() && access(local.c_str(), F_OK) == 0) ? local : std::string(pszFileName);
    }
    dlerror();
    void *h = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (h == nullptr) {
        const char *pszReason = dlerror();
        // Only a file that is nowhere at all counts as missing; a file that is there but lacks a
        // dependency fails with the dependency's name in the reason.
        *pbMissing = access(path.c_str(), F_OK) != 0 && pszReason != nullptr &&
                     std::strstr(pszReason, path.c_str()) != nullptr && std::strstr(pszReason, "No such file") != nullptr;
        CopyError(pszError, nErrorSize, pszReason);
        return ERR_NO_OBJECT;
    }
    *phModule = h;
    return ERR_OK;
}

RTS_VOID_FCTPTR GetSymbol(RTS_HANDLE hModule, const char *pszSymbol) {
    if (hModule == nullptr || hModule == RTS_INVALID_HANDLE)
        return nullptr;
    void *p = dlsym(hModule, pszSymbol);
    RTS_VOID_FCTPTR pf = nullptr;
    static_assert(sizeof(pf) == sizeof(p));
    std::memcpy(&pf, &p, sizeof(pf));
    return pf;
}

RTS_RESULT UnloadModule(RTS_HANDLE hModule) {
    if (hModule == nullptr || hModule == RTS_INVALID_HANDLE)
        return ERR_PARAMETER;
    return dlclose(hModule) == 0 ? ERR_OK : ERR_FAILED;
}

RTS_UI32 GetMs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<RTS_UI32>(static_cast<unsigned long long>(ts.tv_sec) * 1000ull +
                                 static_cast<unsigned long long>(ts.tv_nsec) / 1000000ull);
}

} // namespace kestrel::cm::os
