// End to end: the component manager starts and stops the runtime with the
// host's standard list and these modules as loadable files, as the host does.
#include <sstream>

#include "CMItf.h"
#include "SysMemItf.h"
#include "HostConfig.h"
#include "HostLinked.h"
#include "ModuleTestSupport.h"
#include "os/ModuleState.h"

using namespace kestrel::test;

namespace {

const char *const kModules[] = {"SysTimeRtc", "SysTime",        "SysSem",      "SysOut", "SysMem",      "SysInt",
                                "SysExcept",  "SysCpuHandling", "CmpSettings", "CmpLog", "CmpEventMgr", "CmpChecksum"};

// Every function the modules register by name.
const char kFunctions[] =
    "SysTimeGetMs SysTimeGetUs SysTimeRtcHighResGet SysTimeRtcConvertHighResToDate SysTimeRtcConvertHighResToLocal "
    "SysOutVPrintf SysCpuAtomicAdd SysCpuCallIecFuncWithParams SysIntDisableAll SysIntEnableAll SysSemCreate "
    "SysSemDelete SysSemEnter SysSemLeave SysMemAllocData SysMemFreeData SysExceptRegisterJmpBuf SysExceptCatch "
    "SysExceptUnregisterJmpBuf SysExceptGenerateException CRC32Init CRC32Update CRC32Finish CRC32Update2 "
    "CRC32Finish2 EventCreate EventDelete EventOpen EventClose EventPost EventPost2 EventRegisterCallbackFunction "
    "EventUnregisterCallbackFunction SettgSetDatabaseName SettgGetDatabaseName SettgSetOptions SettgGetIntValue "
    "SettgSetIntValue SettgGetStringValue SettgGetWStringValue SettgSetStringValue SettgRemoveKey LogAdd LogAddArg "
    "LogCreate LogDelete LogGetFirstEntry LogGetNextEntry LogUnregisterBackend";

struct RunResult {
    RTS_RESULT init, initEnd, exit;
    std::string log;          // the standard log as the ring holds it: "<class> <text>" per line
    std::string unregistered; // functions of kFunctions the component manager did not find
    std::string console;      // standard output of the whole run
};

// Kept reachable so that a leak checker of the test process does not count
// the block planted below; SysMem is what must report it.
void *g_planted = nullptr;

// Starts the runtime with the host's standard list as the host does, looks up
// every function of the modules, optionally plants a block that is never
// given back, stops the runtime and checks that every module is unloaded.
RunResult StartAndStop(const std::string &cfg, bool plantLeak = false) {
    RunResult run{};
    kestrel::host::HostRegisterLinkedComponents();
    testing::internal::CaptureStdout(); // failures reported meanwhile would go there too
    run.init = CMInit3(cfg.c_str(), kestrel::host::kHostStandardList, CM_INIT_NO_INIT_END);
    run.initEnd = CMInitEnd();
    auto api = [](const std::string &name) {
        RTS_VOID_FCTPTR fn = nullptr;
        return CMGetAPI(name.c_str(), &fn, 0) == ERR_OK ? fn : nullptr;
    };
    std::istringstream functions(kFunctions);
    for (std::string name; functions >> name;)
        run.unregistered += api(name) != nullptr ? "" : name + " ";
    auto first = reinterpret_cast<decltype(&LogGetFirstEntry)>(api("LogGetFirstEntry"));
    auto next = reinterpret_cast<decltype(&LogGetNextEntry)>(api("LogGetNextEntry"));
    LogEntry e{};
    RTS_RESULT r = ERR_FAILED;
    for (RTS_HANDLE h = first != nullptr ? first(LOG_STD_LOGGER, &e, &r) : nullptr; r == ERR_OK && next != nullptr;
         h = next(LOG_STD_LOGGER, h, &e, &r))
        run.log += std::to_string(e.classId) + " " + e.infoText + "\n";
    if (plantLeak && api("SysMemAllocData") != nullptr)
        g_planted = reinterpret_cast<decltype(&SysMemAllocData)>(api("SysMemAllocData"))("PlantedLeak", 123, nullptr);
    run.exit = CMExit();
    run.console = testing::internal::GetCapturedStdout();
    EXPECT_EQ(run.unregistered, "");
    for (const char *name : kModules)
        EXPECT_FALSE(IsModuleLoaded(name)) << name << " is still loaded";
    return run;
}

// The shipped configuration (console on, to see the last hooks): no safe mode
// or complaint, banner and component list logged, shut-down done, and the
// only leak SysMem reports at the final hook is the planted block.
TEST(EndToEnd, StandardListStartsRunsAndStopsWithoutLeaks) {
    TempDir dir;
    std::string cfg = TempDir::Read(KESTREL_SHIPPED_CONFIG);
    ASSERT_NE(cfg.find(";Console=1"), std::string::npos);
    RunResult run = StartAndStop(dir.Write("KESTRELControl.cfg", cfg.erase(cfg.find(";Console=1"), 1)), true);
    EXPECT_EQ(run.init, ERR_OK) << run.log;
    EXPECT_EQ(run.initEnd, ERR_OK);
    EXPECT_EQ(run.exit, ERR_OK);
    for (const char *complaint : {"safe mode", "Import function(s) failed", "Failed to resolve", "skipped",
                                  "Cannot find configuration", "no 32-bit number", "out of range", "is negative"})
        EXPECT_EQ(run.log.find(complaint), std::string::npos) << complaint << "\n" << run.log;
    EXPECT_NE(run.log.find(std::to_string(LOG_PRINT) + " " + std::string(71, '=')), std::string::npos) << run.log;
    EXPECT_NE(run.log.find("KESTREL Control V3"), std::string::npos);
    for (const char *name : kModules)
        EXPECT_NE(run.log.find(std::string("<cmp>") + name + "</cmp> init"), std::string::npos) << name;
    EXPECT_NE(run.log.find("KESTREL Control ready"), std::string::npos);
    EXPECT_NE(run.console.find("shutdown done"), std::string::npos) << run.console;
    EXPECT_NE(run.console.find("Memory leak: PlantedLeak still holds 123 bytes in 1 blocks"), std::string::npos);
    EXPECT_EQ(run.console.find("Memory leak"), run.console.rfind("Memory leak")) << run.console;
    EXPECT_EQ(run.console.find("Pool leak"), std::string::npos) << run.console;
}

// Binary, malformed, empty and missing configuration files: a clear line,
// defaults, and a runtime that starts and stops all the same.
TEST(EndToEnd, BadConfigurationFilesGiveClearLinesAndDefaults) {
    TempDir dir;
    using namespace std::string_literals; // the binary file keeps its NUL bytes
    const std::string binary = "\x7F"
                               "ELF\x02\x01\x00\x00garbage\n[CmpLog]\nLogger.0.MaxEntries=4000\n"
                               "[ComponentManager\nkey without value\n"s;
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
        EXPECT_NE(run.log.find(row.expected), std::string::npos) << run.log;
        EXPECT_NE(run.log.find("KESTREL Control ready"), std::string::npos);
        EXPECT_EQ(run.log.find("safe mode"), std::string::npos);
    }
}

} // namespace
