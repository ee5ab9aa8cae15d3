/*
 * SysOut: text output of the runtime (the console when it runs in the foreground).
 * A runtime service module; other components import these functions by name.
 */
#ifndef KESTREL_SYSOUTITF_H
#define KESTREL_SYSOUTITF_H

#include <stdarg.h>
#include "RtsTypes.h"

RTS_BEGIN_C

RTS_RESULT SysOutVPrintf(const char *pszFormat, va_list args);

RTS_END_C

#endif
