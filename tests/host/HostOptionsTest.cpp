// Option scanning of the host: one row per command line, with the action,
// console flag, start type, account, password and the warnings it must give.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "HostOptions.h"

namespace kestrel::host {
namespace {

struct OptionCase {
    const char *name;
    std::vector<std::string> args; // without argv[0]
    HostAction action;
    bool bWithConsole;
    RTS_UI32 startType;
    const char *account;  // null: absent
    const char *password; // null: absent
    size_t warnings;
};

// Runs the scan over a copy of the arguments, as the process would see them.
struct Scan {
    explicit Scan(const std::vector<std::string> &args, bool bHelp = true) {
        storage.push_back("KESTRELControl");
        storage.insert(storage.end(), args.begin(), args.end());
        for (std::string &s : storage)
            argv.push_back(s.data());
        argv.push_back(nullptr);
        options = HostScanOptions(static_cast<int>(storage.size()), argv.data(), bHelp);
    }
    std::vector<std::string> storage;
    std::vector<char *> argv;
    HostOptions options;
};

std::string Str(const char *s) {
    return s != nullptr ? s : "<absent>";
}

class OptionTable : public ::testing::TestWithParam<OptionCase> {};

TEST_P(OptionTable, Scans) {
    const OptionCase &c = GetParam();
    Scan scan(c.args);
    EXPECT_EQ(scan.options.action, c.action);
    EXPECT_EQ(scan.options.bWithConsole, c.bWithConsole);
    EXPECT_EQ(scan.options.ulStartType, c.startType);
    EXPECT_EQ(Str(scan.options.pszAccount), Str(c.account));
    EXPECT_EQ(Str(scan.options.pszPassword), Str(c.password));
    EXPECT_EQ(scan.options.warnings.size(), c.warnings);
}

using A = HostAction;
const OptionCase kCases[] = {
    {"Nothing", {}, A::Dispatch, false, 2, nullptr, nullptr, 0},
    {"ConfigFileIsNoOption", {"x.cfg"}, A::Dispatch, false, 2, nullptr, nullptr, 0},
    {"DashInstall", {"-install"}, A::Install, false, 2, nullptr, nullptr, 0},
    {"SlashI", {"/i"}, A::Install, false, 2, nullptr, nullptr, 0},
    {"DashIxyz", {"-ixyz"}, A::Install, false, 2, nullptr, nullptr, 0},
    {"Uninstall", {"-u"}, A::Uninstall, false, 2, nullptr, nullptr, 0},
    {"Stop", {"/e"}, A::Stop, false, 2, nullptr, nullptr, 0},
    {"LaterSelectionWins", {"-i", "-u", "-e"}, A::Stop, false, 2, nullptr, nullptr, 0},
    {"StartDiscardsInstall", {"-i", "-s"}, A::Start, false, 2, nullptr, nullptr, 0},
    {"StartStopsScanning", {"-s", "-i", "-q"}, A::Start, false, 2, nullptr, nullptr, 0},
    {"ForegroundWithConsole", {"-d"}, A::Foreground, true, 2, nullptr, nullptr, 0},
    {"ForegroundWithoutConsole", {"/r"}, A::Foreground, false, 2, nullptr, nullptr, 0},
    {"ForegroundIgnoresLaterInstall", {"-d", "-i"}, A::Foreground, true, 2, nullptr, nullptr, 0},
    {"ForegroundIgnoresLaterGarbage", {"-d", "-zz", "--startmode=demand"}, A::Foreground, true, 2, nullptr, nullptr, 0},
    {"InstallThenForeground", {"-i", "-r"}, A::Foreground, false, 2, nullptr, nullptr, 0},
    {"StartModeDemand", {"-i", "--startmode=demand"}, A::Install, false, 3, nullptr, nullptr, 0},
    {"AutoAfterDemand", {"--startmode=demand", "--startmode=auto"}, A::Dispatch, false, 2, nullptr, nullptr, 0},
    {"StartModeOtherCaseIgnored", {"--startmode=Demand"}, A::Dispatch, false, 2, nullptr, nullptr, 1},
    {"StartModeWithoutEquals", {"--startmode", "demand"}, A::Dispatch, false, 2, nullptr, nullptr, 1},
    {"AccountJoined", {"-lUSER"}, A::Dispatch, false, 2, "USER", nullptr, 0},
    {"AccountSeparate", {"-l", "USER", "-i"}, A::Install, false, 2, "USER", nullptr, 0},
    {"AccountRestOfToken", {"-login=x"}, A::Dispatch, false, 2, "ogin=x", nullptr, 0},
    {"PasswordJoinedAndSeparate", {"-pSecret", "-p", "Other"}, A::Dispatch, false, 2, nullptr, "Other", 0},
    {"AccountConsumesAnOption", {"-l", "-i"}, A::Dispatch, false, 2, "-i", nullptr, 0},
    {"TrailingAccountIsAbsent", {"-i", "-l"}, A::Install, false, 2, nullptr, nullptr, 1},
    {"TrailingPasswordIsAbsent", {"-i", "-lUSER", "-p"}, A::Install, false, 2, "USER", nullptr, 1},
    {"TrailingValueStopsScanning", {"-p", "-l"}, A::Dispatch, false, 2, nullptr, "-l", 0},
    {"UpperCaseIsNoOption", {"-D", "/I"}, A::Dispatch, false, 2, nullptr, nullptr, 2},
    {"UnknownLetter", {"-x", "-i"}, A::Install, false, 2, nullptr, nullptr, 1},
    {"LoneDash", {"-"}, A::Dispatch, false, 2, nullptr, nullptr, 1},
    {"UnknownLongOption", {"--verbose"}, A::Dispatch, false, 2, nullptr, nullptr, 1},
    {"Help", {"--help"}, A::Help, false, 2, nullptr, nullptr, 0},
    {"HelpWinsOverInstall", {"-i", "--help"}, A::Help, false, 2, nullptr, nullptr, 0},
};

INSTANTIATE_TEST_SUITE_P(Rows, OptionTable, ::testing::ValuesIn(kCases),
                         [](const ::testing::TestParamInfo<OptionCase> &p) { return p.param.name; });

TEST(HostOptions, HelpIsAnUnknownOptionWhereNotSupported) {
    Scan scan({"--help"}, false);
    EXPECT_EQ(scan.options.action, HostAction::Dispatch);
    ASSERT_EQ(scan.options.warnings.size(), 1u);
    EXPECT_NE(scan.options.warnings[0].find("--help"), std::string::npos);
}

TEST(HostOptions, WarningsNameTheToken) {
    Scan scan({"-q", "-l"});
    ASSERT_EQ(scan.options.warnings.size(), 2u);
    EXPECT_EQ(scan.options.warnings[0], "Unknown option ignored: -q");
    EXPECT_NE(scan.options.warnings[1].find("-l"), std::string::npos);
    EXPECT_NE(scan.options.warnings[1].find("no account"), std::string::npos);
}

TEST(HostOptions, ValuesPointIntoTheArguments) {
    Scan scan({"-l", "svc"});
    EXPECT_EQ(scan.options.pszAccount, scan.argv[2]);
}

TEST(HostOptions, UsageNamesEveryOption) {
    std::string usage = HostUsageText();
    for (const char *option : {"-d", "-r", "-i", "-u", "-s", "-e", "-l", "-p", "--startmode=auto|demand", "--help"})
        EXPECT_NE(usage.find(option), std::string::npos) << option;
}

} // namespace
} // namespace kestrel::host
