// SysSem: recursive locks for components. A lock is a "benaphore": an atomic
// count of the threads that hold or want the lock, plus an operating-system
// semaphore that only contended threads ever touch. Entering an uncontended
// lock is one atomic increment; leaving it is one atomic decrement. The owner
// thread and a nesting depth make the lock recursive: the owner enters again
// without touching the count.
#include <atomic>
#include <new>

#include "ModuleSupport.h"
#include "SysSemItf.h"
#include "SysSemOs.h"
#include "SysSemThread.h"

namespace {

using namespace kestrel::syssem;

constexpr RTS_UI32 kMagic = 0x53656D31u; // "Sem1": tells a live lock from a stale or foreign pointer

struct Semaphore {
    RTS_UI32 magic = kMagic;
    std::atomic<RTS_I32> contenders{0};   // threads holding (1) or waiting for the lock
    std::atomic<std::uintptr_t> owner{0}; // thread that holds it, 0 when free
    RTS_UI32 depth = 0;                   // nesting of the owner; touched only by the owner
    OsSemaphore *pOs = nullptr;           // where waiters block
};


Semaphore *FromHandle(RTS_HANDLE hSem) {
    if (hSem == nullptr || hSem == RTS_INVALID_HANDLE)
        return nullptr;
    auto *p = static_cast<Semaphore *>(hSem);
    return p->magic == kMagic ? p : nullptr;
}

const ExportEntry s_exports[] = {
    RTS_EXPORT_FN(SysSemCreate),
    RTS_EXPORT_FN(SysSemDelete),
    RTS_EXPORT_FN(SysSemEnter),
    RTS_EXPORT_FN(SysSemLeave),
    RTS_EXPORT_END,
};

using Component = kestrel::module::ExportOnlyComponent<CMPID_SysSem, s_exports>;

} // namespace

extern "C" {

RTS_HANDLE SysSemCreate(RTS_RESULT *pResult) {
    auto *p = new (std::nothrow) Semaphore;
    if (p != nullptr) {
        p->pOs = OsSemaphoreCreate();
        if (p->pOs == nullptr) {
            delete p;
            p = nullptr;
        }
    }
    if (pResult != nullptr)
        *pResult = p != nullptr ? ERR_OK : ERR_NOMEMORY;
    return p != nullptr ? static_cast<RTS_HANDLE>(p) : RTS_INVALID_HANDLE;
}

RTS_RESULT SysSemDelete(RTS_HANDLE hSem) {
    Semaphore *p = FromHandle(hSem);
    if (p == nullptr)
        return ERR_PARAMETER;
    p->magic = 0;
    OsSemaphoreDelete(p->pOs);
    delete p;
    return ERR_OK;
}

RTS_RESULT SysSemEnter(RTS_HANDLE hSem) {
    Semaphore *p = FromHandle(hSem);
    if (p == nullptr)
        return ERR_PARAMETER;
    const std::uintptr_t self = OsCurrentThread();
    // Only this thread ever stores its own id, so a relaxed read is enough to
    // recognise a nested enter.
    if (p->owner.load(std::memory_order_relaxed) == self) {
        ++p->depth;
        return ERR_OK;
    }
    if (p->contenders.fetch_add(1, std::memory_order_acquire) > 0) {
        if (!OsSemaphoreWait(p->pOs)) {
            p->contenders.fetch_sub(1, std::memory_order_relaxed);
            return ERR_FAILED;
        }
    }
    p->owner.store(self, std::memory_order_relaxed);
    p->depth = 1;
    return ERR_OK;
}

RTS_RESULT SysSemLeave(RTS_HANDLE hSem) {
    Semaphore *p = FromHandle(hSem);
    if (p == nullptr)
        return ERR_PARAMETER;
    if (p->owner.load(std::memory_order_relaxed) != OsCurrentThread())
        return ERR_FAILED; // not held by the caller
    if (--p->depth > 0)
        return ERR_OK;
    p->owner.store(0, std::memory_order_relaxed);
    // Hand the lock to one waiter when there is any.
    if (p->contenders.fetch_sub(1, std::memory_order_release) > 1)
        OsSemaphorePost(p->pOs);
    return ERR_OK;
}

RTS_RESULT SysSemEntry(ComponentInitStruct *pInit) {
    return Component::Enter(pInit);
}

} // extern "C"
