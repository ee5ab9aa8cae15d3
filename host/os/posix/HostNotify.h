/*
 * A small client of systemd's notification protocol: one datagram per
 * message to the AF_UNIX socket named by NOTIFY_SOCKET, a file-system path
 * ("/run/...") or an abstract name (written with a leading '@', sent with a
 * leading NUL byte).
 */
#ifndef KESTREL_HOST_NOTIFY_H
#define KESTREL_HOST_NOTIFY_H

#include <sys/socket.h>
#include <sys/un.h>

namespace kestrel::host {

struct HostNotifier {
    int fd = -1;           // datagram socket, close-on-exec
    sockaddr_un address{}; // the receiver
    socklen_t addressLength = 0;
};

// Prepares a notifier for the socket name; false (errno set) for an empty,
// unsupported or too long name, or when no socket can be made.
bool HostNotifyOpen(HostNotifier &notifier, const char *pszSocketName);
// Sends one message; false (errno set) when it could not be sent.
bool HostNotifySend(const HostNotifier &notifier, const char *pszMessage);
void HostNotifyClose(HostNotifier &notifier);

// The watchdog's ping interval in microseconds from WATCHDOG_USEC (half the
// period), or 0 when no pings are asked for: no or a bad value, or a
// WATCHDOG_PID that names another process.
unsigned long long HostWatchdogIntervalUs(const char *pszUsec, const char *pszPid, long ownPid);

} // namespace kestrel::host

#endif
