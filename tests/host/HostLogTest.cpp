// The host log: the line format with date and time, CR LF endings, lazy
// opening, appending across path changes, and texts that contain '%'.
#include <gtest/gtest.h>

#include <regex>

#include "HostLog.h"
#include "TempDir.h"

namespace kestrel::host {
namespace {

using kestrel::test::ReadFile;
using kestrel::test::TempDir;

struct LineCase {
    int year, month, day, hour, minute, second;
    const char *text;
    const char *expected;
};

class HostLogLine : public ::testing::TestWithParam<LineCase> {};

TEST_P(HostLogLine, IsDateTimeTextAndCrLf) {
    const LineCase &c = GetParam();
    std::tm t{};
    t.tm_year = c.year - 1900;
    t.tm_mon = c.month - 1;
    t.tm_mday = c.day;
    t.tm_hour = c.hour;
    t.tm_min = c.minute;
    t.tm_sec = c.second;
    EXPECT_EQ(HostLogFormatLine(t, c.text), c.expected);
}

INSTANTIATE_TEST_SUITE_P(Times, HostLogLine,
                         ::testing::Values(LineCase{2026, 11, 22, 4, 5, 6, "KESTREL Control Win V3 Service started",
                                                    "11/22/26 04:05:06: KESTREL Control Win V3 Service started\r\n"},
                                           LineCase{2009, 1, 2, 23, 59, 59, "x", "01/02/09 23:59:59: x\r\n"},
                                           LineCase{2000, 12, 31, 0, 0, 0, "", "12/31/00 00:00:00: \r\n"},
                                           LineCase{2024, 2, 29, 13, 7, 0, "100% %s %d",
                                                    "02/29/24 13:07:00: 100% %s %d\r\n"}));

class HostLogFile : public ::testing::Test {
  protected:
    void TearDown() override { HostLogSetPath(""); }
    TempDir dir;
};

TEST_F(HostLogFile, NothingIsCreatedBeforeTheFirstLine) {
    auto file = dir.Path() / "svc.log";
    HostLogSetPath(file.string());
    EXPECT_FALSE(std::filesystem::exists(file));
    HostLog(nullptr); // a null text only opens the file
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_EQ(ReadFile(file), "");
}

TEST_F(HostLogFile, LinesAreAppendedAndFlushedAtOnce) {
    auto file = dir.Write("svc.log", "old line\r\n");
    HostLogSetPath(file.string());
    HostLog("first");
    // Read while the file is still open: each line is flushed when written.
    std::string content = ReadFile(file);
    HostLogf("%s Service stopped", "KESTREL Control Win V3");
    std::string later = ReadFile(file);
    EXPECT_TRUE(std::regex_match(
        content, std::regex("old line\r\n" + std::string(R"(\d\d/\d\d/\d\d \d\d:\d\d:\d\d: first)") + "\r\n")))
        << content;
    EXPECT_NE(later.find(": KESTREL Control Win V3 Service stopped\r\n"), std::string::npos) << later;
    EXPECT_EQ(later.find("\r\r\n"), std::string::npos);
}

TEST_F(HostLogFile, APercentInATextIsWrittenAsItIs) {
    auto file = dir.Path() / "svc.log";
    HostLogSetPath(file.string());
    HostLog("C:\\dir\\a%sb%n.cfg");
    EXPECT_NE(ReadFile(file).find(": C:\\dir\\a%sb%n.cfg\r\n"), std::string::npos);
}

TEST_F(HostLogFile, ChangingThePathMovesOnToTheNewFile) {
    auto first = dir.Path() / "a.log";
    auto second = dir.Path() / "b.log";
    HostLogSetPath(first.string());
    HostLog("one");
    HostLogSetPath(second.string());
    HostLog("two");
    EXPECT_NE(ReadFile(first).find("one"), std::string::npos);
    EXPECT_EQ(ReadFile(first).find("two"), std::string::npos);
    EXPECT_NE(ReadFile(second).find("two"), std::string::npos);
    EXPECT_EQ(HostLogPath(), second.string());
}

TEST_F(HostLogFile, AnUnwritablePathLosesTheLineQuietly) {
    HostLogSetPath((dir.Path() / "missing-dir" / "svc.log").string());
    HostLog("lost");
    EXPECT_FALSE(std::filesystem::exists(dir.Path() / "missing-dir"));
}

} // namespace
} // namespace kestrel::host
