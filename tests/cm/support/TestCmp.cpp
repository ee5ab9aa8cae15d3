// A component written for the component manager's tests. It reports every entry call, import
// call, hook and instance call to the test program's recorder, and behaves as the test tells it.
// The same source is built several times: linked into the test programs under entry names of
// their own (TESTCMP_LINKED) and as module files that export only ComponentEntry.
#include "TestHostItf.h"

#ifndef TESTCMP_NAME
#error "TESTCMP_NAME must name the component"
#endif
#ifndef TESTCMP_ENTRY
#error "TESTCMP_ENTRY must name the entry function"
#endif

#ifdef TESTCMP_UNRESOLVED
extern "C" void KestrelFunctionThatDoesNotExist(void);
#endif

namespace {

ComponentInitStruct s_cm;   // the CM functions handed to the entry
const TestHostItf *s_host;  // the test program's recorder
TestCmpBehaviour s_default; // without a recorder: CmpId 0, no extra rows

const TestHostItf *Host() {
#ifdef TESTCMP_LINKED
    return TestHostGet();
#else
    // A module reaches the test program through the registry; never while a lookup runs (the
    // export callback uses what the entry call found).
    if (s_host == nullptr && s_cm.pfCMGetAPI2 != nullptr) {
        RTS_VOID_FCTPTR pf = nullptr;
        if (s_cm.pfCMGetAPI2("TestHostGet", &pf, CM_IMPORT_OPTIONAL, 0, 0) == ERR_OK && pf != nullptr)
            s_host = reinterpret_cast<PF_TEST_HOST_GET>(pf)();
    }
    return s_host;
#endif
}

TestCmpBehaviour *Behaviour(const TestHostItf *pHost = Host()) {
    TestCmpBehaviour *p = pHost != nullptr ? pHost->pfBehaviour(TESTCMP_NAME) : nullptr;
    return p != nullptr ? p : &s_default;
}

void Record(const char *pszKind, RTS_UI32 ulHook = 0, RTS_UINTPTR ulParam1 = 0, RTS_UINTPTR ulParam2 = 0) {
    if (const TestHostItf *pHost = Host())
        pHost->pfRecord(TESTCMP_NAME, pszKind, ulHook, ulParam1, ulParam2);
}

// The exported functions answer with the component's name and their number.
const RTS_VOID_FCTPTR s_functions[3] = {reinterpret_cast<RTS_VOID_FCTPTR>(+[] { return TESTCMP_NAME "#0"; }),
                                        reinterpret_cast<RTS_VOID_FCTPTR>(+[] { return TESTCMP_NAME "#1"; }),
                                        reinterpret_cast<RTS_VOID_FCTPTR>(+[] { return TESTCMP_NAME "#2"; })};
const ExportEntry s_defaultExports[] = {{s_functions[0], TESTCMP_NAME "Fn", 0, 0}, {nullptr, nullptr, 0, 0}};

RTS_RESULT ExportFunctions() {
    TestCmpBehaviour *b = Behaviour(s_host != nullptr ? s_host : Host());
    if (b->nExports == 0)
        s_cm.pfCMRegisterAPI(s_defaultExports, nullptr, 0, b->cmpId);
    for (RTS_UI32 i = 0; i < b->nExports && i < TESTCMP_MAX_ROWS; ++i) {
        const TestApiRow &row = b->exports[i];
        s_cm.pfCMRegisterAPI2(row.szName, s_functions[row.ulFunction % 3], row.ulFlags, row.ulSignature, row.ulVersion);
    }
    return b->exportResult;
}

// Fails with the first required import that fails.
RTS_RESULT ImportFunctions() {
    TestCmpBehaviour *b = Behaviour();
    Record("import");
    RTS_RESULT firstRequired = ERR_OK;
    for (RTS_UI32 i = 0; i < b->nImports && i < TESTCMP_MAX_ROWS; ++i) {
        const TestApiRow &row = b->imports[i];
        RTS_VOID_FCTPTR pfSlot = nullptr;
        RTS_RESULT result = s_cm.pfCMGetAPI2(row.szName, &pfSlot, row.ulFlags, row.ulSignature, row.ulVersion);
        if (result != ERR_OK && (row.ulFlags & CM_IMPORT_OPTIONAL) == 0 && firstRequired == ERR_OK)
            firstRequired = result;
    }
    return firstRequired;
}

RTS_UI32 GetVersion() {
    return Behaviour()->ulVersion;
}

RTS_RESULT HookFunction(RTS_UI32 ulHook, RTS_UINTPTR ulParam1, RTS_UINTPTR ulParam2) {
    Record("hook", ulHook, ulParam1, ulParam2);
    TestCmpBehaviour *b = Behaviour();
    if (ulHook == CH_INIT2 && b->bSetStopWord != 0 && ulParam1 != 0)
        *reinterpret_cast<RTS_UI32 *>(ulParam1) = 1;
    for (RTS_UI32 i = 0; i < b->nAnswers && i < 4; ++i) {
        if (b->answers[i].ulHook != ulHook || b->answers[i].nTimes == 0)
            continue;
        if (b->answers[i].nTimes > 0)
            --b->answers[i].nTimes;
        return b->answers[i].answer;
    }
    return ERR_OK;
}

int s_instances[4];
unsigned s_nextInstance;

RTS_HANDLE CreateInstance(CLASSID classId, RTS_RESULT *pResult) {
    Record("create", classId);
    if (pResult != nullptr)
        *pResult = ERR_OK;
    return &s_instances[s_nextInstance++ % 4];
}

RTS_RESULT DeleteInstance(RTS_HANDLE hInstance) {
    Record("delete", 0, reinterpret_cast<RTS_UINTPTR>(hInstance));
    return Behaviour()->deleteResult;
}

} // namespace

#ifdef TESTCMP_LINKED
extern "C" RTS_RESULT TESTCMP_ENTRY(ComponentInitStruct *pInitStruct)
#else
extern "C" RTS_MODULE_EXPORT RTS_RESULT TESTCMP_ENTRY(ComponentInitStruct *pInitStruct)
#endif
{
    s_cm = *pInitStruct;
    s_host = nullptr;
#ifdef TESTCMP_UNRESOLVED
    // Refers to a function that no library defines: loading the module must fail at once.
    KestrelFunctionThatDoesNotExist();
#endif
    TestCmpBehaviour *b = Behaviour();
    Record("entry");
    if (b->entryResult != ERR_OK)
        return b->entryResult;
    pInitStruct->CmpId = b->cmpId;
    pInitStruct->pfExportFunctions = &ExportFunctions;
    pInitStruct->pfImportFunctions = &ImportFunctions;
    pInitStruct->pfGetVersion = b->bNoGetVersion != 0 ? nullptr : &GetVersion;
    pInitStruct->pfHookFunction = b->bNoHook != 0 ? nullptr : &HookFunction;
    pInitStruct->pfCreateInstance = b->bNoInstances != 0 ? nullptr : &CreateInstance;
    pInitStruct->pfDeleteInstance = b->bNoInstances != 0 ? nullptr : &DeleteInstance;
    if (b->classId != 0)
        pInitStruct->pfCMRegisterClass(b->cmpId, b->classId);
    return ERR_OK;
}
