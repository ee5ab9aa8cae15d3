// The component manager as a component of its own ("CM", CmpId 1): its entry function, its
// callbacks and its three export tables (IEC functions, C functions, and the string utilities
// together with the basic checks and the locks).
#include "CMPrivate.h"

namespace kestrel::cm {

const ExportEntry g_cmExportsIec[] = {
    RTS_EXPORT_ROW(cmaddcomponent, "cmaddcomponent", 0, RTS_SYSTEM_VERSION),
    RTS_EXPORT_ROW(cmremovecomponent, "cmremovecomponent", 0, RTS_SYSTEM_VERSION),
    RTS_EXPORT_FN(cmloadcomponent),
    RTS_EXPORT_FN(cmunloadcomponent),
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
    RTS_EXPORT_FN(CMInit),
    RTS_EXPORT_FN(CMInit2),
    RTS_EXPORT_FN(CMInit3),
    RTS_EXPORT_FN(CMInitEnd),
    RTS_EXPORT_FN(CMExit),
    RTS_EXPORT_FN(CMSetExit),
    RTS_EXPORT_FN(CMGetExit),
    RTS_EXPORT_FN(CMDebugOut),
    RTS_EXPORT_FN(CMDebugOutArg),
    RTS_EXPORT_FN(CMRegisterAPI),
    RTS_EXPORT_FN(CMRegisterAPI2),
    RTS_EXPORT_FN(CMGetAPI),
    RTS_EXPORT_FN(CMGetAPI2),
    RTS_EXPORT_FN(CMGetAPI3),
    RTS_EXPORT_FN(CMReleaseAPI),
    RTS_EXPORT_FN(CMImportFunctions),
    RTS_EXPORT_FN(CMAddComponent),
    RTS_EXPORT_FN(CMRemoveComponent),
    RTS_EXPORT_FN(CMLoadComponent),
    RTS_EXPORT_FN(CMUnloadComponent),
    RTS_EXPORT_FN(CMInitComponent),
    RTS_EXPORT_FN(CMExitComponent),
    RTS_EXPORT_FN(CMGetComponentByName),
    RTS_EXPORT_FN(CMGetCmpId),
    RTS_EXPORT_FN(CMGetCmpName),
    RTS_EXPORT_FN(CMGetComponent),
    RTS_EXPORT_FN(CMGetNumOfComponents),
    RTS_EXPORT_FN(CMGetComponentByIndex),
    RTS_EXPORT_FN(CMGetFirstComponent),
    RTS_EXPORT_FN(CMGetNextComponent),
    RTS_EXPORT_FN(CMCreateInstance),
    RTS_EXPORT_FN(CMDeleteInstance),
    RTS_EXPORT_FN(CMDeleteInstance2),
    RTS_EXPORT_FN(CMGetInstance),
    RTS_EXPORT_FN(CMRegisterInstance),
    RTS_EXPORT_FN(CMUnregisterInstance),
    RTS_EXPORT_FN(CMGetInstanceList),
    RTS_EXPORT_FN(CMCallHook),
    RTS_EXPORT_FN(CMCallHook2),
    RTS_EXPORT_FN(CMCallExtraCommCycleHook),
    RTS_EXPORT_FN(CMGetCurrentHook),
    RTS_EXPORT_FN(CMIsOperationDisabled),
    RTS_EXPORT_FN(CMProfiling),
    RTS_EXPORT_END,
};

const ExportEntry g_cmExportsUtl[] = {
    RTS_EXPORT_FN(CMBasicChecks),
    RTS_EXPORT_FN(CMLockCreate),
    RTS_EXPORT_FN(CMLockDelete),
    RTS_EXPORT_FN(CMLockEnter),
    RTS_EXPORT_FN(CMLockLeave),
    RTS_EXPORT_FN(CMUtlStrrev),
    RTS_EXPORT_FN(CMUtlSkipWhiteSpace),
    RTS_EXPORT_FN(CMUtlStrRChr),
    RTS_EXPORT_FN(CMUtlStrICmp),
    RTS_EXPORT_FN(CMUtlStrNICmp),
    RTS_EXPORT_FN(CMUtlStrIStr),
    RTS_EXPORT_FN(CMUtlStrlwr),
    RTS_EXPORT_FN(CMUtlStrupr),
    RTS_EXPORT_FN(CMUtlStrToLower),
    RTS_EXPORT_FN(CMUtlStrToUpper),
    RTS_EXPORT_FN(CMUtlStrLen),
    RTS_EXPORT_FN(CMUtlSafeMemCpy),
    RTS_EXPORT_FN(CMUtlSafeStrCpy2),
    RTS_EXPORT_FN(CMUtlSafeStrCpy),
    RTS_EXPORT_FN(CMUtlSafeStrNCpy),
    RTS_EXPORT_FN(CMUtlSafeStrCat),
    RTS_EXPORT_FN(CMUtlvsnprintf),
    RTS_EXPORT_FN(CMUtlsnprintf),
    RTS_EXPORT_FN(CMUtlLtoa),
    RTS_EXPORT_FN(CMUtlUltoa),
    RTS_EXPORT_FN(CMUtlGUIDToString),
    RTS_EXPORT_FN(CMUtlBinarySearch_UI32),
    RTS_EXPORT_FN(CMUtlwstrcmp),
    RTS_EXPORT_FN(CMUtlwstrncmp),
    RTS_EXPORT_FN(CMUtlwstrcpy),
    RTS_EXPORT_FN(CMUtlwstrcat),
    RTS_EXPORT_FN(CMUtlwstrncpy),
    RTS_EXPORT_FN(CMUtlwstrlen),
    RTS_EXPORT_FN(CMUtlwtolower),
    RTS_EXPORT_FN(CMUtlwtoupper),
    RTS_EXPORT_FN(CMUtlwstrchr),
    RTS_EXPORT_FN(CMUtlStrToW),
    RTS_EXPORT_FN(CMUtlWToStr),
    RTS_EXPORT_FN(CMUtlcwstrcmp),
    RTS_EXPORT_FN(CMUtlcwstrcpy),
    RTS_EXPORT_FN(CMUtlcwstrcat),
    RTS_EXPORT_FN(CMUtlcwstrncpy),
    RTS_EXPORT_FN(CMUtlcwstrlen),
    RTS_EXPORT_FN(CMUtlcwtolower),
    RTS_EXPORT_FN(CMUtlcwtoupper),
    RTS_EXPORT_FN(CMUtlcwstrchr),
    RTS_EXPORT_FN(CMUtlStrToCW),
    RTS_EXPORT_FN(CMUtlCWToStr),
    RTS_EXPORT_FN(CMStringCreate),
    RTS_EXPORT_FN(CMStringDelete),
    RTS_EXPORT_FN(CMStringExtend),
    RTS_EXPORT_FN(CMStringGetText),
    RTS_EXPORT_END,
};


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
