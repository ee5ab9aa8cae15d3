// The component frame of CmpMemPool: the entry record, the export table, the imports resolved at
// hook 1 and dropped at hook 15, and how the pools behave while the component is not ready (the
// component manager uses them that early).
#include "MemPoolInternal.h"
#include "MemPoolTestSupport.h"

namespace kestrel::test::mempool {
namespace {

using ComponentTest = MemPoolTest;

// The entry fills the record; the export callback registers every function under its own name in
// the C table, MemPoolGetBlock and MemPoolPutBlock in the forms compiled for wider stores where the
// processor has them. Without the manager's functions in the record the export callback answers 3,
// and hook 1 resolves nothing but still makes the component ready.
TEST_F(ComponentTest, EntryFillsTheRecordAndExportsEveryFunction) {
    EXPECT_EQ(cm_.Init().CmpId, 30u);
    EXPECT_EQ(cm_.Init().pfGetVersion(), 0x03050500u);
    ASSERT_EQ(cm_.CollectExports(), ERR_OK);
    std::string names;
    for (const auto &entry : cm_.Exports())
        names += entry.first + " ";
    EXPECT_EQ(names, "FixedBlocksPoolAlloc FixedBlocksPoolDestroy FixedBlocksPoolFree FixedBlocksPoolInit "
                     "FixedBlocksPoolReclaim MemPoolAddUsedBlock MemPoolAddUsedBlockToPool MemPoolAppendUsedBlock "
                     "MemPoolAppendUsedBlockToPool MemPoolCleanup MemPoolCreateDynamic MemPoolCreateStatic "
                     "MemPoolCreateSyncObject MemPoolDelete MemPoolDeleteSyncObject MemPoolExtendDynamic "
                     "MemPoolExtendStatic MemPoolFindBlock MemPoolGetBlock MemPoolGetBlock2 MemPoolGetFirstBlock "
                     "MemPoolGetNextBlock MemPoolGetPCB MemPoolInsertUsedBlock MemPoolIsValidBlock MemPoolLock "
                     "MemPoolLockBlock MemPoolPutBlock MemPoolRemoveUsedBlock MemPoolRemoveUsedBlockFromPool "
                     "MemPoolUnlock MemPoolUnlockBlock ");
    const kestrel::mempool::WideBlockFunctions wide = kestrel::mempool::GetWideBlockFunctions();
    EXPECT_EQ(cm_.ExportAs<void *(RTS_HANDLE, RTS_RESULT *)>("MemPoolGetBlock"),
              wide.pfGetBlock != nullptr ? wide.pfGetBlock : &MemPoolGetBlock);
    EXPECT_EQ(cm_.ExportAs<RTS_RESULT(void *)>("MemPoolPutBlock"),
              wide.pfPutBlock != nullptr ? wide.pfPutBlock : &MemPoolPutBlock);
    EXPECT_EQ(CmpMemPoolEntry(nullptr), ERR_PARAMETER);
    ComponentInitStruct bare{};
    ASSERT_EQ(CmpMemPoolEntry(&bare), ERR_OK);
    EXPECT_EQ(bare.pfExportFunctions(), ERR_NOT_INITIALIZED);
    EXPECT_EQ(bare.pfHookFunction(CH_INIT, 0, 0), ERR_OK);
    EXPECT_EQ(MemPoolLock(StaticPool(8, 1)), ERR_NOTIMPLEMENTED);
}

// The import callback imports nothing; hook 1 asks for every service in a fixed order, none
// required, and the component is ready without any: locking then has nothing to delegate to. Hook 1
// again re-imports while the manager's lookups keep locking the pools through the services of the
// first import. Other hooks than 1 and 15 change nothing.
TEST_F(ComponentTest, HookOneImportsEveryServiceOptionally) {
    RTS_HANDLE h = StaticPool(16, 2);
    ASSERT_EQ(cm_.Import(), ERR_OK);
    EXPECT_TRUE(cm_.Requested().empty());
    Restart(0);
    EXPECT_EQ(cm_.Requested(), (Strings{"LogAdd", "SysExceptGenerateException", "SysMemFreeData", "SysMemAllocData",
                                        "SysCpuAtomicAdd", "SysIntDisableAll", "SysIntEnableAll", "SysSemLeave",
                                        "SysSemEnter", "SysSemDelete", "SysSemCreate"}));
    EXPECT_EQ(cm_.Missing(), cm_.Requested());
    EXPECT_EQ(MemPoolLock(h), ERR_NOTIMPLEMENTED);
    Restart(kDefault);
    int lockedDuringLookup = 0;
    cm_.OnLookup([&](const char *) {
        lockedDuringLookup += MemPoolLock(h) == ERR_OK ? 1 : 0;
        MemPoolUnlock(h);
    });
    EXPECT_EQ(cm_.Hook(CH_INIT), ERR_OK);
    cm_.OnLookup(nullptr);
    EXPECT_EQ(lockedDuringLookup, 11);
    for (RTS_UI32 hook :
         {CH_INIT2, CH_INIT3, CH_INIT_TASKS, CH_INIT_DONE, CH_COMM_CYCLE, CH_EXIT_REQUEST, CH_EXIT, CH_EXIT_FINAL})
        EXPECT_EQ(cm_.Hook(hook), ERR_OK) << hook;
    EXPECT_EQ(MemPoolLock(h), ERR_OK);
    EXPECT_EQ(MemPoolUnlock(h), ERR_OK);
}

// Before hook 1 and after hook 15 the pools work without lock objects or memory service, and every
// lock call answers 3, whatever the handle. Later the manager gives its pools their lock objects.
TEST_F(ComponentTest, PoolsWorkWhileTheComponentIsNotReady) {
    cm_.Hook(CH_EXIT2);
    RTS_HANDLE h = StaticPool(52, 4);
    EXPECT_EQ(Pcb(h)->hSem, RTS_INVALID_HANDLE);
    EXPECT_EQ((Results{MemPoolLock(h), MemPoolUnlock(h), MemPoolLock(nullptr), MemPoolUnlock(nullptr)}),
              Results(4, ERR_NOT_INITIALIZED));
    EXPECT_EQ(MemPoolCreateSyncObject(h), ERR_FAILED);
    EXPECT_EQ(Call(MemPoolCreateDynamic, "X", 1, 16), (Answer{RTS_INVALID_HANDLE, ERR_NO_COMPONENT}));
    void *a = MemPoolGetBlock(h, nullptr);
    EXPECT_EQ(MemPoolAppendUsedBlock(a), ERR_OK);
    EXPECT_EQ(UsedList(h), (Blocks{a}));
    EXPECT_TRUE(g_rec.trace.empty());
    EXPECT_TRUE(g_rec.allocSizes.empty());
    Restart(kDefault);
    EXPECT_EQ(MemPoolCreateSyncObject(h), ERR_OK);
    EXPECT_EQ(MemPoolRemoveUsedBlock(a), ERR_OK);
    EXPECT_EQ(MemPoolDelete(h, "CM"), ERR_OK);
    EXPECT_EQ(g_rec.trace, (Strings{"create 1", "enter 1", "leave 1", "delete 1"}));
}

} // namespace
} // namespace kestrel::test::mempool
