/*
 * Operating-system services of the host. The portable core calls only these
 * functions; os/posix and os/win32 define them with the same names, and CMake
 * picks one backend. Each backend translates its system's errors here, so the
 * core sees plain truth values and the system's own error numbers and texts.
 */
#ifndef KESTREL_HOST_OS_H
#define KESTREL_HOST_OS_H

#include "RtsTypes.h"

namespace kestrel::host {

/* Process and files. */

// Full path of the executable; false (with the system's error number) when
// it cannot be read or does not fit.
bool HostOsGetModulePath(char *pszPath, RTS_SIZE ulSize, RTS_UI32 *pulError);
// Separator of directories in paths of this system ('\\' or '/').
char HostOsPathSeparator();
// Pins the whole process to the first processor it may run on.
void HostOsPinToFirstProcessor();
bool HostOsSetCurrentDirectory(const char *pszDirectory);
// Renames a file; fails when the source is missing or the target exists.
bool HostOsMoveFile(const char *pszFrom, const char *pszTo);
// The calling thread's last system error number.
RTS_UI32 HostOsLastError();
// The system's text for an error number, without a trailing line break;
// empty when the text would need 259 characters or more.
void HostOsErrorText(RTS_UI32 ulError, char *pszText, RTS_SIZE ulSize);
// Sleeps for a number of milliseconds.
void HostOsSleepMs(RTS_UI32 ulMs);

/* Resources: the string table and the version resource. */

// String resource ulId (1 service name, 2 default configuration); false when
// there is none.
bool HostOsLoadString(RTS_UI32 ulId, char *pszText, RTS_SIZE ulSize);
// "ProductVersion" of the executable's version resource; empty when none.
void HostOsReadProductVersion(const char *pszModulePath, char *pszVersion, RTS_SIZE ulSize);
// True on the NT family of Windows and on POSIX systems; pbIsXp is set on
// Windows XP (5.1) only.
bool HostOsIsNtFamily(bool *pbIsXp);
// Remembers the identity of the account that runs the process; silent on failure.
void HostOsLookupUserIdentity();

/* Exception guards around start-up, each cycle and shut-down. */

using HostGuardedFunction = void (*)(void *pContext);
// Runs pfFunction(pContext); false when a hardware exception (invalid memory
// access, division by zero, illegal instruction, bus error) escaped from it.
bool HostOsGuardedCall(HostGuardedFunction pfFunction, void *pContext);

/* The run loop. */

// Prepares the process for running the runtime: stop signals, exception
// guards, timer resolution and timer slack for the runtime's life.
// HostOsRunEnd undoes what must be undone.
void HostOsRunBegin();
void HostOsRunEnd();
// Waits until the next pass is due: 10 ms after the previous one.
void HostOsLoopWait();
// Called once per pass after the communication cycle (watchdog pings).
void HostOsLoopPassDone();
// True when a key (on POSIX: a line) is waiting on the console.
bool HostOsKeyPressed();
// Consumes the waiting key or line.
void HostOsConsumeKey();
// True once the system asked the process to stop (POSIX signals); the core
// then sets the component manager's exit flag.
bool HostOsStopRequested();

/* Service control. */

// The status record as the service control manager knows it.
struct HostServiceStatus {
    RTS_UI32 ulServiceType;      // 16: own process
    RTS_UI32 ulCurrentState;     // 1 stopped, 2 start pending, 3 stop pending, 4 running
    RTS_UI32 ulControlsAccepted; // 0 while starting, else stop and shutdown (5)
    RTS_UI32 ulWin32ExitCode;
    RTS_UI32 ulServiceSpecificExitCode;
    RTS_UI32 ulCheckPoint;
    RTS_UI32 ulWaitHint; // milliseconds
};

// True when the process has a status channel to report to.
bool HostOsHasStatusHandle();
// Reports the status; false (see HostOsLastError) when the report failed.
bool HostOsSetServiceStatus(const HostServiceStatus *pStatus);
// Hands the process to the service dispatcher, which calls HostServiceMain
// of the core; returns the dispatcher's result (0 on failure).
RTS_UI32 HostOsDispatch();
// Registers the control handler under the service name; false on failure.
bool HostOsRegisterControlHandler(const char *pszServiceName);

/* Console. */

// Gives the process a console of its own once (no-op where the process
// already runs in a terminal).
void HostOsAttachConsole();
// Installs the console's Ctrl-C/Ctrl-Break handling (POSIX: SIGINT).
void HostOsInstallConsoleCtrlHandler();
// Enables the key check of the run loop (foreground with a console).
void HostOsEnableKeyCheck(bool bEnable);
// Waits for one character before a foreground run with a console returns
// (a no-op where the console is the user's own terminal).
void HostOsConsoleFinish();
// Writes a text to the console's standard error, if there is one.
void HostOsConsoleMessage(const char *pszText);
// Sets an environment variable of the process unless it is already set
// (KESTREL_CONSOLE=1 asks the logger to echo on the console).
void HostOsSetDefaultEnvironment(const char *pszName, const char *pszValue);
// True when the POSIX-only "--help" option is understood.
bool HostOsHelpOptionSupported();

/* Service management: install, uninstall, start, stop (1 success, 0 failure). */

RTS_UI32 HostOsInstallService();
RTS_UI32 HostOsUninstallService();
RTS_UI32 HostOsStartService(int argc, char **argv);
RTS_UI32 HostOsStopService();

} // namespace kestrel::host

#endif
