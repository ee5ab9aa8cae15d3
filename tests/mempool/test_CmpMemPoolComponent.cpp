// The component frame of CmpMemPool: the entry record, the export table, the imports resolved at
// hook 1 and dropped at hook 15, and how the pools behave before the component is ready (the
// component manager uses them that early).
#include "MemPoolInternal.h"
#include "MemPoolTestSupport.h"

namespace kestrel::test::mempool {
namespace {

using ComponentTest = MemPoolTest;

TEST_F(ComponentTest, EntryFillsTheRecord) {
    const ComponentInitStruct &init = cm_.Init();
    EXPECT_EQ(init.CmpId, 30u);
    ASSERT_NE(init.pfExportFunctions, nullptr);
    ASSERT_NE(init.pfImportFunctions, nullptr);
    ASSERT_NE(init.pfGetVersion, nullptr);
    ASSERT_NE(init.pfHookFunction, nullptr);
    EXPECT_EQ(init.pfCreateInstance, nullptr);
    EXPECT_EQ(init.pfDeleteInstance, nullptr);
    EXPECT_EQ(init.pfGetVersion(), 0x03050500u);
    EXPECT_EQ(CmpMemPoolEntry(nullptr), ERR_PARAMETER);
}

struct ExportRow {
    const char *name;
    RTS_VOID_FCTPTR fn;
};
#define EXPORT_ROW(f)                                                                                                  \
    { #f, reinterpret_cast < RTS_VOID_FCTPTR>(&f) }
const ExportRow kExpectedExports[] = {
    EXPORT_ROW(MemPoolCreateDynamic),
    EXPORT_ROW(MemPoolCreateStatic),
    EXPORT_ROW(MemPoolExtendDynamic),
    EXPORT_ROW(MemPoolExtendStatic),
    EXPORT_ROW(MemPoolCreateSyncObject),
    EXPORT_ROW(MemPoolDeleteSyncObject),
    EXPORT_ROW(MemPoolDelete),
    EXPORT_ROW(MemPoolCleanup),
    EXPORT_ROW(MemPoolGetBlock),
    EXPORT_ROW(MemPoolGetBlock2),
    EXPORT_ROW(MemPoolPutBlock),
    EXPORT_ROW(MemPoolAddUsedBlock),
    EXPORT_ROW(MemPoolAppendUsedBlock),
    EXPORT_ROW(MemPoolInsertUsedBlock),
    EXPORT_ROW(MemPoolRemoveUsedBlock),
    EXPORT_ROW(MemPoolAddUsedBlockToPool),
    EXPORT_ROW(MemPoolAppendUsedBlockToPool),
    EXPORT_ROW(MemPoolRemoveUsedBlockFromPool),
    EXPORT_ROW(MemPoolLockBlock),
    EXPORT_ROW(MemPoolUnlockBlock),
    EXPORT_ROW(MemPoolLock),
    EXPORT_ROW(MemPoolUnlock),
    EXPORT_ROW(MemPoolGetPCB),
    EXPORT_ROW(MemPoolFindBlock),
    EXPORT_ROW(MemPoolIsValidBlock),
    EXPORT_ROW(MemPoolGetFirstBlock),
    EXPORT_ROW(MemPoolGetNextBlock),
    EXPORT_ROW(FixedBlocksPoolInit),
    EXPORT_ROW(FixedBlocksPoolAlloc),
    EXPORT_ROW(FixedBlocksPoolFree),
    EXPORT_ROW(FixedBlocksPoolReclaim),
    EXPORT_ROW(FixedBlocksPoolDestroy),
};
#undef EXPORT_ROW

// Where the processor has wider stores, the table offers MemPoolGetBlock and MemPoolPutBlock in the
// forms compiled for them; everything else is the C function of the name.
TEST_F(ComponentTest, ExportsEveryFunctionByItsNameAsCTable) {
    ASSERT_EQ(cm_.CollectExports(), ERR_OK);
    EXPECT_TRUE(cm_.IecExports().empty());
    EXPECT_EQ(cm_.Exports().size(), std::size(kExpectedExports));
    const kestrel::mempool::WideBlockFunctions wide = kestrel::mempool::GetWideBlockFunctions();
    EXPECT_EQ(wide.pfGetBlock == nullptr, wide.pfPutBlock == nullptr);
    const std::map<std::string, RTS_VOID_FCTPTR> replaced = {
        {"MemPoolGetBlock", reinterpret_cast<RTS_VOID_FCTPTR>(wide.pfGetBlock)},
        {"MemPoolPutBlock", reinterpret_cast<RTS_VOID_FCTPTR>(wide.pfPutBlock)},
    };
    for (const ExportRow &row : kExpectedExports) {
        auto it = cm_.Exports().find(row.name);
        ASSERT_NE(it, cm_.Exports().end()) << row.name;
        auto wideForm = replaced.find(row.name);
        const bool bWide = wideForm != replaced.end() && wideForm->second != nullptr;
        EXPECT_EQ(it->second.pfFunction, bWide ? wideForm->second : row.fn) << row.name;
        EXPECT_EQ(it->second.ulSignature, 0u) << row.name;
        EXPECT_EQ(it->second.ulVersion, 0u) << row.name;
    }
}

TEST_F(ComponentTest, ImportCallbackDoesNothingHookOneImportsAllOptionally) {
    ASSERT_EQ(cm_.Import(), ERR_OK);
    EXPECT_TRUE(cm_.Requested().empty());

    // Hook 1 asks for every service in a fixed order; none is required.
    Restart(Services{false, false, false, false});
    const std::vector<std::string> expected = {"LogAdd",          "SysExceptGenerateException",
                                               "SysMemFreeData",  "SysMemAllocData",
                                               "SysCpuAtomicAdd", "SysIntDisableAll",
                                               "SysIntEnableAll", "SysSemLeave",
                                               "SysSemEnter",     "SysSemDelete",
                                               "SysSemCreate"};
    EXPECT_EQ(cm_.Requested(), expected);
    EXPECT_EQ(cm_.Missing(), expected);
    // Ready without any service: locking has nothing to delegate to.
    EXPECT_EQ(MemPoolLock(StaticPool(16, 2)), ERR_NOTIMPLEMENTED);
    EXPECT_EQ(MemPoolCreateDynamic("X", 1, 16, nullptr), RTS_INVALID_HANDLE);
}

TEST_F(ComponentTest, OtherHooksLeaveTheComponentAsItIs) {
    const RTS_UI32 hooks[] = {CH_INIT2,      CH_INIT3,        CH_INIT_TASKS, CH_INIT_DONE,
                              CH_COMM_CYCLE, CH_EXIT_REQUEST, CH_EXIT,       CH_EXIT_FINAL};
    RTS_HANDLE h = StaticPool(16, 2);
    for (RTS_UI32 hook : hooks) {
        EXPECT_EQ(cm_.Hook(hook), ERR_OK) << hook;
        EXPECT_EQ(MemPoolLock(h), ERR_OK) << hook;
        EXPECT_EQ(MemPoolUnlock(h), ERR_OK) << hook;
    }
}

TEST_F(ComponentTest, HookFifteenDropsTheImportsAndMarksNotReady) {
    RTS_HANDLE h = StaticPool(16, 2);
    EXPECT_EQ(MemPoolLock(h), ERR_OK);
    EXPECT_EQ(MemPoolUnlock(h), ERR_OK);
    StopComponent();
    const size_t semCalls = g_rec.semTrace.size();
    EXPECT_EQ(MemPoolLock(h), ERR_NOT_INITIALIZED);
    EXPECT_EQ(MemPoolUnlock(h), ERR_NOT_INITIALIZED);
    EXPECT_EQ(MemPoolCreateSyncObject(h), ERR_FAILED);
    EXPECT_EQ(PcbCopy(h).hSem, RTS_INVALID_HANDLE);
    // The memory service is gone too.
    EXPECT_EQ(Call(MemPoolCreateDynamic, "X", 1, 16), (Answer{RTS_INVALID_HANDLE, ERR_NO_COMPONENT}));
    EXPECT_EQ(g_rec.semTrace.size(), semCalls);
    EXPECT_TRUE(g_rec.allocSizes.empty());
}

// A second hook 1 (a component loaded again, or hook 1 sent once more) re-imports while the
// component manager's lookups keep locking its pools through the services of the first import.
TEST_F(ComponentTest, RepeatedHookOneKeepsLockingThroughTheLookups) {
    RTS_HANDLE h = StaticPool(16, 2);
    ASSERT_EQ(MemPoolCreateSyncObject(h), ERR_OK);
    int lockedDuringLookup = 0;
    cm_.OnLookup([&](const char *) {
        lockedDuringLookup += MemPoolLock(h) == ERR_OK ? 1 : 0;
        MemPoolUnlock(h);
    });
    EXPECT_EQ(cm_.Hook(CH_INIT), ERR_OK);
    cm_.OnLookup(nullptr);
    EXPECT_EQ(lockedDuringLookup, 11);
    EXPECT_EQ(g_rec.SemDepthTotal(), 0);
    EXPECT_EQ(MemPoolLock(h), ERR_OK);
    EXPECT_EQ(MemPoolUnlock(h), ERR_OK);
}

// The component manager creates its static pools and links its lists before hook 1: the pools
// work, without lock objects, and every lock call answers 3.
TEST_F(ComponentTest, PoolsWorkBeforeTheComponentIsReady) {
    StopComponent();
    RTS_HANDLE h = StaticPool(52, 4);
    EXPECT_EQ(PcbCopy(h).hSem, RTS_INVALID_HANDLE);
    EXPECT_EQ(MemPoolLock(h), ERR_NOT_INITIALIZED);
    EXPECT_EQ(MemPoolLock(RTS_INVALID_HANDLE), ERR_NOT_INITIALIZED);
    void *a = MemPoolGetBlock(h, nullptr);
    void *b = MemPoolGetBlock(h, nullptr);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(MemPoolAppendUsedBlock(a), ERR_OK);
    EXPECT_EQ(MemPoolAppendUsedBlock(b), ERR_OK);
    EXPECT_EQ(UsedList(h), (std::vector<void *>{a, b}));
    EXPECT_EQ(MemPoolRemoveUsedBlock(a), ERR_OK);
    EXPECT_EQ(UsedList(h), (std::vector<void *>{b}));
    EXPECT_TRUE(g_rec.semTrace.empty());

    // Later the component manager gives its pools their locks.
    Restart(Services{});
    EXPECT_EQ(MemPoolCreateSyncObject(h), ERR_OK);
    EXPECT_EQ(PcbCopy(h).hSem, FakeSemHandle(1));
    EXPECT_EQ(MemPoolLock(h), ERR_OK);
    EXPECT_EQ(MemPoolUnlock(h), ERR_OK);
    EXPECT_EQ(MemPoolRemoveUsedBlock(b), ERR_OK);
    EXPECT_EQ(MemPoolDelete(h, "CM"), ERR_OK);
    EXPECT_EQ(g_rec.semTrace,
              (std::vector<std::string>{"create 1", "enter 1", "leave 1", "enter 1", "leave 1", "delete 1"}));
}

TEST_F(ComponentTest, ExportWithoutRegisterFunctionFails) {
    // An entry record without the manager's functions leaves the export callback nothing to call.
    ComponentInitStruct bare{};
    ASSERT_EQ(CmpMemPoolEntry(&bare), ERR_OK);
    EXPECT_EQ(bare.pfExportFunctions(), ERR_NOT_INITIALIZED);
    // Hook 1 without a lookup function resolves nothing but still makes the component ready.
    EXPECT_EQ(bare.pfHookFunction(CH_INIT, 0, 0), ERR_OK);
    EXPECT_EQ(MemPoolLock(StaticPool(8, 1)), ERR_NOTIMPLEMENTED);
    // Back to the fixture's manager for the rest of the test.
    ASSERT_EQ(cm_.Enter(&CmpMemPoolEntry), ERR_OK);
    ASSERT_EQ(cm_.Hook(CH_INIT), ERR_OK);
    EXPECT_EQ(cm_.CollectExports(), ERR_OK);
    EXPECT_FALSE(cm_.Exports().empty());
}

} // namespace
} // namespace kestrel::test::mempool
