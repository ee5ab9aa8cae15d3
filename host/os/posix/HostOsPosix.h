/*
 * Shared state of the POSIX backend: the last error of the calling thread
 * (the backend's GetLastError) and the service's notifier.
 */
#ifndef KESTREL_HOST_OS_POSIX_H
#define KESTREL_HOST_OS_POSIX_H

#include "RtsTypes.h"

namespace kestrel::host {

// Remembers an error number for HostOsLastError; errno when none is given.
void PosixSetLastError(RTS_UI32 ulError);
void PosixSetLastErrorFromErrno();

// Opens the notifier from NOTIFY_SOCKET; true when there is none to open.
bool PosixServiceOpenNotifier();
// Sends a notification when a notifier is open; true when sent or none is open.
bool PosixServiceNotify(const char *pszMessage);
bool PosixServiceHasNotifier();

// Prepares the watchdog pings from WATCHDOG_USEC (and WATCHDOG_PID).
void PosixWatchdogSetup();

} // namespace kestrel::host

#endif
