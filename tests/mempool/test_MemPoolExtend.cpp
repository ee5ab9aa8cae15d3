// Growing pools: dynamic and static extension chunks, the rule that a pool grows one way only,
// MemPoolGetBlock2's growth by a single block, and MemPoolCleanup of the chunks.
#include "MemPoolTestSupport.h"

namespace kestrel::test::mempool {
namespace {

using ExtendTest = MemPoolTest;

MEMPOOL_EXTENSION *Extensions(RTS_HANDLE h) {
    return PcbCopy(h).pExtensions;
}

TEST_F(ExtendTest, DynamicExtensionIsFilledLaidOutAndTakenFirst) {
    RTS_HANDLE h = MemPoolCreateDynamic("P", 1, 24, nullptr);
    void *old = PcbCopy(h).pFreeList;
    g_rec.allocSizes.clear();
    g_rec.allocNames.clear();
    ASSERT_EQ(MemPoolExtendDynamic(h, "Ext", 3), ERR_OK);
    ASSERT_EQ(g_rec.allocSizes.size(), 1u);
    EXPECT_EQ(g_rec.allocSizes[0], Stride(24) * 3 + MEMPOOL_EXTENSION_HEADER_SIZE);
    EXPECT_EQ(g_rec.allocNames[0], "Ext");
    MEMPOOL_EXTENSION *ext = Extensions(h);
    ASSERT_NE(ext, nullptr);
    EXPECT_EQ(ext->bDynamic, 1u);
    EXPECT_EQ(ext->pNext, nullptr);
    auto *first = reinterpret_cast<unsigned char *>(ext) + MEMPOOL_EXTENSION_HEADER_SIZE;
    for (int i = 0; i < 3; ++i) {
        auto *header = reinterpret_cast<MEMPOOL_BLOCK *>(first + i * Stride(24));
        // The chunk was filled with 0xEE before the blocks were laid out.
        EXPECT_EQ(header->ulReserved, ~RTS_UINTPTR{0} / 0xFF * 0xEE);
        EXPECT_TRUE(AllBytes(header + 1, Aligned(24), 0xEE));
        EXPECT_EQ(header->pPool, static_cast<MEMPOOL_PCB *>(h));
    }
    // New blocks come before the older free one.
    std::vector<void *> blocks = Drain(h);
    ASSERT_EQ(blocks.size(), 4u);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(blocks[i], first + i * Stride(24) + MEMPOOL_BLOCK_HEADER_SIZE);
    EXPECT_EQ(HeaderOf(blocks[3]), old);
    // A second chunk goes in front of the first.
    ASSERT_EQ(MemPoolExtendDynamic(h, "Ext", 1), ERR_OK);
    EXPECT_EQ(Extensions(h)->pNext, ext);
    EXPECT_EQ(MemPoolDelete(h, "P"), ERR_OK);
    EXPECT_EQ(g_rec.freeNames, (std::vector<std::string>{"P", "P", "P"}));
}

TEST_F(ExtendTest, DynamicExtensionFailures) {
    alignas(8) unsigned char more[MEMPOOL_STATIC_AREA_SIZE(8, 2)];
    RTS_HANDLE h = StaticPool(8, 1);
    EXPECT_EQ(MemPoolExtendDynamic(nullptr, "X", 1), ERR_INVALID_POOL);
    EXPECT_EQ(MemPoolExtendDynamic(RTS_INVALID_HANDLE, "X", 1), ERR_INVALID_POOL);
    // A failed allocation leaves the pool unchanged.
    const MEMPOOL_PCB before = PcbCopy(h);
    g_rec.failAllocsAfter = 0;
    EXPECT_EQ(MemPoolExtendDynamic(h, "X", 1), ERR_NOMEMORY);
    EXPECT_EQ(std::memcmp(&before, h, sizeof before), 0);
    g_rec.failAllocsAfter = -1;
    // Once a static chunk is the newest, the pool no longer grows dynamically.
    ASSERT_EQ(MemPoolExtendStatic(h, sizeof more, more), ERR_OK);
    g_rec.allocSizes.clear();
    EXPECT_EQ(MemPoolExtendDynamic(h, "X", 1), ERR_INVALID_POOL);
    EXPECT_TRUE(g_rec.allocSizes.empty());
    Restart(NoMemoryService());
    EXPECT_EQ(MemPoolExtendDynamic(h, "X", 1), ERR_NO_COMPONENT);
}

TEST_F(ExtendTest, DynamicExtensionWithoutBlocksLeavesTheFreeList) {
    RTS_HANDLE h = MemPoolCreateDynamic("P", 2, 8, nullptr);
    MEMPOOL_BLOCK *head = PcbCopy(h).pFreeList;
    ASSERT_EQ(MemPoolExtendDynamic(h, "P", 0), ERR_OK);
    EXPECT_EQ(g_rec.allocSizes.back(), MEMPOOL_EXTENSION_HEADER_SIZE);
    EXPECT_NE(Extensions(h), nullptr);
    EXPECT_EQ(PcbCopy(h).pFreeList, head);
    EXPECT_EQ(Drain(h).size(), 2u);
    EXPECT_EQ(MemPoolDelete(h, "P"), ERR_OK);
}

TEST_F(ExtendTest, StaticExtensionUsesTheAlignedArea) {
    RTS_HANDLE h = StaticPool(16, 1);
    const RTS_SIZE minimum = 16 + MEMPOOL_EXTENSION_HEADER_SIZE + MEMPOOL_BLOCK_HEADER_SIZE; // s + 20 on 32-bit
    std::vector<unsigned char> buffer(5 * minimum, 0x11);
    unsigned char *aligned = AlignedStart(buffer.data());
    for (RTS_SIZE offset = 1; offset < MEMPOOL_ALIGN; ++offset) {
        const RTS_SIZE skip = MEMPOOL_ALIGN - offset;
        EXPECT_EQ(MemPoolExtendStatic(h, minimum + skip - 1, aligned + offset), ERR_NOMEMORY) << offset;
    }
    EXPECT_EQ(MemPoolExtendStatic(h, minimum - 1, aligned), ERR_NOMEMORY);
    // Room for two blocks and a few bytes: two blocks, filled exactly over the chunk.
    const RTS_SIZE size = MEMPOOL_EXTENSION_HEADER_SIZE + 2 * Stride(16) + MEMPOOL_ALIGN - 1;
    unsigned char *start = aligned + MEMPOOL_ALIGN;
    ASSERT_EQ(MemPoolExtendStatic(h, size + 1, start - 1), ERR_OK);
    MEMPOOL_EXTENSION *ext = Extensions(h);
    EXPECT_EQ(reinterpret_cast<unsigned char *>(ext), start);
    EXPECT_EQ(ext->bDynamic, 0u);
    EXPECT_EQ(ext->pNext, nullptr);
    const RTS_SIZE chunk = MEMPOOL_EXTENSION_HEADER_SIZE + 2 * Stride(16);
    EXPECT_EQ(start[chunk], 0x11);
    EXPECT_EQ(start[-1], 0x11);
    EXPECT_TRUE(AllBytes(start + MEMPOOL_EXTENSION_HEADER_SIZE + MEMPOOL_BLOCK_HEADER_SIZE, 16, 0xEE));
    EXPECT_EQ(Drain(h).size(), 3u);
    // A second static chunk is accepted; a dynamic pool or a dynamic newest chunk is not.
    EXPECT_EQ(MemPoolExtendStatic(h, minimum, AlignedStart(buffer.data() + 3 * minimum)), ERR_OK);
    EXPECT_EQ(Extensions(h)->pNext, ext);
    EXPECT_EQ(MemPoolExtendStatic(h, minimum, nullptr), ERR_PARAMETER);
    EXPECT_EQ(MemPoolExtendStatic(nullptr, minimum, start), ERR_INVALID_POOL);
    EXPECT_EQ(MemPoolExtendStatic(RTS_INVALID_HANDLE, minimum, start), ERR_INVALID_POOL);
    RTS_HANDLE hd = MemPoolCreateDynamic("D", 1, 16, nullptr);
    EXPECT_EQ(MemPoolExtendStatic(hd, 4 * minimum, aligned), ERR_INVALID_POOL);
    EXPECT_EQ(MemPoolDelete(hd, "D"), ERR_OK);
    RTS_HANDLE h2 = StaticPool(16, 1);
    ASSERT_EQ(MemPoolExtendDynamic(h2, "X", 1), ERR_OK);
    EXPECT_EQ(MemPoolExtendStatic(h2, 4 * minimum, aligned), ERR_INVALID_POOL);
    EXPECT_EQ(MemPoolDelete(h2, "X"), ERR_OK);
}

TEST_F(ExtendTest, GetBlock2GrowsByExactlyOneBlock) {
    RTS_HANDLE h = MemPoolCreateDynamic("P", 1, 40, nullptr);
    ASSERT_NE(MemPoolGetBlock(h, nullptr), nullptr);
    EXPECT_EQ(Call(MemPoolGetBlock, h), (Answer{nullptr, ERR_INVALID_POOL}));
    g_rec.allocSizes.clear();
    RTS_RESULT result = ERR_FAILED;
    void *grown = MemPoolGetBlock2(h, 100, "Grow", &result);
    ASSERT_NE(grown, nullptr);
    EXPECT_EQ(result, ERR_OK);
    EXPECT_EQ(g_rec.allocSizes, (std::vector<RTS_SIZE>{Stride(40) + MEMPOOL_EXTENSION_HEADER_SIZE}));
    EXPECT_EQ(g_rec.allocNames.back(), "Grow");
    EXPECT_TRUE(AllBytes(grown, Aligned(40), 0));
    EXPECT_EQ(MemPoolGetBlock(h, nullptr), nullptr);
    // While a block is free, GetBlock2 does not grow.
    ASSERT_EQ(MemPoolPutBlock(grown), ERR_OK);
    EXPECT_EQ(MemPoolGetBlock2(h, 5, "Grow", &result), grown);
    EXPECT_EQ(g_rec.allocSizes.size(), 1u);
    // Growth that fails is out of memory.
    g_rec.failAllocsAfter = 0;
    EXPECT_EQ(Call(MemPoolGetBlock2, h, 1, "Grow"), (Answer{nullptr, ERR_NOMEMORY}));
    EXPECT_EQ(Call(MemPoolGetBlock2, RTS_INVALID_HANDLE, 1, "Grow"), (Answer{nullptr, ERR_NOMEMORY}));
    EXPECT_EQ(MemPoolDelete(h, "P"), ERR_OK);
}

TEST_F(ExtendTest, GetBlock2OnAStaticallyExtendedPoolFails) {
    alignas(8) unsigned char more[MEMPOOL_EXTENSION_HEADER_SIZE + MEMPOOL_ALIGN_SIZE(8) + MEMPOOL_BLOCK_HEADER_SIZE];
    RTS_HANDLE h = StaticPool(8, 1);
    ASSERT_EQ(MemPoolExtendStatic(h, sizeof more, more), ERR_OK);
    EXPECT_EQ(Drain(h).size(), 2u);
    EXPECT_EQ(Call(MemPoolGetBlock2, h, 1, "X"), (Answer{nullptr, ERR_NOMEMORY}));
    EXPECT_TRUE(g_rec.allocSizes.empty());
}

TEST_F(ExtendTest, CleanupFreesDynamicChunksOnly) {
    alignas(8) unsigned char more[MEMPOOL_STATIC_AREA_SIZE(8, 1)];
    RTS_HANDLE hs = StaticPool(8, 1);
    ASSERT_EQ(MemPoolExtendStatic(hs, sizeof more, more), ERR_OK);
    EXPECT_EQ(MemPoolCleanup(hs, "S", 0), ERR_OK);
    EXPECT_EQ(Extensions(hs), nullptr);
    EXPECT_TRUE(g_rec.freed.empty());

    RTS_HANDLE h = MemPoolCreateDynamic("P", 1, 8, nullptr);
    ASSERT_EQ(MemPoolExtendDynamic(h, "P", 2), ERR_OK);
    ASSERT_EQ(MemPoolExtendDynamic(h, "P", 1), ERR_OK);
    MEMPOOL_EXTENSION *newest = Extensions(h);
    MEMPOOL_EXTENSION *older = newest->pNext;
    const size_t semCalls = g_rec.semTrace.size();
    EXPECT_EQ(MemPoolCleanup(h, "Clean", 0), ERR_OK);
    EXPECT_EQ(g_rec.freed, (std::vector<void *>{newest, older}));
    EXPECT_EQ(g_rec.freeNames, (std::vector<std::string>{"Clean", "Clean"}));
    EXPECT_EQ(Extensions(h), nullptr);
    // Under the pool lock, and the lock object survives without the flag.
    EXPECT_EQ(std::vector<std::string>(g_rec.semTrace.begin() + semCalls, g_rec.semTrace.end()),
              (std::vector<std::string>{"enter 2", "leave 2"}));
    EXPECT_EQ(PcbCopy(h).hSem, FakeSemHandle(2));
    EXPECT_EQ(MemPoolCleanup(h, "Clean", 1), ERR_OK);
    EXPECT_EQ(PcbCopy(h).hSem, RTS_INVALID_HANDLE);
    EXPECT_EQ(g_rec.semTrace.back(), "delete 2");
    EXPECT_EQ(MemPoolCleanup(nullptr, "X", 1), ERR_INVALID_POOL);
    EXPECT_EQ(MemPoolCleanup(RTS_INVALID_HANDLE, "X", 1), ERR_INVALID_POOL);
    EXPECT_EQ(MemPoolDelete(h, "P"), ERR_OK);
}

} // namespace
} // namespace kestrel::test::mempool
