// Small run-time services of the CM over components it imports: process-wide locks on the
// semaphore component, the operation-disabled query over the event component, debug output and
// the profiling stub. Each answers in a fixed way when the serving component is missing.
#include <cstdarg>

#include "CMPrivate.h"

using namespace kestrel::cm;

extern "C" RTS_HANDLE CMLockCreate(RTS_RESULT *pResult) {
    auto pfCreate = Imp_SysSemCreate();
    if (pfCreate == nullptr) {
        if (pResult != nullptr)
            *pResult = ERR_NO_COMPONENT;
        return nullptr;
    }
    return pfCreate(pResult);
}

extern "C" RTS_RESULT CMLockDelete(RTS_HANDLE hLock) {
    // Whether locks exist at all is decided by the create function.
    if (Imp_SysSemCreate() == nullptr || hLock == RTS_INVALID_HANDLE)
        return ERR_OK;
    auto pfDelete = Imp_SysSemDelete();
    return pfDelete != nullptr ? pfDelete(hLock) : ERR_OK;
}

extern "C" RTS_RESULT CMLockEnter(RTS_HANDLE hLock) {
    if (g_cm.bInitializing == 0)
        return ERR_NOT_INITIALIZED;
    auto pfEnter = Imp_SysSemEnter();
    if (pfEnter == nullptr || hLock == RTS_INVALID_HANDLE)
        return ERR_NO_COMPONENT;
    return pfEnter(hLock);
}

extern "C" RTS_RESULT CMLockLeave(RTS_HANDLE hLock) {
    if (g_cm.bInitializing == 0)
        return ERR_NOT_INITIALIZED;
    auto pfLeave = Imp_SysSemLeave();
    if (pfLeave == nullptr || hLock == RTS_INVALID_HANDLE)
        return ERR_NO_COMPONENT;
    return pfLeave(hLock);
}

extern "C" RTS_RESULT CMIsOperationDisabled(RTS_UI32 ulOperation, RTS_UI32 ulParameter, RTS_UI32 *pulAnswer) {
    auto pfPost = Imp_EventPost2();
    if (g_cm.iDisablingOperations == 0 || pfPost == nullptr)
        return ERR_NO_COMPONENT;
    // A listener that knows the operation fills in the answer and marks the query handled.
    CMOperationQuery query{ulOperation, ulParameter, 0, 0};
    pfPost(EventHandle(CM_EVT_OPERATION_DISABLED), 1, 1, &query);
    if (query.bHandled == 0) {
        if (pulAnswer != nullptr)
            *pulAnswer = 0;
        return ERR_FAILED;
    }
    if (pulAnswer != nullptr)
        *pulAnswer = query.ulAnswer;
    return ERR_OK;
}

extern "C" RTS_RESULT CMDebugOutArg(const char *pszFormat, va_list args) {
    auto pfPrint = Imp_SysOutVPrintf();
    if (pfPrint == nullptr)
        return ERR_NO_COMPONENT;
    if (pszFormat != nullptr)
        pfPrint(pszFormat, args);
    return ERR_OK;
}

extern "C" RTS_RESULT CMDebugOut(const char *pszFormat, ...) {
    va_list args;
    va_start(args, pszFormat);
    RTS_RESULT result = CMDebugOutArg(pszFormat, args);
    va_end(args);
    return result;
}

// Profiling marks go to the debug output.
extern "C" RTS_RESULT CMProfiling(const char *pszName, RTS_UI32 ulParam) {
    return CMDebugOut("Profiling <name>%s</name>: %lu\n", pszName != nullptr ? pszName : "",
                      static_cast<unsigned long>(ulParam));
}
