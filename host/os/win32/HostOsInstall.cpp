// Service management on Windows through the service control manager:
// install (CreateService with the quoted path and the display name with the
// product version), uninstall (stop, then delete), start and stop with their
// waits. Platforms outside the NT family register the quoted path under the
// RunServices key instead. Messages go to the host log with the system's text.
#include <string>
#include <vector>

#include <windows.h>

#include "Host.h"
#include "HostLog.h"

namespace kestrel::host {

namespace {

constexpr DWORD kManagerAccess = 0xF003F; // SC_MANAGER_ALL_ACCESS
constexpr DWORD kServiceAccess = 0xF01FF; // SERVICE_ALL_ACCESS
constexpr DWORD kErrorControlNormal = 1;
constexpr DWORD kPollMs = 1000;
constexpr const char *kRunServicesKey = "Software\\Microsoft\\Windows\\CurrentVersion\\RunServices";

std::string SystemText(DWORD error) {
    char text[kSystemTextSize];
    HostOsErrorText(error, text, sizeof(text));
    return text;
}

// Closes the handles of an opened manager and service.
struct ScHandles {
    SC_HANDLE manager = nullptr;
    SC_HANDLE service = nullptr;
    ~ScHandles() {
        if (service != nullptr)
            CloseServiceHandle(service);
        if (manager != nullptr)
            CloseServiceHandle(manager);
    }
};

bool OpenTheService(ScHandles &handles) {
    handles.manager = OpenSCManagerA(nullptr, nullptr, kManagerAccess);
    if (handles.manager == nullptr) {
        HostLogf("***ERROR***: OpenSCManager failed: %s", SystemText(GetLastError()).c_str());
        return false;
    }
    handles.service = OpenServiceA(handles.manager, HostGetState().serviceName, kServiceAccess);
    if (handles.service == nullptr) {
        HostLogf("***ERROR***: OpenService failed: %s", SystemText(GetLastError()).c_str());
        return false;
    }
    return true;
}

// Polls every second while the service is in the given state; no bound, as
// the service control manager gives each service its own wait hint.
DWORD WaitWhile(SC_HANDLE service, DWORD state) {
    SERVICE_STATUS status{};
    Sleep(kPollMs);
    while (QueryServiceStatus(service, &status) && status.dwCurrentState == state)
        Sleep(kPollMs);
    return status.dwCurrentState;
}

// Sends the stop control; true when the service ends up stopped.
bool StopService(SC_HANDLE service) {
    SERVICE_STATUS status{};
    if (ControlService(service, SERVICE_CONTROL_STOP, &status)) {
        if (WaitWhile(service, SERVICE_STOP_PENDING) == SERVICE_STOPPED)
            return true;
        HostLogf("***ERROR***: %s Service failed to stop.", HostGetState().serviceName);
        return false;
    }
    return QueryServiceStatus(service, &status) && status.dwCurrentState == SERVICE_STOPPED;
}

} // namespace

RTS_UI32 HostOsInstallService() {
    HostOsAttachConsole();
    HostState &state = HostGetState();
    char path[kModulePathSize];
    RTS_UI32 error = 0;
    if (!HostGetModulePath(path, 257, &error)) {
        HostLogf("***ERROR***: Unable to install %s Service: %s", state.serviceName, SystemText(error).c_str());
        return 0;
    }
    std::string command = std::string("\"") + path + "\"";

    if (!state.bIsNt) {
        HKEY key = nullptr;
        if (RegCreateKeyA(HKEY_LOCAL_MACHINE, kRunServicesKey, &key) != ERROR_SUCCESS)
            return 0;
        LONG set = RegSetValueExA(key, state.serviceName, 0, REG_SZ, reinterpret_cast<const BYTE *>(command.c_str()),
                                  static_cast<DWORD>(command.size() + 1));
        RegCloseKey(key);
        return set == ERROR_SUCCESS ? 1 : 0;
    }

    ScHandles handles;
    handles.manager = OpenSCManagerA(nullptr, nullptr, kManagerAccess);
    if (handles.manager == nullptr) {
        // Formatted as the original did, and deliberately not logged.
        std::string unused = "OpenSCManager failed: " + SystemText(GetLastError());
        (void)unused;
        return 0;
    }
    std::string displayName = std::string(state.serviceName) + " Version " + state.productVersion;
    handles.service = CreateServiceA(handles.manager, state.serviceName, displayName.c_str(), kServiceAccess,
                                     SERVICE_WIN32_OWN_PROCESS, state.ulStartType, kErrorControlNormal, command.c_str(),
                                     nullptr, nullptr, nullptr, state.pszAccount, state.pszPassword);
    if (handles.service == nullptr) {
        HostLogf("***ERROR***: CreateService failed: %s", SystemText(GetLastError()).c_str());
        return 0;
    }
    return 1;
}

RTS_UI32 HostOsUninstallService() {
    HostOsAttachConsole();
    HostState &state = HostGetState();
    if (!state.bIsNt) {
        HKEY key = nullptr;
        if (RegCreateKeyA(HKEY_LOCAL_MACHINE, kRunServicesKey, &key) != ERROR_SUCCESS)
            return 0;
        RegDeleteValueA(key, state.serviceName);
        RegCloseKey(key);
        return 1;
    }
    ScHandles handles;
    if (!OpenTheService(handles))
        return 0;
    // A service that fails to stop is deleted all the same.
    StopService(handles.service);
    if (!DeleteService(handles.service)) {
        HostLogf("***ERROR***: DeleteService failed: %s", SystemText(GetLastError()).c_str());
        return 0;
    }
    return 1;
}

RTS_UI32 HostOsStartService(int argc, char **argv) {
    ScHandles handles;
    if (!OpenTheService(handles))
        return 0;
    std::vector<LPCSTR> args(argv, argv + argc);
    if (!StartServiceA(handles.service, static_cast<DWORD>(argc), args.data())) {
        HostLogf("***ERROR***: %s Service failed to start: %s", HostGetState().serviceName,
                 SystemText(GetLastError()).c_str());
        return 0;
    }
    if (WaitWhile(handles.service, SERVICE_START_PENDING) == SERVICE_RUNNING)
        return 1;
    HostLogf("***ERROR***: %s Service failed to start.", HostGetState().serviceName);
    return 0;
}

RTS_UI32 HostOsStopService() {
    ScHandles handles;
    if (!OpenTheService(handles))
        return 0;
    return StopService(handles.service) ? 1 : 0;
}

} // namespace kestrel::host
