// The systemd notifier against real AF_UNIX datagram sockets, bound to a
// file-system path and to an abstract name; the watchdog interval rules.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <string>

#include "HostNotify.h"
#include "NotifyReceiver.h"
#include "TempDir.h"

namespace kestrel::host {
namespace {

using kestrel::test::NotifyReceiver;

std::string UniqueAbstractName() {
    return "@kestrel-notify-test-" + std::to_string(getpid());
}

TEST(HostNotify, SendsToAPathAndToAnAbstractSocket) {
    kestrel::test::TempDir dir;
    for (const std::string &name : {(dir.Path() / "notify").string(), UniqueAbstractName()}) {
        SCOPED_TRACE(name);
        NotifyReceiver receiver(name);
        ASSERT_TRUE(receiver.Bound());
        HostNotifier notifier;
        ASSERT_TRUE(HostNotifyOpen(notifier, name.c_str()));
        if (name[0] == '@') {
            // The address is the name with a NUL byte for the '@' and no terminator.
            EXPECT_EQ(notifier.address.sun_path[0], '\0');
            EXPECT_EQ(notifier.addressLength, offsetof(sockaddr_un, sun_path) + name.size());
        }
        EXPECT_TRUE(HostNotifySend(notifier, "READY=1"));
        EXPECT_TRUE(HostNotifySend(notifier, "STOPPING=1\nSTATUS=Stopping"));
        EXPECT_EQ(receiver.Next(), "READY=1");
        EXPECT_EQ(receiver.Next(), "STOPPING=1\nSTATUS=Stopping");
        HostNotifyClose(notifier);
        EXPECT_EQ(notifier.fd, -1);
    }
}

TEST(HostNotify, ReopeningReplacesTheReceiver) {
    std::string first = UniqueAbstractName() + "-a";
    std::string second = UniqueAbstractName() + "-b";
    NotifyReceiver a(first), b(second);
    HostNotifier notifier;
    ASSERT_TRUE(HostNotifyOpen(notifier, first.c_str()));
    ASSERT_TRUE(HostNotifyOpen(notifier, second.c_str()));
    EXPECT_TRUE(HostNotifySend(notifier, "READY=1"));
    EXPECT_EQ(b.Next(), "READY=1");
    HostNotifyClose(notifier);
}

TEST(HostNotify, NobodyListeningIsAFailedSend) {
    kestrel::test::TempDir dir;
    std::string path = (dir.Path() / "gone").string();
    HostNotifier notifier;
    ASSERT_TRUE(HostNotifyOpen(notifier, path.c_str()));
    EXPECT_FALSE(HostNotifySend(notifier, "READY=1"));
    EXPECT_NE(errno, 0);
    HostNotifyClose(notifier);
}

struct BadName {
    const char *name;
    int error;
};

class HostNotifyBadNames : public ::testing::TestWithParam<BadName> {};

TEST_P(HostNotifyBadNames, AreRefused) {
    HostNotifier notifier;
    errno = 0;
    EXPECT_FALSE(HostNotifyOpen(notifier, GetParam().name));
    if (GetParam().name != nullptr) {
        EXPECT_EQ(errno, GetParam().error);
    }
    EXPECT_EQ(notifier.fd, -1);
    EXPECT_FALSE(HostNotifySend(notifier, "READY=1"));
}

const std::string kLongPath = "/" + std::string(200, 'x');

INSTANTIATE_TEST_SUITE_P(Names, HostNotifyBadNames,
                         ::testing::Values(BadName{"", EAFNOSUPPORT}, BadName{"relative/path", EAFNOSUPPORT},
                                           BadName{"vsock:2:999", EAFNOSUPPORT}, BadName{"@", EINVAL},
                                           BadName{kLongPath.c_str(), ENAMETOOLONG}, BadName{nullptr, 0}));

struct WatchdogCase {
    const char *usec;
    const char *pid;
    long ownPid;
    unsigned long long interval;
};

class HostWatchdog : public ::testing::TestWithParam<WatchdogCase> {};

TEST_P(HostWatchdog, IntervalIsHalfThePeriod) {
    const WatchdogCase &c = GetParam();
    EXPECT_EQ(HostWatchdogIntervalUs(c.usec, c.pid, c.ownPid), c.interval);
}

INSTANTIATE_TEST_SUITE_P(Values, HostWatchdog,
                         ::testing::Values(WatchdogCase{"30000000", nullptr, 7, 15000000}, // 30 s: every 15 s
                                           WatchdogCase{"200000", "7", 7, 100000},         // our pid
                                           WatchdogCase{"200000", "8", 7, 0},              // another process
                                           WatchdogCase{"200000", "", 7, 100000},          // no pid given
                                           WatchdogCase{nullptr, nullptr, 7, 0},           // not asked
                                           WatchdogCase{"", nullptr, 7, 0},                //
                                           WatchdogCase{"0", nullptr, 7, 0},               //
                                           WatchdogCase{"12x", nullptr, 7, 0},             // bad number
                                           WatchdogCase{"-5", nullptr, 7, 0}));

} // namespace
} // namespace kestrel::host
