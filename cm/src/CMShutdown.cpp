// Shut-down: CMExit runs the shut-down hooks with the CM events posted between them, repeats the
// first shut-down hook while components ask for more time, and unloads the components in groups,
// the component manager, the memory pools and the runtime's base services last.
#include "CMPrivate.h"

namespace kestrel::cm {

namespace {

inline constexpr RTS_UI32 kExitRequestLimitMs = 10000;

// Components that everything else may still need while it goes down.
const CMPID s_lastSet[] = {CMPID_CM,        CMPID_CmpMemPool, CMPID_SysSem,     CMPID_SysMem,
                           CMPID_SysExcept, CMPID_CmpLog,     CMPID_CmpSettings};

bool InLastSet(CMPID cmpId) {
    for (CMPID id : s_lastSet)
        if (id == cmpId)
            return true;
    return false;
}

void PostEvent(EVENTID eventId) {
    auto pfPost = Imp_EventPost2();
    RTS_HANDLE hEvent = EventHandle(eventId);
    if (pfPost == nullptr || hEvent == nullptr || hEvent == RTS_INVALID_HANDLE)
        return;
    RTS_UI32 ulZero = 0;
    pfPost(hEvent, 1, 1, &ulZero);
}

void DeleteEvents() {
    auto pfDelete = Imp_EventDelete();
    for (unsigned i = 0; i < 6; ++i) {
        RTS_HANDLE hEvent = g_cm.ahEvents[i];
        if (pfDelete != nullptr && g_cm.bEventsCreated != 0 && hEvent != nullptr && hEvent != RTS_INVALID_HANDLE)
            pfDelete(hEvent);
        g_cm.ahEvents[i] = nullptr;
    }
    g_cm.bEventsCreated = 0;
}

// Unloads every record in state 2 that the predicate selects, pass after pass, until a pass
// unloads nothing (unloading one component may let another go).
template <typename Predicate> void UnloadGroup(Predicate select) {
    bool bUnloaded = true;
    while (bUnloaded) {
        bUnloaded = false;
        ComponentInfo *p = FirstRecord();
        while (p != nullptr) {
            ComponentInfo *pNext = NextRecord(p);
            if (p->usState == CM_STATE_LOADED && select(p->usFlags, p->CmpId) && CMUnloadComponent(p) == ERR_OK)
                bUnloaded = true;
            p = pNext;
        }
    }
}

} // namespace

} // namespace kestrel::cm

using namespace kestrel::cm;

extern "C" RTS_RESULT CMExit(void) {
    CMSetExit();
    CM_LOG(LOG_INFO, ERR_OK, 35, "%s shutdown...", RTS_PRODUCT_NAME);
    PostEvent(CM_EVT_PREPARE_SHUTDOWN);
    PostEvent(CM_EVT_SHUTDOWN_TASKS);
    // Components may ask for more time to stop, but not for more than ten seconds in all.
    RTS_UI32 ulStart = NowMs();
    while (CMCallHook(CH_EXIT_REQUEST, 0, 0, 0) == ERR_CALL_AGAIN && NowMs() - ulStart < kExitRequestLimitMs) {
    }
    PostEvent(CM_EVT_SHUTDOWN_APPS);
    CMCallHook(CH_EXIT_TASKS, 0, 0, 0);
    CMCallHook(CH_EXIT_APPS, 0, 0, 0);
    PostEvent(CM_EVT_SHUTDOWN_COMM);
    CMCallHook(CH_EXIT_COMM, 0, 0, 0);
    PostEvent(CM_EVT_SHUTDOWN_IO);
    CMCallHook(CH_EXIT_IO, 0, 0, 0);
    for (RTS_HANDLE hPool : {g_cm.hClassPool, g_cm.hInstancePool, g_cm.hComponentPool})
        if (PoolExists(hPool))
            MemPoolDeleteSyncObject(hPool);
    DeleteEvents();
    CMCallHook(CH_EXIT, 0, 0, 0);
    CM_LOG(LOG_INFO, ERR_OK, 36, "%s shutdown done", RTS_PRODUCT_NAME);
    CMCallHook(CH_EXIT_SYSTEM, 0, 0, 0);
    CMCallHook(CH_EXIT2, 0, 0, 0);

    for (ComponentInfo *p = FirstRecord(); p != nullptr; p = NextRecord(p)) {
        RTS_UI16 usState = p->usState;
        if (usState == CM_STATE_DISABLED || usState == CM_STATE_INITIALIZED || usState == CM_STATE_RUNNING)
            p->usState = CM_STATE_LOADED;
    }
    UnloadGroup([](RTS_UI16 usFlags, CMPID cmpId) {
        return (usFlags & CM_FLAG_DYNAMIC) != 0 && (usFlags & CM_FLAG_SYSTEM) == 0 && !InLastSet(cmpId);
    });
    UnloadGroup([](RTS_UI16 usFlags, CMPID cmpId) {
        return (usFlags & CM_FLAG_STATIC) != 0 && (usFlags & CM_FLAG_SYSTEM) == 0 && !InLastSet(cmpId);
    });
    UnloadGroup([](RTS_UI16 usFlags, CMPID cmpId) { return (usFlags & CM_FLAG_SYSTEM) != 0 && !InLastSet(cmpId); });
    for (RTS_HANDLE hPool : {g_cm.hClassPool, g_cm.hInstancePool, g_cm.hComponentPool})
        if (PoolExists(hPool))
            MemPoolCleanup(hPool, kCMName, 0);
    CMCallHook(CH_EXIT_FINAL, 0, 0, 0);
    ComponentInfo *p = FirstRecord();
    while (p != nullptr) {
        ComponentInfo *pNext = NextRecord(p);
        if ((p->usFlags & CM_FLAG_SYSTEM) != 0 && InLastSet(p->CmpId))
            CMUnloadComponent(p);
        p = pNext;
    }
    g_cm.hClassPool = RTS_INVALID_HANDLE;
    g_cm.hInstancePool = RTS_INVALID_HANDLE;
    g_cm.hComponentPool = RTS_INVALID_HANDLE;
    RegistryReset();
    OrderReset();
    return ERR_OK;
}
