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

/*
 * Parameter records of the IEC-callable twins: the C function's arguments in
 * order, the result last. The "2" variants start with one word that is
 * ignored. The functions store the C function's result in Result.
 */
typedef struct SysTargetIecValue_ {
    RTS_UI32 *pulValue; /* receives the number */
    RTS_RESULT Result;  /* result of the C function */
} SysTargetIecValue;
typedef struct SysTargetIecValue2_ {
    RTS_UINTPTR ulIgnored; /* not read */
    RTS_UI32 *pulValue;    /* receives the number */
    RTS_RESULT Result;     /* result of the C function */
} SysTargetIecValue2;
typedef struct SysTargetIecName_ {
    RTS_WCHAR *pwszName;   /* receives the name, may be null */
    RTS_SIZE *pnMaxLength; /* in: capacity in characters; out: length incl. terminator */
    RTS_RESULT Result;     /* result of the C function */
} SysTargetIecName;
typedef struct SysTargetIecName2_ {
    RTS_UINTPTR ulIgnored; /* not read */
    RTS_WCHAR *pwszName;   /* receives the name, may be null */
    RTS_SIZE *pnMaxLength; /* in: capacity in characters; out: length incl. terminator */
    RTS_RESULT Result;     /* result of the C function */
} SysTargetIecName2;

void systargetgetvendorname(SysTargetIecName *p);
void systargetgetvendorname2(SysTargetIecName2 *p);
void systargetgetversion(SysTargetIecValue *p);
void systargetgetversion2(SysTargetIecValue2 *p);
void systargetgetnodename(SysTargetIecName *p);
void systargetgetnodename2(SysTargetIecName2 *p);
void systargetgetdevicename(SysTargetIecName *p);
void systargetgetdevicename2(SysTargetIecName2 *p);
void systargetgetid(SysTargetIecValue *p);
void systargetgetid2(SysTargetIecValue2 *p);
void systargetgettype(SysTargetIecValue *p);
void systargetgettype2(SysTargetIecValue2 *p);
void systargetgetprocessorid(SysTargetIecValue *p);
void systargetgetoperatingsystemid(SysTargetIecValue *p);

/* Linked-in entry of the component. */
RTS_RESULT SysTargetEntry(ComponentInitStruct *pInitStruct);

RTS_END_C

#endif
