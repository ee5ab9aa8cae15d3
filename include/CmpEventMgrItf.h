/*
 * CmpEventMgr: events identified by event id and CmpId of the provider;
 * callbacks are called synchronously in registration order.
 * A runtime service module; other components import these functions by name.
 */
#ifndef KESTREL_CMPEVENTMGRITF_H
#define KESTREL_CMPEVENTMGRITF_H

#include "RtsTypes.h"

RTS_BEGIN_C

typedef struct EventParam_ {
    EVENTID EventId;
    CMPID CmpIdProvider;
    RTS_UI32 ulParamId;
    RTS_UI32 ulVersion;
    void *pParameter;       /* event-specific parameter block */
    void *pUserParameter;   /* as given at registration */
} EventParam;

typedef void (*PF_EVENT_CALLBACK)(EventParam *pEventParam);

RTS_HANDLE EventCreate(EVENTID eventId, CMPID cmpIdProvider, RTS_RESULT *pResult);
RTS_RESULT EventDelete(RTS_HANDLE hEvent);
RTS_HANDLE EventOpen(EVENTID eventId, CMPID cmpIdProvider, RTS_RESULT *pResult);
RTS_RESULT EventClose(RTS_HANDLE hEvent);
RTS_RESULT EventPost(RTS_HANDLE hEvent, EventParam *pEventParam);
RTS_RESULT EventPost2(RTS_HANDLE hEvent, RTS_UI32 ulParamId, RTS_UI32 ulVersion, void *pParameter);
RTS_RESULT EventRegisterCallbackFunction(RTS_HANDLE hEvent, PF_EVENT_CALLBACK pfCallback, void *pUserParameter);
RTS_RESULT EventUnregisterCallbackFunction(RTS_HANDLE hEvent, PF_EVENT_CALLBACK pfCallback);

RTS_END_C

#endif
