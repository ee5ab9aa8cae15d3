// Creating pools: the size figures derived from the structures (checked literally on the 32-bit
// build), static pools on caller areas of every alignment, dynamic pools through the memory
// service, and the zeroing of new pool memory.
#include <cstdint>

#include "MemPoolTestSupport.h"

namespace kestrel::test::mempool {
namespace {

using CreateTest = MemPoolTest;

TEST(MemPoolSizes, DeriveFromTheStructures) {
    EXPECT_EQ(MEMPOOL_ALIGN, sizeof(void *));
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
    EXPECT_EQ(MEMPOOL_STATIC_AREA_SIZE(12, 5),
              MEMPOOL_PCB_SIZE + 5 * (MEMPOOL_ALIGN_SIZE(12) + MEMPOOL_BLOCK_HEADER_SIZE) + 2 * sizeof(void *));
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

TEST_F(CreateTest, StaticPoolNeedsBlockPlusOverhead) {
    const RTS_SIZE overhead = MEMPOOL_PCB_SIZE + MEMPOOL_BLOCK_HEADER_SIZE; // 32 on the 32-bit build
    alignas(8) unsigned char area[256];
    RTS_RESULT result = ERR_OK;
    // Three bytes too small for one block plus the overhead.
    EXPECT_EQ(MemPoolCreateStatic(16, 16 + overhead - 3, area, &result), RTS_INVALID_HANDLE);
    EXPECT_EQ(result, ERR_NOMEMORY);
    EXPECT_EQ(MemPoolCreateStatic(16, 16 + overhead - 1, area, &result), RTS_INVALID_HANDLE);
    EXPECT_EQ(result, ERR_NOMEMORY);
    RTS_HANDLE h = MemPoolCreateStatic(16, 16 + overhead, area, &result);
    ASSERT_EQ(result, ERR_OK);
    EXPECT_EQ(h, static_cast<RTS_HANDLE>(area));
    EXPECT_EQ(Drain(h).size(), 1u);
    // Block size 0 needs only the control block and never has blocks.
    EXPECT_EQ(MemPoolCreateStatic(0, MEMPOOL_PCB_SIZE - 1, area, &result), RTS_INVALID_HANDLE);
    EXPECT_EQ(result, ERR_NOMEMORY);
    h = MemPoolCreateStatic(0, MEMPOOL_PCB_SIZE, area, &result);
    ASSERT_EQ(result, ERR_OK);
    EXPECT_EQ(PcbCopy(h).pFreeList, nullptr);
    EXPECT_EQ(PcbCopy(h).ulBlockSizeAndFlags, 0u);
    EXPECT_EQ(MemPoolGetBlock(h, &result), nullptr);
    EXPECT_EQ(result, ERR_INVALID_POOL);
    EXPECT_EQ(MemPoolCreateStatic(16, sizeof area, nullptr, &result), RTS_INVALID_HANDLE);
    EXPECT_EQ(result, ERR_PARAMETER);
    // The result pointer is optional.
    EXPECT_EQ(MemPoolCreateStatic(16, 1, area, nullptr), RTS_INVALID_HANDLE);
}

// The alignment skip of an unaligned area counts against its size; a pool of block size 0 starts
// where the area starts.
TEST_F(CreateTest, UnalignedStaticAreaLosesTheSkip) {
    const RTS_SIZE need = 16 + MEMPOOL_PCB_SIZE + MEMPOOL_BLOCK_HEADER_SIZE;
    std::vector<unsigned char> buffer(need + 2 * MEMPOOL_ALIGN);
    unsigned char *aligned = AlignedStart(buffer.data());
    for (RTS_SIZE offset = 1; offset < MEMPOOL_ALIGN; ++offset) {
        unsigned char *area = aligned + offset;
        const RTS_SIZE skip = MEMPOOL_ALIGN - offset;
        RTS_RESULT result = ERR_OK;
        EXPECT_EQ(MemPoolCreateStatic(16, need + skip - 1, area, &result), RTS_INVALID_HANDLE) << offset;
        EXPECT_EQ(result, ERR_NOMEMORY);
        RTS_HANDLE h = MemPoolCreateStatic(16, need + skip, area, &result);
        ASSERT_EQ(result, ERR_OK) << offset;
        EXPECT_EQ(h, static_cast<RTS_HANDLE>(area + skip));
        EXPECT_EQ(Drain(h).size(), 1u);
        h = MemPoolCreateStatic(0, MEMPOOL_PCB_SIZE, area, &result);
        ASSERT_EQ(result, ERR_OK);
        EXPECT_EQ(h, static_cast<RTS_HANDLE>(area));
        EXPECT_EQ(PcbCopy(h).pFreeList, nullptr);
        EXPECT_EQ(PcbCopy(h).hSem, FakeSemHandle(g_rec.semCreated));
        EXPECT_EQ(MemPoolLock(h), ERR_OK);
        EXPECT_EQ(MemPoolUnlock(h), ERR_OK);
        EXPECT_EQ(MemPoolDelete(h, "T"), ERR_OK);
    }
}

TEST_F(CreateTest, StaticPoolZeroesItsAreaAndLaysOutBlocks) {
    std::vector<unsigned char> buffer(MEMPOOL_STATIC_AREA_SIZE(20, 3) + 16, 0x77);
    unsigned char *area = AlignedStart(buffer.data());
    const RTS_SIZE size = MEMPOOL_STATIC_AREA_SIZE(20, 3);
    RTS_HANDLE h = MemPoolCreateStatic(20, size, area, nullptr);
    ASSERT_EQ(h, static_cast<RTS_HANDLE>(area));
    const MEMPOOL_PCB pcb = PcbCopy(h);
    EXPECT_EQ(pcb.ulBlockSizeAndFlags, Aligned(20));
    EXPECT_EQ(pcb.ulBlockSizeAndFlags & MEMPOOL_FLAG_DYNAMIC, 0u);
    EXPECT_EQ(pcb.pExtensions, nullptr);
    EXPECT_EQ(pcb.pUsedList, nullptr);
    unsigned char *first = area + MEMPOOL_PCB_SIZE;
    EXPECT_EQ(pcb.pFreeList, reinterpret_cast<MEMPOOL_BLOCK *>(first));
    for (int i = 0; i < 3; ++i) {
        auto *header = reinterpret_cast<MEMPOOL_BLOCK *>(first + i * Stride(20));
        EXPECT_EQ(header->ulReserved, 0u);
        EXPECT_EQ(header->pPool, static_cast<MEMPOOL_PCB *>(h));
        EXPECT_EQ(header->pNext, i < 2 ? reinterpret_cast<MEMPOOL_BLOCK *>(first + (i + 1) * Stride(20)) : nullptr);
        EXPECT_TRUE(AllBytes(header + 1, Aligned(20), 0));
    }
    // Every usable byte was cleared, the spare words too; nothing behind the area was touched.
    EXPECT_TRUE(AllBytes(first + 3 * Stride(20), size - MEMPOOL_PCB_SIZE - 3 * Stride(20), 0));
    EXPECT_EQ(area[size], 0x77);
    EXPECT_EQ(MemPoolDelete(h, "T"), ERR_OK);
}

TEST_F(CreateTest, DynamicPoolAllocatesBlocksAndControlBlock) {
    RTS_RESULT result = ERR_FAILED;
    RTS_HANDLE h = MemPoolCreateDynamic("CmpX", 4, 30, &result);
    ASSERT_EQ(result, ERR_OK);
    ASSERT_EQ(g_rec.allocSizes.size(), 1u);
    EXPECT_EQ(g_rec.allocSizes[0], Stride(30) * 4 + MEMPOOL_PCB_SIZE);
    EXPECT_EQ(g_rec.allocNames[0], "CmpX");
    ASSERT_EQ(g_rec.live.count(h), 1u);
    const MEMPOOL_PCB pcb = PcbCopy(h);
    EXPECT_EQ(pcb.ulBlockSizeAndFlags, Aligned(30) | MEMPOOL_FLAG_DYNAMIC);
    EXPECT_EQ(pcb.hSem, FakeSemHandle(1));
    EXPECT_EQ(pcb.pExtensions, nullptr);
    EXPECT_EQ(pcb.pUsedList, nullptr);
    auto *first = static_cast<unsigned char *>(h) + MEMPOOL_PCB_SIZE;
    EXPECT_EQ(pcb.pFreeList, reinterpret_cast<MEMPOOL_BLOCK *>(first));
    // The new pool's memory is zeroed, not left as the memory service returned it (0x5A).
    for (int i = 0; i < 4; ++i) {
        auto *header = reinterpret_cast<MEMPOOL_BLOCK *>(first + i * Stride(30));
        EXPECT_EQ(header->ulReserved, 0u);
        EXPECT_EQ(header->pPool, static_cast<MEMPOOL_PCB *>(h));
        EXPECT_TRUE(AllBytes(header + 1, Aligned(30), 0));
    }
    std::vector<void *> blocks = Drain(h);
    ASSERT_EQ(blocks.size(), 4u);
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(blocks[i], first + i * Stride(30) + MEMPOOL_BLOCK_HEADER_SIZE);
    EXPECT_EQ(MemPoolDelete(h, "CmpX"), ERR_OK);
    EXPECT_EQ(g_rec.freed, (std::vector<void *>{h}));
    EXPECT_EQ(g_rec.freeNames, (std::vector<std::string>{"CmpX"}));
}

TEST_F(CreateTest, DynamicPoolFailures) {
    RTS_RESULT result = ERR_OK;
    g_rec.failAllocsAfter = 0;
    EXPECT_EQ(MemPoolCreateDynamic("X", 2, 8, &result), RTS_INVALID_HANDLE);
    EXPECT_EQ(result, ERR_NOMEMORY);
    // A size that cannot be represented is out of memory without asking the service.
    g_rec.failAllocsAfter = -1;
    g_rec.allocSizes.clear();
    EXPECT_EQ(MemPoolCreateDynamic("X", 2, static_cast<RTS_SIZE>(MEMPOOL_SIZE_MASK) + 1, &result), RTS_INVALID_HANDLE);
    EXPECT_EQ(result, ERR_NOMEMORY);
    EXPECT_EQ(MemPoolCreateDynamic("X", 0xFFFFFFFFu, MEMPOOL_SIZE_MASK - 64, &result), RTS_INVALID_HANDLE);
    EXPECT_EQ(result, ERR_NOMEMORY);
    if (sizeof(void *) == 4) {
        EXPECT_TRUE(g_rec.allocSizes.empty());
    }
    Restart(Services{false, true, false, true});
    EXPECT_EQ(MemPoolCreateDynamic("X", 2, 8, &result), RTS_INVALID_HANDLE);
    EXPECT_EQ(result, ERR_NO_COMPONENT);
    EXPECT_TRUE(g_rec.semTrace.empty());
}

// A pool created with 0 blocks still points its free list right behind the control block, which
// is just past its memory. The head is compared, never followed.
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
    alignas(8) unsigned char area[MEMPOOL_STATIC_AREA_SIZE(8, 1)];
    RTS_HANDLE h = MemPoolCreateStatic(8, sizeof area, area, nullptr);
    RTS_RESULT result = ERR_FAILED;
    EXPECT_EQ(MemPoolGetPCB(h, &result), static_cast<MEMPOOL_PCB *>(h));
    EXPECT_EQ(result, ERR_OK);
    EXPECT_EQ(MemPoolGetPCB(RTS_INVALID_HANDLE, &result), nullptr);
    EXPECT_EQ(result, ERR_PARAMETER);
    EXPECT_EQ(MemPoolGetPCB(nullptr, nullptr), nullptr);
    EXPECT_EQ(MemPoolDelete(h, "T"), ERR_OK);
}

} // namespace
} // namespace kestrel::test::mempool
