// The run loop on Windows: the system timer raised to 1 ms for the runtime's
// life (the default tick is 15.6 ms), passes 10 ms apart on a high-resolution
// waitable timer with deadlines from the performance counter, and the key
// check of a foreground run with a console.
#include <conio.h>
#include <cstdio>

#include <windows.h>
// After windows.h, which it needs.
#include <timeapi.h>

#include "Host.h"

#ifndef CREATE_WAITABLE_TIMER_HIGH_RESOLUTION
#define CREATE_WAITABLE_TIMER_HIGH_RESOLUTION 0x00000002
#endif

namespace kestrel::host {

namespace {

constexpr UINT kTimerResolutionMs = 1;
constexpr LONGLONG kPassMs = 10;

HANDLE s_timer = nullptr;
bool s_periodRaised = false;
bool s_keyCheck = false;
LONGLONG s_frequency = 0;
LONGLONG s_deadline = 0; // performance-counter ticks; 0 before the first pass

LONGLONG Now() {
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    return now.QuadPart;
}

} // namespace

void HostOsRunBegin() {
    s_periodRaised = timeBeginPeriod(kTimerResolutionMs) == TIMERR_NOERROR;
    if (s_timer == nullptr) {
        s_timer = CreateWaitableTimerExW(nullptr, nullptr, CREATE_WAITABLE_TIMER_HIGH_RESOLUTION, TIMER_ALL_ACCESS);
        if (s_timer == nullptr) // systems before the high-resolution timers
            s_timer = CreateWaitableTimerW(nullptr, FALSE, nullptr);
    }
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    s_frequency = frequency.QuadPart;
    s_deadline = 0;
    // The guards' handler goes in before any component installs its own.
    HostOsGuardedCall([](void *) {}, nullptr);
}

void HostOsRunEnd() {
    if (s_periodRaised)
        timeEndPeriod(kTimerResolutionMs);
    s_periodRaised = false;
}

void HostOsLoopWait() {
    LONGLONG now = Now();
    LONGLONG pass = s_frequency * kPassMs / 1000;
    s_deadline = s_deadline == 0 ? now + pass : s_deadline + pass;
    // Behind by a whole pass: wait a full pass from now instead of a burst.
    if (s_deadline <= now)
        s_deadline = now + pass;
    LONGLONG remaining100ns = (s_deadline - now) * 10000000 / s_frequency;
    LARGE_INTEGER due;
    due.QuadPart = -remaining100ns; // relative
    if (s_timer != nullptr && SetWaitableTimer(s_timer, &due, 0, nullptr, nullptr, FALSE))
        WaitForSingleObject(s_timer, INFINITE);
    else
        Sleep(static_cast<DWORD>(remaining100ns / 10000));
}

void HostOsLoopPassDone() {}

bool HostOsStopRequested() {
    return false;
}

void HostOsEnableKeyCheck(bool bEnable) {
    s_keyCheck = bEnable;
}

bool HostOsKeyPressed() {
    return s_keyCheck && _kbhit() != 0;
}

void HostOsConsumeKey() {
    std::getchar();
}

} // namespace kestrel::host
