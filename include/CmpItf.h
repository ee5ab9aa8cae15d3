/*
 * Component model: the records exchanged between the component manager and
 * every component (component record, entry exchange record, host list row,
 * export table row) and the callback types a component reports.
 * Field order is fixed; components built separately rely on it.
 */
#ifndef KESTREL_CMP_ITF_H
#define KESTREL_CMP_ITF_H

#include "RtsTypes.h"

RTS_BEGIN_C

struct ComponentInitStruct_;

typedef RTS_RESULT (*PF_COMPONENT_ENTRY)(struct ComponentInitStruct_ *pInitStruct);
typedef RTS_RESULT (*PF_EXPORT_FUNCTIONS)(void);
typedef RTS_RESULT (*PF_IMPORT_FUNCTIONS)(void);
typedef RTS_UI32 (*PF_GET_VERSION)(void);
typedef RTS_RESULT (*PF_HOOK_FUNCTION)(RTS_UI32 ulHook, RTS_UINTPTR ulParam1, RTS_UINTPTR ulParam2);
typedef RTS_HANDLE (*PF_CREATE_INSTANCE)(CLASSID classId, RTS_RESULT *pResult);
typedef RTS_RESULT (*PF_DELETE_INSTANCE)(RTS_HANDLE hInstance);

/* Functions of the component manager handed to every component's entry. */
typedef RTS_RESULT (*PF_CM_REGISTER_API)(const void *pTableOrName, RTS_VOID_FCTPTR pfFunction,
                                         RTS_UI32 bExternalLibrary, RTS_UI32 ulCmpIdOrSignature);
typedef RTS_RESULT (*PF_CM_GET_API)(const char *pszName, RTS_VOID_FCTPTR *ppfFunction, RTS_UI32 ulSignature);
typedef RTS_RESULT (*PF_CM_CALL_HOOK)(RTS_UI32 ulHook, RTS_UINTPTR ulParam1, RTS_UINTPTR ulParam2,
                                      RTS_UI32 bReverse);
typedef RTS_HANDLE (*PF_CM_REGISTER_CLASS)(CMPID cmpId, CLASSID classId);
typedef RTS_HANDLE (*PF_CM_CREATE_INSTANCE)(CLASSID classId, RTS_RESULT *pResult);
typedef RTS_RESULT (*PF_CM_REGISTER_API2)(const char *pszName, RTS_VOID_FCTPTR pfFunction,
                                          RTS_UI32 bExternalLibrary, RTS_UI32 ulSignature, RTS_UI32 ulVersion);
typedef RTS_RESULT (*PF_CM_GET_API2)(const char *pszName, RTS_VOID_FCTPTR *ppfFunction, RTS_UI32 ulOptions,
                                     RTS_UI32 ulSignature, RTS_UI32 ulVersion);
typedef RTS_RESULT (*PF_CM_DELETE_INSTANCE2)(CLASSID classId, RTS_HANDLE hInstance);

/* Component states (ComponentInfo.usState). */
#define CM_STATE_LOADED 2u
#define CM_STATE_DISABLED 3u
#define CM_STATE_INITIALIZED 4u
#define CM_STATE_RUNNING 5u
#define CM_STATE_REMOVED 6u

/* Component flags (ComponentInfo.usFlags). */
#define CM_FLAG_STATIC 0x0001u
#define CM_FLAG_DYNAMIC 0x0002u
#define CM_FLAG_SYSTEM 0x0004u
#define CM_FLAG_ADDED 0x0100u         /* imports still to be resolved */
#define CM_FLAG_MARK_EXISTING 0x0200u /* already present when a list was added again */
#define CM_FLAG_IMPORT_MASK 0x0300u

/* Component record, one per component in the component table. */
typedef struct ComponentInfo_ {
    CMPID CmpId;                              /* from the entry function's answer */
    const char *pszName;                      /* static string or CM-owned copy */
    RTS_HANDLE hModule;                       /* loaded module, all ones for linked-in */
    RTS_UI32 ulVersion;                       /* A.B.C.D, 0 when the component gives none */
    PF_COMPONENT_ENTRY pfEntry;               /* the component's ComponentEntry */
    PF_EXPORT_FUNCTIONS pfExportFunctions;    /* registers the exports */
    PF_IMPORT_FUNCTIONS pfImportFunctions;    /* resolves the imports */
    PF_GET_VERSION pfGetVersion;              /* returns the version */
    PF_HOOK_FUNCTION pfHookFunction;          /* receives hooks */
    PF_CREATE_INSTANCE pfCreateInstance;      /* called by CMCreateInstance */
    PF_DELETE_INSTANCE pfDeleteInstance;      /* counterpart of pfCreateInstance */
    RTS_UI16 usState;                         /* CM_STATE_... */
    RTS_UI16 usFlags;                         /* CM_FLAG_... */
    RTS_UI8 bStaticName;                      /* 1: pszName used as it is; 0: copied on add */
} ComponentInfo;

/* Exchange record of the entry call: fifteen pointer-sized words. */
typedef struct ComponentInitStruct_ {
    RTS_UINTPTR CmpId;                        /* out: component id */
    PF_EXPORT_FUNCTIONS pfExportFunctions;    /* out */
    PF_IMPORT_FUNCTIONS pfImportFunctions;    /* out */
    PF_GET_VERSION pfGetVersion;              /* out */
    PF_CREATE_INSTANCE pfCreateInstance;      /* out */
    PF_DELETE_INSTANCE pfDeleteInstance;      /* out */
    PF_HOOK_FUNCTION pfHookFunction;          /* out */
    PF_CM_REGISTER_API pfCMRegisterAPI;       /* in */
    PF_CM_GET_API pfCMGetAPI;                 /* in */
    PF_CM_CALL_HOOK pfCMCallHook;             /* in */
    PF_CM_REGISTER_CLASS pfCMRegisterClass;   /* in */
    PF_CM_CREATE_INSTANCE pfCMCreateInstance; /* in */
    PF_CM_REGISTER_API2 pfCMRegisterAPI2;     /* in */
    PF_CM_GET_API2 pfCMGetAPI2;               /* in */
    PF_CM_DELETE_INSTANCE2 pfCMDeleteInstance2; /* in */
} ComponentInitStruct;

/* One row of a host component list; the list ends at a null or empty name. */
typedef struct ComponentListEntry_ {
    const char *pszName;        /* component name */
    PF_COMPONENT_ENTRY pfEntry; /* linked-in entry, or null: the CM finds it */
    RTS_UINTPTR bSystem;        /* nonzero: system component */
} ComponentListEntry;

/* One row of an export table; a null function ends the table. */
typedef struct ExportEntry_ {
    RTS_VOID_FCTPTR pfFunction; /* the exported function */
    const char *pszName;        /* API name */
    RTS_UI32 ulSignature;       /* 0: no signature test */
    RTS_UI32 ulVersion;         /* 0: no version test */
} ExportEntry;

/* Options of CMGetAPI2/CMGetAPI3. */
#define CM_IMPORT_IEC 0x1u      /* case-insensitive against external-library exports */
#define CM_IMPORT_OPTIONAL 0x2u /* not found is no error and is not logged */

/* Base interface of component instances (reference counted). */
typedef struct IBase_ {
    void *pInstance;
    void *(*QueryInterface)(struct IBase_ *pBase, ITFID iid, RTS_RESULT *pResult);
    RTS_I32 (*AddRef)(struct IBase_ *pBase);
    RTS_I32 (*Release)(struct IBase_ *pBase);
} IBase;

#define ITFID_IBase 0u
#define ITFID_ILogBackend 22u
#define ITFID_ISysFile 260u

RTS_END_C

/* Export-table helper: one row per function. */
#define RTS_EXPORT_ROW(fn, name, sig, ver) {(RTS_VOID_FCTPTR)(fn), (name), (sig), (ver)}
/* A row that exports fn under its own name, without signature or version test. */
#define RTS_EXPORT_FN(fn) RTS_EXPORT_ROW(fn, #fn, 0, 0)
#define RTS_EXPORT_END {0, 0, 0, 0}

/* Marks the one symbol a module exports; the build defines it per platform. */
#ifndef RTS_MODULE_EXPORT
#define RTS_MODULE_EXPORT
#endif

#endif
