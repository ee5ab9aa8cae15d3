// End to end: the component manager starts and stops the runtime with the
// host's standard list and these modules as loadable files, as the host does.
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CMItf.h"
#include "CmpLogItf.h"
#include "SysMemItf.h"
#include "HostConfig.h"
#include "HostLinked.h"
#include "ModuleTestSupport.h"
#include "os/ModuleState.h"

using namespace kestrel::test;

namespace {

const char *const kModules[] = {"SysTimeRtc", "SysTime",        "SysSem",      "SysOut", "SysMem",      "SysInt",
                                "SysExcept",  "SysCpuHandling", "CmpSettings", "CmpLog", "CmpEventMgr", "CmpChecksum"};

// The whole standard log as the logger's ring holds it.
std::vector<LogEntry> ReadLog() {
    std::vector<LogEntry> entries;
    RTS_VOID_FCTPTR first = nullptr, next = nullptr;
    if (CMGetAPI("LogGetFirstEntry", &first, 0) != ERR_OK || CMGetAPI("LogGetNextEntry", &next, 0) != ERR_OK)
        return entries;
    auto pfFirst = reinterpret_cast<decltype(&LogGetFirstEntry)>(first);
    auto pfNext = reinterpret_cast<decltype(&LogGetNextEntry)>(next);
    LogEntry e{};
    RTS_RESULT r = ERR_FAILED;
    for (RTS_HANDLE h = pfFirst(LOG_STD_LOGGER, &e, &r); r == ERR_OK; h = pfNext(LOG_STD_LOGGER, h, &e, &r))
        entries.push_back(e);
    return entries;
}

bool Contains(const std::vector<LogEntry> &log, const std::string &needle, RTS_I32 classId = 0) {
    for (const LogEntry &e : log) {
        if (std::string(e.infoText).find(needle) != std::string::npos && (classId == 0 || e.classId == classId))
            return true;
    }
    return false;
}

std::string Dump(const std::vector<LogEntry> &log) {
    std::string all;
    for (const LogEntry &e : log)
        all += std::to_string(e.classId) + " " + e.infoText + "\n";
    return all;
}

struct RunResult {
    RTS_RESULT init, initEnd, exit;
    std::vector<LogEntry> log;
    std::string console; // standard output of the whole run
};

// Starts the runtime with the host's standard list as the host does, calls
// whileRunning, and stops it.
RunResult StartAndStop(
    const std::string &cfg, const std::function<void()> &whileRunning = [] {}) {
    RunResult run{};
    kestrel::host::HostRegisterLinkedComponents();
    testing::internal::CaptureStdout();
    run.init = CMInit3(cfg.c_str(), kestrel::host::kHostStandardList, CM_INIT_NO_INIT_END);
    run.initEnd = CMInitEnd();
    run.log = ReadLog();
    whileRunning();
    run.exit = CMExit();
    run.console = testing::internal::GetCapturedStdout();
    return run;
}

TEST(EndToEnd, StandardListStartsRunsAndStopsWithoutLeaks) {
    TempDir dir;
    // The console echo shows the lines of the last hooks, after the logger is gone.
    std::string cfg = dir.Write("KESTRELControl.cfg", "[CmpLog]\nConsole=1\nLogger.0.MaxEntries=5000\n"
                                                      "[ComponentManager]\nOverloadableFunctions=1\n");
    RunResult run = StartAndStop(cfg, [] {
        for (const char *name : kModules)
            EXPECT_TRUE(IsModuleLoaded(name)) << name << " was not loaded";
    });
    if (std::getenv("KESTREL_E2E_SHOW") != nullptr)
        std::printf("%s", run.console.c_str());
    const std::vector<LogEntry> &log = run.log;
    EXPECT_EQ(run.init, ERR_OK) << Dump(log);
    EXPECT_EQ(run.initEnd, ERR_OK);
    EXPECT_EQ(run.exit, ERR_OK);
    ASSERT_FALSE(log.empty()) << "nothing reached the log";
    EXPECT_FALSE(Contains(log, "safe mode")) << Dump(log);
    EXPECT_FALSE(Contains(log, "Import function(s) failed")) << Dump(log);
    EXPECT_FALSE(Contains(log, "Cannot find configuration")) << Dump(log);
    EXPECT_FALSE(Contains(log, "skipped")) << "the configuration is clean";
    // The banner and the component list.
    EXPECT_TRUE(Contains(log, std::string(71, '='), static_cast<RTS_I32>(LOG_PRINT)));
    EXPECT_TRUE(Contains(log, "KESTREL Control V3")) << Dump(log);
    for (const char *name : kModules)
        EXPECT_TRUE(Contains(log, std::string("<cmp>") + name + "</cmp> init")) << name << "\n" << Dump(log);
    EXPECT_TRUE(Contains(log, "KESTREL Control ready"));
    // Shut-down as far as the console saw it: done, no leak at the final hook.
    EXPECT_NE(run.console.find("shutdown done"), std::string::npos) << run.console;
    EXPECT_EQ(run.console.find("Memory leak"), std::string::npos) << run.console;
    EXPECT_EQ(run.console.find("Pool leak"), std::string::npos) << run.console;
    for (const char *name : kModules)
        EXPECT_FALSE(IsModuleLoaded(name)) << name << " is still loaded";
}

TEST(EndToEnd, ShippedConfigurationIsClean) {
    TempDir dir;
    std::string shipped = TempDir::Read(KESTREL_SHIPPED_CONFIG);
    ASSERT_FALSE(shipped.empty());
    RunResult run = StartAndStop(dir.Write("KESTRELControl.cfg", shipped));
    EXPECT_EQ(run.init, ERR_OK) << Dump(run.log);
    for (const char *complaint : {"skipped", "no 32-bit number", "out of range", "is negative", "safe mode",
                                  "Failed to resolve", "Cannot find configuration"})
        EXPECT_FALSE(Contains(run.log, complaint)) << complaint << "\n" << Dump(run.log);
    EXPECT_TRUE(Contains(run.log, "KESTREL Control ready"));
}

TEST(EndToEnd, BadConfigurationFilesGiveClearLinesAndDefaults) {
    TempDir dir;
    static const char kBinary[] = "\x7F"
                                  "ELF\x02\x01\x00\x00garbage\n[CmpLog]\nLogger.0.MaxEntries=4000\n"
                                  "[ComponentManager\nkey without value\n";
    const std::string binary(kBinary, sizeof(kBinary) - 1); // with its NUL bytes
    struct Row {
        const char *what;
        std::string file;     // empty: no file at all
        RTS_RESULT init;      // what CMInit3 answers
        const char *expected; // a line the log must hold
    };
    const Row rows[] = {
        {"binary", dir.Write("binary.cfg", binary), ERR_OK, "skipped: control characters or binary data"},
        {"malformed", dir.Write("malformed.cfg", "[CmpLog\nMaxEntries\n[SysMem]\nFailAllocation=many\n"), ERR_OK,
         "line 1 skipped: section header without closing"},
        {"empty", dir.Write("empty.cfg", ""), ERR_OK, "KESTREL Control ready"},
        {"missing", dir.File("missing.cfg"), ERR_FAILED, "Cannot find configuration <file>"},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.what);
        RunResult run = StartAndStop(row.file);
        EXPECT_EQ(run.init, row.init);
        EXPECT_TRUE(Contains(run.log, row.expected)) << Dump(run.log);
        EXPECT_TRUE(Contains(run.log, "KESTREL Control ready"));
        EXPECT_FALSE(Contains(run.log, "safe mode"));
        for (const char *name : kModules)
            EXPECT_FALSE(IsModuleLoaded(name)) << name;
    }
}

// Kept reachable so that a leak checker of the test process does not count
// the block planted below; SysMem is what must report it.
void *g_planted = nullptr;

// A second start in the same process: SysMem names a block never given back
// at the final hook, when the logger writes to standard output directly.
TEST(EndToEnd, LeakedBlockIsReportedAtTheFinalHook) {
    TempDir dir;
    RunResult run = StartAndStop(dir.Write("KESTRELControl.cfg", "[CmpLog]\nConsole=1\n"), [] {
        RTS_VOID_FCTPTR alloc = nullptr;
        ASSERT_EQ(CMGetAPI("SysMemAllocData", &alloc, 0), ERR_OK);
        g_planted = reinterpret_cast<decltype(&SysMemAllocData)>(alloc)("PlantedLeak", 123, nullptr);
    });
    EXPECT_EQ(run.init, ERR_OK);
    ASSERT_NE(g_planted, nullptr);
    EXPECT_NE(run.console.find("Memory leak: PlantedLeak still holds 123 bytes in 1 blocks"), std::string::npos)
        << run.console;
}

} // namespace
