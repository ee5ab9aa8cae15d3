// Tests of CmpLog's loggers: entries and their fields, the ring, filters,
// further loggers, settings out of range and the console echo.
#include <chrono>
#include <set>
#include <thread>

#include "LogTestSupport.h"

using kestrel::test::ConsoleLines;
using kestrel::test::LogTest;
using kestrel::test::Ring;
using kestrel::test::RingTexts;

namespace {

TEST_F(LogTest, StandardLoggerKeepsEveryField) {
    Configure("Logger.0.Backend.0.ClassId=0\n");
    auto before =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    ASSERT_EQ(LogAdd(LOG_STD_LOGGER, 0x1234, LOG_WARNING, 17, 99, "value %d of <cmp>%s</cmp>", 5, "Fields"), ERR_OK);
    std::vector<LogEntry> ring = Ring(LOG_STD_LOGGER);
    ASSERT_FALSE(ring.empty());
    const LogEntry &e = ring.back();
    EXPECT_STREQ(e.infoText, "value 5 of <cmp>Fields</cmp>");
    EXPECT_EQ(e.cmpId, 0x1234u);
    EXPECT_EQ(e.classId, static_cast<RTS_I32>(LOG_WARNING));
    EXPECT_EQ(e.errorId, 17);
    EXPECT_EQ(e.infoId, 99u);
    // The standard logger stamps 64-bit real-time-clock milliseconds.
    EXPECT_GE(static_cast<long long>(e.timestamp), before);
    EXPECT_LT(static_cast<long long>(e.timestamp), before + 5000);
    EXPECT_TRUE(ConsoleLines().empty()) << "no console unless asked for";
}

TEST_F(LogTest, LongTextsAreCut) {
    Configure("Logger.0.Backend.0.ClassId=0\n");
    std::string longText(1000, 'y');
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "cut:%s", longText.c_str());
    auto texts = RingTexts(LOG_STD_LOGGER, "cut:");
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_EQ(texts[0].size(), static_cast<std::size_t>(LOG_MAX_INFO - 1));
}

TEST_F(LogTest, RingKeepsTheNewestEntriesInOrder) {
    Configure("Logger.0.MaxEntries=5\nLogger.0.Backend.0.ClassId=0\n");
    LogEntry e{};
    RTS_RESULT r = ERR_FAILED;
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "ring start");
    RTS_HANDLE stale = LogGetFirstEntry(LOG_STD_LOGGER, &e, &r);
    ASSERT_EQ(r, ERR_OK);
    for (int i = 0; i < 12; ++i)
        LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "ring %d", i);
    std::vector<LogEntry> ring = Ring(LOG_STD_LOGGER);
    ASSERT_EQ(ring.size(), 5u);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(std::string(ring[i].infoText), "ring " + std::to_string(7 + i));
    // A handle whose entry was overwritten goes on with the oldest one left.
    LogGetNextEntry(LOG_STD_LOGGER, stale, &e, &r);
    ASSERT_EQ(r, ERR_OK);
    EXPECT_STREQ(e.infoText, "ring 7");
    RTS_HANDLE last = nullptr;
    for (RTS_HANDLE h = LogGetFirstEntry(LOG_STD_LOGGER, &e, &r); r == ERR_OK;
         h = LogGetNextEntry(LOG_STD_LOGGER, h, &e, &r))
        last = h;
    LogGetNextEntry(LOG_STD_LOGGER, last, &e, &r);
    EXPECT_EQ(r, ERR_NO_OBJECT) << "behind the newest entry";
    LogGetNextEntry(LOG_STD_LOGGER, nullptr, &e, &r);
    EXPECT_EQ(r, ERR_PARAMETER);
}

TEST_F(LogTest, FilterAndEnableDropEntries) {
    Configure("Logger.0.Filter=0x4\nLogger.0.Backend.0.ClassId=0\n");
    EXPECT_EQ(LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "filtered info"), ERR_OK);
    LogAdd(LOG_STD_LOGGER, 1, LOG_ERROR, 0, 0, "kept error");
    EXPECT_TRUE(RingTexts(LOG_STD_LOGGER, "filtered info").empty());
    EXPECT_EQ(RingTexts(LOG_STD_LOGGER, "kept error").size(), 1u);
    Configure("Logger.0.Enable=0\nLogger.0.Backend.0.ClassId=0\n");
    LogAdd(LOG_STD_LOGGER, 1, LOG_ERROR, 0, 0, "disabled error");
    EXPECT_TRUE(RingTexts(LOG_STD_LOGGER, "disabled error").empty());
}

TEST_F(LogTest, UnknownLoggerHandlesAreRefused) {
    int notALogger = 0;
    EXPECT_EQ(LogAdd(&notALogger, 1, LOG_INFO, 0, 0, "x"), ERR_PARAMETER);
    RTS_RESULT r = ERR_OK;
    EXPECT_EQ(LogGetFirstEntry(&notALogger, nullptr, &r), nullptr);
    EXPECT_EQ(r, ERR_PARAMETER);
    LogGetNextEntry(&notALogger, reinterpret_cast<RTS_HANDLE>(1), nullptr, &r);
    EXPECT_EQ(r, ERR_PARAMETER);
    EXPECT_EQ(LogUnregisterBackend(&notALogger, 260), ERR_PARAMETER);
}

TEST_F(LogTest, CreatedLoggersHaveTheirOwnRing) {
    Configure("Logger.0.Backend.0.ClassId=0\n");
    LogOptions o{};
    std::snprintf(o.name, sizeof(o.name), "AppLog");
    o.enable = 1;
    o.filter = 0xFFFFFFFFu;
    o.maxEntries = 10;
    RTS_RESULT r = ERR_FAILED;
    RTS_HANDLE h = LogCreate(&o, &r);
    ASSERT_EQ(r, ERR_OK);
    ASSERT_NE(h, RTS_INVALID_HANDLE);
    LogAdd(h, 1, LOG_INFO, 0, 0, "only in AppLog");
    EXPECT_EQ(RingTexts(h, "only in AppLog").size(), 1u);
    EXPECT_TRUE(RingTexts(LOG_STD_LOGGER, "only in AppLog").empty());
    EXPECT_EQ(LogCreate(&o, &r), h);
    EXPECT_EQ(r, ERR_DUPLICATE);
    EXPECT_EQ(LogDelete(h), ERR_OK);
    EXPECT_EQ(LogDelete(h), ERR_PARAMETER);
    EXPECT_EQ(LogDelete(LOG_STD_LOGGER), ERR_PARAMETER) << "the standard logger stays";
    LogOptions unnamed{};
    EXPECT_EQ(LogCreate(&unnamed, &r), RTS_INVALID_HANDLE);
    EXPECT_EQ(r, ERR_PARAMETER);
    EXPECT_EQ(LogCreate(nullptr, nullptr), RTS_INVALID_HANDLE);
}

TEST_F(LogTest, FurtherLoggersComeFromTheSettings) {
    Configure("Logger.0.Backend.0.ClassId=0\nLogger.1.Name=IoLog\nLogger.1.MaxEntries=3\n");
    LogOptions o{};
    std::snprintf(o.name, sizeof(o.name), "IoLog");
    RTS_RESULT r = ERR_FAILED;
    RTS_HANDLE h = LogCreate(&o, &r);
    EXPECT_EQ(r, ERR_DUPLICATE) << "the configured logger exists already";
    for (int i = 0; i < 5; ++i)
        LogAdd(h, 1, LOG_INFO, 0, 0, "io %d", i);
    EXPECT_EQ(Ring(h).size(), 3u);
}

TEST_F(LogTest, OutOfRangeSettingsAreNamedAndReplaced) {
    Configure("Logger.0.MaxEntries=0\nLogger.0.MaxFiles=-2\nLogger.0.Backend.0.ClassId=0\nLogger.0.Filter=lots\n");
    EXPECT_EQ(RingTexts(LOG_STD_LOGGER, "MaxEntries=0 is out of range").size(), 1u);
    EXPECT_EQ(RingTexts(LOG_STD_LOGGER, "MaxFiles=-2 is negative").size(), 1u);
    for (int i = 0; i < 1200; ++i)
        LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "fill %d", i);
    EXPECT_EQ(Ring(LOG_STD_LOGGER).size(), 1000u) << "the default ring size";
    Configure("Logger.0.MaxEntries=999999\nLogger.0.Backend.0.ClassId=0\n");
    EXPECT_EQ(RingTexts(LOG_STD_LOGGER, "MaxEntries=999999 is out of range").size(), 1u);
}

TEST_F(LogTest, ConsoleEchoesWithoutMarkup) {
    Configure("Console=1\nLogger.0.Backend.0.ClassId=0\n");
    LogAdd(LOG_STD_LOGGER, 1, LOG_ERROR, 0, 0, "Cannot find <file>%s</file>", "x.cfg");
    ASSERT_EQ(ConsoleLines().size(), 1u);
    const std::string &line = ConsoleLines()[0];
    EXPECT_EQ(line.substr(12), " ERROR Cannot find x.cfg\n");
    ConsoleLines().clear();
    Configure("Console=0\nLogger.0.Backend.0.ClassId=0\n");
    LogAdd(LOG_STD_LOGGER, 1, LOG_ERROR, 0, 0, "quiet");
    EXPECT_TRUE(ConsoleLines().empty());
}

TEST_F(LogTest, ConsoleOutlivesSysOut) {
    Configure("Console=1\nLogger.0.Backend.0.ClassId=0\n");
    std::string name = "SysOut";
    cm_.Hook(CH_COMPONENT_EXIT, reinterpret_cast<RTS_UINTPTR>(name.c_str()));
    testing::internal::CaptureStdout();
    LogAdd(LOG_STD_LOGGER, 1, LOG_ERROR, 0, 0, "late line");
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(ConsoleLines().empty()) << "SysOut is gone";
    EXPECT_NE(out.find("ERROR late line\n"), std::string::npos) << out;
}

TEST_F(LogTest, ConcurrentWritersLoseNothing) {
    Configure("Logger.0.MaxEntries=10000\nLogger.0.Backend.0.ClassId=0\n");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 500; ++i)
                LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "mt %d %d", t, i);
        });
    }
    for (auto &th : threads)
        th.join();
    std::vector<std::string> texts = RingTexts(LOG_STD_LOGGER, "mt ");
    ASSERT_EQ(texts.size(), 2000u);
    std::vector<int> next(4, 0);
    for (const std::string &s : texts) {
        int t = 0, i = 0;
        ASSERT_EQ(std::sscanf(s.c_str(), "mt %d %d", &t, &i), 2);
        EXPECT_EQ(i, next[t]) << "each writer's entries stay in order";
        next[t] = i + 1;
    }
}

} // namespace
