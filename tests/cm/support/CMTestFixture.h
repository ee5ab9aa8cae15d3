// The component manager's tests: the recorder of what the test components report, the fake
// runtime services the CM imports, and the fixture. The CM is process-global: every test starts
// from a clean CMInit3 with the service doubles at the head of the component list and ends with
// CMExit.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <functional>
#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "CMHost.h"
#include "CMInternal.h"
#include "CMItf.h"
#include "TestHostItf.h"

RTS_BEGIN_C
RTS_RESULT TestCmpAEntry(ComponentInitStruct *pInitStruct);
RTS_RESULT TestCmpBEntry(ComponentInitStruct *pInitStruct);
RTS_RESULT TestCmpCEntry(ComponentInitStruct *pInitStruct);
RTS_RESULT TestCmpDEntry(ComponentInitStruct *pInitStruct);
// The service doubles: "CmpLog" (a LogAdd that keeps every line), "CmpSettings" (settings from a
// map) and "SysTestServices" (time, semaphores, memory, events, output and the test recorder).
RTS_RESULT FakeLogEntry(ComponentInitStruct *pInitStruct);
RTS_RESULT FakeSettingsEntry(ComponentInitStruct *pInitStruct);
RTS_RESULT FakeServicesEntry(ComponentInitStruct *pInitStruct);
RTS_END_C

namespace kestrel::cmtest {

// One reported event; text is its trace form, with "TestCmp" left out of component names:
// "A:entry", "A:import", "A:1" (hook 1), "B:24(A)" (hook 24 announcing A), "event 0x10001".
struct TraceEvent {
    std::string component, kind;
    RTS_UI32 ulHook;
    RTS_UINTPTR ulParam1, ulParam2;
    std::string text;
};

struct Recorder {
    std::vector<TraceEvent> events;
    std::map<std::string, TestCmpBehaviour> behaviours; // by component name

    void Reset() { events.clear(); }
    // The trace texts joined by spaces, of all or of one component.
    std::string Trace(const std::string &component = std::string()) const;
    // The hook ids one component received, in order.
    std::vector<RTS_UI32> Hooks(const std::string &component) const;
    TestCmpBehaviour &Behaviour(const std::string &component);
};
Recorder &R();

void AddExport(TestCmpBehaviour &b, const char *pszName, RTS_UI32 ulFunction, RTS_UI32 bExternal = 0,
               RTS_UI32 ulSignature = 0, RTS_UI32 ulVersion = 0);
void AddImport(TestCmpBehaviour &b, const char *pszName);
void AddAnswer(TestCmpBehaviour &b, RTS_UI32 ulHook, RTS_RESULT answer, RTS_I32 nTimes);
// Calls an exported test function and returns its answer ("TestCmpA#1"), or "(null)".
std::string CallTestFunction(RTS_VOID_FCTPTR pf);

struct LogLine {
    CMPID cmpId;
    RTS_UI32 ulClass;
    RTS_RESULT errorId;
    RTS_UI32 ulInfoId;
    std::string text;
};

struct Fakes {
    std::vector<LogLine> log;
    // Settings: (section, key) -> value; the databases SettgSetDatabaseName accepts, and its calls.
    std::map<std::pair<std::string, std::string>, std::string> settings;
    std::set<std::string> acceptedDatabases;
    std::vector<std::string> databaseTries;
    std::vector<RTS_UI32> optionsSet;
    // Every SysTimeGetMs answers ulNowMs and then advances it by ulStepMs.
    RTS_UI32 ulNowMs = 1000, ulStepMs = 0;
    int nSemDeleted = 0, nSemEnter = 0, nEventsDeleted = 0;
    std::map<std::string, long> memory; // bytes allocated per name
    std::map<void *, RTS_SIZE> blocks;  // freed when the fakes are reset
    // Events created (id and CmpId, in order); posts go into the trace and to a listener by id.
    std::deque<std::pair<EVENTID, CMPID>> events;
    std::map<EVENTID, std::function<void(void *pParameter)>> listeners;
    std::vector<std::string> out;
    std::set<std::string> withheld; // services not exported (SysTaskCreate by default)

    int Logged(const std::string &text) const; // the number of lines containing the text
    void SetSetting(const std::string &section, const std::string &key, const std::string &value) {
        settings[{section, key}] = value;
    }
};
Fakes &F();
void ResetFakes();

// The hooks of a start-up that runs through CMInitEnd, from hook 1 on.
inline const std::vector<RTS_UI32> kStartHooks = {1, 8, 2, 3, 7, 4, 500, 5, 6, 1000};

class CMTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ResetFakes();
        R() = Recorder{};
        cm::RegistryUseCache(true);
    }

    void TearDown() override {
        if (running_)
            CMExit();
        running_ = false;
        CMSetLinkedComponent("SysTarget", nullptr);
        CMSetLinkedComponent("SysFile", nullptr);
        CMSetLinkedComponent("CmpMemPool", &CmpMemPoolEntry);
        ResetFakes();
    }

    // The linked-in test components as list entries; bSystem puts them into the system pass.
    static ComponentListEntry CmpA(RTS_UINTPTR bSystem = 0) { return {"TestCmpA", &TestCmpAEntry, bSystem}; }
    static ComponentListEntry CmpB(RTS_UINTPTR bSystem = 0) { return {"TestCmpB", &TestCmpBEntry, bSystem}; }
    static ComponentListEntry CmpC(RTS_UINTPTR bSystem = 0) { return {"TestCmpC", &TestCmpCEntry, bSystem}; }
    static ComponentListEntry CmpD(RTS_UINTPTR bSystem = 0) { return {"TestCmpD", &TestCmpDEntry, bSystem}; }

    // The service doubles (CmpLog and CmpSettings supply the basic components of those names,
    // SysTestServices comes in with the system pass), the test's own entries, the end.
    void SetList(std::initializer_list<ComponentListEntry> extra, bool bWithServices = true) {
        list_.clear();
        if (bWithServices)
            list_ = {{"CmpLog", &FakeLogEntry, 0},
                     {"CmpSettings", &FakeSettingsEntry, 0},
                     {"SysTestServices", &FakeServicesEntry, 0}};
        list_.insert(list_.end(), extra.begin(), extra.end());
        list_.push_back({nullptr, nullptr, 0});
        running_ = true;
    }

    RTS_RESULT Start(std::initializer_list<ComponentListEntry> extra, RTS_UI32 ulFlags = CM_INIT_SETTINGS_OPTIONAL,
                     const char *pszFile = nullptr, bool bWithServices = true) {
        SetList(extra, bWithServices);
        return CMInit3(pszFile, list_.data(), ulFlags);
    }

    RTS_RESULT Stop() {
        running_ = false;
        return CMExit();
    }

    static ComponentInfo *Find(const char *pszName) {
        RTS_RESULT result = ERR_OK;
        ComponentInfo *p = CMGetComponentByName(pszName, &result);
        return result == ERR_OK ? p : nullptr;
    }

    // The names of the table's records in table order, joined by spaces.
    static std::string Names() {
        std::string names;
        for (ComponentInfo *p = CMGetFirstComponent(nullptr); p != nullptr; p = CMGetNextComponent(p, nullptr))
            names += (names.empty() ? "" : " ") + std::string(p->pszName);
        return names;
    }

    // The log lines with that info id, one per line; with bAll, each after its class, error and CmpId.
    static std::string Log(RTS_UI32 ulInfoId, bool bAll = false) {
        std::string text;
        for (const LogLine &l : F().log)
            if (l.ulInfoId == ulInfoId)
                text += (bAll ? Numbers({l.ulClass, l.errorId, l.cmpId}) : "") + l.text + "\n";
        return text;
    }
    static std::string Numbers(std::initializer_list<RTS_UI32> numbers) {
        std::string text;
        for (RTS_UI32 n : numbers)
            text += std::to_string(n) + " ";
        return text;
    }

    // Exactly one log line of the CM with that info id, and all it says.
    static void ExpectLog(RTS_UI32 ulInfoId, RTS_UI32 ulClass, RTS_RESULT errorId, const std::string &text) {
        EXPECT_EQ(Numbers({ulClass, errorId, CMPID_CM}) + text + "\n", Log(ulInfoId, true)) << "info " << ulInfoId;
    }

    std::vector<ComponentListEntry> list_;
    bool running_ = false;
};

} // namespace kestrel::cmtest
