// Benchmarks of CmpMemPool against general-purpose allocators doing the same work:
//  - MemPoolGetBlock + MemPoolPutBlock of 64-byte blocks without a lock service, called the way
//    components call them (through the functions of the component's export table), against glibc
//    malloc+free, mimalloc and std::pmr::unsynchronized_pool_resource, each zeroing the block
//    after allocation and filling it with 0xAA before release, as the pool does;
//  - the same through the C functions of those names, which a linked-in caller reaches;
//  - the same with a lock service (spinlock or std::mutex behind SysSemEnter/SysSemLeave);
//  - FixedBlocksPoolAlloc + FixedBlocksPoolFree of 64-byte blocks against
//    std::pmr::unsynchronized_pool_resource, both filling the block with 0xAA on release.
// main() prints the median of every benchmark and the ratio of each subject to its peers.
#include <atomic>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory_resource>
#include <mutex>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <mimalloc.h>

#include "CmpMemPoolItf.h"

namespace {

constexpr RTS_SIZE kBlock = 64;

// libmimalloc.so replaces malloc and free (and glibc's __libc_ names) for the whole process, so
// the glibc peer takes glibc's allocator from the C library itself. This benchmark is built for
// Linux only, which is why it may look the functions up with dlsym.
struct GlibcAllocator {
    void *(*pfMalloc)(size_t) = nullptr;
    void (*pfFree)(void *) = nullptr;
};
GlibcAllocator g_glibc;

bool LookUpGlibc() {
    void *libc = dlopen("libc.so.6", RTLD_NOW | RTLD_NOLOAD);
    if (libc == nullptr)
        return false;
    g_glibc.pfMalloc = reinterpret_cast<void *(*)(size_t)>(dlsym(libc, "malloc"));
    g_glibc.pfFree = reinterpret_cast<void (*)(void *)>(dlsym(libc, "free"));
    if (g_glibc.pfMalloc == nullptr || g_glibc.pfFree == nullptr)
        return false;
    void *probe = g_glibc.pfMalloc(kBlock);
    const bool own = !mi_is_in_heap_region(probe);
    g_glibc.pfFree(probe);
    return own;
}

// ---- The component, entered with a chosen set of services -------------------------------------

std::map<std::string, RTS_VOID_FCTPTR> g_services;
ComponentInitStruct g_init{};

// The component's export table, as it registers it.
const ExportEntry *g_exports = nullptr;
RTS_RESULT BenchRegisterAPI(const void *pExpTable, RTS_VOID_FCTPTR, RTS_UI32, RTS_UI32) {
    g_exports = static_cast<const ExportEntry *>(pExpTable);
    return ERR_OK;
}

template <typename F> F Exported(const char *pszName) {
    for (const ExportEntry *row = g_exports; row != nullptr && row->pszName != nullptr; ++row) {
        if (std::strcmp(row->pszName, pszName) == 0)
            return reinterpret_cast<F>(row->pfFunction);
    }
    return nullptr;
}

RTS_RESULT BenchGetAPI2(const char *name, RTS_VOID_FCTPTR *slot, RTS_UI32, RTS_UI32, RTS_UI32) {
    auto it = g_services.find(name);
    *slot = it != g_services.end() ? it->second : nullptr;
    return ERR_OK;
}

void *BenchAllocData(const char *, RTS_SIZE size, RTS_RESULT *pResult) {
    if (pResult != nullptr)
        *pResult = ERR_OK;
    return std::malloc(size);
}
RTS_RESULT BenchFreeData(const char *, void *p) {
    std::free(p);
    return ERR_OK;
}

// A spinlock: one compare-and-swap to enter, one release store to leave; while taken, it waits
// reading until the lock looks free again.
struct SpinLock {
    std::atomic<int> state{0};
};
RTS_HANDLE SpinCreate(RTS_RESULT *pResult) {
    *pResult = ERR_OK;
    return new SpinLock;
}
RTS_RESULT SpinEnter(RTS_HANDLE h) {
    auto *lock = static_cast<SpinLock *>(h);
    int expected = 0;
    while (!lock->state.compare_exchange_weak(expected, 1, std::memory_order_acquire, std::memory_order_relaxed)) {
        while (lock->state.load(std::memory_order_relaxed) != 0) {
        }
        expected = 0;
    }
    return ERR_OK;
}
RTS_RESULT SpinLeave(RTS_HANDLE h) {
    static_cast<SpinLock *>(h)->state.store(0, std::memory_order_release);
    return ERR_OK;
}
RTS_RESULT SpinDelete(RTS_HANDLE h) {
    delete static_cast<SpinLock *>(h);
    return ERR_OK;
}

RTS_HANDLE MutexCreate(RTS_RESULT *pResult) {
    *pResult = ERR_OK;
    return new std::mutex;
}
RTS_RESULT MutexEnter(RTS_HANDLE h) {
    static_cast<std::mutex *>(h)->lock();
    return ERR_OK;
}
RTS_RESULT MutexLeave(RTS_HANDLE h) {
    static_cast<std::mutex *>(h)->unlock();
    return ERR_OK;
}
RTS_RESULT MutexDelete(RTS_HANDLE h) {
    delete static_cast<std::mutex *>(h);
    return ERR_OK;
}

enum class LockKind { None, Spin, Mutex };

template <typename F> RTS_VOID_FCTPTR Fn(F *f) {
    return reinterpret_cast<RTS_VOID_FCTPTR>(f);
}

// Hook 15 and hook 1 again, with the memory service and the chosen semaphore service.
void StartComponent(LockKind kind) {
    if (g_init.pfHookFunction == nullptr) {
        g_init.pfCMGetAPI2 = &BenchGetAPI2;
        g_init.pfCMRegisterAPI = &BenchRegisterAPI;
        CmpMemPoolEntry(&g_init);
        g_init.pfExportFunctions();
    }
    g_init.pfHookFunction(CH_EXIT2, 0, 0);
    g_services.clear();
    g_services["SysMemAllocData"] = Fn(&BenchAllocData);
    g_services["SysMemFreeData"] = Fn(&BenchFreeData);
    if (kind == LockKind::Spin) {
        g_services["SysSemCreate"] = Fn(&SpinCreate);
        g_services["SysSemEnter"] = Fn(&SpinEnter);
        g_services["SysSemLeave"] = Fn(&SpinLeave);
        g_services["SysSemDelete"] = Fn(&SpinDelete);
    } else if (kind == LockKind::Mutex) {
        g_services["SysSemCreate"] = Fn(&MutexCreate);
        g_services["SysSemEnter"] = Fn(&MutexEnter);
        g_services["SysSemLeave"] = Fn(&MutexLeave);
        g_services["SysSemDelete"] = Fn(&MutexDelete);
    }
    g_init.pfHookFunction(CH_INIT, 0, 0);
}

// ---- Pools of equal blocks ----------------------------------------------------------------------

enum class Caller { Imported, Linked };

void MemPoolGetPut(benchmark::State &state, LockKind kind, Caller caller) {
    StartComponent(kind);
    auto pfGetBlock = caller == Caller::Linked ? &MemPoolGetBlock : Exported<decltype(&MemPoolGetBlock)>("MemPoolGetBlock");
    auto pfPutBlock = caller == Caller::Linked ? &MemPoolPutBlock : Exported<decltype(&MemPoolPutBlock)>("MemPoolPutBlock");
    RTS_HANDLE h = MemPoolCreateDynamic("Bench", 64, kBlock, nullptr);
    if (h == RTS_INVALID_HANDLE || pfGetBlock == nullptr || pfPutBlock == nullptr) {
        state.SkipWithError("pool not created or functions not exported");
        return;
    }
    for (auto _ : state) {
        RTS_RESULT result;
        void *p = pfGetBlock(h, &result);
        benchmark::DoNotOptimize(p);
        pfPutBlock(p);
    }
    MemPoolDelete(h, "Bench");
}
void BM_MemPoolGetPut_NoLock(benchmark::State &state) {
    MemPoolGetPut(state, LockKind::None, Caller::Imported);
}
void BM_MemPoolGetPut_NoLock_Linked(benchmark::State &state) {
    MemPoolGetPut(state, LockKind::None, Caller::Linked);
}
void BM_MemPoolGetPut_SpinLock(benchmark::State &state) {
    MemPoolGetPut(state, LockKind::Spin, Caller::Imported);
}
void BM_MemPoolGetPut_StdMutex(benchmark::State &state) {
    MemPoolGetPut(state, LockKind::Mutex, Caller::Imported);
}

// What the lock service alone costs get and put: two enter/leave pairs of the spinlock through
// function pointers, as the pool calls them. glibc's allocator takes no lock on its per-thread
// cache, so this is the floor of the locked pool's time that the peer does not pay.
void BM_SpinLockTwoPairs(benchmark::State &state) {
    RTS_RESULT result;
    RTS_HANDLE h = SpinCreate(&result);
    auto *volatile pfEnter = &SpinEnter;
    auto *volatile pfLeave = &SpinLeave;
    for (auto _ : state) {
        pfEnter(h);
        pfLeave(h);
        pfEnter(h);
        pfLeave(h);
    }
    SpinDelete(h);
}

// The peers zero the block after allocation and fill it with 0xAA before release, as the pool
// does; DoNotOptimize keeps the compiler from dropping the fill in front of the release.
template <typename Alloc, typename Free> void AllocFreeWithFills(benchmark::State &state, Alloc alloc, Free release) {
    for (auto _ : state) {
        void *p = alloc();
        std::memset(p, 0, kBlock);
        benchmark::DoNotOptimize(p);
        std::memset(p, 0xAA, kBlock);
        benchmark::DoNotOptimize(p);
        release(p);
    }
}
void BM_GlibcMalloc_Fills(benchmark::State &state) {
    AllocFreeWithFills(
        state, [] { return g_glibc.pfMalloc(kBlock); }, [](void *p) { g_glibc.pfFree(p); });
}
void BM_Mimalloc_Fills(benchmark::State &state) {
    AllocFreeWithFills(
        state, [] { return mi_malloc(kBlock); }, [](void *p) { mi_free(p); });
}
void BM_PmrPool_Fills(benchmark::State &state) {
    std::pmr::unsynchronized_pool_resource resource;
    AllocFreeWithFills(
        state, [&] { return resource.allocate(kBlock); }, [&](void *p) { resource.deallocate(p, kBlock); });
}

// ---- Fixed-block pools --------------------------------------------------------------------------

void BM_FixedBlocksAllocFree(benchmark::State &state) {
    StartComponent(LockKind::None);
    FIXEDBLOCKSPOOL pool;
    if (FixedBlocksPoolInit(&pool, nullptr, kBlock, 256) != ERR_OK) {
        state.SkipWithError("pool not initialised");
        return;
    }
    for (auto _ : state) {
        RTS_RESULT result;
        void *p = FixedBlocksPoolAlloc(&pool, kBlock, &result);
        benchmark::DoNotOptimize(p);
        FixedBlocksPoolFree(&pool, p);
    }
    FixedBlocksPoolDestroy(&pool);
}

// The peer fills the block with 0xAA before release, as FixedBlocksPoolFree does.
void BM_PmrPool_FreeFill(benchmark::State &state) {
    std::pmr::unsynchronized_pool_resource resource;
    for (auto _ : state) {
        void *p = resource.allocate(kBlock);
        benchmark::DoNotOptimize(p);
        std::memset(p, 0xAA, kBlock);
        benchmark::DoNotOptimize(p);
        resource.deallocate(p, kBlock);
    }
}

BENCHMARK(BM_MemPoolGetPut_NoLock);
BENCHMARK(BM_MemPoolGetPut_NoLock_Linked);
BENCHMARK(BM_GlibcMalloc_Fills);
BENCHMARK(BM_Mimalloc_Fills);
BENCHMARK(BM_PmrPool_Fills);
BENCHMARK(BM_MemPoolGetPut_SpinLock);
BENCHMARK(BM_MemPoolGetPut_StdMutex);
BENCHMARK(BM_SpinLockTwoPairs);
BENCHMARK(BM_FixedBlocksAllocFree);
BENCHMARK(BM_PmrPool_FreeFill);

// ---- Ratios -------------------------------------------------------------------------------------

// Console output as usual; keeps the median (or the single run) of the CPU time of every
// benchmark by name. CPU time rather than wall time: the benchmarks are single-threaded, and on a
// shared machine wall time also counts the time other processes had the core.
class MedianReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run> &reports) override {
        ConsoleReporter::ReportRuns(reports);
        for (const Run &run : reports) {
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
            if (median || single)
                medians_[run.run_name.function_name] = run.GetAdjustedCPUTime();
        }
    }
    const std::map<std::string, double> &Medians() const { return medians_; }

  private:
    std::map<std::string, double> medians_;
};

struct Comparison {
    const char *subject;
    const char *peer;
    double required; // subject must be at least this many times faster; 0: for information
};

const Comparison kComparisons[] = {
    {"BM_MemPoolGetPut_NoLock", "BM_GlibcMalloc_Fills", 2.5},
    {"BM_MemPoolGetPut_NoLock", "BM_Mimalloc_Fills", 0},
    {"BM_MemPoolGetPut_NoLock", "BM_PmrPool_Fills", 0},
    {"BM_MemPoolGetPut_NoLock_Linked", "BM_GlibcMalloc_Fills", 0},
    {"BM_MemPoolGetPut_SpinLock", "BM_GlibcMalloc_Fills", 1.0},
    {"BM_MemPoolGetPut_StdMutex", "BM_GlibcMalloc_Fills", 0},
    {"BM_SpinLockTwoPairs", "BM_GlibcMalloc_Fills", 0},
    {"BM_FixedBlocksAllocFree", "BM_PmrPool_FreeFill", 3.0},
};

} // namespace

int main(int argc, char **argv) {
    // Repetitions of subject and peers run interleaved in random order unless asked otherwise, so
    // that a change of load on a shared machine falls on both alike.
    std::vector<char *> args(argv, argv + argc);
    static char interleave[] = "--benchmark_enable_random_interleaving=true";
    bool bInterleaveGiven = false;
    for (char *arg : args)
        bInterleaveGiven |= std::strncmp(arg, interleave, std::strchr(interleave, '=') - interleave) == 0;
    if (!bInterleaveGiven)
        args.insert(args.begin() + 1, interleave);
    int count = static_cast<int>(args.size());
    benchmark::Initialize(&count, args.data());
    if (benchmark::ReportUnrecognizedArguments(count, args.data()))
        return 1;
    if (!LookUpGlibc()) {
        std::fprintf(stderr, "glibc's malloc and free not found apart from mimalloc's\n");
        return 1;
    }
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    int failures = 0;
    std::printf("\n%-28s %-24s %10s %10s %8s %s\n", "subject", "peer", "cpu ns", "peer cpu ns", "ratio", "required");
    for (const Comparison &c : kComparisons) {
        auto s = reporter.Medians().find(c.subject);
        auto p = reporter.Medians().find(c.peer);
        if (s == reporter.Medians().end() || p == reporter.Medians().end())
            continue;
        const double ratio = p->second / s->second;
        const bool ok = c.required == 0 || ratio >= c.required;
        failures += ok ? 0 : 1;
        char required[32] = "(information)";
        if (c.required != 0)
            std::snprintf(required, sizeof required, ">= %.1fx %s", c.required, ok ? "ok" : "MISSED");
        std::printf("%-28s %-24s %10.2f %10.2f %7.2fx %s\n", c.subject, c.peer, s->second, p->second, ratio, required);
    }
    return failures == 0 ? 0 : 2;
}
