// Benchmarks of the component manager, each with its peer in the same run:
//  - start-up and shut-down (CMInit3 with CMInitEnd, then CMExit) with 10, 50 and 100 module files
//    named in the settings, each exporting 25 functions and importing 20 by name, against only
//    loading and unloading the same files (goal: at most 2x);
//  - the same start-up and shut-down without the registry's export-row cache, for comparison;
//  - one hook dispatch over 100 module components (and the CM's own few) against calling the same
//    hook functions straight through an array (goal: at most 3 microseconds per dispatch).
// main() prints the medians (with --benchmark_repetitions) and the ratios.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "CMInternal.h"
#include "CMItf.h"
#include "CMOs.h"
#include "CMTestFixture.h"

using namespace kestrel::cmtest;

namespace {

std::string ModuleName(int i) {
    char szName[32];
    std::snprintf(szName, sizeof(szName), "BenchMod%03d", i);
    return szName;
}

std::string s_programDir;

std::string ModulePath(int i) {
    return s_programDir + ModuleName(i) + kestrel::cm::os::ModuleSuffixes()[0];
}

const ComponentListEntry s_list[] = {{"CmpLog", &FakeLogEntry, 0},
                                     {"CmpSettings", &FakeSettingsEntry, 0},
                                     {"SysTestServices", &FakeServicesEntry, 0},
                                     {nullptr, nullptr, 0}};

// Fresh services whose settings name n modules.
void PrepareServices(int n) {
    ResetFakes();
    R() = Recorder{};
    for (int i = 0; i < n; ++i)
        F().SetSetting("ComponentManager", "Component." + std::to_string(i), ModuleName(i));
}

bool StartAndStop(benchmark::State &state, int n) {
    RTS_RESULT result = CMInit3(nullptr, s_list, CM_INIT_SETTINGS_OPTIONAL);
    // Every module must be in and running, else the run measures something else.
    bool bOk =
        result == ERR_OK && CMGetComponentByName(ModuleName(n - 1).c_str(), nullptr)->usState == CM_STATE_RUNNING;
    CMExit();
    if (!bOk)
        state.SkipWithError("start-up did not load every module");
    return bOk;
}

void RunStartStop(benchmark::State &state, bool bCache) {
    const int n = static_cast<int>(state.range(0));
    kestrel::cm::RegistryUseCache(bCache);
    for (auto _ : state) {
        state.PauseTiming();
        PrepareServices(n);
        state.ResumeTiming();
        if (!StartAndStop(state, n))
            break;
    }
    kestrel::cm::RegistryUseCache(true);
    state.SetItemsProcessed(state.iterations() * n);
}

void BM_StartStop(benchmark::State &state) {
    RunStartStop(state, true);
}
BENCHMARK(BM_StartStop)->Arg(10)->Arg(50)->Arg(100)->Unit(benchmark::kMillisecond);

void BM_StartStopPlainRegistry(benchmark::State &state) {
    RunStartStop(state, false);
}
BENCHMARK(BM_StartStopPlainRegistry)->Arg(10)->Arg(100)->Unit(benchmark::kMillisecond);

// The peer: the same files, loaded (RTLD_NOW, by full path) and unloaded, nothing else.
void BM_LoadUnloadOnly(benchmark::State &state) {
    const int n = static_cast<int>(state.range(0));
    std::vector<std::string> paths;
    for (int i = 0; i < n; ++i)
        paths.push_back(ModulePath(i));
    std::vector<RTS_HANDLE> handles(static_cast<std::size_t>(n));
    char szError[256];
    bool bMissing = false;
    for (auto _ : state) {
        for (int i = 0; i < n; ++i) {
            if (kestrel::cm::os::LoadModule(paths[static_cast<std::size_t>(i)].c_str(),
                                            &handles[static_cast<std::size_t>(i)], szError, sizeof(szError),
                                            &bMissing) != ERR_OK) {
                state.SkipWithError(szError);
                return;
            }
        }
        for (RTS_HANDLE h : handles)
            kestrel::cm::os::UnloadModule(h);
    }
    state.SetItemsProcessed(state.iterations() * n);
}
BENCHMARK(BM_LoadUnloadOnly)->Arg(10)->Arg(50)->Arg(100)->Unit(benchmark::kMillisecond);

// One hook to a running runtime of 100 modules plus the CM's own components.
void BM_HookDispatch100(benchmark::State &state) {
    PrepareServices(100);
    if (CMInit3(nullptr, s_list, CM_INIT_SETTINGS_OPTIONAL) != ERR_OK) {
        state.SkipWithError("start-up failed");
        CMExit();
        return;
    }
    for (auto _ : state)
        benchmark::DoNotOptimize(CMCallHook(4711, 0, 0, 0));
    RTS_I32 nComponents = 0;
    for (ComponentInfo *p = CMGetFirstComponent(nullptr); p != nullptr; p = CMGetNextComponent(p, nullptr))
        ++nComponents;
    state.counters["components"] = nComponents;
    CMExit();
}
BENCHMARK(BM_HookDispatch100);

// The peer: the same hook functions of the same running components, called straight through an
// array: what the dispatch cannot avoid (one call into each module).
void BM_HookFunctionsDirect(benchmark::State &state) {
    PrepareServices(100);
    if (CMInit3(nullptr, s_list, CM_INIT_SETTINGS_OPTIONAL) != ERR_OK) {
        state.SkipWithError("start-up failed");
        CMExit();
        return;
    }
    std::vector<PF_HOOK_FUNCTION> hooks;
    for (ComponentInfo *p = CMGetFirstComponent(nullptr); p != nullptr; p = CMGetNextComponent(p, nullptr))
        if (p->pfHookFunction != nullptr)
            hooks.push_back(p->pfHookFunction);
    for (auto _ : state) {
        bool bAgain = false;
        for (PF_HOOK_FUNCTION pf : hooks)
            bAgain |= pf(4711, 0, 0) == ERR_CALL_AGAIN;
        benchmark::DoNotOptimize(bAgain);
    }
    state.counters["components"] = static_cast<double>(hooks.size());
    CMExit();
}
BENCHMARK(BM_HookFunctionsDirect);

// Keeps each benchmark's time per iteration (the median when there are repetitions).
class RatioReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &runs) override {
        for (const Run &r : runs) {
            std::string name = r.run_name.function_name + (r.run_name.args.empty() ? "" : "/" + r.run_name.args);
            if (r.run_type == Run::RT_Aggregate && r.aggregate_name != "median")
                continue;
            if (r.run_type == Run::RT_Iteration && medians_.count(name) != 0)
                continue;
            if (r.run_type == Run::RT_Aggregate)
                medians_[name] = true;
            times_[name] = r.GetAdjustedRealTime();
            cpu_[name] = r.GetAdjustedCPUTime();
            units_[name] = benchmark::GetTimeUnitString(r.time_unit);
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void PrintRatio(const std::string &what, const std::string &ours, const std::string &peer, const char *goal) {
        if (times_.count(ours) == 0 || times_.count(peer) == 0)
            return;
        std::printf("%-44s wall %9.3f vs %9.3f %s  ratio %5.2f | cpu ratio %5.2f  (%s)\n", what.c_str(), times_[ours],
                    times_[peer], units_[ours].c_str(), times_[ours] / times_[peer], cpu_[ours] / cpu_[peer], goal);
    }
    void PrintTime(const std::string &what, const std::string &ours, const char *goal) {
        if (times_.count(ours) == 0)
            return;
        std::printf("%-44s wall %9.3f %s  (%s)\n", what.c_str(), times_[ours], units_[ours].c_str(), goal);
    }

  private:
    std::map<std::string, double> times_;
    std::map<std::string, double> cpu_;
    std::map<std::string, std::string> units_;
    std::map<std::string, bool> medians_;
};

} // namespace

int main(int argc, char **argv) {
    std::string program = argv[0];
    std::size_t slash = program.rfind('/');
    s_programDir = slash == std::string::npos ? std::string("./") : program.substr(0, slash + 1);
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    std::printf("\nratios (ours / peer, lower is faster):\n");
    for (const char *n : {"10", "50", "100"})
        reporter.PrintRatio(std::string("start-up+shut-down / load+unload, n=") + n, std::string("BM_StartStop/") + n,
                            std::string("BM_LoadUnloadOnly/") + n, "goal <= 2.0");
    for (const char *n : {"10", "100"})
        reporter.PrintRatio(std::string("same without the export cache, n=") + n,
                            std::string("BM_StartStopPlainRegistry/") + n, std::string("BM_LoadUnloadOnly/") + n,
                            "for comparison");
    reporter.PrintRatio("hook dispatch / direct calls of the same hooks", "BM_HookDispatch100",
                        "BM_HookFunctionsDirect", "information");
    reporter.PrintTime("hook dispatch over 100 components", "BM_HookDispatch100", "goal <= 3000 ns");
    benchmark::Shutdown();
    return 0;
}
