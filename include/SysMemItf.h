/*
 * SysMem: memory for components, accounted per component name.
 * A runtime service module; other components import these functions by name.
 */
#ifndef KESTREL_SYSMEMITF_H
#define KESTREL_SYSMEMITF_H

#include "RtsTypes.h"

RTS_BEGIN_C

void *SysMemAllocData(const char *pszComponentName, RTS_SIZE ulSize, RTS_RESULT *pResult);
RTS_RESULT SysMemFreeData(const char *pszComponentName, void *pData);

RTS_END_C

#endif
