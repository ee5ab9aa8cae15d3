// The component frame of CmpMemPool: its linked-in entry, the export table of every pool function,
// the table of imported functions resolved at hook 1 and dropped at hook 15, and the ready flag.
#include "MemPoolInternal.h"

namespace kestrel::mempool {

ComponentState g_state = {};
LockCall g_lock = {LockMode::NotReady, nullptr};
LockCall g_unlock = {LockMode::NotReady, nullptr};
decltype(&::SysSemEnter) g_pfSemaphoreEnter = nullptr;
decltype(&::SysSemLeave) g_pfSemaphoreLeave = nullptr;

void UpdateLockModes() {
    const auto call = [](RTS_VOID_FCTPTR pfSemaphore, RTS_VOID_FCTPTR pfInterrupt) {
        if (!g_state.bReady)
            return LockCall{LockMode::NotReady, nullptr};
        if (pfSemaphore != nullptr)
            return LockCall{LockMode::Semaphore, pfSemaphore};
        if (pfInterrupt != nullptr)
            return LockCall{LockMode::Interrupt, pfInterrupt};
        return LockCall{LockMode::None, nullptr};
    };
    const auto slot = [](Import i) { return g_state.slots[static_cast<unsigned>(i)]; };
    g_lock = call(slot(Import::SysSemEnter), slot(Import::SysIntDisableAll));
    g_unlock = call(slot(Import::SysSemLeave), slot(Import::SysIntEnableAll));
    const auto calls = [](const LockCall &c) { return c.mode == LockMode::Semaphore || c.mode == LockMode::Interrupt; };
    g_state.bLockCalls = calls(g_lock) || calls(g_unlock);
    const bool bSemaphores = g_lock.mode == LockMode::Semaphore && g_unlock.mode == LockMode::Semaphore;
    g_pfSemaphoreEnter = bSemaphores ? ImportedSysSemEnter() : nullptr;
    g_pfSemaphoreLeave = bSemaphores ? ImportedSysSemLeave() : nullptr;
}

namespace {

constexpr RTS_UI32 kVersion = RTS_SYSTEM_VERSION;

// Functions of the component manager, taken from the init record of the entry call.
PF_CM_REGISTER_API s_pfRegisterAPI = nullptr;
PF_CM_GET_API2 s_pfGetAPI2 = nullptr;

// One row per imported function: its API name and its slot.
struct ImportRow {
    const char *pszName;
    RTS_VOID_FCTPTR *ppfSlot;
};

const ImportRow s_importTable[] = {
#define KESTREL_MEMPOOL_IMPORT_ROW(name) {#name, &g_state.slots[static_cast<unsigned>(Import::name)]},
    KESTREL_MEMPOOL_IMPORTS(KESTREL_MEMPOOL_IMPORT_ROW)
#undef KESTREL_MEMPOOL_IMPORT_ROW
};

// Every C-callable function of the component, signature and version 0. Not constant: the rows of
// MemPoolGetBlock and MemPoolPutBlock take the forms built for the processor, if there are any.
ExportEntry s_exportTable[] = {
    RTS_EXPORT_FN(MemPoolCreateDynamic),
    RTS_EXPORT_FN(MemPoolCreateStatic),
    RTS_EXPORT_FN(MemPoolExtendDynamic),
    RTS_EXPORT_FN(MemPoolExtendStatic),
    RTS_EXPORT_FN(MemPoolCreateSyncObject),
    RTS_EXPORT_FN(MemPoolDeleteSyncObject),
    RTS_EXPORT_FN(MemPoolDelete),
    RTS_EXPORT_FN(MemPoolCleanup),
    RTS_EXPORT_FN(MemPoolGetBlock),
    RTS_EXPORT_FN(MemPoolGetBlock2),
    RTS_EXPORT_FN(MemPoolPutBlock),
    RTS_EXPORT_FN(MemPoolAddUsedBlock),
    RTS_EXPORT_FN(MemPoolAppendUsedBlock),
    RTS_EXPORT_FN(MemPoolInsertUsedBlock),
    RTS_EXPORT_FN(MemPoolRemoveUsedBlock),
    RTS_EXPORT_FN(MemPoolAddUsedBlockToPool),
    RTS_EXPORT_FN(MemPoolAppendUsedBlockToPool),
    RTS_EXPORT_FN(MemPoolRemoveUsedBlockFromPool),
    RTS_EXPORT_FN(MemPoolLockBlock),
    RTS_EXPORT_FN(MemPoolUnlockBlock),
    RTS_EXPORT_FN(MemPoolLock),
    RTS_EXPORT_FN(MemPoolUnlock),
    RTS_EXPORT_FN(MemPoolGetPCB),
    RTS_EXPORT_FN(MemPoolFindBlock),
    RTS_EXPORT_FN(MemPoolIsValidBlock),
    RTS_EXPORT_FN(MemPoolGetFirstBlock),
    RTS_EXPORT_FN(MemPoolGetNextBlock),
    RTS_EXPORT_FN(FixedBlocksPoolInit),
    RTS_EXPORT_FN(FixedBlocksPoolAlloc),
    RTS_EXPORT_FN(FixedBlocksPoolFree),
    RTS_EXPORT_FN(FixedBlocksPoolReclaim),
    RTS_EXPORT_FN(FixedBlocksPoolDestroy),
    RTS_EXPORT_END,
};

void DropImports() {
    for (const ImportRow &row : s_importTable)
        *row.ppfSlot = nullptr;
}

// Resolves every import by name; all are optional, so a missing one only leaves its slot empty
// and the lookup's result does not matter. Each slot is written once, after its lookup: the lookup
// itself locks the component table through this component, whose cached lock mode may still call
// through the previous slot value when hook 1 arrives a second time.
void ResolveImports() {
    for (const ImportRow &row : s_importTable) {
        RTS_VOID_FCTPTR pfFound = nullptr;
        if (s_pfGetAPI2 != nullptr)
            s_pfGetAPI2(row.pszName, &pfFound, CM_IMPORT_OPTIONAL, 0, 0);
        *row.ppfSlot = pfFound;
    }
}

void ChooseBlockFunctions() {
    const WideBlockFunctions wide = GetWideBlockFunctions();
    for (ExportEntry &row : s_exportTable) {
        if (row.pfFunction == reinterpret_cast<RTS_VOID_FCTPTR>(&MemPoolGetBlock) && wide.pfGetBlock != nullptr)
            row.pfFunction = reinterpret_cast<RTS_VOID_FCTPTR>(wide.pfGetBlock);
        if (row.pfFunction == reinterpret_cast<RTS_VOID_FCTPTR>(&MemPoolPutBlock) && wide.pfPutBlock != nullptr)
            row.pfFunction = reinterpret_cast<RTS_VOID_FCTPTR>(wide.pfPutBlock);
    }
}

RTS_RESULT ExportFunctions() {
    if (s_pfRegisterAPI == nullptr)
        return ERR_NOT_INITIALIZED;
    return s_pfRegisterAPI(s_exportTable, nullptr, 0, CMPID_CmpMemPool);
}

// The imports are resolved at hook 1 rather than here: the component manager uses the pools
// before the import pass, and the component must behave as "not ready" until then.
RTS_RESULT ImportFunctions() {
    return ERR_OK;
}

RTS_UI32 GetVersion() {
    return kVersion;
}

RTS_RESULT HookFunction(RTS_UI32 ulHook, RTS_UINTPTR, RTS_UINTPTR) {
    switch (ulHook) {
    case CH_INIT:
        ResolveImports();
        g_state.bReady = true;
        UpdateLockModes();
        break;
    case CH_EXIT2:
        g_state.bReady = false;
        DropImports();
        UpdateLockModes();
        break;
    default:
        break;
    }
    return ERR_OK;
}

} // namespace
} // namespace kestrel::mempool

using namespace kestrel::mempool;

extern "C" RTS_RESULT CmpMemPoolEntry(ComponentInitStruct *pInitStruct) {
    if (pInitStruct == nullptr)
        return ERR_PARAMETER;
    pInitStruct->CmpId = CMPID_CmpMemPool;
    pInitStruct->pfExportFunctions = &ExportFunctions;
    pInitStruct->pfImportFunctions = &ImportFunctions;
    pInitStruct->pfGetVersion = &GetVersion;
    pInitStruct->pfHookFunction = &HookFunction;
    pInitStruct->pfCreateInstance = nullptr;
    pInitStruct->pfDeleteInstance = nullptr;
    s_pfRegisterAPI = pInitStruct->pfCMRegisterAPI;
    s_pfGetAPI2 = pInitStruct->pfCMGetAPI2;
    ChooseBlockFunctions();
    return ERR_OK;
}
