// Recording doubles of the services CmpMemPool imports, and the fixture that hands them to the
// component through the stand-in component manager.
#include "MemPoolTestSupport.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace kestrel::test::mempool {

Recorder g_rec;

int Recorder::SemDepthTotal() const {
    int total = 0;
    for (const auto &entry : semDepth)
        total += entry.second;
    return total;
}

RTS_HANDLE FakeSemHandle(int n) {
    return reinterpret_cast<RTS_HANDLE>(static_cast<RTS_UINTPTR>(0x5E00 + n));
}

namespace {

std::string SemName(RTS_HANDLE h) {
    return std::to_string(static_cast<long long>(reinterpret_cast<RTS_UINTPTR>(h)) - 0x5E00);
}

void *TestAllocData(const char *pszComponentName, RTS_SIZE ulSize, RTS_RESULT *pResult) {
    g_rec.allocNames.emplace_back(pszComponentName != nullptr ? pszComponentName : "<null>");
    g_rec.allocSizes.push_back(ulSize);
    // Sizes no test means to get are refused like an exhausted heap.
    if (g_rec.failAllocsAfter == 0 || ulSize > (RTS_SIZE{1} << 28)) {
        if (pResult != nullptr)
            *pResult = g_rec.allocFailResult;
        return nullptr;
    }
    if (g_rec.failAllocsAfter > 0)
        --g_rec.failAllocsAfter;
    // Never zero: the component must clear or fill what it promises to.
    void *p = std::malloc(ulSize != 0 ? ulSize : 1);
    std::memset(p, 0x5A, ulSize);
    g_rec.live[p] = ulSize;
    if (pResult != nullptr)
        *pResult = ERR_OK;
    return p;
}

RTS_RESULT TestFreeData(const char *pszComponentName, void *pData) {
    g_rec.freeNames.emplace_back(pszComponentName != nullptr ? pszComponentName : "<null>");
    g_rec.freed.push_back(pData);
    if (g_rec.freeResult != ERR_OK)
        return g_rec.freeResult;
    auto it = g_rec.live.find(pData);
    if (it == g_rec.live.end()) {
        ADD_FAILURE() << "SysMemFreeData of memory that was not allocated: " << pData;
        return ERR_PARAMETER;
    }
    g_rec.live.erase(it);
    std::free(pData);
    return ERR_OK;
}

void NotifyLock() {
    if (g_rec.onLock)
        g_rec.onLock();
}

RTS_HANDLE TestSemCreate(RTS_RESULT *pResult) {
    RTS_HANDLE h = FakeSemHandle(++g_rec.semCreated);
    g_rec.semTrace.push_back("create " + SemName(h));
    g_rec.semDepth[h] = 0;
    if (pResult != nullptr)
        *pResult = g_rec.semCreateResult;
    return h;
}

RTS_RESULT TestSemEnter(RTS_HANDLE hSem) {
    g_rec.semTrace.push_back("enter " + SemName(hSem));
    ++g_rec.semDepth[hSem];
    NotifyLock();
    return g_rec.semEnterResult;
}

RTS_RESULT TestSemLeave(RTS_HANDLE hSem) {
    g_rec.semTrace.push_back("leave " + SemName(hSem));
    --g_rec.semDepth[hSem];
    NotifyLock();
    return g_rec.semLeaveResult;
}

RTS_RESULT TestSemDelete(RTS_HANDLE hSem) {
    g_rec.semTrace.push_back("delete " + SemName(hSem));
    g_rec.semDepth.erase(hSem);
    return g_rec.semDeleteResult;
}

RTS_RESULT TestIntDisableAll(RTS_HANDLE *phSave) {
    g_rec.intDisabled.push_back(phSave);
    ++g_rec.intDepth;
    NotifyLock();
    return g_rec.intResult;
}

RTS_RESULT TestIntEnableAll(RTS_HANDLE *phSave) {
    g_rec.intEnabled.push_back(phSave);
    --g_rec.intDepth;
    NotifyLock();
    return g_rec.intResult;
}

RTS_RESULT TestLogAdd(RTS_HANDLE hLogger, CMPID cmpId, RTS_UI32 ulClassId, RTS_RESULT errorId, RTS_UI32 ulInfoId,
                      const char *pszInfo, ...) {
    char text[512];
    va_list args;
    va_start(args, pszInfo);
    std::vsnprintf(text, sizeof text, pszInfo, args);
    va_end(args);
    g_rec.log.push_back({hLogger, cmpId, ulClassId, errorId, ulInfoId, pszInfo, text});
    return ERR_OK;
}

template <typename F> RTS_VOID_FCTPTR Fn(F *fn) {
    return reinterpret_cast<RTS_VOID_FCTPTR>(fn);
}

// Withdraws every service the component imports, then provides those chosen.
void ProvideServices(kestrel::test::FakeCM &cm, const Services &services) {
    const struct {
        const char *name;
        RTS_VOID_FCTPTR fn;
        bool provided;
    } imports[] = {
        {"LogAdd", Fn(&TestLogAdd), services.bLog},
        {"SysMemAllocData", Fn(&TestAllocData), services.bMemory},
        {"SysMemFreeData", Fn(&TestFreeData), services.bMemory},
        {"SysSemCreate", Fn(&TestSemCreate), services.bSemaphores},
        {"SysSemEnter", Fn(&TestSemEnter), services.bSemaphores},
        {"SysSemLeave", Fn(&TestSemLeave), services.bSemaphores},
        {"SysSemDelete", Fn(&TestSemDelete), services.bSemaphores},
        {"SysIntDisableAll", Fn(&TestIntDisableAll), services.bInterrupts},
        {"SysIntEnableAll", Fn(&TestIntEnableAll), services.bInterrupts},
        {"SysCpuAtomicAdd", nullptr, false},
        {"SysExceptGenerateException", nullptr, false},
    };
    for (const auto &import : imports) {
        cm.Withdraw(import.name);
        if (import.provided)
            cm.Provide(import.name, import.fn);
    }
}

} // namespace

void MemPoolTest::SetUp() {
    g_rec = Recorder{};
    ASSERT_EQ(cm_.Enter(&CmpMemPoolEntry), ERR_OK);
    ProvideServices(cm_, Services{});
    ASSERT_EQ(cm_.Hook(CH_INIT), ERR_OK);
}

void MemPoolTest::TearDown() {
    cm_.Hook(CH_EXIT2);
    EXPECT_TRUE(g_rec.live.empty()) << g_rec.live.size() << " allocation(s) left behind";
    for (auto &entry : g_rec.live)
        std::free(entry.first);
    g_rec.live.clear();
}

void MemPoolTest::Restart(const Services &services) {
    cm_.Hook(CH_EXIT2);
    ProvideServices(cm_, services);
    ASSERT_EQ(cm_.Hook(CH_INIT), ERR_OK);
}

void MemPoolTest::StopComponent() {
    cm_.Hook(CH_EXIT2);
}

RTS_HANDLE MemPoolTest::StaticPool(RTS_SIZE s, RTS_SIZE n) {
    const RTS_SIZE size = MEMPOOL_STATIC_AREA_SIZE(s, n);
    areas_.emplace_back(size + MEMPOOL_ALIGN);
    RTS_RESULT result = ERR_FAILED;
    RTS_HANDLE h = MemPoolCreateStatic(s, size, AlignedStart(areas_.back().data()), &result);
    EXPECT_EQ(result, ERR_OK) << s << " " << n;
    EXPECT_NE(h, RTS_INVALID_HANDLE) << s << " " << n;
    return h;
}

BlockFunctions BlockFunctionsFor(FakeCM &cm, BlockCaller caller) {
    if (caller == BlockCaller::Linked)
        return {&MemPoolGetBlock, &MemPoolPutBlock};
    EXPECT_EQ(cm.CollectExports(), ERR_OK);
    return {cm.ExportAs<void *(RTS_HANDLE, RTS_RESULT *)>("MemPoolGetBlock"),
            cm.ExportAs<RTS_RESULT(void *)>("MemPoolPutBlock")};
}

std::string BlockCallerName(const ::testing::TestParamInfo<BlockCaller> &info) {
    return info.param == BlockCaller::Linked ? "Linked" : "Imported";
}

} // namespace kestrel::test::mempool
