// Start-up of the component manager: the passes of CMInit3 in their order, the result rules, the
// settings file and settings, the basic components, the banner and component list, safe mode, the
// events and CMInitEnd.
#include <string>
#include <vector>

#include "CMTestFixture.h"

using namespace kestrel::cmtest;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

namespace {

class StartupTest : public CMTest {};

// A system component (B, by its system word) and an ordinary one (A): entry calls, import passes
// and hooks arrive in the order of the passes.
TEST_F(StartupTest, PassesRunInTheirOrder) {
    ASSERT_EQ(ERR_OK, Start({CmpA(), CmpB(1)}));
    std::vector<std::string> expected = {
        "TestCmpB:entry",  "TestCmpB:import", // system pass, its entry pass and import pass
        "TestCmpA:entry",                     // full pass and entry pass
        "TestCmpB:hook 1", "TestCmpA:hook 1", // hook 1 to all
        "TestCmpB:import",                    // import pass over system components
        "TestCmpB:hook 8", "TestCmpA:hook 8", // hook 8
        "TestCmpB:import", "TestCmpA:import", // final import pass
    };
    for (std::size_t i = 2; i < kStartHooks.size(); ++i) // hook 2 and those of CMInitEnd
        for (const char *pszCmp : {"TestCmpB", "TestCmpA"})
            expected.push_back(std::string(pszCmp) + ":hook " + std::to_string(kStartHooks[i]));
    EXPECT_THAT(R().Kinds({"entry", "import", "hook"}), ElementsAreArray(expected));
    EXPECT_EQ(CM_STATE_RUNNING, Find("TestCmpA")->usState);
    EXPECT_EQ(CM_STATE_RUNNING, Find("TestCmpB")->usState);
}

// The basic components come first, in their fixed order, then the system pass, then the rest.
TEST_F(StartupTest, TableOrderFollowsThePasses) {
    ASSERT_EQ(ERR_OK, Start({CmpA(), {"SysTestB", &TestCmpBEntry, 0}}));
    // SysFile is not linked into the test program, so the basic pass leaves it out.
    EXPECT_THAT(Names(),
                ElementsAre("CM", "CmpMemPool", "CmpLog", "CmpSettings", "SysTestServices", "SysTestB", "TestCmpA"));
    EXPECT_EQ(CM_FLAG_STATIC | CM_FLAG_SYSTEM | CM_FLAG_ADDED, Find("CM")->usFlags);
    EXPECT_EQ(CM_FLAG_STATIC | CM_FLAG_SYSTEM | CM_FLAG_ADDED, Find("SysTestB")->usFlags);
    EXPECT_EQ(CM_FLAG_STATIC | CM_FLAG_ADDED, Find("TestCmpA")->usFlags);
    EXPECT_EQ(RTS_INVALID_HANDLE, Find("TestCmpA")->hModule);
    EXPECT_EQ(1u, Find("CM")->bStaticName);
    // The missing basic component is a failure of the secondary result, which CMInit3 never returns.
    EXPECT_NE(ERR_OK, kestrel::cm::SecondaryResult());
}

TEST_F(StartupTest, CMComponentAnswersWithItsIdentity) {
    ASSERT_EQ(ERR_OK, Start({}));
    ComponentInfo *pCM = Find("CM");
    ASSERT_NE(nullptr, pCM);
    EXPECT_EQ(CMPID_CM, pCM->CmpId);
    EXPECT_EQ(RTS_SYSTEM_VERSION, pCM->ulVersion);
    EXPECT_EQ(&CMEntry, pCM->pfEntry);
    RTS_RESULT result = ERR_OK;
    EXPECT_EQ(nullptr, pCM->pfCreateInstance(1, &result));
    EXPECT_EQ(ERR_NOTIMPLEMENTED, pCM->pfDeleteInstance(nullptr));
    ComponentInfo *pPool = Find("CmpMemPool");
    ASSERT_NE(nullptr, pPool);
    EXPECT_EQ(CMPID_CmpMemPool, pPool->CmpId);
    EXPECT_EQ(&CmpMemPoolEntry, pPool->pfEntry);
}

// A caller's list entry named after a basic component, or after it with "Embedded" or "Flash",
// supplies the basic component's entry; any other suffix does not.
struct BasicEntryCase {
    const char *pszListName;
    bool bSupplies;
};

class BasicEntryTest : public CMTest, public ::testing::WithParamInterface<BasicEntryCase> {};

TEST_P(BasicEntryTest, SuffixRule) {
    const BasicEntryCase &c = GetParam();
    EXPECT_EQ(ERR_OK, Start({{"CmpSettings", &FakeSettingsEntry, 0},
                             {"SysTestServices", &FakeServicesEntry, 0},
                             {c.pszListName, &TestCmpAEntry, 0}},
                            CM_INIT_SETTINGS_OPTIONAL, nullptr, false));
    ComponentInfo *pLog = Find("CmpLog");
    if (!c.bSupplies) {
        EXPECT_TRUE(pLog == nullptr || pLog->pfEntry != &TestCmpAEntry);
        return;
    }
    ASSERT_NE(nullptr, pLog);
    EXPECT_EQ(&TestCmpAEntry, pLog->pfEntry);
    EXPECT_EQ(CM_FLAG_STATIC | CM_FLAG_SYSTEM, pLog->usFlags & 0xFF);
    EXPECT_EQ(1u, pLog->bStaticName);
    // A variant name also stays in the list under its own name: the full pass adds it once more.
    if (std::string(c.pszListName) != "CmpLog") {
        ASSERT_NE(nullptr, Find(c.pszListName));
        EXPECT_EQ(CM_FLAG_STATIC | CM_FLAG_ADDED, Find(c.pszListName)->usFlags);
    }
}

INSTANTIATE_TEST_SUITE_P(Names, BasicEntryTest,
                         ::testing::Values(BasicEntryCase{"CmpLog", true}, BasicEntryCase{"CmpLogEmbedded", true},
                                           BasicEntryCase{"CmpLogFlash", true}, BasicEntryCase{"CmpLogX", false},
                                           BasicEntryCase{"CmpLogFlashX", false}));

// CMInit2 narrows flags 2 to 1 (settings optional), so start-up finishes inside the call; CMInit
// insists on a settings file, fails without one, but starts all the same.
TEST_F(StartupTest, OlderEntryPoints) {
    list_ = List({CmpA()});
    running_ = true;
    EXPECT_EQ(ERR_OK, CMInit2(nullptr, list_.data(), CM_INIT_NO_INIT_END));
    EXPECT_TRUE(F().databaseTries.empty());
    EXPECT_EQ(CH_INIT_DONE, R().Hooks("TestCmpA").back());
    EXPECT_EQ(CM_STATE_RUNNING, Find("TestCmpA")->usState);
    Stop();
    R().Reset();
    running_ = true;
    EXPECT_EQ(ERR_FAILED, CMInit(nullptr, list_.data()));
    EXPECT_EQ(CH_INIT_DONE, R().Hooks("TestCmpA").back());
}

TEST_F(StartupTest, CMInit3WithFlag2LeavesCMInitEndToTheCaller) {
    ASSERT_EQ(ERR_OK, Start({CmpA()}, CM_INIT_SETTINGS_OPTIONAL | CM_INIT_NO_INIT_END));
    EXPECT_EQ(CH_INIT2, R().Hooks("TestCmpA").back());
    EXPECT_EQ(CM_STATE_INITIALIZED, Find("TestCmpA")->usState);
    R().Reset();
    EXPECT_EQ(ERR_OK, CMInitEnd());
    EXPECT_THAT(R().Hooks("TestCmpA"), ElementsAreArray(kStartHooks.begin() + 3, kStartHooks.end()));
    EXPECT_EQ(CM_STATE_RUNNING, Find("TestCmpA")->usState);
    ExpectLog(34, LOG_INFO, ERR_OK, "KESTREL Control ready");
    R().Reset();
    EXPECT_EQ(ERR_DUPLICATE, CMInitEnd());
    EXPECT_TRUE(R().Hooks("TestCmpA").empty());
}

TEST_F(StartupTest, StopWordKeepsCMInitEndBack) {
    R().Behaviour("TestCmpA").bSetStopWord = 1;
    ASSERT_EQ(ERR_OK, Start({CmpA(), CmpB()}));
    EXPECT_EQ(CH_INIT2, R().Hooks("TestCmpA").back());
    EXPECT_EQ(CH_INIT2, R().Hooks("TestCmpB").back());
    EXPECT_TRUE(F().LogWithInfo(34).empty());
    EXPECT_EQ(ERR_OK, CMInitEnd());
    EXPECT_EQ(CH_INIT_DONE, R().Hooks("TestCmpB").back());
}

// The settings file: tries, fallbacks, and the log line of a missing file.
struct SettingsCase {
    const char *pszFile;
    RTS_UI32 ulFlags;
    std::vector<std::string> accepted;
    std::vector<std::string> tries;
    RTS_RESULT result;
    const char *pszLogged; // file name in "Cannot find configuration", or null
};

class SettingsFileTest : public CMTest, public ::testing::WithParamInterface<SettingsCase> {};

TEST_P(SettingsFileTest, TriesAndResult) {
    const SettingsCase &c = GetParam();
    for (const std::string &name : c.accepted)
        F().acceptedDatabases.insert(name);
    EXPECT_EQ(c.result, Start({}, c.ulFlags, c.pszFile));
    EXPECT_EQ(c.tries, F().databaseTries);
    if (c.pszLogged == nullptr) {
        EXPECT_TRUE(F().LogWithInfo(3).empty());
    } else { // with the last failure
        ExpectLog(3, LOG_ERROR, ERR_NO_OBJECT,
                  std::string("Cannot find configuration <file>") + c.pszLogged + "</file>");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SettingsFileTest,
    ::testing::Values(
        SettingsCase{nullptr, 0, {}, {"KESTRELControl", "KestrelSP", "KestrelControl"}, ERR_FAILED, "KESTRELControl"},
        SettingsCase{nullptr, 0, {"KestrelSP"}, {"KESTRELControl", "KestrelSP"}, ERR_OK, nullptr},
        SettingsCase{nullptr, CM_INIT_SETTINGS_OPTIONAL, {}, {}, ERR_OK, nullptr},
        SettingsCase{"my.cfg", 0, {"my.cfg"}, {"my.cfg"}, ERR_OK, nullptr},
        SettingsCase{"my.cfg", 0, {"KestrelControl"}, {"my.cfg", "KESTRELControl", "KestrelControl"}, ERR_OK, nullptr},
        SettingsCase{"my.cfg", 0, {}, {"my.cfg", "KESTRELControl", "KestrelControl"}, ERR_FAILED, "my.cfg"},
        SettingsCase{"x/GWClient.cfg", 0, {}, {"x/GWClient.cfg", "KESTRELControl", "KestrelControl"}, ERR_OK, nullptr},
        SettingsCase{"my.cfg", CM_INIT_SETTINGS_OPTIONAL, {}, {"my.cfg"}, ERR_OK, nullptr}));

TEST_F(StartupTest, SettingsFileWithoutSettingsComponent) {
    F().withheld.insert("SettgSetDatabaseName");
    EXPECT_EQ(ERR_FAILED, Start({}, 0, "my.cfg"));
    Stop();
    EXPECT_EQ(ERR_OK, Start({}, CM_INIT_SETTINGS_OPTIONAL, "my.cfg"));
    EXPECT_TRUE(F().databaseTries.empty());
}

// The second read of the split-databases option decides.
struct SplitCase {
    const char *pszFirst;
    const char *pszSecond;
    RTS_UI32 ulOptions;
};

class SplitDatabasesTest : public CMTest, public ::testing::WithParamInterface<SplitCase> {};

TEST_P(SplitDatabasesTest, SecondReadDecides) {
    const SplitCase &c = GetParam();
    if (c.pszFirst != nullptr)
        F().SetSetting("ComponentManager", "CmpSettings.SplitDatabases", c.pszFirst);
    if (c.pszSecond != nullptr)
        F().SetSetting("CmpSettings", "SplitDatabases", c.pszSecond);
    ASSERT_EQ(ERR_OK, Start({}));
    EXPECT_THAT(F().optionsSet, ElementsAre(c.ulOptions));
}

INSTANTIATE_TEST_SUITE_P(Cases, SplitDatabasesTest,
                         ::testing::Values(SplitCase{nullptr, nullptr, 0}, SplitCase{"1", nullptr, 0},
                                           SplitCase{nullptr, "1", 1}, SplitCase{"0", "1", 1}, SplitCase{"1", "0", 0}));

TEST_F(StartupTest, FailingEntryDisablesTheComponentAndFailsStartup) {
    R().Behaviour("TestCmpA").entryResult = 7;
    EXPECT_EQ(ERR_FAILED, Start({CmpA(), CmpB()}));
    EXPECT_THAT(R().Trace("TestCmpA"), ElementsAre("TestCmpA:entry"));
    EXPECT_EQ(CM_STATE_DISABLED, Find("TestCmpA")->usState);
    EXPECT_EQ(nullptr, Find("TestCmpA")->pfHookFunction);
    // The others start as usual.
    EXPECT_EQ(CH_INIT_DONE, R().Hooks("TestCmpB").back());
}

// A component whose imports fail in the final pass is disabled and switches start-up to safe
// mode, which disables the components that need a complete runtime; the import result is returned.
TEST_F(StartupTest, FailingImportSwitchesToSafeMode) {
    AddImport(R().Behaviour("TestCmpA"), "NoSuchFunction");
    R().Behaviour("TestCmpB").cmpId = 0x12;
    R().Behaviour("TestCmpC").cmpId = 0x7003;
    EXPECT_EQ(ERR_FAILED, Start({CmpA(), CmpB(), CmpC()}));
    EXPECT_EQ(CM_STATE_DISABLED, Find("TestCmpA")->usState);
    EXPECT_EQ(CM_STATE_DISABLED, Find("TestCmpB")->usState);
    EXPECT_EQ(CM_STATE_RUNNING, Find("TestCmpC")->usState);
    // Disabled components receive nothing after the import pass.
    EXPECT_EQ(CH_INIT_SYSTEM, R().Hooks("TestCmpA").back());
    EXPECT_EQ(CH_INIT_SYSTEM, R().Hooks("TestCmpB").back());
    EXPECT_EQ(CH_INIT_DONE, R().Hooks("TestCmpC").back());
    EXPECT_TRUE(F().Logged("Failed to resolve <name>NoSuchFunction</name>"));
    EXPECT_TRUE(F().Logged("Import function(s) failed of <name>TestCmpA</name>"));
    ExpectLog(69, LOG_ERROR, ERR_FAILED, "Resolving components failed. Switch to safe mode!");
    EXPECT_TRUE(F().Logged("Safe mode disabled: <cmp>TestCmpB</cmp>"));
}

// Imports that fail in an early pass only disable the component; the caller does not hear of it.
// The full pass then finds the name disabled rather than loaded and adds the component once more,
// as an ordinary component that starts normally.
TEST_F(StartupTest, EarlyImportFailureDisablesWithoutFailingStartup) {
    AddImport(R().Behaviour("TestCmpB"), "TestCmpAFn");
    EXPECT_EQ(ERR_OK, Start({CmpB(1), CmpA()}));
    std::vector<ComponentInfo *> records;
    for (ComponentInfo *p = CMGetFirstComponent(nullptr); p != nullptr; p = CMGetNextComponent(p, nullptr))
        if (std::string(p->pszName) == "TestCmpB")
            records.push_back(p);
    ASSERT_EQ(2u, records.size());
    EXPECT_EQ(CM_STATE_DISABLED, records[0]->usState);
    EXPECT_EQ(CM_FLAG_STATIC | CM_FLAG_SYSTEM | CM_FLAG_ADDED, records[0]->usFlags);
    EXPECT_EQ(CM_STATE_RUNNING, records[1]->usState);
    EXPECT_EQ(CM_FLAG_STATIC | CM_FLAG_ADDED, records[1]->usFlags);
    EXPECT_EQ(1, F().Logged("Import function(s) failed of <name>TestCmpB</name>"));
    EXPECT_TRUE(F().LogWithInfo(69).empty());
    EXPECT_THAT(R().Trace("TestCmpB"),
                ElementsAre("TestCmpB:entry", "TestCmpB:import", "TestCmpB:entry", "TestCmpB:hook 1", "TestCmpB:import",
                            "TestCmpB:hook 8", "TestCmpB:import", "TestCmpB:import", "TestCmpB:hook 2",
                            "TestCmpB:hook 3", "TestCmpB:hook 7", "TestCmpB:hook 4", "TestCmpB:hook 500",
                            "TestCmpB:hook 5", "TestCmpB:hook 6", "TestCmpB:hook 1000"));
}

TEST_F(StartupTest, BannerAndComponentList) {
    R().Behaviour("TestCmpA").ulVersion = RTS_MAKE_VERSION(1, 2, 3, 4);
    R().Behaviour("TestCmpA").cmpId = 0x7001;
    R().Behaviour("TestCmpB").cmpId = 0x7002;
    R().Behaviour("TestCmpB").entryResult = 1;
    ASSERT_NE(ERR_OK, Start({CmpA(), {"SysTestB", &TestCmpBEntry, 0}}));
    ExpectLog(4, LOG_INFO, ERR_OK, "KESTREL Control V3");
    ASSERT_EQ(1u, F().LogWithInfo(5).size());
    ASSERT_EQ(1u, F().LogWithInfo(6).size());
    EXPECT_EQ(0u, F().LogWithInfo(6)[0].text.find("<version>3.5.5.0</version> <builddate>"));
    int nSeparators = 0;
    for (const LogLine &line : F().log)
        if (line.text == std::string(71, '=') && line.ulClass == LOG_PRINT && line.ulInfoId == 0)
            ++nSeparators;
    EXPECT_EQ(2, nSeparators);

    std::vector<std::string> list;
    for (const LogLine &line : F().LogWithInfo(7))
        list.push_back(line.text);
    EXPECT_THAT(list, ElementsAre("System: <cmp>CM</cmp> init, <id>0x00000001</id> <ver>3.5.5.0</ver>",
                                  "System: <cmp>CmpMemPool</cmp> init, <id>0x0000001e</id> <ver>3.5.5.0</ver>",
                                  "System: <cmp>CmpLog</cmp> init, <id>0x00000101</id> <ver>3.5.5.0</ver>",
                                  "System: <cmp>CmpSettings</cmp> init, <id>0x00000108</id> <ver>3.5.5.0</ver>",
                                  "System: <cmp>SysTestServices</cmp> init, <id>0x00000013</id> <ver>3.5.5.0</ver>",
                                  "[DISABLED] System: <cmp>SysTestB</cmp> init, <id>0x00000000</id> <ver>0.0.0.0</ver>",
                                  "<cmp>TestCmpA</cmp> init, <id>0x00007001</id> <ver>1.2.3.4</ver>",
                                  // Disabled, the name does not keep the full pass from adding it again.
                                  "[DISABLED] <cmp>SysTestB</cmp> init, <id>0x00000000</id> <ver>0.0.0.0</ver>"));
}

TEST_F(StartupTest, NothingIsPrintedWithoutLogger) {
    F().withheld.insert("LogAdd");
    ASSERT_EQ(ERR_OK, Start({CmpA()}));
    EXPECT_TRUE(F().log.empty());
}

TEST_F(StartupTest, ComponentWithoutVersionCallbackHasVersionZero) {
    R().Behaviour("TestCmpA").bNoGetVersion = 1;
    ASSERT_EQ(ERR_OK, Start({CmpA()}));
    EXPECT_EQ(0u, Find("TestCmpA")->ulVersion);
    EXPECT_EQ(nullptr, Find("TestCmpA")->pfGetVersion);
}

TEST_F(StartupTest, SixEventsAreCreatedInOrder) {
    ASSERT_EQ(ERR_OK, Start({}));
    std::vector<EVENTID> ids;
    for (FakeEvent *pEvent : F().events) {
        ids.push_back(pEvent->eventId);
        EXPECT_EQ(CMPID_CM, pEvent->cmpId);
    }
    EXPECT_THAT(ids, ElementsAre(0x10001u, 0x10002u, 0x10003u, 0x10005u, 0x10004u, 0x10006u));
}

} // namespace
