/*
 * SysSem: recursive semaphores (locks) for components.
 * A runtime service module; other components import these functions by name.
 */
#ifndef KESTREL_SYSSEMITF_H
#define KESTREL_SYSSEMITF_H

#include "RtsTypes.h"

RTS_BEGIN_C

RTS_HANDLE SysSemCreate(RTS_RESULT *pResult);
RTS_RESULT SysSemDelete(RTS_HANDLE hSem);
RTS_RESULT SysSemEnter(RTS_HANDLE hSem);
RTS_RESULT SysSemLeave(RTS_HANDLE hSem);

RTS_END_C

#endif
