// Service control on POSIX through systemd: a process that systemd started
// (NOTIFY_SOCKET or INVOCATION_ID set) runs as the service; its status
// reports become notifications (READY=1 when running, STOPPING=1 when stop
// is pending) and the run loop pings the watchdog when systemd asks for it.
// Any other process fails to dispatch as a Windows program does outside the
// service control manager.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <time.h>
#include <unistd.h>

#include "Host.h"
#include "HostNotify.h"
#include "HostOptions.h"
#include "HostOsPosix.h"

namespace kestrel::host {

namespace {

HostNotifier s_notifier;
unsigned long long s_watchdogIntervalUs = 0;
unsigned long long s_nextWatchdogUs = 0;

unsigned long long NowUs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<unsigned long long>(now.tv_sec) * 1000000ULL +
           static_cast<unsigned long long>(now.tv_nsec) / 1000ULL;
}

const char *StatusMessage(RTS_UI32 ulState) {
    switch (ulState) {
    case kStateStartPending:
        return "STATUS=Starting";
    case kStateRunning:
        return "READY=1\nSTATUS=Running";
    case kStateStopPending:
        return "STOPPING=1\nSTATUS=Stopping";
    case kStateStopped:
        return "STATUS=Stopped";
    default:
        return "STATUS=Running";
    }
}

} // namespace

bool PosixServiceOpenNotifier() {
    const char *name = std::getenv("NOTIFY_SOCKET");
    if (name == nullptr || *name == '\0')
        return true;
    if (HostNotifyOpen(s_notifier, name))
        return true;
    PosixSetLastErrorFromErrno();
    return false;
}

bool PosixServiceHasNotifier() {
    return s_notifier.fd >= 0;
}

bool PosixServiceNotify(const char *pszMessage) {
    if (s_notifier.fd < 0)
        return true;
    if (HostNotifySend(s_notifier, pszMessage))
        return true;
    PosixSetLastErrorFromErrno();
    return false;
}

void PosixWatchdogSetup() {
    s_watchdogIntervalUs = 0;
    if (s_notifier.fd < 0)
        return;
    s_watchdogIntervalUs =
        HostWatchdogIntervalUs(std::getenv("WATCHDOG_USEC"), std::getenv("WATCHDOG_PID"), static_cast<long>(getpid()));
    s_nextWatchdogUs = NowUs() + s_watchdogIntervalUs;
}

void HostOsLoopPassDone() {
    if (s_watchdogIntervalUs == 0)
        return;
    unsigned long long now = NowUs();
    if (now < s_nextWatchdogUs)
        return;
    PosixServiceNotify("WATCHDOG=1");
    s_nextWatchdogUs = now + s_watchdogIntervalUs;
}

bool HostOsHasStatusHandle() {
    return PosixServiceHasNotifier();
}

bool HostOsSetServiceStatus(const HostServiceStatus *pStatus) {
    return pStatus != nullptr && PosixServiceNotify(StatusMessage(pStatus->ulCurrentState));
}

bool HostOsRegisterControlHandler(const char *) {
    // SIGTERM is the stop control (HostOsRunBegin); the notifier carries the
    // status reports.
    return PosixServiceOpenNotifier();
}

RTS_UI32 HostOsDispatch() {
    const char *notify = std::getenv("NOTIFY_SOCKET");
    const char *invocation = std::getenv("INVOCATION_ID");
    if ((notify == nullptr || *notify == '\0') && (invocation == nullptr || *invocation == '\0')) {
        PosixSetLastError(kErrorFailedServiceControllerConnect);
        std::fprintf(stderr,
                     "KESTRELControl runs as a service only when systemd starts it.\n"
                     "Run it in the foreground with -d (or -r), or install the service with -i.\n\n%s",
                     HostUsageText());
        return 0;
    }
    HostState &state = HostGetState();
    HostServiceMain(state.argc, state.argv);
    return 1;
}

} // namespace kestrel::host
