// What the run procedure prepares: the configuration file name, the static
// component list it implies, the lists themselves, quote stripping and the
// legacy renames with MoveFile's rules.
#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <vector>

#include "HostConfig.h"
#include "HostNames.h"
#include "TempDir.h"

namespace kestrel::host {
namespace {

using kestrel::test::ReadFile;
using kestrel::test::TempDir;

std::string Choose(std::vector<std::string> args, const char *def = "KESTRELControl.cfg") {
    args.insert(args.begin(), "KESTRELControl");
    std::vector<char *> argv;
    for (std::string &s : args)
        argv.push_back(s.data());
    argv.push_back(nullptr);
    return HostChooseConfigName(static_cast<int>(args.size()), argv.data(), def);
}

TEST(HostConfig, ConfigFileIsTheFirstArgumentContainingDotCfg) {
    EXPECT_EQ(Choose({}), "KESTRELControl.cfg");
    EXPECT_EQ(Choose({"-d", "my.cfg", "other.cfg"}), "my.cfg");
    EXPECT_EQ(Choose({"-d", "x.cfgold"}), "x.cfgold"); // anywhere in the token
    EXPECT_EQ(Choose({"-d", "x.CFG"}), "KESTRELControl.cfg");
    EXPECT_EQ(Choose({"-d", "-x.cfg"}), "-x.cfg"); // an option token counts too
}

TEST(HostConfig, ProgramNameIsNeverTheConfigFile) {
    std::vector<std::string> storage{"/opt/a.cfg/KESTRELControl"};
    std::vector<char *> argv{storage[0].data(), nullptr};
    EXPECT_EQ(HostChooseConfigName(1, argv.data(), "KESTRELControl.cfg"), "KESTRELControl.cfg");
}

TEST(HostConfig, DefaultNameLosesItsQuotes) {
    EXPECT_EQ(Choose({}, "\"KESTRELControl.cfg\""), "KESTRELControl.cfg");
    EXPECT_EQ(Choose({}, HostStringText(kStringConfigFile)), "KESTRELControl.cfg");
}

TEST(HostConfig, PercentIsDetected) {
    EXPECT_TRUE(HostConfigNameHasPercent("/opt/kestrel/a%sb.cfg"));
    EXPECT_FALSE(HostConfigNameHasPercent("/opt/kestrel/KESTRELControl.cfg"));
}

TEST(HostConfig, StripQuotesShiftsTheRestLeft) {
    char text[] = "\"KESTREL \"\"Control\" Win V3\"";
    HostStripQuotes(text);
    EXPECT_STREQ(text, "KESTREL Control Win V3");
    char empty[] = "\"\"";
    HostStripQuotes(empty);
    EXPECT_STREQ(empty, "");
    HostStripQuotes(nullptr);
}

TEST(HostConfig, ServiceNameOfTheStringTable) {
    EXPECT_STREQ(HostStringText(kStringServiceName), "\"KESTREL Control Win V3\"");
    EXPECT_EQ(HostStringText(99), nullptr);
}

size_t Count(const ComponentListEntry *list) {
    size_t n = 0;
    while (list[n].pszName != nullptr)
        ++n;
    return n;
}

TEST(HostConfig, ListChoiceFollowsTheConfigPath) {
    EXPECT_EQ(HostChooseComponentList("/opt/k/KESTRELControl.cfg"), kHostStandardList);
    EXPECT_EQ(HostChooseComponentList("/opt/k/targetvisuextern.cfg"), kHostTargetVisuList);
    EXPECT_EQ(HostChooseComponentList("/opt/k/mytargetvisuextern.cfg.bak"), kHostTargetVisuList);
    EXPECT_EQ(HostChooseComponentList("/opt/k/TargetVisuExtern.cfg"), kHostStandardList); // case matters
}

TEST(HostConfig, StandardList) {
    const ComponentListEntry *list = kHostStandardList;
    ASSERT_EQ(Count(list), 96u);
    EXPECT_STREQ(list[0].pszName, "SysTimeRtc");
    EXPECT_STREQ(list[4].pszName, "SysTarget");
    EXPECT_STREQ(list[20].pszName, "SysFile");
    EXPECT_STREQ(list[26].pszName, "SysCom");
    EXPECT_STREQ(list[27].pszName, "CmpXMLParser");
    EXPECT_STREQ(list[35].pszName, "CmpSettings");
    EXPECT_STREQ(list[45].pszName, "CmpMemPool");
    EXPECT_STREQ(list[47].pszName, "CmpLog");
    EXPECT_STREQ(list[66].pszName, "CmpChannelClient");
    EXPECT_STREQ(list[67].pszName, "CmpQORTypes");
    EXPECT_STREQ(list[95].pszName, "CmpAlarmManager");
}

TEST(HostConfig, TargetVisuList) {
    const ComponentListEntry *list = kHostTargetVisuList;
    ASSERT_EQ(Count(list), 25u);
    EXPECT_STREQ(list[0].pszName, "SysWindowFileDialog");
    EXPECT_STREQ(list[11].pszName, "SysGraphicGDIPlus");
    EXPECT_STREQ(list[17].pszName, "CmpVisuHandlerStub");
    EXPECT_STREQ(list[24].pszName, "CmpBitmapPool");
}

TEST(HostConfig, ListEntriesHaveNoEntryAndNoSystemWord) {
    for (const ComponentListEntry *list : {kHostStandardList, kHostTargetVisuList}) {
        std::vector<std::string> names;
        for (const ComponentListEntry *e = list; e->pszName != nullptr; ++e) {
            EXPECT_EQ(e->pfEntry, nullptr) << e->pszName;
            EXPECT_EQ(e->bSystem, 0u) << e->pszName;
            EXPECT_NE(e->pszName[0], '\0');
            std::string lower(e->pszName);
            for (char &c : lower)
                c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            names.push_back(lower);
        }
        // Reverse alphabetical (ignoring case) within the Sys group and within
        // the Cmp group (the QOR block of the standard list is a group of its own).
        for (size_t i = 1; i < names.size(); ++i) {
            bool bSameGroup = names[i].substr(0, 3) == names[i - 1].substr(0, 3) &&
                              (names[i].rfind("cmpqor", 0) == 0) == (names[i - 1].rfind("cmpqor", 0) == 0);
            if (bSameGroup) {
                EXPECT_GT(names[i - 1], names[i]) << names[i - 1] << " before " << names[i];
            }
        }
    }
}

class LegacyRenames : public ::testing::Test {
  protected:
    TempDir dir;
};

TEST_F(LegacyRenames, OldNamesAreRenamed) {
    dir.Write("KestrelSP.cfg", "a");
    dir.Write("KestrelSP Axion.cfg", "b");
    dir.Write("KestrelSPWithTargetVisu.cfg", "c");
    HostLegacyRenames(dir.WithSeparator());
    EXPECT_EQ(ReadFile(dir.Path() / "KestrelControl.cfg"), "a");
    EXPECT_EQ(ReadFile(dir.Path() / "KestrelAxion.cfg"), "b");
    EXPECT_EQ(ReadFile(dir.Path() / "KestrelControl_WithTargetVisu.cfg"), "c");
    EXPECT_FALSE(std::filesystem::exists(dir.Path() / "KestrelSP.cfg"));
    EXPECT_FALSE(std::filesystem::exists(dir.Path() / "KestrelSP Axion.cfg"));
    EXPECT_FALSE(std::filesystem::exists(dir.Path() / "KestrelSPWithTargetVisu.cfg"));
}

TEST_F(LegacyRenames, AnExistingTargetIsKept) {
    dir.Write("KestrelSP.cfg", "old");
    dir.Write("KestrelControl.cfg", "current");
    HostLegacyRenames(dir.WithSeparator());
    EXPECT_EQ(ReadFile(dir.Path() / "KestrelControl.cfg"), "current");
    EXPECT_EQ(ReadFile(dir.Path() / "KestrelSP.cfg"), "old");
}

TEST_F(LegacyRenames, MissingSourcesAreNoError) {
    HostLegacyRenames(dir.WithSeparator());
    EXPECT_TRUE(std::filesystem::is_empty(dir.Path()));
}

} // namespace
} // namespace kestrel::host
