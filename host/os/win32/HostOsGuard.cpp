// Exception guards on Windows: a vectored exception handler, added last so
// that a component's own handler sees its exceptions first. A hardware fault
// on a thread inside a guarded call is not unwound: the handler points the
// faulting context at a landing function on a fresh part of the same stack,
// and that function jumps back to the guard (__builtin_longjmp restores the
// registers without unwinding, which structured exception handling would
// attempt from inside the dispatch). Other exceptions, C++ exceptions among
// them, pass on untouched.
#include <windows.h>

#include "HostOs.h"

namespace kestrel::host {

namespace {

struct Guard {
    void *jumpBuffer[5]; // __builtin_setjmp's buffer
    Guard *outer;        // the enclosing guard of the thread
};

DWORD s_tlsIndex = TLS_OUT_OF_INDEXES;
INIT_ONCE s_once = INIT_ONCE_STATIC_INIT;

// Stack kept free below the faulting frame before the landing function runs.
constexpr DWORD64 kLandingGap = 512;

bool IsHardwareFault(DWORD code) {
    switch (code) {
    case EXCEPTION_ACCESS_VIOLATION:
    case EXCEPTION_IN_PAGE_ERROR:
    case EXCEPTION_DATATYPE_MISALIGNMENT:
    case EXCEPTION_ARRAY_BOUNDS_EXCEEDED:
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
    case EXCEPTION_INT_OVERFLOW:
    case EXCEPTION_ILLEGAL_INSTRUCTION:
    case EXCEPTION_PRIV_INSTRUCTION:
    case EXCEPTION_FLT_DENORMAL_OPERAND:
    case EXCEPTION_FLT_DIVIDE_BY_ZERO:
    case EXCEPTION_FLT_INEXACT_RESULT:
    case EXCEPTION_FLT_INVALID_OPERATION:
    case EXCEPTION_FLT_OVERFLOW:
    case EXCEPTION_FLT_STACK_CHECK:
    case EXCEPTION_FLT_UNDERFLOW:
        return true;
    default:
        return false;
    }
}

[[noreturn]] void Landing(Guard *guard) {
    TlsSetValue(s_tlsIndex, guard->outer);
    __builtin_longjmp(guard->jumpBuffer, 1);
}

LONG CALLBACK GuardHandler(EXCEPTION_POINTERS *pInfo) {
    if (pInfo == nullptr || !IsHardwareFault(pInfo->ExceptionRecord->ExceptionCode))
        return EXCEPTION_CONTINUE_SEARCH;
    auto *guard = static_cast<Guard *>(TlsGetValue(s_tlsIndex));
    if (guard == nullptr)
        return EXCEPTION_CONTINUE_SEARCH;
    CONTEXT *context = pInfo->ContextRecord;
    // Entered as if called: the stack pointer 8 bytes below a 16-byte boundary.
    DWORD64 stack = (context->Rsp - kLandingGap) & ~static_cast<DWORD64>(15);
    context->Rsp = stack - 8;
    context->Rcx = reinterpret_cast<DWORD64>(guard);
    context->Rip = reinterpret_cast<DWORD64>(&Landing);
    return EXCEPTION_CONTINUE_EXECUTION;
}

BOOL CALLBACK InstallOnce(PINIT_ONCE, PVOID, PVOID *) {
    s_tlsIndex = TlsAlloc();
    AddVectoredExceptionHandler(0, &GuardHandler);
    return TRUE;
}

// Out of line and never inlined: the jump comes back into this frame.
__attribute__((noinline)) bool RunGuarded(HostGuardedFunction pfFunction, void *pContext) {
    Guard guard;
    guard.outer = static_cast<Guard *>(TlsGetValue(s_tlsIndex));
    if (__builtin_setjmp(guard.jumpBuffer) != 0)
        return false;
    TlsSetValue(s_tlsIndex, &guard);
    pfFunction(pContext);
    TlsSetValue(s_tlsIndex, guard.outer);
    return true;
}

} // namespace

bool HostOsGuardedCall(HostGuardedFunction pfFunction, void *pContext) {
    InitOnceExecuteOnce(&s_once, &InstallOnce, nullptr, nullptr);
    return RunGuarded(pfFunction, pContext);
}

} // namespace kestrel::host
