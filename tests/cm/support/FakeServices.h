// Stand-ins for the runtime services the component manager imports, as three components for the
// tests' component lists: "CmpLog" (a LogAdd that formats and keeps every line), "CmpSettings"
// (settings from an in-memory map) and "SysTestServices" (time the test sets, semaphores that
// count, memory accounted per name, events with callbacks, text output, and the test recorder).
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "CmpItf.h"

RTS_BEGIN_C
RTS_RESULT FakeLogEntry(ComponentInitStruct *pInitStruct);
RTS_RESULT FakeSettingsEntry(ComponentInitStruct *pInitStruct);
RTS_RESULT FakeServicesEntry(ComponentInitStruct *pInitStruct);
RTS_END_C

namespace kestrel::cmtest {

struct LogLine {
    CMPID cmpId;
    RTS_UI32 ulClass;
    RTS_RESULT errorId;
    RTS_UI32 ulInfoId;
    std::string text;
};

struct FakeEvent {
    EVENTID eventId;
    CMPID cmpId;
    bool bDeleted;
};

struct Fakes {
    // Logger.
    std::vector<LogLine> log;
    // Settings: (section, key) -> value; databases that SettgSetDatabaseName accepts.
    std::map<std::pair<std::string, std::string>, std::string> settings;
    std::set<std::string> acceptedDatabases;
    std::vector<std::string> databaseTries;
    std::vector<RTS_UI32> optionsSet;
    // Time: every SysTimeGetMs answers ulNowMs and then advances it by ulStepMs.
    RTS_UI32 ulNowMs = 1000;
    RTS_UI32 ulStepMs = 0;
    // Semaphore calls.
    int nSemDeleted = 0, nSemEnter = 0;
    // Memory: bytes still allocated per component name, and the blocks themselves (what the
    // runtime leaves allocated at its end is freed when the fakes are reset).
    std::map<std::string, long> memory;
    std::set<void *> blocks;
    // Events: created events in order, posts recorded into the trace; a listener per event id.
    std::vector<FakeEvent *> events;
    std::map<EVENTID, std::function<void(void *pParameter)>> listeners;
    int nEventsDeleted = 0;
    // Text output.
    std::vector<std::string> out;
    // Service names the fakes do not export (SysTaskCreate by default).
    std::set<std::string> withheld;

    // Log lines with that info id; the number of log lines containing that text.
    std::vector<LogLine> LogWithInfo(RTS_UI32 ulInfoId) const;
    int Logged(const std::string &text) const;
    void SetSetting(const std::string &section, const std::string &key, const std::string &value) {
        settings[{section, key}] = value;
    }
};

Fakes &F();
void ResetFakes();

} // namespace kestrel::cmtest
