/*
 * SysTime: monotonic time.
 * A runtime service module; other components import these functions by name.
 */
#ifndef KESTREL_SYSTIMEITF_H
#define KESTREL_SYSTIMEITF_H

#include "RtsTypes.h"

RTS_BEGIN_C

RTS_UI32 SysTimeGetMs(void);
RTS_RESULT SysTimeGetUs(RTS_UI64 *pullUs);

RTS_END_C

#endif
