// Creating pools: the size figures (literal on the 32-bit build), static pools on caller areas of
// every alignment, dynamic pools through the memory service, and the zeroing of new pools.
#include <cstddef>

#include "MemPoolTestSupport.h"

namespace kestrel::test::mempool {
namespace {

using CreateTest = MemPoolTest;

// The figures through the named constants: derived from the pointer size on every build, and the
// literal figures of the design on the 32-bit build. The offsets fix the order of the fields. (What
// a static pool needs, s + 32 bytes or 20 for block size 0 there, is checked with the areas below.)
TEST(MemPoolSizes, FollowThePointerSize) {
    const RTS_SIZE p = sizeof(void *);
    const Sizes sizes = {
        MEMPOOL_PCB_SIZE,      MEMPOOL_BLOCK_HEADER_SIZE, MEMPOOL_EXTENSION_HEADER_SIZE, FIXEDBLOCKS_CHUNK_HEADER_SIZE,
        MEMPOOL_ALIGN_SIZE(1), MEMPOOL_ALIGN_SIZE(p)};
    const Sizes offsets = {offsetof(MEMPOOL_PCB, hSem),
                           offsetof(MEMPOOL_PCB, pExtensions),
                           offsetof(MEMPOOL_PCB, pFreeList),
                           offsetof(MEMPOOL_PCB, pUsedList),
                           offsetof(MEMPOOL_BLOCK, pNext),
                           offsetof(MEMPOOL_BLOCK, pPool),
                           offsetof(FIXEDBLOCKSPOOL, ulBlockSize),
                           offsetof(FIXEDBLOCKSCHUNK, ulFreeIndex)};
    EXPECT_EQ(sizes, (Sizes{5 * p, 3 * p, 2 * p, 2 * p + 8, p, p}));
    EXPECT_EQ(offsets, (Sizes{p, 2 * p, 3 * p, 4 * p, p, 2 * p, 2 * p, 2 * p}));
    if (p != 4)
        return; // the literal figures hold for the 32-bit build
    EXPECT_EQ(sizes, (Sizes{20, 12, 8, 16, 4, 4}));
    EXPECT_EQ(offsets, (Sizes{4, 8, 12, 16, 4, 8, 8, 8}));
    EXPECT_EQ(sizeof(FIXEDBLOCKSPOOL), 28u);
    EXPECT_EQ(MEMPOOL_STATIC_AREA_SIZE(12, 5), 148u);
    EXPECT_EQ(MEMPOOL_STATIC_AREA_SIZE(sizeof(ComponentInfo), 40), 2588u); // of 52-byte records
}

// An area must hold a block, the overhead and the skip to the next aligned address; one of
// MEMPOOL_STATIC_AREA_SIZE(s, n) holds exactly n blocks, however it is aligned. A pool of block
// size 0 has no blocks and needs only the control block, which starts where the area does.
TEST_F(CreateTest, StaticPoolsOnAreasOfEveryAlignment) {
    const RTS_SIZE need = 16 + MEMPOOL_PCB_SIZE + kHeader;
    std::vector<unsigned char> buffer(MEMPOOL_STATIC_AREA_SIZE(52, 40) + MEMPOOL_ALIGN);
    for (RTS_SIZE offset = 0; offset < MEMPOOL_ALIGN; ++offset) {
        SCOPED_TRACE(offset);
        unsigned char *area = AlignedStart(buffer.data()) + offset;
        RTS_HANDLE h = AlignedStart(area);
        const RTS_SIZE skip = Bytes(h) - area;
        EXPECT_EQ(Call(MemPoolCreateStatic, 16, need + skip - 1, area), (Answer{RTS_INVALID_HANDLE, ERR_NOMEMORY}));
        EXPECT_EQ(Call(MemPoolCreateStatic, 16, need + skip, area), (Answer{h, ERR_OK}));
        EXPECT_EQ(Drain(h).size(), 1u);
        for (const auto &[s, n] : {std::pair<RTS_SIZE, RTS_SIZE>{12, 5}, {52, 40}, {1, 3}, {100, 1}})
            EXPECT_EQ(Drain(MemPoolCreateStatic(s, MEMPOOL_STATIC_AREA_SIZE(s, n), area, nullptr)).size(), n) << s;
        EXPECT_EQ(Call(MemPoolCreateStatic, 0, MEMPOOL_PCB_SIZE - 1, area), (Answer{RTS_INVALID_HANDLE, ERR_NOMEMORY}));
        ASSERT_EQ(Call(MemPoolCreateStatic, 0, MEMPOOL_PCB_SIZE, area), (Answer{RTS_HANDLE{area}, ERR_OK}));
        RTS_HANDLE hSem = nullptr; // a lock object, too; the control block need not be aligned
        std::memcpy(&hSem, area + offsetof(MEMPOOL_PCB, hSem), sizeof hSem);
        EXPECT_EQ(hSem, FakeSemHandle(g_rec.semCreated));
        EXPECT_EQ(Call(MemPoolGetBlock, RTS_HANDLE{area}), (Answer{nullptr, ERR_INVALID_POOL}));
    }
    EXPECT_EQ(Call(MemPoolCreateStatic, 16, need, nullptr), (Answer{RTS_INVALID_HANDLE, ERR_PARAMETER}));
    EXPECT_EQ(MemPoolCreateStatic(16, 1, buffer.data(), nullptr), RTS_INVALID_HANDLE); // no result pointer
}

// Static areas arrive filled with 0x77, the memory service's blocks with 0x5A: a new pool is zeroed
// all the same and holds its blocks behind the control block, chained in order (also with 0 blocks
// its free list starts there, past the memory). Nothing behind a static area is touched.
TEST_F(CreateTest, NewPoolsAreZeroedAndLaidOut) {
    const RTS_SIZE size = MEMPOOL_STATIC_AREA_SIZE(20, 3);
    std::vector<unsigned char> buffer(size + 16, 0x77);
    unsigned char *area = AlignedStart(buffer.data());
    const struct {
        RTS_HANDLE h;
        RTS_SIZE s, n;
        RTS_UI32 flags;
    } pools[] = {{MemPoolCreateStatic(20, size, area, nullptr), 20, 3, 0},
                 {MemPoolCreateDynamic("CmpX", 4, 30, nullptr), 30, 4, MEMPOOL_FLAG_DYNAMIC},
                 {MemPoolCreateDynamic("CmpY", 0, 16, nullptr), 16, 0, MEMPOOL_FLAG_DYNAMIC}};
    for (const auto &[h, s, n, flags] : pools) {
        unsigned char *first = Bytes(h) + MEMPOOL_PCB_SIZE;
        const MEMPOOL_PCB expected = {Aligned(s) | flags, Pcb(h)->hSem, nullptr,
                                      reinterpret_cast<MEMPOOL_BLOCK *>(first), nullptr};
        EXPECT_EQ(std::memcmp(h, &expected, sizeof expected), 0) << s;
        for (RTS_SIZE i = 0; i < n; ++i) {
            auto *next = i + 1 < n ? reinterpret_cast<MEMPOOL_BLOCK *>(first + (i + 1) * Stride(s)) : nullptr;
            const MEMPOOL_BLOCK header = {0, next, Pcb(h)};
            EXPECT_EQ(std::memcmp(first + i * Stride(s), &header, kHeader), 0) << s << " " << i;
            EXPECT_TRUE(AllBytes(first + i * Stride(s) + kHeader, Aligned(s), 0)) << s << " " << i;
        }
    }
    EXPECT_TRUE(AllBytes(area + MEMPOOL_PCB_SIZE + 3 * Stride(20), size - MEMPOOL_PCB_SIZE - 3 * Stride(20), 0));
    EXPECT_EQ(area[size], 0x77);
    EXPECT_EQ(Call(MemPoolGetPCB, pools[1].h), (Answer{Pcb(pools[1].h), ERR_OK}));
    EXPECT_EQ(g_rec.allocSizes, (Sizes{Stride(30) * 4 + MEMPOOL_PCB_SIZE, MEMPOOL_PCB_SIZE}));
    EXPECT_EQ(g_rec.allocNames, (Strings{"CmpX", "CmpY"}));
    EXPECT_EQ(MemPoolDelete(pools[1].h, "CmpX"), ERR_OK);
    EXPECT_EQ(MemPoolDelete(pools[2].h, "CmpY"), ERR_OK);
}

// Out of memory when the service refuses or the size cannot be represented (on the 32-bit build
// without asking the service).
TEST_F(CreateTest, DynamicPoolFailures) {
    g_rec.bFailAllocs = true;
    EXPECT_EQ(Call(MemPoolCreateDynamic, "X", 2, 8), (Answer{RTS_INVALID_HANDLE, ERR_NOMEMORY}));
    g_rec.allocSizes.clear();
    g_rec.bFailAllocs = false;
    EXPECT_EQ(Call(MemPoolCreateDynamic, "X", 2, RTS_SIZE{MEMPOOL_SIZE_MASK} + 1),
              (Answer{RTS_INVALID_HANDLE, ERR_NOMEMORY}));
    EXPECT_EQ(Call(MemPoolCreateDynamic, "X", 0xFFFFFFFFu, MEMPOOL_SIZE_MASK - 64),
              (Answer{RTS_INVALID_HANDLE, ERR_NOMEMORY}));
    EXPECT_EQ(g_rec.allocSizes.size(), sizeof(void *) == 4 ? 0u : 1u);
    EXPECT_TRUE(g_rec.trace.empty());
}

} // namespace
} // namespace kestrel::test::mempool
