// The unit file text and the systemctl runner.
#include "HostUnit.h"

#include <cerrno>
#include <cstdlib>

#include <spawn.h>
#include <sys/wait.h>

extern char **environ;

namespace kestrel::host {

namespace {

bool UnitNameChar(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == ':' || c == '_' ||
           c == '.' || c == '-';
}

bool HasLineBreak(const std::string &value) {
    return value.find_first_of("\r\n") != std::string::npos;
}

// '%' starts a specifier in every unit setting.
std::string EscapeSpecifiers(const std::string &value) {
    std::string out;
    for (char c : value) {
        out += c;
        if (c == '%')
            out += '%';
    }
    return out;
}

} // namespace

std::string HostUnitName(const std::string &serviceName) {
    std::string name;
    bool bReplaced = false;
    for (char c : serviceName) {
        if (UnitNameChar(c)) {
            name += c;
            bReplaced = false;
        } else if (!bReplaced) {
            name += '-';
            bReplaced = true;
        }
    }
    if (name.empty())
        name = "KESTRELControl";
    return name + ".service";
}

std::string HostUnitQuote(const std::string &value) {
    std::string out = "\"";
    for (char c : value) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '%':
            out += "%%";
            break;
        case '$':
            out += "$$";
            break;
        default:
            out += c;
        }
    }
    return out + "\"";
}

std::string HostUnitText(const HostUnitFields &unit) {
    if (HasLineBreak(unit.serviceName) || HasLineBreak(unit.productVersion) || HasLineBreak(unit.executable) ||
        HasLineBreak(unit.account))
        return std::string();
    std::string text;
    text += "# " + unit.serviceName + ": written by \"KESTRELControl -i\", removed by \"KESTRELControl -u\".\n";
    text += "[Unit]\n";
    text += "Description=" + EscapeSpecifiers(unit.serviceName + " Version " + unit.productVersion) + "\n";
    text += "After=network.target\n";
    text += "\n[Service]\n";
    text += "Type=notify\n";
    text += "NotifyAccess=main\n";
    text += "ExecStart=" + HostUnitQuote(unit.executable) + "\n";
    if (!unit.account.empty())
        text += "User=" + EscapeSpecifiers(unit.account) + "\n";
    text += "Restart=on-failure\n";
    text += "WatchdogSec=" + std::to_string(kWatchdogSeconds) + "\n";
    text += "\n[Install]\n";
    text += "WantedBy=multi-user.target\n";
    return text;
}

std::string HostUnitDirectory() {
    const char *dir = std::getenv("KESTREL_UNIT_DIR");
    return dir != nullptr && *dir != '\0' ? dir : kDefaultUnitDirectory;
}

std::string HostSystemctlCommand() {
    const char *command = std::getenv("KESTREL_SYSTEMCTL");
    return command != nullptr && *command != '\0' ? command : "systemctl";
}

int HostRunSystemctl(const std::vector<std::string> &args) {
    std::string command = HostSystemctlCommand();
    std::vector<char *> argv;
    argv.push_back(command.data());
    std::vector<std::string> copies(args);
    for (std::string &arg : copies)
        argv.push_back(arg.data());
    argv.push_back(nullptr);
    pid_t pid = 0;
    int error = posix_spawnp(&pid, command.c_str(), nullptr, nullptr, argv.data(), environ);
    if (error != 0) {
        errno = error;
        return -1;
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + (WIFSIGNALED(status) ? WTERMSIG(status) : 0);
}

} // namespace kestrel::host
