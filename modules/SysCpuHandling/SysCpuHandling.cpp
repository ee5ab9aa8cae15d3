// SysCpuHandling: atomic arithmetic on shared words and the call of IEC
// functions, which take one pointer to their parameter record.
#include <atomic>

#include "ModuleSupport.h"
#include "SysCpuHandlingItf.h"

namespace {


const ExportEntry s_exports[] = {
    RTS_EXPORT_FN(SysCpuAtomicAdd),
    RTS_EXPORT_FN(SysCpuCallIecFuncWithParams),
    RTS_EXPORT_END,
};

using Component = kestrel::module::ExportOnlyComponent<CMPID_SysCpuHandling, s_exports>;

} // namespace

extern "C" {

RTS_I32 SysCpuAtomicAdd(volatile RTS_I32 *piValue, RTS_I32 nSum, RTS_RESULT *pResult) {
    if (piValue == nullptr) {
        if (pResult != nullptr)
            *pResult = ERR_PARAMETER;
        return 0;
    }
    // The word is shared with code that reads it as a plain volatile integer;
    // an atomic reference gives the read-modify-write without changing its type.
    std::atomic_ref<RTS_I32> value(*const_cast<RTS_I32 *>(piValue));
    // Wrap-around is defined for the caller: add as unsigned, read back as signed.
    RTS_I32 previous = value.load(std::memory_order_relaxed);
    RTS_I32 next;
    do {
        next = static_cast<RTS_I32>(static_cast<RTS_UI32>(previous) + static_cast<RTS_UI32>(nSum));
    } while (!value.compare_exchange_weak(previous, next, std::memory_order_seq_cst));
    if (pResult != nullptr)
        *pResult = ERR_OK;
    return next;
}

RTS_RESULT SysCpuCallIecFuncWithParams(RTS_VOID_FCTPTR pfIecFunction, void *pParam, RTS_SIZE ulParamSize) {
    if (pfIecFunction == nullptr)
        return ERR_PARAMETER;
    if (pParam == nullptr && ulParamSize != 0)
        return ERR_PARAMETER;
    reinterpret_cast<PF_IEC_FUNCTION>(pfIecFunction)(pParam);
    return ERR_OK;
}

RTS_RESULT SysCpuHandlingEntry(ComponentInitStruct *pInit) {
    return Component::Enter(pInit);
}

} // extern "C"
