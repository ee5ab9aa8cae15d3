/*
 * SysTimeRtc: the real-time clock in milliseconds since 1970-01-01 UTC.
 * A runtime service module; other components import these functions by name.
 */
#ifndef KESTREL_SYSTIMERTCITF_H
#define KESTREL_SYSTIMERTCITF_H

#include "RtsTypes.h"

RTS_BEGIN_C

typedef RTS_UI64 RTS_SYSTIME;

typedef struct RTS_SYSTIMEDATE_ {
    RTS_UI16 wYear;
    RTS_UI16 wMonth;        /* 1..12 */
    RTS_UI16 wDay;          /* 1..31 */
    RTS_UI16 wHour;
    RTS_UI16 wMinute;
    RTS_UI16 wSecond;
    RTS_UI16 wMilliseconds;
    RTS_UI16 wDayOfWeek;    /* 0 = Sunday */
    RTS_UI16 wYday;         /* 1..366 */
} RTS_SYSTIMEDATE;

RTS_RESULT SysTimeRtcHighResGet(RTS_SYSTIME *pTime);
RTS_RESULT SysTimeRtcConvertHighResToDate(const RTS_SYSTIME *pTime, RTS_SYSTIMEDATE *pDate);
RTS_RESULT SysTimeRtcConvertHighResToLocal(const RTS_SYSTIME *pTime, RTS_SYSTIMEDATE *pDate);

RTS_END_C

#endif
