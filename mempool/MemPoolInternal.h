// Internals shared by the sources of CmpMemPool: the table of imported functions and the ready
// flag, the alignment-free views of control blocks and chunk headers, and the small helpers that
// every hot path inlines (handle check, header/payload stepping, pool lock and unlock).
#pragma once

#include <cstring>

#include "CmpLogItf.h"
#include "CmpMemPoolItf.h"
#include "SysCpuHandlingItf.h"
#include "SysExceptItf.h"
#include "SysIntItf.h"
#include "SysMemItf.h"
#include "SysSemItf.h"

#define KESTREL_LIKELY(x) __builtin_expect(!!(x), 1)
#define KESTREL_UNLIKELY(x) __builtin_expect(!!(x), 0)

namespace kestrel::mempool {

// Every function the component imports, in the order it asks the component manager for them. Each
// is optional: the operation that needs one tests its slot and falls back or fails.
#define KESTREL_MEMPOOL_IMPORTS(X)                                                                                     \
    X(LogAdd)                                                                                                          \
    X(SysExceptGenerateException)                                                                                      \
    X(SysMemFreeData)                                                                                                  \
    X(SysMemAllocData)                                                                                                 \
    X(SysCpuAtomicAdd)                                                                                                 \
    X(SysIntDisableAll)                                                                                                \
    X(SysIntEnableAll)                                                                                                 \
    X(SysSemLeave)                                                                                                     \
    X(SysSemEnter)                                                                                                     \
    X(SysSemDelete)                                                                                                    \
    X(SysSemCreate)

enum class Import : unsigned {
#define KESTREL_MEMPOOL_IMPORT_ENUM(name) name,
    KESTREL_MEMPOOL_IMPORTS(KESTREL_MEMPOOL_IMPORT_ENUM)
#undef KESTREL_MEMPOOL_IMPORT_ENUM
        Count
};

// How the pool lock is taken (and, separately, released), decided once when the imports change:
// the component is not ready, or the semaphore service, the interrupt lock or nothing serves it.
enum class LockMode : unsigned char { NotReady, Semaphore, Interrupt, None };

// The component's whole global state: one slot per import (null until hook 1 found it), the ready
// flag, set once hook 1 has imported and cleared again at hook 15, and the lock modes derived
// from both. bLockCalls tells the hot paths whether locking calls anything at all.
struct ComponentState {
    RTS_VOID_FCTPTR slots[static_cast<unsigned>(Import::Count)];
    bool bReady;
    bool bLockCalls;
};
extern ComponentState g_state;

// Taking and releasing the pool lock: the mode and the service function that does it (SysSemEnter
// or SysIntDisableAll, SysSemLeave or SysIntEnableAll), derived from the slots with the modes. They
// are kept apart from the component state so that a locked path reads each with a load of its own
// and keeps no pointer to the state across the call of the lock service.
struct LockCall {
    LockMode mode;
    RTS_VOID_FCTPTR pfService;
};
extern LockCall g_lock;
extern LockCall g_unlock;

// The usual case of the two, both taken through the semaphore service, for the locked forms of get
// and put: they test it once and then call the two functions without any further choice, which
// on some processors matters next to the locked instruction of the service. Both null unless
// both directions go through the semaphore service. Two variables rather than one record: each
// call then reads its function straight from memory, where a record's address would be kept in a
// register, saved on the stack across the calls.
extern decltype(&::SysSemEnter) g_pfSemaphoreEnter;
extern decltype(&::SysSemLeave) g_pfSemaphoreLeave;

// Typed reads of the slots, one per import: ImportedLogAdd(), ImportedSysSemEnter(), ...
#define KESTREL_MEMPOOL_IMPORT_ACCESSOR(name)                                                                          \
    inline decltype(&::name) Imported##name() {                                                                        \
        return reinterpret_cast<decltype(&::name)>(g_state.slots[static_cast<unsigned>(Import::name)]);                \
    }
KESTREL_MEMPOOL_IMPORTS(KESTREL_MEMPOOL_IMPORT_ACCESSOR)
#undef KESTREL_MEMPOOL_IMPORT_ACCESSOR

// A static pool of block size 0 keeps its control block at the very start of the caller's area,
// and a fixed-block pool keeps its first chunk header at the start of the caller's area; neither
// area needs to be aligned. Both structures are therefore only ever accessed through these
// aliases of alignment 1, which compile to the same loads and stores on x86.
typedef MEMPOOL_PCB Pcb __attribute__((aligned(1)));
typedef FIXEDBLOCKSCHUNK Chunk __attribute__((aligned(1)));

// Fill patterns that make stale memory visible.
constexpr unsigned char kFillFree = 0xAA;      // returned and reclaimed blocks
constexpr unsigned char kFillExtension = 0xEE; // new extension chunks before their blocks are laid out

inline RTS_SIZE AlignUp(RTS_SIZE value) {
    return MEMPOOL_ALIGN_SIZE(value);
}
inline unsigned char *AlignUp(void *p) {
    auto *c = static_cast<unsigned char *>(p);
    return c + (AlignUp(reinterpret_cast<RTS_UINTPTR>(c)) - reinterpret_cast<RTS_UINTPTR>(c));
}

// The control block of a handle, or null for the invalid handles 0 and all ones.
inline Pcb *PcbOf(RTS_HANDLE hMemPool) {
    if (KESTREL_UNLIKELY(hMemPool == nullptr || hMemPool == RTS_INVALID_HANDLE))
        return nullptr;
    return static_cast<Pcb *>(hMemPool);
}
inline Pcb *PcbOf(MEMPOOL_PCB *pPool) {
    return reinterpret_cast<Pcb *>(pPool);
}
inline MEMPOOL_PCB *PoolPtr(Pcb *pcb) {
    return reinterpret_cast<MEMPOOL_PCB *>(pcb);
}

inline RTS_SIZE BlockSizeOf(const Pcb *pcb) {
    return pcb->ulBlockSizeAndFlags & MEMPOOL_SIZE_MASK;
}
inline RTS_SIZE StrideOf(RTS_SIZE s) {
    return s + MEMPOOL_BLOCK_HEADER_SIZE;
}

// Every operation on a block finds its header one header size in front of the payload.
inline MEMPOOL_BLOCK *HeaderOf(void *pPayload) {
    return reinterpret_cast<MEMPOOL_BLOCK *>(static_cast<unsigned char *>(pPayload) - MEMPOOL_BLOCK_HEADER_SIZE);
}
inline void *PayloadOf(MEMPOOL_BLOCK *pHeader) {
    return reinterpret_cast<unsigned char *>(pHeader) + MEMPOOL_BLOCK_HEADER_SIZE;
}
inline MEMPOOL_BLOCK *BlockAt(void *p) {
    return static_cast<MEMPOOL_BLOCK *>(p);
}

// Fills n bytes with one byte value. Payloads of 4 to 64 bytes, the usual sizes, are filled in
// line with a few overlapping stores, which is much cheaper than a call of memset for every block
// handed out or returned. Width is the widest store the code may use, 16 or 32 bytes: get and put
// spend most of their time on stores, and a 64-byte payload takes two 32-byte ones instead of four.
// Returns pPayload, so that a caller may end with it.
// The vectors are stored through unaligned, aliasing views rather than memcpy from a local, which
// would ask for an aligned stack slot (and a frame to align it) in the 32-byte form.
typedef unsigned char FillVector16 __attribute__((vector_size(16)));
typedef unsigned char FillVector32 __attribute__((vector_size(32)));
// Payload sizes that FillPayload fills without calling memset.
inline bool FillsInLine(RTS_SIZE n) {
    return n >= 4 && n <= 64;
}
template <typename Vector> __attribute__((always_inline)) inline void StoreVector(unsigned char *p, const Vector &v) {
    typedef Vector Unaligned __attribute__((aligned(1), may_alias));
    *reinterpret_cast<Unaligned *>(p) = v;
}
template <unsigned Width = 16>
__attribute__((always_inline)) inline void *FillPayload(void *pPayload, unsigned char value, RTS_SIZE n) {
    static_assert(Width == 16 || Width == 32);
    auto *p = static_cast<unsigned char *>(pPayload);
    if constexpr (Width == 32) {
        if (KESTREL_LIKELY(n >= 32 && n <= 64)) {
            const FillVector32 pattern = value + FillVector32{};
            StoreVector(p, pattern);
            StoreVector(p + n - 32, pattern);
            return p;
        }
        if (n >= 16 && n < 32) {
            const FillVector16 pattern = value + FillVector16{};
            StoreVector(p, pattern);
            StoreVector(p + n - 16, pattern);
            return p;
        }
    } else if (KESTREL_LIKELY(n >= 16 && n <= 64)) {
        const FillVector16 pattern = value + FillVector16{};
        StoreVector(p, pattern);
        StoreVector(p + n - 16, pattern);
        if (n > 32) {
            StoreVector(p + 16, pattern);
            StoreVector(p + n - 32, pattern);
        }
        return p;
    }
    if (n >= 8 && n < 16) {
        const RTS_UI64 pattern = 0x0101010101010101ull * value;
        std::memcpy(p, &pattern, 8);
        std::memcpy(p + n - 8, &pattern, 8);
        return p;
    }
    if (n >= 4 && n < 8) {
        const RTS_UI32 pattern = 0x01010101u * value;
        std::memcpy(p, &pattern, 4);
        std::memcpy(p + n - 4, &pattern, 4);
        return p;
    }
    return std::memset(p, value, n);
}

inline void SetResult(RTS_RESULT *pResult, RTS_RESULT result) {
    if (pResult != nullptr)
        *pResult = result;
}

// Pool lock on a control block known to be valid: the semaphore service when present, else the
// interrupt lock with the hSem word as its save area, else no lock service at all (12); before
// hook 1 and after hook 15 the component is not ready (3).
inline RTS_RESULT CallLock(const LockCall &call, Pcb *pcb) {
    switch (call.mode) {
    case LockMode::Semaphore:
        return reinterpret_cast<decltype(&::SysSemEnter)>(call.pfService)(pcb->hSem);
    case LockMode::Interrupt:
        return reinterpret_cast<decltype(&::SysIntDisableAll)>(call.pfService)(&pcb->hSem);
    case LockMode::None:
        return ERR_NOTIMPLEMENTED;
    default:
        return ERR_NOT_INITIALIZED;
    }
}
inline RTS_RESULT LockPcb(Pcb *pcb) {
    return CallLock(g_lock, pcb);
}
inline RTS_RESULT UnlockPcb(Pcb *pcb) {
    return CallLock(g_unlock, pcb);
}

// Derives the lock modes from the ready flag and the slots; called whenever either changes.
void UpdateLockModes();

// Lays out n blocks of payload size s from pFirst on, all owned by pPool and chained in address
// order; returns the last header, or null when nothing was laid out.
MEMPOOL_BLOCK *LayOutBlocks(void *pFirst, RTS_SIZE n, RTS_SIZE s, MEMPOOL_PCB *pPool);

// ---- MemPoolGetBlock and MemPoolPutBlock ---------------------------------------------------------
// Both exist twice: as the C functions of those names, filling with 16-byte stores, and compiled
// for 32-byte stores on processors that have them (cpu/<family>/MemPoolWide.cpp), which is what
// the export table then offers under the same names. Both are built from these templates.

// The free-list parts, for a checked pool and block; no lock is taken. A block taken keeps its
// stale link. A block returned stays owned by its pool and is not taken off the used list: callers
// remove it first, since both lists share the link.
__attribute__((always_inline)) inline MEMPOOL_BLOCK *TakeFreeHeader(Pcb *pcb, RTS_RESULT *pResult) {
    MEMPOOL_BLOCK *pHeader = pcb->pFreeList;
    if (KESTREL_UNLIKELY(pHeader == nullptr)) {
        SetResult(pResult, ERR_INVALID_POOL);
        return nullptr;
    }
    pcb->pFreeList = pHeader->pNext;
    pHeader->pPool = PoolPtr(pcb);
    SetResult(pResult, ERR_OK);
    return pHeader;
}

__attribute__((always_inline)) inline void LinkFreeBlock(Pcb *pcb, void *pBlock) {
    MEMPOOL_BLOCK *pHeader = HeaderOf(pBlock);
    pHeader->pNext = pcb->pFreeList;
    pcb->pFreeList = pHeader;
}

// Zeroes the payload of a block just taken off the free list and returns it; the block size is
// read from the pool its header names.
template <unsigned Width> __attribute__((always_inline)) inline void *ZeroTakenBlock(MEMPOOL_BLOCK *pHeader) {
    return FillPayload<Width>(PayloadOf(pHeader), 0, BlockSizeOf(PcbOf(pHeader->pPool)));
}

// Get and put under the pool lock (whose result is ignored). A block is the caller's alone from the
// moment it is off the free list until it is back on it, so get zeroes it after the unlock and put
// fills it before the lock: the lock is held only for the few stores of the list itself.
// Every locked instruction of the lock service waits until all earlier stores have reached the
// cache, among them the registers a function saves on its stack, so these keep little across the
// calls of the lock service: put keeps only the block and reads its pool back from the header after
// the lock. Get ends with a jump to ZeroBlock, which may be compiled for wider stores than get
// itself (a function with calls and such stores would also have to align its stack frame).
// Both come in two forms, by the lock they take: any lock (LockPcb/UnlockPcb, which choose the
// service at every call), and, the usual case, both directions through the semaphore service, with
// no choice left between the calls.
struct AnyLock {
    static void Enter(Pcb *pcb) { LockPcb(pcb); }
    static void Leave(Pcb *pcb) { UnlockPcb(pcb); }
};
struct SemaphoreLock {
    static void Enter(Pcb *pcb) { g_pfSemaphoreEnter(pcb->hSem); }
    static void Leave(Pcb *pcb) { g_pfSemaphoreLeave(pcb->hSem); }
};

// For a valid pool.
template <typename Lock, void *(*ZeroBlock)(MEMPOOL_BLOCK *)>
__attribute__((always_inline)) inline void *GetBlockLocked(Pcb *pcb, RTS_RESULT *pResult) {
    Lock::Enter(pcb);
    MEMPOOL_BLOCK *pHeader = TakeFreeHeader(pcb, pResult);
    Lock::Leave(pcb);
    if (KESTREL_UNLIKELY(pHeader == nullptr))
        return nullptr;
    return ZeroBlock(pHeader);
}

// Any lock, and the invalid pool, which answers 20.
template <void *(*ZeroBlock)(MEMPOOL_BLOCK *)>
__attribute__((always_inline)) inline void *GetBlockAnyLock(Pcb *pcb, RTS_RESULT *pResult) {
    if (KESTREL_UNLIKELY(pcb == nullptr)) {
        SetResult(pResult, ERR_INVALID_POOL);
        return nullptr;
    }
    return GetBlockLocked<AnyLock, ZeroBlock>(pcb, pResult);
}

// The put side, for a block already filled.
template <typename Lock> __attribute__((always_inline)) inline RTS_RESULT LinkFreeBlockLocked(void *pBlock) {
    Lock::Enter(PcbOf(HeaderOf(pBlock)->pPool));
    Pcb *pcb = PcbOf(HeaderOf(pBlock)->pPool);
    LinkFreeBlock(pcb, pBlock);
    Lock::Leave(pcb);
    return ERR_OK;
}
// Out of line, shared by the C functions and the wide forms.
RTS_RESULT LinkFreeBlockAnyLock(void *pBlock);
RTS_RESULT LinkFreeBlockSemaphoreLock(void *pBlock);
inline RTS_RESULT LinkFreeBlockUnderLock(void *pBlock) {
    if (KESTREL_LIKELY(g_pfSemaphoreEnter != nullptr))
        return LinkFreeBlockSemaphoreLock(pBlock);
    return LinkFreeBlockAnyLock(pBlock);
}

// The bodies of MemPoolGetBlock and MemPoolPutBlock. Both skip the lock when it would call nothing
// (component not ready, or no lock service): it would only answer 3 or 12. Get goes on to its
// locked form with a jump, so that the path without the lock calls nothing at all.
template <unsigned Width, void *(*OutOfLine)(Pcb *, RTS_RESULT *), void *(*SemaphoreLocked)(Pcb *, RTS_RESULT *)>
__attribute__((always_inline)) inline void *GetBlock(RTS_HANDLE hMemPool, RTS_RESULT *pResult) {
    Pcb *pcb = PcbOf(hMemPool);
    if (KESTREL_UNLIKELY(pcb == nullptr || g_state.bLockCalls)) {
        if (KESTREL_LIKELY(pcb != nullptr && g_pfSemaphoreEnter != nullptr))
            return SemaphoreLocked(pcb, pResult);
        return OutOfLine(pcb, pResult);
    }
    MEMPOOL_BLOCK *pHeader = TakeFreeHeader(pcb, pResult);
    if (KESTREL_UNLIKELY(pHeader == nullptr))
        return nullptr;
    return FillPayload<Width>(PayloadOf(pHeader), 0, BlockSizeOf(pcb));
}

// Put fills in line only the payload sizes that need no call of memset, and goes on to its
// out-of-line form for the others, with a jump; the locked link is a jump, too.
template <unsigned Width> __attribute__((always_inline)) inline RTS_RESULT PutBlockOutOfLine(Pcb *pcb, void *pBlock) {
    FillPayload<Width>(pBlock, kFillFree, BlockSizeOf(pcb));
    if (!g_state.bLockCalls) {
        LinkFreeBlock(pcb, pBlock);
        return ERR_OK;
    }
    return LinkFreeBlockUnderLock(pBlock);
}

template <unsigned Width, RTS_RESULT (*OutOfLine)(Pcb *, void *)>
__attribute__((always_inline)) inline RTS_RESULT PutBlock(void *pBlock) {
    if (KESTREL_UNLIKELY(pBlock == nullptr))
        return ERR_PARAMETER;
    Pcb *pcb = PcbOf(HeaderOf(pBlock)->pPool);
    if (KESTREL_UNLIKELY(pcb == nullptr))
        return ERR_PARAMETER;
    const RTS_SIZE s = BlockSizeOf(pcb);
    if (KESTREL_UNLIKELY(!FillsInLine(s)))
        return OutOfLine(pcb, pBlock);
    FillPayload<Width>(pBlock, kFillFree, s);
    if (KESTREL_UNLIKELY(g_state.bLockCalls))
        return LinkFreeBlockUnderLock(pBlock);
    LinkFreeBlock(pcb, pBlock);
    return ERR_OK;
}

// The 32-byte forms: null where the processor has no such stores, so that the export table keeps
// MemPoolGetBlock and MemPoolPutBlock themselves. Asked for once, when the component is entered.
struct WideBlockFunctions {
    decltype(&::MemPoolGetBlock) pfGetBlock;
    decltype(&::MemPoolPutBlock) pfPutBlock;
};
WideBlockFunctions GetWideBlockFunctions();

} // namespace kestrel::mempool
