// Hooks: delivering numbered events to the components' hook callbacks, forward or in reverse over
// the component table, to a subset chosen by flags, the extra communication cycle, and the init and
// exit hooks of a single component.
#include <cstring>
#include <vector>

#include "CMPrivate.h"

namespace kestrel::cm {

namespace {

// The records of the table in table order, kept beside the pool's list as a dense array so that a
// dispatch reads them without walking the list. Added and removed together with the list.
struct DispatchOrder {
    std::vector<ComponentInfo *> records;
    bool bValid = true; // false after an allocation failed: dispatches walk the list instead
};
DispatchOrder s_order;

// The records of the table at the start of a dispatch. A hook callback may add or remove
// components; the dispatch goes on over the records it started with, and a record removed
// meanwhile answers without being called (a returned block no longer carries a valid state).
class TableSnapshot {
  public:
    TableSnapshot() {
        if (s_order.bValid) {
            m_nCount = s_order.records.size();
            if (m_nCount == 0)
                return;
            if (m_nCount <= kLocal) {
                std::memcpy(m_local, s_order.records.data(), m_nCount * sizeof(ComponentInfo *));
            } else {
                m_heap = s_order.records;
                m_pData = m_heap.data();
            }
            return;
        }
        for (ComponentInfo *p = FirstRecord(); p != nullptr; p = NextRecord(p)) {
            if (m_nCount < kLocal) {
                m_local[m_nCount++] = p;
                continue;
            }
            if (m_heap.empty())
                m_heap.assign(m_local, m_local + kLocal);
            m_heap.push_back(p);
            m_pData = m_heap.data();
            ++m_nCount;
        }
    }
    TableSnapshot(const TableSnapshot &) = delete;
    TableSnapshot &operator=(const TableSnapshot &) = delete;
    std::size_t Count() const { return m_nCount; }
    ComponentInfo *operator[](std::size_t i) const { return m_pData[i]; }

  private:
    static constexpr std::size_t kLocal = 128;
    ComponentInfo *m_local[kLocal];
    std::vector<ComponentInfo *> m_heap;
    ComponentInfo **m_pData = m_local;
    std::size_t m_nCount = 0;
};

// The single-component call: only states 2, 4 and 5 take hooks, the communication cycle only
// state 5; without a hook callback the answer is 1.
RTS_RESULT CallOne(ComponentInfo *p, RTS_UI32 ulHook, RTS_UINTPTR ulParam1, RTS_UINTPTR ulParam2) {
    RTS_UI16 usState = p->usState;
    if (usState != CM_STATE_LOADED && usState != CM_STATE_INITIALIZED && usState != CM_STATE_RUNNING)
        return ERR_FAILED;
    if (ulHook == CH_COMM_CYCLE && usState != CM_STATE_RUNNING)
        return ERR_FAILED;
    if (p->pfHookFunction == nullptr)
        return ERR_FAILED;
    return p->pfHookFunction(ulHook, ulParam1, ulParam2);
}

void BeginHook(RTS_UI32 ulHook) {
    if (ulHook == CH_COMM_CYCLE)
        g_cm.ulLastCommCycle = NowMs();
    // The component announcements (23..30) happen inside other stages and leave them current.
    if (ulHook < CH_COMPONENT_INITIALIZED || ulHook > 30)
        g_cm.ulCurrentHook = ulHook;
}

// The states that take a hook: 2, 4 and 5; the communication cycle only 5.
inline RTS_UI32 AcceptingStates(RTS_UI32 ulHook) {
    return ulHook == CH_COMM_CYCLE
               ? StateBit(CM_STATE_RUNNING)
               : (StateBit(CM_STATE_LOADED) | StateBit(CM_STATE_INITIALIZED) | StateBit(CM_STATE_RUNNING));
}

// The single-component call of CMCallHook, inlined: only the answer 10 matters there.
inline bool CallAsksAgain(ComponentInfo *p, RTS_UI32 ulAccepting, RTS_UI32 ulHook, RTS_UINTPTR ulParam1,
                          RTS_UINTPTR ulParam2) {
    RTS_UI16 usState = p->usState;
    PF_HOOK_FUNCTION pfHook = p->pfHookFunction;
    if (usState >= 32 || (ulAccepting & StateBit(usState)) == 0 || pfHook == nullptr)
        return false;
    return pfHook(ulHook, ulParam1, ulParam2) == ERR_CALL_AGAIN;
}

RTS_RESULT DispatchRaw(RTS_UI32 ulHook, RTS_UINTPTR ulParam1, RTS_UINTPTR ulParam2, RTS_UI32 bReverse) {
    TableSnapshot table;
    const RTS_UI32 ulAccepting = AcceptingStates(ulHook);
    const std::size_t n = table.Count();
    bool bCallAgain = false;
    if (bReverse == 0) {
        for (std::size_t i = 0; i < n; ++i) {
            // The next record is fetched while this component runs.
            if (i + 1 < n)
                __builtin_prefetch(table[i + 1]);
            bCallAgain |= CallAsksAgain(table[i], ulAccepting, ulHook, ulParam1, ulParam2);
        }
    } else {
        if (n == 0)
            return ERR_FAILED;
        for (std::size_t i = n; i-- > 0;)
            bCallAgain |= CallAsksAgain(table[i], ulAccepting, ulHook, ulParam1, ulParam2);
    }
    g_cm.ulLastHook = ulHook;
    return bCallAgain ? ERR_CALL_AGAIN : ERR_OK;
}

// Calls a component's hook callback directly, for CMInitComponent and CMExitComponent.
RTS_RESULT CallDirect(ComponentInfo *p, RTS_UI32 ulHook, RTS_UINTPTR ulParam1 = 0) {
    return p->pfHookFunction != nullptr ? p->pfHookFunction(ulHook, ulParam1, 0) : ERR_OK;
}

} // namespace

void OrderOnAdd(ComponentInfo *pComponent) {
    if (!s_order.bValid)
        return;
    try {
        s_order.records.push_back(pComponent);
    } catch (...) {
        s_order.records.clear();
        s_order.bValid = false;
    }
}

void OrderOnRemove(const ComponentInfo *pComponent) {
    auto &records = s_order.records;
    for (auto it = records.begin(); it != records.end(); ++it) {
        if (*it == pComponent) {
            records.erase(it);
            return;
        }
    }
}

void OrderReset() {
    s_order.records.clear();
    s_order.bValid = true;
}

} // namespace kestrel::cm

using namespace kestrel::cm;

extern "C" RTS_RESULT CMCallHook(RTS_UI32 ulHook, RTS_UINTPTR ulParam1, RTS_UINTPTR ulParam2, RTS_UI32 bReverse) {
    if (!TableExists())
        return ERR_FAILED;
    BeginHook(ulHook);
    try {
        return DispatchRaw(ulHook, ulParam1, ulParam2, bReverse);
    } catch (...) {
        return ERR_NOMEMORY; // a table of more than 128 records and no memory for its snapshot
    }
}

extern "C" RTS_RESULT CMCallHook2(RTS_UI16 usMask, RTS_UI32 ulHook, RTS_UINTPTR ulParam1, RTS_UINTPTR ulParam2) {
    if (!TableExists())
        return ERR_FAILED;
    BeginHook(ulHook);
    RTS_RESULT lastAnswer = ERR_OK;
    try {
        TableSnapshot table;
        for (std::size_t i = 0; i < table.Count(); ++i) {
            ComponentInfo *p = table[i];
            if (!FlagsMatch(p->usFlags, usMask))
                continue;
            RTS_RESULT answer = CallOne(p, ulHook, ulParam1, ulParam2);
            if (answer != ERR_OK)
                lastAnswer = answer;
        }
    } catch (...) {
        return ERR_NOMEMORY;
    }
    g_cm.ulLastHook = ulHook;
    if (lastAnswer == ERR_OK)
        return ERR_OK;
    return lastAnswer == ERR_CALL_AGAIN ? ERR_CALL_AGAIN : ERR_FAILED;
}

extern "C" RTS_RESULT CMCallExtraCommCycleHook(RTS_UINTPTR ulParam1, RTS_UINTPTR ulParam2) {
    // A runtime with tasks runs its communication in a task of its own.
    if (Imp_SysTaskCreate() != nullptr)
        return ERR_OK;
    RTS_UI32 ulElapsed = NowMs() - g_cm.ulLastCommCycle;
    if (ulElapsed < static_cast<RTS_UI32>(g_cm.iMinCommCycleInterval))
        return ERR_OK;
    return CMCallHook(CH_COMM_CYCLE, ulParam1, ulParam2, 0);
}

extern "C" RTS_UI32 CMGetCurrentHook(void) {
    return g_cm.ulCurrentHook;
}

extern "C" RTS_RESULT CMInitComponent(ComponentInfo *pComponent) {
    if (IsInvalidRecord(pComponent))
        return ERR_PARAMETER;
    if (pComponent->usState != CM_STATE_LOADED)
        return ERR_FAILED;
    CM_LOG(LOG_INFO, ERR_OK, 49, "Call <cmp>%s</cmp> init hooks", pComponent->pszName);
    static const RTS_UI32 s_initHooks[] = {CH_INIT3,     CH_INIT_IO,       CH_INIT_TASKS, CH_INIT_APPS,
                                           CH_INIT_COMM, CH_INIT_FINISHED, CH_INIT_DONE};
    RTS_UI32 ulStopWord = 0;
    RTS_RESULT kept = CallDirect(pComponent, CH_INIT2, reinterpret_cast<RTS_UINTPTR>(&ulStopWord));
    for (RTS_UI32 ulHook : s_initHooks) {
        RTS_RESULT answer = CallDirect(pComponent, ulHook);
        if (kept == ERR_OK)
            kept = answer;
    }
    pComponent->usState = CM_STATE_INITIALIZED;
    CMCallHook(CH_COMPONENT_INITIALIZED, reinterpret_cast<RTS_UINTPTR>(pComponent->pszName), 0, 0);
    pComponent->usState = CM_STATE_RUNNING;
    return kept;
}

extern "C" RTS_RESULT CMExitComponent(ComponentInfo *pComponent) {
    if (IsInvalidRecord(pComponent))
        return ERR_PARAMETER;
    RTS_UI16 usState = pComponent->usState;
    if (usState != CM_STATE_DISABLED && usState != CM_STATE_INITIALIZED && usState != CM_STATE_RUNNING)
        return ERR_FAILED;
    CM_LOG(LOG_INFO, ERR_OK, 50, "Call <cmp>%s</cmp> exit hooks", pComponent->pszName);
    CMCallHook(CH_COMPONENT_EXIT, reinterpret_cast<RTS_UINTPTR>(pComponent->pszName), 0, 0);
    pComponent->usState = CM_STATE_LOADED;
    static const RTS_UI32 s_exitHooks[] = {CH_EXIT_REQUEST, CH_EXIT_TASKS, CH_EXIT_APPS, CH_EXIT_COMM, CH_EXIT_IO};
    RTS_RESULT kept = ERR_OK;
    for (RTS_UI32 ulHook : s_exitHooks) {
        RTS_RESULT answer = CallDirect(pComponent, ulHook);
        if (kept == ERR_OK)
            kept = answer;
    }
    RTS_RESULT lastAnswer = CallDirect(pComponent, CH_EXIT);
    return kept != ERR_OK ? kept : lastAnswer;
}
