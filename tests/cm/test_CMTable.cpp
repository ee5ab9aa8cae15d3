// The component table: adding with its duplicate rule, name copies and flags; removing; the
// queries; run-time loading, init and exit of a single component; bad input of every kind.
#include <cstring>
#include <string>
#include <vector>

#include "CMTestFixture.h"

using namespace kestrel::cmtest;
using ::testing::ElementsAre;

namespace {

class TableTest : public CMTest {
  protected:
    static ComponentInfo Template(const char *pszName, RTS_UI8 bStaticName = 1, RTS_UI16 usFlags = 0) {
        ComponentInfo tmpl{};
        tmpl.hModule = RTS_INVALID_HANDLE;
        tmpl.pszName = pszName;
        tmpl.bStaticName = bStaticName;
        tmpl.usFlags = usFlags;
        tmpl.usState = CM_STATE_LOADED;
        return tmpl;
    }

    // The added record, or null if the table refused it.
    static ComponentInfo *Add(const char *pszName, RTS_UI8 bStaticName = 1, RTS_UI16 usFlags = 0) {
        ComponentInfo tmpl = Template(pszName, bStaticName, usFlags);
        RTS_RESULT result = ERR_FAILED;
        ComponentInfo *p = CMAddComponent(&tmpl, &result);
        return result == ERR_OK ? p : nullptr;
    }
};

TEST_F(TableTest, DuplicateOnlyWhileTheFirstIsLoaded) {
    ASSERT_EQ(ERR_OK, Start({}));
    ComponentInfo tmpl = Template("Dup");
    RTS_RESULT result = ERR_FAILED;
    ComponentInfo *pFirst = CMAddComponent(&tmpl, &result);
    ASSERT_EQ(ERR_OK, result);
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMAddComponent(&tmpl, &result)));
    EXPECT_EQ(ERR_DUPLICATE, result);
    pFirst->usState = CM_STATE_RUNNING;
    ComponentInfo *pSecond = CMAddComponent(&tmpl, &result);
    EXPECT_EQ(ERR_OK, result);
    EXPECT_NE(pFirst, pSecond);
}

TEST_F(TableTest, FlagsAndNameCopy) {
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_I32 nBefore = CMGetNumOfComponents();
    char szName[] = "Copied";
    ComponentInfo *p = Add(szName, 0, CM_FLAG_STATIC);
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(CM_FLAG_STATIC | CM_FLAG_ADDED, p->usFlags);
    EXPECT_NE(szName, p->pszName);
    EXPECT_STREQ("Copied", p->pszName);
    EXPECT_EQ(static_cast<long>(sizeof(szName)), F().memory["CM"]);
    EXPECT_EQ(nBefore + 1, CMGetNumOfComponents());
    EXPECT_EQ(ERR_OK, CMRemoveComponent(p));
    EXPECT_EQ(0, F().memory["CM"]);
    EXPECT_EQ(nBefore + 1, CMGetNumOfComponents()); // the counter only grows

    const char *pszMarked = "Marked";
    p = Add(pszMarked, 1, CM_FLAG_MARK_EXISTING);
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(CM_FLAG_MARK_EXISTING, p->usFlags);
    EXPECT_EQ(pszMarked, p->pszName);
}

TEST_F(TableTest, NameCopyNeedsTheMemoryService) {
    F().withheld.insert("SysMemAllocData");
    ASSERT_EQ(ERR_OK, Start({}));
    ComponentInfo tmpl = Template("Copied", 0);
    RTS_RESULT result = ERR_OK;
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMAddComponent(&tmpl, &result)));
    EXPECT_EQ(ERR_NOMEMORY, result);
    EXPECT_EQ(nullptr, Find("Copied"));
}

// The table holds 40 records in its own area and grows by single blocks beyond that.
TEST_F(TableTest, GrowsBeyondItsStaticArea) {
    ASSERT_EQ(ERR_OK, Start({}));
    std::vector<std::string> names;
    for (int i = 0; i < 50; ++i)
        names.push_back("Grow" + std::to_string(i));
    // Running, they are unloaded with the static group at shut-down, before the pools are cleaned up.
    for (const std::string &name : names) {
        ComponentInfo *p = Add(name.c_str(), 1, CM_FLAG_STATIC);
        ASSERT_NE(nullptr, p) << name;
        p->usState = CM_STATE_RUNNING;
    }
    EXPECT_GT(F().memory["CM"], 0);
    EXPECT_EQ("Grow49", Names().back());
}

TEST_F(TableTest, Queries) {
    R().Behaviour("TestCmpA").cmpId = 0x7001;
    ASSERT_EQ(ERR_OK, Start({CmpA()}));
    ComponentInfo *pA = Find("TestCmpA");
    ASSERT_NE(nullptr, pA);
    CMPID cmpId = 0;
    EXPECT_EQ(ERR_OK, CMGetCmpId("TestCmpA", &cmpId));
    EXPECT_EQ(0x7001u, cmpId);
    EXPECT_EQ(ERR_FAILED, CMGetCmpId("testcmpa", &cmpId));
    EXPECT_EQ(pA, CMGetComponent(0x7001));
    EXPECT_EQ(nullptr, CMGetComponent(0x7999));
    RTS_RESULT result = ERR_OK;
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMGetComponentByName("TESTCMPA", &result)));
    EXPECT_EQ(ERR_FAILED, result);

    // Index and first/next walk the same order.
    std::vector<ComponentInfo *> walk;
    for (ComponentInfo *p = CMGetFirstComponent(&result); p != nullptr; p = CMGetNextComponent(p, &result))
        walk.push_back(p);
    EXPECT_EQ(ERR_NO_OBJECT, result);
    // The counter counts every record ever added in this process, so it may exceed the table.
    ASSERT_LE(walk.size(), static_cast<std::size_t>(CMGetNumOfComponents()));
    for (std::size_t i = 0; i < walk.size(); ++i) {
        EXPECT_EQ(walk[i], CMGetComponentByIndex(static_cast<RTS_I32>(i)));
    }
    EXPECT_EQ(nullptr, CMGetComponentByIndex(static_cast<RTS_I32>(walk.size())));
    EXPECT_EQ(nullptr, CMGetComponentByIndex(CMGetNumOfComponents()));
    EXPECT_EQ(nullptr, CMGetComponentByIndex(-1));
}

struct CmpNameCase {
    CMPID cmpId;
    RTS_SIZE nSize;
    RTS_RESULT result;
    const char *pszText; // null: untouched
};

class CmpNameTest : public TableTest, public ::testing::WithParamInterface<CmpNameCase> {};

TEST_P(CmpNameTest, Names) {
    const CmpNameCase &c = GetParam();
    R().Behaviour("TestCmpB").cmpId = 0x7002;
    ASSERT_EQ(ERR_OK, Start({CmpB()}));
    char szBuffer[40];
    std::memset(szBuffer, '#', sizeof(szBuffer));
    szBuffer[sizeof(szBuffer) - 1] = '\0';
    EXPECT_EQ(c.result, CMGetCmpName(c.cmpId, szBuffer, c.nSize));
    if (c.pszText == nullptr) {
        EXPECT_EQ('#', szBuffer[0]);
    } else {
        EXPECT_STREQ(c.pszText, szBuffer);
    }
    EXPECT_EQ('#', szBuffer[c.nSize]); // never beyond the given size
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CmpNameTest,
    ::testing::Values(CmpNameCase{0, 10, ERR_OK, "CM"}, CmpNameCase{0x7002, 10, ERR_OK, "TestCmpB"},
                      CmpNameCase{0x7002, 5, ERR_BUFFERSIZE, "Test"}, CmpNameCase{0x1000, 10, ERR_OK, "IEC"},
                      CmpNameCase{0x1005, 20, ERR_OK, "IEC=0x00001005"},
                      CmpNameCase{0x1005, 8, ERR_BUFFERSIZE, "IEC=0x0"}, CmpNameCase{0x2000, 10, ERR_FAILED, nullptr},
                      CmpNameCase{CMPID_CmpMemPool, 12, ERR_OK, "CmpMemPool"}));

// Every record operation refuses the all-ones record and null arguments with 2.
TEST_F(TableTest, BadRecordsAndNames) {
    ASSERT_EQ(ERR_OK, Start({}));
    auto *pBad = reinterpret_cast<ComponentInfo *>(RTS_INVALID_HANDLE);
    RTS_RESULT result = ERR_OK;
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMAddComponent(pBad, &result)));
    EXPECT_EQ(ERR_PARAMETER, result);
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMAddComponent(nullptr, nullptr)));
    ComponentInfo unnamed = Template(nullptr);
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMAddComponent(&unnamed, &result)));
    EXPECT_EQ(ERR_PARAMETER, result);
    EXPECT_EQ(ERR_PARAMETER, CMRemoveComponent(pBad));
    EXPECT_EQ(ERR_PARAMETER, CMUnloadComponent(pBad));
    EXPECT_EQ(ERR_PARAMETER, CMInitComponent(pBad));
    EXPECT_EQ(ERR_PARAMETER, CMExitComponent(pBad));
    EXPECT_EQ(nullptr, CMGetNextComponent(pBad, &result));
    EXPECT_EQ(ERR_PARAMETER, result);
    ComponentInfo stray = Template("Stray");
    EXPECT_EQ(ERR_PARAMETER, CMRemoveComponent(&stray));
    EXPECT_EQ(nullptr, CMGetNextComponent(&stray, &result));
    EXPECT_EQ(ERR_PARAMETER, result);
    CMGetComponentByName(nullptr, &result);
    EXPECT_EQ(ERR_PARAMETER, result);
    CMPID cmpId = 0;
    EXPECT_EQ(ERR_PARAMETER, CMGetCmpId(nullptr, &cmpId));
    EXPECT_EQ(ERR_PARAMETER, CMGetCmpId("CM", nullptr));
    EXPECT_EQ(ERR_PARAMETER, CMGetCmpName(0, nullptr, 10));
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMLoadComponent(nullptr, &result)));
    EXPECT_EQ(ERR_PARAMETER, result);
    // An all-ones record as memory: its state is 0xFFFF, which no operation accepts.
    ComponentInfo ones;
    std::memset(&ones, 0xFF, sizeof(ones));
    ones.pszName = "Ones";
    EXPECT_EQ(ERR_FAILED, CMInitComponent(&ones));
    EXPECT_EQ(ERR_FAILED, CMExitComponent(&ones));
    EXPECT_EQ(ERR_FAILED, CMUnloadComponent(&ones));
}

// A linked-in component loaded at run time is still marked dynamic; it is announced with hook 25
// before it is added, and waits in state 2 for its init hooks.
TEST_F(TableTest, LoadInitExitUnloadAtRunTime) {
    CMSetLinkedComponent("SysTarget", &TestCmpCEntry);
    R().Behaviour("TestCmpC").cmpId = CMPID_SysTarget;
    ASSERT_EQ(ERR_OK, Start({CmpA()}));
    R().Reset();
    RTS_RESULT result = ERR_FAILED;
    ComponentInfo *p = CMLoadComponent("SysTarget", &result);
    ASSERT_EQ(ERR_OK, result);
    EXPECT_EQ(CM_FLAG_DYNAMIC | CM_FLAG_ADDED, p->usFlags);
    EXPECT_EQ(CM_STATE_LOADED, p->usState);
    EXPECT_EQ(RTS_INVALID_HANDLE, p->hModule);
    EXPECT_EQ(0u, p->bStaticName);
    EXPECT_THAT(R().Trace(), ElementsAre("TestCmpC:entry", "TestCmpC:import", "TestCmpA:hook 25(SysTarget)"));
    EXPECT_TRUE(F().Logged("Dynamic: <cmp>SysTarget</cmp> init, <id>0x00000112</id> <version>1.2.3.4</version>"));
    EXPECT_EQ(p, CMLoadComponent("SysTarget", &result)); // already there
    EXPECT_EQ(ERR_OK, result);

    R().Reset();
    RTS_UI32 ulCurrent = CMGetCurrentHook();
    EXPECT_EQ(ERR_OK, CMInitComponent(p));
    EXPECT_THAT(R().Trace(),
                ElementsAre("TestCmpC:hook 2", "TestCmpC:hook 3", "TestCmpC:hook 7", "TestCmpC:hook 4",
                            "TestCmpC:hook 500", "TestCmpC:hook 5", "TestCmpC:hook 6", "TestCmpC:hook 1000",
                            "TestCmpA:hook 23(SysTarget)", "TestCmpC:hook 23(SysTarget)"));
    EXPECT_EQ(CM_STATE_RUNNING, p->usState);
    EXPECT_EQ(ulCurrent, CMGetCurrentHook());
    EXPECT_EQ(1u, F().LogWithInfo(49).size());
    EXPECT_EQ(ERR_FAILED, CMInitComponent(p)); // only from state 2

    R().Reset();
    EXPECT_EQ(ERR_OK, CMExitComponent(p));
    EXPECT_THAT(R().Trace(), ElementsAre("TestCmpA:hook 24(SysTarget)", "TestCmpC:hook 24(SysTarget)",
                                         "TestCmpC:hook 10", "TestCmpC:hook 11", "TestCmpC:hook 2200",
                                         "TestCmpC:hook 12", "TestCmpC:hook 13", "TestCmpC:hook 14"));
    EXPECT_EQ(CM_STATE_LOADED, p->usState);
    EXPECT_TRUE(F().Logged("Call <cmp>SysTarget</cmp> exit hooks"));
    EXPECT_EQ(ERR_FAILED, CMExitComponent(p)); // state 2

    R().Reset();
    EXPECT_EQ(ERR_OK, CMUnloadComponent(p));
    EXPECT_THAT(R().Trace(), ElementsAre("TestCmpA:hook 24(SysTarget)", "TestCmpC:hook 24(SysTarget)"));
    EXPECT_EQ(nullptr, Find("SysTarget"));
    EXPECT_EQ(0, F().memory["CM"]);
}

TEST_F(TableTest, ExitHookAnswers) {
    CMSetLinkedComponent("SysTarget", &TestCmpCEntry);
    TestCmpBehaviour &c = R().Behaviour("TestCmpC");
    AddAnswer(c, CH_EXIT_APPS, 5, -1);
    AddAnswer(c, CH_EXIT, 9, -1);
    ASSERT_EQ(ERR_OK, Start({}));
    ComponentInfo *p = CMLoadComponent("SysTarget", nullptr);
    ASSERT_EQ(ERR_OK, CMInitComponent(p));
    EXPECT_EQ(5u, CMExitComponent(p)); // the first nonzero answer before 14 wins
    ASSERT_EQ(ERR_OK, CMInitComponent(p));
    c.answers[0].nTimes = 0;           // hook 2200 answers 0 from now on
    EXPECT_EQ(9u, CMExitComponent(p)); // with all before 14 at 0, the answer to 14
}

struct LoadFailureCase {
    const char *pszCase;
    RTS_RESULT entryResult;
    RTS_RESULT exportResult;
    bool bImportFails;
    RTS_RESULT expected;
};

class LoadFailureTest : public TableTest, public ::testing::WithParamInterface<LoadFailureCase> {};

TEST_P(LoadFailureTest, NotAdded) {
    const LoadFailureCase &c = GetParam();
    CMSetLinkedComponent("SysTarget", &TestCmpDEntry);
    TestCmpBehaviour &d = R().Behaviour("TestCmpD");
    d.entryResult = c.entryResult;
    d.exportResult = c.exportResult;
    if (c.bImportFails)
        AddImport(d, "NoSuchFunction");
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_RESULT result = 99;
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMLoadComponent("SysTarget", &result))) << c.pszCase;
    EXPECT_EQ(c.expected, result) << c.pszCase;
    EXPECT_EQ(nullptr, Find("SysTarget"));
    if (c.entryResult != ERR_OK) {
        EXPECT_TRUE(F().Logged("Init function failed of <cmp>SysTarget</cmp>"));
    }
}

INSTANTIATE_TEST_SUITE_P(Cases, LoadFailureTest,
                         ::testing::Values(LoadFailureCase{"entry fails", 6, ERR_OK, false, 6},
                                           LoadFailureCase{"export fails", ERR_OK, ERR_FAILED, false, ERR_OK},
                                           LoadFailureCase{"import fails", ERR_OK, ERR_OK, true, ERR_OK}));

TEST_F(TableTest, LinkedNamesOnly) {
    EXPECT_EQ(ERR_OK, CMSetLinkedComponent("SysTarget", &TestCmpAEntry));
    EXPECT_EQ(ERR_OK, CMSetLinkedComponent("SysFile", &TestCmpAEntry));
    EXPECT_EQ(ERR_PARAMETER, CMSetLinkedComponent("SysTime", &TestCmpAEntry));
    EXPECT_EQ(ERR_PARAMETER, CMSetLinkedComponent(nullptr, &TestCmpAEntry));
    // Without a registration the linked-in name is not found (and no module is tried).
    CMSetLinkedComponent("SysTarget", nullptr);
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_RESULT result = ERR_OK;
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMLoadComponent("SysTarget", &result)));
    EXPECT_EQ(ERR_FAILED, result);
    EXPECT_FALSE(F().Logged("Cannot load module"));
}

// A record without an entry function leaves the table in the entry pass.
TEST_F(TableTest, EntryPassRemovesRecordsWithoutEntry) {
    ASSERT_EQ(ERR_OK, Start({CmpA()}));
    ASSERT_NE(nullptr, Add("NoEntry"));
    R().Reset();
    EXPECT_EQ(ERR_OK, kestrel::cm::EntryPass());
    EXPECT_EQ(nullptr, Find("NoEntry"));
    EXPECT_THAT(R().Trace(), ElementsAre("TestCmpA:hook 24(NoEntry)"));
}

// A component found by name in the settings, at keys Component.0, .1, .2 ...: the first two may be
// missing, the first gap after them ends the list.
TEST_F(TableTest, SettingsComponents) {
    CMSetLinkedComponent("SysTarget", &TestCmpCEntry);
    CMSetLinkedComponent("SysFile", &TestCmpDEntry);
    F().SetSetting("ComponentManager", "Component.2", "SysTarget");
    F().SetSetting("ComponentManager", "Component.4", "SysFile"); // after the gap at 3
    ASSERT_EQ(ERR_OK, Start({}));
    ComponentInfo *p = Find("SysTarget");
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(CM_FLAG_DYNAMIC | CM_FLAG_SYSTEM | CM_FLAG_ADDED, p->usFlags);
    EXPECT_EQ(0u, p->bStaticName);
    // Entered after hook 1, so hook 1 reaches it only through the second, dynamic-only call.
    EXPECT_EQ(kStartHooks, R().Hooks("TestCmpC"));
    // SysFile came in with the basic pass instead, as a static component.
    EXPECT_EQ(CM_FLAG_STATIC | CM_FLAG_SYSTEM | CM_FLAG_ADDED, Find("SysFile")->usFlags);
}

TEST_F(TableTest, SettingsComponentThatCannotBeFound) {
    F().SetSetting("ComponentManager", "Component.0", "SysTarget"); // linked-in name, not registered
    ASSERT_EQ(ERR_OK, Start({}));
    ExpectLog(12, LOG_ERROR, ERR_FAILED, "*** Error: Component <cmp>SysTarget</cmp> NOT loaded");
}

} // namespace
