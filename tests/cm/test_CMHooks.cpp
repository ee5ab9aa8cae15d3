// Hooks (dispatch forward, in reverse and by flags, the answers passed on, the states that take
// hooks, the current hook, the extra communication cycle), classes and instances, and the CM's
// locks, operation queries and debug output, each also with the serving component missing.
#include <tuple>

#include "CMTestFixture.h"

using namespace kestrel::cmtest;

namespace {

// Table order is B (a system component), A, C.
class HookTest : public CMTest {
  protected:
    RTS_RESULT StartABC(RTS_UI32 ulFlags = CM_INIT_SETTINGS_OPTIONAL) {
        return Start({CmpA(), CmpB(1), CmpC()}, ulFlags);
    }
};

// CMCallHook goes over the table forward, or in reverse, with both parameters as given.
TEST_F(HookTest, ForwardAndReverseWithParameters) {
    ASSERT_EQ(ERR_OK, StartABC());
    R().Reset();
    const RTS_UINTPTR ulBig = ~static_cast<RTS_UINTPTR>(0) - 5;
    EXPECT_EQ(ERR_OK, CMCallHook(4711, ulBig, 42, 0));
    EXPECT_EQ(ERR_OK, CMCallHook(4712, 0, 0, 1));
    EXPECT_EQ("B:4711 A:4711 C:4711 C:4712 A:4712 B:4712", R().Trace());
    EXPECT_EQ(ulBig, R().events[0].ulParam1);
    EXPECT_EQ(42u, R().events[0].ulParam2);
}

// CMCallHook passes on only the answer 10 (either direction); CMCallHook2 passes on the answer of
// the last component that gave one, any other than 10 as 1 (also 1 without a hook callback).
TEST_F(HookTest, AnswersPassedOn) {
    for (auto [answerA, answerB, callHook, callHook2] :
         {std::make_tuple(ERR_CALL_AGAIN, ERR_OK, ERR_CALL_AGAIN, ERR_CALL_AGAIN),
          std::make_tuple(5u, ERR_OK, ERR_OK, ERR_FAILED),
          std::make_tuple(ERR_CALL_AGAIN, 5u, ERR_CALL_AGAIN, ERR_CALL_AGAIN),
          std::make_tuple(5u, ERR_CALL_AGAIN, ERR_CALL_AGAIN, ERR_FAILED)}) {
        R().behaviours.clear();
        AddAnswer(R().Behaviour("TestCmpA"), 4711, answerA, -1);
        AddAnswer(R().Behaviour("TestCmpB"), 4711, answerB, -1);
        ASSERT_EQ(ERR_OK, StartABC());
        EXPECT_EQ(callHook, CMCallHook(4711, 0, 0, 0)) << answerA << "/" << answerB;
        EXPECT_EQ(callHook, CMCallHook(4711, 0, 0, 1)) << answerA << "/" << answerB;
        EXPECT_EQ(callHook2, CMCallHook2(0, 4711, 0, 0)) << answerA << "/" << answerB;
        Stop();
    }
    R().behaviours.clear();
    R().Behaviour("TestCmpA").bNoHook = 1;
    ASSERT_EQ(ERR_OK, StartABC());
    EXPECT_EQ(ERR_FAILED, CMCallHook2(CM_FLAG_STATIC, 4711, 0, 0));
}

// CMCallHook2 reaches the components whose flags hold every bit of the mask (of the import mask,
// static or dynamic, either bit). States 2, 4 and 5 take hooks; the communication cycle only 5.
TEST_F(HookTest, FlagsAndStatesChooseTheComponents) {
    ASSERT_EQ(ERR_OK, StartABC(CM_INIT_SETTINGS_OPTIONAL | CM_INIT_NO_INIT_END));
    R().Reset();
    CMCallHook2(CM_FLAG_IMPORT_MASK, 4701, 0, 0);
    CMCallHook2(CM_FLAG_ADDED | CM_FLAG_SYSTEM, 4703, 0, 0);
    EXPECT_EQ("B:4701 A:4701 C:4701 B:4703", R().Trace());
    Find("TestCmpA")->usState = CM_STATE_DISABLED;
    Find("TestCmpC")->usState = CM_STATE_REMOVED;
    R().Reset();
    CMCallHook(4711, 0, 0, 0);
    EXPECT_EQ(ERR_OK, CMCallHook(CH_COMM_CYCLE, 0, 0, 0)); // B is still in state 4
    Find("TestCmpB")->usState = CM_STATE_RUNNING;
    CMCallHook(CH_COMM_CYCLE, 0, 0, 0);
    Find("TestCmpB")->usState = CM_STATE_LOADED;
    CMCallHook(4712, 0, 0, 0);
    EXPECT_EQ("B:4711 B:20 B:4712", R().Trace());
    // Every hook becomes the current one, except the component announcements 23 to 30.
    CMCallHook2(0, 4713, 0, 0);
    CMCallHook(23, 0, 0, 0);
    CMCallHook(30, 0, 0, 0);
    EXPECT_EQ(4713u, CMGetCurrentHook());
    CMCallHook(31, 0, 0, 0);
    EXPECT_EQ(31u, CMGetCurrentHook());
}

// Over an empty table only the reverse dispatch fails.
TEST_F(HookTest, EmptyTableInReverse) {
    ASSERT_EQ(ERR_OK, Start({}));
    CMCallHook(CH_EXIT2, 0, 0, 0); // the components are told the runtime ends, as they leave
    while (ComponentInfo *p = CMGetFirstComponent(nullptr))
        ASSERT_EQ(ERR_OK, CMRemoveComponent(p));
    EXPECT_EQ(ERR_FAILED, CMCallHook(4711, 0, 0, 1));
    EXPECT_EQ(ERR_OK, CMCallHook(4711, 0, 0, 0));
}

// The extra communication cycle runs at most once per interval (250 ms, or the setting) since the
// last cycle, and only without a task service; it answers what the hook answered (A: 10).
TEST_F(HookTest, ExtraCommCycleInterval) {
    AddAnswer(R().Behaviour("TestCmpA"), CH_COMM_CYCLE, ERR_CALL_AGAIN, -1);
    auto cycle = [](RTS_UI32 ulAdvanceMs) {
        F().ulNowMs += ulAdvanceMs;
        return CMCallExtraCommCycleHook(7, 8);
    };
    ASSERT_EQ(ERR_OK, StartABC());
    R().Reset();
    EXPECT_EQ((std::vector<RTS_RESULT>{0, 10, 0, 10}),
              (std::vector<RTS_RESULT>{cycle(249), cycle(1), cycle(249), cycle(1)}));
    EXPECT_EQ("B:20 A:20 C:20 B:20 A:20 C:20", R().Trace());
    EXPECT_EQ(7u, R().events[0].ulParam1);
    Stop();
    F().SetSetting("ComponentManager", "MinimalCommCycleHookInterval", "20");
    ASSERT_EQ(ERR_OK, StartABC());
    EXPECT_EQ((std::vector<RTS_RESULT>{10, 0, 10}), (std::vector<RTS_RESULT>{cycle(20), cycle(19), cycle(1)}));
    Stop();
    F().withheld.erase("SysTaskCreate");
    ASSERT_EQ(ERR_OK, StartABC());
    EXPECT_EQ(ERR_OK, cycle(1000));
}

// A owns class 0x55 (registered in its entry call, bound after it) and answers 7 to deletes; B
// has no instance callbacks.
class InstanceTest : public CMTest {
  protected:
    void SetUp() override {
        CMTest::SetUp();
        TestCmpBehaviour &a = R().Behaviour("TestCmpA");
        a.cmpId = 0x7001;
        a.classId = kClass;
        a.deleteResult = 7;
        R().Behaviour("TestCmpB").cmpId = 0x7002;
        R().Behaviour("TestCmpB").bNoInstances = 1;
        ASSERT_EQ(ERR_OK, Start({CmpA(), CmpB()}));
        R().Reset();
    }
    static constexpr CLASSID kClass = 0x55;
};

// A class creates instances through its owner, not without one or without its callbacks; listed
// again, a class moves to the new owner. The CM's own record creates none.
TEST_F(InstanceTest, CreateThroughTheClassOwner) {
    RTS_RESULT result = ERR_FAILED;
    EXPECT_NE(nullptr, CMCreateInstance(kClass, &result));
    EXPECT_EQ(ERR_OK, result);
    EXPECT_EQ("A:create", R().Trace());
    EXPECT_EQ(nullptr, CMCreateInstance(0x99, &result));
    EXPECT_EQ(ERR_PARAMETER, result);
    ASSERT_NE(RTS_INVALID_HANDLE, CMRegisterClass(0x7999, 0x66)); // no such component
    EXPECT_EQ(nullptr, CMCreateInstance(0x66, &result));
    EXPECT_EQ(ERR_FAILED, result);
    ASSERT_NE(RTS_INVALID_HANDLE, CMRegisterClass(0x7002, 0x67)); // owner without callbacks
    EXPECT_EQ(nullptr, CMCreateInstance(0x67, &result));
    EXPECT_EQ(ERR_FAILED, result);
    RTS_HANDLE hClass = CMRegisterClass(0x7001, 0x66);
    EXPECT_EQ(hClass, CMRegisterClass(0x7001, 0x66));
    EXPECT_NE(nullptr, CMCreateInstance(0x66, &result));
    EXPECT_EQ(ERR_OK, result);
    EXPECT_EQ(nullptr, Find("CM")->pfCreateInstance(1, &result));
    EXPECT_EQ(ERR_NOTIMPLEMENTED, result);
    EXPECT_EQ(ERR_NOTIMPLEMENTED, Find("CM")->pfDeleteInstance(nullptr));
}

// More instances than the five blocks of the list's own area; hooks 27 and 28 announce them with
// class and handle; the newest is listed first.
TEST_F(InstanceTest, RegisterFindUnregister) {
    int instances[8];
    for (int i = 0; i < 8; ++i)
        ASSERT_EQ(ERR_OK, CMRegisterInstance(kClass, static_cast<RTS_UI32>(100 + i), &instances[i]));
    ASSERT_EQ(16u, R().events.size()); // A and B, eight times
    EXPECT_EQ("A:27", R().events[0].text);
    EXPECT_EQ(kClass, R().events[0].ulParam1);
    EXPECT_EQ(reinterpret_cast<RTS_UINTPTR>(&instances[0]), R().events[0].ulParam2);
    RTS_RESULT result = ERR_FAILED;
    EXPECT_EQ(&instances[3], CMGetInstance(kClass, 103, &result));
    EXPECT_EQ(ERR_OK, result);
    EXPECT_EQ(nullptr, CMGetInstance(kClass, 999, &result));
    EXPECT_EQ(ERR_FAILED, result);
    EXPECT_EQ(nullptr, CMGetInstance(0x99, 103, &result));
    RTS_HANDLE ahList[8];
    RTS_I32 n = 4;
    EXPECT_EQ(ERR_BUFFERSIZE, CMGetInstanceList(kClass, ahList, &n));
    EXPECT_EQ(8, n);
    EXPECT_EQ(&instances[7], ahList[0]);
    EXPECT_EQ(ERR_OK, CMGetInstanceList(kClass, ahList, &n));
    R().Reset();
    EXPECT_EQ(ERR_OK, CMUnregisterInstance(&instances[3]));
    EXPECT_EQ("A:28 B:28", R().Trace());
    EXPECT_EQ(kClass, R().events[0].ulParam1);
    EXPECT_EQ(nullptr, CMGetInstance(kClass, 103, &result));
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(i == 3 ? ERR_FAILED : ERR_OK, CMUnregisterInstance(&instances[i]));
}

// Deleting goes to the owner's callback (which also unregisters); CMDeleteInstance2 asks the
// create-instance callback whether the owner deals in instances at all. Without the CM's lists
// nothing is registered.
TEST_F(InstanceTest, DeleteThroughTheClassOwner) {
    int instance = 0, unknownClassInstance = 0;
    ASSERT_EQ(ERR_OK, CMRegisterInstance(kClass, 1, &instance));
    ASSERT_EQ(ERR_OK, CMRegisterInstance(0x99, 2, &unknownClassInstance));
    R().Reset();
    EXPECT_EQ(7u, CMDeleteInstance(&instance));
    EXPECT_EQ("A:delete", R().Trace());
    EXPECT_EQ(&instance, CMGetInstance(kClass, 1, nullptr));
    EXPECT_EQ(ERR_PARAMETER, CMDeleteInstance(&R()));
    EXPECT_EQ(ERR_FAILED, CMDeleteInstance(&unknownClassInstance));
    EXPECT_EQ(7u, CMDeleteInstance2(kClass, &instance));
    EXPECT_EQ(ERR_PARAMETER, CMDeleteInstance2(0x99, &instance));
    Find("TestCmpA")->pfCreateInstance = nullptr;
    R().Reset();
    EXPECT_EQ(ERR_FAILED, CMDeleteInstance2(kClass, &instance));
    EXPECT_EQ("", R().Trace());
    EXPECT_EQ(ERR_OK, CMUnregisterInstance(&unknownClassInstance));
    Stop();
    EXPECT_EQ(ERR_FAILED, CMRegisterInstance(kClass, 1, &instance));
    EXPECT_EQ(ERR_FAILED, CMUnregisterInstance(&instance));
    EXPECT_EQ(ERR_FAILED, CMDeleteInstance(&instance));
    EXPECT_EQ(RTS_INVALID_HANDLE, CMRegisterClass(1, kClass));
}

using ServiceTest = CMTest;

// Locks use the semaphore service between the CM's hooks 1 and 15 and answer 3 after it; the
// operation query goes to the listeners of its event; debug output goes to the text output.
TEST_F(ServiceTest, LocksOperationsAndDebugOutput) {
    F().listeners[CM_EVT_OPERATION_DISABLED] = [](void *pParameter) {
        auto *pQuery = static_cast<CMOperationQuery *>(pParameter);
        pQuery->ulAnswer = pQuery->ulParameter + 1;
        pQuery->bHandled = pQuery->ulOperation == 3;
    };
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_RESULT result = ERR_FAILED;
    RTS_HANDLE hLock = CMLockCreate(&result);
    ASSERT_EQ(ERR_OK, result);
    int nEnter = F().nSemEnter, nDeleted = F().nSemDeleted;
    EXPECT_EQ(ERR_OK, CMLockEnter(hLock));
    EXPECT_EQ(ERR_OK, CMLockLeave(hLock));
    EXPECT_EQ(nEnter + 1, F().nSemEnter);
    EXPECT_EQ(ERR_NO_COMPONENT, CMLockEnter(RTS_INVALID_HANDLE));
    EXPECT_EQ(ERR_NO_COMPONENT, CMLockLeave(RTS_INVALID_HANDLE));
    EXPECT_EQ(ERR_OK, CMLockDelete(RTS_INVALID_HANDLE));
    EXPECT_EQ(ERR_OK, CMLockDelete(hLock));
    EXPECT_EQ(nDeleted + 1, F().nSemDeleted);
    RTS_UI32 ulAnswer = 99;
    EXPECT_EQ(ERR_OK, CMIsOperationDisabled(3, 41, &ulAnswer));
    EXPECT_EQ(42u, ulAnswer);
    EXPECT_EQ(ERR_FAILED, CMIsOperationDisabled(4, 41, &ulAnswer));
    EXPECT_EQ(0u, ulAnswer);
    EXPECT_EQ(ERR_OK, CMDebugOut("value %d", 42));
    EXPECT_EQ(ERR_OK, CMProfiling("mark", 7));
    EXPECT_EQ((std::vector<std::string>{"value 42", "Profiling <name>mark</name>: 7\n"}), F().out);
    Stop();
    nEnter = F().nSemEnter;
    EXPECT_EQ(ERR_NOT_INITIALIZED, CMLockEnter(hLock));
    EXPECT_EQ(ERR_NOT_INITIALIZED, CMLockLeave(hLock));
    EXPECT_EQ(nEnter, F().nSemEnter);
}

// Without their services: no locks (deleting one is harmless), no operation query, no output.
TEST_F(ServiceTest, WithoutTheirServices) {
    F().withheld.insert({"SysSemCreate", "SysSemEnter", "EventPost2", "SysOutVPrintf"});
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_RESULT result = ERR_OK;
    EXPECT_EQ(nullptr, CMLockCreate(&result));
    EXPECT_EQ(ERR_NO_COMPONENT, result);
    int dummy = 0;
    EXPECT_EQ(ERR_NO_COMPONENT, CMLockEnter(&dummy));
    EXPECT_EQ(ERR_OK, CMLockDelete(&dummy));
    EXPECT_EQ(0, F().nSemDeleted);
    RTS_UI32 ulAnswer = 99;
    EXPECT_EQ(ERR_NO_COMPONENT, CMIsOperationDisabled(3, 41, &ulAnswer));
    EXPECT_EQ(ERR_NO_COMPONENT, CMDebugOut("value %d", 42));
    Stop();
    ResetFakes();
    F().SetSetting("ComponentManager", "DisablingOperations", "0");
    ASSERT_EQ(ERR_OK, Start({}));
    EXPECT_EQ(ERR_NO_COMPONENT, CMIsOperationDisabled(3, 41, &ulAnswer));
}

} // namespace
