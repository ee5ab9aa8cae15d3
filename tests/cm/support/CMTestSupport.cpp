// The test program's side of the component manager's tests: the recorder and the behaviours of the
// test components (module files reach them through the exported "TestHostGet"), and the fake
// runtime services.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "CMTestFixture.h"
#include "SysTaskItf.h"

namespace kestrel::cmtest {

namespace {

Recorder s_recorder;
Fakes s_fakes;
PF_CM_REGISTER_API2 s_pfRegister2 = nullptr;
int s_semaphore; // every semaphore is this one: the tests count the calls only

std::string Short(const char *pszName) {
    return std::strncmp(pszName, "TestCmp", 7) == 0 ? pszName + 7 : pszName;
}

void HostRecord(const char *pszComponent, const char *pszKind, RTS_UI32 ulHook, RTS_UINTPTR ulParam1,
                RTS_UINTPTR ulParam2) {
    bool bHook = std::strcmp(pszKind, "hook") == 0;
    std::string text = Short(pszComponent) + ":" + (bHook ? std::to_string(ulHook) : pszKind);
    // The component announcements carry a component name.
    if (bHook && ulHook >= CH_COMPONENT_INITIALIZED && ulHook <= CH_COMPONENT_LOADED && ulParam1 != 0)
        text += "(" + Short(reinterpret_cast<const char *>(ulParam1)) + ")";
    s_recorder.events.push_back(TraceEvent{pszComponent, pszKind, ulHook, ulParam1, ulParam2, text});
}

const TestHostItf s_host = {&HostRecord, [](const char *pszName) { return &s_recorder.Behaviour(pszName); }};

std::string Format(const char *pszFormat, va_list args) {
    char szText[1024];
    std::vsnprintf(szText, sizeof(szText), pszFormat, args);
    return szText;
}

RTS_RESULT FakeLogAdd(RTS_HANDLE, CMPID cmpId, RTS_UI32 ulClassId, RTS_RESULT errorId, RTS_UI32 ulInfoId,
                      const char *pszInfo, ...) {
    va_list args;
    va_start(args, pszInfo);
    s_fakes.log.push_back(LogLine{cmpId, ulClassId, errorId, ulInfoId, Format(pszInfo, args)});
    va_end(args);
    return ERR_OK;
}

const std::string *Setting(const char *pszSection, const char *pszKey) {
    auto it = s_fakes.settings.find({pszSection, pszKey});
    return it != s_fakes.settings.end() ? &it->second : nullptr;
}

RTS_RESULT FakeGetIntValue(const char *pszSection, const char *pszKey, RTS_I32 *piValue, RTS_I32 iDefault) {
    const std::string *pValue = Setting(pszSection, pszKey);
    *piValue = pValue != nullptr ? static_cast<RTS_I32>(std::strtol(pValue->c_str(), nullptr, 0)) : iDefault;
    return pValue != nullptr ? ERR_OK : ERR_NO_OBJECT;
}

RTS_RESULT FakeGetStringValue(const char *pszSection, const char *pszKey, char *pszValue, RTS_I32 *piLen,
                              const char *pszDefault) {
    const std::string *pValue = Setting(pszSection, pszKey);
    std::snprintf(pszValue, static_cast<std::size_t>(*piLen), "%s", pValue != nullptr ? pValue->c_str() : pszDefault);
    return pValue != nullptr ? ERR_OK : ERR_NO_OBJECT;
}

template <typename T> T Ok(RTS_RESULT *pResult, T value) {
    if (pResult != nullptr)
        *pResult = ERR_OK;
    return value;
}

// Memory is accounted per name.
void *FakeAlloc(const char *pszName, RTS_SIZE ulSize, RTS_RESULT *pResult) {
    void *p = std::malloc(ulSize);
    s_fakes.blocks[p] = ulSize;
    s_fakes.memory[pszName] += static_cast<long>(ulSize);
    return Ok(pResult, p);
}

RTS_RESULT FakeFree(const char *pszName, void *pData) {
    s_fakes.memory[pszName] -= static_cast<long>(s_fakes.blocks[pData]);
    s_fakes.blocks.erase(pData);
    std::free(pData);
    return ERR_OK;
}

RTS_RESULT FakeEventPost2(RTS_HANDLE hEvent, RTS_UI32 ulParamId, RTS_UI32 ulVersion, void *pParameter) {
    EVENTID eventId = static_cast<std::pair<EVENTID, CMPID> *>(hEvent)->first;
    char szText[40];
    std::snprintf(szText, sizeof(szText), "event 0x%x", static_cast<unsigned>(eventId));
    s_recorder.events.push_back(TraceEvent{"event", "post", eventId, ulParamId, ulVersion, szText});
    if (s_fakes.listeners.count(eventId) != 0)
        s_fakes.listeners[eventId](pParameter);
    return ERR_OK;
}

RTS_RESULT Count(int &n) {
    ++n;
    return ERR_OK;
}

template <typename T> RTS_RESULT Keep(std::vector<T> &kept, T value) {
    kept.push_back(std::move(value));
    return ERR_OK;
}

template <typename Fn> ExportEntry Row(const char *pszName, Fn fn) {
    return ExportEntry{reinterpret_cast<RTS_VOID_FCTPTR>(+fn), pszName, 0, 0};
}

const std::vector<ExportEntry> s_logExports = {Row("LogAdd", &FakeLogAdd)};

const std::vector<ExportEntry> s_settingsExports = {
    Row("SettgSetDatabaseName",
        [](const char *pszName) {
            s_fakes.databaseTries.push_back(pszName);
            return s_fakes.acceptedDatabases.count(pszName) != 0 ? ERR_OK : ERR_NO_OBJECT;
        }),
    Row("SettgSetOptions", [](RTS_UI32 ulOptions) { return Keep(s_fakes.optionsSet, ulOptions); }),
    Row("SettgGetIntValue", &FakeGetIntValue), Row("SettgGetStringValue", &FakeGetStringValue)};

const std::vector<ExportEntry> s_serviceExports = {
    Row("SysTimeGetMs", [] { return std::exchange(s_fakes.ulNowMs, s_fakes.ulNowMs + s_fakes.ulStepMs); }),
    Row("SysSemCreate", [](RTS_RESULT *pResult) { return Ok<RTS_HANDLE>(pResult, &s_semaphore); }),
    Row("SysSemDelete", [](RTS_HANDLE) { return Count(s_fakes.nSemDeleted); }),
    Row("SysSemEnter", [](RTS_HANDLE) { return Count(s_fakes.nSemEnter); }),
    Row("SysSemLeave", [](RTS_HANDLE) { return ERR_OK; }),
    Row("SysMemAllocData", &FakeAlloc),
    Row("SysMemFreeData", &FakeFree),
    Row("EventCreate",
        [](EVENTID eventId, CMPID cmpId, RTS_RESULT *pResult) {
            s_fakes.events.emplace_back(eventId, cmpId);
            return Ok<RTS_HANDLE>(pResult, &s_fakes.events.back());
        }),
    Row("EventDelete", [](RTS_HANDLE) { return Count(s_fakes.nEventsDeleted); }),
    Row("EventPost2", &FakeEventPost2),
    Row("SysOutVPrintf",
        [](const char *pszFormat, va_list args) { return Keep(s_fakes.out, Format(pszFormat, args)); }),
    Row("SysTaskCreate",
        [](const char *, PF_TASK_FUNCTION, void *, RTS_UI32, RTS_RESULT *) { return RTS_INVALID_HANDLE; }),
    Row("TestHostGet", &TestHostGet)};

// Registers the rows the test did not withhold; the services take every hook without comment.
RTS_RESULT Enter(ComponentInitStruct *p, CMPID cmpId, PF_EXPORT_FUNCTIONS pfExports) {
    s_pfRegister2 = p->pfCMRegisterAPI2;
    p->CmpId = cmpId;
    p->pfExportFunctions = pfExports;
    p->pfGetVersion = [] { return RTS_SYSTEM_VERSION; };
    p->pfHookFunction = [](RTS_UI32, RTS_UINTPTR, RTS_UINTPTR) { return ERR_OK; };
    return ERR_OK;
}

template <const std::vector<ExportEntry> *pRows> RTS_RESULT RegisterRows() {
    for (const ExportEntry &row : *pRows)
        if (s_fakes.withheld.count(row.pszName) == 0)
            s_pfRegister2(row.pszName, row.pfFunction, 0, 0, 0);
    return ERR_OK;
}

} // namespace

Recorder &R() {
    return s_recorder;
}

std::string Recorder::Trace(const std::string &component) const {
    std::string out;
    for (const TraceEvent &e : events)
        if (component.empty() || e.component == component)
            out += (out.empty() ? "" : " ") + e.text;
    return out;
}

std::vector<RTS_UI32> Recorder::Hooks(const std::string &component) const {
    std::vector<RTS_UI32> out;
    for (const TraceEvent &e : events)
        if (e.component == component && e.kind == "hook")
            out.push_back(e.ulHook);
    return out;
}

TestCmpBehaviour &Recorder::Behaviour(const std::string &component) {
    TestCmpBehaviour b{};
    b.ulVersion = RTS_MAKE_VERSION(1, 2, 3, 4);
    return behaviours.emplace(component, b).first->second;
}

void AddExport(TestCmpBehaviour &b, const char *pszName, RTS_UI32 ulFunction, RTS_UI32 bExternal, RTS_UI32 ulSignature,
               RTS_UI32 ulVersion) {
    TestApiRow &row = b.exports[b.nExports++];
    row = TestApiRow{{}, ulFunction, bExternal, ulSignature, ulVersion};
    std::snprintf(row.szName, sizeof(row.szName), "%s", pszName);
}

void AddImport(TestCmpBehaviour &b, const char *pszName) {
    std::snprintf(b.imports[b.nImports++].szName, sizeof(b.imports[0].szName), "%s", pszName);
}

void AddAnswer(TestCmpBehaviour &b, RTS_UI32 ulHook, RTS_RESULT answer, RTS_I32 nTimes) {
    b.answers[b.nAnswers].ulHook = ulHook;
    b.answers[b.nAnswers].answer = answer;
    b.answers[b.nAnswers++].nTimes = nTimes;
}

std::string CallTestFunction(RTS_VOID_FCTPTR pf) {
    return pf != nullptr ? reinterpret_cast<const char *(*)()>(pf)() : "(null)";
}

Fakes &F() {
    return s_fakes;
}

void ResetFakes() {
    for (auto &block : s_fakes.blocks)
        std::free(block.first);
    s_fakes = Fakes{};
    s_fakes.withheld.insert("SysTaskCreate");
}

int Fakes::Logged(const std::string &text) const {
    int n = 0;
    for (const LogLine &line : log)
        n += line.text.find(text) != std::string::npos ? 1 : 0;
    return n;
}

} // namespace kestrel::cmtest

using namespace kestrel::cmtest;

extern "C" const TestHostItf *TestHostGet(void) {
    return &s_host;
}
extern "C" RTS_RESULT FakeLogEntry(ComponentInitStruct *p) {
    return Enter(p, CMPID_CmpLog, &RegisterRows<&s_logExports>);
}
extern "C" RTS_RESULT FakeSettingsEntry(ComponentInitStruct *p) {
    return Enter(p, CMPID_CmpSettings, &RegisterRows<&s_settingsExports>);
}
extern "C" RTS_RESULT FakeServicesEntry(ComponentInitStruct *p) {
    return Enter(p, CMPID_SysMem, &RegisterRows<&s_serviceExports>);
}
