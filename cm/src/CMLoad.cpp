// Finding and calling components: the linked-in entry functions, module files loaded by name, the
// entry call and its exchange record, and CMLoadComponent/CMUnloadComponent for run-time loading.
#include <cstdio>

#include "CMHost.h"
#include "CMOs.h"
#include "CMPrivate.h"

namespace kestrel::cm {

namespace {

inline constexpr std::size_t kMaxModuleName = 100; // names of 100 characters or more are refused

// The components linked into the program; only these three names are looked up here.
struct LinkedComponent {
    const char *pszName;
    PF_COMPONENT_ENTRY pfEntry;
};
LinkedComponent s_linked[] = {
    {"SysTarget", nullptr},
    {"SysFile", nullptr},
    {"CmpMemPool", &CmpMemPoolEntry},
};

LinkedComponent *FindLinked(const char *pszName) {
    for (LinkedComponent &linked : s_linked)
        if (std::strcmp(linked.pszName, pszName) == 0)
            return &linked;
    return nullptr;
}

bool HasModuleSuffix(const char *pszName) {
    for (const char *const *ppSuffix = os::ModuleSuffixes(); *ppSuffix != nullptr; ++ppSuffix)
        if (std::strstr(pszName, *ppSuffix) != nullptr)
            return true;
    return false;
}

} // namespace

RTS_RESULT LoadModule(const char *pszName, RTS_HANDLE *phModule) {
    *phModule = RTS_INVALID_HANDLE;
    std::size_t nLen = std::strlen(pszName);
    if (nLen >= kMaxModuleName)
        return ERR_BUFFERSIZE;
    char szFile[kMaxModuleName + 8];
    std::memcpy(szFile, pszName, nLen + 1);
    if (!HasModuleSuffix(szFile))
        CMUtlSafeStrCat(szFile, sizeof(szFile), os::ModuleSuffixes()[0]);
    bool bMissing = false;
    RTS_RESULT result = os::LoadModule(szFile, phModule, g_cm.szLoadError, sizeof(g_cm.szLoadError), &bMissing);
    g_cm.bLoadMissing = result != ERR_OK && bMissing;
    if (result != ERR_OK) {
        // A module file that is there but does not load (missing dependency, unresolved symbol,
        // wrong architecture ...) is always an error, with the loader's reason. A file that is not
        // installed at all is the normal case for most names of the host's lists: the caller
        // decides whether to say so (LogLoadFailure).
        if (!bMissing)
            LogLoadFailure(szFile);
        else
            CMUtlSafeStrCpy(g_cm.szLoadFile, sizeof(g_cm.szLoadFile), szFile);
        *phModule = RTS_INVALID_HANDLE;
    }
    return result;
}

void LogLoadFailure(const char *pszFile) {
    CM_LOG(LOG_ERROR, ERR_NO_OBJECT, 0, "Cannot load module <file>%s</file>: %s",
           pszFile != nullptr ? pszFile : g_cm.szLoadFile, g_cm.szLoadError);
}

bool LastLoadFoundNoFile() {
    return g_cm.bLoadMissing;
}

RTS_RESULT ResolveEntry(const char *pszName, RTS_HANDLE *phModule, PF_COMPONENT_ENTRY *ppfEntry) {
    if (pszName == nullptr || phModule == nullptr || ppfEntry == nullptr)
        return ERR_PARAMETER;
    if (LinkedComponent *pLinked = FindLinked(pszName)) {
        if (pLinked->pfEntry == nullptr)
            return ERR_FAILED; // the host did not link it in
        *ppfEntry = pLinked->pfEntry;
        return ERR_OK;
    }
    RTS_HANDLE hModule = RTS_INVALID_HANDLE;
    if (LoadModule(pszName, &hModule) != ERR_OK)
        return ERR_FAILED;
    auto pfEntry = reinterpret_cast<PF_COMPONENT_ENTRY>(os::GetSymbol(hModule, "ComponentEntry"));
    if (pfEntry == nullptr) {
        CM_LOG(LOG_ERROR, ERR_FAILED, 0, "Module <cmp>%s</cmp> has no ComponentEntry", pszName);
        os::UnloadModule(hModule);
        return ERR_FAILED;
    }
    *phModule = hModule;
    *ppfEntry = pfEntry;
    return ERR_OK;
}

RTS_RESULT CallEntry(ComponentInfo *pComponent, bool bLog) {
    ComponentInitStruct init{};
    init.pfCMRegisterAPI = &CMRegisterAPI;
    init.pfCMGetAPI = &CMGetAPI;
    init.pfCMCallHook = &CMCallHook;
    init.pfCMRegisterClass = &CMRegisterClass;
    init.pfCMCreateInstance = &CMCreateInstance;
    init.pfCMRegisterAPI2 = &CMRegisterAPI2;
    init.pfCMGetAPI2 = &CMGetAPI2;
    init.pfCMDeleteInstance2 = &CMDeleteInstance2;
    RTS_RESULT result = pComponent->pfEntry(&init);
    if (result != ERR_OK) {
        pComponent->usState = CM_STATE_DISABLED;
        if (bLog)
            CM_LOG(LOG_ERROR, ERR_FAILED, 16, "Init function failed of <cmp>%s</cmp>", pComponent->pszName);
        return result;
    }
    pComponent->CmpId = static_cast<CMPID>(init.CmpId);
    pComponent->pfExportFunctions = init.pfExportFunctions;
    pComponent->pfImportFunctions = init.pfImportFunctions;
    pComponent->pfGetVersion = init.pfGetVersion;
    pComponent->pfHookFunction = init.pfHookFunction;
    pComponent->pfCreateInstance = init.pfCreateInstance;
    pComponent->pfDeleteInstance = init.pfDeleteInstance;
    pComponent->ulVersion = init.pfGetVersion != nullptr ? init.pfGetVersion() : 0;
    ++g_cm.ullTableGeneration; // its export callback is new
    BindClasses(pComponent);
    pComponent->usState = CM_STATE_INITIALIZED;
    if (bLog) {
        RTS_UI32 v = pComponent->ulVersion;
        CM_LOG(LOG_INFO, ERR_OK, 0, "%s<cmp>%s</cmp> init, <id>0x%08x</id> <version>%d.%d.%d.%d</version>",
               (pComponent->usFlags & CM_FLAG_DYNAMIC) != 0 ? "Dynamic: " : "", pComponent->pszName, pComponent->CmpId,
               static_cast<int>(RTS_VERSION_MAJOR(v)), static_cast<int>(RTS_VERSION_MINOR(v)),
               static_cast<int>(RTS_VERSION_PATCH(v)), static_cast<int>(RTS_VERSION_BUILD(v)));
    }
    return ERR_OK;
}

RTS_RESULT EntryPass() {
    RTS_RESULT result = ERR_OK;
    ComponentInfo *p = FirstRecord();
    while (p != nullptr) {
        if (p->usState != CM_STATE_LOADED) {
            p = NextRecord(p);
            continue;
        }
        if (p->pfEntry == nullptr) {
            // A record without an entry function cannot take part; it leaves the table.
            ComponentInfo *pNext = NextRecord(p);
            CMUnloadComponent(p);
            p = pNext;
            continue;
        }
        if (CallEntry(p, false) != ERR_OK)
            result = ERR_FAILED;
        p = NextRecord(p); // after the call: an entry function may have added components
    }
    return result;
}

} // namespace kestrel::cm

using namespace kestrel::cm;

extern "C" RTS_RESULT CMSetLinkedComponent(const char *pszName, PF_COMPONENT_ENTRY pfEntry) {
    if (pszName == nullptr)
        return ERR_PARAMETER;
    LinkedComponent *pLinked = FindLinked(pszName);
    if (pLinked == nullptr)
        return ERR_PARAMETER;
    pLinked->pfEntry = pfEntry;
    return ERR_OK;
}

extern "C" ComponentInfo *CMLoadComponent(const char *pszName, RTS_RESULT *pResult) {
    auto finish = [pResult](ComponentInfo *pComponent, RTS_RESULT result) {
        if (pResult != nullptr)
            *pResult = result;
        return pComponent;
    };
    ComponentInfo *pInvalid = static_cast<ComponentInfo *>(RTS_INVALID_HANDLE);
    if (pszName == nullptr)
        return finish(pInvalid, ERR_PARAMETER);
    LockTable();
    ComponentInfo *pExisting = FindByName(pszName, kAnyState);
    UnlockTable();
    if (pExisting != nullptr)
        return finish(pExisting, ERR_OK);

    ComponentInfo tmpl{};
    tmpl.hModule = RTS_INVALID_HANDLE;
    g_cm.bLoadMissing = false;
    RTS_RESULT result = ResolveEntry(pszName, &tmpl.hModule, &tmpl.pfEntry);
    if (result != ERR_OK) {
        if (LastLoadFoundNoFile())
            LogLoadFailure(nullptr); // asked for by name: say why it is not there
        return finish(pInvalid, result);
    }
    if (tmpl.pfEntry == nullptr)
        return finish(pInvalid, ERR_FAILED);
    // Always marked dynamic, even when the entry was linked in.
    tmpl.usState = CM_STATE_LOADED;
    tmpl.usFlags = CM_FLAG_DYNAMIC;
    tmpl.pszName = pszName;
    tmpl.bStaticName = 0;
    result = CallEntry(&tmpl, true);
    // The entry call bound the component's classes to the template on the stack; they move to
    // the record once there is one, and are let go otherwise.
    auto fail = [&](RTS_RESULT r) {
        UnbindClasses(&tmpl);
        return finish(pInvalid, r);
    };
    if (result != ERR_OK)
        return fail(result);
    // A component that cannot export or import is not added; its module stays loaded and the
    // caller sees the entry's result.
    if (tmpl.pfExportFunctions != nullptr && tmpl.pfExportFunctions() != ERR_OK)
        return fail(result);
    if (tmpl.pfImportFunctions != nullptr && tmpl.pfImportFunctions() != ERR_OK)
        return fail(result);
    CMCallHook(CH_COMPONENT_LOADED, reinterpret_cast<RTS_UINTPTR>(pszName), 0, 0);
    // The record waits in state 2 for CMInitComponent.
    tmpl.usState = CM_STATE_LOADED;
    ComponentInfo *pComponent = CMAddComponent(&tmpl, &result);
    if (IsInvalidRecord(pComponent))
        return fail(result);
    BindClasses(pComponent);
    UnbindClasses(&tmpl);
    return finish(pComponent, ERR_OK);
}

extern "C" RTS_RESULT CMUnloadComponent(ComponentInfo *pComponent) {
    if (IsInvalidRecord(pComponent))
        return ERR_PARAMETER;
    if (pComponent->usState != CM_STATE_LOADED)
        return ERR_FAILED;
    CMCallHook(CH_COMPONENT_EXIT, reinterpret_cast<RTS_UINTPTR>(pComponent->pszName), 0, 0);
    if ((pComponent->usFlags & CM_FLAG_DYNAMIC) != 0) {
        // The CM's own slots that point into the module are emptied before its code goes away.
        DropImportsOf(pComponent, true);
        if (pComponent->hModule != RTS_INVALID_HANDLE)
            os::UnloadModule(pComponent->hModule);
        pComponent->hModule = RTS_INVALID_HANDLE;
    }
    pComponent->usState = CM_STATE_REMOVED;
    return CMRemoveComponent(pComponent);
}
