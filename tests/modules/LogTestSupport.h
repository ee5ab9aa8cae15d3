// Fixture of the logger tests: CmpLog entered through the stand-in manager,
// with the real settings component behind it (a configuration file per
// test), a console that records, and a test backend class.
#pragma once

#include <cstdarg>
#include <string>
#include <vector>

#include "CmpLogItf.h"
#include "CmpSettingsItf.h"
#include "ModuleTestSupport.h"

namespace kestrel::test {

// A backend instance as the file system would offer one: IBase plus interface 22.
struct TestBackend {
    IBase base{};
    ILogBackend itf{};
    int references = 0;
    int opens = 0;
    int closes = 0;
    int deletes = 0;
    bool failOpen = false;
    bool logWhileWriting = false;
    std::string openedName;
    RTS_I32 openedMaxFiles = -1;
    RTS_HANDLE current = nullptr;   // the handle last handed out
    bool wrongHandleSeen = false;   // a write came with a stale handle
    std::vector<std::string> texts; // entries written, in order
};

// The instance of class 260 (class 261 has no interface 22, others none).
TestBackend &Backend();
// Console lines received through the imported SysOutVPrintf.
std::vector<std::string> &ConsoleLines();

// Every entry of a logger's ring, oldest first.
std::vector<LogEntry> Ring(RTS_HANDLE hLogger);
// Texts of the ring entries that contain needle.
std::vector<std::string> RingTexts(RTS_HANDLE hLogger, const std::string &needle);

class LogTest : public ::testing::Test {
  protected:
    void SetUp() override;
    void TearDown() override;
    // Writes the configuration (a [CmpLog] section body) and applies it as
    // the component manager does at hook 8.
    void Configure(const std::string &cmpLogSection);
    FakeCM cm_;
    TempDir dir_;
};

} // namespace kestrel::test
