// Start-up: CMInit, CMInit2 and CMInit3 with their passes in their fixed order, the settings file
// and the CM's settings, the banner and the component list, safe mode, the CM events, and
// CMInitEnd, the second half of start-up.
#include <cstdio>
#include <string>

#include "CMPrivate.h"

namespace kestrel::cm {

namespace {

alignas(MEMPOOL_ALIGN) unsigned char s_classArea[kClassAreaSize];
alignas(MEMPOOL_ALIGN) unsigned char s_instanceArea[kInstanceAreaSize];
alignas(MEMPOOL_ALIGN) unsigned char s_componentArea[kComponentAreaSize];

const char *const s_separator = "=======================================================================";

inline void Keep(RTS_RESULT &kept, RTS_RESULT result) {
    if (kept == ERR_OK)
        kept = result;
}

// Step 1: a clean CM. The component counter is left as it is.
RTS_RESULT Reset() {
    g_cm.bExit.store(0);
    g_cm.bInitializing = 0;
    g_cm.ulCurrentHook = 0;
    g_cm.ulLastHook = 0;
    g_cm.ulClassCounter = 0;
    g_cm.iDisablingOperations = 1;
    g_cm.iOverloadable = 1;
    g_cm.iMinCommCycleInterval = 250;
    g_cm.iSplitDatabases = 0;
    g_cm.bEventsCreated = 0;
    for (RTS_HANDLE &hEvent : g_cm.ahEvents)
        hEvent = nullptr;
    g_cm.ulStopStartup = 0;
    g_cm.secondaryResult = ERR_OK;
    RegistryReset();
    OrderReset();
    ClearImports();
    // Memory the CM owns: the three lists work before any memory service is there. Their locks
    // come with CMInitEnd.
    RTS_RESULT result = ERR_OK;
    g_cm.hClassPool = MemPoolCreateStatic(sizeof(ClassEntry), sizeof(s_classArea), s_classArea, nullptr);
    RTS_RESULT instanceResult = ERR_OK;
    g_cm.hInstancePool =
        MemPoolCreateStatic(sizeof(InstanceEntry), sizeof(s_instanceArea), s_instanceArea, &instanceResult);
    Keep(result, instanceResult);
    RTS_RESULT tableResult = ERR_OK;
    g_cm.hComponentPool =
        MemPoolCreateStatic(sizeof(ComponentInfo), sizeof(s_componentArea), s_componentArea, &tableResult);
    Keep(result, tableResult);
    return result;
}

// Step 11: the settings file, with the fallbacks of a missing or unreadable one.
RTS_RESULT OpenSettings(const char *pszFile, RTS_UI32 ulFlags) {
    bool bOptional = (ulFlags & CM_INIT_SETTINGS_OPTIONAL) != 0;
    auto pfSetDatabase = Imp_SettgSetDatabaseName();
    RTS_RESULT result = ERR_OK;
    if (pszFile == nullptr) {
        if (bOptional)
            return ERR_OK;
        if (pfSetDatabase == nullptr)
            return ERR_FAILED;
        for (const char *pszName : {"KESTRELControl", "KestrelSP", "KestrelControl"}) {
            result = pfSetDatabase(pszName);
            if (result == ERR_OK)
                return ERR_OK;
        }
        CM_LOG(LOG_ERROR, result, 3, "Cannot find configuration <file>%s</file>", "KESTRELControl");
        return ERR_FAILED;
    }
    if (pfSetDatabase == nullptr)
        return bOptional ? ERR_OK : ERR_FAILED;
    result = pfSetDatabase(pszFile);
    if (result != ERR_OK && !bOptional) {
        result = pfSetDatabase("KESTRELControl");
        if (result != ERR_OK)
            result = pfSetDatabase("KestrelControl");
    }
    if (result == ERR_OK || bOptional)
        return ERR_OK;
    // The gateway client's configuration is allowed to be missing.
    if (std::strstr(pszFile, "GWClient.cfg") != nullptr)
        return ERR_OK;
    CM_LOG(LOG_ERROR, result, 3, "Cannot find configuration <file>%s</file>", pszFile);
    return ERR_FAILED;
}

// Step 12: the CM's own settings.
void ReadSettings() {
    auto pfGetInt = Imp_SettgGetIntValue();
    if (pfGetInt == nullptr)
        return;
    RTS_I32 iSplit = 0;
    pfGetInt(kSection, "CmpSettings.SplitDatabases", &iSplit, 0);
    pfGetInt("CmpSettings", "SplitDatabases", &iSplit, 0);
    g_cm.iSplitDatabases = iSplit;
    if (auto pfSetOptions = Imp_SettgSetOptions())
        pfSetOptions(static_cast<RTS_UI32>(iSplit));
    pfGetInt(kSection, "DisablingOperations", &g_cm.iDisablingOperations, 1);
    pfGetInt(kSection, "OverloadableFunctions", &g_cm.iOverloadable, 1);
    pfGetInt(kSection, "MinimalCommCycleHookInterval", &g_cm.iMinCommCycleInterval, 250);
}

void PrintBanner() {
    CM_LOG(LOG_PRINT, ERR_OK, 0, "%s", s_separator);
    CM_LOG(LOG_INFO, ERR_OK, 4, "%s V3", RTS_PRODUCT_NAME);
    CM_LOG(LOG_INFO, ERR_OK, 5, "%s", "Soft-PLC runtime host: components, pools, target and file system");
    CM_LOG(LOG_INFO, ERR_OK, 6, "<version>%s</version> <builddate>%s</builddate>", RTS_SYSTEM_VERSION_TEXT,
           __DATE__ " " __TIME__);
    CM_LOG(LOG_PRINT, ERR_OK, 0, "%s", s_separator);
}

const char *KindPrefix(RTS_UI16 usFlags) {
    bool bSystem = (usFlags & CM_FLAG_SYSTEM) != 0;
    bool bDynamic = (usFlags & CM_FLAG_DYNAMIC) != 0;
    if (bSystem)
        return bDynamic ? "System|Dynamic: " : "System: ";
    return bDynamic ? "Dynamic: " : "";
}

// Four passes: system static, system dynamic, static, dynamic; each in table order.
void PrintComponentList() {
    if (Imp_LogAdd() == nullptr)
        return;
    static const RTS_UI16 s_passes[4][2] = {{0x5, 0x5}, {0x6, 0x6}, {0x5, 0x1}, {0x6, 0x2}};
    for (const auto &pass : s_passes) {
        for (ComponentInfo *p = FirstRecord(); p != nullptr; p = NextRecord(p)) {
            if ((p->usFlags & pass[0]) != pass[1])
                continue;
            char szPrefix[41];
            CMUtlsnprintf(szPrefix, sizeof(szPrefix), "%s%s", p->usState == CM_STATE_DISABLED ? "[DISABLED] " : "",
                          KindPrefix(p->usFlags));
            RTS_UI32 v = p->ulVersion;
            CM_LOG(LOG_INFO, ERR_OK, 7, "%s<cmp>%s</cmp> init, <id>0x%08x</id> <ver>%d.%d.%d.%d</ver>", szPrefix,
                   p->pszName, p->CmpId, static_cast<int>(RTS_VERSION_MAJOR(v)), static_cast<int>(RTS_VERSION_MINOR(v)),
                   static_cast<int>(RTS_VERSION_PATCH(v)), static_cast<int>(RTS_VERSION_BUILD(v)));
        }
    }
}

// Step 19: after failed imports, the components that need everything resolved are switched off.
void SwitchToSafeMode(RTS_RESULT importResult) {
    static const CMPID s_safeModeIds[] = {2, 0x12, 0x75, 0x76};
    std::string disabled;
    for (ComponentInfo *p = FirstRecord(); p != nullptr; p = NextRecord(p)) {
        for (CMPID id : s_safeModeIds) {
            if (p->CmpId != id)
                continue;
            p->usState = CM_STATE_DISABLED;
            try {
                disabled += disabled.empty() ? "" : ", ";
                disabled += "<cmp>";
                disabled += p->pszName != nullptr ? p->pszName : "?";
                disabled += "</cmp>";
            } catch (...) {
            }
        }
    }
    CM_LOG(LOG_ERROR, importResult, 69, "Resolving components failed. Switch to safe mode!");
    CM_LOG(LOG_WARNING, importResult, 70, "Safe mode disabled: %s", disabled.empty() ? "none" : disabled.c_str());
}

// Step 22.
RTS_RESULT CreateEvents() {
    auto pfCreate = Imp_EventCreate();
    if (pfCreate == nullptr)
        return ERR_OK;
    RTS_RESULT kept = ERR_OK;
    for (unsigned i = 0; i < 6; ++i) {
        RTS_RESULT result = ERR_OK;
        g_cm.ahEvents[i] = pfCreate(kEventIds[i], CMPID_CM, &result);
        Keep(kept, result);
    }
    g_cm.bEventsCreated = 1;
    return kept;
}

} // namespace

RTS_HANDLE EventHandle(EVENTID eventId) {
    if (g_cm.bEventsCreated == 0)
        return nullptr;
    for (unsigned i = 0; i < 6; ++i)
        if (kEventIds[i] == eventId)
            return g_cm.ahEvents[i];
    return nullptr;
}

} // namespace kestrel::cm

using namespace kestrel::cm;

extern "C" RTS_RESULT CMInit(const char *pszSettingsFile, const ComponentListEntry *pComponentList) {
    return CMInit2(pszSettingsFile, pComponentList, 0);
}

extern "C" RTS_RESULT CMInit2(const char *pszSettingsFile, const ComponentListEntry *pComponentList, RTS_UI32 ulFlags) {
    // Narrowed on purpose: only "settings optional" passes through this form.
    return CMInit3(pszSettingsFile, pComponentList, ulFlags != 0 ? 1u : 0u);
}

extern "C" RTS_RESULT CMInit3(const char *pszSettingsFile, const ComponentListEntry *pComponentList, RTS_UI32 ulFlags) {
    // Every step runs; the first failure of each result is the one kept.
    RTS_RESULT mainResult = Reset();
    RTS_RESULT &secondary = g_cm.secondaryResult;
    Keep(secondary, AddBasicComponents(pComponentList));
    Keep(mainResult, EntryPass());
    Keep(secondary, ImportPass(CM_FLAG_IMPORT_MASK));
    Keep(secondary, AddComponentList(pComponentList, true, false));
    Keep(mainResult, EntryPass());
    Keep(secondary, ImportPass(CM_FLAG_IMPORT_MASK));
    if (CMBasicChecks() == 0) {
        CM_LOG(LOG_ERROR, ERR_FAILED, 2, "RtsBasicChecks failed. Cannot start the runtime system");
        return ERR_FAILED;
    }
    Keep(secondary, AddComponentList(pComponentList, false, false));
    Keep(mainResult, EntryPass());
    Keep(mainResult, CMCallHook(CH_INIT, 0, 0, 0));
    Keep(mainResult, OpenSettings(pszSettingsFile, ulFlags));
    ReadSettings();
    Keep(secondary, AddSettingsComponents());
    Keep(mainResult, EntryPass());
    ImportPass(CM_FLAG_SYSTEM);
    // Dynamic components get hook 1 a second time, now that the settings components are in.
    Keep(mainResult, CMCallHook2(CM_FLAG_DYNAMIC, CH_INIT, 0, 0));
    Keep(mainResult, CMCallHook(CH_INIT_SYSTEM, 0, 0, 0));
    PrintBanner();
    PrintComponentList();
    RTS_RESULT importResult = ImportPass(CM_FLAG_IMPORT_MASK);
    if (importResult != ERR_OK)
        SwitchToSafeMode(importResult);
    g_cm.ulLastCommCycle = NowMs();
    Keep(mainResult, CMCallHook(CH_INIT2, reinterpret_cast<RTS_UINTPTR>(&g_cm.ulStopStartup), 0, 0));
    Keep(mainResult, CreateEvents());
    if (g_cm.ulStopStartup == 0 && (ulFlags & CM_INIT_NO_INIT_END) == 0)
        Keep(mainResult, CMInitEnd());
    return importResult != ERR_OK ? importResult : mainResult;
}

extern "C" RTS_RESULT CMInitEnd(void) {
    if (g_cm.ulLastHook >= CH_INIT3)
        return ERR_DUPLICATE;
    // From here on other threads may use the lists.
    for (RTS_HANDLE hPool : {g_cm.hClassPool, g_cm.hInstancePool, g_cm.hComponentPool})
        if (PoolExists(hPool))
            MemPoolCreateSyncObject(hPool);
    static const RTS_UI32 s_hooks[] = {CH_INIT3,     CH_INIT_IO,       CH_INIT_TASKS, CH_INIT_APPS,
                                       CH_INIT_COMM, CH_INIT_FINISHED, CH_INIT_DONE};
    RTS_RESULT kept = ERR_OK;
    for (RTS_UI32 ulHook : s_hooks)
        Keep(kept, CMCallHook(ulHook, 0, 0, 0));
    for (ComponentInfo *p = FirstRecord(); p != nullptr; p = NextRecord(p))
        if (p->usState == CM_STATE_INITIALIZED)
            p->usState = CM_STATE_RUNNING;
    CM_LOG(LOG_INFO, ERR_OK, 34, "%s ready", RTS_PRODUCT_NAME);
    return kept;
}
