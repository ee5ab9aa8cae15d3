/*
 * What the test components and the test program share: how a test component behaves and where it
 * reports what happened to it. Plain C records, because the same test component is built into the
 * test programs and into module files; a module finds the recorder by looking up "TestHostGet".
 */
#ifndef KESTREL_TEST_HOST_ITF_H
#define KESTREL_TEST_HOST_ITF_H

#include "CmpItf.h"

RTS_BEGIN_C

#define TESTCMP_MAX_ROWS 8
#define TESTCMP_NAME_SIZE 72

/* One export row: which of the component's three functions, under which name. */
typedef struct TestExportRow_ {
    char szName[TESTCMP_NAME_SIZE];
    RTS_UI32 ulFunction; /* 0, 1 or 2 */
    RTS_UI32 bExternal;
    RTS_UI32 ulSignature;
    RTS_UI32 ulVersion;
} TestExportRow;

/* One import: the component's import callback calls CMGetAPI2 with these. */
typedef struct TestImportRow_ {
    char szName[TESTCMP_NAME_SIZE];
    RTS_UI32 ulOptions;
    RTS_UI32 ulSignature;
    RTS_UI32 ulVersion;
} TestImportRow;

/* A hook answered with something else than 0, nTimes times (-1: always). */
typedef struct TestHookAnswer_ {
    RTS_UI32 ulHook;
    RTS_RESULT answer;
    RTS_I32 nTimes;
} TestHookAnswer;

typedef struct TestCmpBehaviour_ {
    CMPID cmpId;
    RTS_UI32 ulVersion;
    RTS_UI32 bNoGetVersion;  /* leave the get-version callback empty */
    RTS_UI32 bNoHook;        /* leave the hook callback empty */
    RTS_UI32 bNoInstances;   /* leave the create/delete-instance callbacks empty */
    RTS_RESULT entryResult;  /* answer of the entry function */
    RTS_RESULT exportResult; /* answer of the export callback */
    RTS_UI32 bSetStopWord;   /* hook 2: set the stop-start-up word */
    CLASSID classId;         /* nonzero: register this class in the entry function */
    RTS_RESULT deleteResult; /* answer of the delete-instance callback */
    RTS_UI32 nExports;       /* 0: the one default row "<name>Fn" */
    TestExportRow exports[TESTCMP_MAX_ROWS];
    RTS_UI32 nImports;
    TestImportRow imports[TESTCMP_MAX_ROWS];
    RTS_UI32 nAnswers;
    TestHookAnswer answers[4];
} TestCmpBehaviour;

/* What a component reports; kind: "entry", "export", "import", "hook", "create", "delete". */
typedef struct TestHostItf_ {
    void (*pfRecord)(const char *pszComponent, const char *pszKind, RTS_UI32 ulHook, RTS_UINTPTR ulParam1,
                     RTS_UINTPTR ulParam2);
    TestCmpBehaviour *(*pfBehaviour)(const char *pszComponent);
    /* Result and slot of each import, for the test to inspect. */
    void (*pfImported)(const char *pszComponent, const char *pszName, RTS_RESULT result, RTS_VOID_FCTPTR pfSlot);
} TestHostItf;

typedef const TestHostItf *(*PF_TEST_HOST_GET)(void);

/* In the test program. */
const TestHostItf *TestHostGet(void);

RTS_END_C

#endif
