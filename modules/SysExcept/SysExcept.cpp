// SysExcept: catch points for hardware and soft exceptions.
//
// Each thread keeps its own stack of registered frames (innermost on top).
// An exception on a thread with a frame removes the innermost frame, records
// the exception code and address in it and jumps to its jump buffer with
// the value 1; the caller then calls SysExceptCatch to read the code:
//
//     RTS_EXCEPT_FRAME frame;
//     if (setjmp(frame.jmpBuf) == 0) {
//         SysExceptRegisterJmpBuf(&frame);
//         ... guarded code ...
//         SysExceptUnregisterJmpBuf(&frame);
//     } else {
//         RTS_UI32 code;
//         SysExceptCatch(&frame, &code);
//     }
//
// The jump skips the destructors of C++ objects between the fault and the
// catch point, so guarded code keeps such objects outside the guarded part.
// Variables of the guarding function changed inside it must be volatile.
#include <csetjmp>

#include "CmpLogItf.h"
#include "ModuleSupport.h"
#include "SysExceptItf.h"
#include "SysExceptOs.h"

namespace {

kestrel::module::CmLink s_cm;
decltype(&LogAdd) s_pfLogAdd = nullptr;
thread_local RTS_EXCEPT_FRAME *t_top = nullptr;

const ExportEntry s_exports[] = {
    RTS_EXPORT_FN(SysExceptRegisterJmpBuf),
    RTS_EXPORT_FN(SysExceptUnregisterJmpBuf),
    RTS_EXPORT_FN(SysExceptCatch),
    RTS_EXPORT_FN(SysExceptGenerateException),
    RTS_EXPORT_END,
};

RTS_RESULT ExportFunctions() {
    return s_cm.Export(s_exports, CMPID_SysExcept);
}

RTS_RESULT ImportFunctions() {
    s_cm.Import("LogAdd", s_pfLogAdd);
    return ERR_OK;
}

// The handlers point into this module; whatever way it is unloaded (also
// without the final hook, for instance after a failed start), they go with it.
struct UninstallAtUnload {
    ~UninstallAtUnload() { kestrel::sysexcept::OsUninstall(); }
} s_uninstallAtUnload;

RTS_RESULT HookFunction(RTS_UI32 ulHook, RTS_UINTPTR ulParam1, RTS_UINTPTR) {
    if (ulHook == CH_COMPONENT_EXIT && kestrel::module::IsLeaving(ulParam1, "CmpLog"))
        s_pfLogAdd = nullptr;
    // The handlers point into this module: they go with the last hook, before
    // the module can be unloaded.
    if (ulHook == CH_EXIT_FINAL)
        kestrel::sysexcept::OsUninstall();
    return ERR_OK;
}

} // namespace

namespace kestrel::sysexcept {

RTS_EXCEPT_FRAME *TakeFrame() {
    RTS_EXCEPT_FRAME *pFrame = t_top;
    if (pFrame != nullptr)
        t_top = pFrame->pPrevious;
    return pFrame;
}

void JumpToFrame(RTS_EXCEPT_FRAME *pFrame, RTS_UI32 ulException, RTS_UINTPTR ulAddress) {
    pFrame->ulException = ulException;
    pFrame->ulAddress = ulAddress;
    pFrame->pPrevious = nullptr;
    std::longjmp(pFrame->jmpBuf, 1);
}

} // namespace kestrel::sysexcept

extern "C" {

RTS_RESULT SysExceptRegisterJmpBuf(RTS_EXCEPT_FRAME *pFrame) {
    if (pFrame == nullptr)
        return ERR_PARAMETER;
    for (RTS_EXCEPT_FRAME *p = t_top; p != nullptr; p = p->pPrevious) {
        if (p == pFrame)
            return ERR_DUPLICATE; // a cycle would make the stack endless
    }
    pFrame->ulException = RTSEXCPT_NOEXCEPTION;
    pFrame->ulAddress = 0;
    pFrame->pPrevious = t_top;
    t_top = pFrame;
    return ERR_OK;
}

RTS_RESULT SysExceptUnregisterJmpBuf(RTS_EXCEPT_FRAME *pFrame) {
    if (pFrame == nullptr)
        return ERR_PARAMETER;
    // Usually the innermost frame; an outer one takes the frames inside it
    // along, since their guarded code has been left as well.
    for (RTS_EXCEPT_FRAME *p = t_top; p != nullptr; p = p->pPrevious) {
        if (p == pFrame) {
            t_top = pFrame->pPrevious;
            pFrame->pPrevious = nullptr;
            return ERR_OK;
        }
    }
    return ERR_NO_OBJECT;
}

RTS_RESULT SysExceptCatch(RTS_EXCEPT_FRAME *pFrame, RTS_UI32 *pulException) {
    if (pFrame == nullptr)
        return ERR_PARAMETER;
    // The jump took the frame off the stack already; a caller that catches
    // without a jump still gets it unregistered.
    SysExceptUnregisterJmpBuf(pFrame);
    if (pulException != nullptr)
        *pulException = pFrame->ulException;
    return pFrame->ulException != RTSEXCPT_NOEXCEPTION ? ERR_OK : ERR_NO_OBJECT;
}

RTS_RESULT SysExceptGenerateException(RTS_UI32 ulException) {
    RTS_EXCEPT_FRAME *pFrame = kestrel::sysexcept::TakeFrame();
    if (pFrame == nullptr) {
        if (s_pfLogAdd != nullptr)
            s_pfLogAdd(LOG_STD_LOGGER, CMPID_SysExcept, LOG_EXCEPTION, ERR_NO_OBJECT, 1,
                       "Exception <id>0x%08x</id> raised without a catch point", static_cast<unsigned>(ulException));
        return ERR_NO_OBJECT;
    }
    kestrel::sysexcept::JumpToFrame(pFrame, ulException != RTSEXCPT_NOEXCEPTION ? ulException : RTSEXCPT_SOFT, 0);
}

RTS_RESULT SysExceptEntry(ComponentInitStruct *pInit) {
    if (pInit == nullptr)
        return ERR_PARAMETER;
    s_cm.Enter(pInit, CMPID_SysExcept, ExportFunctions, ImportFunctions, HookFunction);
    if (!kestrel::sysexcept::OsInstall())
        return ERR_FAILED;
    return ERR_OK;
}

} // extern "C"
