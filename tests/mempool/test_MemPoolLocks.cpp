// Pool locks and deletion: the lock object chosen by the services present (semaphore, interrupt
// lock, none), lock and unlock delegation and their results, deleting lock objects, and
// MemPoolDelete with its leak report.
#include <cstdio>

#include "MemPoolTestSupport.h"

namespace kestrel::test::mempool {
namespace {

using LockTest = MemPoolTest;

struct LockRow {
    const char *name;
    Services services;
    RTS_HANDLE expectedSem; // lock object after creation
    RTS_RESULT lockResult;  // of MemPoolLock with the doubles answering 0
};

// Get and put lock alike whether called as C functions or through the export table.
using GetPutLockTest = WithBlockCaller<LockTest>;
KESTREL_FOR_EACH_BLOCK_CALLER(GetPutLockTest);

TEST_P(GetPutLockTest, LockObjectAndDelegationFollowTheServices) {
    const LockRow rows[] = {
        {"semaphores", Services{}, FakeSemHandle(1), ERR_OK},
        {"semaphores and interrupts", Services{true, true, true, true}, FakeSemHandle(1), ERR_OK},
        {"interrupts", InterruptsOnly(), nullptr, ERR_OK},
        {"none", NoLockService(), RTS_INVALID_HANDLE, ERR_NOTIMPLEMENTED},
    };
    for (const LockRow &row : rows) {
        SCOPED_TRACE(row.name);
        Restart(row.services);
        g_rec.semCreated = 0;
        g_rec.semTrace.clear();
        g_rec.intDisabled.clear();
        g_rec.intEnabled.clear();
        RTS_HANDLE h = StaticPool(16, 2);
        EXPECT_EQ(PcbCopy(h).hSem, row.expectedSem);
        EXPECT_EQ(MemPoolLock(h), row.lockResult);
        EXPECT_EQ(MemPoolUnlock(h), row.lockResult);
        // The free list changes only while the lock is held: its head at every enter and leave.
        std::vector<MEMPOOL_BLOCK *> heads;
        g_rec.onLock = [&] { heads.push_back(PcbCopy(h).pFreeList); };
        MEMPOOL_BLOCK *first = PcbCopy(h).pFreeList;
        void *p = calls_.pfGet(h, nullptr);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(calls_.pfPut(p), ERR_OK);
        g_rec.onLock = nullptr;
        if (row.services.bSemaphores || row.services.bInterrupts) {
            EXPECT_EQ(heads, (std::vector<MEMPOOL_BLOCK *>{first, first->pNext, first->pNext, first}));
        }
        if (row.services.bSemaphores) {
            EXPECT_EQ(g_rec.semTrace, (std::vector<std::string>{"create 1", "enter 1", "leave 1", "enter 1", "leave 1",
                                                                "enter 1", "leave 1"}));
            EXPECT_TRUE(g_rec.intDisabled.empty());
        } else if (row.services.bInterrupts) {
            // The hSem word doubles as the save area of the interrupt lock.
            auto *word = &static_cast<MEMPOOL_PCB *>(h)->hSem;
            EXPECT_EQ(g_rec.intDisabled, (std::vector<RTS_HANDLE *>{word, word, word}));
            EXPECT_EQ(g_rec.intEnabled, (std::vector<RTS_HANDLE *>{word, word, word}));
            EXPECT_EQ(g_rec.intDepth, 0);
        }
        // Taken from an exhausted pool, get answers 20 and leaves the lock free.
        void *blocks[] = {calls_.pfGet(h, nullptr), calls_.pfGet(h, nullptr)};
        EXPECT_EQ(Call(calls_.pfGet, h), (Answer{nullptr, ERR_INVALID_POOL}));
        EXPECT_EQ(g_rec.SemDepthTotal(), 0);
        EXPECT_EQ(g_rec.intDepth, 0);
        for (void *block : blocks)
            EXPECT_EQ(calls_.pfPut(block), ERR_OK);
        EXPECT_EQ(MemPoolDelete(h, "T"), ERR_OK);
        EXPECT_EQ(g_rec.SemDepthTotal(), 0);
    }
}

// Lock and unlock choose their service each on its own: a semaphore service without its leave
// function unlocks through the interrupt lock.
TEST_P(GetPutLockTest, LockAndUnlockChooseTheirServicesSeparately) {
    Restart(Services{true, true, true, true});
    RTS_HANDLE h = StaticPool(16, 2);
    StopComponent();
    cm_.Withdraw("SysSemLeave");
    ASSERT_EQ(cm_.Hook(CH_INIT), ERR_OK);
    g_rec.semTrace.clear();
    EXPECT_EQ(MemPoolLock(h), ERR_OK);
    EXPECT_EQ(MemPoolUnlock(h), ERR_OK);
    EXPECT_EQ(g_rec.semTrace, (std::vector<std::string>{"enter 1"}));
    EXPECT_EQ(g_rec.intEnabled, (std::vector<RTS_HANDLE *>{&static_cast<MEMPOOL_PCB *>(h)->hSem}));
    EXPECT_TRUE(g_rec.intDisabled.empty());
    cm_.Hook(CH_EXIT2);
    cm_.Withdraw("SysIntEnableAll");
    ASSERT_EQ(cm_.Hook(CH_INIT), ERR_OK);
    EXPECT_EQ(MemPoolLock(h), ERR_OK);
    EXPECT_EQ(MemPoolUnlock(h), ERR_NOTIMPLEMENTED);
    // Get and put still work, locking what there is to lock.
    void *p = calls_.pfGet(h, nullptr);
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(calls_.pfPut(p), ERR_OK);
    EXPECT_EQ(g_rec.semTrace, (std::vector<std::string>{"enter 1", "enter 1", "enter 1", "enter 1"}));
}

TEST_F(LockTest, LockPassesTheServiceResultOn) {
    RTS_HANDLE h = StaticPool(16, 2);
    g_rec.semEnterResult = 5;
    g_rec.semLeaveResult = 6;
    EXPECT_EQ(MemPoolLock(h), 5u);
    EXPECT_EQ(MemPoolUnlock(h), 6u);
    Restart(InterruptsOnly());
    g_rec.intResult = 9;
    EXPECT_EQ(MemPoolLock(h), 9u);
    EXPECT_EQ(MemPoolUnlock(h), 9u);
    for (RTS_HANDLE bad : {RTS_HANDLE{nullptr}, RTS_INVALID_HANDLE}) {
        EXPECT_EQ(MemPoolLock(bad), ERR_PARAMETER);
        EXPECT_EQ(MemPoolUnlock(bad), ERR_PARAMETER);
    }
}

TEST_F(LockTest, CreateSyncObjectReturnsTheSemaphoreResult) {
    RTS_HANDLE h = StaticPool(16, 2);
    g_rec.semCreateResult = 17;
    EXPECT_EQ(MemPoolCreateSyncObject(h), 17u);
    EXPECT_EQ(PcbCopy(h).hSem, FakeSemHandle(2));
    EXPECT_EQ(MemPoolCreateSyncObject(RTS_INVALID_HANDLE), ERR_PARAMETER);
    EXPECT_EQ(MemPoolCreateSyncObject(nullptr), ERR_PARAMETER);
    StopComponent();
    EXPECT_EQ(MemPoolCreateSyncObject(h), ERR_FAILED);
    EXPECT_EQ(PcbCopy(h).hSem, RTS_INVALID_HANDLE);
}

TEST_F(LockTest, DeleteSyncObjectDeletesOnlyARealSemaphore) {
    RTS_HANDLE h = StaticPool(16, 2);
    g_rec.semDeleteResult = 4;
    EXPECT_EQ(MemPoolDeleteSyncObject(h), 4u);
    EXPECT_EQ(g_rec.semTrace.back(), "delete 1");
    EXPECT_EQ(PcbCopy(h).hSem, RTS_INVALID_HANDLE);
    const size_t calls = g_rec.semTrace.size();
    EXPECT_EQ(MemPoolDeleteSyncObject(h), ERR_OK);
    EXPECT_EQ(g_rec.semTrace.size(), calls);
    EXPECT_EQ(MemPoolDeleteSyncObject(RTS_INVALID_HANDLE), ERR_PARAMETER);
    EXPECT_EQ(MemPoolDeleteSyncObject(nullptr), ERR_PARAMETER);
    // Without a semaphore service the word is only reset.
    Restart(InterruptsOnly());
    ASSERT_EQ(MemPoolCreateSyncObject(h), ERR_OK);
    EXPECT_EQ(PcbCopy(h).hSem, nullptr);
    EXPECT_EQ(MemPoolDeleteSyncObject(h), ERR_OK);
    EXPECT_EQ(PcbCopy(h).hSem, RTS_INVALID_HANDLE);
    EXPECT_EQ(g_rec.semTrace.size(), calls);
}

// The expected leak line, with the addresses in full on every build.
std::string LeakLine(const char *name, const void *pool, const void *block) {
    char text[200];
    std::snprintf(text, sizeof text, "**** Pool leak: Cmp=%s, hPool=0x%llx, pBlock=0x%llx", name,
                  static_cast<unsigned long long>(reinterpret_cast<RTS_UINTPTR>(pool)),
                  static_cast<unsigned long long>(reinterpret_cast<RTS_UINTPTR>(block)));
    return text;
}

TEST_F(LockTest, DeleteReportsTrackedBlocksAndFreesThePool) {
    RTS_HANDLE h = MemPoolCreateDynamic("Leaky", 4, 16, nullptr);
    ASSERT_EQ(MemPoolExtendDynamic(h, "Leaky", 2), ERR_OK);
    void *chunk = PcbCopy(h).pExtensions;
    void *a = MemPoolGetBlock(h, nullptr);
    void *b = MemPoolGetBlock(h, nullptr);
    ASSERT_EQ(MemPoolAppendUsedBlock(a), ERR_OK);
    ASSERT_EQ(MemPoolAppendUsedBlock(b), ERR_OK);
    g_rec.semTrace.clear();
    EXPECT_EQ(MemPoolDelete(h, "CmpLeaky"), ERR_OK);
    ASSERT_EQ(g_rec.log.size(), 2u);
    const void *blocks[] = {a, b};
    for (int i = 0; i < 2; ++i) {
        const Recorder::LogLine &line = g_rec.log[i];
        EXPECT_EQ(line.hLogger, nullptr);
        EXPECT_EQ(line.cmpId, 30u);
        EXPECT_EQ(line.ulClass, 16u);
        EXPECT_EQ(line.errorId, 1u);
        EXPECT_EQ(line.ulInfoId, 0u);
        EXPECT_EQ(line.text, LeakLine("CmpLeaky", h, blocks[i]));
    }
    // Chunks, then the lock object, then the control block.
    EXPECT_EQ(g_rec.freed, (std::vector<void *>{chunk, h}));
    EXPECT_EQ(g_rec.freeNames, (std::vector<std::string>{"CmpLeaky", "CmpLeaky"}));
    EXPECT_EQ(g_rec.semTrace, (std::vector<std::string>{"delete 1"}));
}

TEST_F(LockTest, LeakLineIsTheLiteralTextOn32Bit) {
    if (sizeof(void *) != 4)
        GTEST_SKIP() << "the literal format holds for the 32-bit build";
    RTS_HANDLE h = StaticPool(8, 1);
    void *p = MemPoolGetBlock(h, nullptr);
    ASSERT_EQ(MemPoolAddUsedBlock(p), ERR_OK);
    EXPECT_EQ(MemPoolDelete(h, "Cmp32"), ERR_OK);
    ASSERT_EQ(g_rec.log.size(), 1u);
    EXPECT_EQ(g_rec.log[0].format, "**** Pool leak: Cmp=%s, hPool=0x%x, pBlock=0x%x");
    char text[200];
    std::snprintf(text, sizeof text, "**** Pool leak: Cmp=%s, hPool=0x%x, pBlock=0x%x", "Cmp32",
                  static_cast<unsigned>(reinterpret_cast<RTS_UINTPTR>(h)),
                  static_cast<unsigned>(reinterpret_cast<RTS_UINTPTR>(p)));
    EXPECT_EQ(g_rec.log[0].text, text);
}

TEST_F(LockTest, DeleteOfAStaticPoolWithoutLoggerFreesNothingOfTheCaller) {
    Restart(Services{true, true, false, false});
    RTS_HANDLE h = StaticPool(8, 2);
    ASSERT_EQ(MemPoolExtendDynamic(h, "S", 1), ERR_OK);
    void *chunk = PcbCopy(h).pExtensions;
    ASSERT_EQ(MemPoolAddUsedBlock(MemPoolGetBlock(h, nullptr)), ERR_OK);
    EXPECT_EQ(MemPoolDelete(h, "S"), ERR_OK);
    EXPECT_TRUE(g_rec.log.empty());
    EXPECT_EQ(g_rec.freed, (std::vector<void *>{chunk}));
    EXPECT_EQ(MemPoolDelete(nullptr, "S"), ERR_INVALID_POOL);
    EXPECT_EQ(MemPoolDelete(RTS_INVALID_HANDLE, "S"), ERR_INVALID_POOL);
}

} // namespace
} // namespace kestrel::test::mempool
