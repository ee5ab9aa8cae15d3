// The component manager as a component of its own ("CM", CmpId 1): its entry function, its
// callbacks and its three export tables (IEC functions, C functions, and the string utilities
// together with the basic checks and the locks).
#include "CMPrivate.h"

namespace kestrel::cm {

#define KESTREL_CM_EXPORT(fn) RTS_EXPORT_ROW(fn, #fn, 0, 0)

const ExportEntry g_cmExportsIec[] = {
    RTS_EXPORT_ROW(cmaddcomponent, "cmaddcomponent", 0, RTS_SYSTEM_VERSION),
    RTS_EXPORT_ROW(cmremovecomponent, "cmremovecomponent", 0, RTS_SYSTEM_VERSION),
    RTS_EXPORT_ROW(cmloadcomponent, "cmloadcomponent", 0, 0),
    RTS_EXPORT_ROW(cmunloadcomponent, "cmunloadcomponent", 0, 0),
    RTS_EXPORT_ROW(cmshutdown, "cmshutdown", 0, RTS_SYSTEM_VERSION),
    RTS_EXPORT_ROW(cmutlstricmp, "cmutlstricmp", 0, RTS_SYSTEM_VERSION),
    RTS_EXPORT_ROW(cmutlwstrcpy, "cmutlwstrcpy", 0, RTS_SYSTEM_VERSION),
    RTS_EXPORT_ROW(cmutlsafestrcpy, "cmutlsafestrcpy", 0, RTS_SYSTEM_VERSION),
    RTS_EXPORT_ROW(cmutlcwstrcpy, "cmutlcwstrcpy", CM_SIG_CMUTLCWSTRCPY, RTS_SYSTEM_VERSION),
    RTS_EXPORT_ROW(cmgetcomponentbyname, "cmgetcomponentbyname", 0, RTS_SYSTEM_VERSION),
    RTS_EXPORT_ROW(cmexitcomponent, "cmexitcomponent", 0, RTS_SYSTEM_VERSION),
    RTS_EXPORT_ROW(cminitcomponent, "cminitcomponent", 0, RTS_SYSTEM_VERSION),
    RTS_EXPORT_END,
};

const ExportEntry g_cmExportsC[] = {
    KESTREL_CM_EXPORT(CMInit),
    KESTREL_CM_EXPORT(CMInit2),
    KESTREL_CM_EXPORT(CMInit3),
    KESTREL_CM_EXPORT(CMInitEnd),
    KESTREL_CM_EXPORT(CMExit),
    KESTREL_CM_EXPORT(CMSetExit),
    KESTREL_CM_EXPORT(CMGetExit),
    KESTREL_CM_EXPORT(CMDebugOut),
    KESTREL_CM_EXPORT(CMDebugOutArg),
    KESTREL_CM_EXPORT(CMRegisterAPI),
    KESTREL_CM_EXPORT(CMRegisterAPI2),
    KESTREL_CM_EXPORT(CMGetAPI),
    KESTREL_CM_EXPORT(CMGetAPI2),
    KESTREL_CM_EXPORT(CMGetAPI3),
    KESTREL_CM_EXPORT(CMReleaseAPI),
    KESTREL_CM_EXPORT(CMImportFunctions),
    KESTREL_CM_EXPORT(CMAddComponent),
    KESTREL_CM_EXPORT(CMRemoveComponent),
    KESTREL_CM_EXPORT(CMLoadComponent),
    KESTREL_CM_EXPORT(CMUnloadComponent),
    KESTREL_CM_EXPORT(CMInitComponent),
    KESTREL_CM_EXPORT(CMExitComponent),
    KESTREL_CM_EXPORT(CMGetComponentByName),
    KESTREL_CM_EXPORT(CMGetCmpId),
    KESTREL_CM_EXPORT(CMGetCmpName),
    KESTREL_CM_EXPORT(CMGetComponent),
    KESTREL_CM_EXPORT(CMGetNumOfComponents),
    KESTREL_CM_EXPORT(CMGetComponentByIndex),
    KESTREL_CM_EXPORT(CMGetFirstComponent),
    KESTREL_CM_EXPORT(CMGetNextComponent),
    KESTREL_CM_EXPORT(CMCreateInstance),
    KESTREL_CM_EXPORT(CMDeleteInstance),
    KESTREL_CM_EXPORT(CMDeleteInstance2),
    KESTREL_CM_EXPORT(CMGetInstance),
    KESTREL_CM_EXPORT(CMRegisterInstance),
    KESTREL_CM_EXPORT(CMUnregisterInstance),
    KESTREL_CM_EXPORT(CMGetInstanceList),
    KESTREL_CM_EXPORT(CMCallHook),
    KESTREL_CM_EXPORT(CMCallHook2),
    KESTREL_CM_EXPORT(CMCallExtraCommCycleHook),
    KESTREL_CM_EXPORT(CMGetCurrentHook),
    KESTREL_CM_EXPORT(CMIsOperationDisabled),
    KESTREL_CM_EXPORT(CMProfiling),
    RTS_EXPORT_END,
};

const ExportEntry g_cmExportsUtl[] = {
    KESTREL_CM_EXPORT(CMBasicChecks),
    KESTREL_CM_EXPORT(CMLockCreate),
    KESTREL_CM_EXPORT(CMLockDelete),
    KESTREL_CM_EXPORT(CMLockEnter),
    KESTREL_CM_EXPORT(CMLockLeave),
    KESTREL_CM_EXPORT(CMUtlStrrev),
    KESTREL_CM_EXPORT(CMUtlSkipWhiteSpace),
    KESTREL_CM_EXPORT(CMUtlStrRChr),
    KESTREL_CM_EXPORT(CMUtlStrICmp),
    KESTREL_CM_EXPORT(CMUtlStrNICmp),
    KESTREL_CM_EXPORT(CMUtlStrIStr),
    KESTREL_CM_EXPORT(CMUtlStrlwr),
    KESTREL_CM_EXPORT(CMUtlStrupr),
    KESTREL_CM_EXPORT(CMUtlStrToLower),
    KESTREL_CM_EXPORT(CMUtlStrToUpper),
    KESTREL_CM_EXPORT(CMUtlStrLen),
    KESTREL_CM_EXPORT(CMUtlSafeMemCpy),
    KESTREL_CM_EXPORT(CMUtlSafeStrCpy2),
    KESTREL_CM_EXPORT(CMUtlSafeStrCpy),
    KESTREL_CM_EXPORT(CMUtlSafeStrNCpy),
    KESTREL_CM_EXPORT(CMUtlSafeStrCat),
    KESTREL_CM_EXPORT(CMUtlvsnprintf),
    KESTREL_CM_EXPORT(CMUtlsnprintf),
    KESTREL_CM_EXPORT(CMUtlLtoa),
    KESTREL_CM_EXPORT(CMUtlUltoa),
    KESTREL_CM_EXPORT(CMUtlGUIDToString),
    KESTREL_CM_EXPORT(CMUtlBinarySearch_UI32),
    KESTREL_CM_EXPORT(CMUtlwstrcmp),
    KESTREL_CM_EXPORT(CMUtlwstrncmp),
    KESTREL_CM_EXPORT(CMUtlwstrcpy),
    KESTREL_CM_EXPORT(CMUtlwstrcat),
    KESTREL_CM_EXPORT(CMUtlwstrncpy),
    KESTREL_CM_EXPORT(CMUtlwstrlen),
    KESTREL_CM_EXPORT(CMUtlwtolower),
    KESTREL_CM_EXPORT(CMUtlwtoupper),
    KESTREL_CM_EXPORT(CMUtlwstrchr),
    KESTREL_CM_EXPORT(CMUtlStrToW),
    KESTREL_CM_EXPORT(CMUtlWToStr),
    KESTREL_CM_EXPORT(CMUtlcwstrcmp),
    KESTREL_CM_EXPORT(CMUtlcwstrcpy),
    KESTREL_CM_EXPORT(CMUtlcwstrcat),
    KESTREL_CM_EXPORT(CMUtlcwstrncpy),
    KESTREL_CM_EXPORT(CMUtlcwstrlen),
    KESTREL_CM_EXPORT(CMUtlcwtolower),
    KESTREL_CM_EXPORT(CMUtlcwtoupper),
    KESTREL_CM_EXPORT(CMUtlcwstrchr),
    KESTREL_CM_EXPORT(CMUtlStrToCW),
    KESTREL_CM_EXPORT(CMUtlCWToStr),
    KESTREL_CM_EXPORT(CMStringCreate),
    KESTREL_CM_EXPORT(CMStringDelete),
    KESTREL_CM_EXPORT(CMStringExtend),
    KESTREL_CM_EXPORT(CMStringGetText),
    RTS_EXPORT_END,
};

#undef KESTREL_CM_EXPORT

namespace {

// The IEC table goes first, marked as an external library, so that IEC lookups find the lower-case
// names; the C tables follow only when that worked.
RTS_RESULT ExportFunctions() {
    PF_CM_REGISTER_API pfRegister = g_cm.cmInit.pfCMRegisterAPI;
    if (pfRegister == nullptr)
        return ERR_NOT_INITIALIZED;
    RTS_RESULT result = pfRegister(g_cmExportsIec, nullptr, 1, CMPID_CM);
    if (result == ERR_OK)
        result = pfRegister(g_cmExportsC, nullptr, 0, CMPID_CM);
    if (result == ERR_OK)
        result = pfRegister(g_cmExportsUtl, nullptr, 0, CMPID_CM);
    return result;
}

RTS_RESULT ImportFunctions() {
    return ImportAll();
}

RTS_UI32 GetVersion() {
    return RTS_SYSTEM_VERSION;
}

RTS_HANDLE CreateInstance(CLASSID, RTS_RESULT *pResult) {
    if (pResult != nullptr)
        *pResult = ERR_NOTIMPLEMENTED;
    return nullptr;
}

RTS_RESULT DeleteInstance(RTS_HANDLE) {
    return ERR_NOTIMPLEMENTED;
}

// Locks of the CM work between its own hooks 1 and 15.
RTS_RESULT HookFunction(RTS_UI32 ulHook, RTS_UINTPTR, RTS_UINTPTR) {
    if (ulHook == CH_INIT)
        g_cm.bInitializing = 1;
    else if (ulHook == CH_EXIT2)
        g_cm.bInitializing = 0;
    return ERR_OK;
}

} // namespace

} // namespace kestrel::cm

using namespace kestrel::cm;

extern "C" RTS_RESULT CMEntry(ComponentInitStruct *pInitStruct) {
    if (pInitStruct == nullptr)
        return ERR_PARAMETER;
    pInitStruct->CmpId = CMPID_CM;
    pInitStruct->pfExportFunctions = &ExportFunctions;
    pInitStruct->pfImportFunctions = &ImportFunctions;
    pInitStruct->pfGetVersion = &GetVersion;
    pInitStruct->pfCreateInstance = &CreateInstance;
    pInitStruct->pfDeleteInstance = &DeleteInstance;
    pInitStruct->pfHookFunction = &HookFunction;
    g_cm.cmInit = *pInitStruct; // words 8..15 stay for the CM's own use
    return ERR_OK;
}
