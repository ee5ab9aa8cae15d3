// The notification client. Messages are short texts such as "READY=1"; each
// goes out as one datagram, so the receiver sees whole messages only.
#include "HostNotify.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cstddef>

#include <unistd.h>

namespace kestrel::host {

bool HostNotifyOpen(HostNotifier &notifier, const char *pszSocketName) {
    HostNotifyClose(notifier);
    if (pszSocketName == nullptr || (pszSocketName[0] != '/' && pszSocketName[0] != '@')) {
        errno = EAFNOSUPPORT; // other forms (vsock:...) are not spoken here
        return false;
    }
    size_t length = std::strlen(pszSocketName);
    if (length < 2 || length > sizeof(notifier.address.sun_path) - 1) {
        errno = length < 2 ? EINVAL : ENAMETOOLONG;
        return false;
    }
    notifier.address = sockaddr_un{};
    notifier.address.sun_family = AF_UNIX;
    std::memcpy(notifier.address.sun_path, pszSocketName, length);
    if (pszSocketName[0] == '@') {
        // An abstract name: the leading NUL is part of the name, no terminator.
        notifier.address.sun_path[0] = '\0';
        notifier.addressLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
    } else {
        notifier.addressLength = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length + 1);
    }
    notifier.fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    return notifier.fd >= 0;
}

bool HostNotifySend(const HostNotifier &notifier, const char *pszMessage) {
    if (notifier.fd < 0 || pszMessage == nullptr) {
        errno = EBADF;
        return false;
    }
    size_t length = std::strlen(pszMessage);
    ssize_t sent;
    do {
        sent = sendto(notifier.fd, pszMessage, length, MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr *>(&notifier.address), notifier.addressLength);
    } while (sent < 0 && errno == EINTR);
    return sent == static_cast<ssize_t>(length);
}

void HostNotifyClose(HostNotifier &notifier) {
    if (notifier.fd >= 0)
        close(notifier.fd);
    notifier.fd = -1;
    notifier.addressLength = 0;
}

unsigned long long HostWatchdogIntervalUs(const char *pszUsec, const char *pszPid, long ownPid) {
    if (pszUsec == nullptr || *pszUsec == '\0')
        return 0;
    if (pszPid != nullptr && *pszPid != '\0') {
        char *end = nullptr;
        long pid = std::strtol(pszPid, &end, 10);
        if (*end != '\0' || pid != ownPid)
            return 0;
    }
    char *end = nullptr;
    errno = 0;
    unsigned long long usec = std::strtoull(pszUsec, &end, 10);
    // Digits only: strtoull would skip leading blanks and wrap a minus sign
    // round to a huge interval.
    if (errno != 0 || *end != '\0' || usec == 0 || pszUsec[0] < '0' || pszUsec[0] > '9')
        return 0;
    return usec / 2;
}

} // namespace kestrel::host
