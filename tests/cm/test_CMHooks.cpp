// Hooks: forward and reverse dispatch, the answers passed on, dispatch by flags, the states that
// take hooks, the current hook, and the extra communication cycle with its interval.
#include <string>
#include <vector>

#include "CMTestFixture.h"

using namespace kestrel::cmtest;
using ::testing::ElementsAre;

namespace {

class HookTest : public CMTest {
  protected:
    RTS_RESULT StartABC(RTS_UI32 ulFlags = CM_INIT_SETTINGS_OPTIONAL) {
        return Start({CmpA(), CmpB(1), CmpC()}, ulFlags);
    }
};

TEST_F(HookTest, ForwardAndReverseWithParameters) {
    ASSERT_EQ(ERR_OK, StartABC());
    R().Reset();
    const RTS_UINTPTR ulBig = static_cast<RTS_UINTPTR>(~static_cast<RTS_UINTPTR>(0) - 5);
    EXPECT_EQ(ERR_OK, CMCallHook(4711, ulBig, 42, 0));
    EXPECT_EQ(ERR_OK, CMCallHook(4712, 0, 0, 1));
    // B is a system component and therefore earlier in the table.
    ASSERT_THAT(R().Trace(), ElementsAre("TestCmpB:hook 4711", "TestCmpA:hook 4711", "TestCmpC:hook 4711",
                                         "TestCmpC:hook 4712", "TestCmpA:hook 4712", "TestCmpB:hook 4712"));
    EXPECT_EQ(ulBig, R().Events()[0].ulParam1);
    EXPECT_EQ(42u, R().Events()[0].ulParam2);
}

struct AnswerCase {
    RTS_RESULT answerA;
    RTS_RESULT answerB;
    RTS_RESULT callHook;  // CMCallHook's result
    RTS_RESULT callHook2; // CMCallHook2's result (mask 0: all)
};

class HookAnswerTest : public HookTest, public ::testing::WithParamInterface<AnswerCase> {};

TEST_P(HookAnswerTest, OnlyCallAgainIsPassedOn) {
    const AnswerCase &c = GetParam();
    AddAnswer(R().Behaviour("TestCmpA"), 4711, c.answerA, -1);
    AddAnswer(R().Behaviour("TestCmpB"), 4711, c.answerB, -1);
    ASSERT_EQ(ERR_OK, StartABC());
    EXPECT_EQ(c.callHook, CMCallHook(4711, 0, 0, 0));
    EXPECT_EQ(c.callHook, CMCallHook(4711, 0, 0, 1));
    EXPECT_EQ(c.callHook2, CMCallHook2(0, 4711, 0, 0));
}

// Table order is B, A, C: CMCallHook2 reports the answer of the last component that gave one.
INSTANTIATE_TEST_SUITE_P(Cases, HookAnswerTest,
                         ::testing::Values(AnswerCase{ERR_OK, ERR_OK, ERR_OK, ERR_OK},
                                           AnswerCase{ERR_CALL_AGAIN, ERR_OK, ERR_CALL_AGAIN, ERR_CALL_AGAIN},
                                           AnswerCase{5, ERR_OK, ERR_OK, ERR_FAILED},
                                           AnswerCase{ERR_CALL_AGAIN, 5, ERR_CALL_AGAIN, ERR_CALL_AGAIN},
                                           AnswerCase{5, ERR_CALL_AGAIN, ERR_CALL_AGAIN, ERR_FAILED}));

struct MaskCase {
    RTS_UI16 usMask;
    std::vector<std::string> reached;
};

class HookMaskTest : public HookTest, public ::testing::WithParamInterface<MaskCase> {};

TEST_P(HookMaskTest, FlagsChooseTheComponents) {
    const MaskCase &c = GetParam();
    ASSERT_EQ(ERR_OK, StartABC());
    Find("TestCmpC")->usFlags = CM_FLAG_STATIC | CM_FLAG_MARK_EXISTING;
    R().Reset();
    CMCallHook2(c.usMask, 4711, 0, 0);
    std::vector<std::string> reached;
    for (const TraceEvent &e : R().Events())
        reached.push_back(e.component);
    EXPECT_EQ(c.reached, reached);
}

// Flags: B 0x0105 (system), A 0x0101, C 0x0201.
INSTANTIATE_TEST_SUITE_P(Cases, HookMaskTest,
                         ::testing::Values(MaskCase{0, {"TestCmpB", "TestCmpA", "TestCmpC"}},
                                           MaskCase{CM_FLAG_STATIC, {"TestCmpB", "TestCmpA", "TestCmpC"}},
                                           MaskCase{CM_FLAG_SYSTEM, {"TestCmpB"}}, MaskCase{CM_FLAG_DYNAMIC, {}},
                                           MaskCase{CM_FLAG_IMPORT_MASK, {"TestCmpB", "TestCmpA", "TestCmpC"}},
                                           MaskCase{CM_FLAG_MARK_EXISTING, {"TestCmpC"}},
                                           MaskCase{CM_FLAG_ADDED | CM_FLAG_SYSTEM, {"TestCmpB"}}));

TEST_F(HookTest, StatesThatTakeHooks) {
    ASSERT_EQ(ERR_OK, StartABC(CM_INIT_SETTINGS_OPTIONAL | CM_INIT_NO_INIT_END));
    Find("TestCmpA")->usState = CM_STATE_DISABLED;
    Find("TestCmpC")->usState = CM_STATE_REMOVED;
    R().Reset();
    CMCallHook(4711, 0, 0, 0);
    EXPECT_THAT(R().Trace(), ElementsAre("TestCmpB:hook 4711"));
    // The communication cycle reaches only running components; B is still in state 4.
    R().Reset();
    EXPECT_EQ(ERR_OK, CMCallHook(CH_COMM_CYCLE, 0, 0, 0));
    EXPECT_TRUE(R().Trace().empty());
    Find("TestCmpB")->usState = CM_STATE_RUNNING;
    CMCallHook(CH_COMM_CYCLE, 0, 0, 0);
    EXPECT_THAT(R().Trace(), ElementsAre("TestCmpB:hook 20"));
    Find("TestCmpB")->usState = CM_STATE_LOADED;
    R().Reset();
    CMCallHook(4711, 0, 0, 0);
    EXPECT_THAT(R().Trace(), ElementsAre("TestCmpB:hook 4711"));
    Find("TestCmpA")->usState = CM_STATE_INITIALIZED;
    Find("TestCmpC")->usState = CM_STATE_INITIALIZED;
}

TEST_F(HookTest, CurrentHook) {
    ASSERT_EQ(ERR_OK, StartABC());
    EXPECT_EQ(CH_INIT_DONE, CMGetCurrentHook());
    for (RTS_UI32 ulHook : {23u, 24u, 27u, 30u}) {
        CMCallHook(ulHook, 0, 0, 0);
        EXPECT_EQ(CH_INIT_DONE, CMGetCurrentHook()) << ulHook;
    }
    CMCallHook(31, 0, 0, 0);
    EXPECT_EQ(31u, CMGetCurrentHook());
    CMCallHook2(0, 22, 0, 0);
    EXPECT_EQ(22u, CMGetCurrentHook());
}

TEST_F(HookTest, ComponentWithoutHookCallback) {
    R().Behaviour("TestCmpA").bNoHook = 1;
    ASSERT_EQ(ERR_OK, StartABC());
    AddAnswer(R().Behaviour("TestCmpB"), 4711, ERR_OK, -1);
    EXPECT_EQ(ERR_FAILED, CMCallHook2(CM_FLAG_STATIC, 4711, 0, 0)); // A answers 1
    EXPECT_TRUE(R().Hooks("TestCmpA").empty());
}

TEST_F(HookTest, EmptyTableInReverse) {
    ASSERT_EQ(ERR_OK, Start({}));
    // The components are told that the runtime ends before they leave the table (CMExit will no
    // longer reach them).
    CMCallHook(CH_EXIT2, 0, 0, 0);
    while (ComponentInfo *p = CMGetFirstComponent(nullptr))
        ASSERT_EQ(ERR_OK, CMRemoveComponent(p));
    EXPECT_EQ(ERR_FAILED, CMCallHook(4711, 0, 0, 1));
    EXPECT_EQ(ERR_OK, CMCallHook(4711, 0, 0, 0));
}

// The extra communication cycle runs only without a task service and at most once per interval.
struct CommCycleCase {
    const char *pszCase;
    const char *pszInterval; // setting, or null for the default 250
    bool bTasks;             // SysTaskCreate exported
    std::vector<RTS_UI32> advances;
    std::vector<RTS_RESULT> expectedCycles; // 1: hook 20 dispatched, 0: not, per call
};

class CommCycleTest : public HookTest, public ::testing::WithParamInterface<CommCycleCase> {};

TEST_P(CommCycleTest, Interval) {
    const CommCycleCase &c = GetParam();
    if (c.pszInterval != nullptr)
        F().SetSetting("ComponentManager", "MinimalCommCycleHookInterval", c.pszInterval);
    if (c.bTasks)
        F().withheld.erase("SysTaskCreate");
    ASSERT_EQ(ERR_OK, StartABC());
    std::vector<RTS_RESULT> cycles;
    for (RTS_UI32 ulAdvance : c.advances) {
        F().ulNowMs += ulAdvance;
        R().Reset();
        EXPECT_EQ(ERR_OK, CMCallExtraCommCycleHook(7, 8));
        std::vector<RTS_UI32> hooks = R().Hooks("TestCmpA");
        cycles.push_back(hooks.empty() ? 0u : 1u);
        if (!hooks.empty()) {
            EXPECT_EQ(7u, R().Events()[0].ulParam1);
        }
    }
    EXPECT_EQ(c.expectedCycles, cycles) << c.pszCase;
}

INSTANTIATE_TEST_SUITE_P(Cases, CommCycleTest,
                         ::testing::Values(CommCycleCase{"twice within 250 ms", nullptr, false, {250, 10}, {1, 0}},
                                           CommCycleCase{"just below", nullptr, false, {249, 1, 249, 1}, {0, 1, 0, 1}},
                                           CommCycleCase{"with tasks", nullptr, true, {1000, 1000}, {0, 0}},
                                           CommCycleCase{
                                               "interval from the settings", "20", false, {20, 19, 1}, {1, 0, 1}}));

TEST_F(HookTest, CommCycleHookAnswer) {
    AddAnswer(R().Behaviour("TestCmpA"), CH_COMM_CYCLE, ERR_CALL_AGAIN, -1);
    ASSERT_EQ(ERR_OK, StartABC());
    F().ulNowMs += 1000;
    EXPECT_EQ(ERR_CALL_AGAIN, CMCallExtraCommCycleHook(0, 0));
}

} // namespace
