// CmpEventMgr: events identified by event id and the CmpId of the component
// that provides them. Providers create and post events; listeners open them
// and register callbacks, which a post calls synchronously, on the posting
// thread, in the order of registration.
//
// An event lives while anybody holds it: EventCreate and EventOpen each take
// a reference, EventDelete and EventClose each give one back, and the last
// one frees the event with its callbacks. Creating an event that exists
// (a second provider, or a provider started again) hands out
// the existing event with one more reference. Event records come from SysMem under "CmpEventMgr" when
// it is there, so that events nobody deletes show up in its leak report.
#include <cstdlib>
#include <mutex>
#include <new>
#include <vector>

#include "CmpEventMgrItf.h"
#include "CmpLogItf.h"
#include "ModuleSupport.h"
#include "SysMemItf.h"

namespace {

constexpr RTS_UI32 kMagic = 0x45766E74u; // "Evnt"
const char kCmpName[] = "CmpEventMgr";

struct Callback {
    PF_EVENT_CALLBACK pfCallback;
    void *pUserParameter;
};

struct Event {
    RTS_UI32 magic;
    EVENTID eventId;
    CMPID cmpId;
    RTS_I32 references;              // creates and opens not yet deleted or closed
    bool bFromSysMem;                // which allocator gave the record back
    std::vector<Callback> callbacks; // registration order
};

kestrel::module::CmLink s_cm;
decltype(&SysMemAllocData) s_pfSysMemAllocData = nullptr;
decltype(&SysMemFreeData) s_pfSysMemFreeData = nullptr;
decltype(&LogAdd) s_pfLogAdd = nullptr;

std::recursive_mutex s_lock; // recursive: a callback may register, open or post
std::vector<Event *> s_events;

Event *NewEvent() {
    void *p = nullptr;
    bool fromSysMem = s_pfSysMemAllocData != nullptr && s_pfSysMemFreeData != nullptr;
    p = fromSysMem ? s_pfSysMemAllocData(kCmpName, sizeof(Event), nullptr) : std::malloc(sizeof(Event));
    if (p == nullptr)
        return nullptr;
    Event *e = new (p) Event{};
    e->bFromSysMem = fromSysMem;
    return e;
}

void FreeEvent(Event *e) {
    bool fromSysMem = e->bFromSysMem;
    e->magic = 0;
    e->~Event();
    if (fromSysMem && s_pfSysMemFreeData != nullptr)
        s_pfSysMemFreeData(kCmpName, e);
    else if (!fromSysMem)
        std::free(e);
}

Event *Find(EVENTID eventId, CMPID cmpId) {
    for (Event *e : s_events) {
        if (e->eventId == eventId && e->cmpId == cmpId)
            return e;
    }
    return nullptr;
}

Event *FromHandle(RTS_HANDLE h) {
    if (h == nullptr || h == RTS_INVALID_HANDLE)
        return nullptr;
    for (Event *e : s_events) {
        if (e == h)
            return e;
    }
    return nullptr;
}

// Gives back one reference; the last one frees the event.
RTS_RESULT Release(RTS_HANDLE h) {
    std::lock_guard<std::recursive_mutex> guard(s_lock);
    Event *e = FromHandle(h);
    if (e == nullptr)
        return ERR_PARAMETER;
    if (--e->references > 0)
        return ERR_OK;
    for (auto it = s_events.begin(); it != s_events.end(); ++it) {
        if (*it == e) {
            s_events.erase(it);
            break;
        }
    }
    FreeEvent(e);
    return ERR_OK;
}

void SetResult(RTS_RESULT *pResult, RTS_RESULT r) {
    if (pResult != nullptr)
        *pResult = r;
}

// Frees what is left at the component's exit; a provider that forgot to
// delete its event is named in the log.
void DeleteAll() {
    std::lock_guard<std::recursive_mutex> guard(s_lock);
    for (Event *e : s_events) {
        if (s_pfLogAdd != nullptr)
            s_pfLogAdd(LOG_STD_LOGGER, CMPID_CmpEventMgr, LOG_WARNING, ERR_OK, 1,
                       "Event <id>0x%08x</id> of <id>0x%08x</id> was not deleted (%d references)",
                       static_cast<unsigned>(e->eventId), static_cast<unsigned>(e->cmpId),
                       static_cast<int>(e->references));
        FreeEvent(e);
    }
    s_events.clear();
    s_events.shrink_to_fit();
}

const ExportEntry s_exports[] = {
    RTS_EXPORT_FN(EventCreate),
    RTS_EXPORT_FN(EventDelete),
    RTS_EXPORT_FN(EventOpen),
    RTS_EXPORT_FN(EventClose),
    RTS_EXPORT_FN(EventPost),
    RTS_EXPORT_FN(EventPost2),
    RTS_EXPORT_FN(EventRegisterCallbackFunction),
    RTS_EXPORT_FN(EventUnregisterCallbackFunction),
    RTS_EXPORT_END,
};

RTS_RESULT ExportFunctions() {
    return s_cm.Export(s_exports, CMPID_CmpEventMgr);
}

RTS_RESULT ImportFunctions() {
    s_cm.Import("SysMemAllocData", s_pfSysMemAllocData);
    s_cm.Import("SysMemFreeData", s_pfSysMemFreeData);
    s_cm.Import("LogAdd", s_pfLogAdd);
    return ERR_OK;
}

RTS_RESULT HookFunction(RTS_UI32 ulHook, RTS_UINTPTR ulParam1, RTS_UINTPTR) {
    if (ulHook == CH_EXIT)
        DeleteAll();
    if (ulHook == CH_COMPONENT_EXIT && kestrel::module::IsLeaving(ulParam1, "CmpLog"))
        s_pfLogAdd = nullptr;
    return ERR_OK;
}

} // namespace

extern "C" {

RTS_HANDLE EventCreate(EVENTID eventId, CMPID cmpIdProvider, RTS_RESULT *pResult) {
    try {
        std::lock_guard<std::recursive_mutex> guard(s_lock);
        Event *e = Find(eventId, cmpIdProvider);
        if (e == nullptr) {
            e = NewEvent();
            if (e == nullptr) {
                SetResult(pResult, ERR_NOMEMORY);
                return RTS_INVALID_HANDLE;
            }
            e->magic = kMagic;
            e->eventId = eventId;
            e->cmpId = cmpIdProvider;
            s_events.push_back(e);
        }
        ++e->references;
        SetResult(pResult, ERR_OK);
        return e;
    } catch (...) {
        SetResult(pResult, ERR_NOMEMORY);
        return RTS_INVALID_HANDLE;
    }
}

RTS_RESULT EventDelete(RTS_HANDLE hEvent) {
    return Release(hEvent);
}

RTS_HANDLE EventOpen(EVENTID eventId, CMPID cmpIdProvider, RTS_RESULT *pResult) {
    std::lock_guard<std::recursive_mutex> guard(s_lock);
    Event *e = Find(eventId, cmpIdProvider);
    if (e == nullptr) {
        SetResult(pResult, ERR_NO_OBJECT);
        return RTS_INVALID_HANDLE;
    }
    ++e->references;
    SetResult(pResult, ERR_OK);
    return e;
}

RTS_RESULT EventClose(RTS_HANDLE hEvent) {
    return Release(hEvent);
}

RTS_RESULT EventPost(RTS_HANDLE hEvent, EventParam *pEventParam) {
    std::vector<Callback> callbacks;
    EVENTID eventId;
    CMPID cmpId;
    try {
        std::lock_guard<std::recursive_mutex> guard(s_lock);
        Event *e = FromHandle(hEvent);
        if (e == nullptr)
            return ERR_PARAMETER;
        // A copy: a callback may unregister itself or others while the post runs.
        callbacks = e->callbacks;
        eventId = e->eventId;
        cmpId = e->cmpId;
    } catch (...) {
        return ERR_NOMEMORY;
    }
    EventParam local{};
    if (pEventParam != nullptr)
        local = *pEventParam;
    local.EventId = eventId;
    local.CmpIdProvider = cmpId;
    for (const Callback &cb : callbacks) {
        EventParam param = local;
        param.pUserParameter = cb.pUserParameter;
        cb.pfCallback(&param);
    }
    return ERR_OK;
}

RTS_RESULT EventPost2(RTS_HANDLE hEvent, RTS_UI32 ulParamId, RTS_UI32 ulVersion, void *pParameter) {
    EventParam param{};
    param.ulParamId = ulParamId;
    param.ulVersion = ulVersion;
    param.pParameter = pParameter;
    return EventPost(hEvent, &param);
}

RTS_RESULT EventRegisterCallbackFunction(RTS_HANDLE hEvent, PF_EVENT_CALLBACK pfCallback, void *pUserParameter) {
    if (pfCallback == nullptr)
        return ERR_PARAMETER;
    try {
        std::lock_guard<std::recursive_mutex> guard(s_lock);
        Event *e = FromHandle(hEvent);
        if (e == nullptr)
            return ERR_PARAMETER;
        for (const Callback &cb : e->callbacks) {
            if (cb.pfCallback == pfCallback && cb.pUserParameter == pUserParameter)
                return ERR_DUPLICATE;
        }
        e->callbacks.push_back(Callback{pfCallback, pUserParameter});
        return ERR_OK;
    } catch (...) {
        return ERR_NOMEMORY;
    }
}

RTS_RESULT EventUnregisterCallbackFunction(RTS_HANDLE hEvent, PF_EVENT_CALLBACK pfCallback) {
    std::lock_guard<std::recursive_mutex> guard(s_lock);
    Event *e = FromHandle(hEvent);
    if (e == nullptr || pfCallback == nullptr)
        return ERR_PARAMETER;
    for (auto it = e->callbacks.begin(); it != e->callbacks.end(); ++it) {
        if (it->pfCallback == pfCallback) {
            e->callbacks.erase(it);
            return ERR_OK;
        }
    }
    return ERR_NO_OBJECT;
}

RTS_RESULT CmpEventMgrEntry(ComponentInitStruct *pInit) {
    if (pInit == nullptr)
        return ERR_PARAMETER;
    s_cm.Enter(pInit, CMPID_CmpEventMgr, ExportFunctions, ImportFunctions, HookFunction);
    return ERR_OK;
}

} // extern "C"
