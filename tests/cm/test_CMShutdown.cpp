// Shut-down: the hooks of CMExit with the CM events posted between them, the bounded repetition of
// hook 10, the unload groups and the components that go last.
#include <algorithm>
#include <string>
#include <vector>

#include "CMTestFixture.h"

using namespace kestrel::cmtest;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

namespace {

class ShutdownTest : public CMTest {};

TEST_F(ShutdownTest, HooksAndEventsInTheirOrder) {
    R().Behaviour("TestCmpA").cmpId = 0x7001;
    R().Behaviour("TestCmpB").cmpId = 0x7002;
    ASSERT_EQ(ERR_OK, Start({CmpA(), CmpB(1)}));
    R().Reset();
    EXPECT_EQ(ERR_OK, Stop());
    std::vector<std::string> expected = {
        "event 0x00010001", "event 0x00010002", "TestCmpB:hook 10", "TestCmpA:hook 10", "event 0x00010003",
        "TestCmpB:hook 11", "TestCmpA:hook 11", "TestCmpB:hook 2200", "TestCmpA:hook 2200", "event 0x00010004",
        "TestCmpB:hook 12", "TestCmpA:hook 12", "event 0x00010005", "TestCmpB:hook 13", "TestCmpA:hook 13",
        "TestCmpB:hook 14", "TestCmpA:hook 14", "TestCmpB:hook 17", "TestCmpA:hook 17", "TestCmpB:hook 15",
        "TestCmpA:hook 15",
        // Unload groups: the static non-system component first, then the system one; each unload
        // is announced to every component still there, itself included.
        "TestCmpB:hook 24(TestCmpA)", "TestCmpA:hook 24(TestCmpA)", "TestCmpB:hook 24(TestCmpB)"};
    EXPECT_THAT(R().Trace(), ElementsAreArray(expected));
    EXPECT_EQ(1, CMGetExit());
    EXPECT_EQ(6, F().nEventsDeleted);
    ExpectLog(35, LOG_INFO, ERR_OK, "KESTREL Control shutdown...");
    ExpectLog(36, LOG_INFO, ERR_OK, "KESTREL Control shutdown done");
    // The CM's pools are gone.
    EXPECT_EQ(ERR_FAILED, CMCallHook(CH_COMM_CYCLE, 0, 0, 0));
    RTS_RESULT result = ERR_OK;
    CMGetComponentByName("CM", &result);
    EXPECT_EQ(ERR_PARAMETER, result);
}

// The components of the "last" set that are system components go after hook 16; one that is not a
// system component is in no group and stays.
TEST_F(ShutdownTest, LastSetGoesAfterHook16) {
    R().Behaviour("TestCmpC").cmpId = CMPID_SysExcept;
    R().Behaviour("TestCmpD").cmpId = CMPID_SysSem;
    ASSERT_EQ(ERR_OK, Start({CmpC(1), CmpD()}));
    R().Reset();
    Stop();
    EXPECT_THAT(R().Trace("TestCmpC"),
                ElementsAre("TestCmpC:hook 10", "TestCmpC:hook 11", "TestCmpC:hook 2200", "TestCmpC:hook 12",
                            "TestCmpC:hook 13", "TestCmpC:hook 14", "TestCmpC:hook 17", "TestCmpC:hook 15",
                            "TestCmpC:hook 16", "TestCmpC:hook 24(CM)", "TestCmpC:hook 24(CmpMemPool)",
                            "TestCmpC:hook 24(CmpLog)", "TestCmpC:hook 24(CmpSettings)",
                            "TestCmpC:hook 24(SysTestServices)", "TestCmpC:hook 24(TestCmpC)"));
    std::vector<std::string> d = R().Trace("TestCmpD");
    EXPECT_EQ(d.end(), std::find(d.begin(), d.end(), "TestCmpD:hook 24(TestCmpD)"));
    EXPECT_NE(d.end(), std::find(d.begin(), d.end(), "TestCmpD:hook 16"));
}

// Hook 10 is repeated while some component answers 10, for at most 10000 ms of SysTimeGetMs.
struct ExitRequestCase {
    RTS_I32 nAnswers10; // -1: always
    RTS_UI32 ulStartMs;
    RTS_UI32 ulStepMs;
    std::size_t nExpectedCalls;
};

class ExitRequestTest : public CMTest, public ::testing::WithParamInterface<ExitRequestCase> {};

TEST_P(ExitRequestTest, RepeatsWithinTheBound) {
    const ExitRequestCase &c = GetParam();
    AddAnswer(R().Behaviour("TestCmpA"), CH_EXIT_REQUEST, ERR_CALL_AGAIN, c.nAnswers10);
    ASSERT_EQ(ERR_OK, Start({CmpA(), CmpB()}));
    F().ulNowMs = c.ulStartMs;
    F().ulStepMs = c.ulStepMs;
    R().Reset();
    Stop();
    std::vector<RTS_UI32> hooks = R().Hooks("TestCmpB");
    EXPECT_EQ(c.nExpectedCalls, static_cast<std::size_t>(std::count(hooks.begin(), hooks.end(), CH_EXIT_REQUEST)));
    // Whatever the repetition, the rest of the sequence follows.
    EXPECT_NE(hooks.end(), std::find(hooks.begin(), hooks.end(), CH_EXIT2));
}

INSTANTIATE_TEST_SUITE_P(Cases, ExitRequestTest,
                         ::testing::Values(ExitRequestCase{0, 1000, 0, 1}, ExitRequestCase{3, 1000, 0, 4},
                                           ExitRequestCase{-1, 1000, 1000, 10},
                                           ExitRequestCase{-1, 0xFFFFF000u, 1000, 10},
                                           ExitRequestCase{-1, 5, 2500, 4}));

// A disabled component goes back to state 2 and is unloaded with its group.
TEST_F(ShutdownTest, DisabledComponentIsUnloadedToo) {
    R().Behaviour("TestCmpA").entryResult = 1;
    Start({CmpA(), CmpB()});
    R().Reset();
    Stop();
    std::vector<std::string> b = R().Trace("TestCmpB");
    EXPECT_NE(b.end(), std::find(b.begin(), b.end(), "TestCmpB:hook 24(TestCmpA)"));
    EXPECT_TRUE(R().Trace("TestCmpA").empty()); // it has no hook callback
}

TEST_F(ShutdownTest, ExitWithoutStartDoesNothingHarmful) {
    Start({});
    Stop();
    EXPECT_EQ(ERR_OK, CMExit());
    EXPECT_EQ(ERR_FAILED, CMCallHook(CH_INIT, 0, 0, 0));
    EXPECT_EQ(ERR_FAILED, CMCallHook2(0, CH_INIT, 0, 0));
    RTS_VOID_FCTPTR pf = nullptr;
    EXPECT_EQ(ERR_FAILED, CMGetAPI("CMExit", &pf, 0));
    EXPECT_EQ(0u, F().memory["CM"]);
}

// The exit flag is seen until the next start, which begins with a fresh table.
TEST_F(ShutdownTest, RestartClearsExitFlagAndTable) {
    ASSERT_EQ(ERR_OK, Start({CmpA()}));
    EXPECT_EQ(0, CMGetExit());
    CMSetExit();
    EXPECT_EQ(1, CMGetExit());
    Stop();
    EXPECT_EQ(1, CMGetExit());
    ASSERT_EQ(ERR_OK, Start({CmpB()}));
    EXPECT_EQ(0, CMGetExit());
    EXPECT_EQ(nullptr, Find("TestCmpA"));
    EXPECT_NE(nullptr, Find("TestCmpB"));
}

} // namespace
