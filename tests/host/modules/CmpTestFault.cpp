// A component that faults on purpose with an invalid memory access: during
// start-up (hook 1) or in the fifth communication cycle (hook 20). Every
// other hook answers normally, so the shut-down that follows is orderly.
#include "CmpItf.h"

namespace {

// An address in the never-mapped first page; volatile so that the compiler
// cannot see the access is invalid.
volatile RTS_UINTPTR s_badAddress = 16;

constexpr CMPID kCmpId = 0x7F01;
int s_cycles = 0;

void Fault() {
    *reinterpret_cast<volatile int *>(s_badAddress) = 1;
}

RTS_RESULT Hook(RTS_UI32 ulHook, RTS_UINTPTR, RTS_UINTPTR) {
#if KESTREL_TEST_FAULT_IN_CYCLE
    if (ulHook == CH_COMM_CYCLE && ++s_cycles == 5)
        Fault();
#else
    if (ulHook == CH_INIT && ++s_cycles == 1)
        Fault();
#endif
    return ERR_OK;
}

RTS_UI32 Version() {
    return RTS_SYSTEM_VERSION;
}

} // namespace

extern "C" RTS_RESULT KESTREL_TEST_FAULT_ENTRY(ComponentInitStruct *pInitStruct) {
    pInitStruct->CmpId = kCmpId;
    pInitStruct->pfHookFunction = &Hook;
    pInitStruct->pfGetVersion = &Version;
    return ERR_OK;
}
