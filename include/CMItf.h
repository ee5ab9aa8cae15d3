/*
 * Exported API of the component manager ("CM", CmpId 1): start-up and
 * shut-down, the API registry, the component table, hooks, instances,
 * locks, operation queries and the basic platform checks.
 */
#ifndef KESTREL_CM_ITF_H
#define KESTREL_CM_ITF_H

#include <stdarg.h>

#include "CmpItf.h"

RTS_BEGIN_C

/* Flags of CMInit3. */
#define CM_INIT_SETTINGS_OPTIONAL 0x1u /* a missing settings file is no error */
#define CM_INIT_NO_INIT_END 0x2u       /* the caller calls CMInitEnd itself */

/* Start-up and shut-down. */
RTS_RESULT CMInit(const char *pszSettingsFile, const ComponentListEntry *pComponentList);
RTS_RESULT CMInit2(const char *pszSettingsFile, const ComponentListEntry *pComponentList, RTS_UI32 ulFlags);
RTS_RESULT CMInit3(const char *pszSettingsFile, const ComponentListEntry *pComponentList, RTS_UI32 ulFlags);
RTS_RESULT CMInitEnd(void);
RTS_RESULT CMExit(void);
RTS_RESULT CMSetExit(void);
RTS_I32 CMGetExit(void);

/* API registry. */
RTS_RESULT CMRegisterAPI(const void *pTableOrName, RTS_VOID_FCTPTR pfFunction, RTS_UI32 bExternalLibrary,
                         RTS_UI32 ulCmpIdOrSignature);
RTS_RESULT CMRegisterAPI2(const char *pszName, RTS_VOID_FCTPTR pfFunction, RTS_UI32 bExternalLibrary,
                          RTS_UI32 ulSignature, RTS_UI32 ulVersion);
RTS_RESULT CMGetAPI(const char *pszName, RTS_VOID_FCTPTR *ppfFunction, RTS_UI32 ulSignature);
RTS_RESULT CMGetAPI2(const char *pszName, RTS_VOID_FCTPTR *ppfFunction, RTS_UI32 ulOptions, RTS_UI32 ulSignature,
                     RTS_UI32 ulVersion);
RTS_RESULT CMGetAPI3(const char *pszName, RTS_VOID_FCTPTR *ppfFunction, RTS_UI32 ulOptions, RTS_UI32 *pulSignature,
                     RTS_UI32 *pulVersion);
RTS_RESULT CMReleaseAPI(const char *pszName);
RTS_RESULT CMImportFunctions(void);

/* Component table. */
ComponentInfo *CMAddComponent(const ComponentInfo *pTemplate, RTS_RESULT *pResult);
RTS_RESULT CMRemoveComponent(ComponentInfo *pComponent);
ComponentInfo *CMLoadComponent(const char *pszName, RTS_RESULT *pResult);
RTS_RESULT CMUnloadComponent(ComponentInfo *pComponent);
RTS_RESULT CMInitComponent(ComponentInfo *pComponent);
RTS_RESULT CMExitComponent(ComponentInfo *pComponent);
ComponentInfo *CMGetComponentByName(const char *pszName, RTS_RESULT *pResult);
RTS_RESULT CMGetCmpId(const char *pszName, CMPID *pCmpId);
RTS_RESULT CMGetCmpName(CMPID cmpId, char *pszName, RTS_SIZE nBufferSize);
ComponentInfo *CMGetComponent(CMPID cmpId);
RTS_I32 CMGetNumOfComponents(void);
ComponentInfo *CMGetComponentByIndex(RTS_I32 iIndex);
ComponentInfo *CMGetFirstComponent(RTS_RESULT *pResult);
ComponentInfo *CMGetNextComponent(ComponentInfo *pPrevious, RTS_RESULT *pResult);

/* Classes and instances. */
RTS_HANDLE CMRegisterClass(CMPID cmpId, CLASSID classId);
RTS_HANDLE CMCreateInstance(CLASSID classId, RTS_RESULT *pResult);
RTS_RESULT CMDeleteInstance(RTS_HANDLE hInstance);
RTS_RESULT CMDeleteInstance2(CLASSID classId, RTS_HANDLE hInstance);
RTS_HANDLE CMGetInstance(CLASSID classId, RTS_UI32 ulInstanceId, RTS_RESULT *pResult);
RTS_RESULT CMRegisterInstance(CLASSID classId, RTS_UI32 ulInstanceId, RTS_HANDLE hInstance);
RTS_RESULT CMUnregisterInstance(RTS_HANDLE hInstance);
/* Fills at most *pnMax handles of the instances of a class; *pnMax receives the number found. */
RTS_RESULT CMGetInstanceList(CLASSID classId, RTS_HANDLE *pahInstances, RTS_I32 *pnMax);

/* Hooks. */
RTS_RESULT CMCallHook(RTS_UI32 ulHook, RTS_UINTPTR ulParam1, RTS_UINTPTR ulParam2, RTS_UI32 bReverse);
RTS_RESULT CMCallHook2(RTS_UI16 usMask, RTS_UI32 ulHook, RTS_UINTPTR ulParam1, RTS_UINTPTR ulParam2);
RTS_RESULT CMCallExtraCommCycleHook(RTS_UINTPTR ulParam1, RTS_UINTPTR ulParam2);
RTS_UI32 CMGetCurrentHook(void);

/* Locks, operation queries, debug output, profiling. */
RTS_HANDLE CMLockCreate(RTS_RESULT *pResult);
RTS_RESULT CMLockDelete(RTS_HANDLE hLock);
RTS_RESULT CMLockEnter(RTS_HANDLE hLock);
RTS_RESULT CMLockLeave(RTS_HANDLE hLock);
RTS_RESULT CMIsOperationDisabled(RTS_UI32 ulOperation, RTS_UI32 ulParameter, RTS_UI32 *pulAnswer);
RTS_RESULT CMDebugOut(const char *pszFormat, ...);
RTS_RESULT CMDebugOutArg(const char *pszFormat, va_list args);
RTS_RESULT CMProfiling(const char *pszName, RTS_UI32 ulParam);

/* Basic platform checks: 1 when all pass, 0 otherwise (a truth value). */
RTS_I32 CMBasicChecks(void);

/* Entry of the component manager's own component "CM". */
RTS_RESULT CMEntry(ComponentInitStruct *pInitStruct);

/* CM event ids (created under CmpId 1). */
#define CM_EVT_PREPARE_SHUTDOWN 0x10001u
#define CM_EVT_SHUTDOWN_TASKS 0x10002u
#define CM_EVT_SHUTDOWN_APPS 0x10003u
#define CM_EVT_SHUTDOWN_COMM 0x10004u
#define CM_EVT_SHUTDOWN_IO 0x10005u
#define CM_EVT_OPERATION_DISABLED 0x10006u

/* Parameter block of the operation-disabled query event. */
typedef struct CMOperationQuery_ {
    RTS_UI32 ulOperation;
    RTS_UI32 ulParameter;
    RTS_UI32 ulAnswer;
    RTS_UI32 bHandled;
} CMOperationQuery;

/* IEC-callable functions of the CM: each takes one pointer to a record that
 * holds the arguments of the C function in order and, last, the field that
 * receives its result (named after the C function). */
typedef struct cmaddcomponent_struct_ {
    const ComponentInfo *pTemplate;
    RTS_RESULT *pResult;
    ComponentInfo *CMAddComponent;
} cmaddcomponent_struct;
typedef struct cmremovecomponent_struct_ {
    ComponentInfo *pComponent;
    RTS_RESULT CMRemoveComponent;
} cmremovecomponent_struct;
typedef struct cmloadcomponent_struct_ {
    const char *pszName;
    RTS_RESULT *pResult;
    ComponentInfo *CMLoadComponent;
} cmloadcomponent_struct;
typedef struct cmunloadcomponent_struct_ {
    ComponentInfo *pComponent;
    RTS_RESULT CMUnloadComponent;
} cmunloadcomponent_struct;
/* Asks the runtime to stop (CMSetExit). */
typedef struct cmshutdown_struct_ {
    RTS_RESULT CMShutdown;
} cmshutdown_struct;
typedef struct cmutlstricmp_struct_ {
    const char *psz1;
    const char *psz2;
    RTS_I32 CMUtlStrICmp;
} cmutlstricmp_struct;
typedef struct cmutlwstrcpy_struct_ {
    RTS_WCHAR *pwszDest;
    RTS_SIZE ulDestSize;
    const RTS_WCHAR *pwszSrc;
    RTS_RESULT CMUtlwstrcpy;
} cmutlwstrcpy_struct;
typedef struct cmutlsafestrcpy_struct_ {
    char *pszDest;
    RTS_SIZE ulDestSize;
    const char *pszSrc;
    RTS_RESULT CMUtlSafeStrCpy;
} cmutlsafestrcpy_struct;
typedef struct cmutlcwstrcpy_struct_ {
    RTS_CWCHAR *pwszDest;
    RTS_SIZE ulDestSize;
    const RTS_CWCHAR *pwszSrc;
    RTS_RESULT CMUtlcwstrcpy;
} cmutlcwstrcpy_struct;
typedef struct cmgetcomponentbyname_struct_ {
    const char *pszName;
    RTS_RESULT *pResult;
    ComponentInfo *CMGetComponentByName;
} cmgetcomponentbyname_struct;
typedef struct cmexitcomponent_struct_ {
    ComponentInfo *pComponent;
    RTS_RESULT CMExitComponent;
} cmexitcomponent_struct;
typedef struct cminitcomponent_struct_ {
    ComponentInfo *pComponent;
    RTS_RESULT CMInitComponent;
} cminitcomponent_struct;

#define CM_SIG_CMUTLCWSTRCPY 0x09DB4923u

void cmaddcomponent(cmaddcomponent_struct *p);
void cmremovecomponent(cmremovecomponent_struct *p);
void cmloadcomponent(cmloadcomponent_struct *p);
void cmunloadcomponent(cmunloadcomponent_struct *p);
void cmshutdown(cmshutdown_struct *p);
void cmutlstricmp(cmutlstricmp_struct *p);
void cmutlwstrcpy(cmutlwstrcpy_struct *p);
void cmutlsafestrcpy(cmutlsafestrcpy_struct *p);
void cmutlcwstrcpy(cmutlcwstrcpy_struct *p);
void cmgetcomponentbyname(cmgetcomponentbyname_struct *p);
void cmexitcomponent(cmexitcomponent_struct *p);
void cminitcomponent(cminitcomponent_struct *p);

RTS_END_C

#endif
