// The fake runtime services of the component manager's tests.
#include "FakeServices.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "CmpEventMgrItf.h"
#include "CmpLogItf.h"
#include "CmpSettingsItf.h"
#include "SysMemItf.h"
#include "SysOutItf.h"
#include "SysSemItf.h"
#include "SysTaskItf.h"
#include "SysTimeItf.h"
#include "TestHost.h"

namespace kestrel::cmtest {

namespace {

Fakes s_fakes;

PF_CM_REGISTER_API2 s_pfRegister2 = nullptr;

std::string Format(const char *pszFormat, va_list args) {
    char szText[1024];
    std::vsnprintf(szText, sizeof(szText), pszFormat, args);
    return szText;
}

// --- CmpLog ---

RTS_RESULT FakeLogAddArg(RTS_HANDLE, CMPID cmpId, RTS_UI32 ulClassId, RTS_RESULT errorId, RTS_UI32 ulInfoId,
                         const char *pszInfo, va_list args) {
    s_fakes.log.push_back(LogLine{cmpId, ulClassId, errorId, ulInfoId, Format(pszInfo, args)});
    return ERR_OK;
}

RTS_RESULT FakeLogAdd(RTS_HANDLE hLogger, CMPID cmpId, RTS_UI32 ulClassId, RTS_RESULT errorId, RTS_UI32 ulInfoId,
                      const char *pszInfo, ...) {
    va_list args;
    va_start(args, pszInfo);
    RTS_RESULT result = FakeLogAddArg(hLogger, cmpId, ulClassId, errorId, ulInfoId, pszInfo, args);
    va_end(args);
    return result;
}

// --- CmpSettings ---

RTS_RESULT FakeSetDatabaseName(const char *pszDatabase) {
    s_fakes.databaseTries.push_back(pszDatabase != nullptr ? pszDatabase : "(null)");
    return pszDatabase != nullptr && s_fakes.acceptedDatabases.count(pszDatabase) != 0 ? ERR_OK : ERR_NO_OBJECT;
}

RTS_RESULT FakeSetOptions(RTS_UI32 ulOptions) {
    s_fakes.optionsSet.push_back(ulOptions);
    return ERR_OK;
}

const std::string *FindSetting(const char *pszSection, const char *pszKey) {
    auto it = s_fakes.settings.find({pszSection, pszKey});
    return it != s_fakes.settings.end() ? &it->second : nullptr;
}

RTS_RESULT FakeGetIntValue(const char *pszSection, const char *pszKey, RTS_I32 *piValue, RTS_I32 iDefault) {
    const std::string *pValue = FindSetting(pszSection, pszKey);
    if (pValue == nullptr) {
        *piValue = iDefault;
        return ERR_NO_OBJECT;
    }
    *piValue = static_cast<RTS_I32>(std::strtol(pValue->c_str(), nullptr, 0));
    return ERR_OK;
}

RTS_RESULT FakeGetStringValue(const char *pszSection, const char *pszKey, char *pszValue, RTS_I32 *piLen,
                              const char *pszDefault) {
    const std::string *pValue = FindSetting(pszSection, pszKey);
    const std::string value = pValue != nullptr ? *pValue : std::string(pszDefault != nullptr ? pszDefault : "");
    if (pszValue != nullptr && *piLen > 0)
        std::snprintf(pszValue, static_cast<std::size_t>(*piLen), "%s", value.c_str());
    bool bCut = static_cast<RTS_I32>(value.size()) + 1 > *piLen;
    *piLen = static_cast<RTS_I32>(value.size()) + 1;
    if (pValue == nullptr)
        return ERR_NO_OBJECT;
    return bCut ? ERR_BUFFERSIZE : ERR_OK;
}

// --- SysTestServices ---

RTS_UI32 FakeGetMs() {
    RTS_UI32 ulNow = s_fakes.ulNowMs;
    s_fakes.ulNowMs += s_fakes.ulStepMs;
    return ulNow;
}

// Every semaphore is the same object: the tests count the calls only.
int s_semaphore;

RTS_HANDLE FakeSemCreate(RTS_RESULT *pResult) {
    if (pResult != nullptr)
        *pResult = ERR_OK;
    return &s_semaphore;
}

bool IsHandle(RTS_HANDLE h) {
    return h != nullptr && h != RTS_INVALID_HANDLE;
}

RTS_RESULT FakeSemDelete(RTS_HANDLE h) {
    if (!IsHandle(h))
        return ERR_PARAMETER;
    ++s_fakes.nSemDeleted;
    return ERR_OK;
}

RTS_RESULT FakeSemEnter(RTS_HANDLE h) {
    if (!IsHandle(h))
        return ERR_PARAMETER;
    ++s_fakes.nSemEnter;
    return ERR_OK;
}

RTS_RESULT FakeSemLeave(RTS_HANDLE h) {
    return IsHandle(h) ? ERR_OK : ERR_PARAMETER;
}

// Allocations carry their size in front, so that frees can be accounted per name.
void *FakeAlloc(const char *pszName, RTS_SIZE ulSize, RTS_RESULT *pResult) {
    auto *p = static_cast<RTS_SIZE *>(std::malloc(ulSize + 2 * sizeof(RTS_SIZE)));
    if (pResult != nullptr)
        *pResult = p != nullptr ? ERR_OK : ERR_NOMEMORY;
    if (p == nullptr)
        return nullptr;
    p[0] = ulSize;
    s_fakes.blocks.insert(p);
    s_fakes.memory[pszName != nullptr ? pszName : ""] += static_cast<long>(ulSize);
    return p + 2;
}

RTS_RESULT FakeFree(const char *pszName, void *pData) {
    if (pData == nullptr)
        return ERR_PARAMETER;
    RTS_SIZE *p = static_cast<RTS_SIZE *>(pData) - 2;
    s_fakes.memory[pszName != nullptr ? pszName : ""] -= static_cast<long>(p[0]);
    s_fakes.blocks.erase(p);
    std::free(p);
    return ERR_OK;
}

RTS_HANDLE FakeEventCreate(EVENTID eventId, CMPID cmpId, RTS_RESULT *pResult) {
    auto *pEvent = new FakeEvent{eventId, cmpId, false};
    s_fakes.events.push_back(pEvent);
    if (pResult != nullptr)
        *pResult = ERR_OK;
    return pEvent;
}

RTS_RESULT FakeEventDelete(RTS_HANDLE hEvent) {
    if (!IsHandle(hEvent))
        return ERR_PARAMETER;
    ++s_fakes.nEventsDeleted;
    static_cast<FakeEvent *>(hEvent)->bDeleted = true;
    return ERR_OK;
}

RTS_RESULT FakeEventPost2(RTS_HANDLE hEvent, RTS_UI32 ulParamId, RTS_UI32 ulVersion, void *pParameter) {
    if (!IsHandle(hEvent))
        return ERR_PARAMETER;
    auto *pEvent = static_cast<FakeEvent *>(hEvent);
    char szText[40];
    std::snprintf(szText, sizeof(szText), "event 0x%08x", static_cast<unsigned>(pEvent->eventId));
    R().Add(TraceEvent{"event", "post", pEvent->eventId, ulParamId, ulVersion, szText});
    auto it = s_fakes.listeners.find(pEvent->eventId);
    if (it != s_fakes.listeners.end())
        it->second(pParameter);
    return ERR_OK;
}

RTS_RESULT FakeOutVPrintf(const char *pszFormat, va_list args) {
    s_fakes.out.push_back(Format(pszFormat, args));
    return ERR_OK;
}

RTS_HANDLE FakeTaskCreate(const char *, PF_TASK_FUNCTION, void *, RTS_UI32, RTS_RESULT *pResult) {
    if (pResult != nullptr)
        *pResult = ERR_NOTIMPLEMENTED;
    return RTS_INVALID_HANDLE;
}

#define FAKE_ROW(fn, name)                                                                                             \
    { reinterpret_cast<RTS_VOID_FCTPTR>(&fn), name, 0, 0 }

const ExportEntry s_logExports[] = {FAKE_ROW(FakeLogAdd, "LogAdd"), FAKE_ROW(FakeLogAddArg, "LogAddArg"),
                                    RTS_EXPORT_END};

const ExportEntry s_settingsExports[] = {
    FAKE_ROW(FakeSetDatabaseName, "SettgSetDatabaseName"), FAKE_ROW(FakeSetOptions, "SettgSetOptions"),
    FAKE_ROW(FakeGetIntValue, "SettgGetIntValue"), FAKE_ROW(FakeGetStringValue, "SettgGetStringValue"), RTS_EXPORT_END};

const ExportEntry s_serviceExports[] = {
    FAKE_ROW(FakeGetMs, "SysTimeGetMs"),       FAKE_ROW(FakeSemCreate, "SysSemCreate"),
    FAKE_ROW(FakeSemDelete, "SysSemDelete"),   FAKE_ROW(FakeSemEnter, "SysSemEnter"),
    FAKE_ROW(FakeSemLeave, "SysSemLeave"),     FAKE_ROW(FakeAlloc, "SysMemAllocData"),
    FAKE_ROW(FakeFree, "SysMemFreeData"),      FAKE_ROW(FakeEventCreate, "EventCreate"),
    FAKE_ROW(FakeEventDelete, "EventDelete"),  FAKE_ROW(FakeEventPost2, "EventPost2"),
    FAKE_ROW(FakeOutVPrintf, "SysOutVPrintf"), FAKE_ROW(FakeTaskCreate, "SysTaskCreate"),
    FAKE_ROW(TestHostGet, "TestHostGet"),      RTS_EXPORT_END};

#undef FAKE_ROW

// Registers the rows the test did not withhold.
template <const ExportEntry *pRows> RTS_RESULT RegisterRows() {
    for (const ExportEntry *p = pRows; p->pfFunction != nullptr; ++p)
        if (s_fakes.withheld.count(p->pszName) == 0)
            s_pfRegister2(p->pszName, p->pfFunction, 0, 0, 0);
    return ERR_OK;
}

RTS_UI32 FakeVersion() {
    return RTS_SYSTEM_VERSION;
}

// The services take every hook without comment.
RTS_RESULT FakeHook(RTS_UI32, RTS_UINTPTR, RTS_UINTPTR) {
    return ERR_OK;
}

RTS_RESULT Enter(ComponentInitStruct *p, CMPID cmpId, PF_EXPORT_FUNCTIONS pfExports) {
    s_pfRegister2 = p->pfCMRegisterAPI2;
    p->CmpId = cmpId;
    p->pfExportFunctions = pfExports;
    p->pfGetVersion = &FakeVersion;
    p->pfHookFunction = &FakeHook;
    return ERR_OK;
}

} // namespace

Fakes &F() {
    return s_fakes;
}

void ResetFakes() {
    for (FakeEvent *pEvent : s_fakes.events)
        delete pEvent;
    for (void *pBlock : s_fakes.blocks)
        std::free(pBlock);
    s_fakes = Fakes{};
    s_fakes.withheld.insert("SysTaskCreate");
}

std::vector<LogLine> Fakes::LogWithInfo(RTS_UI32 ulInfoId) const {
    std::vector<LogLine> lines;
    for (const LogLine &line : log)
        if (line.ulInfoId == ulInfoId)
            lines.push_back(line);
    return lines;
}

int Fakes::Logged(const std::string &text) const {
    int n = 0;
    for (const LogLine &line : log)
        if (line.text.find(text) != std::string::npos)
            ++n;
    return n;
}

} // namespace kestrel::cmtest

using namespace kestrel::cmtest;

extern "C" RTS_RESULT FakeLogEntry(ComponentInitStruct *p) {
    return Enter(p, CMPID_CmpLog, &RegisterRows<s_logExports>);
}
extern "C" RTS_RESULT FakeSettingsEntry(ComponentInitStruct *p) {
    return Enter(p, CMPID_CmpSettings, &RegisterRows<s_settingsExports>);
}
extern "C" RTS_RESULT FakeServicesEntry(ComponentInitStruct *p) {
    return Enter(p, CMPID_SysMem, &RegisterRows<s_serviceExports>);
}
