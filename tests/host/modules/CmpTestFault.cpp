// A component that faults with an invalid memory access at start-up (hook 1)
// or in the fifth communication cycle (hook 20); the shut-down stays orderly.
#include "CmpItf.h"

namespace {

// In the never-mapped first page; volatile, so the compiler cannot see the fault.
volatile RTS_UINTPTR s_badAddress = 16;
constexpr bool kInCycle = KESTREL_TEST_FAULT_IN_CYCLE;
int s_calls = 0;

RTS_RESULT Hook(RTS_UI32 ulHook, RTS_UINTPTR, RTS_UINTPTR) {
    if (ulHook == (kInCycle ? CH_COMM_CYCLE : CH_INIT) && ++s_calls == (kInCycle ? 5 : 1))
        *reinterpret_cast<volatile int *>(s_badAddress) = 1;
    return ERR_OK;
}

} // namespace

extern "C" RTS_RESULT KESTREL_TEST_FAULT_ENTRY(ComponentInitStruct *pInitStruct) {
    pInitStruct->CmpId = 0x7F01;
    pInitStruct->pfHookFunction = &Hook;
    return ERR_OK;
}
