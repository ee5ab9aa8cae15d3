// Start-up and shut-down of the component manager: the passes of CMInit3 and the hooks of CMExit in
// their order, the result rules, the settings file and settings, the basic components, the log
// lines, safe mode, the basic platform checks and the CM's static pools.
#include <algorithm>
#include <tuple>

#include "CMBasicChecks.h"
#include "CMTestFixture.h"

using namespace kestrel::cmtest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

namespace {

using StartupTest = CMTest;

// The banner and the component list, by pass and in table order. A failing entry disables its
// component (the full pass adds the name again) and fails start-up.
TEST_F(StartupTest, TableBannerAndComponentList) {
    R().Behaviour("TestCmpA").cmpId = 0x7001;
    R().Behaviour("TestCmpB").entryResult = 1;
    R().Behaviour("TestCmpC").bNoGetVersion = 1;
    ASSERT_EQ(ERR_FAILED, Start({CmpA(), {"SysTestB", &TestCmpBEntry, 0}, CmpC()}));
    ExpectLog(4, LOG_INFO, ERR_OK, "KESTREL Control V3");
    EXPECT_THAT(Log(6), ::testing::StartsWith("<version>3.5.5.0</version> <builddate>"));
    EXPECT_EQ(std::string(71, '=') + "\n" + std::string(71, '=') + "\n", Log(0)); // of class LOG_PRINT
    EXPECT_EQ(LOG_PRINT, F().log[0].ulClass);
    EXPECT_EQ("System: <cmp>CM</cmp> init, <id>0x00000001</id> <ver>3.5.5.0</ver>\n"
              "System: <cmp>CmpMemPool</cmp> init, <id>0x0000001e</id> <ver>3.5.5.0</ver>\n"
              "System: <cmp>CmpLog</cmp> init, <id>0x00000101</id> <ver>3.5.5.0</ver>\n"
              "System: <cmp>CmpSettings</cmp> init, <id>0x00000108</id> <ver>3.5.5.0</ver>\n"
              "System: <cmp>SysTestServices</cmp> init, <id>0x00000013</id> <ver>3.5.5.0</ver>\n"
              "[DISABLED] System: <cmp>SysTestB</cmp> init, <id>0x00000000</id> <ver>0.0.0.0</ver>\n"
              "<cmp>TestCmpA</cmp> init, <id>0x00007001</id> <ver>1.2.3.4</ver>\n"
              "[DISABLED] <cmp>SysTestB</cmp> init, <id>0x00000000</id> <ver>0.0.0.0</ver>\n"
              "<cmp>TestCmpC</cmp> init, <id>0x00000000</id> <ver>0.0.0.0</ver>\n",
              Log(7));
}

// A list entry named after a basic component plus "Embedded" or "Flash" supplies its entry (and
// stays in the list under its own name); another suffix does not.
class BasicEntryTest : public CMTest, public ::testing::WithParamInterface<std::tuple<const char *, bool>> {};

TEST_P(BasicEntryTest, SuffixRule) {
    auto [pszListName, bSupplies] = GetParam();
    EXPECT_EQ(ERR_OK, Start({{"CmpSettings", &FakeSettingsEntry, 0},
                             {"SysTestServices", &FakeServicesEntry, 0},
                             {pszListName, &TestCmpAEntry, 0}},
                            CM_INIT_SETTINGS_OPTIONAL, nullptr, false));
    EXPECT_EQ(bSupplies, Find("CmpLog") != nullptr && Find("CmpLog")->pfEntry == &TestCmpAEntry);
    EXPECT_NE(nullptr, Find(pszListName));
}

INSTANTIATE_TEST_SUITE_P(Names, BasicEntryTest,
                         ::testing::Values(std::make_tuple("CmpLogEmbedded", true),
                                           std::make_tuple("CmpLogFlash", true),
                                           std::make_tuple("CmpLogFlashX", false)));

// CMInit2 narrows its flags to 1 (settings optional: flag 2 does not keep CMInitEnd back); CMInit
// insists on a settings file, fails without one, but starts all the same. The word of hook 2, or
// CMInit3's flag 2, leaves CMInitEnd's seven hooks to the caller; again, CMInitEnd answers 18.
TEST_F(StartupTest, EntryPointsAndCMInitEnd) {
    SetList({CmpA()});
    EXPECT_EQ(ERR_OK, CMInit2(nullptr, list_.data(), CM_INIT_NO_INIT_END));
    EXPECT_TRUE(F().databaseTries.empty());
    EXPECT_EQ(CH_INIT_DONE, R().Hooks("TestCmpA").back());
    Stop();
    R().Reset();
    running_ = true;
    EXPECT_EQ(ERR_FAILED, CMInit(nullptr, list_.data()));
    EXPECT_EQ(CH_INIT_DONE, R().Hooks("TestCmpA").back());
    Stop();
    R().Behaviour("TestCmpB").bSetStopWord = 1;
    ASSERT_EQ(ERR_OK, Start({CmpB()}));
    EXPECT_EQ(CH_INIT2, R().Hooks("TestCmpB").back());
    Stop();
    ASSERT_EQ(ERR_OK, Start({CmpA()}, CM_INIT_SETTINGS_OPTIONAL | CM_INIT_NO_INIT_END));
    EXPECT_EQ(CM_STATE_INITIALIZED, Find("TestCmpA")->usState);
    R().Reset();
    F().log.clear();
    EXPECT_EQ(ERR_OK, CMInitEnd());
    EXPECT_EQ("A:3 A:7 A:4 A:500 A:5 A:6 A:1000", R().Trace());
    EXPECT_EQ(CM_STATE_RUNNING, Find("TestCmpA")->usState);
    ExpectLog(34, LOG_INFO, ERR_OK, "KESTREL Control ready");
    R().Reset();
    EXPECT_EQ(ERR_DUPLICATE, CMInitEnd());
    EXPECT_EQ("", R().Trace());
}

// The settings file: tries, fallbacks, and the log line of a missing file (with the last failure).
struct SettingsCase {
    const char *pszFile;
    RTS_UI32 ulFlags;
    std::vector<std::string> accepted, tries;
    RTS_RESULT result;
    const char *pszLogged; // file name in "Cannot find configuration"
};

class SettingsFileTest : public CMTest, public ::testing::WithParamInterface<SettingsCase> {};

TEST_P(SettingsFileTest, TriesAndResult) {
    const SettingsCase &c = GetParam();
    F().acceptedDatabases.insert(c.accepted.begin(), c.accepted.end());
    EXPECT_EQ(c.result, Start({}, c.ulFlags, c.pszFile));
    EXPECT_EQ(c.tries, F().databaseTries);
    if (*c.pszLogged == '\0') {
        EXPECT_EQ("", Log(3));
    } else {
        ExpectLog(3, LOG_ERROR, ERR_NO_OBJECT,
                  std::string("Cannot find configuration <file>") + c.pszLogged + "</file>");
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, SettingsFileTest,
    ::testing::Values(
        SettingsCase{nullptr, 0, {}, {"KESTRELControl", "KestrelSP", "KestrelControl"}, ERR_FAILED, "KESTRELControl"},
        SettingsCase{nullptr, 0, {"KestrelSP"}, {"KESTRELControl", "KestrelSP"}, ERR_OK, ""},
        SettingsCase{"my.cfg", 0, {"my.cfg"}, {"my.cfg"}, ERR_OK, ""},
        SettingsCase{"my.cfg", 0, {"KestrelControl"}, {"my.cfg", "KESTRELControl", "KestrelControl"}, ERR_OK, ""},
        SettingsCase{"my.cfg", 0, {}, {"my.cfg", "KESTRELControl", "KestrelControl"}, ERR_FAILED, "my.cfg"},
        SettingsCase{"x/GWClient.cfg", 0, {}, {"x/GWClient.cfg", "KESTRELControl", "KestrelControl"}, ERR_OK, ""},
        SettingsCase{"my.cfg", CM_INIT_SETTINGS_OPTIONAL, {}, {"my.cfg"}, ERR_OK, ""}));

// Without a settings component a file is required or not, by the flags.
TEST_F(StartupTest, SettingsFileWithoutSettingsComponent) {
    F().withheld.insert("SettgSetDatabaseName");
    EXPECT_EQ(ERR_FAILED, Start({}, 0, "my.cfg"));
    Stop();
    EXPECT_EQ(ERR_OK, Start({}, CM_INIT_SETTINGS_OPTIONAL, "my.cfg"));
}

// The second read of the split-databases option decides, even when that key is missing.
TEST_F(StartupTest, SplitDatabasesSecondReadDecides) {
    for (auto [pszFirst, pszSecond, ulOptions] :
         {std::make_tuple("1", "", 0u), std::make_tuple("0", "1", 1u), std::make_tuple("1", "0", 0u)}) {
        ResetFakes();
        F().SetSetting("ComponentManager", "CmpSettings.SplitDatabases", pszFirst);
        if (*pszSecond != '\0')
            F().SetSetting("CmpSettings", "SplitDatabases", pszSecond);
        ASSERT_EQ(ERR_OK, Start({}));
        EXPECT_THAT(F().optionsSet, ElementsAre(ulOptions)) << pszFirst << "/" << pszSecond;
        Stop();
    }
}

// Imports failing in the final pass disable their component and switch to safe mode, which disables
// the components that need a complete runtime; CMInit3 returns the import result.
TEST_F(StartupTest, FailingImportSwitchesToSafeMode) {
    AddImport(R().Behaviour("TestCmpA"), "NoSuchFunction");
    R().Behaviour("TestCmpB").cmpId = 0x12;
    R().Behaviour("TestCmpC").cmpId = 0x7003;
    EXPECT_EQ(ERR_FAILED, Start({CmpA(), CmpB(), CmpC()}));
    EXPECT_EQ(CM_STATE_DISABLED, Find("TestCmpA")->usState);
    EXPECT_EQ(CM_STATE_DISABLED, Find("TestCmpB")->usState);
    EXPECT_EQ(CM_STATE_RUNNING, Find("TestCmpC")->usState);
    EXPECT_EQ(CH_INIT_SYSTEM, R().Hooks("TestCmpA").back()); // nothing after the import pass
    EXPECT_EQ(CH_INIT_SYSTEM, R().Hooks("TestCmpB").back());
    EXPECT_EQ(1, F().Logged("Failed to resolve <name>NoSuchFunction</name>"));
    EXPECT_EQ(1, F().Logged("Import function(s) failed of <name>TestCmpA</name>"));
    ExpectLog(69, LOG_ERROR, ERR_FAILED, "Resolving components failed. Switch to safe mode!");
    ExpectLog(70, LOG_WARNING, ERR_FAILED, "Safe mode disabled: <cmp>TestCmpB</cmp>");
}

// Imports failing in an early pass disable their component; the secondary result keeps this from
// the caller. The full pass adds the name once more, as an ordinary component that starts normally.
TEST_F(StartupTest, EarlyImportFailureDisablesWithoutFailingStartup) {
    AddImport(R().Behaviour("TestCmpB"), "TestCmpAFn");
    EXPECT_EQ(ERR_OK, Start({CmpB(1), CmpA()}));
    EXPECT_EQ("CM CmpMemPool CmpLog CmpSettings SysTestServices TestCmpB TestCmpB TestCmpA", Names());
    EXPECT_EQ(CM_STATE_DISABLED, Find("TestCmpB")->usState); // the first record
    EXPECT_EQ(kStartHooks, R().Hooks("TestCmpB"));
    EXPECT_EQ(1, F().Logged("Import function(s) failed of <name>TestCmpB</name>"));
    EXPECT_EQ("", Log(69));
    EXPECT_NE(ERR_OK, kestrel::cm::SecondaryResult());
}

// Start-up: system pass (B, by its system word) with its entry and import passes; full pass (A,
// and C, whose failing entry disables it and fails start-up); hook 1; imports of the system
// components; hook 8; all imports; hook 2 and CMInitEnd's; six events created in their own order.
// CMExit: the hooks with the events posted between them; the unload groups (static ones, C too,
// then system ones), each unload announced to all still there. The pools are gone afterwards; the
// exit flag stays until the next start.
TEST_F(StartupTest, PassesAndShutdownInTheirOrder) {
    R().Behaviour("TestCmpC").entryResult = 1;
    EXPECT_EQ(ERR_FAILED, Start({CmpA(), CmpB(1), CmpC()}));
    EXPECT_EQ("B:entry B:import A:entry C:entry B:1 A:1 B:import B:8 A:8 B:import A:import B:2 A:2 B:3 A:3 B:7 A:7 "
              "B:4 A:4 B:500 A:500 B:5 A:5 B:6 A:6 B:1000 A:1000",
              R().Trace());
    using Event = std::pair<EVENTID, CMPID>;
    EXPECT_THAT(F().events, ElementsAre(Event(0x10001, 1), Event(0x10002, 1), Event(0x10003, 1), Event(0x10005, 1),
                                        Event(0x10004, 1), Event(0x10006, 1)));
    EXPECT_EQ(0, CMGetExit());
    R().Reset();
    EXPECT_EQ(ERR_OK, Stop());
    EXPECT_EQ("event 0x10001 event 0x10002 B:10 A:10 event 0x10003 B:11 A:11 B:2200 A:2200 event 0x10004 B:12 A:12 "
              "event 0x10005 B:13 A:13 B:14 A:14 B:17 A:17 B:15 A:15 B:24(A) A:24(A) B:24(C) B:24(B)",
              R().Trace());
    EXPECT_EQ(1, CMGetExit());
    EXPECT_EQ(6, F().nEventsDeleted);
    ExpectLog(35, LOG_INFO, ERR_OK, "KESTREL Control shutdown...");
    ExpectLog(36, LOG_INFO, ERR_OK, "KESTREL Control shutdown done");
    EXPECT_EQ(0, F().memory["CM"]);
    EXPECT_EQ(ERR_OK, CMExit());
    EXPECT_EQ(ERR_FAILED, CMCallHook(CH_INIT, 0, 0, 0));
    EXPECT_EQ(ERR_FAILED, CMCallHook2(0, CH_INIT, 0, 0));
    EXPECT_EQ(ERR_FAILED, CMGetAPI("CMExit", nullptr, 0));
    EXPECT_EQ(nullptr, Find("CM"));
    ASSERT_EQ(ERR_OK, Start({}));
    EXPECT_EQ(0, CMGetExit());
}

// The system components of the "last" set go after hook 16; one that is not a system component is
// in no group and stays.
TEST_F(StartupTest, ShutdownLastSetGoesAfterHook16) {
    R().Behaviour("TestCmpC").cmpId = CMPID_SysExcept;
    R().Behaviour("TestCmpD").cmpId = CMPID_SysSem;
    ASSERT_EQ(ERR_OK, Start({CmpC(1), CmpD()}));
    R().Reset();
    Stop();
    EXPECT_EQ("C:10 C:11 C:2200 C:12 C:13 C:14 C:17 C:15 C:16 C:24(CM) C:24(CmpMemPool) C:24(CmpLog) "
              "C:24(CmpSettings) C:24(SysTestServices) C:24(C)",
              R().Trace("TestCmpC"));
    EXPECT_THAT(R().Trace("TestCmpD"), HasSubstr("D:16"));
    EXPECT_THAT(R().Trace("TestCmpD"), Not(HasSubstr("D:24(D)")));
}

// Hook 10 is repeated while some component answers 10, for at most 10000 ms of SysTimeGetMs (also
// across the wrap of the millisecond counter); the rest of the sequence follows.
TEST_F(StartupTest, ShutdownRepeatsExitRequestWithinTheBound) {
    for (auto [nAnswers, ulStartMs, nCalls] :
         {std::make_tuple(3, 1000u, 4), std::make_tuple(-1, 1000u, 10), std::make_tuple(-1, 0xFFFFF000u, 10)}) {
        R().behaviours.clear();
        AddAnswer(R().Behaviour("TestCmpA"), CH_EXIT_REQUEST, ERR_CALL_AGAIN, nAnswers);
        ASSERT_EQ(ERR_OK, Start({CmpA(), CmpB()}));
        F().ulNowMs = ulStartMs;
        F().ulStepMs = 1000;
        R().Reset();
        Stop();
        std::vector<RTS_UI32> hooks = R().Hooks("TestCmpB");
        EXPECT_EQ(nCalls, std::count(hooks.begin(), hooks.end(), CH_EXIT_REQUEST)) << ulStartMs;
        EXPECT_EQ(1, std::count(hooks.begin(), hooks.end(), CH_EXIT2));
    }
}

// This build's measurements with some type sizes replaced.
kestrel::cm::BasicCheckPlatform Altered(std::vector<kestrel::cm::TypeSizeRow> &rows,
                                        std::initializer_list<std::pair<RTS_UI32, RTS_SIZE>> sizes) {
    const kestrel::cm::BasicCheckPlatform &base = kestrel::cm::ThisPlatform();
    rows.assign(base.pRows, base.pRows + base.nRows);
    for (kestrel::cm::TypeSizeRow &row : rows)
        for (auto [ulInfoId, measured] : sizes)
            if (row.ulInfoId == ulInfoId)
                row.measured = measured;
    kestrel::cm::BasicCheckPlatform platform = base;
    platform.pRows = rows.data();
    return platform;
}

void BrokenSwap16(void *pBuffer, RTS_UI16 value) {
    auto *b = static_cast<unsigned char *>(pBuffer);
    b[0] = static_cast<unsigned char>(value >> 8);
    b[1] = static_cast<unsigned char>(value);
}

// Only RTS_RESULT may be larger than required; each failing check logs its line, and every check
// runs after a failure.
TEST_F(StartupTest, BasicChecksRunAfterAFailure) {
    ASSERT_EQ(ERR_OK, Start({}));
    F().log.clear();
    std::vector<kestrel::cm::TypeSizeRow> rows;
    kestrel::cm::BasicCheckPlatform platform = Altered(rows, {{59, 8}, {55, 8}, {61, 4}});
    platform.alignment[3] = 12;
    platform.pfSwap16u = &BrokenSwap16;
    platform.pfSwap32s = [](void *, RTS_I32) {};
    platform.packing[0] = 8;
    EXPECT_EQ(0, kestrel::cm::RunBasicChecks(platform));
    std::string texts;
    for (const LogLine &line : F().log) {
        texts += std::to_string(line.ulInfoId) + " " + line.text + "\n";
        EXPECT_EQ(LOG_ERROR, line.ulClass);
        EXPECT_EQ(ERR_FAILED, line.errorId);
    }
    EXPECT_EQ("55 <cmp>CMBasicChecks</cmp>: sizeof(RTS_I32) is <size>8</size> instead of 4 byte\n"
              "61 <cmp>CMBasicChecks</cmp>: sizeof(RTS_WCHAR) is <size>4</size> instead of 2 byte\n"
              "72 <cmp>CMBasicChecks</cmp>: ExernalLib alignment check failed\n"
              "62 <cmp>CMBasicChecks</cmp>: SWAP16u failed with values <swap>{d3, 72}</swap>\n"
              "65 <cmp>CMBasicChecks</cmp>: SWAP32s failed with values <swap>{cd, cd, cd, cd}</swap>\n"
              "77 <cmp>CMBasicChecks</cmp>: Pack mode check failed\n",
              texts);
}

// Failing checks stop start-up after the system components, before anything else is added.
TEST_F(StartupTest, FailingBasicChecksStopStartup) {
    std::vector<kestrel::cm::TypeSizeRow> rows;
    kestrel::cm::BasicCheckPlatform platform = Altered(rows, {{59, 1}});
    kestrel::cm::UseBasicCheckPlatform(&platform);
    RTS_RESULT result = Start({CmpA(), CmpB(1)});
    kestrel::cm::UseBasicCheckPlatform(nullptr);
    EXPECT_EQ(ERR_FAILED, result);
    EXPECT_EQ("B:entry B:import", R().Trace());
    EXPECT_EQ(nullptr, Find("TestCmpA"));
    ExpectLog(2, LOG_ERROR, ERR_FAILED, "RtsBasicChecks failed. Cannot start the runtime system");
    EXPECT_EQ("<cmp>CMBasicChecks</cmp>: sizeof(RTS_RESULT) is <size>1</size> instead of 2 byte\n", Log(59));
}

// On the 32-bit build the areas of the CM's static pools are 148, 148 and 2588 bytes, and the
// records have their literal sizes; on every build the component table's area holds 40 records.
TEST(CMPools, HoldTheirRecords) {
    std::vector<RTS_UINTPTR> area(kestrel::cm::kComponentAreaSize / sizeof(RTS_UINTPTR) + 1);
    RTS_HANDLE hPool =
        MemPoolCreateStatic(sizeof(ComponentInfo), kestrel::cm::kComponentAreaSize, area.data(), nullptr);
    int n = 0;
    while (MemPoolGetBlock(hPool, nullptr) != nullptr)
        ++n;
    EXPECT_EQ(40, n);
    if (sizeof(void *) == 4) {
        EXPECT_EQ(148u, kestrel::cm::kClassAreaSize);
        EXPECT_EQ(148u, kestrel::cm::kInstanceAreaSize);
        EXPECT_EQ(2588u, kestrel::cm::kComponentAreaSize);
        EXPECT_EQ(12u, sizeof(kestrel::cm::ClassEntry));
        EXPECT_EQ(12u, sizeof(kestrel::cm::InstanceEntry));
        EXPECT_EQ(15u * 4u, sizeof(ComponentInitStruct));
        EXPECT_EQ(12u, sizeof(ComponentListEntry));
    }
}

} // namespace
