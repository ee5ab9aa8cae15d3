// Blocks of the pools of equal blocks: hand-out and return through the free list, the used list
// that tracks blocks a user wants to find again, and the searches and walks over it.
// Get and put are the hot paths, built from the templates of MemPoolInternal.h.
#include "MemPoolInternal.h"

using namespace kestrel::mempool;

namespace {

__attribute__((noinline)) void *GetBlockLockedNarrow(Pcb *pcb, RTS_RESULT *pResult) {
    return GetBlockAnyLock<ZeroTakenBlock<16>>(pcb, pResult);
}

__attribute__((noinline)) void *GetBlockSemaphoreLockedNarrow(Pcb *pcb, RTS_RESULT *pResult) {
    return GetBlockLocked<SemaphoreLock, ZeroTakenBlock<16>>(pcb, pResult);
}

__attribute__((noinline)) RTS_RESULT PutBlockOutOfLineNarrow(Pcb *pcb, void *pBlock) {
    return PutBlockOutOfLine<16>(pcb, pBlock);
}

// Pool of a block as recorded in its header, or null for a null payload or an unowned block.
inline Pcb *PoolOfBlock(void *pBlock) {
    if (KESTREL_UNLIKELY(pBlock == nullptr))
        return nullptr;
    return PcbOf(HeaderOf(pBlock)->pPool);
}

void PushUsed(Pcb *pcb, MEMPOOL_BLOCK *pHeader) {
    LockPcb(pcb);
    pHeader->pNext = pcb->pUsedList;
    pcb->pUsedList = pHeader;
    UnlockPcb(pcb);
}

void AppendUsed(Pcb *pcb, MEMPOOL_BLOCK *pHeader) {
    LockPcb(pcb);
    pHeader->pNext = nullptr;
    MEMPOOL_BLOCK **ppLink = &pcb->pUsedList;
    while (*ppLink != nullptr)
        ppLink = &(*ppLink)->pNext;
    *ppLink = pHeader;
    UnlockPcb(pcb);
}

// Unlinks a block from the used list; the removed block keeps its stale link.
bool RemoveUsed(Pcb *pcb, MEMPOOL_BLOCK *pHeader) {
    LockPcb(pcb);
    bool bFound = false;
    for (MEMPOOL_BLOCK **ppLink = &pcb->pUsedList; *ppLink != nullptr; ppLink = &(*ppLink)->pNext) {
        if (*ppLink == pHeader) {
            *ppLink = pHeader->pNext;
            bFound = true;
            break;
        }
    }
    UnlockPcb(pcb);
    return bFound;
}

} // namespace

namespace kestrel::mempool {

RTS_RESULT LinkFreeBlockAnyLock(void *pBlock) {
    return LinkFreeBlockLocked<AnyLock>(pBlock);
}

RTS_RESULT LinkFreeBlockSemaphoreLock(void *pBlock) {
    return LinkFreeBlockLocked<SemaphoreLock>(pBlock);
}

} // namespace kestrel::mempool

extern "C" {

void *MemPoolGetBlock(RTS_HANDLE hMemPool, RTS_RESULT *pResult) {
    return GetBlock<16, GetBlockLockedNarrow, GetBlockSemaphoreLockedNarrow>(hMemPool, pResult);
}

void *MemPoolGetBlock2(RTS_HANDLE hMemPool, RTS_UI32 ulNumBlocksIgnored, const char *pszComponentName,
                       RTS_RESULT *pResult) {
    void *pBlock = MemPoolGetBlock(hMemPool, pResult);
    if (pBlock != nullptr)
        return pBlock;
    // The pool grows by exactly one block, whatever the caller asked for.
    if (MemPoolExtendDynamic(hMemPool, pszComponentName, 1) == ERR_OK) {
        pBlock = MemPoolGetBlock(hMemPool, pResult);
        if (pBlock != nullptr)
            return pBlock;
    }
    SetResult(pResult, ERR_NOMEMORY);
    return nullptr;
}

RTS_RESULT MemPoolPutBlock(void *pBlock) {
    return PutBlock<16, PutBlockOutOfLineNarrow>(pBlock);
}

RTS_RESULT MemPoolAddUsedBlock(void *pBlock) {
    Pcb *pcb = PoolOfBlock(pBlock);
    if (pcb == nullptr)
        return ERR_PARAMETER;
    PushUsed(pcb, HeaderOf(pBlock));
    return ERR_OK;
}

RTS_RESULT MemPoolAppendUsedBlock(void *pBlock) {
    Pcb *pcb = PoolOfBlock(pBlock);
    if (pcb == nullptr)
        return ERR_PARAMETER;
    AppendUsed(pcb, HeaderOf(pBlock));
    return ERR_OK;
}

RTS_RESULT MemPoolInsertUsedBlock(void *pPrevBlock, void *pBlock) {
    Pcb *pcb = PoolOfBlock(pBlock);
    if (pcb == nullptr)
        return ERR_PARAMETER;
    if (pPrevBlock == nullptr) {
        PushUsed(pcb, HeaderOf(pBlock));
        return ERR_OK;
    }
    MEMPOOL_BLOCK *pPrev = HeaderOf(pPrevBlock);
    if (PcbOf(pPrev->pPool) != pcb)
        return ERR_PARAMETER;
    MEMPOOL_BLOCK *pHeader = HeaderOf(pBlock);
    LockPcb(pcb);
    pHeader->pNext = pPrev->pNext;
    pPrev->pNext = pHeader;
    UnlockPcb(pcb);
    return ERR_OK;
}

RTS_RESULT MemPoolRemoveUsedBlock(void *pBlock) {
    Pcb *pcb = PoolOfBlock(pBlock);
    if (pcb == nullptr)
        return ERR_PARAMETER;
    return RemoveUsed(pcb, HeaderOf(pBlock)) ? ERR_OK : ERR_PARAMETER;
}

RTS_RESULT MemPoolAddUsedBlockToPool(void *pBlock, RTS_HANDLE hMemPool) {
    Pcb *pcb = PcbOf(hMemPool);
    if (pBlock == nullptr || pcb == nullptr)
        return ERR_PARAMETER;
    PushUsed(pcb, HeaderOf(pBlock));
    return ERR_OK;
}

RTS_RESULT MemPoolAppendUsedBlockToPool(void *pBlock, RTS_HANDLE hMemPool) {
    Pcb *pcb = PcbOf(hMemPool);
    if (pBlock == nullptr || pcb == nullptr)
        return ERR_PARAMETER;
    AppendUsed(pcb, HeaderOf(pBlock));
    return ERR_OK;
}

// Unlike MemPoolRemoveUsedBlock, a block that is not on the list is no error here.
RTS_RESULT MemPoolRemoveUsedBlockFromPool(void *pBlock, RTS_HANDLE hMemPool) {
    Pcb *pcb = PcbOf(hMemPool);
    if (pBlock == nullptr || pcb == nullptr)
        return ERR_PARAMETER;
    RemoveUsed(pcb, HeaderOf(pBlock));
    return ERR_OK;
}

RTS_RESULT MemPoolLockBlock(void *pBlock) {
    Pcb *pcb = PoolOfBlock(pBlock);
    if (pcb == nullptr)
        return ERR_PARAMETER;
    LockPcb(pcb);
    return ERR_OK;
}

RTS_RESULT MemPoolUnlockBlock(void *pBlock) {
    Pcb *pcb = PoolOfBlock(pBlock);
    if (pcb == nullptr)
        return ERR_PARAMETER;
    UnlockPcb(pcb);
    return ERR_OK;
}

void *MemPoolFindBlock(RTS_HANDLE hMemPool, RTS_SIZE ulOffset, RTS_SIZE ulLen, const void *pCompare,
                       RTS_RESULT *pResult) {
    // The lock is taken before the handle is looked at; with an invalid handle the lock call
    // itself fails and the search finds nothing.
    MemPoolLock(hMemPool);
    Pcb *pcb = PcbOf(hMemPool);
    void *pFound = nullptr;
    // A comparison that would reach past the payload can match no block.
    if (pcb != nullptr && (pCompare != nullptr || ulLen == 0) && ulOffset <= BlockSizeOf(pcb) &&
        ulLen <= BlockSizeOf(pcb) - ulOffset) {
        for (MEMPOOL_BLOCK *pHeader = pcb->pUsedList; pHeader != nullptr; pHeader = pHeader->pNext) {
            auto *pPayload = static_cast<unsigned char *>(PayloadOf(pHeader));
            if (ulLen == 0 || std::memcmp(pPayload + ulOffset, pCompare, ulLen) == 0) {
                pFound = pPayload;
                break;
            }
        }
    }
    MemPoolUnlock(hMemPool);
    SetResult(pResult, pFound != nullptr ? ERR_OK : ERR_PARAMETER);
    return pFound;
}

RTS_RESULT MemPoolIsValidBlock(RTS_HANDLE hMemPool, void *pBlock) {
    Pcb *pcb = PcbOf(hMemPool);
    if (pcb == nullptr || pBlock == nullptr)
        return ERR_PARAMETER;
    LockPcb(pcb);
    MEMPOOL_BLOCK *pWanted = HeaderOf(pBlock);
    for (MEMPOOL_BLOCK *pHeader = pcb->pUsedList; pHeader != nullptr; pHeader = pHeader->pNext) {
        // Found: the pool stays locked and the caller unlocks when done with the block.
        if (pHeader == pWanted)
            return ERR_OK;
    }
    UnlockPcb(pcb);
    return ERR_FAILED;
}

void *MemPoolGetFirstBlock(RTS_HANDLE hMemPool, RTS_RESULT *pResult) {
    Pcb *pcb = PcbOf(hMemPool);
    if (pcb == nullptr) {
        SetResult(pResult, ERR_PARAMETER);
        return nullptr;
    }
    LockPcb(pcb);
    MEMPOOL_BLOCK *pFirst = pcb->pUsedList;
    UnlockPcb(pcb);
    SetResult(pResult, pFirst != nullptr ? ERR_OK : ERR_NO_OBJECT);
    return pFirst != nullptr ? PayloadOf(pFirst) : nullptr;
}

// The end of the list is no error here, unlike an empty list in MemPoolGetFirstBlock.
void *MemPoolGetNextBlock(RTS_HANDLE hMemPool, void *pPrevBlock, RTS_RESULT *pResult) {
    Pcb *pcb = PcbOf(hMemPool);
    if (pcb == nullptr || pPrevBlock == nullptr) {
        SetResult(pResult, ERR_PARAMETER);
        return nullptr;
    }
    LockPcb(pcb);
    MEMPOOL_BLOCK *pNext = HeaderOf(pPrevBlock)->pNext;
    UnlockPcb(pcb);
    SetResult(pResult, ERR_OK);
    return pNext != nullptr ? PayloadOf(pNext) : nullptr;
}

} // extern "C"
