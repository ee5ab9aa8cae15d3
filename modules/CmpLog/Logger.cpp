// One logger of CmpLog (see Logger.h): adding entries to the ring, passing
// them to backends and the console, and walking the ring.
#include "Logger.h"

#include <chrono>
#include <cstring>

#include "LogFormat.h"

namespace kestrel::cmplog {

namespace {

std::size_t CapacityFor(RTS_I32 maxEntries) {
    if (maxEntries < 1)
        return Logger::kDefaultEntries;
    return static_cast<std::size_t>(maxEntries > Logger::kMaxEntries ? Logger::kMaxEntries : maxEntries);
}

RTS_UI64 NowMs() {
    auto since = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<RTS_UI64>(std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
}

void SetResult(RTS_RESULT *pResult, RTS_RESULT r) {
    if (pResult != nullptr)
        *pResult = r;
}

} // namespace

Logger::Logger(const LogOptions &options, const LoggerServices *pServices) : pServices_(pServices) {
    Configure(options);
}

void Logger::Configure(const LogOptions &options) {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    options_ = options;
    options_.name[LOG_MAX_NAME - 1] = '\0';
    path_ = options.path != nullptr ? options.path : "";
    options_.path = options.path != nullptr ? path_.c_str() : nullptr;
    Resize(CapacityFor(options.maxEntries));
}

void Logger::SetConsole(bool bOn) {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    console_ = bOn;
}

// Called with the lock held; keeps the newest entries in sequence order.
void Logger::Resize(std::size_t capacity) {
    if (capacity == ring_.size())
        return;
    std::vector<LogEntry> ring(capacity);
    std::uint64_t count = next_ < ring_.size() ? next_ : ring_.size();
    if (count > capacity)
        count = capacity;
    for (std::uint64_t seq = next_ - count; seq < next_; ++seq)
        ring[seq % capacity] = ring_[seq % ring_.size()];
    ring_.swap(ring);
}

RTS_UI64 Logger::Timestamp() const {
    const RTS_UI32 o = options_.options;
    if ((o & LOG_OPT_TIMESTAMP_RTC_HIGHRES) != 0)
        return NowMs();
    auto mono = std::chrono::steady_clock::now().time_since_epoch();
    if ((o & LOG_OPT_TIMESTAMP_MS) != 0)
        return static_cast<RTS_UI64>(std::chrono::duration_cast<std::chrono::milliseconds>(mono).count());
    if ((o & LOG_OPT_TIMESTAMP_US) != 0)
        return static_cast<RTS_UI64>(std::chrono::duration_cast<std::chrono::microseconds>(mono).count());
    if ((o & LOG_OPT_TIMESTAMP_NS) != 0)
        return static_cast<RTS_UI64>(std::chrono::duration_cast<std::chrono::nanoseconds>(mono).count());
    return NowMs() / 1000u; // seconds of the real-time clock
}

RTS_RESULT Logger::Add(CMPID cmpId, RTS_UI32 ulClassId, RTS_RESULT errorId, RTS_UI32 ulInfoId, const char *pszInfo,
                       va_list args) {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    if (options_.enable == 0 || (options_.filter & ulClassId) == 0)
        return ERR_OK; // filtered out: not an error for the caller
    LogEntry &e = ring_[next_ % ring_.size()];
    ++next_;
    e.timestamp = Timestamp();
    e.cmpId = cmpId;
    e.classId = static_cast<RTS_I32>(ulClassId);
    e.errorId = static_cast<RTS_I32>(errorId);
    e.infoId = ulInfoId;
    FormatText(e.infoText, sizeof(e.infoText), pszInfo, args);
    if (inBackend_)
        return ERR_OK;
    inBackend_ = true;
    for (Backend &b : backends_) {
        RTS_I32 failed = 0;
        b.hFile = b.pItf->WriteEntry(b.hFile, &options_, &e, &failed);
    }
    if (console_ && pServices_ != nullptr && pServices_->pfConsole != nullptr) {
        char line[LOG_MAX_INFO + 32];
        RTS_UI32 msOfDay = static_cast<RTS_UI32>(NowMs() % 86400000u);
        FormatConsoleLine(line, sizeof(line), e, msOfDay);
        pServices_->pfConsole(line);
    }
    inBackend_ = false;
    return ERR_OK;
}

RTS_HANDLE Logger::First(LogEntry *pEntry, RTS_RESULT *pResult) {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    if (next_ == 0) {
        SetResult(pResult, ERR_NO_OBJECT);
        return nullptr;
    }
    std::uint64_t oldest = next_ > ring_.size() ? next_ - ring_.size() : 0;
    if (pEntry != nullptr)
        *pEntry = ring_[oldest % ring_.size()];
    SetResult(pResult, ERR_OK);
    return reinterpret_cast<RTS_HANDLE>(static_cast<RTS_UINTPTR>(oldest + 1));
}

RTS_HANDLE Logger::Next(RTS_HANDLE hEntry, LogEntry *pEntry, RTS_RESULT *pResult) {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    auto handle = reinterpret_cast<RTS_UINTPTR>(hEntry);
    if (handle == 0) {
        SetResult(pResult, ERR_PARAMETER);
        return nullptr;
    }
    // The handle holds the low bits of the current entry's sequence number
    // (all of them on 64-bit builds); the full number is the latest one
    // with those low bits that is not beyond the newest entry.
    std::uint64_t oldest = next_ > ring_.size() ? next_ - ring_.size() : 0;
    std::uint64_t current = static_cast<std::uint64_t>(handle - 1);
    if constexpr (sizeof(RTS_UINTPTR) < sizeof(std::uint64_t)) {
        const std::uint64_t span = std::uint64_t(1) << (8 * sizeof(RTS_UINTPTR));
        current |= next_ & ~(span - 1);
        if (current > next_ && current >= span)
            current -= span;
    }
    std::uint64_t seq = current + 1;
    if (seq < oldest)
        seq = oldest; // overwritten meanwhile: go on with the oldest left
    if (seq >= next_) {
        SetResult(pResult, ERR_NO_OBJECT);
        return nullptr;
    }
    if (pEntry != nullptr)
        *pEntry = ring_[seq % ring_.size()];
    SetResult(pResult, ERR_OK);
    return reinterpret_cast<RTS_HANDLE>(static_cast<RTS_UINTPTR>(seq + 1));
}

bool Logger::AttachBackend(const Backend &backend) {
    std::lock_guard<std::recursive_mutex> guard(lock_);
    Backend b = backend;
    inBackend_ = true;
    b.hFile = b.pItf->Open(nullptr, nullptr, &options_);
    if (b.hFile == RTS_INVALID_HANDLE || b.hFile == nullptr) {
        inBackend_ = false;
        return false;
    }
    std::uint64_t oldest = next_ > ring_.size() ? next_ - ring_.size() : 0;
    for (std::uint64_t seq = oldest; seq < next_; ++seq) {
        RTS_I32 failed = 0;
        b.hFile = b.pItf->WriteEntry(b.hFile, &options_, &ring_[seq % ring_.size()], &failed);
    }
    inBackend_ = false;
    backends_.push_back(b);
    return true;
}

int Logger::DetachBackends(CLASSID classId) {
    std::vector<Backend> gone;
    {
        std::lock_guard<std::recursive_mutex> guard(lock_);
        std::vector<Backend> kept;
        for (const Backend &b : backends_) {
            if (classId == 0xFFFFFFFFu || b.classId == classId)
                gone.push_back(b);
            else
                kept.push_back(b);
        }
        backends_.swap(kept);
        inBackend_ = true;
        for (const Backend &b : gone)
            b.pItf->Close(b.hFile);
        inBackend_ = false;
    }
    for (const Backend &b : gone) {
        if (pServices_ != nullptr && pServices_->pfReleaseBackend != nullptr)
            pServices_->pfReleaseBackend(b);
    }
    return static_cast<int>(gone.size());
}

} // namespace kestrel::cmplog
