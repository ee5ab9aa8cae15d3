// Service control on Windows: the dispatcher with its one table entry, the
// service's main function, the control handler and the status reports to
// the service control manager.
#include <windows.h>

#include "Host.h"

namespace kestrel::host {

namespace {

SERVICE_STATUS_HANDLE s_statusHandle = nullptr;

void WINAPI ServiceMain(DWORD argc, LPSTR *argv) {
    HostServiceMain(static_cast<int>(argc), argv);
}

// Runs on the dispatcher's thread: touches only the exit flag and the status.
void WINAPI ControlHandler(DWORD dwControl) {
    HostControl(dwControl);
}

} // namespace

RTS_UI32 HostOsDispatch() {
    SERVICE_TABLE_ENTRYA table[] = {{HostGetState().serviceName, &ServiceMain}, {nullptr, nullptr}};
    return StartServiceCtrlDispatcherA(table) ? 1 : 0;
}

bool HostOsRegisterControlHandler(const char *pszServiceName) {
    s_statusHandle = RegisterServiceCtrlHandlerA(pszServiceName, &ControlHandler);
    return s_statusHandle != nullptr;
}

bool HostOsHasStatusHandle() {
    return s_statusHandle != nullptr;
}

bool HostOsSetServiceStatus(const HostServiceStatus *pStatus) {
    if (pStatus == nullptr || s_statusHandle == nullptr)
        return false;
    SERVICE_STATUS status{};
    status.dwServiceType = pStatus->ulServiceType;
    status.dwCurrentState = pStatus->ulCurrentState;
    status.dwControlsAccepted = pStatus->ulControlsAccepted;
    status.dwWin32ExitCode = pStatus->ulWin32ExitCode;
    status.dwServiceSpecificExitCode = pStatus->ulServiceSpecificExitCode;
    status.dwCheckPoint = pStatus->ulCheckPoint;
    status.dwWaitHint = pStatus->ulWaitHint;
    return SetServiceStatus(s_statusHandle, &status) != 0;
}

} // namespace kestrel::host
