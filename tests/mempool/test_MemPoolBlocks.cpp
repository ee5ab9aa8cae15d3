// Blocks of the pools of equal blocks: hand-out and return with their fill patterns, the used list
// (add, append, insert, the two remove forms), searching and walking it, and the validity check
// that hands the pool lock to its caller.
#include <functional>

#include "MemPoolTestSupport.h"

namespace kestrel::test::mempool {
namespace {

class BlocksTest : public MemPoolTest {
  protected:
    void SetUp() override {
        MemPoolTest::SetUp();
        pool_ = MemPoolCreateDynamic("B", 6, 20, nullptr);
        ASSERT_NE(pool_, RTS_INVALID_HANDLE);
        other_ = MemPoolCreateDynamic("B", 2, 20, nullptr);
        ASSERT_NE(other_, RTS_INVALID_HANDLE);
    }
    // No test leaves a pool lock held.
    void TearDown() override {
        EXPECT_EQ(g_rec.SemDepthTotal(), 0);
        EXPECT_EQ(MemPoolDelete(pool_, "B"), ERR_OK);
        EXPECT_EQ(MemPoolDelete(other_, "B"), ERR_OK);
        MemPoolTest::TearDown();
    }
    void *Get() {
        RTS_RESULT result = ERR_FAILED;
        void *p = MemPoolGetBlock(pool_, &result);
        EXPECT_EQ(result, ERR_OK);
        return p;
    }

    RTS_HANDLE pool_ = RTS_INVALID_HANDLE;
    RTS_HANDLE other_ = RTS_INVALID_HANDLE;
};

// Hand-out and return, once through the C functions and once through the export table.
class GetPutTest : public WithBlockCaller<BlocksTest> {
  protected:
    void *Get() {
        RTS_RESULT result = ERR_FAILED;
        void *p = calls_.pfGet(pool_, &result);
        EXPECT_EQ(result, ERR_OK);
        return p;
    }

    // Hand-out and return fill exactly the payload of a pool of this block size, and leave the
    // neighbouring headers alone.
    void CheckFillsOfOneSize(RTS_SIZE size) {
        SCOPED_TRACE(size);
        RTS_HANDLE h = MemPoolCreateDynamic("F", 3, size, nullptr);
        ASSERT_NE(h, RTS_INVALID_HANDLE);
        auto *first = static_cast<unsigned char *>(h) + MEMPOOL_PCB_SIZE;
        std::vector<void *> blocks = Drain(h);
        ASSERT_EQ(blocks.size(), 3u);
        const RTS_SIZE s = Aligned(size);
        auto *middle = static_cast<unsigned char *>(blocks[1]);
        std::memset(middle, 0x11, s);
        ASSERT_EQ(calls_.pfPut(middle), ERR_OK);
        EXPECT_TRUE(AllBytes(middle, s, 0xAA));
        // The headers around the block are untouched: the next header's words are intact.
        auto *next = reinterpret_cast<MEMPOOL_BLOCK *>(first + 2 * Stride(size));
        EXPECT_EQ(next->pPool, static_cast<MEMPOOL_PCB *>(h));
        EXPECT_EQ(next->ulReserved, 0u);
        EXPECT_EQ(HeaderOf(middle)->pPool, static_cast<MEMPOOL_PCB *>(h));
        ASSERT_EQ(calls_.pfGet(h, nullptr), middle);
        EXPECT_TRUE(AllBytes(middle, s, 0));
        EXPECT_EQ(next->pPool, static_cast<MEMPOOL_PCB *>(h));
        EXPECT_EQ(next->ulReserved, 0u);
        EXPECT_EQ(MemPoolDelete(h, "F"), ERR_OK);
    }
};
KESTREL_FOR_EACH_BLOCK_CALLER(GetPutTest);

TEST_P(GetPutTest, GetSetsThePoolAndKeepsTheStaleLink) {
    MEMPOOL_BLOCK *head = PcbCopy(pool_).pFreeList;
    MEMPOOL_BLOCK *second = head->pNext;
    head->pPool = nullptr;
    ASSERT_EQ(HeaderOf(Get()), head);
    EXPECT_EQ(head->pPool, static_cast<MEMPOOL_PCB *>(pool_));
    EXPECT_EQ(head->pNext, second);
    EXPECT_EQ(PcbCopy(pool_).pFreeList, second);
}

TEST_P(GetPutTest, ExhaustedOrInvalidPoolGivesNothing) {
    EXPECT_EQ(Drain(pool_).size(), 6u);
    for (RTS_HANDLE h : {pool_, RTS_HANDLE{nullptr}, RTS_INVALID_HANDLE})
        EXPECT_EQ(Call(calls_.pfGet, h), (Answer{nullptr, ERR_INVALID_POOL}));
    EXPECT_EQ(calls_.pfGet(pool_, nullptr), nullptr);
    EXPECT_EQ(calls_.pfGet(nullptr, nullptr), nullptr);
}

TEST_P(GetPutTest, PutPushesOnTheFreeList) {
    void *a = Get();
    void *b = Get();
    EXPECT_EQ(calls_.pfPut(a), ERR_OK);
    EXPECT_EQ(PcbCopy(pool_).pFreeList, HeaderOf(a));
    EXPECT_EQ(calls_.pfPut(b), ERR_OK);
    EXPECT_EQ(HeaderOf(b)->pNext, HeaderOf(a));
    // Last in, first out.
    EXPECT_EQ(Get(), b);
    EXPECT_EQ(Get(), a);
}

TEST_P(GetPutTest, PutAndUsedListRejectBadBlocks) {
    // A header whose pool is null, as a block of no pool would look.
    alignas(8) unsigned char orphan[MEMPOOL_BLOCK_HEADER_SIZE + 16] = {};
    void *stray = orphan + MEMPOOL_BLOCK_HEADER_SIZE;
    void *good = Get();
    const std::vector<std::pair<const char *, std::function<RTS_RESULT(void *)>>> calls = {
        {"PutBlock", calls_.pfPut},
        {"AddUsedBlock", MemPoolAddUsedBlock},
        {"AppendUsedBlock", MemPoolAppendUsedBlock},
        {"RemoveUsedBlock", MemPoolRemoveUsedBlock},
        {"LockBlock", MemPoolLockBlock},
        {"UnlockBlock", MemPoolUnlockBlock},
        {"InsertUsedBlock(null, b)", [](void *p) { return MemPoolInsertUsedBlock(nullptr, p); }},
        {"InsertUsedBlock(good, b)", [good](void *p) { return MemPoolInsertUsedBlock(good, p); }},
    };
    for (const auto &[name, call] : calls) {
        EXPECT_EQ(call(nullptr), ERR_PARAMETER) << name;
        EXPECT_EQ(call(stray), ERR_PARAMETER) << name;
    }
    const std::vector<std::pair<const char *, std::function<RTS_RESULT(void *, RTS_HANDLE)>>> poolCalls = {
        {"AddUsedBlockToPool", MemPoolAddUsedBlockToPool},
        {"AppendUsedBlockToPool", MemPoolAppendUsedBlockToPool},
        {"RemoveUsedBlockFromPool", MemPoolRemoveUsedBlockFromPool},
    };
    for (const auto &[name, call] : poolCalls) {
        EXPECT_EQ(call(nullptr, pool_), ERR_PARAMETER) << name;
        EXPECT_EQ(call(good, nullptr), ERR_PARAMETER) << name;
        EXPECT_EQ(call(good, RTS_INVALID_HANDLE), ERR_PARAMETER) << name;
    }
    EXPECT_TRUE(UsedList(pool_).empty());
    EXPECT_TRUE(AllBytes(orphan, sizeof orphan, 0));
}

TEST_F(BlocksTest, AddAppendAndInsertPlaceBlocks) {
    void *a = Get(), *b = Get(), *c = Get(), *d = Get(), *e = Get(), *f = Get();
    EXPECT_EQ(MemPoolAppendUsedBlock(a), ERR_OK); // empty list: becomes the head
    EXPECT_EQ(MemPoolAddUsedBlock(b), ERR_OK);    // head
    EXPECT_EQ(MemPoolAppendUsedBlock(c), ERR_OK); // tail
    EXPECT_EQ(UsedList(pool_), (std::vector<void *>{b, a, c}));
    EXPECT_EQ(HeaderOf(c)->pNext, nullptr);
    EXPECT_EQ(MemPoolInsertUsedBlock(a, d), ERR_OK);       // behind a
    EXPECT_EQ(MemPoolInsertUsedBlock(nullptr, e), ERR_OK); // head
    EXPECT_EQ(MemPoolInsertUsedBlock(c, f), ERR_OK);       // behind the tail
    EXPECT_EQ(UsedList(pool_), (std::vector<void *>{e, b, a, d, c, f}));
    // The pool forms take the pool from the handle.
    void *x = MemPoolGetBlock(other_, nullptr);
    void *y = MemPoolGetBlock(other_, nullptr);
    EXPECT_EQ(MemPoolAppendUsedBlockToPool(x, other_), ERR_OK);
    EXPECT_EQ(MemPoolAddUsedBlockToPool(y, other_), ERR_OK);
    EXPECT_EQ(UsedList(other_), (std::vector<void *>{y, x}));
    // Blocks of different pools cannot be linked to each other.
    EXPECT_EQ(MemPoolRemoveUsedBlock(y), ERR_OK);
    EXPECT_EQ(MemPoolInsertUsedBlock(a, y), ERR_PARAMETER);
    EXPECT_EQ(UsedList(pool_).size(), 6u);
}

TEST_F(BlocksTest, RemoveFormsDifferForABlockNotOnTheList) {
    void *a = Get(), *b = Get(), *c = Get(), *loose = Get();
    for (void *p : {a, b, c})
        ASSERT_EQ(MemPoolAppendUsedBlock(p), ERR_OK);
    EXPECT_EQ(MemPoolRemoveUsedBlock(loose), ERR_PARAMETER);
    EXPECT_EQ(MemPoolRemoveUsedBlockFromPool(loose, pool_), ERR_OK);
    EXPECT_EQ(UsedList(pool_), (std::vector<void *>{a, b, c}));
    // Middle, head, tail; the removed block keeps its stale link.
    MEMPOOL_BLOCK *bNext = HeaderOf(b)->pNext;
    EXPECT_EQ(MemPoolRemoveUsedBlock(b), ERR_OK);
    EXPECT_EQ(HeaderOf(b)->pNext, bNext);
    EXPECT_EQ(UsedList(pool_), (std::vector<void *>{a, c}));
    EXPECT_EQ(MemPoolRemoveUsedBlockFromPool(a, pool_), ERR_OK);
    EXPECT_EQ(UsedList(pool_), (std::vector<void *>{c}));
    EXPECT_EQ(MemPoolRemoveUsedBlock(c), ERR_OK);
    EXPECT_TRUE(UsedList(pool_).empty());
    EXPECT_EQ(MemPoolRemoveUsedBlock(c), ERR_PARAMETER);
}

TEST_F(BlocksTest, FirstOnEmptyIsNothingNextAtTheEndIsNoError) {
    EXPECT_EQ(Call(MemPoolGetFirstBlock, pool_), (Answer{nullptr, ERR_NO_OBJECT}));
    void *a = Get();
    ASSERT_EQ(MemPoolAddUsedBlock(a), ERR_OK);
    EXPECT_EQ(Call(MemPoolGetFirstBlock, pool_), (Answer{a, ERR_OK}));
    EXPECT_EQ(Call(MemPoolGetNextBlock, pool_, a), (Answer{nullptr, ERR_OK}));
    for (RTS_HANDLE bad : {RTS_HANDLE{nullptr}, RTS_INVALID_HANDLE}) {
        EXPECT_EQ(Call(MemPoolGetFirstBlock, bad), (Answer{nullptr, ERR_PARAMETER}));
        EXPECT_EQ(Call(MemPoolGetNextBlock, bad, a), (Answer{nullptr, ERR_PARAMETER}));
    }
    EXPECT_EQ(Call(MemPoolGetNextBlock, pool_, nullptr), (Answer{nullptr, ERR_PARAMETER}));
}

TEST_F(BlocksTest, FindBlockMatchesBytesInListOrder) {
    void *a = Get(), *b = Get(), *c = Get();
    static_cast<unsigned char *>(a)[4] = 7;
    static_cast<unsigned char *>(b)[4] = 9;
    static_cast<unsigned char *>(b)[5] = 1;
    static_cast<unsigned char *>(c)[4] = 9;
    static_cast<unsigned char *>(c)[5] = 1;
    for (void *p : {a, b, c})
        ASSERT_EQ(MemPoolAppendUsedBlock(p), ERR_OK);
    const unsigned char nine_one[] = {9, 1};
    const unsigned char seven[] = {7};
    const unsigned char five[] = {5};
    EXPECT_EQ(Call(MemPoolFindBlock, pool_, 4, 2, nine_one), (Answer{b, ERR_OK}));
    EXPECT_EQ(Call(MemPoolFindBlock, pool_, 4, 1, seven), (Answer{a, ERR_OK}));
    EXPECT_EQ(Call(MemPoolFindBlock, pool_, 4, 1, five), (Answer{nullptr, ERR_PARAMETER}));
    // Moving c to the head makes it the first match.
    ASSERT_EQ(MemPoolRemoveUsedBlock(c), ERR_OK);
    ASSERT_EQ(MemPoolAddUsedBlock(c), ERR_OK);
    EXPECT_EQ(Call(MemPoolFindBlock, pool_, 4, 2, nine_one), (Answer{c, ERR_OK}));
    // A comparison reaching past the payload matches nothing.
    EXPECT_EQ(Call(MemPoolFindBlock, pool_, Aligned(20) - 1, 2, nine_one), (Answer{nullptr, ERR_PARAMETER}));
    EXPECT_EQ(Call(MemPoolFindBlock, pool_, 0, 1, nullptr), (Answer{nullptr, ERR_PARAMETER}));
    for (RTS_HANDLE bad : {RTS_HANDLE{nullptr}, RTS_INVALID_HANDLE})
        EXPECT_EQ(Call(MemPoolFindBlock, bad, 4, 1, seven), (Answer{nullptr, ERR_PARAMETER}));
    // The walk holds the pool lock and gives it back.
    g_rec.semTrace.clear();
    EXPECT_EQ(MemPoolFindBlock(pool_, 4, 1, seven, nullptr), a);
    EXPECT_EQ(g_rec.semTrace, (std::vector<std::string>{"enter 1", "leave 1"}));
}

TEST_F(BlocksTest, IsValidBlockHandsTheLockToTheCaller) {
    void *tracked = Get(), *loose = Get();
    ASSERT_EQ(MemPoolAddUsedBlock(tracked), ERR_OK);
    g_rec.semTrace.clear();
    EXPECT_EQ(MemPoolIsValidBlock(pool_, tracked), ERR_OK);
    EXPECT_EQ(g_rec.semDepth[FakeSemHandle(1)], 1);
    EXPECT_EQ(MemPoolUnlock(pool_), ERR_OK);
    EXPECT_EQ(g_rec.semDepth[FakeSemHandle(1)], 0);
    EXPECT_EQ(MemPoolIsValidBlock(pool_, loose), ERR_FAILED);
    EXPECT_EQ(g_rec.semDepth[FakeSemHandle(1)], 0);
    EXPECT_EQ(g_rec.semTrace, (std::vector<std::string>{"enter 1", "leave 1", "enter 1", "leave 1"}));
    EXPECT_EQ(MemPoolIsValidBlock(RTS_INVALID_HANDLE, tracked), ERR_PARAMETER);
    EXPECT_EQ(MemPoolIsValidBlock(nullptr, tracked), ERR_PARAMETER);
    EXPECT_EQ(MemPoolIsValidBlock(pool_, nullptr), ERR_PARAMETER);
}

TEST_F(BlocksTest, LockBlockAnswersZeroWhateverTheLockSays) {
    void *p = Get();
    g_rec.semEnterResult = 7;
    g_rec.semLeaveResult = 8;
    EXPECT_EQ(MemPoolLockBlock(p), ERR_OK);
    EXPECT_EQ(g_rec.semDepth[FakeSemHandle(1)], 1);
    EXPECT_EQ(MemPoolUnlockBlock(p), ERR_OK);
    EXPECT_EQ(g_rec.semDepth[FakeSemHandle(1)], 0);
}

// Hand-out and return fill exactly the payload, for every block size (the fills take different
// routes for small, medium and large payloads), and leave the neighbouring headers alone.
TEST_P(GetPutTest, FillsCoverExactlyThePayloadForEverySize) {
    // Without a lock service get and put fill in line; with one, out of line.
    for (const Services &services : {NoLockService(), Services{}}) {
        SCOPED_TRACE(services.bSemaphores ? "with semaphores" : "without a lock service");
        Restart(services);
        for (RTS_SIZE size = 1; size <= 136; size += (size < 72 ? 1 : 7))
            CheckFillsOfOneSize(size);
    }
}

} // namespace
} // namespace kestrel::test::mempool
