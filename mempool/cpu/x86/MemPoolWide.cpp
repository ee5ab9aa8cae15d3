// MemPoolGetBlock and MemPoolPutBlock compiled for AVX, for x86 processors that have it: the two
// spend most of their time on stores, and a 64-byte payload takes two 32-byte stores instead of
// four. Only these functions are compiled for AVX, and the export table offers them only after
// the processor said it has AVX (and the operating system saves its registers).
#include "../../MemPoolInternal.h"

namespace kestrel::mempool {
namespace {

__attribute__((target("avx"), noinline)) void *ZeroTakenBlockWide(MEMPOOL_BLOCK *pHeader) {
    return ZeroTakenBlock<32>(pHeader);
}

// Not compiled for AVX itself: it calls the lock service, and jumps to the zeroing at its end.
__attribute__((noinline)) void *GetBlockLockedWide(Pcb *pcb, RTS_RESULT *pResult) {
    return GetBlockAnyLock<ZeroTakenBlockWide>(pcb, pResult);
}

__attribute__((noinline)) void *GetBlockSemaphoreLockedWide(Pcb *pcb, RTS_RESULT *pResult) {
    return GetBlockLocked<SemaphoreLock, ZeroTakenBlockWide>(pcb, pResult);
}

__attribute__((target("avx"))) void *GetBlockWide(RTS_HANDLE hMemPool, RTS_RESULT *pResult) {
    return GetBlock<32, GetBlockLockedWide, GetBlockSemaphoreLockedWide>(hMemPool, pResult);
}

__attribute__((target("avx"), noinline)) RTS_RESULT PutBlockOutOfLineWide(Pcb *pcb, void *pBlock) {
    return PutBlockOutOfLine<32>(pcb, pBlock);
}

__attribute__((target("avx"))) RTS_RESULT PutBlockWide(void *pBlock) {
    return PutBlock<32, PutBlockOutOfLineWide>(pBlock);
}

} // namespace

WideBlockFunctions GetWideBlockFunctions() {
    __builtin_cpu_init();
    if (!__builtin_cpu_supports("avx"))
        return {nullptr, nullptr};
    return {&GetBlockWide, &PutBlockWide};
}

} // namespace kestrel::mempool
