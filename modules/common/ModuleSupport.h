// Helpers every runtime service module uses to talk to the component manager:
// keeping the manager's functions from the entry record, registering the
// module's export table, and filling API slots by name. Header-only; each
// module gets its own copy of the state, since modules share nothing.
#pragma once

#include "CmpItf.h"

namespace kestrel::module {

// Every module reports the version of the runtime it was built with.
inline RTS_UI32 SystemVersion() {
    return RTS_SYSTEM_VERSION;
}

// The manager's functions a module keeps from its entry record.
struct CmLink {
    PF_CM_REGISTER_API pfRegisterAPI = nullptr;
    PF_CM_GET_API2 pfGetAPI2 = nullptr;
    PF_CM_CREATE_INSTANCE pfCreateInstance = nullptr;
    PF_CM_DELETE_INSTANCE2 pfDeleteInstance2 = nullptr;

    // Takes the manager's side of the entry record and fills in the module's side.
    void Enter(ComponentInitStruct *pInit, CMPID cmpId, PF_EXPORT_FUNCTIONS pfExport, PF_IMPORT_FUNCTIONS pfImport,
               PF_HOOK_FUNCTION pfHook) {
        pfRegisterAPI = pInit->pfCMRegisterAPI;
        pfGetAPI2 = pInit->pfCMGetAPI2;
        pfCreateInstance = pInit->pfCMCreateInstance;
        pfDeleteInstance2 = pInit->pfCMDeleteInstance2;
        pInit->CmpId = cmpId;
        pInit->pfExportFunctions = pfExport;
        pInit->pfImportFunctions = pfImport;
        pInit->pfGetVersion = &SystemVersion;
        pInit->pfHookFunction = pfHook;
        pInit->pfCreateInstance = nullptr;
        pInit->pfDeleteInstance = nullptr;
    }

    // Registers a C export table (signature and version per row); the table
    // form of the register function takes the CmpId as its fourth argument.
    RTS_RESULT Export(const ExportEntry *pTable, CMPID cmpId) const {
        if (pfRegisterAPI == nullptr)
            return ERR_NOT_INITIALIZED;
        return pfRegisterAPI(pTable, nullptr, 0, cmpId);
    }

    // Fills one API slot by name. An optional import that is missing leaves
    // the slot null and is no error; every user tests the slot first.
    template <typename F> RTS_RESULT Import(const char *pszName, F *&slot, bool bOptional = true) const {
        slot = nullptr;
        if (pfGetAPI2 == nullptr)
            return bOptional ? ERR_OK : ERR_NOT_INITIALIZED;
        RTS_VOID_FCTPTR pf = nullptr;
        RTS_RESULT result = pfGetAPI2(pszName, &pf, bOptional ? CM_IMPORT_OPTIONAL : 0u, 0, 0);
        slot = reinterpret_cast<F *>(pf);
        return result;
    }
};

// The whole component side of a module that only offers functions: it registers one C export
// table, imports nothing and has no use for hooks (it answers 0 to every one). The table is an
// array with internal linkage in the module's own source.
template <CMPID kCmpId, const ExportEntry *kTable> struct ExportOnlyComponent {
    static inline CmLink cm;
    static RTS_RESULT Export() { return cm.Export(kTable, kCmpId); }
    static RTS_RESULT Import() { return ERR_OK; }
    static RTS_RESULT Hook(RTS_UI32, RTS_UINTPTR, RTS_UINTPTR) { return ERR_OK; }
    static RTS_RESULT Enter(ComponentInitStruct *pInit) {
        if (pInit == nullptr)
            return ERR_PARAMETER;
        cm.Enter(pInit, kCmpId, &Export, &Import, &Hook);
        return ERR_OK;
    }
};

// Hook CH_COMPONENT_EXIT names a component that is going away. A module
// clears the slots it imported from that component, since the functions
// will be unloaded with it; this tells whether the hook is about pszProvider.
inline bool IsLeaving(RTS_UINTPTR ulParam1, const char *pszProvider) {
    const char *pszName = reinterpret_cast<const char *>(ulParam1);
    if (pszName == nullptr)
        return false;
    for (; *pszName != '\0' && *pszName == *pszProvider; ++pszName, ++pszProvider) {
    }
    return *pszName == *pszProvider;
}

} // namespace kestrel::module
