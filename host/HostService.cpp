// Service control in the portable core: the status reports, the control
// handler, the service's main function and the foreground run. The backends
// carry the reports to the system (SetServiceStatus, or systemd's notify
// socket) and call the control handler from the system's thread.
#include <atomic>

#include "CMItf.h"
#include "Host.h"
#include "HostLog.h"

namespace kestrel::host {

namespace {

// The control handler's thread waits on the state that the main thread
// writes; both touch it through an atomic view, without a lock.
RTS_UI32 LoadState() {
    return std::atomic_ref<RTS_UI32>(HostGetState().status.ulCurrentState).load();
}
void StoreState(RTS_UI32 ulState) {
    std::atomic_ref<RTS_UI32>(HostGetState().status.ulCurrentState).store(ulState);
}

constexpr RTS_UI32 kShutdownPollMs = 100;

} // namespace

RTS_UI32 HostReportStatus(RTS_UI32 ulState) {
    HostState &state = HostGetState();
    if (state.bNotAService)
        return 1;
    HostServiceStatus &status = state.status;
    status.ulControlsAccepted = ulState == kStateStartPending ? 0 : kAcceptStopAndShutdown;
    StoreState(ulState);
    status.ulWin32ExitCode = 0;
    status.ulServiceSpecificExitCode = 0;
    status.ulWaitHint = kStatusWaitHintMs;
    if (ulState == kStateRunning || ulState == kStateStopped)
        status.ulCheckPoint = 0;
    else
        ++status.ulCheckPoint;
    if (!HostOsHasStatusHandle())
        return 1;
    if (HostOsSetServiceStatus(&status))
        return 1;
    HostLogf("ERROR: Failed to set current service status [dwCurState=%ld, reason=%d, dwWin32ExitCode=%d]",
             static_cast<long>(ulState), static_cast<int>(HostOsLastError()), static_cast<int>(status.ulWin32ExitCode));
    return 0;
}

void HostControl(RTS_UI32 ulControl) {
    switch (ulControl) {
    case kControlStop:
        CMSetExit();
        break;
    case kControlPause:
        // Deliberately only the state field: pausing does not touch the runtime.
        StoreState(kStatePausePending);
        break;
    case kControlContinue:
        StoreState(kStateContinuePending);
        break;
    case kControlInterrogate:
        HostReportStatus(LoadState());
        break;
    case kControlShutdown:
        HostLog("*** Shutdown command from service control manager received...");
        CMSetExit();
        // The system shuts down once this returns: wait for the runtime's stop.
        while (LoadState() != kStateStopped)
            HostOsSleepMs(kShutdownPollMs);
        break;
    default:
        break;
    }
}

void HostServiceMain(int argc, char **argv) {
    HostLoadServiceName();
    HostState &state = HostGetState();
    if (!HostOsRegisterControlHandler(state.serviceName)) {
        HostLogf("RegisterServiceCtrlHandler() failed [reason: %d]", static_cast<int>(HostOsLastError()));
        return;
    }
    HostRun(argc, argv);
}

RTS_UI32 HostConsoleRun(int argc, char **argv, bool bWithConsole) {
    HostState &state = HostGetState();
    state.bWithConsole = bWithConsole;
    if (bWithConsole) {
        HostOsAttachConsole();
        HostOsInstallConsoleCtrlHandler();
    }
    HostOsEnableKeyCheck(bWithConsole);
    // In the foreground the logger echoes its entries on the console, unless
    // the environment says otherwise.
    HostOsSetDefaultEnvironment("KESTREL_CONSOLE", "1");
    HostRun(argc, argv);
    if (bWithConsole)
        HostOsConsoleFinish();
    return 1;
}

} // namespace kestrel::host
