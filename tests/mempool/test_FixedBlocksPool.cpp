// Fixed-block pools: initialisation on allocated or caller memory (of any alignment), allocation
// from the high-water mark and the index chain, growth by chunks, freeing by address, reclaim and
// destruction, with the memory service's calls and results.
#include "MemPoolTestSupport.h"

namespace kestrel::test::mempool {
namespace {

class FixedTest : public MemPoolTest {
  protected:
    void TearDown() override {
        g_rec.freeResult = ERR_OK;
        EXPECT_EQ(FixedBlocksPoolDestroy(&pool_), ERR_OK);
        MemPoolTest::TearDown();
    }
    // A chunk header, copied: a caller's area need not be aligned.
    static FIXEDBLOCKSCHUNK Chunk(const void *p) {
        FIXEDBLOCKSCHUNK chunk;
        std::memcpy(&chunk, p, sizeof chunk);
        return chunk;
    }
    // The free index and the high-water mark of a chunk.
    static std::pair<RTS_UI32, RTS_UI32> Marks(const void *p) { return {Chunk(p).ulFreeIndex, Chunk(p).ulHighWater}; }
    unsigned char *Alloc(RTS_SIZE size = 1) { return Bytes(FixedBlocksPoolAlloc(&pool_, size, nullptr)); }

    static constexpr RTS_SIZE kChunkHeader = FIXEDBLOCKS_CHUNK_HEADER_SIZE;
    FIXEDBLOCKSPOOL pool_{};
};

// Null descriptors and blocks, requests of size 0 or above the block size, addresses misaligned, in
// no chunk or behind the last block's start are refused. Init zeroes the descriptor; with 0 blocks
// per chunk it allocates nothing, and the pool is not initialised.
TEST_F(FixedTest, BadRequestsAreRefused) {
    EXPECT_EQ(FixedBlocksPoolInit(nullptr, nullptr, 16, 4), ERR_PARAMETER);
    std::memset(&pool_, 0x5C, sizeof pool_);
    EXPECT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 16, 0), ERR_OK);
    EXPECT_TRUE(AllBytes(&pool_, sizeof pool_, 0));
    EXPECT_EQ(Call(FixedBlocksPoolAlloc, &pool_, 4), (Answer{nullptr, ERR_NOT_INITIALIZED}));
    EXPECT_EQ(FixedBlocksPoolFree(&pool_, &pool_), ERR_NOT_INITIALIZED);
    EXPECT_EQ((Results{FixedBlocksPoolReclaim(&pool_), FixedBlocksPoolReclaim(nullptr), FixedBlocksPoolDestroy(nullptr),
                       FixedBlocksPoolFree(nullptr, &pool_)}),
              Results(4, ERR_PARAMETER));
    EXPECT_TRUE(g_rec.allocSizes.empty());
    ASSERT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 16, 2), ERR_OK);
    EXPECT_EQ(Call(FixedBlocksPoolAlloc, nullptr, 4), (Answer{nullptr, ERR_PARAMETER}));
    EXPECT_EQ(Call(FixedBlocksPoolAlloc, &pool_, 0), (Answer{nullptr, ERR_PARAMETER}));
    EXPECT_EQ(Call(FixedBlocksPoolAlloc, &pool_, 17), (Answer{nullptr, ERR_SIZE_TOO_LARGE}));
    EXPECT_EQ(FixedBlocksPoolFree(&pool_, nullptr), ERR_PARAMETER);
    unsigned char *b = Alloc(16);
    alignas(8) unsigned char elsewhere[16];
    for (unsigned char *p : {b + 1, b + 2, b + 3, elsewhere, b - 4, b + 2 * 16}) // misaligned or outside
        EXPECT_EQ(FixedBlocksPoolFree(&pool_, p), ERR_FAILED) << static_cast<void *>(p);
    EXPECT_EQ(pool_.ulUsed, 16u);
}

// The first chunk: header, one alignment of slack, the blocks filled with 0xAA. Blocks come from the
// high-water mark; when every chunk is full a zeroed chunk goes in front and hands out its block 0
// at once. Reclaim makes every block untouched again and fills it with 0xAA; allocation then starts
// at block 0 of the newest chunk. Destroy frees the chunks, newest first, and zeroes the descriptor.
TEST_F(FixedTest, ChunksAreAllocatedLaidOutReclaimedAndFreed) {
    ASSERT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 61, 2), ERR_OK);
    EXPECT_EQ(std::tie(pool_.pStaticChunk, pool_.ulBlockSize, pool_.ulBlocksPerChunk, pool_.ulCapacity, pool_.ulUsed,
                       pool_.ulFlags),
              std::make_tuple(nullptr, 64u, 2u, RTS_SIZE{128}, RTS_SIZE{0}, FIXEDBLOCKS_FLAG_INITIALIZED));
    FIXEDBLOCKSCHUNK *first = pool_.pChunks;
    unsigned char *a = AlignedStart(Bytes(first) + kChunkHeader);
    EXPECT_EQ(Chunk(first).pBlocks, a);
    EXPECT_EQ(Marks(first), std::make_pair(0u, 0u));
    EXPECT_TRUE(AllBytes(a, 2 * 64, 0xAA));
    EXPECT_EQ(Alloc(), a);
    EXPECT_EQ(Alloc(), a + 64);
    EXPECT_EQ(Marks(first), std::make_pair(2u, 2u));
    unsigned char *c = Alloc();
    FIXEDBLOCKSCHUNK *second = pool_.pChunks;
    EXPECT_EQ(Chunk(second).pNext, first);
    EXPECT_EQ(c, Chunk(second).pBlocks);
    EXPECT_EQ(Marks(second), std::make_pair(1u, 1u));
    EXPECT_TRUE(AllBytes(c, 2 * 64, 0));
    EXPECT_EQ(std::make_pair(pool_.ulCapacity, pool_.ulUsed), std::make_pair(RTS_SIZE{4 * 64}, RTS_SIZE{3 * 64}));
    EXPECT_EQ(g_rec.allocSizes, Sizes(2, 2 * 64 + kChunkHeader + MEMPOOL_ALIGN));
    std::memset(a, 0x31, 64);
    std::memset(c, 0x31, 64);
    ASSERT_EQ(FixedBlocksPoolReclaim(&pool_), ERR_OK);
    EXPECT_EQ(pool_.ulUsed, 0u);
    for (FIXEDBLOCKSCHUNK *p : {first, second}) {
        EXPECT_EQ(Marks(p), std::make_pair(0u, 0u));
        EXPECT_TRUE(AllBytes(Chunk(p).pBlocks, 2 * 64, 0xAA));
    }
    EXPECT_EQ((Blocks{Alloc(), Alloc(), Alloc(), Alloc()}), (Blocks{c, c + 64, a, a + 64}));
    EXPECT_EQ(FixedBlocksPoolDestroy(&pool_), ERR_OK);
    EXPECT_EQ(g_rec.freed, (Blocks{second, first}));
    EXPECT_EQ(g_rec.allocNames, (Strings{"<null>", "<null>"}));
    EXPECT_TRUE(AllBytes(&pool_, sizeof pool_, 0));
}

// A caller area must hold the header, the padding in front of the aligned blocks, and the blocks; it
// is used in place and never freed, while chunks grown behind it are. A descriptor without an area
// means allocated memory.
TEST_F(FixedTest, InitOnCallerAreasOfEveryAlignment) {
    const RTS_SIZE s = Aligned(24);
    std::vector<unsigned char> buffer(kChunkHeader + 3 * s + 2 * MEMPOOL_ALIGN);
    for (RTS_SIZE offset = 0; offset < MEMPOOL_ALIGN; ++offset) {
        SCOPED_TRACE(offset);
        unsigned char *area = AlignedStart(buffer.data()) + offset;
        unsigned char *blocks = AlignedStart(area + kChunkHeader);
        FIXEDBLOCKSMEMORY memory{area, static_cast<RTS_SIZE>(blocks - area) + 3 * s - 1};
        EXPECT_EQ(FixedBlocksPoolInit(&pool_, &memory, 24, 3), ERR_PARAMETER);
        ++memory.ulSize;
        ASSERT_EQ(FixedBlocksPoolInit(&pool_, &memory, 24, 3), ERR_OK);
        EXPECT_EQ((Blocks{Alloc(), Alloc(), Alloc()}), (Blocks{blocks, blocks + s, blocks + 2 * s}));
        Alloc();
        EXPECT_EQ(FixedBlocksPoolDestroy(&pool_), ERR_OK);
    }
    EXPECT_EQ(g_rec.freed.size(), MEMPOOL_ALIGN);         // only the grown chunks
    FIXEDBLOCKSMEMORY tiny{buffer.data(), MEMPOOL_ALIGN}; // refused however the sizes would add up
    EXPECT_EQ(FixedBlocksPoolInit(&pool_, &tiny, 4, 1), ERR_PARAMETER);
    FIXEDBLOCKSMEMORY none{nullptr, 4096};
    EXPECT_EQ(FixedBlocksPoolInit(&pool_, &none, 4, 1), ERR_OK);
    EXPECT_EQ(g_rec.allocSizes.size(), MEMPOOL_ALIGN + 1);
}

// Init and growth pass the memory service's result on (24 without a service) and leave the
// descriptor uninitialised or unchanged. Destroy stops at the first free that fails and answers its
// result; the descriptor is zeroed and the chunks left are the caller's.
TEST_F(FixedTest, MemoryServiceFailuresArePassedOn) {
    g_rec.bFailAllocs = true;
    g_rec.allocFailResult = 5;
    EXPECT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 8, 1), 5u);
    EXPECT_EQ(pool_.ulFlags, 0u);
    g_rec.bFailAllocs = false;
    ASSERT_EQ(FixedBlocksPoolInit(&pool_, nullptr, 8, 1), ERR_OK);
    Alloc();
    Alloc();
    const FIXEDBLOCKSPOOL before = pool_;
    g_rec.bFailAllocs = true;
    EXPECT_EQ(Call(FixedBlocksPoolAlloc, &pool_, 8), (Answer{nullptr, RTS_RESULT{5}}));
    EXPECT_EQ(std::memcmp(&before, &pool_, sizeof pool_), 0);
    Restart(kDefault & ~kMemory);
    EXPECT_EQ(Call(FixedBlocksPoolAlloc, &pool_, 8), (Answer{nullptr, ERR_NO_COMPONENT}));
    Restart(kDefault);
    const Blocks chunks = {pool_.pChunks, Chunk(pool_.pChunks).pNext};
    g_rec.freeResult = 4;
    EXPECT_EQ(FixedBlocksPoolDestroy(&pool_), 4u);
    EXPECT_EQ(g_rec.freed, (Blocks{chunks[0]}));
    EXPECT_TRUE(AllBytes(&pool_, sizeof pool_, 0));
    for (void *p : chunks) {
        g_rec.live.erase(p);
        std::free(p);
    }
}

// A freed block keeps the chunk's previous free index in its first word and is filled with 0xAA
// exactly behind it; any address inside a block frees that block. Reuse follows the chain, then the
// untouched blocks, and clears nothing. For block sizes on every fill route and index computation.
TEST_F(FixedTest, FreeChainsBlocksByIndex) {
    for (RTS_UI32 size = 4; size <= 132; size += (size < 72 ? 4 : 20)) {
        SCOPED_TRACE(size);
        ASSERT_EQ(FixedBlocksPoolInit(&pool_, nullptr, size, 4), ERR_OK);
        const RTS_SIZE s = pool_.ulBlockSize;
        unsigned char *a = Alloc(size), *b = Alloc(size), *c = Alloc(size);
        std::memset(a, 0x11, 3 * s);
        ASSERT_EQ(FixedBlocksPoolFree(&pool_, b + s - 4), ERR_OK);
        EXPECT_TRUE(AllBytes(a, s, 0x11));
        EXPECT_TRUE(AllBytes(b + 4, s - 4, 0xAA));
        EXPECT_TRUE(AllBytes(c, s, 0x11));
        ASSERT_EQ(FixedBlocksPoolFree(&pool_, a), ERR_OK);
        RTS_UI32 index[2];
        std::memcpy(&index[0], a, 4);
        std::memcpy(&index[1], b, 4);
        EXPECT_EQ(std::make_pair(index[0], index[1]), std::make_pair(1u, 3u)); // 3: the high-water mark
        EXPECT_EQ(Marks(pool_.pChunks), std::make_pair(0u, 3u));
        EXPECT_EQ(pool_.ulUsed, s);
        EXPECT_EQ((Blocks{Alloc(), Alloc(), Alloc()}), (Blocks{a, b, c + s}));
        EXPECT_TRUE(AllBytes(b + 4, s - 4, 0xAA));
        EXPECT_EQ(Marks(pool_.pChunks), std::make_pair(4u, 4u));
        EXPECT_EQ(FixedBlocksPoolDestroy(&pool_), ERR_OK);
    }
}

} // namespace
} // namespace kestrel::test::mempool
