// Creating pools: the size figures derived from the structures (checked literally on the 32-bit
// build), static pools on caller areas of every alignment, dynamic pools through the memory
// service, and the zeroing of new pool memory.
#include <cstdint>

#include "MemPoolTestSupport.h"

namespace kestrel::test::mempool {
namespace {

using CreateTest = MemPoolTest;

TEST(MemPoolSizes, DeriveFromTheStructures) {
    EXPECT_EQ(MEMPOOL_PCB_SIZE, 5 * sizeof(void *));
    EXPECT_EQ(MEMPOOL_BLOCK_HEADER_SIZE, 3 * sizeof(void *));
    EXPECT_EQ(MEMPOOL_EXTENSION_HEADER_SIZE, 2 * sizeof(void *));
    EXPECT_EQ(FIXEDBLOCKS_CHUNK_HEADER_SIZE, 2 * sizeof(void *) + 2 * sizeof(RTS_UI32));
    EXPECT_EQ(offsetof(MEMPOOL_PCB, hSem), 1 * sizeof(void *));
    EXPECT_EQ(offsetof(MEMPOOL_PCB, pExtensions), 2 * sizeof(void *));
    EXPECT_EQ(offsetof(MEMPOOL_PCB, pFreeList), 3 * sizeof(void *));
    EXPECT_EQ(offsetof(MEMPOOL_PCB, pUsedList), 4 * sizeof(void *));
    EXPECT_EQ(offsetof(MEMPOOL_BLOCK, pNext), 1 * sizeof(void *));
    EXPECT_EQ(offsetof(MEMPOOL_BLOCK, pPool), 2 * sizeof(void *));
    EXPECT_EQ(offsetof(FIXEDBLOCKSPOOL, ulBlockSize), 2 * sizeof(void *));
    EXPECT_EQ(offsetof(FIXEDBLOCKSCHUNK, ulFreeIndex), 2 * sizeof(void *));
    EXPECT_EQ(MEMPOOL_ALIGN_SIZE(1), sizeof(void *));
    EXPECT_EQ(MEMPOOL_ALIGN_SIZE(sizeof(void *)), sizeof(void *));
}

// The figures of the design, which the 32-bit build shows literally.
TEST(MemPoolSizes, LiteralFiguresOn32Bit) {
    if (sizeof(void *) != 4)
        GTEST_SKIP() << "the literal figures hold for the 32-bit build";
    EXPECT_EQ(MEMPOOL_PCB_SIZE, 20u);
    EXPECT_EQ(MEMPOOL_BLOCK_HEADER_SIZE, 12u);
    EXPECT_EQ(MEMPOOL_EXTENSION_HEADER_SIZE, 8u);
    EXPECT_EQ(MEMPOOL_ALIGN, 4u);
    EXPECT_EQ(FIXEDBLOCKS_CHUNK_HEADER_SIZE, 16u);
    EXPECT_EQ(sizeof(FIXEDBLOCKSPOOL), 28u);
    EXPECT_EQ(sizeof(ComponentInfo), 52u);
    EXPECT_EQ(MEMPOOL_STATIC_AREA_SIZE(12, 5), 148u);
    EXPECT_EQ(MEMPOOL_STATIC_AREA_SIZE(sizeof(ComponentInfo), 40), 2588u);
    // A static pool needs s + 32 bytes, or 20 for block size 0.
    alignas(4) unsigned char area[64];
    EXPECT_EQ(MemPoolCreateStatic(12, 12 + 31, area, nullptr), RTS_INVALID_HANDLE);
    EXPECT_NE(MemPoolCreateStatic(12, 12 + 32, area, nullptr), RTS_INVALID_HANDLE);
    EXPECT_EQ(MemPoolCreateStatic(0, 19, area, nullptr), RTS_INVALID_HANDLE);
    EXPECT_NE(MemPoolCreateStatic(0, 20, area, nullptr), RTS_INVALID_HANDLE);
}

// A static area of MEMPOOL_STATIC_AREA_SIZE(s, n) holds exactly n blocks, however it is aligned.
TEST_F(CreateTest, StaticAreaSizeHoldsExactlyNBlocks) {
    struct Row {
        RTS_SIZE s;
        RTS_SIZE n;
    };
    const Row rows[] = {{12, 5}, {52, 40}, {1, 3}, {64, 16}, {100, 1}, {4, 100}};
    for (const Row &row : rows) {
        for (RTS_SIZE offset = 0; offset < MEMPOOL_ALIGN; ++offset) {
            std::vector<unsigned char> buffer(MEMPOOL_STATIC_AREA_SIZE(row.s, row.n) + MEMPOOL_ALIGN);
            unsigned char *area = AlignedStart(buffer.data()) + offset;
            RTS_HANDLE h = MemPoolCreateStatic(row.s, MEMPOOL_STATIC_AREA_SIZE(row.s, row.n), area, nullptr);
            ASSERT_NE(h, RTS_INVALID_HANDLE) << row.s << " " << row.n << " +" << offset;
            EXPECT_EQ(Drain(h).size(), row.n) << row.s << " " << row.n << " +" << offset;
            EXPECT_EQ(MemPoolDelete(h, "T"), ERR_OK);
        }
    }
}

// An area must hold the block, the overhead (32 bytes on the 32-bit build) and the skip to the next
// aligned address; a pool of block size 0 needs only the control block, where the area starts.
TEST_F(CreateTest, StaticPoolNeedsBlockPlusOverheadPlusAlignmentSkip) {
    const RTS_SIZE need = 16 + MEMPOOL_PCB_SIZE + MEMPOOL_BLOCK_HEADER_SIZE;
    std::vector<unsigned char> buffer(need + 2 * MEMPOOL_ALIGN);
    unsigned char *aligned = AlignedStart(buffer.data());
    for (RTS_SIZE offset = 0; offset < MEMPOOL_ALIGN; ++offset) {
        SCOPED_TRACE(offset);
        unsigned char *area = aligned + offset;
        const RTS_SIZE skip = (MEMPOOL_ALIGN - offset) % MEMPOOL_ALIGN;
        EXPECT_EQ(Call(MemPoolCreateStatic, 16, need + skip - 1, area), (Answer{RTS_INVALID_HANDLE, ERR_NOMEMORY}));
        RTS_HANDLE h = area + skip;
        ASSERT_EQ(Call(MemPoolCreateStatic, 16, need + skip, area), (Answer{h, ERR_OK}));
        EXPECT_EQ(Drain(h).size(), 1u);
        EXPECT_EQ(Call(MemPoolCreateStatic, 0, MEMPOOL_PCB_SIZE - 1, area), (Answer{RTS_INVALID_HANDLE, ERR_NOMEMORY}));
        h = area;
        ASSERT_EQ(Call(MemPoolCreateStatic, 0, MEMPOOL_PCB_SIZE, area), (Answer{h, ERR_OK}));
        const MEMPOOL_PCB pcb = PcbCopy(h);
        EXPECT_EQ(pcb.pFreeList, nullptr);
        EXPECT_EQ(pcb.ulBlockSizeAndFlags, 0u);
        EXPECT_EQ(pcb.hSem, FakeSemHandle(g_rec.semCreated));
        EXPECT_EQ(Call(MemPoolGetBlock, h), (Answer{nullptr, ERR_INVALID_POOL}));
        EXPECT_EQ(MemPoolLock(h), ERR_OK);
        EXPECT_EQ(MemPoolUnlock(h), ERR_OK);
        EXPECT_EQ(MemPoolDelete(h, "T"), ERR_OK);
    }
    EXPECT_EQ(Call(MemPoolCreateStatic, 16, need, nullptr), (Answer{RTS_INVALID_HANDLE, ERR_PARAMETER}));
    EXPECT_EQ(MemPoolCreateStatic(16, 1, aligned, nullptr), RTS_INVALID_HANDLE); // the result pointer is optional
}

// A new pool is zeroed and holds n blocks of size s behind its control block, chained in order.
void ExpectFreshPool(RTS_HANDLE h, RTS_SIZE s, int n, RTS_UI32 flags) {
    const MEMPOOL_PCB pcb = PcbCopy(h);
    EXPECT_EQ(pcb.ulBlockSizeAndFlags, Aligned(s) | flags);
    EXPECT_EQ(pcb.pExtensions, nullptr);
    EXPECT_EQ(pcb.pUsedList, nullptr);
    unsigned char *first = static_cast<unsigned char *>(h) + MEMPOOL_PCB_SIZE;
    EXPECT_EQ(pcb.pFreeList, reinterpret_cast<MEMPOOL_BLOCK *>(first));
    for (int i = 0; i < n; ++i) {
        auto *header = reinterpret_cast<MEMPOOL_BLOCK *>(first + i * Stride(s));
        auto *next = reinterpret_cast<MEMPOOL_BLOCK *>(first + (i + 1) * Stride(s));
        EXPECT_EQ(header->ulReserved, 0u) << i;
        EXPECT_EQ(header->pPool, static_cast<MEMPOOL_PCB *>(h)) << i;
        EXPECT_EQ(header->pNext, i + 1 < n ? next : nullptr) << i;
        EXPECT_TRUE(AllBytes(header + 1, Aligned(s), 0)) << i;
    }
}

TEST_F(CreateTest, StaticPoolZeroesItsAreaAndLaysOutBlocks) {
    std::vector<unsigned char> buffer(MEMPOOL_STATIC_AREA_SIZE(20, 3) + 16, 0x77);
    unsigned char *area = AlignedStart(buffer.data());
    const RTS_SIZE size = MEMPOOL_STATIC_AREA_SIZE(20, 3);
    RTS_HANDLE h = MemPoolCreateStatic(20, size, area, nullptr);
    ASSERT_EQ(h, static_cast<RTS_HANDLE>(area));
    ExpectFreshPool(h, 20, 3, 0);
    // The spare words were cleared too; nothing behind the area was touched.
    const RTS_SIZE used = MEMPOOL_PCB_SIZE + 3 * Stride(20);
    EXPECT_TRUE(AllBytes(area + used, size - used, 0));
    EXPECT_EQ(area[size], 0x77);
}

// The memory service's blocks arrive filled with 0x5A: the new pool must be zeroed all the same.
TEST_F(CreateTest, DynamicPoolAllocatesBlocksAndControlBlock) {
    RTS_RESULT result = ERR_FAILED;
    RTS_HANDLE h = MemPoolCreateDynamic("CmpX", 4, 30, &result);
    ASSERT_EQ(result, ERR_OK);
    EXPECT_EQ(g_rec.allocSizes, (std::vector<RTS_SIZE>{Stride(30) * 4 + MEMPOOL_PCB_SIZE}));
    EXPECT_EQ(g_rec.allocNames, (std::vector<std::string>{"CmpX"}));
    ASSERT_EQ(g_rec.live.count(h), 1u);
    ExpectFreshPool(h, 30, 4, MEMPOOL_FLAG_DYNAMIC);
    EXPECT_EQ(PcbCopy(h).hSem, FakeSemHandle(1));
    EXPECT_EQ(Drain(h).size(), 4u);
    EXPECT_EQ(MemPoolDelete(h, "CmpX"), ERR_OK);
}

TEST_F(CreateTest, DynamicPoolFailures) {
    g_rec.failAllocsAfter = 0;
    EXPECT_EQ(Call(MemPoolCreateDynamic, "X", 2, 8), (Answer{RTS_INVALID_HANDLE, ERR_NOMEMORY}));
    // A size that cannot be represented is out of memory without asking the service.
    g_rec.failAllocsAfter = -1;
    g_rec.allocSizes.clear();
    const RTS_SIZE tooLarge = static_cast<RTS_SIZE>(MEMPOOL_SIZE_MASK) + 1;
    EXPECT_EQ(Call(MemPoolCreateDynamic, "X", 2, tooLarge), (Answer{RTS_INVALID_HANDLE, ERR_NOMEMORY}));
    EXPECT_EQ(Call(MemPoolCreateDynamic, "X", 0xFFFFFFFFu, MEMPOOL_SIZE_MASK - 64),
              (Answer{RTS_INVALID_HANDLE, ERR_NOMEMORY}));
    if (sizeof(void *) == 4) {
        EXPECT_TRUE(g_rec.allocSizes.empty());
    }
    Restart(NoMemoryService());
    EXPECT_EQ(Call(MemPoolCreateDynamic, "X", 2, 8), (Answer{RTS_INVALID_HANDLE, ERR_NO_COMPONENT}));
    EXPECT_TRUE(g_rec.semTrace.empty());
}

// With 0 blocks the free list still points right behind the control block, just past the memory.
TEST_F(CreateTest, DynamicPoolWithoutBlocksPointsPastItsMemory) {
    RTS_RESULT result = ERR_FAILED;
    RTS_HANDLE h = MemPoolCreateDynamic("X", 0, 16, &result);
    ASSERT_EQ(result, ERR_OK);
    EXPECT_EQ(g_rec.allocSizes[0], MEMPOOL_PCB_SIZE);
    EXPECT_EQ(PcbCopy(h).pFreeList,
              reinterpret_cast<MEMPOOL_BLOCK *>(static_cast<unsigned char *>(h) + MEMPOOL_PCB_SIZE));
    EXPECT_EQ(MemPoolDelete(h, "X"), ERR_OK);
    EXPECT_TRUE(g_rec.live.empty());
}

TEST_F(CreateTest, GetPcbIsTheIdentityExceptForTheInvalidHandle) {
    RTS_HANDLE h = StaticPool(8, 1);
    EXPECT_EQ(Call(MemPoolGetPCB, h), (Answer{static_cast<MEMPOOL_PCB *>(h), ERR_OK}));
    EXPECT_EQ(Call(MemPoolGetPCB, RTS_INVALID_HANDLE), (Answer{nullptr, ERR_PARAMETER}));
    EXPECT_EQ(MemPoolGetPCB(nullptr, nullptr), nullptr);
}

} // namespace
} // namespace kestrel::test::mempool
