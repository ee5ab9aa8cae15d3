/*
 * SysTarget (CmpId 274): who this device is. Names are UTF-16; *pnMaxLength
 * is in characters: in, the buffer capacity; out, the length written or
 * needed, including the terminator.
 */
#ifndef KESTREL_SYSTARGET_ITF_H
#define KESTREL_SYSTARGET_ITF_H

#include "CmpItf.h"

RTS_BEGIN_C

#define SYSTARGET_TYPE 0x1000u
#define SYSTARGET_ID 1u
#define SYSTARGET_OS_ID 2u
#define SYSTARGET_PROCESSOR_ID 1u
#define SYSTARGET_DEVICE_MASK 0u

RTS_RESULT SysTargetGetType(RTS_UI32 *pulType);
RTS_RESULT SysTargetGetId(RTS_UI32 *pulId);
RTS_RESULT SysTargetGetOperatingSystemId(RTS_UI32 *pulId);
RTS_RESULT SysTargetGetProcessorId(RTS_UI32 *pulId);
RTS_RESULT SysTargetGetDeviceMask(RTS_UI16 *pusMask);
RTS_RESULT SysTargetGetVersion(RTS_UI32 *pulVersion);
RTS_RESULT SysTargetGetConfiguredNodeName(RTS_WCHAR *pwszName, RTS_SIZE *pnMaxLength);
RTS_RESULT SysTargetGetNodeName(RTS_WCHAR *pwszName, RTS_SIZE *pnMaxLength);
RTS_RESULT SysTargetGetDeviceName(RTS_WCHAR *pwszName, RTS_SIZE *pnMaxLength);
RTS_RESULT SysTargetGetVendorName(RTS_WCHAR *pwszName, RTS_SIZE *pnMaxLength);

/* Linked-in entry of the component. */
RTS_RESULT SysTargetEntry(ComponentInitStruct *pInitStruct);

RTS_END_C

#endif
