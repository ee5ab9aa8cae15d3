// One logger of CmpLog: its options, a ring of its most recent entries, the
// backends it writes to, and whether it echoes to the console. A logger
// serialises everything that touches it with its own lock, so backends see
// one call at a time. The lock is recursive because a backend may log while
// it writes (a file it cannot open, say): such an entry goes to the ring
// only, never back to the backends, which would recurse without end.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "CmpItf.h"
#include "CmpLogItf.h"

namespace kestrel::cmplog {

// A backend attached to a logger: an instance of a backend class and its
// interface 22.
struct Backend {
    CLASSID classId;   // the class the instance was created from
    IBase *pBase;      // the instance
    ILogBackend *pItf; // its log-backend interface
    RTS_HANDLE hFile;  // what Open returned; WriteEntry may replace it
};

// What a logger needs from the rest of the component: the console output
// and giving backend instances back. Both may be null.
struct LoggerServices {
    void (*pfConsole)(const char *pszLine) = nullptr;
    void (*pfReleaseBackend)(const Backend &backend) = nullptr;
};

class Logger {
  public:
    static constexpr RTS_I32 kDefaultEntries = 1000;
    static constexpr RTS_I32 kMaxEntries = 100000;

    Logger(const LogOptions &options, const LoggerServices *pServices);
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;
    // Does not call backends: they must be detached first (DetachBackends).
    ~Logger() = default;

    // Takes new options; the ring keeps its newest entries when it shrinks.
    void Configure(const LogOptions &options);
    const char *Name() const { return options_.name; }
    void SetConsole(bool bOn);

    RTS_RESULT Add(CMPID cmpId, RTS_UI32 ulClassId, RTS_RESULT errorId, RTS_UI32 ulInfoId, const char *pszInfo,
                   va_list args);

    // Walking the ring: handles are entry sequence numbers plus one.
    RTS_HANDLE First(LogEntry *pEntry, RTS_RESULT *pResult);
    RTS_HANDLE Next(RTS_HANDLE hEntry, LogEntry *pEntry, RTS_RESULT *pResult);

    // Opens the backend and writes the ring's entries to it, so that lines
    // logged before it existed reach it too. False when Open fails (the
    // backend is then not kept).
    bool AttachBackend(const Backend &backend);
    // Closes and gives back the backends of one class (or all with
    // classId == 0xFFFFFFFF); returns how many.
    int DetachBackends(CLASSID classId);

  private:
    RTS_UI64 Timestamp() const;
    void Resize(std::size_t capacity);

    std::recursive_mutex lock_;
    bool inBackend_ = false; // a backend or the console is being called (by the lock's holder)
    LogOptions options_{};
    std::string path_; // storage behind options_.path
    std::vector<LogEntry> ring_;
    std::uint64_t next_ = 0; // sequence number of the next entry
    std::vector<Backend> backends_;
    bool console_ = false;
    const LoggerServices *pServices_;
};

} // namespace kestrel::cmplog
