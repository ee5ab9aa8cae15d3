/*
 * Services the string utilities take from the rest of the runtime. The
 * dynamic strings allocate through SysMemAllocData and free through
 * SysMemFreeData, which the component manager imports like every other
 * component; its import pass hands the two functions over here (null for a
 * function that is not there). Internal to the component manager and its
 * tests; not exported.
 */
#ifndef KESTREL_CMUTL_SERVICES_H
#define KESTREL_CMUTL_SERVICES_H

#include "RtsTypes.h"

RTS_BEGIN_C

typedef void *(*PFCMUTL_ALLOC)(const char *pszComponentName, RTS_SIZE ulSize, RTS_RESULT *pResult);
typedef RTS_RESULT (*PFCMUTL_FREE)(const char *pszComponentName, void *pData);

/* Installs (or, with null, removes) the memory service of CMStringCreate,
 * CMStringExtend and CMStringDelete. Called on the start-up thread while the
 * component manager links the components, before any string is made. */
void CMUtlSetMemoryService(PFCMUTL_ALLOC pfAlloc, PFCMUTL_FREE pfFree);

RTS_END_C

#endif
