// The host log file. The line is built first and written with one call, so a
// crash loses at most the line being written. The file is opened in binary
// append mode: the line ends are CR LF on every system, never translated.
#include "HostLog.h"

#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "HostOs.h"

namespace kestrel::host {

namespace {

struct LogFile {
    std::mutex lock; // the service control handler logs from its own thread
    std::string path;
    std::FILE *file = nullptr;
    bool bEcho = false;
};

LogFile &Log() {
    static LogFile log;
    return log;
}

// The caller holds the lock.
bool OpenLocked(LogFile &log) {
    if (log.file == nullptr && !log.path.empty())
        log.file = std::fopen(log.path.c_str(), "ab");
    return log.file != nullptr;
}

} // namespace

void HostLogSetPath(const std::string &path) {
    LogFile &log = Log();
    std::lock_guard<std::mutex> guard(log.lock);
    if (path == log.path)
        return;
    if (log.file != nullptr) {
        std::fclose(log.file);
        log.file = nullptr;
    }
    log.path = path;
}

void HostLogSetEcho(bool bEcho) {
    Log().bEcho = bEcho;
}

std::string HostLogFormatLine(const std::tm &localTime, const char *pszText) {
    char stamp[32];
    // _strdate and _strtime: MM/DD/YY and HH:MM:SS (24 hours).
    std::strftime(stamp, sizeof(stamp), "%m/%d/%y %H:%M:%S", &localTime);
    std::string line(stamp);
    line += ": ";
    line += pszText != nullptr ? pszText : "";
    line += "\r\n";
    return line;
}

void HostLog(const char *pszText) {
    LogFile &log = Log();
    std::lock_guard<std::mutex> guard(log.lock);
    if (!OpenLocked(log) || pszText == nullptr) {
        if (pszText != nullptr && log.bEcho)
            HostOsConsoleMessage(pszText);
        return;
    }
    std::time_t now = std::time(nullptr);
    std::tm local{};
    std::tm *converted = std::localtime(&now); // single-threaded use under the lock
    if (converted != nullptr)
        local = *converted;
    std::string line = HostLogFormatLine(local, pszText);
    std::fwrite(line.data(), 1, line.size(), log.file);
    std::fflush(log.file);
    if (log.bEcho)
        HostOsConsoleMessage(pszText);
}

void HostLogf(const char *pszFormat, ...) {
    char text[1024];
    va_list args;
    va_start(args, pszFormat);
    std::vsnprintf(text, sizeof(text), pszFormat, args);
    va_end(args);
    HostLog(text);
}

} // namespace kestrel::host
