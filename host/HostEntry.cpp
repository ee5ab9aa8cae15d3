// The entry sequence of the host: service name and product version, the
// status record, the platform check, the account identity, then the options
// and the one action they select (install, uninstall, start, stop, a
// foreground run, or handing the process to the service dispatcher).
#include <cstdio>
#include <cstring>
#include <string>

#include "Host.h"
#include "HostConfig.h"
#include "HostLog.h"
#include "HostOptions.h"

namespace kestrel::host {

namespace {

HostState g_state;
std::string g_modulePathOverride;

// The host log lives beside the executable, named after the service.
void SetLogPathFromModule() {
    std::string directory = HostModuleDirectory();
    if (!directory.empty())
        HostLogSetPath(directory + g_state.serviceName + ".log");
}

void ReportWarnings(const HostOptions &options) {
    for (const std::string &warning : options.warnings) {
        HostLog(warning.c_str());
        HostOsConsoleMessage(warning.c_str());
    }
}

RTS_UI32 RunAction(const HostOptions &options, int argc, char **argv) {
    switch (options.action) {
    case HostAction::Foreground:
        g_state.bNotAService = true;
        return HostConsoleRun(argc, argv, options.bWithConsole);
    case HostAction::Install:
        return HostOsInstallService();
    case HostAction::Uninstall:
        return HostOsUninstallService();
    case HostAction::Start:
        return HostOsStartService(argc, argv);
    case HostAction::Stop:
        return HostOsStopService();
    case HostAction::Help:
        std::fputs(HostUsageText(), stdout);
        std::fflush(stdout);
        return 1;
    case HostAction::Dispatch:
        break;
    }
    RTS_UI32 result = HostOsDispatch();
    if (result == 0)
        HostLogf("StartServiceCtrlDispatcher failed [reason: %d]", static_cast<int>(HostOsLastError()));
    return result;
}

} // namespace

HostState &HostGetState() {
    return g_state;
}

void HostOverrideModulePath(const char *pszPath) {
    g_modulePathOverride = pszPath != nullptr ? pszPath : "";
}

bool HostGetModulePath(char *pszPath, RTS_SIZE ulSize, RTS_UI32 *pulError) {
    if (g_modulePathOverride.empty())
        return HostOsGetModulePath(pszPath, ulSize, pulError);
    if (g_modulePathOverride.size() + 1 > ulSize) {
        if (pulError != nullptr)
            *pulError = ERR_BUFFERSIZE;
        return false;
    }
    std::memcpy(pszPath, g_modulePathOverride.c_str(), g_modulePathOverride.size() + 1);
    return true;
}

std::string HostModuleDirectory() {
    char path[kModulePathSize];
    if (!HostGetModulePath(path, sizeof(path), nullptr))
        return std::string();
    char *separator = std::strrchr(path, HostOsPathSeparator());
    if (separator == nullptr)
        return std::string();
    separator[1] = '\0';
    return path;
}

void HostLoadServiceName() {
    g_state.serviceName[0] = '\0';
    HostOsLoadString(kStringServiceName, g_state.serviceName, kServiceNameSize);
    HostStripQuotes(g_state.serviceName);
}

RTS_UI32 HostEntry(int argc, char **argv) {
    g_state.argc = argc;
    g_state.argv = argv;
    HostLoadServiceName();

    if (!HostGetModulePath(g_state.modulePath, kModulePathSize, nullptr))
        g_state.modulePath[0] = '\0';
    HostOsReadProductVersion(g_state.modulePath, g_state.productVersion, sizeof(g_state.productVersion));
    SetLogPathFromModule();

    g_state.status = HostServiceStatus{};
    g_state.status.ulServiceType = kServiceTypeOwnProcess;

    g_state.bIsNt = HostOsIsNtFamily(&g_state.bIsXp);
    if (!g_state.bIsNt) {
        HostLog("This service can be executed only on Windows NT-based operating systems");
        return 0;
    }
    HostOsLookupUserIdentity();

    HostOptions options = HostScanOptions(argc, argv, HostOsHelpOptionSupported());
    ReportWarnings(options);
    g_state.ulStartType = options.ulStartType;
    g_state.pszAccount = options.pszAccount;
    g_state.pszPassword = options.pszPassword;
    return RunAction(options, argc, argv);
}

} // namespace kestrel::host
