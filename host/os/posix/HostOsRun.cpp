// The run loop on POSIX: stop signals (SIGTERM is the service's stop
// control, SIGINT the console's Ctrl-C), absolute 10 ms deadlines on the
// monotonic clock with a small timer slack, the key check on a terminal
// (a typed line is a key press), and the watchdog pings.
#include <cerrno>
#include <cstring>

#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <time.h>
#include <unistd.h>

#include "Host.h"
#include "HostOsPosix.h"

namespace kestrel::host {

namespace {

constexpr long kPassNs = 10L * 1000L * 1000L;
constexpr long kTimerSlackNs = 10L * 1000L;
constexpr long kNsPerSecond = 1000L * 1000L * 1000L;

volatile sig_atomic_t s_stopRequested = 0;
bool s_keyCheck = false;
bool s_deadlineSet = false;
timespec s_deadline{};

void OnStopSignal(int) {
    s_stopRequested = 1;
}

void AddNs(timespec &t, long ns) {
    t.tv_nsec += ns;
    while (t.tv_nsec >= kNsPerSecond) {
        t.tv_nsec -= kNsPerSecond;
        ++t.tv_sec;
    }
}

bool Before(const timespec &a, const timespec &b) {
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_nsec < b.tv_nsec);
}

bool StdinReadable() {
    pollfd pfd{STDIN_FILENO, POLLIN, 0};
    return poll(&pfd, 1, 0) > 0 && (pfd.revents & (POLLIN | POLLHUP)) != 0;
}

} // namespace

void HostOsRunBegin() {
    struct sigaction action;
    std::memset(&action, 0, sizeof(action));
    action.sa_handler = &OnStopSignal;
    // Restarted system calls: the stop signals must not break the
    // components' own reads and waits; the loop's sleep returns anyway.
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    // The exception guards' handlers go in before any component installs its own.
    HostOsGuardedCall([](void *) {}, nullptr);
    prctl(PR_SET_TIMERSLACK, kTimerSlackNs, 0, 0, 0);
    s_deadlineSet = false;
    PosixWatchdogSetup();
}

void HostOsRunEnd() {}

void HostOsLoopWait() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (!s_deadlineSet) {
        s_deadline = now;
        s_deadlineSet = true;
    }
    AddNs(s_deadline, kPassNs);
    // Behind by a whole pass (a long cycle): wait a full pass from now, as a
    // relative sleep would, instead of catching up with a burst of passes.
    if (Before(s_deadline, now)) {
        s_deadline = now;
        AddNs(s_deadline, kPassNs);
    }
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &s_deadline, nullptr) == EINTR) {
        if (s_stopRequested != 0)
            return;
    }
}

bool HostOsStopRequested() {
    return s_stopRequested != 0;
}

void HostOsEnableKeyCheck(bool bEnable) {
    s_keyCheck = bEnable;
}

bool HostOsKeyPressed() {
    return s_keyCheck && isatty(STDIN_FILENO) == 1 && StdinReadable();
}

void HostOsConsumeKey() {
    // Reads the waiting line, never more: nothing waits for input here.
    char buffer[256];
    while (StdinReadable()) {
        ssize_t n = read(STDIN_FILENO, buffer, sizeof(buffer));
        if (n <= 0 || buffer[n - 1] == '\n')
            break;
    }
}

void HostOsAttachConsole() {
    // The process already runs in the user's terminal.
}

void HostOsInstallConsoleCtrlHandler() {
    // SIGINT stops the runtime in every run mode (HostOsRunBegin).
}

void HostOsConsoleFinish() {
    // The terminal stays open after the process ends: nothing to wait for.
}

} // namespace kestrel::host
