// Service control in the core: the status record kept by ReportStatus, the
// foreground's skipped reports, and the control handler's codes, including
// the shutdown that waits for the runtime to report "stopped".
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "CMItf.h"
#include "Host.h"
#include "HostLog.h"
#include "TempDir.h"

namespace kestrel::host {
namespace {

using kestrel::test::ReadFile;
using kestrel::test::TempDir;

class HostService : public ::testing::Test {
  protected:
    void SetUp() override {
        saved = HostGetState();
        HostGetState().bNotAService = false;
        HostGetState().status = HostServiceStatus{};
        HostGetState().status.ulServiceType = kServiceTypeOwnProcess;
        HostLogSetPath((dir.Path() / "svc.log").string());
    }
    void TearDown() override {
        HostGetState() = saved;
        HostLogSetPath("");
    }
    HostState saved;
    TempDir dir;
};

struct ReportStep {
    RTS_UI32 state;
    RTS_UI32 controlsAccepted;
    RTS_UI32 checkPoint;
};

TEST_F(HostService, ReportStatusKeepsTheRecord) {
    // The check point counts the pending reports and restarts at running and stopped.
    const ReportStep steps[] = {{kStateStartPending, 0, 1}, {kStateStartPending, 0, 2}, {kStateRunning, 5, 0},
                                {kStateStopPending, 5, 1},  {kStateStopPending, 5, 2},  {kStateStopped, 5, 0}};
    for (const ReportStep &step : steps) {
        EXPECT_EQ(HostReportStatus(step.state), 1u); // no status channel in a test process
        const HostServiceStatus &status = HostGetState().status;
        EXPECT_EQ(status.ulCurrentState, step.state);
        EXPECT_EQ(status.ulControlsAccepted, step.controlsAccepted) << step.state;
        EXPECT_EQ(status.ulCheckPoint, step.checkPoint) << step.state;
        EXPECT_EQ(status.ulWaitHint, 10000u);
        EXPECT_EQ(status.ulWin32ExitCode, 0u);
        EXPECT_EQ(status.ulServiceSpecificExitCode, 0u);
        EXPECT_EQ(status.ulServiceType, 16u);
    }
}

TEST_F(HostService, ForegroundSkipsTheReports) {
    HostGetState().bNotAService = true;
    HostGetState().status.ulCurrentState = kStateRunning;
    EXPECT_EQ(HostReportStatus(kStateStopPending), 1u);
    EXPECT_EQ(HostGetState().status.ulCurrentState, kStateRunning);
    EXPECT_EQ(HostGetState().status.ulCheckPoint, 0u);
}

TEST_F(HostService, PauseAndContinueOnlyWriteTheState) {
    HostReportStatus(kStateRunning);
    HostControl(kControlPause);
    EXPECT_EQ(HostGetState().status.ulCurrentState, 6u);
    HostControl(kControlContinue);
    EXPECT_EQ(HostGetState().status.ulCurrentState, 5u);
    EXPECT_EQ(HostGetState().status.ulCheckPoint, 0u); // no report was made
}

TEST_F(HostService, InterrogateReportsTheCurrentState) {
    HostReportStatus(kStateStopPending);
    RTS_UI32 before = HostGetState().status.ulCheckPoint;
    HostControl(kControlInterrogate);
    EXPECT_EQ(HostGetState().status.ulCurrentState, kStateStopPending);
    EXPECT_EQ(HostGetState().status.ulCheckPoint, before + 1);
}

TEST_F(HostService, UnknownControlsAreIgnored) {
    HostReportStatus(kStateRunning);
    HostControl(128);
    HostControl(0);
    EXPECT_EQ(HostGetState().status.ulCurrentState, kStateRunning);
}

// Stop and shutdown set the component manager's exit flag, which stays set
// until the next start-up: both run in one test.
TEST_F(HostService, StopAndShutdownRequestTheExit) {
    HostControl(kControlStop);
    EXPECT_NE(CMGetExit(), 0);

    HostReportStatus(kStateRunning);
    std::thread runtime([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        HostReportStatus(kStateStopped);
    });
    auto start = std::chrono::steady_clock::now();
    HostControl(kControlShutdown); // returns once the runtime reported "stopped"
    auto waited = std::chrono::steady_clock::now() - start;
    runtime.join();
    EXPECT_EQ(HostGetState().status.ulCurrentState, kStateStopped);
    EXPECT_GE(waited, std::chrono::milliseconds(100));
    EXPECT_NE(
        ReadFile(dir.Path() / "svc.log").find(": *** Shutdown command from service control manager received...\r\n"),
        std::string::npos);
}

} // namespace
} // namespace kestrel::host
