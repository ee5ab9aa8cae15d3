// Life cycle of the pools of equal blocks: creation on allocated or caller memory, growth by
// extension chunks, lock objects and the pool lock, cleanup and deletion with the leak report.
// Block hand-out and the used list live in MemPoolBlocks.cpp.
#include <cinttypes>
#include <cstdint>

#include "MemPoolInternal.h"

namespace kestrel::mempool {

// A leaked block is reported with the pool handle and the payload address. The text keeps a plain
// hexadecimal conversion, made pointer-sized so that a 64-bit build shows the whole address
// without handing a pointer to "%x": both values are passed as RTS_UINTPTR, and on the 32-bit
// build PRIxPTR is "x", which gives exactly "...hPool=0x%x, pBlock=0x%x".
const char *const kLeakFormat = "**** Pool leak: Cmp=%s, hPool=0x%" PRIxPTR ", pBlock=0x%" PRIxPTR;

MEMPOOL_BLOCK *LayOutBlocks(void *pFirst, RTS_SIZE n, RTS_SIZE s, MEMPOOL_PCB *pPool) {
    if (n == 0 || pPool == nullptr || pFirst == nullptr)
        return nullptr;
    const RTS_SIZE stride = StrideOf(s);
    auto *p = static_cast<unsigned char *>(pFirst);
    for (RTS_SIZE i = 1; i < n; ++i, p += stride) {
        BlockAt(p)->pPool = pPool;
        BlockAt(p)->pNext = BlockAt(p + stride);
    }
    BlockAt(p)->pPool = pPool;
    BlockAt(p)->pNext = nullptr;
    return BlockAt(p);
}

namespace {

// stride * n + header without wrapping around; false when the figure does not fit a size.
bool ChunkBytes(RTS_SIZE stride, RTS_SIZE n, RTS_SIZE header, RTS_SIZE *pBytes) {
    if (n != 0 && stride > (SIZE_MAX - header) / n)
        return false;
    *pBytes = stride * n + header;
    return true;
}

// Links a laid-out extension chunk in front of the pool's chunks and its blocks in front of the
// free list, so that new blocks are handed out before the older free ones.
void LinkExtension(Pcb *pcb, MEMPOOL_EXTENSION *pExt, MEMPOOL_BLOCK *pFirst, MEMPOOL_BLOCK *pLast) {
    LockPcb(pcb);
    pExt->pNext = pcb->pExtensions;
    pcb->pExtensions = pExt;
    if (pLast != nullptr) {
        pLast->pNext = pcb->pFreeList;
        pcb->pFreeList = pFirst;
    }
    UnlockPcb(pcb);
}

void FreeDynamicExtensions(Pcb *pcb, const char *pszComponentName) {
    auto pfFree = ImportedSysMemFreeData();
    for (MEMPOOL_EXTENSION *pExt = pcb->pExtensions; pExt != nullptr;) {
        MEMPOOL_EXTENSION *pNext = pExt->pNext;
        if (pExt->bDynamic != 0 && pfFree != nullptr)
            pfFree(pszComponentName, pExt);
        pExt = pNext;
    }
    pcb->pExtensions = nullptr;
}

} // namespace
} // namespace kestrel::mempool

using namespace kestrel::mempool;

extern "C" {

RTS_HANDLE MemPoolCreateDynamic(const char *pszComponentName, RTS_UI32 ulNumBlocks, RTS_SIZE ulBlockSize,
                                RTS_RESULT *pResult) {
    auto pfAlloc = ImportedSysMemAllocData();
    if (pfAlloc == nullptr) {
        SetResult(pResult, ERR_NO_COMPONENT);
        return RTS_INVALID_HANDLE;
    }
    // Bit 31 of the size word is the "allocated by the pool" flag, so no block can be that large.
    RTS_SIZE bytes = 0;
    const RTS_SIZE s = AlignUp(ulBlockSize);
    if (ulBlockSize > MEMPOOL_SIZE_MASK || !ChunkBytes(StrideOf(s), ulNumBlocks, MEMPOOL_PCB_SIZE, &bytes)) {
        SetResult(pResult, ERR_NOMEMORY);
        return RTS_INVALID_HANDLE;
    }
    auto *pMemory = static_cast<unsigned char *>(pfAlloc(pszComponentName, bytes, nullptr));
    if (pMemory == nullptr) {
        SetResult(pResult, ERR_NOMEMORY);
        return RTS_INVALID_HANDLE;
    }
    // The whole new pool starts out zeroed, the control block included.
    std::memset(pMemory, 0, bytes);
    Pcb *pcb = reinterpret_cast<Pcb *>(pMemory);
    pcb->ulBlockSizeAndFlags = s;
    pcb->pExtensions = nullptr;
    // The free list starts right behind the control block even when there are no blocks: a pool
    // created with 0 blocks keeps a head that points just past its memory.
    pcb->pFreeList = BlockAt(pMemory + MEMPOOL_PCB_SIZE);
    LayOutBlocks(pMemory + MEMPOOL_PCB_SIZE, ulNumBlocks, s, PoolPtr(pcb));
    MemPoolCreateSyncObject(pcb);
    pcb->ulBlockSizeAndFlags |= MEMPOOL_FLAG_DYNAMIC;
    pcb->pUsedList = nullptr;
    SetResult(pResult, ERR_OK);
    return pcb;
}

RTS_HANDLE MemPoolCreateStatic(RTS_SIZE ulBlockSize, RTS_SIZE ulMemSize, void *pMemory, RTS_RESULT *pResult) {
    if (pMemory == nullptr) {
        SetResult(pResult, ERR_PARAMETER);
        return RTS_INVALID_HANDLE;
    }
    const RTS_SIZE s = AlignUp(ulBlockSize);
    // Only a pool with blocks aligns its control block; one of block size 0 starts where the area does.
    unsigned char *pStart = s != 0 ? AlignUp(pMemory) : static_cast<unsigned char *>(pMemory);
    const RTS_SIZE skip = static_cast<RTS_SIZE>(pStart - static_cast<unsigned char *>(pMemory));
    const RTS_SIZE usable = ulMemSize > skip ? ulMemSize - skip : 0;
    if (ulBlockSize > MEMPOOL_SIZE_MASK ||
        (usable < s + MEMPOOL_PCB_SIZE + MEMPOOL_BLOCK_HEADER_SIZE && (s != 0 || usable < MEMPOOL_PCB_SIZE))) {
        SetResult(pResult, ERR_NOMEMORY);
        return RTS_INVALID_HANDLE;
    }
    std::memset(pStart, 0, usable);
    Pcb *pcb = reinterpret_cast<Pcb *>(pStart);
    pcb->ulBlockSizeAndFlags = s;
    pcb->pExtensions = nullptr;
    if (s != 0) {
        const RTS_SIZE count = (usable - MEMPOOL_PCB_SIZE) / StrideOf(s);
        pcb->pFreeList = BlockAt(pStart + MEMPOOL_PCB_SIZE);
        LayOutBlocks(pStart + MEMPOOL_PCB_SIZE, count, s, PoolPtr(pcb));
    }
    MemPoolCreateSyncObject(pcb);
    pcb->pUsedList = nullptr;
    SetResult(pResult, ERR_OK);
    return pcb;
}

RTS_RESULT MemPoolExtendDynamic(RTS_HANDLE hMemPool, const char *pszComponentName, RTS_UI32 ulNumBlocks) {
    auto pfAlloc = ImportedSysMemAllocData();
    if (pfAlloc == nullptr)
        return ERR_NO_COMPONENT;
    Pcb *pcb = PcbOf(hMemPool);
    if (pcb == nullptr || (pcb->pExtensions != nullptr && pcb->pExtensions->bDynamic == 0))
        return ERR_INVALID_POOL;
    const RTS_SIZE s = BlockSizeOf(pcb);
    RTS_SIZE bytes = 0;
    if (!ChunkBytes(StrideOf(s), ulNumBlocks, MEMPOOL_EXTENSION_HEADER_SIZE, &bytes))
        return ERR_NOMEMORY;
    auto *pMemory = static_cast<unsigned char *>(pfAlloc(pszComponentName, bytes, nullptr));
    if (pMemory == nullptr)
        return ERR_NOMEMORY;
    std::memset(pMemory, kFillExtension, bytes);
    auto *pExt = reinterpret_cast<MEMPOOL_EXTENSION *>(pMemory);
    pExt->bDynamic = 1;
    pExt->pNext = nullptr;
    unsigned char *pFirst = pMemory + MEMPOOL_EXTENSION_HEADER_SIZE;
    MEMPOOL_BLOCK *pLast = LayOutBlocks(pFirst, ulNumBlocks, s, PoolPtr(pcb));
    // A chunk of 0 blocks is linked as a chunk but leaves the free list as it is.
    LinkExtension(pcb, pExt, BlockAt(pFirst), pLast);
    return ERR_OK;
}

RTS_RESULT MemPoolExtendStatic(RTS_HANDLE hMemPool, RTS_SIZE ulMemSize, void *pMemory) {
    Pcb *pcb = PcbOf(hMemPool);
    if (pcb == nullptr || (pcb->ulBlockSizeAndFlags & MEMPOOL_FLAG_DYNAMIC) != 0 ||
        (pcb->pExtensions != nullptr && pcb->pExtensions->bDynamic != 0))
        return ERR_INVALID_POOL;
    if (pMemory == nullptr)
        return ERR_PARAMETER;
    const RTS_SIZE s = BlockSizeOf(pcb);
    unsigned char *pStart = AlignUp(pMemory);
    const RTS_SIZE skip = static_cast<RTS_SIZE>(pStart - static_cast<unsigned char *>(pMemory));
    const RTS_SIZE usable = ulMemSize > skip ? ulMemSize - skip : 0;
    if (usable < s + MEMPOOL_EXTENSION_HEADER_SIZE + MEMPOOL_BLOCK_HEADER_SIZE)
        return ERR_NOMEMORY;
    const RTS_SIZE n = (usable - MEMPOOL_EXTENSION_HEADER_SIZE) / StrideOf(s);
    std::memset(pStart, kFillExtension, StrideOf(s) * n + MEMPOOL_EXTENSION_HEADER_SIZE);
    auto *pExt = reinterpret_cast<MEMPOOL_EXTENSION *>(pStart);
    pExt->bDynamic = 0;
    pExt->pNext = nullptr;
    unsigned char *pFirst = pStart + MEMPOOL_EXTENSION_HEADER_SIZE;
    MEMPOOL_BLOCK *pLast = LayOutBlocks(pFirst, n, s, PoolPtr(pcb));
    LinkExtension(pcb, pExt, BlockAt(pFirst), pLast);
    return ERR_OK;
}

RTS_RESULT MemPoolCreateSyncObject(RTS_HANDLE hMemPool) {
    Pcb *pcb = PcbOf(hMemPool);
    if (pcb == nullptr)
        return ERR_PARAMETER;
    if (!g_state.bReady) {
        pcb->hSem = RTS_INVALID_HANDLE;
        return ERR_FAILED;
    }
    if (auto pfCreate = ImportedSysSemCreate()) {
        RTS_RESULT result = ERR_OK;
        pcb->hSem = pfCreate(&result);
        return result;
    }
    // Interrupt locking needs no object: the word becomes the lock's save area.
    pcb->hSem = ImportedSysIntDisableAll() != nullptr ? nullptr : RTS_INVALID_HANDLE;
    return ERR_OK;
}

RTS_RESULT MemPoolDeleteSyncObject(RTS_HANDLE hMemPool) {
    Pcb *pcb = PcbOf(hMemPool);
    if (pcb == nullptr)
        return ERR_PARAMETER;
    RTS_RESULT result = ERR_OK;
    auto pfDelete = ImportedSysSemDelete();
    if (pfDelete != nullptr && pcb->hSem != RTS_INVALID_HANDLE)
        result = pfDelete(pcb->hSem);
    pcb->hSem = RTS_INVALID_HANDLE;
    return result;
}

RTS_RESULT MemPoolLock(RTS_HANDLE hMemPool) {
    if (g_lock.mode == LockMode::NotReady)
        return ERR_NOT_INITIALIZED;
    Pcb *pcb = PcbOf(hMemPool);
    return pcb != nullptr ? LockPcb(pcb) : ERR_PARAMETER;
}

RTS_RESULT MemPoolUnlock(RTS_HANDLE hMemPool) {
    if (g_unlock.mode == LockMode::NotReady)
        return ERR_NOT_INITIALIZED;
    Pcb *pcb = PcbOf(hMemPool);
    return pcb != nullptr ? UnlockPcb(pcb) : ERR_PARAMETER;
}

MEMPOOL_PCB *MemPoolGetPCB(RTS_HANDLE hMemPool, RTS_RESULT *pResult) {
    Pcb *pcb = PcbOf(hMemPool);
    SetResult(pResult, pcb != nullptr ? ERR_OK : ERR_PARAMETER);
    return PoolPtr(pcb);
}

RTS_RESULT MemPoolCleanup(RTS_HANDLE hMemPool, const char *pszComponentName, RTS_I32 bDeleteSyncObject) {
    Pcb *pcb = PcbOf(hMemPool);
    if (pcb == nullptr)
        return ERR_INVALID_POOL;
    // The free list is left as it is: cleanup precedes deletion or re-creation of the pool.
    LockPcb(pcb);
    FreeDynamicExtensions(pcb, pszComponentName);
    UnlockPcb(pcb);
    if (bDeleteSyncObject != 0)
        MemPoolDeleteSyncObject(pcb);
    return ERR_OK;
}

RTS_RESULT MemPoolDelete(RTS_HANDLE hMemPool, const char *pszComponentName) {
    Pcb *pcb = PcbOf(hMemPool);
    if (pcb == nullptr)
        return ERR_INVALID_POOL;
    // Blocks still tracked are reported, not freed one by one; they go with their chunks.
    if (auto pfLog = ImportedLogAdd()) {
        const char *pszName = pszComponentName != nullptr ? pszComponentName : "";
        for (MEMPOOL_BLOCK *pBlock = pcb->pUsedList; pBlock != nullptr; pBlock = pBlock->pNext)
            pfLog(LOG_STD_LOGGER, CMPID_CmpMemPool, LOG_DEBUG, ERR_FAILED, 0, kLeakFormat, pszName,
                  reinterpret_cast<RTS_UINTPTR>(hMemPool), reinterpret_cast<RTS_UINTPTR>(PayloadOf(pBlock)));
    }
    FreeDynamicExtensions(pcb, pszComponentName);
    MemPoolDeleteSyncObject(pcb);
    if ((pcb->ulBlockSizeAndFlags & MEMPOOL_FLAG_DYNAMIC) != 0) {
        if (auto pfFree = ImportedSysMemFreeData())
            pfFree(pszComponentName, pcb);
    }
    return ERR_OK;
}

} // extern "C"
