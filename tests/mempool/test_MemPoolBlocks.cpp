// Blocks and locks of the pools of equal blocks: hand-out and return with their fill patterns and
// locks, the lock objects and the pool lock, the used list (add, append, insert, the two remove
// forms), searching and walking it, and the validity check that hands the pool lock to its caller.
#include "MemPoolTestSupport.h"

namespace kestrel::test::mempool {
namespace {

// Get and put as a linked-in caller calls them, or (true) as the export table offers them to every
// other component: forms compiled for wider stores where the processor has them, so other code.
class GetPutTest : public MemPoolTest, public ::testing::WithParamInterface<bool> {
  protected:
    void SetUp() override {
        MemPoolTest::SetUp();
        if (GetParam()) {
            ASSERT_EQ(cm_.CollectExports(), ERR_OK);
            get_ = cm_.ExportAs<void *(RTS_HANDLE, RTS_RESULT *)>("MemPoolGetBlock");
            put_ = cm_.ExportAs<RTS_RESULT(void *)>("MemPoolPutBlock");
        }
        ASSERT_NE(get_, nullptr);
        ASSERT_NE(put_, nullptr);
    }

    decltype(&MemPoolGetBlock) get_ = &MemPoolGetBlock;
    decltype(&MemPoolPutBlock) put_ = &MemPoolPutBlock;
};
INSTANTIATE_TEST_SUITE_P(Callers, GetPutTest, ::testing::Bool(),
                         [](const auto &c) { return c.param ? "Imported" : "Linked"; });

// Bad input gives the listed result and changes nothing: every function taking a pool handle for
// the invalid handles 0 and all ones (with null where it gives back a pointer), every function
// taking a block for a null block or one whose header names no pool.
TEST_P(GetPutTest, BadHandlesAndBlocksAreRejected) {
    RTS_HANDLE h = StaticPool(20, 3);
    void *good = get_(h, nullptr);
    alignas(8) unsigned char orphan[kHeader + 16] = {}, area[MEMPOOL_STATIC_AREA_SIZE(8, 2)];
    g_rec.trace.clear();
    for (RTS_HANDLE bad : {RTS_HANDLE{nullptr}, RTS_INVALID_HANDLE}) {
        SCOPED_TRACE(bad);
        EXPECT_EQ(Call(get_, bad), (Answer{nullptr, ERR_INVALID_POOL}));
        EXPECT_EQ(Call(MemPoolGetBlock2, bad, 1, "X"), (Answer{nullptr, ERR_NOMEMORY}));
        EXPECT_EQ(Call(MemPoolGetPCB, bad), (Answer{Pcb(nullptr), ERR_PARAMETER}));
        EXPECT_EQ(Call(MemPoolGetFirstBlock, bad), (Answer{nullptr, ERR_PARAMETER}));
        EXPECT_EQ(Call(MemPoolGetNextBlock, bad, good), (Answer{nullptr, ERR_PARAMETER}));
        EXPECT_EQ(Call(MemPoolFindBlock, bad, 0, 1, orphan), (Answer{nullptr, ERR_PARAMETER}));
        // IsValidBlock, the pool forms of the used list, the lock object and the lock: 2.
        EXPECT_EQ(
            (Results{MemPoolIsValidBlock(bad, good), MemPoolAddUsedBlockToPool(good, bad),
                     MemPoolAppendUsedBlockToPool(good, bad), MemPoolRemoveUsedBlockFromPool(good, bad),
                     MemPoolCreateSyncObject(bad), MemPoolDeleteSyncObject(bad), MemPoolLock(bad), MemPoolUnlock(bad)}),
            Results(8, ERR_PARAMETER));
        // Growth, cleanup and deletion: 20.
        EXPECT_EQ((Results{MemPoolExtendDynamic(bad, "X", 1), MemPoolExtendStatic(bad, 64, area),
                           MemPoolCleanup(bad, "X", 1), MemPoolDelete(bad, "X")}),
                  Results(4, ERR_INVALID_POOL));
    }
    EXPECT_TRUE(g_rec.trace.empty());
    EXPECT_TRUE(g_rec.allocSizes.empty());
    for (void *bad : {static_cast<void *>(nullptr), static_cast<void *>(orphan + kHeader)}) {
        // Put, add, append, remove, lock, unlock, insert at the head and behind a block.
        EXPECT_EQ((Results{put_(bad), MemPoolAddUsedBlock(bad), MemPoolAppendUsedBlock(bad),
                           MemPoolRemoveUsedBlock(bad), MemPoolLockBlock(bad), MemPoolUnlockBlock(bad),
                           MemPoolInsertUsedBlock(nullptr, bad), MemPoolInsertUsedBlock(good, bad)}),
                  Results(8, ERR_PARAMETER))
            << bad;
    }
    EXPECT_EQ((Results{MemPoolAddUsedBlockToPool(nullptr, h), MemPoolAppendUsedBlockToPool(nullptr, h),
                       MemPoolRemoveUsedBlockFromPool(nullptr, h), MemPoolIsValidBlock(h, nullptr)}),
              Results(4, ERR_PARAMETER));
    EXPECT_EQ(Call(MemPoolGetNextBlock, h, nullptr), (Answer{nullptr, ERR_PARAMETER}));
    EXPECT_TRUE(UsedList(h).empty());
    EXPECT_TRUE(AllBytes(orphan, sizeof orphan, 0));
}

// Put fills exactly the payload with 0xAA and pushes the block on the free list; get takes the
// head, zeroes exactly the payload, sets the block's pool and keeps its stale link. For every block
// size (the fills take different routes by size), with and without a lock service.
TEST_P(GetPutTest, FillsCoverExactlyThePayloadForEverySize) {
    for (unsigned services : {kDefault & ~kSemaphores, unsigned{kDefault}}) {
        Restart(services);
        for (RTS_SIZE size = 1; size <= 136; size += (size < 72 ? 1 : 7)) {
            SCOPED_TRACE(::testing::Message() << size << " with services " << services);
            RTS_HANDLE h = StaticPool(size, 3);
            Blocks b = Drain(h);
            ASSERT_EQ(b.size(), 3u);
            MEMPOOL_BLOCK *next = HeaderOf(b[2]);
            next->ulReserved = 0x5EED;
            const MEMPOOL_BLOCK saved = *next;
            std::memset(b[1], 0x11, Aligned(size));
            ASSERT_EQ(put_(b[0]), ERR_OK);
            ASSERT_EQ(put_(b[1]), ERR_OK);
            EXPECT_TRUE(AllBytes(b[1], Aligned(size), 0xAA));
            HeaderOf(b[1])->pPool = nullptr;
            EXPECT_EQ(Call(get_, h), (Answer{b[1], ERR_OK}));
            EXPECT_TRUE(AllBytes(b[1], Aligned(size), 0));
            EXPECT_EQ(HeaderOf(b[1])->pPool, Pcb(h));
            EXPECT_EQ(HeaderOf(b[1])->pNext, HeaderOf(b[0]));
            EXPECT_EQ(std::memcmp(next, &saved, sizeof saved), 0);
        }
    }
}

// The lock object and the lock follow the services present; the pool lock answers what the service
// answers. Get and put change the free list only while the lock is held; an exhausted pool answers
// 20 and leaves the lock free. A lock object is created and deleted with the service's result, only
// a real semaphore is deleted, and the word is reset either way.
TEST_P(GetPutTest, LockObjectAndLockFollowTheServices) {
    const struct {
        unsigned services;
        RTS_HANDLE hSem;         // of a new pool
        RTS_RESULT lockResult;   // with the services answering 5
        RTS_RESULT objectResult; // of creating and deleting a lock object
        std::string enter, leave;
    } rows[] = {
        {kDefault, FakeSemHandle(1), 5, 5, "enter 1", "leave 1"},
        {kAll, FakeSemHandle(1), 5, 5, "enter 1", "leave 1"},
        {(kDefault & ~kSemaphores) | kInterrupts, nullptr, 5, ERR_OK, "disable", "enable"},
        {kDefault & ~kSemaphores, RTS_INVALID_HANDLE, ERR_NOTIMPLEMENTED, ERR_OK, "", ""},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.services);
        Restart(row.services);
        g_rec = Recorder{}; // the test allocates nothing
        RTS_HANDLE h = StaticPool(16, 2);
        EXPECT_EQ(Pcb(h)->hSem, row.hSem);
        g_rec.trace.clear();
        g_rec.lockResult = 5;
        MEMPOOL_BLOCK *first = Pcb(h)->pFreeList;
        std::vector<MEMPOOL_BLOCK *> heads; // at every enter and leave
        g_rec.onLock = [&] { heads.push_back(Pcb(h)->pFreeList); };
        EXPECT_EQ(put_(get_(h, nullptr)), ERR_OK);
        g_rec.onLock = nullptr;
        EXPECT_EQ((Results{MemPoolLock(h), MemPoolUnlock(h)}), Results(2, row.lockResult));
        const bool bLocks = !row.enter.empty();
        const std::vector<MEMPOOL_BLOCK *> locked = {first, first->pNext, first->pNext, first};
        EXPECT_EQ(heads, bLocks ? locked : std::vector<MEMPOOL_BLOCK *>{});
        const Strings calls = {row.enter, row.leave, row.enter, row.leave, row.enter, row.leave};
        EXPECT_EQ(g_rec.trace, bLocks ? calls : Strings{});
        for (RTS_HANDLE *word : g_rec.intWords) // the hSem word is the interrupt lock's save area
            EXPECT_EQ(word, &Pcb(h)->hSem);
        void *blocks[] = {get_(h, nullptr), get_(h, nullptr)};
        EXPECT_EQ(Call(get_, h), (Answer{nullptr, ERR_INVALID_POOL}));
        EXPECT_EQ(g_rec.depth, 0);
        for (void *block : blocks)
            EXPECT_EQ(put_(block), ERR_OK);
        EXPECT_EQ((Results{MemPoolCreateSyncObject(h), MemPoolDeleteSyncObject(h), MemPoolDeleteSyncObject(h)}),
                  (Results{row.objectResult, row.objectResult, ERR_OK}));
        EXPECT_EQ(Pcb(h)->hSem, RTS_INVALID_HANDLE);
    }
}

// Lock and unlock choose their service each on its own: without SysSemLeave the pool is unlocked
// through the interrupt lock, without SysIntEnableAll too not at all; get and put still work.
TEST_P(GetPutTest, LockAndUnlockChooseTheirServicesSeparately) {
    Restart(kAll);
    RTS_HANDLE h = StaticPool(16, 2);
    for (const auto &[withdrawn, unlocked] :
         {std::pair{"SysSemLeave", ERR_OK}, {"SysIntEnableAll", ERR_NOTIMPLEMENTED}}) {
        cm_.Hook(CH_EXIT2);
        cm_.Withdraw(withdrawn);
        ASSERT_EQ(cm_.Hook(CH_INIT), ERR_OK);
        EXPECT_EQ(MemPoolLock(h), ERR_OK);
        EXPECT_EQ(MemPoolUnlock(h), unlocked);
    }
    EXPECT_EQ(put_(get_(h, nullptr)), ERR_OK);
    EXPECT_EQ(g_rec.trace, (Strings{"create 1", "enter 1", "enable", "enter 1", "enter 1", "enter 1"}));
    EXPECT_EQ(g_rec.intWords, (std::vector<RTS_HANDLE *>{&Pcb(h)->hSem}));
    g_rec.depth = 0; // never left: there is no way to leave
}

using UsedListTest = MemPoolTest;

// Add puts a block at the head, append at the tail, insert behind a given block or at the head; the
// pool forms take the pool from the handle; blocks of different pools are not linked. For a block
// not on the list RemoveUsedBlock answers 2 but RemoveUsedBlockFromPool 0; a removed block keeps its
// stale link. GetFirstBlock answers 16 for an empty list, GetNextBlock 0 at its end.
TEST_F(UsedListTest, BlocksAreAddedAppendedInsertedAndRemoved) {
    RTS_HANDLE h = StaticPool(20, 6), other = StaticPool(20, 1);
    const Blocks b = Drain(h);
    void *x = MemPoolGetBlock(other, nullptr);
    EXPECT_EQ(Call(MemPoolGetFirstBlock, h), (Answer{nullptr, ERR_NO_OBJECT}));
    EXPECT_EQ(MemPoolAppendUsedBlock(b[0]), ERR_OK); // empty list: becomes the head
    EXPECT_EQ(MemPoolAddUsedBlock(b[1]), ERR_OK);
    EXPECT_EQ(MemPoolAppendUsedBlock(b[2]), ERR_OK);
    EXPECT_EQ(MemPoolInsertUsedBlock(b[0], b[3]), ERR_OK);
    EXPECT_EQ(MemPoolInsertUsedBlock(nullptr, b[4]), ERR_OK);
    EXPECT_EQ(MemPoolInsertUsedBlock(b[2], x), ERR_PARAMETER);
    EXPECT_EQ(UsedList(h), (Blocks{b[4], b[1], b[0], b[3], b[2]}));
    EXPECT_EQ(MemPoolRemoveUsedBlock(b[5]), ERR_PARAMETER);
    EXPECT_EQ(MemPoolRemoveUsedBlockFromPool(b[5], h), ERR_OK);
    EXPECT_EQ(MemPoolRemoveUsedBlock(b[0]), ERR_OK);
    EXPECT_EQ(HeaderOf(b[0])->pNext, HeaderOf(b[3]));
    EXPECT_EQ(MemPoolRemoveUsedBlockFromPool(b[4], h), ERR_OK);
    EXPECT_EQ(MemPoolRemoveUsedBlock(b[2]), ERR_OK);
    EXPECT_EQ(MemPoolInsertUsedBlock(b[3], b[2]), ERR_OK); // behind the tail
    EXPECT_EQ(UsedList(h), (Blocks{b[1], b[3], b[2]}));
    EXPECT_EQ(Call(MemPoolGetNextBlock, h, b[2]), (Answer{nullptr, ERR_OK}));
    EXPECT_EQ(MemPoolAppendUsedBlockToPool(x, other), ERR_OK);
    EXPECT_EQ(MemPoolAddUsedBlockToPool(b[0], other), ERR_OK);
    EXPECT_EQ(UsedList(other), (Blocks{b[0], x}));
}

// FindBlock gives the first block in list order whose bytes at the offset match, and nothing for a
// comparison reaching past the payload or without bytes; it holds the pool lock while it searches.
// IsValidBlock leaves the pool locked for the caller when the block is tracked, else unlocked;
// LockBlock and UnlockBlock lock the block's pool and answer 0 whatever the lock service says.
TEST_F(UsedListTest, SearchesAndBlockLocks) {
    RTS_HANDLE h = StaticPool(20, 4);
    const Blocks b = Drain(h);
    const unsigned char seven[] = {7}, nineOne[] = {9, 1}, five[] = {5};
    std::memcpy(Bytes(b[0]) + 4, seven, 1);
    std::memcpy(Bytes(b[1]) + 4, nineOne, 2);
    std::memcpy(Bytes(b[2]) + 4, nineOne, 2);
    for (int i = 0; i < 3; ++i)
        ASSERT_EQ(MemPoolAppendUsedBlock(b[i]), ERR_OK);
    EXPECT_EQ(Call(MemPoolFindBlock, h, 4, 2, nineOne), (Answer{b[1], ERR_OK}));
    EXPECT_EQ(Call(MemPoolFindBlock, h, 4, 1, five), (Answer{nullptr, ERR_PARAMETER}));
    ASSERT_EQ(MemPoolRemoveUsedBlock(b[2]), ERR_OK);
    ASSERT_EQ(MemPoolAddUsedBlock(b[2]), ERR_OK);
    EXPECT_EQ(Call(MemPoolFindBlock, h, 4, 2, nineOne), (Answer{b[2], ERR_OK}));
    EXPECT_EQ(Call(MemPoolFindBlock, h, Aligned(20) - 1, 2, nineOne), (Answer{nullptr, ERR_PARAMETER}));
    EXPECT_EQ(Call(MemPoolFindBlock, h, 0, 1, nullptr), (Answer{nullptr, ERR_PARAMETER}));
    g_rec.trace.clear();
    EXPECT_EQ(MemPoolFindBlock(h, 4, 1, seven, nullptr), b[0]);
    EXPECT_EQ(MemPoolIsValidBlock(h, b[0]), ERR_OK);
    EXPECT_EQ(g_rec.depth, 1);
    EXPECT_EQ(MemPoolUnlock(h), ERR_OK);
    EXPECT_EQ(MemPoolIsValidBlock(h, b[3]), ERR_FAILED);
    EXPECT_EQ(g_rec.trace, (Strings{"enter 1", "leave 1", "enter 1", "leave 1", "enter 1", "leave 1"}));
    g_rec.lockResult = 7;
    EXPECT_EQ(MemPoolLockBlock(b[3]), ERR_OK);
    EXPECT_EQ(g_rec.depth, 1);
    EXPECT_EQ(MemPoolUnlockBlock(b[3]), ERR_OK);
}

} // namespace
} // namespace kestrel::test::mempool
