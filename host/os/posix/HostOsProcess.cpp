// POSIX backend of the host: the executable's path, processor affinity,
// working directory, renames with Windows' MoveFile semantics, error numbers
// and texts, the compiled-in string table and version, the console.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sched.h>
#include <stdio.h>
#include <time.h>
#include <unistd.h>

#include "Host.h"
#include "HostOsPosix.h"

namespace kestrel::host {

namespace {
thread_local RTS_UI32 t_lastError = 0;
} // namespace

void PosixSetLastError(RTS_UI32 ulError) {
    t_lastError = ulError;
}
void PosixSetLastErrorFromErrno() {
    t_lastError = static_cast<RTS_UI32>(errno);
}

RTS_UI32 HostOsLastError() {
    return t_lastError;
}

bool HostOsGetModulePath(char *pszPath, RTS_SIZE ulSize, RTS_UI32 *pulError) {
    char path[4096];
    ssize_t n = readlink("/proc/self/exe", path, sizeof(path) - 1);
    if (n < 0) {
        PosixSetLastErrorFromErrno();
        if (pulError != nullptr)
            *pulError = t_lastError;
        return false;
    }
    if (static_cast<RTS_SIZE>(n) + 1 > ulSize) {
        PosixSetLastError(ENAMETOOLONG);
        if (pulError != nullptr)
            *pulError = ENAMETOOLONG;
        return false;
    }
    std::memcpy(pszPath, path, static_cast<size_t>(n));
    pszPath[n] = '\0';
    return true;
}

char HostOsPathSeparator() {
    return '/';
}

void HostOsPinToFirstProcessor() {
    // Affinity mask 1 on Windows: here the first processor the process may use.
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (sched_getaffinity(0, sizeof(allowed), &allowed) != 0)
        return;
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
        if (CPU_ISSET(cpu, &allowed)) {
            cpu_set_t first;
            CPU_ZERO(&first);
            CPU_SET(cpu, &first);
            sched_setaffinity(0, sizeof(first), &first);
            return;
        }
    }
}

bool HostOsSetCurrentDirectory(const char *pszDirectory) {
    if (chdir(pszDirectory) == 0)
        return true;
    PosixSetLastErrorFromErrno();
    return false;
}

bool HostOsMoveFile(const char *pszFrom, const char *pszTo) {
    if (renameat2(AT_FDCWD, pszFrom, AT_FDCWD, pszTo, RENAME_NOREPLACE) == 0)
        return true;
    if (errno != EINVAL && errno != ENOSYS) {
        PosixSetLastErrorFromErrno();
        return false;
    }
    // File systems without RENAME_NOREPLACE: a hard link fails on an existing
    // target just as MoveFile does.
    if (link(pszFrom, pszTo) != 0) {
        PosixSetLastErrorFromErrno();
        return false;
    }
    unlink(pszFrom);
    return true;
}

void HostOsErrorText(RTS_UI32 ulError, char *pszText, RTS_SIZE ulSize) {
    if (pszText == nullptr || ulSize == 0)
        return;
    pszText[0] = '\0';
    const char *text = nullptr;
    char buffer[512];
    if (ulError == kErrorFailedServiceControllerConnect)
        text = "The service process could not connect to the service controller.";
    else
        text = strerror_r(static_cast<int>(ulError), buffer, sizeof(buffer));
    if (text != nullptr && std::strlen(text) < kSystemTextSize - 1 && std::strlen(text) < ulSize)
        std::strcpy(pszText, text);
}

void HostOsSleepMs(RTS_UI32 ulMs) {
    timespec delay{static_cast<time_t>(ulMs / 1000), static_cast<long>(ulMs % 1000) * 1000000L};
    while (nanosleep(&delay, &delay) != 0 && errno == EINTR) {
    }
}

bool HostOsLoadString(RTS_UI32 ulId, char *pszText, RTS_SIZE ulSize) {
    const char *text = HostStringText(ulId);
    if (text == nullptr || pszText == nullptr || ulSize == 0)
        return false;
    std::snprintf(pszText, ulSize, "%s", text);
    return true;
}

void HostOsReadProductVersion(const char *, char *pszVersion, RTS_SIZE ulSize) {
    if (pszVersion != nullptr && ulSize > 0)
        std::snprintf(pszVersion, ulSize, "%s", kProductVersion);
}

bool HostOsIsNtFamily(bool *pbIsXp) {
    if (pbIsXp != nullptr)
        *pbIsXp = false;
    return true; // every POSIX system counts as a service-capable platform
}

void HostOsLookupUserIdentity() {
    // The account is known to the system by its user id; nothing to keep.
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
    setenv(pszName, pszValue, 0);
}

bool HostOsHelpOptionSupported() {
    return true;
}

} // namespace kestrel::host
