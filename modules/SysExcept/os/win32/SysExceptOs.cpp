// Win32 backend of SysExcept: a vectored exception handler. A handler must
// not leave by a jump, so it records the exception, points the faulting
// thread's context at a small trampoline and continues execution there; the
// trampoline, now running as ordinary code, jumps to the catch point.
#include "SysExceptOs.h"

#include <windows.h>

namespace kestrel::sysexcept {
namespace {

PVOID s_handler = nullptr;
thread_local RTS_EXCEPT_FRAME *t_pending = nullptr;
thread_local RTS_UI32 t_pendingCode = 0;
thread_local RTS_UINTPTR t_pendingAddress = 0;

RTS_UI32 MapCode(DWORD code) {
    switch (code) {
    case EXCEPTION_ACCESS_VIOLATION:
    case EXCEPTION_IN_PAGE_ERROR:
    case EXCEPTION_ARRAY_BOUNDS_EXCEEDED:
    case EXCEPTION_STACK_OVERFLOW:
        return RTSEXCPT_ACCESS_VIOLATION;
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
    case EXCEPTION_FLT_DIVIDE_BY_ZERO:
        return RTSEXCPT_DIVIDEBYZERO;
    case EXCEPTION_DATATYPE_MISALIGNMENT:
        return RTSEXCPT_MISALIGNMENT;
    case EXCEPTION_ILLEGAL_INSTRUCTION:
    case EXCEPTION_PRIV_INSTRUCTION:
        return RTSEXCPT_ILLEGAL_INSTRUCTION;
    case EXCEPTION_FLT_DENORMAL_OPERAND:
    case EXCEPTION_FLT_INEXACT_RESULT:
    case EXCEPTION_FLT_INVALID_OPERATION:
    case EXCEPTION_FLT_OVERFLOW:
    case EXCEPTION_FLT_STACK_CHECK:
    case EXCEPTION_FLT_UNDERFLOW:
    case EXCEPTION_INT_OVERFLOW:
        return RTSEXCPT_FPU_ERROR;
    default:
        return RTSEXCPT_NOEXCEPTION;
    }
}

[[noreturn]] void Trampoline() {
    RTS_EXCEPT_FRAME *pFrame = t_pending;
    t_pending = nullptr;
    // The jump buffer's first word is the frame that longjmp would unwind
    // to. The faulting stack cannot be unwound reliably from here, and the
    // catch point needs no unwinding, so the jump restores registers only.
    *reinterpret_cast<unsigned long long *>(&pFrame->jmpBuf) = 0;
    JumpToFrame(pFrame, t_pendingCode, t_pendingAddress);
}

LONG CALLBACK Handler(EXCEPTION_POINTERS *pInfo) {
    RTS_UI32 code = MapCode(pInfo->ExceptionRecord->ExceptionCode);
    if (code == RTSEXCPT_NOEXCEPTION)
        return EXCEPTION_CONTINUE_SEARCH;
    RTS_EXCEPT_FRAME *pFrame = TakeFrame();
    if (pFrame == nullptr)
        return EXCEPTION_CONTINUE_SEARCH;
    t_pending = pFrame;
    t_pendingCode = code;
    t_pendingAddress = code == RTSEXCPT_ACCESS_VIOLATION && pInfo->ExceptionRecord->NumberParameters >= 2
                           ? static_cast<RTS_UINTPTR>(pInfo->ExceptionRecord->ExceptionInformation[1])
                           : reinterpret_cast<RTS_UINTPTR>(pInfo->ExceptionRecord->ExceptionAddress);
    CONTEXT *ctx = pInfo->ContextRecord;
    // Below the faulting frame, aligned as at a function's entry (return
    // address slot at a 16-byte boundary minus 8).
    DWORD64 sp = ((ctx->Rsp - 256) & ~static_cast<DWORD64>(15)) - 8;
    *reinterpret_cast<DWORD64 *>(sp) = 0;
    ctx->Rsp = sp;
    ctx->Rip = reinterpret_cast<DWORD64>(&Trampoline);
    return EXCEPTION_CONTINUE_EXECUTION;
}

} // namespace

bool OsInstall() {
    if (s_handler == nullptr)
        s_handler = AddVectoredExceptionHandler(1, Handler);
    return s_handler != nullptr;
}

void OsUninstall() {
    if (s_handler != nullptr)
        RemoveVectoredExceptionHandler(s_handler);
    s_handler = nullptr;
}

} // namespace kestrel::sysexcept
