// The host's command line: the option scan (one row per command line), the
// configuration file it names, the component list that file implies, and the
// legacy renames done before the file is read.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

#include "HostConfig.h"
#include "HostNames.h"
#include "HostOptions.h"
#include "TestSupport.h"

namespace kestrel::host {
namespace {

using kestrel::test::ReadFile;
using kestrel::test::WithArgs;
using kestrel::test::WriteFile;

// The scan's result in short: the action, then "console", "start=",
// "account=" and "password=" where they differ from the defaults, then the
// warnings, each after " | ".
std::string Describe(const HostOptions &o) {
    const char *actions[] = {"Dispatch", "Install", "Uninstall", "Start", "Stop", "Foreground", "Help"};
    std::string text = actions[static_cast<int>(o.action)] + std::string(o.bWithConsole ? " console" : "") +
                       (o.ulStartType != kStartTypeAuto ? " start=" + std::to_string(o.ulStartType) : "") +
                       (o.pszAccount != nullptr ? std::string(" account=") + o.pszAccount : "") +
                       (o.pszPassword != nullptr ? std::string(" password=") + o.pszPassword : "");
    for (const std::string &warning : o.warnings)
        text += " | " + warning;
    return text;
}

struct OptionCase {
    const char *name;
    std::vector<std::string> args; // without argv[0]
    const char *expected;          // as Describe writes it
    bool bHelpSupported = true;
};

class OptionTable : public ::testing::TestWithParam<OptionCase> {};

TEST_P(OptionTable, Scans) {
    const OptionCase &c = GetParam();
    EXPECT_EQ(WithArgs(c.args,
                       [&](int argc, char **argv) { return Describe(HostScanOptions(argc, argv, c.bHelpSupported)); }),
              c.expected);
}

const OptionCase kCases[] = {
    {"ConfigFileIsNoOption", {"x.cfg"}, "Dispatch"},
    {"OnlyTheSecondCharacterCounts", {"-ixyz"}, "Install"},
    {"Slash", {"/u"}, "Uninstall"},
    {"LaterSelectionWins", {"-i", "-u", "-e"}, "Stop"},
    {"StartEndsTheScan", {"-i", "-s", "-i", "-q"}, "Start"},
    {"ForegroundEndsTheScan", {"-d", "-i", "-zz", "--startmode=demand"}, "Foreground console"},
    {"ForegroundWithoutConsole", {"-i", "-r"}, "Foreground"},
    {"StartModeDemand", {"-i", "--startmode=demand"}, "Install start=3"},
    {"AutoAfterDemand", {"--startmode=demand", "--startmode=auto"}, "Dispatch"},
    {"ValuesJoinedOrSeparate", {"-login=x", "-pSecret", "-p", "Other"}, "Dispatch account=ogin=x password=Other"},
    {"AValueMayLookLikeAnOption", {"-l", "-i", "-i"}, "Install account=-i"},
    {"HelpWinsOverAnAction", {"-i", "--help"}, "Help"},
    // Bad input: warnings, never errors.
    {"TrailingAccount", {"-i", "-l"}, "Install | Option -l has no value: no account is used"},
    {"TrailingPassword", {"-lUSER", "-p"}, "Dispatch account=USER | Option -p has no value: no password is used"},
    {"UnknownLetters", {"-D", "/I", "-i"}, "Install | Unknown option ignored: -D | Unknown option ignored: /I"},
    {"UnknownForms", {"-", "--verbose"}, "Dispatch | Unknown option ignored: - | Unknown option ignored: --verbose"},
    {"BadStartModes",
     {"--startmode=Demand", "--startmode", "demand"},
     "Dispatch | Unknown start mode ignored (use auto or demand): --startmode=Demand | Unknown option ignored: "
     "--startmode"},
    {"HelpWhereNotSupported", {"--help"}, "Dispatch | Unknown option ignored: --help", false},
};

INSTANTIATE_TEST_SUITE_P(Rows, OptionTable, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<OptionCase> &p) { return p.param.name; });

// The first argument that holds ".cfg" anywhere (case matters), else the
// default name without its quotes; the strings and checks around it.
TEST(HostConfig, FileNameAndStrings) {
    auto choose = [](std::vector<std::string> args, const char *def) {
        return WithArgs(args, [&](int argc, char **argv) { return HostChooseConfigName(argc, argv, def); });
    };
    EXPECT_EQ(choose({"-d", "x.CFG", "-x.cfgold", "other.cfg"}, "KESTRELControl.cfg"), "-x.cfgold");
    EXPECT_EQ(choose({"-d"}, "\"KESTREL\"Control.cfg\""), "KESTRELControl.cfg");
    char text[] = "\"KESTREL \"\"Control\" Win V3\"";
    HostStripQuotes(text);
    EXPECT_STREQ(text, "KESTREL Control Win V3");
    HostStripQuotes(nullptr);
    EXPECT_EQ(HostStringText(99), nullptr);
    EXPECT_TRUE(HostConfigNameHasPercent("/opt/kestrel/a%sb.cfg"));
    EXPECT_FALSE(HostConfigNameHasPercent("/opt/kestrel/KESTRELControl.cfg"));
}

// The list a configuration path selects (by a case-sensitive part of the
// name); both lists' lengths and their reverse alphabetical order (ignoring
// case) within the Sys, Cmp and CmpQOR groups.
TEST(HostConfig, StaticComponentLists) {
    EXPECT_EQ(HostChooseComponentList("/opt/k/KESTRELControl.cfg"), kHostStandardList);
    EXPECT_EQ(HostChooseComponentList("/opt/k/mytargetvisuextern.cfg.bak"), kHostTargetVisuList);
    EXPECT_EQ(HostChooseComponentList("/opt/k/TargetVisuExtern.cfg"), kHostStandardList);
    for (auto [list, count] : {std::pair{+kHostStandardList, 96u}, std::pair{+kHostTargetVisuList, 25u}}) {
        std::vector<std::string> names;
        for (const ComponentListEntry *e = list; e->pszName != nullptr; ++e) {
            std::string lower(e->pszName);
            std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
            names.push_back(lower.rfind("cmpqor", 0) == 0 ? "qor" + lower : lower);
        }
        EXPECT_EQ(names.size(), count);
        for (size_t i = 1; i < names.size(); ++i)
            EXPECT_TRUE(names[i].substr(0, 3) != names[i - 1].substr(0, 3) || names[i - 1] > names[i]) << names[i];
    }
}

// Renamed with MoveFile's rules: a missing source or an existing target
// leaves both files as they are.
TEST(HostConfig, LegacyRenames) {
    kestrel::test::TempDir dir;
    for (const char *name :
         {"KestrelSP.cfg", "KestrelControl.cfg", "KestrelSP Axion.cfg", "KestrelSPWithTargetVisu.cfg"})
        WriteFile(dir / name, name);
    HostLegacyRenames((dir.Path() / "").string());
    for (auto [name, content] : {std::pair{"KestrelSP.cfg", "KestrelSP.cfg"},
                                 {"KestrelControl.cfg", "KestrelControl.cfg"},
                                 {"KestrelAxion.cfg", "KestrelSP Axion.cfg"},
                                 {"KestrelSP Axion.cfg", ""},
                                 {"KestrelControl_WithTargetVisu.cfg", "KestrelSPWithTargetVisu.cfg"},
                                 {"KestrelSPWithTargetVisu.cfg", ""}})
        EXPECT_EQ(ReadFile(dir / name), content) << name;
}

} // namespace
} // namespace kestrel::host
