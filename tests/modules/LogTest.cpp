// Tests of CmpLog: entries and their fields, the ring, filters, further
// loggers, settings out of range, the console echo, backends (instances
// reached through interface 22, replay, rotation, unregistering, failures),
// and its own printf formatting against the C library's vsnprintf.
#include <chrono>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <thread>

#include <gmock/gmock.h>

#include "LogFormat.h"
#include "LogTestSupport.h"

using namespace kestrel::test;
using kestrel::cmplog::FormatConsoleLine;
using kestrel::cmplog::FormatText;

namespace {

TEST_F(LogTest, StandardLoggerKeepsEveryFieldAndCutsLongTexts) {
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

TEST_F(LogTest, FileBackendClassIsTheDefault) {
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "before the backend");
    Configure("Logger.0.Name=PlcLog\nLogger.0.MaxFiles=7\n");
    EXPECT_EQ(Backend().opens, 1);
    EXPECT_EQ(Backend().openedName, "PlcLog");
    EXPECT_EQ(Backend().openedMaxFiles, 7);
    // Entries logged before the backend existed were replayed into it.
    EXPECT_THAT(Backend().texts, testing::Contains("before the backend"));
    std::size_t n = Backend().texts.size();
    for (int i = 0; i < 7; ++i)
        LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "to the file %d", i);
    ASSERT_EQ(Backend().texts.size(), n + 7);
    EXPECT_EQ(Backend().texts.back(), "to the file 6");
    EXPECT_FALSE(Backend().wrongHandleSeen) << "each write used the handle the previous one returned";
    EXPECT_EQ(Backend().references, 1) << "one reference from the interface query";
}

TEST_F(LogTest, UnregisterClosesAndGivesTheInstanceBack) {
    Configure("Logger.0.Backend.0.ClassId=260\n");
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "written");
    EXPECT_EQ(LogUnregisterBackend(RTS_INVALID_HANDLE, 260), ERR_OK);
    EXPECT_EQ(Backend().closes, 1);
    EXPECT_FALSE(Backend().wrongHandleSeen) << "closed with its current handle";
    EXPECT_EQ(Backend().references, 0);
    EXPECT_EQ(Backend().deletes, 1);
    std::size_t n = Backend().texts.size();
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "after unregister");
    EXPECT_EQ(Backend().texts.size(), n);
    EXPECT_EQ(RingTexts(LOG_STD_LOGGER, "after unregister").size(), 1u) << "the ring goes on";
    EXPECT_EQ(LogUnregisterBackend(RTS_INVALID_HANDLE, 260), ERR_NO_OBJECT);
    EXPECT_EQ(LogUnregisterBackend(LOG_STD_LOGGER, 260), ERR_NO_OBJECT);
}

TEST_F(LogTest, ExitHookClosesWhatIsLeft) {
    Configure("Logger.0.Backend.0.ClassId=260\nLogger.1.Name=Second\nLogger.1.Backend.0.ClassId=260\n");
    EXPECT_EQ(Backend().opens, 2);
    cm_.Hook(CH_EXIT2);
    EXPECT_EQ(Backend().closes, 2);
    EXPECT_EQ(Backend().deletes, 2);
    EXPECT_EQ(Backend().references, 0);
}

TEST_F(LogTest, UnknownBackendClassGivesAClearLine) {
    Configure("Logger.0.Backend.0.ClassId=999\n");
    auto lines = RingTexts(LOG_STD_LOGGER, "no backend of class 999");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("<name>PlcLog</name>"), std::string::npos);
    EXPECT_EQ(Backend().opens, 0);
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "still logging");
    EXPECT_EQ(RingTexts(LOG_STD_LOGGER, "still logging").size(), 1u);
}

TEST_F(LogTest, ClassWithoutLogInterfaceGivesAClearLine) {
    Configure("Logger.0.Backend.0.ClassId=261\nLogger.0.Backend.1.ClassId=260\n");
    EXPECT_EQ(RingTexts(LOG_STD_LOGGER, "class 261 is no log backend").size(), 1u);
    EXPECT_EQ(Backend().opens, 1) << "the next backend is still attached";
}

TEST_F(LogTest, BackendThatCannotOpenIsGivenBack) {
    Backend().failOpen = true;
    Configure("Logger.0.Backend.0.ClassId=260\n");
    EXPECT_EQ(RingTexts(LOG_STD_LOGGER, "backend of class 260 could not open").size(), 1u);
    EXPECT_EQ(Backend().references, 0);
    EXPECT_EQ(Backend().deletes, 1);
    std::size_t n = Backend().texts.size();
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "not written");
    EXPECT_EQ(Backend().texts.size(), n);
}

TEST_F(LogTest, BackendLoggingWhileWritingDoesNotRecurse) {
    Configure("Logger.0.Backend.0.ClassId=260\n");
    Backend().logWhileWriting = true;
    std::size_t n = Backend().texts.size();
    LogAdd(LOG_STD_LOGGER, 1, LOG_ERROR, 0, 0, "outer entry");
    ASSERT_EQ(Backend().texts.size(), n + 1);
    EXPECT_EQ(Backend().texts.back(), "outer entry");
    EXPECT_EQ(RingTexts(LOG_STD_LOGGER, "backend trouble while writing").size(), 1u) << "kept in the ring";
    Backend().logWhileWriting = false;
}

// Formats with ours (checking the length it returns) or with the C
// library's vsnprintf into a buffer of size bytes.
std::string Format(bool ours, std::size_t size, const char *fmt, ...) {
    std::string buf(size, '\x7F');
    va_list args;
    va_start(args, fmt);
    if (ours) {
        std::size_t n = FormatText(buf.data(), size, fmt, args);
        EXPECT_EQ(n, std::strlen(buf.c_str())) << fmt;
    } else {
        std::vsnprintf(buf.data(), size, fmt, args);
    }
    va_end(args);
    return buf.c_str();
}

#define EXPECT_SAME(size, ...)                                                                                         \
    EXPECT_EQ(Format(true, size, __VA_ARGS__), Format(false, size, __VA_ARGS__)) << #__VA_ARGS__

TEST(LogFormat, IntegersMatchThePrintfFamily) {
    for (int v : {0, 1, -1, 42, -42, 123456, INT_MAX, INT_MIN}) {
        EXPECT_SAME(64, "%d|%i|%5d|%-5d|%05d|%+d|% d|%.3d|%8.3d|%-8.3d|%.0d", v, v, v, v, v, v, v, v, v, v, v);
    }
    for (unsigned v : {0u, 1u, 0xABCDu, 0x80000000u, UINT_MAX}) {
        EXPECT_SAME(96, "%u|%x|%X|%08x|%#x|%#X|%#010x|%o|%#o|%-10x|%.2x|%.0x", v, v, v, v, v, v, v, v, v, v, v, v);
    }
    EXPECT_SAME(64, "%ld %lu %lx", -5L, 5UL, 0xFFFFFFFFUL);
    EXPECT_SAME(96, "%lld %llu %llx", LLONG_MIN, ULLONG_MAX, 0x123456789ABCDEFULL);
    EXPECT_SAME(64, "%zu %zx %td", static_cast<std::size_t>(77), static_cast<std::size_t>(255),
                static_cast<std::ptrdiff_t>(-3));
    EXPECT_SAME(64, "%hd %hu %hhd %hhu", 70000, 70000, 300, 300);
    EXPECT_SAME(64, "%jd %ju", static_cast<std::intmax_t>(-9), static_cast<std::uintmax_t>(9));
    EXPECT_SAME(64, "%*d|%-*d|%.*d|%*d", 6, 12, 6, 12, 4, 12, -6, 12);
}

TEST(LogFormat, TextCharactersPointersPercent) {
    EXPECT_SAME(64, "<cmp>%s</cmp> init, <id>0x%08x</id>", "CmpLog", 0x101u);
    EXPECT_SAME(64, "[%10s][%-10s][%.3s][%10.2s][%s]", "abc", "abc", "abcdef", "abcdef", "");
    EXPECT_SAME(64, "%c%c%5c%-3c|", 'a', 'Z', 'q', 'r');
    EXPECT_SAME(64, "100%% %s", "done");
    // Pointers: "0x" and hexadecimal digits on every platform (C libraries differ here).
    int x = 0;
    std::string p = Format(true, 64, "%p", static_cast<void *>(&x));
    ASSERT_EQ(p.substr(0, 2), "0x");
    EXPECT_EQ(std::stoull(p.substr(2), nullptr, 16), reinterpret_cast<std::uintptr_t>(&x));
    EXPECT_EQ(Format(true, 64, "%s", static_cast<const char *>(nullptr)), "(null)");
}

TEST(LogFormat, OtherConversionsGoToTheLibrary) {
    EXPECT_SAME(64, "%d %.2f %s", 3, 2.5, "x");
    EXPECT_SAME(64, "%e|%g|%G", 12345.678, 0.0001, 1e20);
    EXPECT_SAME(64, "%5.1f%%", 99.44);
}

TEST(LogFormat, CutsAtTheBufferAndAlwaysTerminates) {
    for (std::size_t size : {1u, 2u, 5u, 9u, 10u, 11u}) {
        EXPECT_SAME(size, "%s=%d", "abcdef", 1234);
        EXPECT_SAME(size, "%08x%%", 0xFFu);
        EXPECT_SAME(size, "%f", 1.5);
    }
    char one[1] = {'x'};
    va_list none{};
    EXPECT_EQ(FormatText(one, 1, nullptr, none), 0u);
    EXPECT_EQ(one[0], '\0');
    EXPECT_EQ(FormatText(nullptr, 10, "x", none), 0u);
}

TEST(LogFormat, ConsoleLineHasTimeLevelAndTextWithoutMarkup) {
    LogEntry e{};
    e.classId = LOG_ERROR;
    std::snprintf(e.infoText, sizeof(e.infoText), "Failed to resolve <name>%s</name> of <cmp>X</cmp> a<b >c</>",
                  "SysFoo");
    char line[400];
    const RTS_UI32 ms = ((13u * 60u + 5u) * 60u + 9u) * 1000u + 7u;
    FormatConsoleLine(line, sizeof(line), e, ms);
    EXPECT_EQ(std::string(line), "13:05:09.007 ERROR Failed to resolve SysFoo of X a<b >c</>");
    struct Row {
        RTS_I32 classId;
        const char *level;
    };
    for (Row r : {Row{LOG_INFO, "INFO "}, Row{LOG_WARNING, "WARN "}, Row{LOG_EXCEPTION, "EXCPT"},
                  Row{LOG_DEBUG, "DEBUG"}, Row{LOG_PRINT, "     "}}) {
        e.classId = r.classId;
        FormatConsoleLine(line, sizeof(line), e, 0);
        EXPECT_EQ(std::string(line).substr(0, 19), std::string("00:00:00.000 ") + r.level + " ");
    }
    char small[20];
    FormatConsoleLine(small, sizeof(small), e, 0);
    EXPECT_EQ(std::string(small).size(), sizeof(small) - 1);
}

} // namespace
