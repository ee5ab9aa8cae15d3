/*
 * CmpMemPool (CmpId 30): pools of equal blocks with free and used lists and
 * per-pool locks, and the light fixed-block pools. Every size figure of the
 * pools derives from the structures below, so that the 32-bit build shows the
 * literal figures (20-byte control block, 12-byte block header, ...) and a
 * 64-bit build the pointer-sized ones.
 */
#ifndef KESTREL_CMP_MEMPOOL_ITF_H
#define KESTREL_CMP_MEMPOOL_ITF_H

#include "CmpItf.h"

RTS_BEGIN_C

typedef struct MemPoolBlock_ MEMPOOL_BLOCK;
typedef struct MemPoolExtension_ MEMPOOL_EXTENSION;

/* Pool control block: five words; a static pool's lies at the start of its area. */
typedef struct MemPoolPCB_ {
    RTS_UINTPTR ulBlockSizeAndFlags; /* payload size; bit 31: control block allocated by the pool */
    RTS_HANDLE hSem;                 /* lock object; 0: interrupt locking; all ones: none */
    MEMPOOL_EXTENSION *pExtensions;  /* extension chunks, newest first */
    MEMPOOL_BLOCK *pFreeList;        /* free blocks */
    MEMPOOL_BLOCK *pUsedList;        /* tracked blocks */
} MEMPOOL_PCB;

/* Header in front of every payload. */
struct MemPoolBlock_ {
    RTS_UINTPTR ulReserved; /* never written after the area was laid out */
    MEMPOOL_BLOCK *pNext;   /* next block on the free or the used list */
    MEMPOOL_PCB *pPool;     /* owning pool */
};

/* Header of an extension chunk, followed by its blocks. */
struct MemPoolExtension_ {
    RTS_UINTPTR bDynamic;       /* 1: allocated by MemPoolExtendDynamic */
    MEMPOOL_EXTENSION *pNext;   /* next (older) chunk */
};

#define MEMPOOL_FLAG_DYNAMIC 0x80000000u
#define MEMPOOL_SIZE_MASK 0x7FFFFFFFu
#define MEMPOOL_ALIGN ((RTS_SIZE)sizeof(void *))
#define MEMPOOL_ALIGN_SIZE(s) (((RTS_SIZE)(s) + MEMPOOL_ALIGN - 1) & ~(MEMPOOL_ALIGN - 1))
#define MEMPOOL_PCB_SIZE ((RTS_SIZE)sizeof(MEMPOOL_PCB))
#define MEMPOOL_BLOCK_HEADER_SIZE ((RTS_SIZE)sizeof(MEMPOOL_BLOCK))
#define MEMPOOL_EXTENSION_HEADER_SIZE ((RTS_SIZE)sizeof(MEMPOOL_EXTENSION))
/* Bytes of a static area that holds n blocks of payload size s (two spare words). */
#define MEMPOOL_STATIC_AREA_SIZE(s, n) \
    (MEMPOOL_PCB_SIZE + (RTS_SIZE)(n) * (MEMPOOL_ALIGN_SIZE(s) + MEMPOOL_BLOCK_HEADER_SIZE) + 2 * sizeof(void *))

RTS_HANDLE MemPoolCreateDynamic(const char *pszComponentName, RTS_UI32 ulNumBlocks, RTS_SIZE ulBlockSize,
                                RTS_RESULT *pResult);
RTS_HANDLE MemPoolCreateStatic(RTS_SIZE ulBlockSize, RTS_SIZE ulMemSize, void *pMemory, RTS_RESULT *pResult);
RTS_RESULT MemPoolExtendDynamic(RTS_HANDLE hMemPool, const char *pszComponentName, RTS_UI32 ulNumBlocks);
RTS_RESULT MemPoolExtendStatic(RTS_HANDLE hMemPool, RTS_SIZE ulMemSize, void *pMemory);
RTS_RESULT MemPoolCreateSyncObject(RTS_HANDLE hMemPool);
RTS_RESULT MemPoolDeleteSyncObject(RTS_HANDLE hMemPool);
RTS_RESULT MemPoolDelete(RTS_HANDLE hMemPool, const char *pszComponentName);
RTS_RESULT MemPoolCleanup(RTS_HANDLE hMemPool, const char *pszComponentName, RTS_I32 bDeleteSyncObject);
void *MemPoolGetBlock(RTS_HANDLE hMemPool, RTS_RESULT *pResult);
void *MemPoolGetBlock2(RTS_HANDLE hMemPool, RTS_UI32 ulNumBlocksIgnored, const char *pszComponentName,
                       RTS_RESULT *pResult);
RTS_RESULT MemPoolPutBlock(void *pBlock);
RTS_RESULT MemPoolAddUsedBlock(void *pBlock);
RTS_RESULT MemPoolAppendUsedBlock(void *pBlock);
RTS_RESULT MemPoolInsertUsedBlock(void *pPrevBlock, void *pBlock);
RTS_RESULT MemPoolRemoveUsedBlock(void *pBlock);
RTS_RESULT MemPoolAddUsedBlockToPool(void *pBlock, RTS_HANDLE hMemPool);
RTS_RESULT MemPoolAppendUsedBlockToPool(void *pBlock, RTS_HANDLE hMemPool);
RTS_RESULT MemPoolRemoveUsedBlockFromPool(void *pBlock, RTS_HANDLE hMemPool);
RTS_RESULT MemPoolLockBlock(void *pBlock);
RTS_RESULT MemPoolUnlockBlock(void *pBlock);
RTS_RESULT MemPoolLock(RTS_HANDLE hMemPool);
RTS_RESULT MemPoolUnlock(RTS_HANDLE hMemPool);
MEMPOOL_PCB *MemPoolGetPCB(RTS_HANDLE hMemPool, RTS_RESULT *pResult);
void *MemPoolFindBlock(RTS_HANDLE hMemPool, RTS_SIZE ulOffset, RTS_SIZE ulLen, const void *pCompare,
                       RTS_RESULT *pResult);
RTS_RESULT MemPoolIsValidBlock(RTS_HANDLE hMemPool, void *pBlock);
void *MemPoolGetFirstBlock(RTS_HANDLE hMemPool, RTS_RESULT *pResult);
void *MemPoolGetNextBlock(RTS_HANDLE hMemPool, void *pPrevBlock, RTS_RESULT *pResult);

/* Fixed-block pools: descriptor owned by the caller (seven words). */
typedef struct FixedBlocksChunk_ FIXEDBLOCKSCHUNK;
typedef struct FixedBlocksPool_ {
    void *pStaticChunk;          /* caller-supplied first chunk, or null */
    FIXEDBLOCKSCHUNK *pChunks;   /* chunk list, newest first */
    RTS_UI32 ulBlockSize;        /* rounded up to the alignment */
    RTS_UI32 ulBlocksPerChunk;
    RTS_SIZE ulCapacity;         /* bytes of block space over all chunks */
    RTS_SIZE ulUsed;             /* bytes handed out */
    RTS_UI32 ulFlags;            /* bit 0: initialised */
} FIXEDBLOCKSPOOL;

/* Header at the start of every chunk, followed by the blocks. */
struct FixedBlocksChunk_ {
    void *pBlocks;              /* block 0 */
    FIXEDBLOCKSCHUNK *pNext;    /* next (older) chunk */
    RTS_UI32 ulFreeIndex;       /* first free block; blocks per chunk when full */
    RTS_UI32 ulHighWater;       /* blocks at or above it were never handed out */
};

/* Memory descriptor of FixedBlocksPoolInit. */
typedef struct FixedBlocksMemory_ {
    void *pMemory;
    RTS_SIZE ulSize;
} FIXEDBLOCKSMEMORY;

#define FIXEDBLOCKS_FLAG_INITIALIZED 0x1u
#define FIXEDBLOCKS_CHUNK_HEADER_SIZE ((RTS_SIZE)sizeof(FIXEDBLOCKSCHUNK))

RTS_RESULT FixedBlocksPoolInit(FIXEDBLOCKSPOOL *pPool, const FIXEDBLOCKSMEMORY *pMemory, RTS_UI32 ulBlockSize,
                               RTS_UI32 ulBlocksPerChunk);
void *FixedBlocksPoolAlloc(FIXEDBLOCKSPOOL *pPool, RTS_SIZE ulSize, RTS_RESULT *pResult);
RTS_RESULT FixedBlocksPoolFree(FIXEDBLOCKSPOOL *pPool, void *pBlock);
RTS_RESULT FixedBlocksPoolReclaim(FIXEDBLOCKSPOOL *pPool);
RTS_RESULT FixedBlocksPoolDestroy(FIXEDBLOCKSPOOL *pPool);

/* Linked-in entry of the component. */
RTS_RESULT CmpMemPoolEntry(ComponentInitStruct *pInitStruct);

RTS_END_C

#endif
