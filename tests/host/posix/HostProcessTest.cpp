// Runs of the real executable: the foreground on a terminal ends on a typed
// line and on Ctrl-C, on SIGTERM without a terminal; the service mode talks
// to a notify socket (READY, STOPPING, WATCHDOG); the dispatcher fails
// outside systemd; components that fault during start-up or in the cycle
// give the specified log lines and an orderly shut-down; bad input gives
// clear messages.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <regex>
#include <string>
#include <thread>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "ChildProcess.h"

namespace kestrel::test {
namespace {

using namespace std::chrono_literals;
using Streams = ChildProcess::Streams;

constexpr auto kStartTimeout = 20s;
constexpr auto kEndTimeout = 30s;
constexpr const char *kReady = "KESTREL Control ready";

bool HasLine(const std::string &log, const std::string &text) {
    static const std::regex stamp(R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d: )");
    size_t at = 0;
    while ((at = log.find(": " + text + "\r\n", at)) != std::string::npos) {
        size_t begin = log.rfind('\n', at);
        begin = begin == std::string::npos ? 0 : begin + 1;
        if (std::regex_match(log.substr(begin, at + 2 - begin), stamp))
            return true;
        ++at;
    }
    return false;
}

// The lines of a run that started and stopped normally.
void ExpectStartAndStop(const Sandbox &sandbox, const std::string &configName = "KESTRELControl.cfg") {
    std::string log = sandbox.ReadHostLog();
    EXPECT_TRUE(HasLine(log, std::string(74, '-'))) << log;
    EXPECT_TRUE(HasLine(log, "KESTREL Control Win V3 Service started")) << log;
    EXPECT_TRUE(HasLine(log, "Config file:")) << log;
    EXPECT_TRUE(HasLine(log, (sandbox.Dir() / configName).string())) << log;
    EXPECT_TRUE(HasLine(log, "KESTREL Control Win V3 Service stopped")) << log;
}

TEST(HostProcess, ForegroundEndsOnATypedLine) {
    Sandbox sandbox;
    ChildProcess child(sandbox.Executable(), {"-d"}, Streams::Terminal);
    if (child.NoTerminal())
        GTEST_SKIP() << "the system has no pseudo-terminals";
    ASSERT_TRUE(child.WaitForOutput(kReady, kStartTimeout)) << child.Output();
    child.Type("q\n");
    EXPECT_EQ(child.Wait(kEndTimeout), 0) << child.Output();
    EXPECT_NE(child.Output().find("KESTREL Control shutdown done"), std::string::npos) << child.Output();
    ExpectStartAndStop(sandbox);
}

TEST(HostProcess, ForegroundEndsOnCtrlC) {
    Sandbox sandbox;
    ChildProcess child(sandbox.Executable(), {"-d"}, Streams::Terminal);
    if (child.NoTerminal())
        GTEST_SKIP() << "the system has no pseudo-terminals";
    ASSERT_TRUE(child.WaitForOutput(kReady, kStartTimeout)) << child.Output();
    child.Type("\x03"); // the terminal turns it into SIGINT
    EXPECT_EQ(child.Wait(kEndTimeout), 0) << child.Output();
    ExpectStartAndStop(sandbox);
}

TEST(HostProcess, ForegroundEndsOnSigint) {
    Sandbox sandbox;
    ChildProcess child(sandbox.Executable(), {"-d"}, Streams::Pipes);
    ASSERT_TRUE(child.WaitForOutput(kReady, kStartTimeout)) << child.Output();
    child.Signal(SIGINT);
    EXPECT_EQ(child.Wait(kEndTimeout), 0) << child.Output();
    ExpectStartAndStop(sandbox);
}

TEST(HostProcess, ForegroundWithoutConsoleEndsOnSigterm) {
    Sandbox sandbox;
    ChildProcess child(sandbox.Executable(), {"-r"}, Streams::Pipes);
    ASSERT_TRUE(child.WaitForOutput(kReady, kStartTimeout)) << child.Output();
    child.Type("a line on a pipe is no key press\n");
    std::this_thread::sleep_for(200ms);
    child.Signal(SIGTERM);
    EXPECT_EQ(child.Wait(kEndTimeout), 0) << child.Output();
    ExpectStartAndStop(sandbox);
}

TEST(HostProcess, ConfigFileFromTheCommandLine) {
    Sandbox sandbox;
    sandbox.WriteConfig("Other.cfg");
    ChildProcess child(sandbox.Executable(), {"-r", "Other.cfg"}, Streams::Pipes);
    ASSERT_TRUE(child.WaitForOutput(kReady, kStartTimeout)) << child.Output();
    child.Signal(SIGTERM);
    EXPECT_EQ(child.Wait(kEndTimeout), 0);
    ExpectStartAndStop(sandbox, "Other.cfg");
    EXPECT_FALSE(HasLine(sandbox.ReadHostLog(), "*** Config file cannot be opened!"));
}

TEST(HostProcess, DispatchOutsideSystemdFails) {
    Sandbox sandbox;
    ChildProcess child(sandbox.Executable(), {}, Streams::Pipes);
    EXPECT_EQ(child.Wait(kEndTimeout), 1);
    EXPECT_NE(child.Output().find("Usage: KESTRELControl"), std::string::npos) << child.Output();
    EXPECT_TRUE(HasLine(sandbox.ReadHostLog(), "StartServiceCtrlDispatcher failed [reason: 1063]"))
        << sandbox.ReadHostLog();
}

TEST(HostProcess, HelpPrintsTheOptions) {
    Sandbox sandbox;
    ChildProcess child(sandbox.Executable(), {"--help"}, Streams::Pipes);
    EXPECT_EQ(child.Wait(kEndTimeout), 0);
    EXPECT_NE(child.Output().find("--startmode=auto|demand"), std::string::npos) << child.Output();
}

// The service manager's end of the notify socket.
class NotifySocket {
  public:
    NotifySocket() : name_("@kestrel-host-test-" + std::to_string(getpid())) {
        fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::memcpy(address.sun_path, name_.data(), name_.size());
        address.sun_path[0] = '\0';
        bind(fd_, reinterpret_cast<sockaddr *>(&address),
             static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + name_.size()));
    }
    ~NotifySocket() { close(fd_); }
    const std::string &Name() const { return name_; }

    // Collects messages until one contains text; false after the timeout.
    bool WaitFor(const std::string &text, std::chrono::milliseconds timeout) {
        auto end = std::chrono::steady_clock::now() + timeout;
        while (std::chrono::steady_clock::now() < end) {
            pollfd pfd{fd_, POLLIN, 0};
            if (poll(&pfd, 1, 50) <= 0)
                continue;
            char buffer[512];
            ssize_t n = recv(fd_, buffer, sizeof(buffer), 0);
            if (n <= 0)
                continue;
            std::string message(buffer, static_cast<size_t>(n));
            received += message + "|";
            if (message.find(text) != std::string::npos)
                return true;
        }
        return false;
    }
    std::string received;

  private:
    std::string name_;
    int fd_ = -1;
};

TEST(HostProcess, ServiceReportsToTheNotifySocketAndStopsOnSigterm) {
    Sandbox sandbox;
    NotifySocket notify;
    ChildProcess child(sandbox.Executable(), {}, Streams::Pipes,
                       {{"NOTIFY_SOCKET", notify.Name()}, {"WATCHDOG_USEC", "200000"}});
    ASSERT_TRUE(notify.WaitFor("READY=1", kStartTimeout)) << notify.received << child.Output();
    EXPECT_NE(notify.received.find("STATUS=Starting|"), std::string::npos) << notify.received;
    EXPECT_TRUE(notify.WaitFor("WATCHDOG=1", 2s)) << notify.received;
    child.Signal(SIGTERM);
    EXPECT_TRUE(notify.WaitFor("STOPPING=1", kEndTimeout)) << notify.received;
    EXPECT_TRUE(notify.WaitFor("STATUS=Stopped", kEndTimeout)) << notify.received;
    EXPECT_EQ(child.Wait(kEndTimeout), 0);
    ExpectStartAndStop(sandbox);
}

TEST(HostProcess, ServiceWithoutNotifySocketRunsUnderInvocationId) {
    Sandbox sandbox;
    ChildProcess child(sandbox.Executable(), {}, Streams::Pipes, {{"INVOCATION_ID", "0123456789abcdef"}});
    auto deadline = std::chrono::steady_clock::now() + kStartTimeout;
    while (!HasLine(sandbox.ReadHostLog(), "Config file:") && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(20ms);
    std::this_thread::sleep_for(300ms);
    child.Signal(SIGTERM);
    EXPECT_EQ(child.Wait(kEndTimeout), 0) << child.Output();
    ExpectStartAndStop(sandbox);
}

TEST(HostProcess, ABadNotifySocketIsReported) {
    Sandbox sandbox;
    ChildProcess child(sandbox.Executable(), {}, Streams::Pipes, {{"NOTIFY_SOCKET", "relative/name"}});
    EXPECT_EQ(child.Wait(kEndTimeout), 0);
    EXPECT_TRUE(HasLine(sandbox.ReadHostLog(), "RegisterServiceCtrlHandler() failed [reason: 97]"))
        << sandbox.ReadHostLog();
}

TEST(HostProcess, FaultDuringStartUp) {
    Sandbox sandbox;
    sandbox.WriteConfig("KESTRELControl.cfg", {"CmpTestFaultInit"});
    ChildProcess child(sandbox.Executable(), {"-r"}, Streams::Pipes);
    EXPECT_EQ(child.Wait(kEndTimeout), 0) << child.Output();
    std::string log = sandbox.ReadHostLog();
    EXPECT_TRUE(HasLine(log, "*** Exception during CMInit() occurred!")) << log;
    EXPECT_FALSE(HasLine(log, "KESTREL Control Win V3 Service stopped")) << log;
    EXPECT_NE(child.Output().find("Exception occurred: CMInit"), std::string::npos) << child.Output();
    EXPECT_NE(child.Output().find("KESTREL Control shutdown done"), std::string::npos) << child.Output();
    EXPECT_EQ(child.Output().find(kReady), std::string::npos);
}

TEST(HostProcess, FaultInTheCommunicationCycle) {
    Sandbox sandbox;
    sandbox.WriteConfig("KESTRELControl.cfg", {"CmpTestFaultCycle"});
    ChildProcess child(sandbox.Executable(), {"-r"}, Streams::Pipes);
    EXPECT_EQ(child.Wait(kEndTimeout), 0) << child.Output();
    std::string out = child.Output();
    EXPECT_NE(out.find(kReady), std::string::npos) << out;
    EXPECT_NE(out.find("Exception occurred: CMCallHook"), std::string::npos) << out;
    EXPECT_NE(out.find("KESTREL Control shutdown done"), std::string::npos) << out;
    EXPECT_LT(out.find("Exception occurred: CMCallHook"), out.find("KESTREL Control shutdown..."));
    ExpectStartAndStop(sandbox);
    EXPECT_FALSE(HasLine(sandbox.ReadHostLog(), "*** Exception during CMExit() occurred!"));
}

TEST(HostProcess, FaultInTheCycleOnATerminalDoesNotWaitForAKey) {
    Sandbox sandbox;
    sandbox.WriteConfig("KESTRELControl.cfg", {"CmpTestFaultCycle"});
    ChildProcess child(sandbox.Executable(), {"-d"}, Streams::Terminal);
    if (child.NoTerminal())
        GTEST_SKIP() << "the system has no pseudo-terminals";
    EXPECT_EQ(child.Wait(kEndTimeout), 0) << child.Output();
    ExpectStartAndStop(sandbox);
}

TEST(HostProcess, UnknownOptionsAreReportedAndIgnored) {
    Sandbox sandbox;
    ChildProcess child(sandbox.Executable(), {"-x", "/Q", "--startmode=fast", "-r"}, Streams::Pipes);
    ASSERT_TRUE(child.WaitForOutput(kReady, kStartTimeout)) << child.Output();
    child.Signal(SIGTERM);
    EXPECT_EQ(child.Wait(kEndTimeout), 0);
    std::string log = sandbox.ReadHostLog();
    EXPECT_TRUE(HasLine(log, "Unknown option ignored: -x")) << log;
    EXPECT_TRUE(HasLine(log, "Unknown option ignored: /Q")) << log;
    EXPECT_TRUE(HasLine(log, "Unknown start mode ignored (use auto or demand): --startmode=fast")) << log;
    EXPECT_NE(child.Output().find("Unknown option ignored: -x"), std::string::npos);
}

TEST(HostProcess, MissingConfigFileIsReportedAndTheRuntimeStillStarts) {
    Sandbox sandbox;
    ChildProcess child(sandbox.Executable(), {"-r", "missing.cfg"}, Streams::Pipes);
    ASSERT_TRUE(child.WaitForOutput(kReady, kStartTimeout)) << child.Output();
    child.Signal(SIGTERM);
    EXPECT_EQ(child.Wait(kEndTimeout), 0);
    EXPECT_TRUE(HasLine(sandbox.ReadHostLog(), "*** Config file cannot be opened!")) << sandbox.ReadHostLog();
    ExpectStartAndStop(sandbox, "missing.cfg");
}

TEST(HostProcess, UnreadableConfigFileIsReported) {
    Sandbox sandbox;
    std::filesystem::create_directory(sandbox.Dir() / "folder.cfg"); // opens, cannot be read
    ChildProcess child(sandbox.Executable(), {"-r", "folder.cfg"}, Streams::Pipes);
    ASSERT_TRUE(child.WaitForOutput(kReady, kStartTimeout)) << child.Output();
    child.Signal(SIGTERM);
    EXPECT_EQ(child.Wait(kEndTimeout), 0);
    EXPECT_TRUE(HasLine(sandbox.ReadHostLog(), "*** Config file cannot be opened!")) << sandbox.ReadHostLog();
}

TEST(HostProcess, PercentInTheConfigPathIsUsedLiterally) {
    Sandbox sandbox;
    sandbox.WriteConfig("a%sb%n%d.cfg");
    ChildProcess child(sandbox.Executable(), {"-r", "a%sb%n%d.cfg"}, Streams::Pipes);
    ASSERT_TRUE(child.WaitForOutput(kReady, kStartTimeout)) << child.Output();
    child.Signal(SIGTERM);
    EXPECT_EQ(child.Wait(kEndTimeout), 0);
    std::string log = sandbox.ReadHostLog();
    EXPECT_TRUE(HasLine(log, (sandbox.Dir() / "a%sb%n%d.cfg").string())) << log;
    EXPECT_TRUE(HasLine(log, "*** Config file name contains '%': it is used exactly as written")) << log;
    EXPECT_FALSE(HasLine(log, "*** Config file cannot be opened!")) << log;
}

TEST(HostProcess, LegacyConfigurationIsRenamed) {
    Sandbox sandbox;
    sandbox.Write("KestrelSP.cfg", "[ComponentManager]\n");
    ChildProcess child(sandbox.Executable(), {"-r"}, Streams::Pipes);
    ASSERT_TRUE(child.WaitForOutput(kReady, kStartTimeout)) << child.Output();
    child.Signal(SIGTERM);
    EXPECT_EQ(child.Wait(kEndTimeout), 0);
    EXPECT_FALSE(std::filesystem::exists(sandbox.Dir() / "KestrelSP.cfg"));
    EXPECT_TRUE(std::filesystem::exists(sandbox.Dir() / "KestrelControl.cfg"));
}

TEST(HostProcess, InstallAndUninstallThroughTheCommandLine) {
    Sandbox sandbox;
    std::filesystem::create_directory(sandbox.Dir() / "units");
    std::map<std::string, std::string> env{{"KESTREL_UNIT_DIR", (sandbox.Dir() / "units").string()},
                                           {"KESTREL_SYSTEMCTL", "true"}};
    ChildProcess install(sandbox.Executable(), {"-i", "--startmode=demand", "-l", "plc", "-p"}, Streams::Pipes, env);
    EXPECT_EQ(install.Wait(kEndTimeout), 0) << install.Output();
    auto unit = sandbox.Dir() / "units" / "KESTREL-Control-Win-V3.service";
    ASSERT_TRUE(std::filesystem::exists(unit));
    std::ifstream in(unit);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_NE(text.find("ExecStart=\"" + sandbox.Executable().string() + "\"\n"), std::string::npos) << text;
    EXPECT_NE(text.find("User=plc\n"), std::string::npos) << text;
    EXPECT_TRUE(HasLine(sandbox.ReadHostLog(), "Option -p has no value: no password is used")) << sandbox.ReadHostLog();

    ChildProcess twice(sandbox.Executable(), {"-i"}, Streams::Pipes, env);
    EXPECT_EQ(twice.Wait(kEndTimeout), 1);
    EXPECT_NE(twice.Output().find("***ERROR***: CreateService failed: File exists"), std::string::npos);

    ChildProcess uninstall(sandbox.Executable(), {"-u"}, Streams::Pipes, env);
    EXPECT_EQ(uninstall.Wait(kEndTimeout), 0) << uninstall.Output();
    EXPECT_FALSE(std::filesystem::exists(unit));
}

} // namespace
} // namespace kestrel::test
