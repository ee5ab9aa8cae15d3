// POSIX backend of SysExcept: handlers for SIGSEGV, SIGBUS, SIGFPE and SIGILL.
// A handler that finds a catch point on the faulting thread jumps there; the
// handlers are installed with SA_NODEFER so that leaving them by a jump does
// not leave the signal blocked (a plain longjmp does not restore the signal
// mask). Without a catch point the previous disposition is restored and the
// faulting instruction runs again, which then ends the process as usual.
#include "SysExceptOs.h"

#include <signal.h>
#include <string.h>

namespace kestrel::sysexcept {
namespace {

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL};
constexpr int kNumSignals = sizeof(kSignals) / sizeof(kSignals[0]);
struct sigaction s_previous[kNumSignals];
bool s_installed = false;

RTS_UI32 MapSignal(int sig, int code) {
    switch (sig) {
    case SIGSEGV:
        return RTSEXCPT_ACCESS_VIOLATION;
    case SIGBUS:
        return code == BUS_ADRALN ? RTSEXCPT_MISALIGNMENT : RTSEXCPT_ACCESS_VIOLATION;
    case SIGFPE:
        return (code == FPE_INTDIV || code == FPE_FLTDIV) ? RTSEXCPT_DIVIDEBYZERO : RTSEXCPT_FPU_ERROR;
    case SIGILL:
        return RTSEXCPT_ILLEGAL_INSTRUCTION;
    default:
        return RTSEXCPT_NOEXCEPTION;
    }
}

void Handler(int sig, siginfo_t *info, void *) {
    RTS_EXCEPT_FRAME *pFrame = TakeFrame();
    if (pFrame != nullptr)
        JumpToFrame(pFrame, MapSignal(sig, info != nullptr ? info->si_code : 0),
                    info != nullptr ? reinterpret_cast<RTS_UINTPTR>(info->si_addr) : 0);
    // Nobody to catch it: let the previous disposition handle the repeat.
    for (int i = 0; i < kNumSignals; ++i) {
        if (kSignals[i] == sig)
            sigaction(sig, &s_previous[i], nullptr);
    }
}

} // namespace

bool OsInstall() {
    if (s_installed)
        return true;
    struct sigaction action;
    memset(&action, 0, sizeof(action));
    action.sa_sigaction = Handler;
    action.sa_flags = SA_SIGINFO | SA_NODEFER;
    sigemptyset(&action.sa_mask);
    for (int i = 0; i < kNumSignals; ++i) {
        if (sigaction(kSignals[i], &action, &s_previous[i]) != 0) {
            for (int j = 0; j < i; ++j)
                sigaction(kSignals[j], &s_previous[j], nullptr);
            return false;
        }
    }
    s_installed = true;
    return true;
}

void OsUninstall() {
    if (!s_installed)
        return;
    for (int i = 0; i < kNumSignals; ++i)
        sigaction(kSignals[i], &s_previous[i], nullptr);
    s_installed = false;
}

} // namespace kestrel::sysexcept
