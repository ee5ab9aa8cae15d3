// Benchmarks of the runtime service modules, each next to its peer in the
// same run, called the way components call them (through a function
// pointer taken from the module's export table):
//   LogAdd into the in-memory ring      vs spdlog logging the line to a null sink
//   SysSemEnter + SysSemLeave           vs pthread_mutex_lock + unlock
//   CRC32Update over 4 KiB              vs zlib's crc32
// After the runs the ratios module/peer are printed (medians when run with
// repetitions).
#include <map>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <pthread.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>
#include <zlib.h>

#include "CmpChecksumItf.h"
#include "CmpLogItf.h"
#include "FakeCM.h"
#include "SysSemItf.h"

extern "C" {
RTS_RESULT CmpLogEntry(ComponentInitStruct *pInit);
RTS_RESULT SysSemEntry(ComponentInitStruct *pInit);
RTS_RESULT CmpChecksumEntry(ComponentInitStruct *pInit);
}

namespace {

// The functions as a component would have them in its API slots.
struct Slots {
    decltype(&LogAdd) pfLogAdd = nullptr;
    decltype(&SysSemCreate) pfSysSemCreate = nullptr;
    decltype(&SysSemEnter) pfSysSemEnter = nullptr;
    decltype(&SysSemLeave) pfSysSemLeave = nullptr;
    decltype(&CRC32Update) pfCRC32Update = nullptr;
};

Slots &GetSlots() {
    static Slots s;
    static bool done = false;
    if (!done) {
        done = true;
        kestrel::test::FakeCM cm;
        cm.Enter(CmpLogEntry);
        cm.CollectExports();
        s.pfLogAdd =
            cm.ExportAs<RTS_RESULT(RTS_HANDLE, CMPID, RTS_UI32, RTS_RESULT, RTS_UI32, const char *, ...)>("LogAdd");
        cm.Enter(SysSemEntry);
        cm.CollectExports();
        s.pfSysSemCreate = cm.ExportAs<RTS_HANDLE(RTS_RESULT *)>("SysSemCreate");
        s.pfSysSemEnter = cm.ExportAs<RTS_RESULT(RTS_HANDLE)>("SysSemEnter");
        s.pfSysSemLeave = cm.ExportAs<RTS_RESULT(RTS_HANDLE)>("SysSemLeave");
        cm.Enter(CmpChecksumEntry);
        cm.CollectExports();
        s.pfCRC32Update = cm.ExportAs<RTS_UI32(RTS_UI32, const RTS_UI8 *, RTS_SIZE)>("CRC32Update");
    }
    return s;
}

void BM_LogAdd_Ring(benchmark::State &state) {
    auto pfLogAdd = GetSlots().pfLogAdd;
    unsigned id = 0x101;
    for (auto _ : state) {
        pfLogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 7, "%s<cmp>%s</cmp> init, <id>0x%08x</id> <ver>%d.%d.%d.%d</ver>",
                 "Dynamic: ", "CmpLog", id, 3, 5, 5, 0);
        ++id;
    }
}
BENCHMARK(BM_LogAdd_Ring);

void BM_Spdlog_NullSink(benchmark::State &state) {
    auto logger = std::make_shared<spdlog::logger>("bench", std::make_shared<spdlog::sinks::null_sink_mt>());
    logger->set_level(spdlog::level::info);
    unsigned id = 0x101;
    for (auto _ : state) {
        logger->info("{}<cmp>{}</cmp> init, <id>0x{:08x}</id> <ver>{}.{}.{}.{}</ver>", "Dynamic: ", "CmpLog", id, 3, 5,
                     5, 0);
        ++id;
    }
}
BENCHMARK(BM_Spdlog_NullSink);

void BM_SysSem_EnterLeave(benchmark::State &state) {
    Slots &s = GetSlots();
    RTS_HANDLE h = s.pfSysSemCreate(nullptr);
    auto pfEnter = s.pfSysSemEnter;
    auto pfLeave = s.pfSysSemLeave;
    for (auto _ : state) {
        pfEnter(h);
        pfLeave(h);
    }
    SysSemDelete(h);
}
BENCHMARK(BM_SysSem_EnterLeave);

void BM_PthreadMutex_LockUnlock(benchmark::State &state) {
    pthread_mutex_t m = PTHREAD_MUTEX_INITIALIZER;
    for (auto _ : state) {
        pthread_mutex_lock(&m);
        pthread_mutex_unlock(&m);
    }
    pthread_mutex_destroy(&m);
}
BENCHMARK(BM_PthreadMutex_LockUnlock);

std::vector<RTS_UI8> Block() {
    std::vector<RTS_UI8> data(4096);
    for (std::size_t i = 0; i < data.size(); ++i)
        data[i] = static_cast<RTS_UI8>(i * 131u + 7u);
    return data;
}

void BM_CmpChecksum_Crc32_4KiB(benchmark::State &state) {
    auto pfUpdate = GetSlots().pfCRC32Update;
    std::vector<RTS_UI8> data = Block();
    for (auto _ : state)
        benchmark::DoNotOptimize(pfUpdate(0, data.data(), data.size()));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 4096);
}
BENCHMARK(BM_CmpChecksum_Crc32_4KiB);

void BM_Zlib_Crc32_4KiB(benchmark::State &state) {
    std::vector<RTS_UI8> data = Block();
    for (auto _ : state)
        benchmark::DoNotOptimize(crc32(0, data.data(), static_cast<uInt>(data.size())));
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 4096);
}
BENCHMARK(BM_Zlib_Crc32_4KiB);

// Keeps each benchmark's time per iteration (the median when there are
// repetitions) for the ratios printed at the end.
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &r : runs) {
            std::string name = r.run_name.function_name;
            if (r.run_type == Run::RT_Aggregate && r.aggregate_name != "median")
                continue;
            if (r.run_type == Run::RT_Iteration && times_.count(name) != 0 && medians_.count(name) != 0)
                continue;
            if (r.run_type == Run::RT_Aggregate)
                medians_[name] = true;
            times_[name] = r.GetAdjustedRealTime();
            cpu_[name] = r.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void PrintRatio(const char *what, const char *ours, const char *peer, const char *goal) {
        if (times_.count(ours) == 0 || times_.count(peer) == 0)
            return;
        std::printf("%-36s cpu %8.2f vs %8.2f ns  ratio %.2f | wall %8.2f vs %8.2f ns  ratio %.2f  (%s)\n", what,
                    cpu_[ours], cpu_[peer], cpu_[ours] / cpu_[peer], times_[ours], times_[peer],
                    times_[ours] / times_[peer], goal);
    }

  private:
    std::map<std::string, double> times_; // wall clock
    std::map<std::string, double> cpu_;   // CPU time of the benchmark thread: steadier on a shared machine
    std::map<std::string, bool> medians_;
};

} // namespace

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\nmodule / peer, time per call (lower is faster); CPU time counts on a busy machine:\n");
    reporter.PrintRatio("LogAdd ring / spdlog null sink", "BM_LogAdd_Ring", "BM_Spdlog_NullSink", "goal <= 1.0");
    reporter.PrintRatio("SysSemEnter+Leave / pthread_mutex", "BM_SysSem_EnterLeave", "BM_PthreadMutex_LockUnlock",
                        "goal <= 1.5");
    reporter.PrintRatio("CRC32Update 4 KiB / zlib crc32", "BM_CmpChecksum_Crc32_4KiB", "BM_Zlib_Crc32_4KiB",
                        "goal <= 1.11, i.e. speed >= 0.9x");
    benchmark::Shutdown();
    return 0;
}
