// Fixed-block pools: initialisation on allocated or caller memory (of any alignment), allocation
// from the high-water mark and the index chain, growth by chunks, freeing by address, reclaim and
// destruction, with the memory service's calls and results.
#include "MemPoolTestSupport.h"

namespace kestrel::test::mempool {
namespace {

class FixedTest : public MemPoolTest {
  protected:
    void TearDown() override {
        if (pool_.pChunks != nullptr) {
            g_rec.freeResult = ERR_OK;
            EXPECT_EQ(FixedBlocksPoolDestroy(&pool_), ERR_OK);
        }
        MemPoolTest::TearDown();
    }
    FIXEDBLOCKSCHUNK Chunk(const void *p) const {
        FIXEDBLOCKSCHUNK chunk;
        std::memcpy(&chunk, p, sizeof chunk);
        return chunk;
    }
    void *Alloc(RTS_SIZE size = 1) {
        RTS_RESULT result = ERR_FAILED;
        void *p = FixedBlocksPoolAlloc(&pool_, size, &result);
        EXPECT_EQ(result, ERR_OK);
        return p;
    }

    FIXEDBLOCKSPOOL pool_{};
};

const RTS_SIZE kHeader = FIXEDBLOCKS_CHUNK_HEADER_SIZE;

TEST_F(FixedTest, InitRejectsNullAndZeroesTheDescriptor) {
    EXPECT_EQ(FixedBlocksPoolInit(nullptr, nullptr, 16, 4), ERR_PARAMETER);
    std::memset(&pool_, 0x5C, sizeof pool_);
    EXPECT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 16, 0), ERR_OK);
    EXPECT_TRUE(AllBytes(&pool_, sizeof pool_, 0));
    EXPECT_TRUE(g_rec.allocSizes.empty());
    EXPECT_EQ(Call(FixedBlocksPoolAlloc, &pool_, 4), (Answer{nullptr, ERR_NOT_INITIALIZED}));
    EXPECT_EQ(FixedBlocksPoolFree(&pool_, &pool_), ERR_NOT_INITIALIZED);
    EXPECT_EQ(FixedBlocksPoolReclaim(&pool_), ERR_PARAMETER);
    EXPECT_EQ(FixedBlocksPoolReclaim(nullptr), ERR_PARAMETER);
}

TEST_F(FixedTest, InitAllocatesTheFirstChunk) {
    ASSERT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 13, 5), ERR_OK);
    const RTS_SIZE s = Aligned(13);
    EXPECT_EQ(g_rec.allocSizes, (std::vector<RTS_SIZE>{s * 5 + kHeader + MEMPOOL_ALIGN}));
    EXPECT_EQ(g_rec.allocNames, (std::vector<std::string>{"<null>"}));
    EXPECT_EQ(pool_.pStaticChunk, nullptr);
    ASSERT_EQ(g_rec.live.count(pool_.pChunks), 1u);
    EXPECT_EQ(pool_.ulBlockSize, s);
    EXPECT_EQ(pool_.ulBlocksPerChunk, 5u);
    EXPECT_EQ(pool_.ulCapacity, s * 5);
    EXPECT_EQ(pool_.ulUsed, 0u);
    EXPECT_EQ(pool_.ulFlags, FIXEDBLOCKS_FLAG_INITIALIZED);
    const FIXEDBLOCKSCHUNK chunk = Chunk(pool_.pChunks);
    EXPECT_EQ(chunk.pBlocks, AlignedStart(reinterpret_cast<unsigned char *>(pool_.pChunks) + kHeader));
    EXPECT_EQ(chunk.pNext, nullptr);
    EXPECT_EQ(chunk.ulFreeIndex, 0u);
    EXPECT_EQ(chunk.ulHighWater, 0u);
    EXPECT_TRUE(AllBytes(chunk.pBlocks, s * 5, 0xAA));
}

TEST_F(FixedTest, InitPassesTheMemoryServiceResultOn) {
    g_rec.failAllocsAfter = 0;
    g_rec.allocFailResult = 5;
    EXPECT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 16, 4), 5u);
    EXPECT_EQ(pool_.pChunks, nullptr);
    EXPECT_EQ(pool_.ulFlags, 0u);
    Restart(NoMemoryService());
    EXPECT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 16, 4), ERR_NO_COMPONENT);
    EXPECT_EQ(pool_.ulFlags, 0u);
}

// A caller area must hold the header, the padding in front of the aligned blocks, and the blocks.
TEST_F(FixedTest, InitOnCallerAreasOfEveryAlignment) {
    const RTS_UI32 n = 3;
    const RTS_SIZE s = Aligned(24);
    std::vector<unsigned char> buffer(kHeader + s * n + 2 * MEMPOOL_ALIGN);
    unsigned char *aligned = AlignedStart(buffer.data());
    for (RTS_SIZE offset = 0; offset < MEMPOOL_ALIGN; ++offset) {
        SCOPED_TRACE(offset);
        unsigned char *area = aligned + offset;
        const RTS_SIZE padding = offset == 0 ? 0 : MEMPOOL_ALIGN - offset;
        const RTS_SIZE exact = kHeader + padding + s * n;
        FIXEDBLOCKSMEMORY memory{area, exact - 1};
        EXPECT_EQ(FixedBlocksPoolInit(&pool_, &memory, 24, n), ERR_PARAMETER);
        EXPECT_EQ(pool_.pChunks, nullptr);
        memory.ulSize = exact;
        ASSERT_EQ(FixedBlocksPoolInit(&pool_, &memory, 24, n), ERR_OK);
        EXPECT_EQ(pool_.pStaticChunk, area);
        EXPECT_EQ(static_cast<void *>(pool_.pChunks), area);
        EXPECT_EQ(pool_.ulFlags, FIXEDBLOCKS_FLAG_INITIALIZED);
        const FIXEDBLOCKSCHUNK chunk = Chunk(area);
        EXPECT_EQ(chunk.pBlocks, area + kHeader + padding);
        EXPECT_TRUE(AllBytes(chunk.pBlocks, s * n, 0xAA));
        // All blocks lie inside the area.
        void *last = nullptr;
        for (RTS_UI32 i = 0; i < n; ++i)
            last = Alloc(s);
        EXPECT_EQ(static_cast<unsigned char *>(last) + s, area + exact);
        EXPECT_TRUE(g_rec.allocSizes.empty());
        EXPECT_EQ(FixedBlocksPoolDestroy(&pool_), ERR_OK);
        EXPECT_TRUE(g_rec.freed.empty());
    }
    // Tiny areas are refused however the sizes would add up.
    FIXEDBLOCKSMEMORY tiny{aligned, MEMPOOL_ALIGN};
    EXPECT_EQ(FixedBlocksPoolInit(&pool_, &tiny, 4, 1), ERR_PARAMETER);
    // A descriptor without area pointer means allocated memory.
    FIXEDBLOCKSMEMORY none{nullptr, 4096};
    EXPECT_EQ(FixedBlocksPoolInit(&pool_, &none, 4, 1), ERR_OK);
    EXPECT_EQ(pool_.pStaticChunk, nullptr);
    EXPECT_EQ(g_rec.allocSizes.size(), 1u);
}

TEST_F(FixedTest, AllocRejectsBadRequests) {
    ASSERT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 16, 2), ERR_OK);
    EXPECT_EQ(Call(FixedBlocksPoolAlloc, nullptr, 4), (Answer{nullptr, ERR_PARAMETER}));
    EXPECT_EQ(Call(FixedBlocksPoolAlloc, &pool_, 0), (Answer{nullptr, ERR_PARAMETER}));
    EXPECT_EQ(Call(FixedBlocksPoolAlloc, &pool_, Aligned(16) + 1), (Answer{nullptr, ERR_SIZE_TOO_LARGE}));
    EXPECT_NE(FixedBlocksPoolAlloc(&pool_, Aligned(16), nullptr), nullptr);
    EXPECT_EQ(pool_.ulUsed, Aligned(16));
}

TEST_F(FixedTest, ThirdAllocationOfTwoPerChunkGrowsAndFreedBlockComesBack) {
    ASSERT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 64, 2), ERR_OK);
    FIXEDBLOCKSCHUNK *first = pool_.pChunks;
    unsigned char *blocks = static_cast<unsigned char *>(Chunk(first).pBlocks);
    EXPECT_EQ(Alloc(), blocks);
    EXPECT_EQ(Alloc(), blocks + 64);
    EXPECT_EQ(Chunk(first).ulFreeIndex, 2u);
    EXPECT_EQ(Chunk(first).ulHighWater, 2u);
    g_rec.allocSizes.clear();
    g_rec.allocNames.clear();
    void *third = Alloc();
    EXPECT_EQ(g_rec.allocSizes, (std::vector<RTS_SIZE>{64 * 2 + kHeader + MEMPOOL_ALIGN}));
    EXPECT_EQ(g_rec.allocNames, (std::vector<std::string>{"<null>"}));
    FIXEDBLOCKSCHUNK *second = pool_.pChunks;
    ASSERT_NE(second, first);
    const FIXEDBLOCKSCHUNK chunk = Chunk(second);
    EXPECT_EQ(chunk.pNext, first);
    EXPECT_EQ(third, chunk.pBlocks);
    EXPECT_EQ(chunk.pBlocks, AlignedStart(reinterpret_cast<unsigned char *>(second) + kHeader));
    EXPECT_EQ(chunk.ulFreeIndex, 1u);
    EXPECT_EQ(chunk.ulHighWater, 1u);
    // A new dynamic chunk is zeroed.
    EXPECT_TRUE(AllBytes(third, 2 * 64, 0));
    EXPECT_EQ(pool_.ulCapacity, 4u * 64);
    EXPECT_EQ(pool_.ulUsed, 3u * 64);
    EXPECT_EQ(FixedBlocksPoolFree(&pool_, third), ERR_OK);
    EXPECT_EQ(pool_.ulUsed, 2u * 64);
    EXPECT_EQ(Alloc(), third);
}

TEST_F(FixedTest, FailedGrowthLeavesThePoolUnchanged) {
    ASSERT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 8, 1), ERR_OK);
    Alloc();
    const FIXEDBLOCKSPOOL before = pool_;
    g_rec.failAllocsAfter = 0;
    g_rec.allocFailResult = 6;
    EXPECT_EQ(Call(FixedBlocksPoolAlloc, &pool_, 8), (Answer{nullptr, RTS_RESULT{6}}));
    EXPECT_EQ(std::memcmp(&before, &pool_, sizeof pool_), 0);
    Restart(NoMemoryService());
    EXPECT_EQ(Call(FixedBlocksPoolAlloc, &pool_, 8), (Answer{nullptr, ERR_NO_COMPONENT}));
    Restart(Services{});
}

TEST_F(FixedTest, FreeChainsBlocksByIndex) {
    ASSERT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 32, 4), ERR_OK);
    auto *b0 = static_cast<unsigned char *>(Alloc());
    auto *b1 = static_cast<unsigned char *>(Alloc());
    std::memset(b1, 0x42, 32);
    EXPECT_EQ(FixedBlocksPoolFree(&pool_, b1), ERR_OK);
    // Filled, with the chunk's previous free index (2, the high-water mark) in the first word.
    RTS_UI32 index = 0;
    std::memcpy(&index, b1, sizeof index);
    EXPECT_EQ(index, 2u);
    EXPECT_TRUE(AllBytes(b1 + 4, 28, 0xAA));
    // An address inside a block frees that block.
    EXPECT_EQ(FixedBlocksPoolFree(&pool_, b0 + 8), ERR_OK);
    std::memcpy(&index, b0, sizeof index);
    EXPECT_EQ(index, 1u);
    EXPECT_EQ(Chunk(pool_.pChunks).ulFreeIndex, 0u);
    EXPECT_EQ(pool_.ulUsed, 0u);
    // Reuse follows the chain, then the untouched blocks; reused content is not cleared.
    EXPECT_EQ(Alloc(), b0);
    EXPECT_EQ(Alloc(), b1);
    EXPECT_TRUE(AllBytes(b1 + 4, 28, 0xAA));
    EXPECT_EQ(Alloc(), b1 + 32);
    EXPECT_EQ(Chunk(pool_.pChunks).ulHighWater, 3u);
}

TEST_F(FixedTest, FreeRejectsForeignAddresses) {
    ASSERT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 16, 2), ERR_OK);
    auto *b = static_cast<unsigned char *>(Alloc());
    const RTS_SIZE s = pool_.ulBlockSize;
    EXPECT_EQ(FixedBlocksPoolFree(nullptr, b), ERR_PARAMETER);
    EXPECT_EQ(FixedBlocksPoolFree(&pool_, nullptr), ERR_PARAMETER);
    for (int odd = 1; odd < 4; ++odd)
        EXPECT_EQ(FixedBlocksPoolFree(&pool_, b + odd), ERR_FAILED) << odd;
    alignas(8) unsigned char elsewhere[16];
    EXPECT_EQ(FixedBlocksPoolFree(&pool_, elsewhere), ERR_FAILED);
    EXPECT_EQ(FixedBlocksPoolFree(&pool_, b - 4), ERR_FAILED);
    // Behind the last block's start is outside the chunk.
    EXPECT_EQ(FixedBlocksPoolFree(&pool_, b + 2 * s), ERR_FAILED);
    EXPECT_EQ(pool_.ulUsed, s);
}

// A block size that is not a power of two takes the division path of the index computation.
TEST_F(FixedTest, FreeFindsTheBlockForAnyBlockSize) {
    ASSERT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 24, 5), ERR_OK);
    ASSERT_EQ(pool_.ulBlockSize, 24u);
    std::vector<unsigned char *> blocks;
    for (int i = 0; i < 5; ++i)
        blocks.push_back(static_cast<unsigned char *>(Alloc()));
    EXPECT_EQ(FixedBlocksPoolFree(&pool_, blocks[3] + 20), ERR_OK);
    EXPECT_EQ(Chunk(pool_.pChunks).ulFreeIndex, 3u);
    EXPECT_EQ(FixedBlocksPoolFree(&pool_, blocks[4]), ERR_OK);
    EXPECT_EQ(Chunk(pool_.pChunks).ulFreeIndex, 4u);
    EXPECT_EQ(Alloc(), blocks[4]);
    EXPECT_EQ(Alloc(), blocks[3]);
}

// Freeing fills exactly the freed block, for block sizes on every fill route.
TEST_F(FixedTest, FreeFillsExactlyTheBlockForEverySize) {
    for (RTS_UI32 size = 4; size <= 132; size += (size < 72 ? 4 : 20)) {
        SCOPED_TRACE(size);
        ASSERT_EQ(FixedBlocksPoolInit(&pool_, nullptr, size, 3), ERR_OK);
        const RTS_SIZE s = pool_.ulBlockSize;
        auto *a = static_cast<unsigned char *>(Alloc(size));
        auto *b = static_cast<unsigned char *>(Alloc(size));
        auto *c = static_cast<unsigned char *>(Alloc(size));
        ASSERT_EQ(b, a + s);
        ASSERT_EQ(c, b + s);
        std::memset(a, 0x11, 3 * s);
        ASSERT_EQ(FixedBlocksPoolFree(&pool_, b), ERR_OK);
        EXPECT_TRUE(AllBytes(a, s, 0x11));
        EXPECT_TRUE(AllBytes(b + 4, s - 4, 0xAA));
        EXPECT_TRUE(AllBytes(c, s, 0x11));
        EXPECT_EQ(FixedBlocksPoolDestroy(&pool_), ERR_OK);
    }
}

TEST_F(FixedTest, ReclaimMakesEveryBlockUntouchedAgain) {
    ASSERT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 16, 2), ERR_OK);
    void *a = Alloc();
    Alloc();
    void *c = Alloc(); // second chunk
    std::memset(c, 0x31, 16);
    FIXEDBLOCKSCHUNK *newest = pool_.pChunks;
    ASSERT_EQ(FixedBlocksPoolReclaim(&pool_), ERR_OK);
    EXPECT_EQ(pool_.ulUsed, 0u);
    EXPECT_EQ(pool_.pChunks, newest);
    for (FIXEDBLOCKSCHUNK *p = pool_.pChunks; p != nullptr; p = Chunk(p).pNext) {
        const FIXEDBLOCKSCHUNK chunk = Chunk(p);
        EXPECT_EQ(chunk.ulFreeIndex, 0u);
        EXPECT_EQ(chunk.ulHighWater, 0u);
        EXPECT_TRUE(AllBytes(chunk.pBlocks, 2 * pool_.ulBlockSize, 0xAA));
    }
    // Allocation starts again at block 0 of the newest chunk, then the older chunk.
    EXPECT_EQ(Alloc(), c);
    Alloc();
    EXPECT_EQ(Alloc(), a);
    EXPECT_EQ(pool_.ulCapacity, 4u * 16);
}

TEST_F(FixedTest, DestroyFreesAllocatedChunksOnly) {
    std::vector<unsigned char> area(kHeader + 2 * 16 + MEMPOOL_ALIGN);
    FIXEDBLOCKSMEMORY memory{area.data(), area.size()};
    ASSERT_EQ(FixedBlocksPoolInit(&pool_, &memory, 16, 2), ERR_OK);
    for (int i = 0; i < 5; ++i)
        Alloc();
    ASSERT_EQ(g_rec.live.size(), 2u);
    FIXEDBLOCKSCHUNK *newest = pool_.pChunks;
    FIXEDBLOCKSCHUNK *older = Chunk(newest).pNext;
    EXPECT_EQ(FixedBlocksPoolDestroy(&pool_), ERR_OK);
    EXPECT_EQ(g_rec.freed, (std::vector<void *>{newest, older}));
    EXPECT_EQ(g_rec.freeNames, (std::vector<std::string>{"<null>", "<null>"}));
    EXPECT_TRUE(AllBytes(&pool_, sizeof pool_, 0));
    EXPECT_EQ(FixedBlocksPoolDestroy(nullptr), ERR_PARAMETER);
    // A descriptor without chunks is only zeroed.
    EXPECT_EQ(FixedBlocksPoolDestroy(&pool_), ERR_OK);
}

TEST_F(FixedTest, DestroyStopsAtTheFirstFailedFree) {
    ASSERT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 8, 1), ERR_OK);
    Alloc();
    Alloc();
    Alloc();
    FIXEDBLOCKSCHUNK *newest = pool_.pChunks;
    std::vector<void *> chunks;
    for (FIXEDBLOCKSCHUNK *p = newest; p != nullptr; p = Chunk(p).pNext)
        chunks.push_back(p);
    ASSERT_EQ(chunks.size(), 3u);
    g_rec.freeResult = 4;
    EXPECT_EQ(FixedBlocksPoolDestroy(&pool_), 4u);
    EXPECT_EQ(g_rec.freed, (std::vector<void *>{newest}));
    EXPECT_TRUE(AllBytes(&pool_, sizeof pool_, 0));
    // The chunks the failed destroy left are the caller's to release.
    g_rec.freeResult = ERR_OK;
    for (void *p : chunks) {
        g_rec.live.erase(p);
        std::free(p);
    }
}

} // namespace
} // namespace kestrel::test::mempool
