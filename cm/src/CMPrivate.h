// Internals shared by the sources of the component manager: its global state, the records of the
// class and instance lists, the table of functions it imports from other components, the logging
// helper and the walks over the component table that the other sources build on.
#pragma once

#include <atomic>
#include <cstring>

#include "CMItf.h"
#include "CMUtlItf.h"
#include "CmpEventMgrItf.h"
#include "CmpLogItf.h"
#include "CmpMemPoolItf.h"
#include "CmpSettingsItf.h"
#include "SysCpuHandlingItf.h"
#include "SysExceptItf.h"
#include "SysIntItf.h"
#include "SysMemItf.h"
#include "SysOutItf.h"
#include "SysSemItf.h"
#include "SysTargetItf.h"
#include "SysTaskItf.h"
#include "SysTimeItf.h"

namespace kestrel::cm {

// One registered class: the owning component (null until its entry call succeeded), the class id
// and the CmpId of the owner. Twelve bytes on the 32-bit build.
struct ClassEntry {
    ComponentInfo *pComponent; // owner, bound after its entry call
    CLASSID classId;           // the class
    CMPID cmpId;               // CmpId of the owner
};

// One registered instance: its class entry (may be null), the instance id and the handle.
struct InstanceEntry {
    ClassEntry *pClass;    // class entry found by class id at registration
    RTS_UI32 ulInstanceId; // id given by the registering component
    RTS_HANDLE hInstance;  // the instance
};

// The three static pools hold the same number of blocks on every build; the byte areas follow from
// the record sizes (148, 148 and 2588 bytes on the 32-bit build).
inline constexpr RTS_UI32 kClassBlocks = 5;
inline constexpr RTS_UI32 kInstanceBlocks = 5;
inline constexpr RTS_UI32 kComponentBlocks = 40;
inline constexpr RTS_SIZE kClassAreaSize = MEMPOOL_STATIC_AREA_SIZE(sizeof(ClassEntry), kClassBlocks);
inline constexpr RTS_SIZE kInstanceAreaSize = MEMPOOL_STATIC_AREA_SIZE(sizeof(InstanceEntry), kInstanceBlocks);
inline constexpr RTS_SIZE kComponentAreaSize = MEMPOOL_STATIC_AREA_SIZE(sizeof(ComponentInfo), kComponentBlocks);

// Names the CM uses for itself: its component name, the name it allocates memory under and the
// name of the runtime in the log.
inline constexpr const char *kCMName = "CM";
inline constexpr const char *kSection = "ComponentManager";

// The six CM events in their order of creation.
inline constexpr EVENTID kEventIds[6] = {CM_EVT_PREPARE_SHUTDOWN, CM_EVT_SHUTDOWN_TASKS, CM_EVT_SHUTDOWN_APPS,
                                         CM_EVT_SHUTDOWN_IO,      CM_EVT_SHUTDOWN_COMM,  CM_EVT_OPERATION_DISABLED};

// The whole process-global state of the CM. Start-up resets everything except the component
// counter, which only grows while the program runs.
struct CMGlobals {
    RTS_HANDLE hClassPool = RTS_INVALID_HANDLE;     // class list
    RTS_HANDLE hInstancePool = RTS_INVALID_HANDLE;  // instance list
    RTS_HANDLE hComponentPool = RTS_INVALID_HANDLE; // component table
    std::atomic<RTS_I32> bExit{0};                  // exit requested (set from other threads too)
    RTS_I32 bInitializing = 0;                      // between the CM's own hooks 1 and 15
    RTS_UI32 ulCurrentHook = 0;                     // latest hook started (except 23..30)
    RTS_UI32 ulLastHook = 0;                        // latest hook whose dispatch finished
    RTS_UI32 ulClassCounter = 0;                    // number of class registrations
    RTS_I32 nComponents = 0;                        // number of records ever added
    RTS_UI64 ullTableGeneration = 0;                // bumped when a record comes, goes or is entered
    RTS_I32 iDisablingOperations = 1;               // setting "DisablingOperations"
    RTS_I32 iOverloadable = 1;                      // setting "OverloadableFunctions"
    RTS_I32 iMinCommCycleInterval = 250;            // setting "MinimalCommCycleHookInterval"
    RTS_I32 iSplitDatabases = 0;                    // settings "SplitDatabases"
    RTS_UI32 ulLastCommCycle = 0;                   // ms of the last communication cycle
    RTS_HANDLE ahEvents[6] = {};                    // the CM events, in creation order
    RTS_I32 bEventsCreated = 0;                     // the six events exist
    RTS_UI32 ulStopStartup = 0;                     // hook 2 word: nonzero keeps CMInitEnd back
    RTS_RESULT secondaryResult = 0;                 // kept for diagnosis only, never returned
    ComponentInitStruct cmInit = {};                // CM functions handed to CMEntry (words 8..15)
    char szLoadFile[112] = "";                      // module file of the last failed load
    char szLoadError[512] = "";                     // the loader's reason for it
    bool bLoadMissing = false;                      // the last failed load found no file at all
};
extern CMGlobals g_cm;

// Every function the CM imports from other components, all optional. The X-list keeps the order
// in which the import callback asks for them.
#define KESTREL_CM_IMPORTS(X)                                                                                          \
    X(LogAdd)                                                                                                          \
    X(SettgSetOptions)                                                                                                 \
    X(SettgGetIntValue)                                                                                                \
    X(SettgGetStringValue)                                                                                             \
    X(SettgSetDatabaseName)                                                                                            \
    X(SysExceptRegisterJmpBuf)                                                                                         \
    X(SysExceptUnregisterJmpBuf)                                                                                       \
    X(SysExceptCatch)                                                                                                  \
    X(SysIntEnableAll)                                                                                                 \
    X(SysIntDisableAll)                                                                                                \
    X(SysSemCreate)                                                                                                    \
    X(SysSemDelete)                                                                                                    \
    X(SysSemEnter)                                                                                                     \
    X(SysSemLeave)                                                                                                     \
    X(SysMemAllocData)                                                                                                 \
    X(SysMemFreeData)                                                                                                  \
    X(SysTimeGetMs)                                                                                                    \
    X(SysTimeGetUs)                                                                                                    \
    X(LogCreate)                                                                                                       \
    X(LogDelete)                                                                                                       \
    X(LogGetFirstEntry)                                                                                                \
    X(LogGetNextEntry)                                                                                                 \
    X(SysTaskCreate)                                                                                                   \
    X(SysCpuCallIecFuncWithParams)                                                                                     \
    X(SysTargetGetId)                                                                                                  \
    X(SysTargetGetType)                                                                                                \
    X(SysTargetGetOperatingSystemId)                                                                                   \
    X(SysTargetGetProcessorId)                                                                                         \
    X(SysTargetGetDeviceMask)                                                                                          \
    X(SysOutVPrintf)                                                                                                   \
    X(EventCreate)                                                                                                     \
    X(EventDelete)                                                                                                     \
    X(EventOpen)                                                                                                       \
    X(EventClose)                                                                                                      \
    X(EventPost)                                                                                                       \
    X(EventPost2)

// Imports without a header of their own here (the file API); resolved into untyped slots.
#define KESTREL_CM_UNTYPED_IMPORTS(X)                                                                                  \
    X(SysFileOpen)                                                                                                     \
    X(SysFileWrite)                                                                                                    \
    X(SysFileClose)

enum class Import : unsigned {
#define KESTREL_CM_IMPORT_ENUM(name) name,
    KESTREL_CM_IMPORTS(KESTREL_CM_IMPORT_ENUM) KESTREL_CM_UNTYPED_IMPORTS(KESTREL_CM_IMPORT_ENUM)
#undef KESTREL_CM_IMPORT_ENUM
        Count
};
inline constexpr unsigned kImportCount = static_cast<unsigned>(Import::Count);

// The slots and, for each, the component record that provided the function: when a module is
// unloaded, the slots it filled are emptied before its code goes away.
struct ImportTable {
    RTS_VOID_FCTPTR slots[kImportCount];
    const ComponentInfo *providers[kImportCount];
};
extern ImportTable g_imp;

// Typed reads of the slots: Imp_LogAdd(), Imp_SysSemEnter(), ...
#define KESTREL_CM_IMPORT_ACCESSOR(name)                                                                               \
    inline decltype(&::name) Imp_##name() {                                                                            \
        return reinterpret_cast<decltype(&::name)>(g_imp.slots[static_cast<unsigned>(Import::name)]);                  \
    }
KESTREL_CM_IMPORTS(KESTREL_CM_IMPORT_ACCESSOR)
#undef KESTREL_CM_IMPORT_ACCESSOR

// Resolves every import (the CM's import callback) and empties the slots a record provided.
RTS_RESULT ImportAll();
void DropImportsOf(const ComponentInfo *pComponent, bool bEmptySlots);
void ClearImports();

// Logs through the imported logger; nothing happens while no logger is imported.
#define CM_LOG(cls, err, info, ...)                                                                                    \
    do {                                                                                                               \
        if (auto pfLog_ = ::kestrel::cm::Imp_LogAdd())                                                                 \
            pfLog_(LOG_STD_LOGGER, CMPID_CM, (cls), (err), (info), __VA_ARGS__);                                       \
    } while (0)

// Milliseconds from the imported time service, or from the operating system without one.
RTS_UI32 NowMs();

// --- component table ---------------------------------------------------------------------------

inline bool PoolExists(RTS_HANDLE hPool) {
    return hPool != RTS_INVALID_HANDLE && hPool != nullptr;
}
inline bool TableExists() {
    return PoolExists(g_cm.hComponentPool);
}

// Walks over the used list of a pool. The pool's own headers are public, so a walk needs neither a
// call nor a lock per step (the hook dispatcher depends on that).
inline void *FirstPayload(RTS_HANDLE hPool) {
    if (!PoolExists(hPool))
        return nullptr;
    MEMPOOL_BLOCK *pBlock = static_cast<MEMPOOL_PCB *>(hPool)->pUsedList;
    return pBlock != nullptr ? reinterpret_cast<char *>(pBlock) + MEMPOOL_BLOCK_HEADER_SIZE : nullptr;
}
inline void *NextPayload(void *pPayload) {
    auto *pBlock = reinterpret_cast<MEMPOOL_BLOCK *>(static_cast<char *>(pPayload) - MEMPOOL_BLOCK_HEADER_SIZE);
    return pBlock->pNext != nullptr ? reinterpret_cast<char *>(pBlock->pNext) + MEMPOOL_BLOCK_HEADER_SIZE : nullptr;
}
inline ComponentInfo *FirstRecord() {
    return static_cast<ComponentInfo *>(FirstPayload(g_cm.hComponentPool));
}
inline ComponentInfo *NextRecord(ComponentInfo *p) {
    return static_cast<ComponentInfo *>(NextPayload(p));
}

inline bool IsInvalidRecord(const ComponentInfo *p) {
    return p == nullptr || p == static_cast<const void *>(RTS_INVALID_HANDLE);
}

// Table lock: the pool lock, which exists once CMInitEnd created it; before that the pool answers
// without locking and the CM runs single-threaded.
inline void LockTable() {
    if (TableExists())
        MemPoolLock(g_cm.hComponentPool);
}
inline void UnlockTable() {
    if (TableExists())
        MemPoolUnlock(g_cm.hComponentPool);
}

// A record with that exact name, optionally only among the given states (mask of 1 << state).
ComponentInfo *FindByName(const char *pszName, RTS_UI32 stateMask);
inline constexpr RTS_UI32 kAnyState = 0xFFFFFFFFu;
inline constexpr RTS_UI32 StateBit(RTS_UI16 state) {
    return 1u << state;
}

// Calls a record's entry function and takes over its answer (Part of every entry pass and of
// CMLoadComponent). bLog: log success and failure.
RTS_RESULT CallEntry(ComponentInfo *pComponent, bool bLog);
// Binds the classes registered under the record's CmpId to the record.
void BindClasses(ComponentInfo *pComponent);
// Forgets class owners that point at a record that is going away.
void UnbindClasses(const ComponentInfo *pComponent);

// Start-up passes (CMLoad.cpp).
RTS_RESULT AddBasicComponents(const ComponentListEntry *pList);
RTS_RESULT AddComponentList(const ComponentListEntry *pList, bool bSystemPass, bool bMarkExisting);
RTS_RESULT AddSettingsComponents();
RTS_RESULT EntryPass();
RTS_RESULT ImportPass(RTS_UI16 usMask);
RTS_RESULT ResolveEntry(const char *pszName, RTS_HANDLE *phModule, PF_COMPONENT_ENTRY *ppfEntry);
RTS_RESULT LoadModule(const char *pszName, RTS_HANDLE *phModule);
// The last failed load: whether it found no file at all, and its "Cannot load module" line
// (pszFile null: the file of the last failed load).
bool LastLoadFoundNoFile();
void LogLoadFailure(const char *pszFile);

// Dense table order for the hook dispatcher (CMHooks.cpp): follows every record added and removed.
void OrderOnAdd(ComponentInfo *pComponent);
void OrderOnRemove(const ComponentInfo *pComponent);
void OrderReset();

// Registry cache (CMRegistryCache.cpp): follows every record added to and removed from the table.
void RegistryOnAdd(ComponentInfo *pComponent);
void RegistryOnRemove(const ComponentInfo *pComponent);
void RegistryReset();

// The lookup behind CMGetAPI3; also reports the record that provided the function.
RTS_RESULT Lookup(const char *pszName, RTS_VOID_FCTPTR *ppfFunction, RTS_UI32 ulOptions, RTS_UI32 *pulSignature,
                  RTS_UI32 *pulVersion, const ComponentInfo **ppProvider);

// Matching of component flags against a pass mask: 0x0300 takes either bit, other masks all bits.
inline bool FlagsMatch(RTS_UI16 usFlags, RTS_UI16 usMask) {
    if (usMask == CM_FLAG_IMPORT_MASK)
        return (usFlags & CM_FLAG_IMPORT_MASK) != 0;
    return (usFlags & usMask) == usMask;
}

// The CM's own export callback and hook callback state (CMEntry.cpp).
extern const ExportEntry g_cmExportsIec[];
extern const ExportEntry g_cmExportsC[];
extern const ExportEntry g_cmExportsUtl[];

// Events of the CM (CMStartup.cpp): handle of an event id, or null when it was not created.
RTS_HANDLE EventHandle(EVENTID eventId);

} // namespace kestrel::cm
