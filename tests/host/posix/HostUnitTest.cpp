// The systemd unit: its name, text and quoting, and the management actions
// against a redirected unit directory and a stand-in systemctl.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include <sys/stat.h>

#include "Host.h"
#include "HostLog.h"
#include "HostUnit.h"
#include "TempDir.h"

namespace kestrel::host {
namespace {

using kestrel::test::ReadFile;
using kestrel::test::TempDir;

TEST(HostUnit, NameReplacesCharactersUnitNamesCannotHold) {
    EXPECT_EQ(HostUnitName("KESTREL Control Win V3"), "KESTREL-Control-Win-V3.service");
    EXPECT_EQ(HostUnitName("a  /b"), "a-b.service");
    EXPECT_EQ(HostUnitName("x_y:z.1"), "x_y:z.1.service");
    EXPECT_EQ(HostUnitName(""), "KESTRELControl.service");
}

TEST(HostUnit, QuotingEscapesQuotesBackslashesAndSpecifiers) {
    EXPECT_EQ(HostUnitQuote("/opt/kestrel/KESTRELControl"), "\"/opt/kestrel/KESTRELControl\"");
    EXPECT_EQ(HostUnitQuote("/opt/my dir/a\"b\\c%d$e"), "\"/opt/my dir/a\\\"b\\\\c%%d$$e\"");
}

TEST(HostUnit, TextHasTheServiceSettings) {
    HostUnitFields unit{"KESTREL Control Win V3", "3.5.5.0", "/opt/my dir/KESTRELControl", "plc"};
    std::string text = HostUnitText(unit);
    for (const char *line : {"[Unit]\n", "Description=KESTREL Control Win V3 Version 3.5.5.0\n", "[Service]\n",
                             "Type=notify\n", "ExecStart=\"/opt/my dir/KESTRELControl\"\n", "User=plc\n",
                             "Restart=on-failure\n", "WatchdogSec=30\n", "[Install]\n", "WantedBy=multi-user.target\n"})
        EXPECT_NE(text.find(line), std::string::npos) << line << "\n---\n" << text;
    EXPECT_EQ(HostUnitText({"S", "1.0", "/x", ""}).find("User="), std::string::npos) << "no account, no user";
}

TEST(HostUnit, LineBreaksAreRefused) {
    EXPECT_EQ(HostUnitText({"S", "1", "/x\nExecStartPre=/bin/evil", ""}), "");
    EXPECT_EQ(HostUnitText({"S", "1", "/x", "root\nUser=a"}), "");
}

TEST(HostUnit, DirectoryAndCommandCanBeRedirected) {
    unsetenv("KESTREL_UNIT_DIR");
    unsetenv("KESTREL_SYSTEMCTL");
    EXPECT_EQ(HostUnitDirectory(), "/etc/systemd/system");
    EXPECT_EQ(HostSystemctlCommand(), "systemctl");
    setenv("KESTREL_UNIT_DIR", "/tmp/units", 1);
    setenv("KESTREL_SYSTEMCTL", "/tmp/fake-systemctl", 1);
    EXPECT_EQ(HostUnitDirectory(), "/tmp/units");
    EXPECT_EQ(HostSystemctlCommand(), "/tmp/fake-systemctl");
    unsetenv("KESTREL_UNIT_DIR");
    unsetenv("KESTREL_SYSTEMCTL");
}

// The management actions, run in this process with the host state of an
// executable at /opt/kestrel dir/KESTRELControl.
class HostUnitActions : public ::testing::Test {
  protected:
    void SetUp() override {
        saved = HostGetState();
        HostLoadServiceName();
        std::snprintf(HostGetState().productVersion, sizeof(HostGetState().productVersion), "3.5.5.0");
        HostGetState().ulStartType = 2;
        HostGetState().pszAccount = nullptr;
        HostGetState().pszPassword = nullptr;
        HostOverrideModulePath("/opt/kestrel dir/KESTRELControl");
        units = dir.Path() / "units";
        std::filesystem::create_directories(units);
        state = dir.Path() / "state";
        std::filesystem::create_directories(state);
        // Records its calls and plays the unit's state through marker files.
        auto systemctl = dir.Write("systemctl", R"(#!/bin/sh
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
        chmod(systemctl.c_str(), 0755);
        setenv("KESTREL_UNIT_DIR", units.c_str(), 1);
        setenv("KESTREL_SYSTEMCTL", systemctl.c_str(), 1);
        HostLogSetPath((dir.Path() / "svc.log").string());
        HostLogSetEcho(false);
    }
    void TearDown() override {
        unsetenv("KESTREL_UNIT_DIR");
        unsetenv("KESTREL_SYSTEMCTL");
        HostOverrideModulePath(nullptr);
        HostLogSetPath("");
        HostLogSetEcho(false);
        HostGetState() = saved;
    }
    std::string Calls() { return ReadFile(state / "calls"); }
    std::string Log() { return ReadFile(dir.Path() / "svc.log"); }
    bool Logged(const std::string &text) { return Log().find(text) != std::string::npos; }
    void Touch(const char *name) { TempDir::WriteTo(state / name); }
    std::filesystem::path UnitFile() { return units / "KESTREL-Control-Win-V3.service"; }

    HostState saved;
    TempDir dir;
    std::filesystem::path units;
    std::filesystem::path state;
};

TEST_F(HostUnitActions, InstallWritesAndEnablesTheUnit) {
    HostGetState().pszAccount = "plc";
    ASSERT_EQ(HostOsInstallService(), 1u) << Log();
    std::string text = ReadFile(UnitFile());
    EXPECT_NE(text.find("ExecStart=\"/opt/kestrel dir/KESTRELControl\"\n"), std::string::npos) << text;
    EXPECT_NE(text.find("User=plc\n"), std::string::npos);
    EXPECT_NE(text.find("Description=KESTREL Control Win V3 Version 3.5.5.0\n"), std::string::npos);
    EXPECT_EQ(Calls(), "daemon-reload\nenable KESTREL-Control-Win-V3.service\n");
    struct stat info {};
    ASSERT_EQ(stat(UnitFile().c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0644u);
}

TEST_F(HostUnitActions, InstallOnDemandIsNotEnabled) {
    HostGetState().ulStartType = 3;
    ASSERT_EQ(HostOsInstallService(), 1u);
    EXPECT_EQ(Calls(), "daemon-reload\n");
}

TEST_F(HostUnitActions, InstallingTwiceFailsWithTheSystemText) {
    ASSERT_EQ(HostOsInstallService(), 1u);
    EXPECT_EQ(HostOsInstallService(), 0u);
    EXPECT_TRUE(Logged(": ***ERROR***: CreateService failed: File exists\r\n")) << Log();
}

TEST_F(HostUnitActions, InstallReportsAFailingEnable) {
    Touch("fail-enable");
    EXPECT_EQ(HostOsInstallService(), 0u);
    EXPECT_TRUE(Logged("***ERROR***: CreateService failed: systemctl enable failed with exit status 1")) << Log();
}

TEST_F(HostUnitActions, InstallIntoAMissingDirectoryFails) {
    setenv("KESTREL_UNIT_DIR", (dir.Path() / "nowhere").c_str(), 1);
    EXPECT_EQ(HostOsInstallService(), 0u);
    EXPECT_TRUE(Logged("***ERROR***: CreateService failed: No such file or directory")) << Log();
}

TEST_F(HostUnitActions, AMissingSystemctlIsReported) {
    setenv("KESTREL_SYSTEMCTL", (dir.Path() / "no-systemctl").c_str(), 1);
    EXPECT_EQ(HostOsInstallService(), 0u);
    EXPECT_TRUE(Logged("systemctl daemon-reload could not be run")) << Log();
}

TEST_F(HostUnitActions, StartAndStop) {
    ASSERT_EQ(HostOsInstallService(), 1u);
    EXPECT_EQ(HostOsStartService(0, nullptr), 1u) << Log();
    EXPECT_TRUE(std::filesystem::exists(state / "active"));
    EXPECT_EQ(HostOsStopService(), 1u);
    EXPECT_FALSE(std::filesystem::exists(state / "active"));
}

TEST_F(HostUnitActions, StartFailures) {
    ASSERT_EQ(HostOsInstallService(), 1u);
    Touch("fail-start");
    EXPECT_EQ(HostOsStartService(0, nullptr), 0u);
    EXPECT_TRUE(Logged("***ERROR***: KESTREL Control Win V3 Service failed to start: systemctl start failed with "
                       "exit status 1\r\n"))
        << Log();
    std::filesystem::remove(state / "fail-start");
    Touch("dies");
    EXPECT_EQ(HostOsStartService(0, nullptr), 0u);
    EXPECT_TRUE(Logged("***ERROR***: KESTREL Control Win V3 Service failed to start.\r\n")) << Log();
}

TEST_F(HostUnitActions, StopThatDoesNotStopFails) {
    ASSERT_EQ(HostOsInstallService(), 1u);
    ASSERT_EQ(HostOsStartService(0, nullptr), 1u);
    Touch("stuck");
    EXPECT_EQ(HostOsStopService(), 0u);
    EXPECT_TRUE(Logged("***ERROR***: KESTREL Control Win V3 Service failed to stop.\r\n")) << Log();
}

TEST_F(HostUnitActions, UninstallStopsDisablesAndRemoves) {
    ASSERT_EQ(HostOsInstallService(), 1u);
    ASSERT_EQ(HostOsStartService(0, nullptr), 1u);
    EXPECT_EQ(HostOsUninstallService(), 1u);
    EXPECT_FALSE(std::filesystem::exists(UnitFile()));
    EXPECT_FALSE(std::filesystem::exists(state / "active"));
    std::string calls = Calls();
    auto stop = calls.find("stop KESTREL-Control-Win-V3.service");
    auto disable = calls.find("disable KESTREL-Control-Win-V3.service");
    ASSERT_NE(stop, std::string::npos) << calls;
    ASSERT_NE(disable, std::string::npos) << calls;
    EXPECT_LT(stop, disable);
    EXPECT_EQ(calls.substr(calls.size() - 14), "daemon-reload\n");
}

TEST_F(HostUnitActions, UninstallOfAStuckServiceStillRemovesIt) {
    ASSERT_EQ(HostOsInstallService(), 1u);
    ASSERT_EQ(HostOsStartService(0, nullptr), 1u);
    Touch("stuck");
    EXPECT_EQ(HostOsUninstallService(), 1u);
    EXPECT_TRUE(Logged("Service failed to stop.")) << Log();
    EXPECT_FALSE(std::filesystem::exists(UnitFile()));
}

TEST_F(HostUnitActions, ActionsOnAMissingUnitFailToOpen) {
    EXPECT_EQ(HostOsUninstallService(), 0u);
    EXPECT_EQ(HostOsStartService(0, nullptr), 0u);
    EXPECT_EQ(HostOsStopService(), 0u);
    std::string log = Log();
    size_t count = 0;
    for (size_t at = 0;
         (at = log.find("***ERROR***: OpenService failed: No such file or directory\r\n", at)) != std::string::npos;
         ++at)
        ++count;
    EXPECT_EQ(count, 3u) << log;
    EXPECT_EQ(Calls(), "");
}

} // namespace
} // namespace kestrel::host
