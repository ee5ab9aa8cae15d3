/*
 * Optional record of the run loop's pass times, for measuring the loop rate:
 * when KESTREL_LOOP_TRACE names a file, the time of each pass (nanoseconds
 * of a steady clock, one per line) is kept in memory and written there when
 * the loop ends. KESTREL_LOOP_TRACE_PASSES bounds the number kept (default
 * 10000). Without the variable nothing is recorded.
 */
#ifndef KESTREL_HOST_LOOP_TRACE_H
#define KESTREL_HOST_LOOP_TRACE_H

#include <cstdint>
#include <string>
#include <vector>

namespace kestrel::host {

class HostLoopTrace {
  public:
    HostLoopTrace(); // reads the environment
    void Record();   // one pass
    void Write();    // once, when the loop ends
    bool Enabled() const { return !path_.empty(); }

  private:
    std::string path_;
    std::vector<std::int64_t> times_;
};

} // namespace kestrel::host

#endif
