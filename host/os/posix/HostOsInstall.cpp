// Service management on POSIX: install writes the systemd unit and enables it
// for automatic start, uninstall stops, disables and removes it, start and
// stop go through systemctl. The messages are those of the Windows service
// control manager's actions, with the system's texts; they go to the host
// log and, for the user at the terminal, to standard error.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Host.h"
#include "HostLog.h"
#include "HostOptions.h"
#include "HostOsPosix.h"
#include "HostUnit.h"

namespace kestrel::host {

namespace {

std::string UnitPath() {
    return HostUnitDirectory() + "/" + HostUnitName(HostGetState().serviceName);
}

std::string ErrnoText(int error) {
    char text[kSystemTextSize];
    HostOsErrorText(static_cast<RTS_UI32>(error), text, sizeof(text));
    return text;
}

std::string SystemctlFailure(const char *pszVerb, int status) {
    if (status < 0)
        return std::string("systemctl ") + pszVerb + " could not be run: " + ErrnoText(errno);
    return std::string("systemctl ") + pszVerb + " failed with exit status " + std::to_string(status);
}

int Systemctl(const char *pszVerb, const std::string &unit) {
    return HostRunSystemctl({pszVerb, unit});
}

bool IsActive(const std::string &unit) {
    return HostRunSystemctl({"is-active", "--quiet", unit}) == 0;
}

// The unit file must exist, as the service must for OpenService.
bool OpenUnit(std::string &unitPath) {
    unitPath = UnitPath();
    struct stat info {};
    if (stat(unitPath.c_str(), &info) == 0)
        return true;
    HostLogf("***ERROR***: OpenService failed: %s", ErrnoText(errno).c_str());
    return false;
}

bool WriteAll(int fd, const std::string &text) {
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return fsync(fd) == 0;
}

// Stops the unit; true when it is no longer active afterwards.
bool StopUnit(const std::string &unit) {
    Systemctl("stop", unit);
    if (!IsActive(unit))
        return true;
    HostLogf("***ERROR***: %s Service failed to stop.", HostGetState().serviceName);
    return false;
}

} // namespace

RTS_UI32 HostOsInstallService() {
    HostOsAttachConsole();
    HostLogSetEcho(true);
    HostState &state = HostGetState();
    char path[kModulePathSize];
    RTS_UI32 error = 0;
    if (!HostGetModulePath(path, 257, &error)) {
        char text[kSystemTextSize];
        HostOsErrorText(error, text, sizeof(text));
        HostLogf("***ERROR***: Unable to install %s Service: %s", state.serviceName, text);
        return 0;
    }
    HostUnitFields fields{state.serviceName, state.productVersion, path,
                          state.pszAccount != nullptr ? state.pszAccount : ""};
    std::string text = HostUnitText(fields);
    if (text.empty()) {
        HostLogf("***ERROR***: Unable to install %s Service: %s", state.serviceName,
                 "a name or path contains a line break");
        return 0;
    }
    if (state.pszPassword != nullptr)
        HostLog("The password is not used: systemd starts the service under its account without one");

    std::string unitPath = UnitPath();
    int fd = open(unitPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    if (fd < 0) {
        HostLogf("***ERROR***: CreateService failed: %s", ErrnoText(errno).c_str());
        return 0;
    }
    bool bWritten = WriteAll(fd, text);
    int writeError = errno;
    close(fd);
    if (!bWritten) {
        unlink(unitPath.c_str());
        HostLogf("***ERROR***: CreateService failed: %s", ErrnoText(writeError).c_str());
        return 0;
    }

    // A failed installation leaves nothing behind, as a failed CreateService
    // does: the unit file goes again, so the next -i can succeed.
    std::string unit = HostUnitName(state.serviceName);
    int status = HostRunSystemctl({"daemon-reload"});
    if (status != 0) {
        unlink(unitPath.c_str());
        HostLogf("***ERROR***: CreateService failed: %s", SystemctlFailure("daemon-reload", status).c_str());
        return 0;
    }
    if (state.ulStartType == kStartTypeAuto) {
        status = Systemctl("enable", unit);
        if (status != 0) {
            unlink(unitPath.c_str());
            HostRunSystemctl({"daemon-reload"});
            HostLogf("***ERROR***: CreateService failed: %s", SystemctlFailure("enable", status).c_str());
            return 0;
        }
    }
    HostLogf("%s Service installed: %s", state.serviceName, unitPath.c_str());
    return 1;
}

RTS_UI32 HostOsUninstallService() {
    HostOsAttachConsole();
    HostLogSetEcho(true);
    std::string unitPath;
    if (!OpenUnit(unitPath))
        return 0;
    std::string unit = HostUnitName(HostGetState().serviceName);
    // A unit that fails to stop is removed all the same.
    StopUnit(unit);
    Systemctl("disable", unit);
    if (unlink(unitPath.c_str()) != 0) {
        HostLogf("***ERROR***: DeleteService failed: %s", ErrnoText(errno).c_str());
        return 0;
    }
    HostRunSystemctl({"daemon-reload"});
    HostLogf("%s Service removed", HostGetState().serviceName);
    return 1;
}

RTS_UI32 HostOsStartService(int, char **) {
    // systemd passes no arguments to a started unit: the service reads the
    // configuration named in its unit.
    HostLogSetEcho(true);
    std::string unitPath;
    if (!OpenUnit(unitPath))
        return 0;
    std::string unit = HostUnitName(HostGetState().serviceName);
    int status = Systemctl("start", unit);
    if (status != 0) {
        HostLogf("***ERROR***: %s Service failed to start: %s", HostGetState().serviceName,
                 SystemctlFailure("start", status).c_str());
        return 0;
    }
    if (IsActive(unit))
        return 1;
    HostLogf("***ERROR***: %s Service failed to start.", HostGetState().serviceName);
    return 0;
}

RTS_UI32 HostOsStopService() {
    HostLogSetEcho(true);
    std::string unitPath;
    if (!OpenUnit(unitPath))
        return 0;
    return StopUnit(HostUnitName(HostGetState().serviceName)) ? 1 : 0;
}

} // namespace kestrel::host
