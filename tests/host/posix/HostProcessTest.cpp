// Runs of the real executable in a sandbox directory of its own: ends on
// request, notify socket reports, faulting components, bad input.
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <map>
#include <regex>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TestSupport.h"

namespace kestrel::test {
namespace {

using namespace std::chrono_literals;

constexpr auto kTimeout = 30s;
constexpr const char *kReady = "KESTREL Control ready";
constexpr const char *kDone = "KESTREL Control shutdown done";
constexpr auto npos = std::string::npos;

// Polls until done() holds; false after the timeout.
template <class F> bool WaitUntil(std::chrono::milliseconds timeout, F done) {
    for (auto end = std::chrono::steady_clock::now() + timeout; !done(); std::this_thread::sleep_for(10ms))
        if (std::chrono::steady_clock::now() >= end)
            return false;
    return true;
}

// A datagram socket bound to a path, or to an abstract name ("@...").
class NotifyReceiver {
  public:
    explicit NotifyReceiver(const std::string &name) : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{AF_UNIX, {}};
        std::memcpy(address.sun_path, name.data(), name.size());
        address.sun_path[0] = name[0] == '@' ? '\0' : name[0]; // abstract: no terminator in the length
        EXPECT_EQ(bind(fd_, reinterpret_cast<sockaddr *>(&address),
                       offsetof(sockaddr_un, sun_path) + name.size() + (name[0] == '@' ? 0 : 1)),
                  0);
    }
    ~NotifyReceiver() { close(fd_); }

    // Collects datagrams, each followed by '|', until they contain text.
    bool WaitFor(const std::string &text, std::chrono::milliseconds timeout) {
        return WaitUntil(timeout, [&] {
            char buffer[512];
            for (ssize_t n; (n = recv(fd_, buffer, sizeof(buffer), MSG_DONTWAIT)) > 0;)
                received += std::string(buffer, static_cast<size_t>(n)) + "|";
            return received.find(text) != npos;
        });
    }
    std::string received; // every datagram so far

  private:
    int fd_;
};

// The executable, the runtime's and the fault modules, and a configuration.
class Sandbox : public TempDir {
  public:
    Sandbox() : TempDir("kestrel-run") {
        for (const auto &entry :
             std::filesystem::directory_iterator(std::filesystem::read_symlink("/proc/self/exe").parent_path())) {
            std::string name = entry.path().filename().string();
            bool bModule =
                entry.path().extension() == ".so" && (name.rfind("Sys", 0) == 0 || name.rfind("Cmp", 0) == 0);
            if (bModule || name == "KESTRELControl")
                std::filesystem::copy_file(entry.path(), *this / name);
        }
        WriteConfig("KESTRELControl.cfg");
    }
    std::filesystem::path Executable() const { return *this / "KESTRELControl"; }
    std::string ReadHostLog() const { return ReadFile(*this / "KESTREL Control Win V3.log"); }
    // A component named here goes to [ComponentManager] Component.0.
    void WriteConfig(const std::string &name, const std::string &component = "") const {
        WriteFile(*this / name, "[ComponentManager]\n" + (component.empty() ? "" : "Component.0=" + component + "\n") +
                                    "\n[CmpLog]\nConsole=1\nLogger.0.Name=PlcLog\nLogger.0.Backend.0.ClassId=0\n");
    }
};

class ChildProcess {
  public:
    // Standard output and error go to a file of the sandbox; standard input
    // is a pipe or, with bTerminal, a pseudo-terminal (for the key check).
    ChildProcess(const Sandbox &sandbox, std::vector<std::string> args, bool bTerminal = false,
                 const std::map<std::string, std::string> &env = {})
        : output_(sandbox / "output") {
        int input[2] = {-1, -1};
        if (bTerminal) {
            input[1] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
            if (input[1] < 0 || grantpt(input[1]) != 0 || unlockpt(input[1]) != 0)
                return; // no pseudo-terminals: Started() is false
            input[0] = open(ptsname(input[1]), O_RDWR | O_NOCTTY | O_CLOEXEC);
        } else if (pipe2(input, O_CLOEXEC) != 0) {
            return;
        }
        int out = open(output_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        args.insert(args.begin(), sandbox.Executable().string());
        std::vector<char *> argv;
        for (std::string &a : args)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            dup2(input[0], STDIN_FILENO);
            dup2(out, STDOUT_FILENO);
            dup2(out, STDERR_FILENO);
            for (const char *name :
                 {"NOTIFY_SOCKET", "INVOCATION_ID", "WATCHDOG_USEC", "WATCHDOG_PID", "KESTREL_CONSOLE"})
                unsetenv(name);
            for (const auto &[name, value] : env)
                setenv(name.c_str(), value.c_str(), 1);
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(input[0]);
        close(out);
        input_ = input[1];
    }
    ~ChildProcess() {
        Wait(std::chrono::milliseconds(0));
        close(input_);
    }

    bool Started() const { return pid_ > 0; }
    std::string Output() const { return ReadFile(output_); }
    bool WaitForOutput(const std::string &text) {
        return WaitUntil(kTimeout, [&] { return Output().find(text) != npos; });
    }
    void Type(const std::string &text) { (void)!write(input_, text.data(), text.size()); }
    void Signal(int sig) { kill(pid_, sig); }
    // The exit status, or 128 + signal; a child still running after the
    // timeout is killed (137).
    int Wait(std::chrono::milliseconds timeout = kTimeout) {
        int status = 0;
        if (pid_ <= 0 || status_ >= 0)
            return status_;
        if (!WaitUntil(timeout, [&] { return waitpid(pid_, &status, WNOHANG) == pid_; }) && kill(pid_, SIGKILL) == 0)
            waitpid(pid_, &status, 0);
        return status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

  private:
    std::filesystem::path output_;
    pid_t pid_ = -1;
    int input_ = -1;
    int status_ = -1; // not reaped yet
};

// True when the host log holds the whole line "MM/DD/YY HH:MM:SS: text" CR LF.
bool HasLine(const std::string &log, const std::string &text) {
    static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
    return std::regex_search(log, std::regex(R"((^|\n)\d\d/\d\d/\d\d \d\d:\d\d:\d\d: )" +
                                             std::regex_replace(text, special, R"(\$&)") + "\r\n"));
}

// The lines of a run that started and stopped normally.
void ExpectStartAndStop(const Sandbox &sandbox, const std::string &configName = "KESTRELControl.cfg") {
    std::string log = sandbox.ReadHostLog();
    for (const std::string &line :
         {std::string(74, '-'), std::string("KESTREL Control Win V3 Service started"), std::string("Config file:"),
          (sandbox / configName).string(), std::string("KESTREL Control Win V3 Service stopped")})
        EXPECT_TRUE(HasLine(log, line)) << line << "\n" << log;
}

// Runs ended by a line typed on a terminal (-d), SIGINT (-d on pipes, where a
// line is no key press) or SIGTERM (-r; the service without a notify socket).
// Each renames the legacy configuration and reports its bad input (unknown
// options also on the console) in the host log, and runs all the same.
TEST(HostProcess, RunsEndOnRequest) {
    const std::string cannotOpen = "*** Config file cannot be opened!", unknown = "Unknown option ignored: -x";
    const std::string percent = "*** Config file name contains '%': it is used exactly as written";
    const std::string mode = "Unknown start mode ignored (use auto or demand): --startmode=fast";
    struct Row {
        std::vector<std::string> args;
        bool bTerminal;
        const char *typed; // null: nothing typed
        int signal;        // 0: none sent
        std::vector<std::string> lines;
    };
    const Row rows[] = {
        {{"-d", "missing.cfg"}, true, "q\n", 0, {cannotOpen}},
        {{"-d", "folder.cfg"}, false, "a line\n", SIGINT, {cannotOpen}},
        {{"-x", "--startmode=fast", "-r", "%s%n.cfg"}, false, nullptr, SIGTERM, {percent, unknown, mode}},
        {{}, false, nullptr, SIGTERM, {}}};
    for (const Row &row : rows) {
        SCOPED_TRACE(&row - rows);
        Sandbox sandbox;
        WriteFile(sandbox / "KestrelSP.cfg");
        std::filesystem::create_directory(sandbox / "folder.cfg");
        sandbox.WriteConfig("%s%n.cfg");
        ChildProcess child(sandbox, row.args, row.bTerminal, {{"INVOCATION_ID", row.args.empty() ? "0123abcd" : ""}});
        if (!child.Started())
            continue; // the system has no pseudo-terminals
        ASSERT_TRUE(child.WaitForOutput(kReady)) << child.Output();
        if (row.typed != nullptr)
            child.Type(row.typed);
        if (row.signal != 0) {
            std::this_thread::sleep_for(1100ms); // the loop's deadlines cross a second
            EXPECT_EQ(child.Output().find(kDone), npos) << "still running";
            child.Signal(row.signal);
        }
        EXPECT_EQ(child.Wait(), 0) << child.Output();
        EXPECT_NE(child.Output().find(kDone), npos) << child.Output();
        EXPECT_TRUE(std::filesystem::exists(sandbox / "KestrelControl.cfg"));
        ExpectStartAndStop(sandbox, row.args.empty() ? "KESTRELControl.cfg" : row.args.back());
        std::string log = sandbox.ReadHostLog();
        EXPECT_EQ(HasLine(log, cannotOpen), row.lines.size() == 1 && row.lines[0] == cannotOpen) << log;
        for (const std::string &line : row.lines) {
            EXPECT_TRUE(HasLine(log, line)) << line << "\n" << log;
            EXPECT_TRUE(line.rfind("Unknown", 0) != 0 || child.Output().find(line) != npos) << child.Output();
        }
    }
}

// Under systemd the reports go to the notify socket (a path or an abstract
// name), each message whole in one datagram, with watchdog pings when asked
// for; SIGTERM stops the service cleanly.
TEST(HostProcess, ServiceReportsToTheNotifySocketAndStopsOnSigterm) {
    for (std::string name : {std::string("notify"), "@kestrel-host-test-" + std::to_string(getpid())}) {
        Sandbox sandbox;
        name = name[0] == '@' ? name : (sandbox / name).string();
        NotifyReceiver notify(name);
        ChildProcess child(sandbox, {}, false, {{"NOTIFY_SOCKET", name}, {"WATCHDOG_USEC", "200000"}});
        ASSERT_TRUE(notify.WaitFor("WATCHDOG=1", kTimeout)) << notify.received << child.Output();
        child.Signal(SIGTERM);
        EXPECT_TRUE(notify.WaitFor("STATUS=Stopped", kTimeout)) << notify.received;
        EXPECT_EQ(child.Wait(), 0);
        EXPECT_TRUE(
            std::regex_match(notify.received, std::regex("STATUS=Starting\\|READY=1\nSTATUS=Running\\|(WATCHDOG=1\\|)+"
                                                         "STOPPING=1\nSTATUS=Stopping\\|STATUS=Stopped\\|")))
            << notify.received;
        ExpectStartAndStop(sandbox);
    }
}

// Runs that end by themselves: the dispatcher outside systemd, --help, a bad
// notify socket; a component faulting at start-up or in the cycle is logged,
// CMExit runs in order, and the process ends (on a terminal without a key).
TEST(HostProcess, RunsThatEndByThemselves) {
    const std::string cycle = "CmpTestFaultCycle", stopped = "KESTREL Control Win V3 Service stopped";
    const std::string cmExit = "*** Exception during CMExit() occurred!", shutdown = "KESTREL Control shutdown...";
    const std::vector<std::string> atInit = {"Exception occurred: CMInit", shutdown, kDone};
    const std::vector<std::string> inCycle = {kReady, "Exception occurred: CMCallHook", shutdown, kDone};
    struct Row {
        std::vector<std::string> args;
        std::string component, notifySocket;
        bool bTerminal;
        int status;
        std::vector<std::string> output; // in this order
        std::string line, absentLine;    // in the host log, and not in it
    };
    const Row rows[] = {
        {{}, "", "", false, 1, {"Usage: KESTRELControl"}, "StartServiceCtrlDispatcher failed [reason: 1063]", ""},
        {{"--help"}, "", "", false, 0, {"--startmode=auto|demand"}, "", ""},
        {{}, "", "relative/name", false, 0, {}, "RegisterServiceCtrlHandler() failed [reason: 97]", ""},
        {{"-r"}, "CmpTestFaultInit", "", false, 0, atInit, "*** Exception during CMInit() occurred!", stopped},
        {{"-r"}, cycle, "", false, 0, inCycle, stopped, cmExit},
        {{"-d"}, cycle, "", true, 0, inCycle, stopped, cmExit}};
    for (const Row &row : rows) {
        SCOPED_TRACE(&row - rows);
        Sandbox sandbox;
        sandbox.WriteConfig("KESTRELControl.cfg", row.component);
        ChildProcess child(sandbox, row.args, row.bTerminal, {{"NOTIFY_SOCKET", row.notifySocket}});
        if (!child.Started())
            continue; // the system has no pseudo-terminals
        EXPECT_EQ(child.Wait(), row.status) << child.Output();
        size_t at = 0;
        for (const std::string &text : row.output)
            EXPECT_NE(at = child.Output().find(text, at), npos) << text << "\n" << child.Output();
        std::string log = sandbox.ReadHostLog();
        EXPECT_TRUE(row.line.empty() || HasLine(log, row.line)) << log;
        EXPECT_TRUE(row.absentLine.empty() || !HasLine(log, row.absentLine)) << log;
    }
}

} // namespace
} // namespace kestrel::test
