// SysInt: the "interrupt lock" of this user-mode host. Disabling interrupts
// on a PLC means that nothing else runs until they are enabled again; here
// that is one process-wide recursive lock. The save word receives the
// nesting depth before the call, so that unbalanced use can be detected.
#include <mutex>

#include "ModuleSupport.h"
#include "SysIntItf.h"

namespace {

std::recursive_mutex s_lock;
RTS_UINTPTR s_depth = 0; // written only by the thread that holds s_lock

const ExportEntry s_exports[] = {
    RTS_EXPORT_FN(SysIntDisableAll),
    RTS_EXPORT_FN(SysIntEnableAll),
    RTS_EXPORT_END,
};

using Component = kestrel::module::ExportOnlyComponent<CMPID_SysInt, s_exports>;

} // namespace

extern "C" {

RTS_RESULT SysIntDisableAll(RTS_HANDLE *phSave) {
    s_lock.lock();
    if (phSave != nullptr)
        *phSave = reinterpret_cast<RTS_HANDLE>(s_depth);
    ++s_depth;
    return ERR_OK;
}

RTS_RESULT SysIntEnableAll(RTS_HANDLE *phSave) {
    // Only the holder may release; try_lock succeeds at once for it (the lock
    // is recursive) and tells a thread that does not hold it apart.
    if (!s_lock.try_lock())
        return ERR_FAILED;
    if (s_depth == 0) {
        s_lock.unlock();
        return ERR_FAILED;
    }
    RTS_RESULT result = ERR_OK;
    if (phSave != nullptr && reinterpret_cast<RTS_UINTPTR>(*phSave) != s_depth - 1)
        result = ERR_PARAMETER; // released out of order; the lock is released all the same
    --s_depth;
    s_lock.unlock(); // the try_lock above
    s_lock.unlock(); // the matching SysIntDisableAll
    return result;
}

RTS_RESULT SysIntEntry(ComponentInitStruct *pInit) {
    return Component::Enter(pInit);
}

} // extern "C"
