// Growing and ending pools: dynamic and static extension chunks, the rule that a pool grows one
// way only, MemPoolGetBlock2's growth by a single block, MemPoolCleanup and MemPoolDelete.
#include <cstdio>

#include "MemPoolTestSupport.h"

namespace kestrel::test::mempool {
namespace {

using ExtendTest = MemPoolTest;

// A new chunk is filled with 0xEE before its blocks are laid out, goes in front of the older ones,
// and its blocks come before the older free ones; a chunk of 0 blocks leaves the free list alone.
// GetBlock2 grows only an exhausted pool, by exactly one block whatever the caller asks for.
TEST_F(ExtendTest, DynamicExtensionIsFilledLaidOutAndTakenFirst) {
    RTS_HANDLE h = MemPoolCreateDynamic("P", 1, 24, nullptr);
    MEMPOOL_BLOCK *old = Pcb(h)->pFreeList;
    ASSERT_EQ(MemPoolExtendDynamic(h, "Ext", 3), ERR_OK);
    MEMPOOL_EXTENSION *ext = Pcb(h)->pExtensions;
    unsigned char *first = Bytes(ext) + MEMPOOL_EXTENSION_HEADER_SIZE;
    for (int i = 0; i < 3; ++i) {
        auto *next = i < 2 ? reinterpret_cast<MEMPOOL_BLOCK *>(first + (i + 1) * Stride(24)) : old;
        const MEMPOOL_BLOCK header = {~RTS_UINTPTR{0} / 0xFF * 0xEE, next, Pcb(h)};
        EXPECT_EQ(std::memcmp(first + i * Stride(24), &header, kHeader), 0) << i;
        EXPECT_TRUE(AllBytes(first + i * Stride(24) + kHeader, 24, 0xEE)) << i;
    }
    EXPECT_EQ(Pcb(h)->pFreeList, reinterpret_cast<MEMPOOL_BLOCK *>(first));
    for (int i = 0; i < 4; ++i)
        ASSERT_NE(MemPoolGetBlock2(h, 5, "Grow", nullptr), nullptr);
    ASSERT_EQ(MemPoolExtendDynamic(h, "Ext", 0), ERR_OK);
    EXPECT_EQ(Pcb(h)->pExtensions->pNext, ext);
    EXPECT_EQ(Pcb(h)->pFreeList, nullptr);
    const auto grown = Call(MemPoolGetBlock2, h, 100, "Grow");
    EXPECT_EQ(grown.result, ERR_OK);
    EXPECT_TRUE(AllBytes(grown.value, 24, 0));
    EXPECT_EQ(MemPoolGetBlock(h, nullptr), nullptr);
    const RTS_SIZE ext0 = MEMPOOL_EXTENSION_HEADER_SIZE;
    EXPECT_EQ(g_rec.allocSizes, (Sizes{Stride(24) + MEMPOOL_PCB_SIZE, Stride(24) * 3 + ext0, ext0, Stride(24) + ext0}));
    EXPECT_EQ(g_rec.allocNames, (Strings{"P", "Ext", "Ext", "Grow"}));
    g_rec.bFailAllocs = true;
    EXPECT_EQ(Call(MemPoolGetBlock2, h, 1, "Grow"), (Answer{nullptr, ERR_NOMEMORY}));
    EXPECT_EQ(MemPoolDelete(h, "P"), ERR_OK);
}

// A static chunk starts at the first aligned address of the area, which must hold the header and a
// block behind the skip, and is filled with 0xEE exactly. A pool whose newest chunk is static grows
// no more dynamically; a dynamic pool or newest chunk takes no static chunk. A failed allocation
// leaves the pool unchanged.
TEST_F(ExtendTest, StaticExtensionUsesTheAlignedArea) {
    RTS_HANDLE h = StaticPool(16, 1);
    const MEMPOOL_PCB before = *Pcb(h);
    g_rec.bFailAllocs = true;
    EXPECT_EQ(MemPoolExtendDynamic(h, "X", 1), ERR_NOMEMORY);
    EXPECT_EQ(std::memcmp(&before, h, sizeof before), 0);
    g_rec.bFailAllocs = false;
    const RTS_SIZE minimum = MEMPOOL_EXTENSION_HEADER_SIZE + Stride(16);
    std::vector<unsigned char> buffer(5 * minimum, 0x11);
    unsigned char *start = AlignedStart(buffer.data()) + MEMPOOL_ALIGN;
    for (RTS_SIZE skip = 0; skip < MEMPOOL_ALIGN; ++skip)
        EXPECT_EQ(MemPoolExtendStatic(h, minimum + skip - 1, start - skip), ERR_NOMEMORY) << skip;
    EXPECT_EQ(MemPoolExtendStatic(h, minimum, nullptr), ERR_PARAMETER);
    // Room for two blocks and a few bytes: two blocks, the fill exactly over the chunk.
    const RTS_SIZE chunk = MEMPOOL_EXTENSION_HEADER_SIZE + 2 * Stride(16);
    ASSERT_EQ(MemPoolExtendStatic(h, chunk + MEMPOOL_ALIGN, start - 1), ERR_OK);
    MEMPOOL_EXTENSION *ext = Pcb(h)->pExtensions;
    EXPECT_EQ((std::vector<unsigned char>{start[-1], start[chunk]}), (std::vector<unsigned char>{0x11, 0x11}));
    EXPECT_TRUE(AllBytes(start + MEMPOOL_EXTENSION_HEADER_SIZE + kHeader, 16, 0xEE));
    EXPECT_EQ(MemPoolExtendStatic(h, minimum, start + chunk + MEMPOOL_ALIGN), ERR_OK);
    EXPECT_EQ(Pcb(h)->pExtensions->pNext, ext);
    EXPECT_EQ(Drain(h).size(), 4u);
    g_rec.allocSizes.clear();
    EXPECT_EQ(MemPoolExtendDynamic(h, "X", 1), ERR_INVALID_POOL);
    EXPECT_EQ(Call(MemPoolGetBlock2, h, 1, "X"), (Answer{nullptr, ERR_NOMEMORY}));
    EXPECT_TRUE(g_rec.allocSizes.empty());
    RTS_HANDLE hd = MemPoolCreateDynamic("D", 1, 16, nullptr);
    EXPECT_EQ(MemPoolExtendStatic(hd, minimum, start), ERR_INVALID_POOL);
    EXPECT_EQ(MemPoolDelete(hd, "D"), ERR_OK);
    h = StaticPool(16, 1);
    ASSERT_EQ(MemPoolExtendDynamic(h, "X", 1), ERR_OK);
    EXPECT_EQ(MemPoolExtendStatic(h, minimum, start), ERR_INVALID_POOL);
    EXPECT_EQ(MemPoolDelete(h, "X"), ERR_OK);
    Restart(kDefault & ~kMemory);
    EXPECT_EQ(MemPoolExtendDynamic(h, "X", 1), ERR_NO_COMPONENT);
}

// A leak line as the logger double records it (logger 0, CmpMemPool, class 16, error 1, info 0),
// with the addresses in full on every build; on the 32-bit build this is the "0x%x" text.
std::string LeakLine(const char *name, const void *pool, const void *block) {
    char text[200];
    std::snprintf(text, sizeof text, "0 30 16 1 0 **** Pool leak: Cmp=%s, hPool=0x%llx, pBlock=0x%llx", name,
                  static_cast<unsigned long long>(reinterpret_cast<RTS_UINTPTR>(pool)),
                  static_cast<unsigned long long>(reinterpret_cast<RTS_UINTPTR>(block)));
    return text;
}

// Cleanup frees the dynamic chunks, newest first, under the pool lock, and deletes the lock object
// only when asked. Delete reports every tracked block, frees the chunks left, deletes the lock
// object and frees a dynamic control block. Without a logger nothing is reported; static areas and
// chunks are the caller's.
TEST_F(ExtendTest, CleanupAndDeleteFreeThePoolAndReportLeaks) {
    RTS_HANDLE h = MemPoolCreateDynamic("Leaky", 4, 16, nullptr);
    void *a = MemPoolGetBlock(h, nullptr), *b = MemPoolGetBlock(h, nullptr);
    ASSERT_EQ(MemPoolAppendUsedBlock(a), ERR_OK);
    ASSERT_EQ(MemPoolAppendUsedBlock(b), ERR_OK);
    ASSERT_EQ(MemPoolExtendDynamic(h, "Leaky", 2), ERR_OK);
    ASSERT_EQ(MemPoolExtendDynamic(h, "Leaky", 1), ERR_OK);
    MEMPOOL_EXTENSION *newest = Pcb(h)->pExtensions, *older = newest->pNext;
    g_rec.trace.clear();
    EXPECT_EQ(MemPoolCleanup(h, "Clean", 0), ERR_OK);
    EXPECT_EQ(Pcb(h)->pExtensions, nullptr);
    EXPECT_EQ(MemPoolDelete(h, "CmpLeaky"), ERR_OK);
    EXPECT_EQ(g_rec.log, (Strings{LeakLine("CmpLeaky", h, a), LeakLine("CmpLeaky", h, b)}));
    EXPECT_EQ(g_rec.freed, (Blocks{newest, older, h}));
    EXPECT_EQ(g_rec.freeNames, (Strings{"Clean", "Clean", "CmpLeaky"}));
    EXPECT_EQ(g_rec.trace, (Strings{"enter 1", "leave 1", "delete 1"}));

    Restart(kDefault & ~kLog);
    g_rec.freed.clear();
    alignas(8) unsigned char more[MEMPOOL_STATIC_AREA_SIZE(8, 1)];
    RTS_HANDLE hs = StaticPool(8, 1), hd = StaticPool(8, 2);
    ASSERT_EQ(MemPoolExtendStatic(hs, sizeof more, more), ERR_OK);
    ASSERT_EQ(MemPoolExtendDynamic(hd, "S", 1), ERR_OK);
    void *chunk = Pcb(hd)->pExtensions;
    ASSERT_EQ(MemPoolAddUsedBlock(MemPoolGetBlock(hd, nullptr)), ERR_OK);
    EXPECT_EQ(MemPoolCleanup(hs, "S", 1), ERR_OK);
    EXPECT_EQ(Pcb(hs)->hSem, RTS_INVALID_HANDLE);
    EXPECT_EQ(MemPoolDelete(hs, "S"), ERR_OK);
    EXPECT_EQ(MemPoolDelete(hd, "S"), ERR_OK);
    EXPECT_EQ(g_rec.log.size(), 2u);
    EXPECT_EQ(g_rec.freed, (Blocks{chunk}));
    EXPECT_EQ(g_rec.trace.back(), "delete 3");
}

} // namespace
} // namespace kestrel::test::mempool
