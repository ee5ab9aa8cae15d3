// The systemd side of the host in this process: the notifier's failures, the
// watchdog interval, the unit, and the management actions.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "Host.h"
#include "HostLog.h"
#include "HostNotify.h"
#include "HostUnit.h"
#include "TestSupport.h"

namespace kestrel::host {
namespace {

using kestrel::test::ReadFile;
using kestrel::test::WriteFile;
namespace fs = std::filesystem;

// A null name (as other forms: reason 97), a lone '@' and names too long are
// refused; sending then fails, as it does with nobody listening. The watchdog
// interval: half of WATCHDOG_USEC when WATCHDOG_PID is absent, empty or ours;
// 0 when not asked for or not a positive number.
TEST(HostNotify, FailuresAndWatchdogInterval) {
    const std::string tooLong = "/" + std::string(200, 'x');
    for (auto [name, error] :
         {std::pair{(const char *)nullptr, EAFNOSUPPORT}, {"@", EINVAL}, {tooLong.c_str(), ENAMETOOLONG}}) {
        HostNotifier notifier;
        EXPECT_FALSE(HostNotifyOpen(notifier, name));
        EXPECT_EQ(errno, error);
        EXPECT_EQ(notifier.fd, -1);
        EXPECT_FALSE(HostNotifySend(notifier, "READY=1"));
    }
    HostNotifier notifier;
    ASSERT_TRUE(HostNotifyOpen(notifier, "@kestrel-test-nobody-listens"));
    EXPECT_FALSE(HostNotifySend(notifier, "READY=1"));
    HostNotifyClose(notifier);
    EXPECT_EQ(notifier.fd, -1);
    for (auto [pid, interval] :
         {std::pair{(const char *)nullptr, 100000ull}, {"7", 100000ull}, {"", 100000ull}, {"8", 0ull}})
        EXPECT_EQ(HostWatchdogIntervalUs("200000", pid, 7), interval) << (pid != nullptr ? pid : "null");
    for (const char *usec : std::initializer_list<const char *>{nullptr, "", "0", "12x", "-5", " -5", " 9", "+9"})
        EXPECT_EQ(HostWatchdogIntervalUs(usec, nullptr, 7), 0u) << (usec != nullptr ? usec : "null");
}

// Characters a unit name cannot hold become one '-' per run; quoting escapes
// quotes, backslashes, '%' and '$'; a line break refuses the text; the
// directory and command without redirection.
TEST(HostUnit, NameQuotingAndDefaults) {
    EXPECT_EQ(HostUnitName("a  /b"), "a-b.service");
    EXPECT_EQ(HostUnitName("x_y:z.1"), "x_y:z.1.service");
    EXPECT_EQ(HostUnitName(""), "KESTRELControl.service");
    EXPECT_EQ(HostUnitQuote("/opt/my dir/a\"b\\c%d$e"), "\"/opt/my dir/a\\\"b\\\\c%%d$$e\"");
    EXPECT_EQ(HostUnitText({"S", "1", "/x\nExecStartPre=/bin/evil", ""}), "");
    EXPECT_EQ(HostUnitText({"S", "1", "/x", "root\nUser=a"}), "");
    unsetenv("KESTREL_UNIT_DIR");
    unsetenv("KESTREL_SYSTEMCTL");
    EXPECT_EQ(HostUnitDirectory(), "/etc/systemd/system");
    EXPECT_EQ(HostSystemctlCommand(), "systemctl");
}

// The management actions through the entry point, run in this process with
// the host state of an executable in "bin dir" of a temporary directory.
class HostUnitActions : public ::testing::Test {
  protected:
    void SetUp() override {
        saved = HostGetState();
        HostOverrideModulePath((dir / "bin dir" / "KESTRELControl").c_str());
        for (const char *sub : {"bin dir", "units", "state"})
            fs::create_directories(dir / sub);
        // Records its calls and plays the unit's state through marker files.
        auto systemctl = WriteFile(dir / "systemctl", R"(#!/bin/sh
S="$(dirname "$0")/state"
echo "$*" >> "$S/calls"
case "$1" in
  is-active) [ -f "$S/active" ] && exit 0; exit 3 ;;
  start) [ -f "$S/fail-start" ] && exit 1; [ -f "$S/dies" ] || touch "$S/active" ;;
  stop) [ -f "$S/stuck" ] || rm -f "$S/active" ;;
  enable) [ -f "$S/fail-enable" ] && exit 1 ;;
esac
exit 0
)");
        fs::permissions(systemctl, fs::perms::owner_all);
        setenv("KESTREL_UNIT_DIR", (dir / "units").c_str(), 1);
        setenv("KESTREL_SYSTEMCTL", systemctl.c_str(), 1);
    }
    void TearDown() override {
        unsetenv("KESTREL_UNIT_DIR");
        unsetenv("KESTREL_SYSTEMCTL");
        HostOverrideModulePath(nullptr);
        HostLogSetPath("");
        HostLogSetEcho(false);
        HostGetState() = saved;
    }
    RTS_UI32 Entry(const std::vector<std::string> &args) { return kestrel::test::WithArgs(args, HostEntry); }
    // How often the host log holds a line ending with text.
    size_t Logged(const std::string &text) {
        std::string log = ReadFile(dir / "bin dir" / "KESTREL Control Win V3.log");
        size_t count = 0;
        for (size_t at = 0; (at = log.find(text + "\r\n", at)) != std::string::npos; ++at)
            ++count;
        return count;
    }
    std::string Calls() { return ReadFile(dir / "state" / "calls"); }

    HostState saved;
    kestrel::test::TempDir dir;
    const fs::path unitFile = dir / "units" / "KESTREL-Control-Win-V3.service";
    const std::string unit = " KESTREL-Control-Win-V3.service\n";
};

// The unit file with every setting (User= from -l; -p without a value is
// reported), reloaded and enabled; installing twice fails with the system's
// text.
TEST_F(HostUnitActions, InstallWritesAndEnablesTheUnit) {
    ASSERT_EQ(Entry({"-i", "-l", "plc", "-p"}), 1u);
    std::string text = ReadFile(unitFile);
    for (const std::string &line : std::vector<std::string>{
             "[Unit]", "Description=KESTREL Control Win V3 Version 3.5.5.0", "[Service]", "Type=notify",
             "ExecStart=\"" + (dir / "bin dir" / "KESTRELControl").string() + "\"", "User=plc", "Restart=on-failure",
             "WatchdogSec=30", "[Install]", "WantedBy=multi-user.target"})
        EXPECT_NE(text.find(line + "\n"), std::string::npos) << line << "\n---\n" << text;
    EXPECT_EQ(Calls(), "daemon-reload\nenable" + unit);
    EXPECT_EQ(Entry({"-i"}), 0u);
    EXPECT_EQ(Logged("Option -p has no value: no password is used"), 1u);
    EXPECT_EQ(Logged("***ERROR***: CreateService failed: File exists"), 1u);
}

// On demand the unit is not enabled (so a failing enable does not matter)
// and, without an account, has no User= line; otherwise a failing enable or
// a missing systemctl fails the installation, and a failed one leaves no
// unit file behind (reloading again if the first reload took it in).
TEST_F(HostUnitActions, InstallOnDemandAndFailures) {
    WriteFile(dir / "state" / "fail-enable");
    ASSERT_EQ(Entry({"-i", "--startmode=demand"}), 1u);
    EXPECT_EQ(Calls(), "daemon-reload\n");
    EXPECT_EQ(ReadFile(unitFile).find("User="), std::string::npos);
    fs::remove(unitFile);
    EXPECT_EQ(Entry({"-i"}), 0u);
    EXPECT_EQ(Logged("***ERROR***: CreateService failed: systemctl enable failed with exit status 1"), 1u);
    EXPECT_FALSE(fs::exists(unitFile));
    EXPECT_EQ(Calls(), "daemon-reload\ndaemon-reload\nenable" + unit + "daemon-reload\n");
    setenv("KESTREL_SYSTEMCTL", (dir / "none").c_str(), 1);
    EXPECT_EQ(Entry({"-i"}), 0u);
    EXPECT_EQ(Logged("***ERROR***: CreateService failed: systemctl daemon-reload could not be run: No such file or "
                     "directory"),
              1u);
    EXPECT_FALSE(fs::exists(unitFile));
}

// Start, stop, start again, uninstall: each start and stop is checked with
// is-active; uninstall stops, disables, removes, then reloads. Without the
// unit every action fails as OpenService does, calling nothing.
TEST_F(HostUnitActions, StartStopAndUninstall) {
    ASSERT_EQ(Entry({"-i"}), 1u);
    for (const char *action : {"-s", "-e", "-s", "-u"})
        EXPECT_EQ(Entry({action}), 1u) << action;
    EXPECT_FALSE(fs::exists(unitFile));
    for (const char *action : {"-u", "-s", "-e"})
        EXPECT_EQ(Entry({action}), 0u) << action;
    EXPECT_EQ(Logged("***ERROR***: OpenService failed: No such file or directory"), 3u);
    const std::string start = "start" + unit + "is-active --quiet" + unit;
    const std::string stop = "stop" + unit + "is-active --quiet" + unit;
    EXPECT_EQ(Calls(),
              "daemon-reload\nenable" + unit + start + stop + start + stop + "disable" + unit + "daemon-reload\n");
}

// Start fails with systemctl's status, or when the unit does not stay
// active; a stop that leaves it active fails, yet uninstall still removes it.
TEST_F(HostUnitActions, StartAndStopFailures) {
    ASSERT_EQ(Entry({"-i"}), 1u);
    WriteFile(dir / "state" / "fail-start");
    EXPECT_EQ(Entry({"-s"}), 0u);
    fs::rename(dir / "state" / "fail-start", dir / "state" / "dies");
    EXPECT_EQ(Entry({"-s"}), 0u);
    fs::rename(dir / "state" / "dies", dir / "state" / "stuck");
    ASSERT_EQ(Entry({"-s"}), 1u);
    EXPECT_EQ(Entry({"-e"}), 0u);
    EXPECT_EQ(Entry({"-u"}), 1u);
    EXPECT_FALSE(fs::exists(unitFile));
    const std::string service = "***ERROR***: KESTREL Control Win V3 Service failed to ";
    EXPECT_EQ(Logged(service + "start: systemctl start failed with exit status 1"), 1u);
    EXPECT_EQ(Logged(service + "start."), 1u);
    EXPECT_EQ(Logged(service + "stop."), 2u);
}

} // namespace
} // namespace kestrel::host
