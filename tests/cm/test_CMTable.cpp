// The component table: adding with its duplicate rule, name copies and flags; removing; the
// queries; run-time loading, init and exit of a single component; the components named in the
// settings; bad input of every kind.
#include <cstring>
#include <tuple>

#include "CMTestFixture.h"

using namespace kestrel::cmtest;
using ::testing::Each;

namespace {

class TableTest : public CMTest {
  protected:
    // The added record, or null if the table refused it (and why, in *pResult).
    static ComponentInfo *Add(const char *pszName, RTS_UI8 bStaticName = 1, RTS_UI16 usFlags = 0,
                              RTS_RESULT *pResult = nullptr) {
        ComponentInfo tmpl{};
        tmpl.hModule = RTS_INVALID_HANDLE;
        tmpl.pszName = pszName;
        tmpl.bStaticName = bStaticName;
        tmpl.usFlags = usFlags;
        tmpl.usState = CM_STATE_LOADED;
        RTS_RESULT result = ERR_FAILED;
        ComponentInfo *p = CMAddComponent(&tmpl, &result);
        if (pResult != nullptr)
            *pResult = result;
        EXPECT_EQ(result == ERR_OK, p != RTS_INVALID_HANDLE); // refused: the invalid record, never null
        return result == ERR_OK ? p : nullptr;
    }
};

// Only a record still waiting for its entry call is a duplicate. A name not static is copied (and
// freed on removal); a record marked existing is not marked added; the counter only grows. A record
// without an entry function leaves the table in the entry pass.
TEST_F(TableTest, AddAndRemove) {
    ASSERT_EQ(ERR_OK, Start({CmpA()}));
    RTS_I32 nBefore = CMGetNumOfComponents();
    char szName[] = "Copied";
    ComponentInfo *p = Add(szName, 0, CM_FLAG_STATIC);
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(CM_FLAG_STATIC | CM_FLAG_ADDED, p->usFlags);
    EXPECT_NE(szName, p->pszName);
    EXPECT_STREQ("Copied", p->pszName);
    EXPECT_EQ(static_cast<long>(sizeof(szName)), F().memory["CM"]);
    RTS_RESULT result = ERR_OK;
    EXPECT_EQ(nullptr, Add("Copied", 1, 0, &result));
    EXPECT_EQ(ERR_DUPLICATE, result);
    EXPECT_EQ(ERR_OK, CMRemoveComponent(p));
    EXPECT_EQ(0, F().memory["CM"]);
    EXPECT_EQ(nBefore + 1, CMGetNumOfComponents());
    p = Add("Marked", 1, CM_FLAG_MARK_EXISTING);
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(CM_FLAG_MARK_EXISTING, p->usFlags);
    p->usState = CM_STATE_RUNNING;
    EXPECT_NE(nullptr, Add("Marked"));
    R().Reset();
    EXPECT_EQ(ERR_OK, kestrel::cm::EntryPass());
    EXPECT_THAT(Names(), ::testing::EndsWith(" TestCmpA Marked")); // the one in state 2 went
    EXPECT_EQ("A:24(Marked)", R().Trace());
}

// Without the memory service a name that is not static cannot be copied, and the record is refused.
TEST_F(TableTest, NameCopyNeedsTheMemoryService) {
    F().withheld.insert("SysMemAllocData");
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_RESULT result = ERR_OK;
    EXPECT_EQ(nullptr, Add("Copied", 0, 0, &result));
    EXPECT_EQ(ERR_NOMEMORY, result);
    EXPECT_EQ(nullptr, Find("Copied"));
}

// The table holds 40 records in its own area and grows by single blocks beyond that (running, they
// are unloaded with the static group at shut-down, before the pools are cleaned up).
TEST_F(TableTest, GrowsBeyondItsStaticArea) {
    ASSERT_EQ(ERR_OK, Start({}));
    std::vector<std::string> names;
    for (int i = 0; i < 50; ++i)
        names.push_back("Grow" + std::to_string(i));
    for (const std::string &name : names) {
        ComponentInfo *p = Add(name.c_str(), 1, CM_FLAG_STATIC);
        ASSERT_NE(nullptr, p) << name;
        p->usState = CM_STATE_RUNNING;
    }
    EXPECT_THAT(Names(), ::testing::EndsWith(" Grow48 Grow49"));
}

// Lookups by name are case-sensitive; index and first/next walk the same order.
TEST_F(TableTest, Queries) {
    R().Behaviour("TestCmpA").cmpId = 0x7001;
    ASSERT_EQ(ERR_OK, Start({CmpA()}));
    ComponentInfo *pA = Find("TestCmpA");
    CMPID cmpId = 0;
    EXPECT_EQ(ERR_OK, CMGetCmpId("TestCmpA", &cmpId));
    EXPECT_EQ(0x7001u, cmpId);
    EXPECT_EQ(ERR_FAILED, CMGetCmpId("testcmpa", &cmpId));
    EXPECT_EQ(pA, CMGetComponent(0x7001));
    EXPECT_EQ(nullptr, CMGetComponent(0x7999));
    RTS_RESULT result = ERR_OK;
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMGetComponentByName("TESTCMPA", &result)));
    EXPECT_EQ(ERR_FAILED, result);
    RTS_I32 i = 0;
    for (ComponentInfo *p = CMGetFirstComponent(&result); p != nullptr; p = CMGetNextComponent(p, &result))
        EXPECT_EQ(p, CMGetComponentByIndex(i++));
    EXPECT_EQ(ERR_NO_OBJECT, result);
    EXPECT_EQ(nullptr, CMGetComponentByIndex(i));
    EXPECT_EQ(nullptr, CMGetComponentByIndex(CMGetNumOfComponents())); // counts every record ever added
    EXPECT_EQ(nullptr, CMGetComponentByIndex(-1));
}

// CMGetCmpName: 0 is the CM; ids of the IEC range name IEC code; never beyond the given size, and
// an unknown id leaves the buffer untouched.
TEST_F(TableTest, CmpNames) {
    R().Behaviour("TestCmpB").cmpId = 0x7002;
    ASSERT_EQ(ERR_OK, Start({CmpB()}));
    for (auto [cmpId, nSize, result, pszText] :
         {std::make_tuple(0u, 10u, ERR_OK, "CM"), std::make_tuple(0x7002u, 10u, ERR_OK, "TestCmpB"),
          std::make_tuple(0x7002u, 5u, ERR_BUFFERSIZE, "Test"), std::make_tuple(0x1000u, 10u, ERR_OK, "IEC"),
          std::make_tuple(0x1005u, 20u, ERR_OK, "IEC=0x00001005"),
          std::make_tuple(0x1005u, 8u, ERR_BUFFERSIZE, "IEC=0x0"), std::make_tuple(0x2000u, 10u, ERR_FAILED, "")}) {
        char szBuffer[40];
        std::memset(szBuffer, '#', sizeof(szBuffer));
        szBuffer[sizeof(szBuffer) - 1] = '\0';
        EXPECT_EQ(result, CMGetCmpName(cmpId, szBuffer, nSize)) << cmpId;
        EXPECT_EQ(*pszText != '\0' ? std::string(pszText) : std::string(39, '#'), szBuffer) << cmpId;
        EXPECT_EQ('#', szBuffer[nSize]) << cmpId;
    }
}

// Every record operation refuses the all-ones record and null arguments with 2; a record in a
// state no operation accepts (all ones in memory) fails with 1.
TEST_F(TableTest, BadRecordsAndNames) {
    ASSERT_EQ(ERR_OK, Start({}));
    auto *pBad = static_cast<ComponentInfo *>(RTS_INVALID_HANDLE);
    ComponentInfo stray{};
    stray.pszName = "Stray";
    RTS_RESULT rAdd = ERR_OK, rUnnamed = ERR_OK, rNext = ERR_OK, rStray = ERR_OK, rName = ERR_OK, rLoad = ERR_OK;
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMAddComponent(pBad, &rAdd)));
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMAddComponent(nullptr, nullptr)));
    EXPECT_EQ(nullptr, Add(nullptr, 1, 0, &rUnnamed));
    EXPECT_EQ(nullptr, CMGetNextComponent(pBad, &rNext));
    EXPECT_EQ(nullptr, CMGetNextComponent(&stray, &rStray));
    CMGetComponentByName(nullptr, &rName);
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMLoadComponent(nullptr, &rLoad)));
    CMPID cmpId = 0;
    EXPECT_THAT((std::vector<RTS_RESULT>{rAdd, rUnnamed, rNext, rStray, rName, rLoad, CMRemoveComponent(pBad),
                                         CMUnloadComponent(pBad), CMInitComponent(pBad), CMExitComponent(pBad),
                                         CMRemoveComponent(&stray), CMGetCmpId(nullptr, &cmpId),
                                         CMGetCmpId("CM", nullptr), CMGetCmpName(0, nullptr, 10)}),
                Each(ERR_PARAMETER));
    ComponentInfo ones;
    std::memset(&ones, 0xFF, sizeof(ones));
    ones.pszName = "Ones";
    EXPECT_THAT((std::vector<RTS_RESULT>{CMInitComponent(&ones), CMExitComponent(&ones), CMUnloadComponent(&ones)}),
                Each(ERR_FAILED));
}

// A linked-in component loaded at run time is marked dynamic, announced with hook 25 before it is
// added, and waits in state 2 for its init hooks; exit and unload are announced with hook 24.
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
    EXPECT_EQ("C:entry C:import A:25(SysTarget)", R().Trace());
    EXPECT_EQ(1, F().Logged("Dynamic: <cmp>SysTarget</cmp> init, <id>0x00000112</id> <version>1.2.3.4</version>"));
    EXPECT_EQ(p, CMLoadComponent("SysTarget", &result)); // already there
    EXPECT_EQ(ERR_OK, result);
    R().Reset();
    EXPECT_EQ(ERR_OK, CMInitComponent(p));
    EXPECT_EQ("C:2 C:3 C:7 C:4 C:500 C:5 C:6 C:1000 A:23(SysTarget) C:23(SysTarget)", R().Trace());
    EXPECT_EQ(CM_STATE_RUNNING, p->usState);
    ExpectLog(49, LOG_INFO, ERR_OK, "Call <cmp>SysTarget</cmp> init hooks");
    EXPECT_EQ(ERR_FAILED, CMInitComponent(p)); // only from state 2
    R().Reset();
    EXPECT_EQ(ERR_OK, CMExitComponent(p));
    EXPECT_EQ("A:24(SysTarget) C:24(SysTarget) C:10 C:11 C:2200 C:12 C:13 C:14", R().Trace());
    EXPECT_EQ(CM_STATE_LOADED, p->usState);
    ExpectLog(50, LOG_INFO, ERR_OK, "Call <cmp>SysTarget</cmp> exit hooks");
    EXPECT_EQ(ERR_FAILED, CMExitComponent(p)); // state 2
    R().Reset();
    EXPECT_EQ(ERR_OK, CMUnloadComponent(p));
    EXPECT_EQ("A:24(SysTarget) C:24(SysTarget)", R().Trace());
    EXPECT_EQ(nullptr, Find("SysTarget"));
    EXPECT_EQ(0, F().memory["CM"]);
}

// CMExitComponent answers the first nonzero answer of the hooks before 14, else the answer to 14.
TEST_F(TableTest, ExitHookAnswers) {
    CMSetLinkedComponent("SysTarget", &TestCmpCEntry);
    TestCmpBehaviour &c = R().Behaviour("TestCmpC");
    AddAnswer(c, CH_EXIT_APPS, 5, -1);
    AddAnswer(c, CH_EXIT, 9, -1);
    ASSERT_EQ(ERR_OK, Start({}));
    ComponentInfo *p = CMLoadComponent("SysTarget", nullptr);
    ASSERT_EQ(ERR_OK, CMInitComponent(p));
    EXPECT_EQ(5u, CMExitComponent(p));
    ASSERT_EQ(ERR_OK, CMInitComponent(p));
    c.answers[0].nTimes = 0; // hook 2200 answers 0 from now on
    EXPECT_EQ(9u, CMExitComponent(p));
}

// A component whose export or import callback fails at run-time loading is not added, while the
// caller hears the entry's result (0).
TEST_F(TableTest, LoadWithFailingExportsOrImports) {
    CMSetLinkedComponent("SysTarget", &TestCmpDEntry);
    for (bool bImportFails : {false, true}) {
        R().behaviours.clear();
        TestCmpBehaviour &d = R().Behaviour("TestCmpD");
        d.exportResult = bImportFails ? ERR_OK : ERR_FAILED;
        if (bImportFails)
            AddImport(d, "NoSuchFunction");
        ASSERT_EQ(ERR_OK, Start({}));
        RTS_RESULT result = 99;
        EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMLoadComponent("SysTarget", &result)));
        EXPECT_EQ(ERR_OK, result);
        EXPECT_EQ(nullptr, Find("SysTarget"));
        Stop();
    }
}

// Only SysTarget, SysFile and CmpMemPool are linked-in names; one not registered is not found, and
// no module is tried.
TEST_F(TableTest, LinkedNamesOnly) {
    EXPECT_EQ(ERR_OK, CMSetLinkedComponent("SysFile", &TestCmpAEntry));
    EXPECT_EQ(ERR_PARAMETER, CMSetLinkedComponent("SysTime", &TestCmpAEntry));
    EXPECT_EQ(ERR_PARAMETER, CMSetLinkedComponent(nullptr, &TestCmpAEntry));
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_RESULT result = ERR_OK;
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMLoadComponent("SysTarget", &result)));
    EXPECT_EQ(ERR_FAILED, result);
    EXPECT_EQ(0, F().Logged("Cannot load module"));
}

// Components named in the settings at keys Component.0, .1, ...: the first two may be missing, the
// first gap after them ends the list; a "Sys" name is a system component.
TEST_F(TableTest, SettingsComponents) {
    CMSetLinkedComponent("SysTarget", &TestCmpCEntry);
    CMSetLinkedComponent("SysFile", &TestCmpDEntry);
    F().SetSetting("ComponentManager", "Component.0", "CmpMemPool"); // already there
    F().SetSetting("ComponentManager", "Component.2", "SysTarget");
    F().SetSetting("ComponentManager", "Component.4", "AfterTheGap");
    ASSERT_EQ(ERR_OK, Start({}));
    EXPECT_EQ(CM_FLAG_DYNAMIC | CM_FLAG_SYSTEM | CM_FLAG_ADDED, Find("SysTarget")->usFlags);
    EXPECT_EQ(0u, Find("SysTarget")->bStaticName);
    EXPECT_EQ(kStartHooks, R().Hooks("TestCmpC")); // hook 1 from the second, dynamic-only call
    EXPECT_EQ("", Log(12));
    // SysFile came in with the basic pass instead, as a static component.
    EXPECT_EQ(CM_FLAG_STATIC | CM_FLAG_SYSTEM | CM_FLAG_ADDED, Find("SysFile")->usFlags);
    Stop();
    CMSetLinkedComponent("SysTarget", nullptr); // a linked-in name not linked in cannot be found
    ASSERT_EQ(ERR_OK, Start({}));
    ExpectLog(12, LOG_ERROR, ERR_FAILED, "*** Error: Component <cmp>SysTarget</cmp> NOT loaded");
}

} // namespace
