// Fixed-block pools: blocks of one size handed out from chunks without any pre-linking. Free
// blocks of a chunk are chained by index through their first word, untouched blocks come from
// the chunk's high-water mark, and the pool grows by one allocated chunk when all are full.
// There is no lock: the owner of the descriptor serialises access.
#include <cstdint>

#include "MemPoolInternal.h"

using namespace kestrel::mempool;

namespace {

constexpr RTS_SIZE kChunkHeader = FIXEDBLOCKS_CHUNK_HEADER_SIZE;
// Block addresses handed to FixedBlocksPoolFree must at least be aligned to the index word.
constexpr RTS_UINTPTR kAddressGranule = sizeof(RTS_UI32);

inline Chunk *FirstChunk(const FIXEDBLOCKSPOOL *pPool) {
    return reinterpret_cast<Chunk *>(pPool->pChunks);
}
inline Chunk *NextChunk(const Chunk *pChunk) {
    return reinterpret_cast<Chunk *>(pChunk->pNext);
}
inline unsigned char *BlocksOf(const Chunk *pChunk) {
    return static_cast<unsigned char *>(pChunk->pBlocks);
}

// Index of the block that holds a byte offset into the block space. The block size is a power of
// two for most pools, where a shift replaces the division.
inline RTS_SIZE IndexOf(RTS_SIZE offset, RTS_UI32 s) {
    if (KESTREL_LIKELY((s & (s - 1)) == 0))
        return offset >> __builtin_ctz(s);
    return offset / s;
}

// Free blocks keep the index of the next free block of their chunk in their first word.
inline RTS_UI32 LoadIndex(const unsigned char *pBlock) {
    RTS_UI32 index;
    std::memcpy(&index, pBlock, sizeof index);
    return index;
}
inline void StoreIndex(unsigned char *pBlock, RTS_UI32 index) {
    std::memcpy(pBlock, &index, sizeof index);
}

// Makes every block of a chunk untouched again and fills the block space.
void ReclaimChunk(Chunk *pChunk, RTS_UI32 s, RTS_UI32 n) {
    unsigned char *pStart = reinterpret_cast<unsigned char *>(pChunk) + kChunkHeader;
    unsigned char *pBlocks = n != 0 ? AlignUp(pStart) : pStart;
    pChunk->pBlocks = pBlocks;
    std::memset(pBlocks, kFillFree, static_cast<RTS_SIZE>(s) * n);
    pChunk->ulFreeIndex = 0;
    pChunk->ulHighWater = 0;
}

// Allocates the first chunk, or a further one, through the memory service; the service's result,
// or 24 without a memory service, or 17 when the service answered success without memory.
void *AllocChunk(RTS_SIZE bytes, RTS_RESULT *pResult) {
    auto pfAlloc = ImportedSysMemAllocData();
    if (pfAlloc == nullptr) {
        *pResult = ERR_NO_COMPONENT;
        return nullptr;
    }
    RTS_RESULT result = ERR_OK;
    void *pMemory = pfAlloc(nullptr, bytes, &result);
    if (result == ERR_OK && pMemory == nullptr)
        result = ERR_NOMEMORY;
    if (result != ERR_OK && pMemory != nullptr) {
        if (auto pfFree = ImportedSysMemFreeData())
            pfFree(nullptr, pMemory);
        pMemory = nullptr;
    }
    *pResult = result;
    return pMemory;
}

// A new chunk of blocks when every chunk is full: zeroed, block 0 handed out at once. Kept out of
// line, so that allocation from a chunk with room needs no call.
__attribute__((noinline)) void *AllocFromNewChunk(FIXEDBLOCKSPOOL *pPool, RTS_RESULT *pResult) {
    const RTS_SIZE blockBytes = static_cast<RTS_SIZE>(pPool->ulBlockSize) * pPool->ulBlocksPerChunk;
    const RTS_SIZE bytes = blockBytes + kChunkHeader + MEMPOOL_ALIGN;
    RTS_RESULT result = ERR_OK;
    auto *pMemory = static_cast<unsigned char *>(AllocChunk(bytes, &result));
    if (pMemory == nullptr) {
        SetResult(pResult, result);
        return nullptr;
    }
    std::memset(pMemory, 0, bytes);
    Chunk *pChunk = reinterpret_cast<Chunk *>(pMemory);
    // The chunk carries one alignment's worth of slack, so block 0 can start at the first aligned
    // address behind the header.
    unsigned char *pBlocks = AlignUp(pMemory + kChunkHeader);
    pChunk->pBlocks = pBlocks;
    pChunk->ulFreeIndex = 1;
    pChunk->ulHighWater = 1;
    pChunk->pNext = pPool->pChunks;
    pPool->pChunks = reinterpret_cast<FIXEDBLOCKSCHUNK *>(pChunk);
    pPool->ulCapacity += blockBytes;
    pPool->ulUsed += pPool->ulBlockSize;
    SetResult(pResult, ERR_OK);
    return pBlocks;
}

} // namespace

extern "C" {

RTS_RESULT FixedBlocksPoolInit(FIXEDBLOCKSPOOL *pPool, const FIXEDBLOCKSMEMORY *pMemory, RTS_UI32 ulBlockSize,
                               RTS_UI32 ulBlocksPerChunk) {
    if (pPool == nullptr)
        return ERR_PARAMETER;
    *pPool = FIXEDBLOCKSPOOL{};
    // Without blocks per chunk the pool has no chunk at all; allocation then fails with 3.
    if (ulBlocksPerChunk == 0)
        return ERR_OK;
    const bool bStatic = pMemory != nullptr && pMemory->pMemory != nullptr;
    const RTS_SIZE s = AlignUp(static_cast<RTS_SIZE>(ulBlockSize));
    if (ulBlockSize > UINT32_MAX - (MEMPOOL_ALIGN - 1) ||
        (s != 0 && ulBlocksPerChunk > (SIZE_MAX - kChunkHeader - MEMPOOL_ALIGN) / s))
        return bStatic ? ERR_PARAMETER : ERR_NOMEMORY;
    const RTS_SIZE blockBytes = s * ulBlocksPerChunk;
    const RTS_SIZE needed = blockBytes + kChunkHeader;

    RTS_RESULT result = ERR_PARAMETER;
    void *pChunk = nullptr;
    if (!bStatic) {
        pChunk = AllocChunk(needed + MEMPOOL_ALIGN, &result);
    } else {
        // The blocks start at the first aligned address behind the header, so the area must
        // hold the header, the alignment padding in front of the blocks, and the blocks.
        auto *pArea = static_cast<unsigned char *>(pMemory->pMemory);
        const RTS_SIZE padding = static_cast<RTS_SIZE>(AlignUp(pArea + kChunkHeader) - (pArea + kChunkHeader));
        if (pMemory->ulSize > MEMPOOL_ALIGN && pMemory->ulSize - padding >= needed) {
            pPool->pStaticChunk = pArea;
            pChunk = pArea;
            result = ERR_OK;
        }
    }
    if (result == ERR_OK && pChunk != nullptr) {
        pPool->pChunks = static_cast<FIXEDBLOCKSCHUNK *>(pChunk);
        std::memset(pChunk, 0, kChunkHeader);
        pPool->ulBlockSize = static_cast<RTS_UI32>(s);
        pPool->ulBlocksPerChunk = ulBlocksPerChunk;
        pPool->ulCapacity = blockBytes;
        pPool->ulUsed = 0;
        FixedBlocksPoolReclaim(pPool);
    }
    if (result == ERR_OK)
        pPool->ulFlags |= FIXEDBLOCKS_FLAG_INITIALIZED;
    return result;
}

void *FixedBlocksPoolAlloc(FIXEDBLOCKSPOOL *pPool, RTS_SIZE ulSize, RTS_RESULT *pResult) {
    if (KESTREL_UNLIKELY(pPool == nullptr || ulSize == 0)) {
        SetResult(pResult, ERR_PARAMETER);
        return nullptr;
    }
    if (KESTREL_UNLIKELY(pPool->pChunks == nullptr)) {
        SetResult(pResult, ERR_NOT_INITIALIZED);
        return nullptr;
    }
    const RTS_UI32 s = pPool->ulBlockSize;
    if (KESTREL_UNLIKELY(ulSize > s)) {
        SetResult(pResult, ERR_SIZE_TOO_LARGE);
        return nullptr;
    }
    const RTS_UI32 n = pPool->ulBlocksPerChunk;
    for (Chunk *pChunk = FirstChunk(pPool); pChunk != nullptr; pChunk = NextChunk(pChunk)) {
        const RTS_UI32 freeIndex = pChunk->ulFreeIndex;
        if (freeIndex < n) {
            unsigned char *pBlock = BlocksOf(pChunk) + static_cast<RTS_SIZE>(freeIndex) * s;
            if (freeIndex == pChunk->ulHighWater) {
                pChunk->ulFreeIndex = freeIndex + 1;
                pChunk->ulHighWater = freeIndex + 1;
            } else {
                pChunk->ulFreeIndex = LoadIndex(pBlock);
            }
            pPool->ulUsed += s;
            SetResult(pResult, ERR_OK);
            return pBlock;
        }
    }
    return AllocFromNewChunk(pPool, pResult);
}

RTS_RESULT FixedBlocksPoolFree(FIXEDBLOCKSPOOL *pPool, void *pBlock) {
    if (KESTREL_UNLIKELY(pPool == nullptr || pBlock == nullptr))
        return ERR_PARAMETER;
    if (KESTREL_UNLIKELY(pPool->pChunks == nullptr))
        return ERR_NOT_INITIALIZED;
    const RTS_UINTPTR address = reinterpret_cast<RTS_UINTPTR>(pBlock);
    const RTS_UI32 s = pPool->ulBlockSize;
    // A pool of block size 0 has no block space, so nothing can be one of its blocks.
    if (KESTREL_UNLIKELY((address & (kAddressGranule - 1)) != 0 || s == 0))
        return ERR_FAILED;
    const RTS_SIZE lastOffset = static_cast<RTS_SIZE>(pPool->ulBlocksPerChunk - 1) * s;
    for (Chunk *pChunk = FirstChunk(pPool); pChunk != nullptr; pChunk = NextChunk(pChunk)) {
        unsigned char *pBlocks = BlocksOf(pChunk);
        const RTS_UINTPTR base = reinterpret_cast<RTS_UINTPTR>(pBlocks);
        if (address < base || address - base > lastOffset)
            continue;
        // An address inside a block frees that block. The block ends up filled with 0xAA except
        // for its first word, which links it to the chunk's free blocks; the word is written
        // first, so that the fill is the last step and the bookkeeping needs nothing kept across it.
        const RTS_SIZE index = IndexOf(address - base, s);
        unsigned char *pStart = pBlocks + index * s;
        StoreIndex(pStart, pChunk->ulFreeIndex);
        pChunk->ulFreeIndex = static_cast<RTS_UI32>(index);
        pPool->ulUsed -= s;
        FillPayload(pStart + sizeof(RTS_UI32), kFillFree, s - sizeof(RTS_UI32));
        return ERR_OK;
    }
    return ERR_FAILED;
}

RTS_RESULT FixedBlocksPoolReclaim(FIXEDBLOCKSPOOL *pPool) {
    if (pPool == nullptr || pPool->pChunks == nullptr)
        return ERR_PARAMETER;
    for (Chunk *pChunk = FirstChunk(pPool); pChunk != nullptr; pChunk = NextChunk(pChunk))
        ReclaimChunk(pChunk, pPool->ulBlockSize, pPool->ulBlocksPerChunk);
    pPool->ulUsed = 0;
    return ERR_OK;
}

RTS_RESULT FixedBlocksPoolDestroy(FIXEDBLOCKSPOOL *pPool) {
    if (pPool == nullptr)
        return ERR_PARAMETER;
    RTS_RESULT result = ERR_OK;
    if (pPool->ulBlockSize != 0 && pPool->ulBlocksPerChunk != 0) {
        // The caller's area is never freed; allocated chunks go back one by one until one fails.
        auto pfFree = ImportedSysMemFreeData();
        for (Chunk *pChunk = FirstChunk(pPool); pChunk != nullptr;) {
            Chunk *pNext = NextChunk(pChunk);
            if (static_cast<void *>(pChunk) != pPool->pStaticChunk) {
                result = pfFree != nullptr ? pfFree(nullptr, pChunk) : ERR_NO_COMPONENT;
                if (result != ERR_OK)
                    break;
            }
            pChunk = pNext;
        }
    }
    *pPool = FIXEDBLOCKSPOOL{};
    return result;
}

} // extern "C"
