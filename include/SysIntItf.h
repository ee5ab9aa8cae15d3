/*
 * SysInt: the process-wide "interrupt" lock of this user-mode host (recursive).
 * The save word receives whatever the lock needs to restore the previous state.
 * A runtime service module; other components import these functions by name.
 */
#ifndef KESTREL_SYSINTITF_H
#define KESTREL_SYSINTITF_H

#include "RtsTypes.h"

RTS_BEGIN_C

RTS_RESULT SysIntDisableAll(RTS_HANDLE *phSave);
RTS_RESULT SysIntEnableAll(RTS_HANDLE *phSave);

RTS_END_C

#endif
