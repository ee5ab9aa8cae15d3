// Classes and instances, locks, operation queries and debug output of the CM, each also with the
// serving component missing.
#include <cstdarg>
#include <string>
#include <vector>

#include "CMTestFixture.h"

using namespace kestrel::cmtest;
using ::testing::ElementsAre;

namespace {

constexpr CLASSID kClass = 0x55;

class InstanceTest : public CMTest {
  protected:
    RTS_RESULT StartWithClass() {
        TestCmpBehaviour &a = R().Behaviour("TestCmpA");
        a.cmpId = 0x7001;
        a.classId = kClass;
        a.deleteResult = 7;
        return Start({CmpA(), CmpB()});
    }
};

// A class registered in the entry creates instances through its owner; a class whose owner is
// missing or has no callbacks creates none.
TEST_F(InstanceTest, CreateThroughTheClassOwner) {
    R().Behaviour("TestCmpB").bNoInstances = 1;
    R().Behaviour("TestCmpB").cmpId = 0x7002;
    ASSERT_EQ(ERR_OK, StartWithClass());
    R().Reset();
    RTS_RESULT result = ERR_FAILED;
    EXPECT_NE(nullptr, CMCreateInstance(kClass, &result));
    EXPECT_EQ(ERR_OK, result);
    EXPECT_THAT(R().Trace(), ElementsAre("TestCmpA:create"));
    EXPECT_EQ(nullptr, CMCreateInstance(0x99, &result));
    EXPECT_EQ(ERR_PARAMETER, result);
    ASSERT_NE(RTS_INVALID_HANDLE, CMRegisterClass(0x7999, 0x66)); // no such component
    EXPECT_EQ(nullptr, CMCreateInstance(0x66, &result));
    EXPECT_EQ(ERR_FAILED, result);
    ASSERT_NE(RTS_INVALID_HANDLE, CMRegisterClass(0x7002, 0x67)); // owner without callbacks
    EXPECT_EQ(nullptr, CMCreateInstance(0x67, &result));
    EXPECT_EQ(ERR_FAILED, result);
    // Registering a listed class again moves it to the new owner.
    RTS_HANDLE hClass = CMRegisterClass(0x7001, 0x66);
    EXPECT_EQ(hClass, CMRegisterClass(0x7001, 0x66));
    EXPECT_NE(nullptr, CMCreateInstance(0x66, &result));
    EXPECT_EQ(ERR_OK, result);
}

TEST_F(InstanceTest, RegisterFindUnregister) {
    ASSERT_EQ(ERR_OK, StartWithClass());
    int instances[8];
    R().Reset();
    for (int i = 0; i < 8; ++i) // more than the five blocks of the list's own area
        ASSERT_EQ(ERR_OK, CMRegisterInstance(kClass, static_cast<RTS_UI32>(100 + i), &instances[i]));
    ASSERT_EQ(16u, R().Events().size()); // hook 27 to A and B, eight times
    EXPECT_EQ("TestCmpA:hook 27", R().Events()[0].text);
    EXPECT_EQ(kClass, R().Events()[0].ulParam1);
    EXPECT_EQ(reinterpret_cast<RTS_UINTPTR>(&instances[0]), R().Events()[0].ulParam2);

    RTS_RESULT result = ERR_FAILED;
    EXPECT_EQ(&instances[3], CMGetInstance(kClass, 103, &result));
    EXPECT_EQ(ERR_OK, result);
    EXPECT_EQ(nullptr, CMGetInstance(kClass, 999, &result));
    EXPECT_EQ(ERR_FAILED, result);
    EXPECT_EQ(nullptr, CMGetInstance(0x99, 103, &result));

    RTS_HANDLE ahList[4];
    RTS_I32 n = 4;
    EXPECT_EQ(ERR_BUFFERSIZE, CMGetInstanceList(kClass, ahList, &n));
    EXPECT_EQ(8, n);
    // The newest is first: registration pushes at the head.
    EXPECT_EQ(&instances[7], ahList[0]);
    n = 8;
    RTS_HANDLE ahAll[8];
    EXPECT_EQ(ERR_OK, CMGetInstanceList(kClass, ahAll, &n));

    R().Reset();
    EXPECT_EQ(ERR_OK, CMUnregisterInstance(&instances[3]));
    EXPECT_THAT(R().Trace(), ElementsAre("TestCmpA:hook 28", "TestCmpB:hook 28"));
    EXPECT_EQ(kClass, R().Events()[0].ulParam1);
    EXPECT_EQ(nullptr, CMGetInstance(kClass, 103, &result));
    EXPECT_EQ(ERR_FAILED, CMUnregisterInstance(&instances[3]));
    for (int i = 0; i < 8; ++i)
        if (i != 3) {
            EXPECT_EQ(ERR_OK, CMUnregisterInstance(&instances[i]));
        }
}

TEST_F(InstanceTest, DeleteInstance) {
    ASSERT_EQ(ERR_OK, StartWithClass());
    int instance = 0;
    int unknownClassInstance = 0;
    ASSERT_EQ(ERR_OK, CMRegisterInstance(kClass, 1, &instance));
    ASSERT_EQ(ERR_OK, CMRegisterInstance(0x99, 2, &unknownClassInstance));
    R().Reset();
    EXPECT_EQ(7u, CMDeleteInstance(&instance)); // the owner's answer
    EXPECT_THAT(R().Trace(), ElementsAre("TestCmpA:delete"));
    EXPECT_EQ(&instance, CMGetInstance(kClass, 1, nullptr)); // the owner unregisters it, not the CM
    EXPECT_EQ(ERR_PARAMETER, CMDeleteInstance(&R()));
    EXPECT_EQ(ERR_FAILED, CMDeleteInstance(&unknownClassInstance));
    EXPECT_EQ(7u, CMDeleteInstance2(kClass, &instance));
    EXPECT_EQ(ERR_PARAMETER, CMDeleteInstance2(0x99, &instance));
    // CMDeleteInstance2 asks the create-instance callback whether the owner deals in instances.
    ComponentInfo *pA = Find("TestCmpA");
    PF_CREATE_INSTANCE pfCreate = pA->pfCreateInstance;
    pA->pfCreateInstance = nullptr;
    R().Reset();
    EXPECT_EQ(ERR_FAILED, CMDeleteInstance2(kClass, &instance));
    EXPECT_TRUE(R().Trace().empty());
    pA->pfCreateInstance = pfCreate;
    CMUnregisterInstance(&instance);
    CMUnregisterInstance(&unknownClassInstance);
}

TEST_F(InstanceTest, InstanceListsNeedTheCM) {
    Start({});
    Stop();
    int instance = 0;
    EXPECT_EQ(ERR_FAILED, CMRegisterInstance(kClass, 1, &instance));
    EXPECT_EQ(ERR_FAILED, CMUnregisterInstance(&instance));
    EXPECT_EQ(ERR_FAILED, CMDeleteInstance(&instance));
    EXPECT_EQ(RTS_INVALID_HANDLE, CMRegisterClass(1, kClass));
}

class LockTest : public CMTest {};

TEST_F(LockTest, LocksWorkBetweenHooks1And15) {
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_RESULT result = ERR_FAILED;
    RTS_HANDLE hLock = CMLockCreate(&result);
    ASSERT_EQ(ERR_OK, result);
    int nEnter = F().nSemEnter;
    EXPECT_EQ(ERR_OK, CMLockEnter(hLock));
    EXPECT_EQ(ERR_OK, CMLockLeave(hLock));
    EXPECT_EQ(nEnter + 1, F().nSemEnter);
    EXPECT_EQ(ERR_NO_COMPONENT, CMLockEnter(RTS_INVALID_HANDLE));
    EXPECT_EQ(ERR_NO_COMPONENT, CMLockLeave(RTS_INVALID_HANDLE));
    EXPECT_EQ(ERR_OK, CMLockDelete(RTS_INVALID_HANDLE));
    int nDeleted = F().nSemDeleted;
    EXPECT_EQ(ERR_OK, CMLockDelete(hLock));
    EXPECT_EQ(nDeleted + 1, F().nSemDeleted);
    hLock = CMLockCreate(nullptr);
    Stop();
    // After hook 15 the locks answer 3 without touching the semaphores.
    nEnter = F().nSemEnter;
    EXPECT_EQ(ERR_NOT_INITIALIZED, CMLockEnter(hLock));
    EXPECT_EQ(ERR_NOT_INITIALIZED, CMLockLeave(hLock));
    EXPECT_EQ(nEnter, F().nSemEnter);
    EXPECT_EQ(ERR_OK, CMLockDelete(hLock));
}

TEST_F(LockTest, WithoutSemaphoreService) {
    F().withheld.insert("SysSemCreate");
    F().withheld.insert("SysSemEnter");
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_RESULT result = ERR_OK;
    EXPECT_EQ(nullptr, CMLockCreate(&result));
    EXPECT_EQ(ERR_NO_COMPONENT, result);
    int dummy = 0;
    EXPECT_EQ(ERR_NO_COMPONENT, CMLockEnter(&dummy));
    // The delete function is there, but without the create function nothing is deleted.
    int nDeleted = F().nSemDeleted;
    EXPECT_EQ(ERR_OK, CMLockDelete(&dummy));
    EXPECT_EQ(nDeleted, F().nSemDeleted);
}

class OperationTest : public CMTest {};

TEST_F(OperationTest, ListenerAnswers) {
    F().listeners[CM_EVT_OPERATION_DISABLED] = [](void *pParameter) {
        auto *pQuery = static_cast<CMOperationQuery *>(pParameter);
        if (pQuery->ulOperation == 3) {
            pQuery->ulAnswer = pQuery->ulParameter + 1;
            pQuery->bHandled = 1;
        }
    };
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_UI32 ulAnswer = 99;
    EXPECT_EQ(ERR_OK, CMIsOperationDisabled(3, 41, &ulAnswer));
    EXPECT_EQ(42u, ulAnswer);
    EXPECT_EQ(ERR_FAILED, CMIsOperationDisabled(4, 41, &ulAnswer));
    EXPECT_EQ(0u, ulAnswer);
}

TEST_F(OperationTest, SwitchedOffOrWithoutEvents) {
    F().SetSetting("ComponentManager", "DisablingOperations", "0");
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_UI32 ulAnswer = 99;
    EXPECT_EQ(ERR_NO_COMPONENT, CMIsOperationDisabled(3, 41, &ulAnswer));
    Stop();
    ResetFakes();
    F().withheld.insert("EventPost2");
    ASSERT_EQ(ERR_OK, Start({}));
    EXPECT_EQ(ERR_NO_COMPONENT, CMIsOperationDisabled(3, 41, &ulAnswer));
}

RTS_RESULT DebugOutArgs(const char *pszFormat, ...) {
    va_list args;
    va_start(args, pszFormat);
    RTS_RESULT result = CMDebugOutArg(pszFormat, args);
    va_end(args);
    return result;
}

TEST_F(OperationTest, DebugOutput) {
    ASSERT_EQ(ERR_OK, Start({}));
    EXPECT_EQ(ERR_OK, CMDebugOut("value %d", 42));
    EXPECT_EQ(ERR_OK, DebugOutArgs("%s!", "hi"));
    EXPECT_EQ(ERR_OK, CMProfiling("mark", 7));
    EXPECT_THAT(F().out, ElementsAre("value 42", "hi!", "Profiling <name>mark</name>: 7\n"));
    Stop();
    ResetFakes();
    F().withheld.insert("SysOutVPrintf");
    ASSERT_EQ(ERR_OK, Start({}));
    EXPECT_EQ(ERR_NO_COMPONENT, CMDebugOut("value %d", 42));
}

} // namespace
