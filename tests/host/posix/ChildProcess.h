// Runs the real host executable as a child process in a sandbox directory of
// its own, on a pseudo-terminal or on pipes, with bounded waits.
#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <sys/types.h>

#include "TempDir.h"

namespace kestrel::test {

// A copy of the executable, its modules and a configuration in a fresh
// directory, so that the host log and working directory are private.
class Sandbox {
  public:
    Sandbox();

    const std::filesystem::path &Dir() const { return dir_.Path(); }
    std::filesystem::path Executable() const { return Dir() / "KESTRELControl"; }
    std::filesystem::path HostLog() const { return Dir() / "KESTREL Control Win V3.log"; }
    std::string ReadHostLog() const { return ReadFile(HostLog()); }
    // Writes a configuration file into the sandbox; extraComponents go to
    // [ComponentManager] Component.0, .1, ...
    void WriteConfig(const std::string &name, const std::vector<std::string> &extraComponents = {}) const;
    void Write(const std::string &name, const std::string &content) const { TempDir::WriteTo(Dir() / name, content); }

  private:
    TempDir dir_{"kestrel-run"};
};

class ChildProcess {
  public:
    enum class Streams { Terminal, Pipes };

    ChildProcess(const std::filesystem::path &executable, const std::vector<std::string> &args, Streams streams,
                 const std::map<std::string, std::string> &env = {},
                 const std::vector<std::string> &unsetEnv = {"NOTIFY_SOCKET", "INVOCATION_ID", "WATCHDOG_USEC",
                                                             "WATCHDOG_PID", "KESTREL_CONSOLE"});
    ~ChildProcess(); // kills a child that is still running
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    bool Started() const { return pid_ > 0; }
    // True when a terminal was asked for and the system has no pseudo-terminals.
    bool NoTerminal() const { return noTerminal_; }
    pid_t Pid() const { return pid_; }

    // Waits until the child's output contains text; false after the timeout.
    bool WaitForOutput(const std::string &text, std::chrono::milliseconds timeout);
    // Everything the child wrote so far (standard output and error together).
    const std::string &Output();

    // Types on the terminal (Streams::Terminal) or writes to the input pipe.
    void Type(const std::string &text);
    void Signal(int sig);

    // Waits for the end; the exit status, 128 + signal, or -1 on timeout
    // (the child is then killed).
    int Wait(std::chrono::milliseconds timeout);

  private:
    void Drain(int timeoutMs);

    pid_t pid_ = -1;
    int outputFd_ = -1; // terminal master, or the read end of the output pipe
    int inputFd_ = -1;  // terminal master, or the write end of the input pipe
    std::string output_;
    int status_ = -1;
    bool reaped_ = false;
    bool noTerminal_ = false;
};

} // namespace kestrel::test
