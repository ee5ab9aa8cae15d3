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
    LockMode lockMode;
    LockMode unlockMode;
};
extern ComponentState g_state;

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
// handed out or returned.
// Returns pPayload, so that a caller may end with it.
typedef unsigned char FillVector __attribute__((vector_size(16)));
inline void *FillPayload(void *pPayload, unsigned char value, RTS_SIZE n) {
    auto *p = static_cast<unsigned char *>(pPayload);
    if (KESTREL_LIKELY(n >= 16 && n <= 64)) {
        const FillVector pattern = value + FillVector{};
        std::memcpy(p, &pattern, 16);
        std::memcpy(p + n - 16, &pattern, 16);
        if (n > 32) {
            std::memcpy(p + 16, &pattern, 16);
            std::memcpy(p + n - 32, &pattern, 16);
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
inline RTS_RESULT LockPcb(Pcb *pcb) {
    switch (g_state.lockMode) {
    case LockMode::Semaphore:
        return ImportedSysSemEnter()(pcb->hSem);
    case LockMode::Interrupt:
        return ImportedSysIntDisableAll()(&pcb->hSem);
    case LockMode::None:
        return ERR_NOTIMPLEMENTED;
    default:
        return ERR_NOT_INITIALIZED;
    }
}
inline RTS_RESULT UnlockPcb(Pcb *pcb) {
    switch (g_state.unlockMode) {
    case LockMode::Semaphore:
        return ImportedSysSemLeave()(pcb->hSem);
    case LockMode::Interrupt:
        return ImportedSysIntEnableAll()(&pcb->hSem);
    case LockMode::None:
        return ERR_NOTIMPLEMENTED;
    default:
        return ERR_NOT_INITIALIZED;
    }
}

// Derives the lock modes from the ready flag and the slots; called whenever either changes.
void UpdateLockModes();

// Lays out n blocks of payload size s from pFirst on, all owned by pPool and chained in address
// order; returns the last header, or null when nothing was laid out.
MEMPOOL_BLOCK *LayOutBlocks(void *pFirst, RTS_SIZE n, RTS_SIZE s, MEMPOOL_PCB *pPool);

} // namespace kestrel::mempool
