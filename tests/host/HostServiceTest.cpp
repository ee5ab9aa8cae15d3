// The core's machinery around the runtime: the host log, the status record,
// the control handler, and the exception guards of the OS backend.
#include <gtest/gtest.h>

#include <chrono>
#include <regex>
#include <thread>
#include <vector>

#include "CMItf.h"
#include "Host.h"
#include "HostLog.h"
#include "TestSupport.h"

namespace kestrel::host {
namespace {

using kestrel::test::ReadFile;

// "MM/DD/YY HH:MM:SS: " with leading zeros and 24 hours; a '%' is no format.
TEST(HostLog, LineFormat) {
    std::time_t first = 1230940799, second = 1709212020; // UTC 2009-01-02 23:59:59, 2024-02-29 13:07:00
    EXPECT_EQ(HostLogFormatLine(*std::gmtime(&first), "x"), "01/02/09 23:59:59: x\r\n");
    EXPECT_EQ(HostLogFormatLine(*std::gmtime(&second), "100% %s"), "02/29/24 13:07:00: 100% %s\r\n");
}

class HostService : public ::testing::Test {
  protected:
    void SetUp() override {
        saved = HostGetState();
        HostGetState().bNotAService = false;
        HostGetState().status = HostServiceStatus{};
        HostGetState().status.ulWin32ExitCode = 7; // reset by each report
        HostLogSetPath((dir / "svc.log").string());
    }
    void TearDown() override {
        HostGetState() = saved;
        HostLogSetPath("");
    }
    // State, controls accepted, check point, wait hint and the exit codes.
    std::vector<RTS_UI32> Record() {
        const HostServiceStatus &s = HostGetState().status;
        return {s.ulCurrentState, s.ulControlsAccepted, s.ulCheckPoint,
                s.ulWaitHint,     s.ulWin32ExitCode,    s.ulServiceSpecificExitCode};
    }
    HostState saved;
    kestrel::test::TempDir dir;
};

// Opened on the first line (a null text only opens), appended to and flushed
// with each line, '%' written as it is; a change of path moves on to the new
// file; a line for an unwritable path is lost quietly.
TEST_F(HostService, LogFile) {
    auto first = dir / "first.log";
    auto file = kestrel::test::WriteFile(dir / "old.log", "old line\r\n");
    HostLogSetPath(first.string());
    EXPECT_FALSE(std::filesystem::exists(first));
    HostLog(nullptr);
    EXPECT_TRUE(std::filesystem::exists(first));
    HostLogSetPath(file.string());
    HostLog("C:\\dir\\a%sb%n.cfg");
    std::string content = ReadFile(file); // while the file is still open
    EXPECT_TRUE(
        std::regex_match(content, std::regex(R"(old line\r\n\d\d/\d\d/\d\d \d\d:\d\d:\d\d: C:\\dir\\a%sb%n\.cfg\r\n)")))
        << content;
    EXPECT_EQ(ReadFile(first), "");
    HostLogSetPath((dir / "missing-dir" / "svc.log").string());
    HostLog("lost");
    EXPECT_FALSE(std::filesystem::exists(dir / "missing-dir"));
}

// The check point counts the pending reports and restarts at running and
// stopped; only start pending accepts no controls; the foreground skips the
// reports. Pause and continue only write the state, interrogate reports it
// again, unknown controls are ignored.
TEST_F(HostService, ReportStatusAndControls) {
    const RTS_UI32 steps[][3] = {{kStateStartPending, 0, 1}, {kStateStartPending, 0, 2}, {kStateRunning, 5, 0},
                                 {kStateStopPending, 5, 1},  {kStateStopPending, 5, 2},  {kStateStopped, 5, 0}};
    for (const auto &[state, accepted, checkPoint] : steps) {
        EXPECT_EQ(HostReportStatus(state), 1u); // no status channel in a test process
        EXPECT_EQ(Record(), std::vector<RTS_UI32>({state, accepted, checkPoint, 10000, 0, 0}));
    }
    HostReportStatus(kStateRunning);
    HostControl(kControlPause);
    EXPECT_EQ(Record(), std::vector<RTS_UI32>({6, 5, 0, 10000, 0, 0}));
    HostControl(kControlContinue);
    HostControl(kControlInterrogate);
    HostControl(128);
    HostControl(0);
    EXPECT_EQ(Record(), std::vector<RTS_UI32>({5, 5, 1, 10000, 0, 0}));
    HostGetState().bNotAService = true;
    EXPECT_EQ(HostReportStatus(kStateStopPending), 1u);
    EXPECT_EQ(Record(), std::vector<RTS_UI32>({5, 5, 1, 10000, 0, 0}));
}

// Stop and shutdown set the component manager's exit flag (set until the
// next start-up); shutdown returns once the runtime reported "stopped".
TEST_F(HostService, StopAndShutdownRequestTheExit) {
    HostControl(kControlStop);
    EXPECT_NE(CMGetExit(), 0);
    HostReportStatus(kStateRunning);
    std::thread runtime([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        HostReportStatus(kStateStopped);
    });
    auto start = std::chrono::steady_clock::now();
    HostControl(kControlShutdown);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(100));
    runtime.join();
    EXPECT_NE(ReadFile(dir / "svc.log").find(": *** Shutdown command from service control manager received...\r\n"),
              std::string::npos);
}

volatile RTS_UINTPTR s_badAddress = 16; // in the never-mapped first page
volatile int s_seven = 7, s_zero = 0;   // both, or the division becomes comparisons
int s_innerCaught = 0;

void InvalidAccess(void *) {
    *reinterpret_cast<volatile int *>(s_badAddress) = 1;
}

__attribute__((no_sanitize_undefined)) void DivideByZero(void *) {
    s_zero = s_seven / s_zero;
}

void NestedGuards(void *) {
    s_innerCaught += HostOsGuardedCall(&InvalidAccess, nullptr) ? 0 : 1;
    InvalidAccess(nullptr);
}

// Each kind of fault comes back as "false", again and again (the signal mask
// or handler is restored each time); a fault in a nested guard is caught
// there, one after it in the outer guard; a normal call afterwards works.
TEST(HostGuard, FaultsAreCaughtAgainAndAgain) {
    for (HostGuardedFunction fault : std::initializer_list<HostGuardedFunction>{
             &InvalidAccess, &DivideByZero, [](void *) { __builtin_trap(); }, &NestedGuards})
        for (int i = 0; i < 3; ++i)
            EXPECT_FALSE(HostOsGuardedCall(fault, nullptr));
    EXPECT_EQ(s_innerCaught, 3);
    int calls = 0;
    EXPECT_TRUE(HostOsGuardedCall([](void *p) { ++*static_cast<int *>(p); }, &calls));
    EXPECT_EQ(calls, 1);
}

} // namespace
} // namespace kestrel::host
