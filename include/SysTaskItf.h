/*
 * SysTask: tasks of components (not provided by this host: without it the
 * communication loop drives the runtime).
 * A runtime service module; other components import these functions by name.
 */
#ifndef KESTREL_SYSTASKITF_H
#define KESTREL_SYSTASKITF_H

#include "RtsTypes.h"

RTS_BEGIN_C

typedef void (*PF_TASK_FUNCTION)(void *pParam);
RTS_HANDLE SysTaskCreate(const char *pszName, PF_TASK_FUNCTION pfTask, void *pParam, RTS_UI32 ulPriority,
                         RTS_RESULT *pResult);

RTS_END_C

#endif
