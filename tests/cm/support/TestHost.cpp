// The recorder and the behaviours of the test components, reachable from linked-in copies
// directly and from module files through the exported "TestHostGet".
#include "TestHost.h"

#include <cstdio>
#include <cstring>

namespace kestrel::cmtest {

namespace {

Recorder s_recorder;

std::string Describe(const char *pszComponent, const char *pszKind, RTS_UI32 ulHook, RTS_UINTPTR ulParam1) {
    std::string text = std::string(pszComponent) + ":" + pszKind;
    if (std::strcmp(pszKind, "hook") == 0) {
        text += " " + std::to_string(ulHook);
        // The component announcements carry a component name.
        if ((ulHook == CH_COMPONENT_INITIALIZED || ulHook == CH_COMPONENT_EXIT || ulHook == CH_COMPONENT_LOADED) &&
            ulParam1 != 0)
            text += "(" + std::string(reinterpret_cast<const char *>(ulParam1)) + ")";
    }
    return text;
}

void HostRecord(const char *pszComponent, const char *pszKind, RTS_UI32 ulHook, RTS_UINTPTR ulParam1,
                RTS_UINTPTR ulParam2) {
    s_recorder.Add(TraceEvent{pszComponent, pszKind, ulHook, ulParam1, ulParam2,
                              Describe(pszComponent, pszKind, ulHook, ulParam1)});
}

TestCmpBehaviour *HostBehaviour(const char *pszComponent) {
    return &s_recorder.Behaviour(pszComponent);
}

void HostImported(const char *, const char *pszName, RTS_RESULT result, RTS_VOID_FCTPTR pfSlot) {
    s_recorder.imports.push_back(ImportReport{pszName, result, pfSlot});
}

const TestHostItf s_host = {&HostRecord, &HostBehaviour, &HostImported};

void CopyName(char *pszDest, const char *pszSrc) {
    std::snprintf(pszDest, TESTCMP_NAME_SIZE, "%s", pszSrc);
}

} // namespace

Recorder &R() {
    return s_recorder;
}

void Recorder::Reset() {
    events_.clear();
    imports.clear();
}

void Recorder::ResetAll() {
    Reset();
    behaviours_.clear();
}

std::vector<std::string> Recorder::Trace(const std::string &component) const {
    std::vector<std::string> out;
    for (const TraceEvent &e : events_)
        if (component.empty() || e.component == component)
            out.push_back(e.text);
    return out;
}

std::vector<RTS_UI32> Recorder::Hooks(const std::string &component) const {
    std::vector<RTS_UI32> out;
    for (const TraceEvent &e : events_)
        if (e.component == component && e.kind == "hook")
            out.push_back(e.ulHook);
    return out;
}

std::vector<std::string> Recorder::Kinds(std::initializer_list<const char *> kinds) const {
    std::vector<std::string> out;
    for (const TraceEvent &e : events_)
        for (const char *pszKind : kinds)
            if (e.kind == pszKind)
                out.push_back(e.text);
    return out;
}

TestCmpBehaviour &Recorder::Behaviour(const std::string &component) {
    auto it = behaviours_.find(component);
    if (it == behaviours_.end()) {
        TestCmpBehaviour b{};
        b.ulVersion = RTS_MAKE_VERSION(1, 2, 3, 4);
        it = behaviours_.emplace(component, b).first;
    }
    return it->second;
}

void AddExport(TestCmpBehaviour &b, const char *pszName, RTS_UI32 ulFunction, RTS_UI32 bExternal, RTS_UI32 ulSignature,
               RTS_UI32 ulVersion) {
    TestExportRow &row = b.exports[b.nExports++];
    CopyName(row.szName, pszName);
    row.ulFunction = ulFunction;
    row.bExternal = bExternal;
    row.ulSignature = ulSignature;
    row.ulVersion = ulVersion;
}

void AddImport(TestCmpBehaviour &b, const char *pszName, RTS_UI32 ulOptions, RTS_UI32 ulSignature, RTS_UI32 ulVersion) {
    TestImportRow &row = b.imports[b.nImports++];
    CopyName(row.szName, pszName);
    row.ulOptions = ulOptions;
    row.ulSignature = ulSignature;
    row.ulVersion = ulVersion;
}

void AddAnswer(TestCmpBehaviour &b, RTS_UI32 ulHook, RTS_RESULT answer, RTS_I32 nTimes) {
    b.answers[b.nAnswers++] = TestHookAnswer{ulHook, answer, nTimes};
}

std::string CallTestFunction(RTS_VOID_FCTPTR pf) {
    if (pf == nullptr)
        return "(null)";
    return reinterpret_cast<const char *(*)()>(pf)();
}

} // namespace kestrel::cmtest

extern "C" const TestHostItf *TestHostGet(void) {
    return &kestrel::cmtest::s_host;
}
