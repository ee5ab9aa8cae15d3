// The service manager's end of a notify socket: a datagram socket bound to a
// file-system path, or to an abstract name when the name starts with '@'.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstring>
#include <string>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace kestrel::test {

class NotifyReceiver {
  public:
    explicit NotifyReceiver(const std::string &name) {
        fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, name.data(), name.size());
        socklen_t length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name.size());
        if (name[0] == '@')
            address.sun_path[0] = '\0';
        else
            ++length;
        bound_ = bind(fd_, reinterpret_cast<sockaddr *>(&address), length) == 0;
    }
    ~NotifyReceiver() { close(fd_); }
    NotifyReceiver(const NotifyReceiver &) = delete;
    NotifyReceiver &operator=(const NotifyReceiver &) = delete;
    bool Bound() const { return bound_; }

    // The next datagram, or "" after the timeout.
    std::string Next(std::chrono::milliseconds timeout = std::chrono::seconds(1)) {
        pollfd pfd{fd_, POLLIN, 0};
        if (poll(&pfd, 1, static_cast<int>(timeout.count())) <= 0)
            return "";
        char buffer[512];
        ssize_t n = recv(fd_, buffer, sizeof(buffer), 0);
        return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : "";
    }

    // Collects datagrams, each followed by '|', until one contains text;
    // false after the timeout.
    bool WaitFor(const std::string &text, std::chrono::milliseconds timeout) {
        for (auto end = std::chrono::steady_clock::now() + timeout; std::chrono::steady_clock::now() < end;) {
            std::string message = Next(std::chrono::milliseconds(50));
            if (message.empty())
                continue;
            received += message + "|";
            if (message.find(text) != std::string::npos)
                return true;
        }
        return false;
    }
    std::string received;

  private:
    int fd_ = -1;
    bool bound_ = false;
};

} // namespace kestrel::test
