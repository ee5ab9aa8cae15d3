// Pass times of the run loop, kept in memory so that recording costs no
// system call in the loop.
#include "HostLoopTrace.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace kestrel::host {

HostLoopTrace::HostLoopTrace() {
    const char *path = std::getenv("KESTREL_LOOP_TRACE");
    if (path == nullptr || *path == '\0')
        return;
    path_ = path;
    long passes = 10000;
    if (const char *limit = std::getenv("KESTREL_LOOP_TRACE_PASSES"))
        passes = std::strtol(limit, nullptr, 10);
    times_.reserve(passes > 0 ? static_cast<size_t>(passes) : 0);
}

void HostLoopTrace::Record() {
    if (path_.empty() || times_.size() == times_.capacity())
        return;
    auto now = std::chrono::steady_clock::now().time_since_epoch();
    times_.push_back(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

void HostLoopTrace::Write() {
    if (path_.empty())
        return;
    std::FILE *file = std::fopen(path_.c_str(), "w");
    if (file == nullptr)
        return;
    for (std::int64_t t : times_)
        std::fprintf(file, "%lld\n", static_cast<long long>(t));
    std::fclose(file);
    path_.clear();
}

} // namespace kestrel::host
