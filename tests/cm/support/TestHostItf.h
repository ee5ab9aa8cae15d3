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

/* An export (function 0, 1 or 2 of the component under a name) or an import (by name). */
typedef struct TestApiRow_ {
    char szName[72];
    RTS_UI32 ulFunction;
    RTS_UI32 ulFlags; /* exports: 1 = external library; imports: the options */
    RTS_UI32 ulSignature;
    RTS_UI32 ulVersion;
} TestApiRow;

typedef struct TestCmpBehaviour_ {
    CMPID cmpId;
    RTS_UI32 ulVersion;
    RTS_UI32 bNoGetVersion, bNoHook, bNoInstances; /* leave these callbacks empty */
    RTS_RESULT entryResult;                        /* answer of the entry function */
    RTS_RESULT exportResult;                       /* answer of the export callback */
    RTS_UI32 bSetStopWord;                         /* hook 2: set the stop-start-up word */
    CLASSID classId;                               /* nonzero: register this class in the entry */
    RTS_RESULT deleteResult;                       /* answer of the delete-instance callback */
    RTS_UI32 nExports, nImports;                   /* no exports: the one row "<name>Fn" */
    TestApiRow exports[TESTCMP_MAX_ROWS], imports[TESTCMP_MAX_ROWS];
    /* Hooks answered with something else than 0, nTimes times (-1: always). */
    RTS_UI32 nAnswers;
    struct {
        RTS_UI32 ulHook;
        RTS_RESULT answer;
        RTS_I32 nTimes;
    } answers[4];
} TestCmpBehaviour;

/* What a component reports; kind: "entry", "import", "hook", "create", "delete". */
typedef struct TestHostItf_ {
    void (*pfRecord)(const char *pszComponent, const char *pszKind, RTS_UI32 ulHook, RTS_UINTPTR ulParam1,
                     RTS_UINTPTR ulParam2);
    TestCmpBehaviour *(*pfBehaviour)(const char *pszComponent);
} TestHostItf;

typedef const TestHostItf *(*PF_TEST_HOST_GET)(void);

/* In the test program. */
const TestHostItf *TestHostGet(void);

RTS_END_C

#endif
