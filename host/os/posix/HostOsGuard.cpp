// Exception guards on POSIX: SIGSEGV, SIGBUS, SIGFPE and SIGILL raised on a
// thread inside a guarded call jump back to the guard with siglongjmp, which
// also restores the signal mask. A fault outside any guard (or on another
// thread) goes to the disposition that was installed before ours, so a
// component's own handler installed later, or the sanitizers', keep working.
#include <csetjmp>
#include <cstring>

#include <setjmp.h>
#include <signal.h>

#include "HostOs.h"

namespace kestrel::host {

namespace {

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};
constexpr int kNumSignals = sizeof(kSignals) / sizeof(kSignals[0]);

struct Guard {
    sigjmp_buf jumpBuffer;
};

thread_local Guard *t_guard = nullptr;
struct sigaction s_previous[kNumSignals];
bool s_installed = false;

void PassOn(int sig, siginfo_t *info, void *context) {
    for (int i = 0; i < kNumSignals; ++i) {
        if (kSignals[i] != sig)
            continue;
        const struct sigaction &previous = s_previous[i];
        if ((previous.sa_flags & SA_SIGINFO) != 0 && previous.sa_sigaction != nullptr) {
            previous.sa_sigaction(sig, info, context);
            return;
        }
        if (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN && previous.sa_handler != nullptr) {
            previous.sa_handler(sig);
            return;
        }
        // Default disposition: the faulting instruction runs again and ends
        // the process as it would without the host.
        signal(sig, SIG_DFL);
        return;
    }
}

void Handler(int sig, siginfo_t *info, void *context) {
    Guard *guard = t_guard;
    if (guard != nullptr) {
        t_guard = nullptr;
        siglongjmp(guard->jumpBuffer, 1);
    }
    PassOn(sig, info, context);
}

void InstallGuards() {
    if (s_installed)
        return;
    struct sigaction action;
    std::memset(&action, 0, sizeof(action));
    action.sa_sigaction = &Handler;
    action.sa_flags = SA_SIGINFO;
    sigemptyset(&action.sa_mask);
    for (int i = 0; i < kNumSignals; ++i)
        sigaction(kSignals[i], &action, &s_previous[i]);
    s_installed = true;
}

// Kept out of line so that the jump buffer's frame stays the caller's.
bool RunGuarded(HostGuardedFunction pfFunction, void *pContext) {
    Guard guard;
    Guard *outer = t_guard;
    if (sigsetjmp(guard.jumpBuffer, 1) != 0) {
        t_guard = outer;
        return false;
    }
    t_guard = &guard;
    pfFunction(pContext);
    t_guard = outer;
    return true;
}

} // namespace

bool HostOsGuardedCall(HostGuardedFunction pfFunction, void *pContext) {
    InstallGuards();
    return RunGuarded(pfFunction, pContext);
}

} // namespace kestrel::host
