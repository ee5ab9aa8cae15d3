// The test program's side of the component manager's tests: the recorder that collects what the
// test components report (and what the fake event service posts) as one ordered trace, the
// behaviours the test gives each test component, and the entry functions of the linked-in copies.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "TestHostItf.h"

RTS_BEGIN_C
RTS_RESULT TestCmpAEntry(ComponentInitStruct *pInitStruct);
RTS_RESULT TestCmpBEntry(ComponentInitStruct *pInitStruct);
RTS_RESULT TestCmpCEntry(ComponentInitStruct *pInitStruct);
RTS_RESULT TestCmpDEntry(ComponentInitStruct *pInitStruct);
RTS_END_C

namespace kestrel::cmtest {

// One reported event. text is the trace form: "TestCmpA:entry", "TestCmpA:import",
// "TestCmpA:hook 1", "TestCmpA:hook 24(TestCmpB)", "event 0x00010001".
struct TraceEvent {
    std::string component;
    std::string kind;
    RTS_UI32 ulHook;
    RTS_UINTPTR ulParam1;
    RTS_UINTPTR ulParam2;
    std::string text;
};

struct ImportReport {
    std::string name;
    RTS_RESULT result;
    RTS_VOID_FCTPTR pfSlot;
};

class Recorder {
  public:
    // Forgets the trace and the import reports; the behaviours stay.
    void Reset();
    // Forgets the behaviours as well (a new test).
    void ResetAll();
    void Add(TraceEvent event) { events_.push_back(std::move(event)); }
    const std::vector<TraceEvent> &Events() const { return events_; }

    // The trace texts, optionally only of one component (or of the events: "event").
    std::vector<std::string> Trace(const std::string &component = std::string()) const;
    // The hook ids one component received, in order.
    std::vector<RTS_UI32> Hooks(const std::string &component) const;
    // The trace texts of the given kinds only ("entry", "import", ...), all components.
    std::vector<std::string> Kinds(std::initializer_list<const char *> kinds) const;

    TestCmpBehaviour &Behaviour(const std::string &component);
    std::vector<ImportReport> imports;

  private:
    std::vector<TraceEvent> events_;
    std::map<std::string, TestCmpBehaviour> behaviours_;
};

Recorder &R();

// Helpers to fill a behaviour.
void AddExport(TestCmpBehaviour &b, const char *pszName, RTS_UI32 ulFunction, RTS_UI32 bExternal = 0,
               RTS_UI32 ulSignature = 0, RTS_UI32 ulVersion = 0);
void AddImport(TestCmpBehaviour &b, const char *pszName, RTS_UI32 ulOptions = 0, RTS_UI32 ulSignature = 0,
               RTS_UI32 ulVersion = 0);
void AddAnswer(TestCmpBehaviour &b, RTS_UI32 ulHook, RTS_RESULT answer, RTS_I32 nTimes);

// Calls an exported test function and returns its answer ("TestCmpA#1").
std::string CallTestFunction(RTS_VOID_FCTPTR pf);

} // namespace kestrel::cmtest
