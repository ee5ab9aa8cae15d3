// Runs of the real executable: the foreground ends on request, the service
// mode talks to a notify socket, the dispatcher fails outside systemd,
// faulting components give their log lines and an orderly shut-down, and bad
// input gives clear messages.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <map>
#include <regex>
#include <string>
#include <thread>

#include "ChildProcess.h"
#include "NotifyReceiver.h"
#include "TempDir.h"

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

// Starts the host, waits until the runtime is ready, stops it with SIGTERM
// and returns its output.
std::string RunAndStop(const Sandbox &sandbox, const std::vector<std::string> &args) {
    ChildProcess child(sandbox.Executable(), args, Streams::Pipes);
    EXPECT_TRUE(child.WaitForOutput(kReady, kStartTimeout)) << child.Output();
    child.Signal(SIGTERM);
    EXPECT_EQ(child.Wait(kEndTimeout), 0) << child.Output();
    return child.Output();
}

// On a terminal a typed line or Ctrl-C ends the foreground; SIGINT too, and
// without a console SIGTERM (a line on a pipe is no key press).
TEST(HostProcess, ForegroundEndsOnRequest) {
    struct Row {
        const char *what;
        const char *option;
        Streams streams;
        const char *typed; // null: nothing typed
        int signal;        // 0: none sent
    };
    const Row rows[] = {
        {"typed line", "-d", Streams::Terminal, "q\n", 0},
        {"Ctrl-C", "-d", Streams::Terminal, "\x03", 0},
        {"SIGINT", "-d", Streams::Pipes, nullptr, SIGINT},
        {"SIGTERM", "-r", Streams::Pipes, "a line on a pipe is no key press\n", SIGTERM},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        Sandbox sandbox;
        ChildProcess child(sandbox.Executable(), {row.option}, row.streams);
        if (child.NoTerminal())
            continue; // the system has no pseudo-terminals
        ASSERT_TRUE(child.WaitForOutput(kReady, kStartTimeout)) << child.Output();
        if (row.typed != nullptr)
            child.Type(row.typed);
        if (row.signal != 0) {
            std::this_thread::sleep_for(200ms);
            child.Signal(row.signal);
        }
        EXPECT_EQ(child.Wait(kEndTimeout), 0) << child.Output();
        EXPECT_NE(child.Output().find("KESTREL Control shutdown done"), std::string::npos) << child.Output();
        ExpectStartAndStop(sandbox);
    }
}

// The configuration named on the command line: another file, a missing one,
// a folder (opens, cannot be read), a name with '%' (used literally).
TEST(HostProcess, ConfigFileFromTheCommandLine) {
    const std::string cannotOpen = "*** Config file cannot be opened!";
    enum class Kind { Valid, Missing, Folder };
    struct Row {
        const char *name;
        Kind kind;
        const char *line; // a further host log line, or null
    };
    const Row rows[] = {
        {"Other.cfg", Kind::Valid, nullptr},
        {"missing.cfg", Kind::Missing, nullptr},
        {"folder.cfg", Kind::Folder, nullptr},
        {"a%sb%n%d.cfg", Kind::Valid, "*** Config file name contains '%': it is used exactly as written"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.name);
        Sandbox sandbox;
        if (row.kind == Kind::Valid)
            sandbox.WriteConfig(row.name);
        if (row.kind == Kind::Folder)
            std::filesystem::create_directory(sandbox.Dir() / row.name);
        RunAndStop(sandbox, {"-r", row.name});
        ExpectStartAndStop(sandbox, row.name);
        std::string log = sandbox.ReadHostLog();
        EXPECT_EQ(HasLine(log, cannotOpen), row.kind != Kind::Valid) << log;
        if (row.line != nullptr) {
            EXPECT_TRUE(HasLine(log, row.line)) << log;
        }
    }
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

TEST(HostProcess, ServiceReportsToTheNotifySocketAndStopsOnSigterm) {
    Sandbox sandbox;
    const std::string name = "@kestrel-host-test-" + std::to_string(getpid());
    NotifyReceiver notify(name);
    ChildProcess child(sandbox.Executable(), {}, Streams::Pipes,
                       {{"NOTIFY_SOCKET", name}, {"WATCHDOG_USEC", "200000"}});
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

// Also on a terminal, where the end of the run must not wait for a key.
TEST(HostProcess, FaultInTheCommunicationCycle) {
    for (auto [option, streams] : {std::pair{"-r", Streams::Pipes}, std::pair{"-d", Streams::Terminal}}) {
        SCOPED_TRACE(option);
        Sandbox sandbox;
        sandbox.WriteConfig("KESTRELControl.cfg", {"CmpTestFaultCycle"});
        ChildProcess child(sandbox.Executable(), {option}, streams);
        if (child.NoTerminal())
            continue; // the system has no pseudo-terminals
        EXPECT_EQ(child.Wait(kEndTimeout), 0) << child.Output();
        std::string out = child.Output();
        EXPECT_NE(out.find(kReady), std::string::npos) << out;
        EXPECT_NE(out.find("Exception occurred: CMCallHook"), std::string::npos) << out;
        EXPECT_NE(out.find("KESTREL Control shutdown done"), std::string::npos) << out;
        EXPECT_LT(out.find("Exception occurred: CMCallHook"), out.find("KESTREL Control shutdown..."));
        ExpectStartAndStop(sandbox);
        EXPECT_FALSE(HasLine(sandbox.ReadHostLog(), "*** Exception during CMExit() occurred!"));
    }
}

TEST(HostProcess, UnknownOptionsAreReportedAndIgnored) {
    Sandbox sandbox;
    std::string output = RunAndStop(sandbox, {"-x", "/Q", "--startmode=fast", "-r"});
    std::string log = sandbox.ReadHostLog();
    EXPECT_TRUE(HasLine(log, "Unknown option ignored: -x")) << log;
    EXPECT_TRUE(HasLine(log, "Unknown option ignored: /Q")) << log;
    EXPECT_TRUE(HasLine(log, "Unknown start mode ignored (use auto or demand): --startmode=fast")) << log;
    EXPECT_NE(output.find("Unknown option ignored: -x"), std::string::npos);
}

TEST(HostProcess, LegacyConfigurationIsRenamed) {
    Sandbox sandbox;
    sandbox.Write("KestrelSP.cfg", "[ComponentManager]\n");
    RunAndStop(sandbox, {"-r"});
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
    std::string text = ReadFile(unit);
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
