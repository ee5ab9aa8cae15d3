/*
 * The portable core of the host: process-wide state, the entry sequence, the
 * run procedure with its run loop, the service status reports, the control
 * handler and the console run. The OS backends (HostOs.h) call back into the
 * functions declared here.
 */
#ifndef KESTREL_HOST_H
#define KESTREL_HOST_H

#include <string>

#include "HostNames.h"
#include "HostOs.h"

namespace kestrel::host {

// Service states and controls of the service control manager.
constexpr RTS_UI32 kStateStopped = 1;
constexpr RTS_UI32 kStateStartPending = 2;
constexpr RTS_UI32 kStateStopPending = 3;
constexpr RTS_UI32 kStateRunning = 4;
constexpr RTS_UI32 kStateContinuePending = 5;
constexpr RTS_UI32 kStatePausePending = 6;
constexpr RTS_UI32 kServiceTypeOwnProcess = 16;
constexpr RTS_UI32 kAcceptStopAndShutdown = 5;
constexpr RTS_UI32 kStatusWaitHintMs = 10000;

constexpr RTS_UI32 kControlStop = 1;
constexpr RTS_UI32 kControlPause = 2;
constexpr RTS_UI32 kControlContinue = 3;
constexpr RTS_UI32 kControlInterrogate = 4;
constexpr RTS_UI32 kControlShutdown = 5;

// Windows' error for a process that was not started by the service control
// manager; the POSIX dispatcher reports the same number.
constexpr RTS_UI32 kErrorFailedServiceControllerConnect = 1063;

// Process-wide state, set by the entry point before any action runs.
struct HostState {
    int argc = 0;
    char **argv = nullptr;
    char serviceName[kServiceNameSize] = {}; // string 1 without its quotes
    char productVersion[64] = {};            // "ProductVersion" of the version resource
    char modulePath[kModulePathSize] = {};   // full path of the executable
    HostServiceStatus status = {};           // as last reported
    bool bIsNt = false;
    bool bIsXp = false;
    bool bNotAService = false;        // foreground: no status reports
    bool bWithConsole = false;        // foreground with a console of its own
    RTS_UI32 ulStartType = 2;         // 2 automatic, 3 on demand
    const char *pszAccount = nullptr; // installation account, absent by default
    const char *pszPassword = nullptr;
};

HostState &HostGetState();

// The entry sequence: names, version, platform check, options, action.
// Returns the action's result, non-zero for success.
RTS_UI32 HostEntry(int argc, char **argv);

// Loads ServiceName from string 1 and removes its double quotes.
void HostLoadServiceName();

// The run procedure; returns the result of the final "stopped" report.
RTS_UI32 HostRun(int argc, char **argv);

// Called by the service dispatcher on the service's main thread.
void HostServiceMain(int argc, char **argv);

// Reports a service state (nothing in the foreground); non-zero on success.
RTS_UI32 HostReportStatus(RTS_UI32 ulState);

// The service control handler.
void HostControl(RTS_UI32 ulControl);

// Runs the runtime in the foreground; returns 1.
RTS_UI32 HostConsoleRun(int argc, char **argv, bool bWithConsole);

// The executable's full path: the one set for tests, else the system's.
bool HostGetModulePath(char *pszPath, RTS_SIZE ulSize, RTS_UI32 *pulError);
// Tests run the procedure as if the executable lived elsewhere; null undoes it.
void HostOverrideModulePath(const char *pszPath);

// The directory of the executable with its trailing separator, or empty.
std::string HostModuleDirectory();

} // namespace kestrel::host

#endif
