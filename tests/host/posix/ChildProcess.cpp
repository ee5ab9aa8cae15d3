// The child process runner and the sandbox of the host process tests.
#include "ChildProcess.h"

#include <csignal>
#include <cstdlib>

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

namespace kestrel::test {

namespace {

std::filesystem::path OwnDirectory() {
    char path[4096];
    ssize_t n = readlink("/proc/self/exe", path, sizeof(path) - 1);
    if (n <= 0)
        return std::filesystem::current_path();
    path[n] = '\0';
    return std::filesystem::path(path).parent_path();
}

} // namespace

Sandbox::Sandbox() {
    std::filesystem::path bin = OwnDirectory();
    for (const auto &entry : std::filesystem::directory_iterator(bin)) {
        const auto &path = entry.path();
        // The runtime's modules and the fault components (Sys..., Cmp...),
        // not the other tests' and benchmarks' modules.
        std::string name = path.filename().string();
        bool bModule = path.extension() == ".so" && (name.rfind("Sys", 0) == 0 || name.rfind("Cmp", 0) == 0);
        if (bModule || name == "KESTRELControl")
            std::filesystem::copy_file(path, Dir() / path.filename());
    }
    WriteConfig("KESTRELControl.cfg");
}

void Sandbox::WriteConfig(const std::string &name, const std::vector<std::string> &extraComponents) const {
    std::string text = "[ComponentManager]\n";
    for (size_t i = 0; i < extraComponents.size(); ++i)
        text += "Component." + std::to_string(i) + "=" + extraComponents[i] + "\n";
    text += "\n[CmpLog]\nConsole=1\nLogger.0.Name=PlcLog\nLogger.0.Backend.0.ClassId=0\n";
    Write(name, text);
}

ChildProcess::ChildProcess(const std::filesystem::path &executable, const std::vector<std::string> &args,
                           Streams streams, const std::map<std::string, std::string> &env,
                           const std::vector<std::string> &unsetEnv) {
    int childIn = -1, childOut = -1;
    std::string slaveName;
    if (streams == Streams::Terminal) {
        int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) {
            noTerminal_ = true;
            if (master >= 0)
                close(master);
            return;
        }
        slaveName = ptsname(master);
        outputFd_ = master;
        inputFd_ = master;
    } else {
        int in[2], out[2];
        if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0)
            return;
        childIn = in[0];
        inputFd_ = in[1];
        childOut = out[1];
        outputFd_ = out[0];
    }

    std::vector<std::string> argStorage{executable.string()};
    argStorage.insert(argStorage.end(), args.begin(), args.end());
    std::vector<char *> argv;
    for (std::string &a : argStorage)
        argv.push_back(a.data());
    argv.push_back(nullptr);

    pid_ = fork();
    if (pid_ == 0) {
        // The child: its own session, the streams, the environment, exec.
        setsid();
        if (streams == Streams::Terminal) {
            int slave = open(slaveName.c_str(), O_RDWR);
            if (slave < 0)
                _exit(126);
            ioctl(slave, TIOCSCTTY, 0);
            childIn = childOut = slave;
        }
        dup2(childIn, STDIN_FILENO);
        dup2(childOut, STDOUT_FILENO);
        dup2(childOut, STDERR_FILENO);
        for (const std::string &name : unsetEnv)
            unsetenv(name.c_str());
        for (const auto &[name, value] : env)
            setenv(name.c_str(), value.c_str(), 1);
        signal(SIGINT, SIG_DFL);
        signal(SIGTERM, SIG_DFL);
        execv(argv[0], argv.data());
        _exit(127);
    }
    if (childIn >= 0)
        close(childIn);
    if (childOut >= 0 && childOut != childIn)
        close(childOut);
}

ChildProcess::~ChildProcess() {
    if (pid_ > 0 && !reaped_) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    if (outputFd_ >= 0)
        close(outputFd_);
    if (inputFd_ >= 0 && inputFd_ != outputFd_)
        close(inputFd_);
}

void ChildProcess::Drain(int timeoutMs) {
    if (outputFd_ < 0)
        return;
    pollfd pfd{outputFd_, POLLIN, 0};
    while (poll(&pfd, 1, timeoutMs) > 0) {
        char buffer[4096];
        ssize_t n = read(outputFd_, buffer, sizeof(buffer));
        if (n <= 0)
            return; // end of output (EIO on a terminal whose child is gone)
        output_.append(buffer, static_cast<size_t>(n));
        timeoutMs = 0;
    }
}

bool ChildProcess::WaitForOutput(const std::string &text, std::chrono::milliseconds timeout) {
    auto end = std::chrono::steady_clock::now() + timeout;
    while (output_.find(text) == std::string::npos) {
        if (std::chrono::steady_clock::now() >= end)
            return false;
        Drain(20);
    }
    return true;
}

const std::string &ChildProcess::Output() {
    Drain(0);
    return output_;
}

void ChildProcess::Type(const std::string &text) {
    if (inputFd_ >= 0 && write(inputFd_, text.data(), text.size()) < 0)
        return;
}

void ChildProcess::Signal(int sig) {
    if (pid_ > 0 && !reaped_)
        kill(pid_, sig);
}

int ChildProcess::Wait(std::chrono::milliseconds timeout) {
    if (pid_ <= 0)
        return -1;
    if (reaped_)
        return status_;
    auto end = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        int status = 0;
        pid_t done = waitpid(pid_, &status, WNOHANG);
        if (done == pid_) {
            reaped_ = true;
            status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
            Drain(50);
            return status_;
        }
        if (std::chrono::steady_clock::now() >= end) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            reaped_ = true;
            status_ = -1;
            Drain(0);
            return -1;
        }
        Drain(20);
    }
}

} // namespace kestrel::test
