// Tests of CmpLog: entries, rings, loggers, settings, the console echo,
// backends reached through interface 22, and its printf against vsnprintf.
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "CmpSettingsItf.h"
#include "LogFormat.h"
#include "ModuleTestSupport.h"

using namespace kestrel::test;
using kestrel::cmplog::FormatConsoleLine;
using kestrel::cmplog::FormatText;

namespace {

// The instance of backend class 260 as the file system would offer one:
// IBase plus interface 22. Class 261 has no interface 22, others no instance.
struct TestBackend {
    IBase base{};
    ILogBackend itf{};
    int references = 0, opens = 0, closes = 0, deletes = 0;
    bool failOpen = false, logWhileWriting = false;
    std::string opened;             // name and file count it was opened with
    RTS_HANDLE current = nullptr;   // the handle last handed out
    bool wrongHandleSeen = false;   // a call came with a stale handle
    std::vector<std::string> texts; // entries written, in order
} s_backend;
IBase s_noLogInterface{};
std::vector<std::string> s_console; // lines received through the imported SysOutVPrintf

std::string Counts() {
    return "opens " + std::to_string(s_backend.opens) + ", closes " + std::to_string(s_backend.closes) + ", deletes " +
           std::to_string(s_backend.deletes) + ", references " + std::to_string(s_backend.references);
}

RTS_HANDLE Answer(RTS_RESULT *pResult, void *p) {
    if (pResult != nullptr)
        *pResult = p != nullptr ? ERR_OK : ERR_NO_OBJECT;
    return p;
}

void ResetBackend() {
    s_backend = TestBackend{};
    s_backend.base.QueryInterface = [](IBase *pBase, ITFID iid, RTS_RESULT *pResult) -> void * {
        bool known = pBase == &s_backend.base && iid == ITFID_ILogBackend;
        s_backend.references += known ? 1 : 0;
        return Answer(pResult, known ? &s_backend.itf : nullptr);
    };
    s_backend.base.Release = [](IBase *) { return --s_backend.references; };
    s_noLogInterface.QueryInterface = s_backend.base.QueryInterface;
    s_backend.itf.Open = [](RTS_HANDLE, RTS_HANDLE, LogOptions *pOptions) {
        ++s_backend.opens;
        s_backend.opened = pOptions->name + std::string(" ") + std::to_string(pOptions->maxFiles);
        s_backend.current = reinterpret_cast<RTS_HANDLE>(static_cast<RTS_UINTPTR>(0x1000));
        return s_backend.failOpen ? RTS_INVALID_HANDLE : s_backend.current;
    };
    s_backend.itf.Close = [](RTS_HANDLE hFile) {
        ++s_backend.closes;
        s_backend.wrongHandleSeen |= hFile != s_backend.current;
        return ERR_OK;
    };
    // Every third entry the "file" is rotated: a new handle comes back.
    s_backend.itf.WriteEntry = [](RTS_HANDLE hFile, LogOptions *, LogEntry *pEntry, RTS_I32 *) {
        s_backend.wrongHandleSeen |= hFile != s_backend.current;
        s_backend.texts.emplace_back(pEntry->infoText);
        if (s_backend.logWhileWriting)
            LogAdd(LOG_STD_LOGGER, 0x777, LOG_ERROR, 1, 0, "backend trouble while writing");
        if (s_backend.texts.size() % 3 == 0)
            s_backend.current = reinterpret_cast<RTS_HANDLE>(reinterpret_cast<RTS_UINTPTR>(s_backend.current) + 1);
        return s_backend.current;
    };
}

// CmpLog entered with the instance services of the test backend classes.
RTS_RESULT WrappedLogEntry(ComponentInitStruct *pInit) {
    pInit->pfCMCreateInstance = [](CLASSID classId, RTS_RESULT *pResult) {
        return Answer(pResult, classId == 260 ? &s_backend.base : classId == 261 ? &s_noLogInterface : nullptr);
    };
    pInit->pfCMDeleteInstance2 = [](CLASSID classId, RTS_HANDLE hInstance) {
        s_backend.deletes += classId == 260 && hInstance == &s_backend.base ? 1 : 0;
        return ERR_OK;
    };
    return CmpLogEntry(pInit);
}

RTS_RESULT RecordingVPrintf(const char *fmt, va_list args) {
    char text[1024];
    std::vsnprintf(text, sizeof(text), fmt, args);
    s_console.emplace_back(text);
    return ERR_OK;
}

// Every entry of a logger's ring, oldest first.
std::vector<LogEntry> Ring(RTS_HANDLE hLogger) {
    std::vector<LogEntry> entries;
    LogEntry e{};
    RTS_RESULT r = ERR_FAILED;
    for (RTS_HANDLE h = LogGetFirstEntry(hLogger, &e, &r); r == ERR_OK; h = LogGetNextEntry(hLogger, h, &e, &r))
        entries.push_back(e);
    return entries;
}

// The number of ring entries that contain needle.
std::size_t RingCount(RTS_HANDLE hLogger, const std::string &needle) {
    std::size_t n = 0;
    for (const LogEntry &e : Ring(hLogger))
        n += std::string(e.infoText).find(needle) != std::string::npos ? 1 : 0;
    return n;
}

// CmpLog with the real settings component, a recording console and the test backends.
class LogTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ResetBackend();
        s_console.clear();
        cm_.Provide("SysOutVPrintf", &RecordingVPrintf);
        cm_.Provide("SettgGetIntValue", &SettgGetIntValue);
        cm_.Provide("SettgGetStringValue", &SettgGetStringValue);
        EnterModule(cm_, WrappedLogEntry);
    }
    void TearDown() override { cm_.Hook(CH_EXIT2); }
    // Writes the [CmpLog] section and applies it as the manager does at hook 8.
    void Configure(const std::string &cmpLogSection) {
        ASSERT_EQ(SettgSetDatabaseName(dir_.Write("log.cfg", "[CmpLog]\n" + cmpLogSection).c_str()), ERR_OK);
        ASSERT_EQ(cm_.Hook(CH_INIT_SYSTEM), ERR_OK);
    }
    FakeCM cm_;
    TempDir dir_;
};

// An entry keeps every field and a real-time-clock millisecond stamp, cut to
// its text size; filtered and disabled entries are dropped; class 0: no backend.
TEST_F(LogTest, StandardLoggerKeepsEveryFieldAndFilters) {
    Configure("Logger.0.Filter=0x6\nLogger.0.Backend.0.ClassId=0\n");
    auto before = std::chrono::system_clock::now().time_since_epoch() / std::chrono::milliseconds(1);
    ASSERT_EQ(LogAdd(LOG_STD_LOGGER, 0x1234, LOG_WARNING, 17, 99, "value %d of <cmp>%s</cmp>", 5, "Fields"), ERR_OK);
    const LogEntry e = Ring(LOG_STD_LOGGER).back();
    EXPECT_EQ(std::to_string(e.cmpId) + " " + std::to_string(e.classId) + " " + std::to_string(e.errorId) + " " +
                  std::to_string(e.infoId) + " " + e.infoText,
              std::to_string(0x1234) + " 2 17 99 value 5 of <cmp>Fields</cmp>");
    EXPECT_GE(static_cast<long long>(e.timestamp), static_cast<long long>(before));
    EXPECT_LT(static_cast<long long>(e.timestamp), static_cast<long long>(before) + 5000);
    LogAdd(LOG_STD_LOGGER, 1, LOG_ERROR, 0, 0, "cut:%s", std::string(1000, 'y').c_str());
    EXPECT_EQ(Ring(LOG_STD_LOGGER).back().infoText, "cut:" + std::string(LOG_MAX_INFO - 5, 'y'));
    EXPECT_EQ(LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "filtered info"), ERR_OK);
    Configure("Logger.0.Enable=0\nLogger.0.Backend.0.ClassId=0\n");
    LogAdd(LOG_STD_LOGGER, 1, LOG_ERROR, 0, 0, "disabled error");
    EXPECT_EQ(RingCount(LOG_STD_LOGGER, "filtered info") + RingCount(LOG_STD_LOGGER, "disabled error"), 0u);
    EXPECT_EQ(s_backend.opens + s_console.size(), 0u) << "no backend, no console unless asked for";
}

// The ring keeps the newest entries in order; a stale handle goes on with the
// oldest one left; handles that are no logger are refused.
TEST_F(LogTest, RingKeepsTheNewestEntriesInOrder) {
    Configure("Logger.0.MaxEntries=5\n");
    LogEntry e{};
    RTS_RESULT r = ERR_FAILED;
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "ring start");
    RTS_HANDLE stale = LogGetFirstEntry(LOG_STD_LOGGER, &e, &r);
    for (int i = 0; i < 12; ++i)
        LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "ring %d", i);
    std::string texts;
    for (const LogEntry &entry : Ring(LOG_STD_LOGGER))
        texts += std::string(entry.infoText) + ",";
    EXPECT_EQ(texts, "ring 7,ring 8,ring 9,ring 10,ring 11,");
    LogGetNextEntry(LOG_STD_LOGGER, stale, &e, &r);
    ASSERT_EQ(r, ERR_OK);
    EXPECT_STREQ(e.infoText, "ring 7");
    int notALogger = 0;
    RTS_RESULT first = ERR_OK, next = ERR_OK;
    EXPECT_EQ(LogGetFirstEntry(&notALogger, nullptr, &first), nullptr);
    LogGetNextEntry(&notALogger, reinterpret_cast<RTS_HANDLE>(1), nullptr, &next);
    LogGetNextEntry(LOG_STD_LOGGER, nullptr, &e, &r);
    for (RTS_RESULT bad :
         {LogAdd(&notALogger, 1, LOG_INFO, 0, 0, "x"), LogUnregisterBackend(&notALogger, 260), first, next, r})
        EXPECT_EQ(bad, ERR_PARAMETER);
}

// Loggers from the settings or LogCreate have their own rings (and sizes); the
// exit hook closes and gives back every backend.
TEST_F(LogTest, FurtherLoggersHaveTheirOwnRing) {
    Configure("Logger.1.Name=IoLog\nLogger.1.MaxEntries=3\nLogger.1.Backend.0.ClassId=260\n");
    LogOptions o{"IoLog", 0, 0, 0, 0, 0, 0, nullptr};
    RTS_RESULT r = ERR_FAILED;
    RTS_HANDLE io = LogCreate(&o, &r);
    EXPECT_EQ(r, ERR_DUPLICATE) << "the configured logger exists already";
    for (int i = 0; i < 5; ++i)
        LogAdd(io, 1, LOG_INFO, 0, 0, "only in IoLog %d", i);
    EXPECT_EQ(Ring(io).size(), 3u);
    EXPECT_EQ(RingCount(LOG_STD_LOGGER, "only in IoLog"), 0u);
    LogOptions app{"AppLog", 1, 0, LOG_INFO, 0, 0, 0, nullptr}; // options 0: stamps in seconds
    RTS_HANDLE h = LogCreate(&app, &r);
    ASSERT_EQ(r, ERR_OK);
    LogAdd(h, 1, LOG_INFO, 0, 0, "only in AppLog");
    EXPECT_EQ(RingCount(h, "only in AppLog"), 1u);
    EXPECT_EQ(LogDelete(h), ERR_OK);
    LogOptions unnamed{};
    EXPECT_EQ(LogCreate(&unnamed, &r), RTS_INVALID_HANDLE);
    EXPECT_EQ(r, ERR_PARAMETER);
    EXPECT_EQ(LogCreate(nullptr, nullptr), RTS_INVALID_HANDLE);
    EXPECT_EQ(LogDelete(h), ERR_PARAMETER);
    EXPECT_EQ(LogDelete(LOG_STD_LOGGER), ERR_PARAMETER) << "the standard logger stays";
    cm_.Hook(CH_EXIT2);
    EXPECT_EQ(Counts(), "opens 2, closes 2, deletes 2, references 0");
}

// Ring sizes and file counts out of range are named in the log and replaced.
TEST_F(LogTest, OutOfRangeSettingsAreNamedAndReplaced) {
    Configure("Logger.0.MaxEntries=0\nLogger.0.MaxFiles=-2\nLogger.0.Filter=lots\n");
    EXPECT_EQ(RingCount(LOG_STD_LOGGER, "MaxEntries=0 is out of range"), 1u);
    EXPECT_EQ(RingCount(LOG_STD_LOGGER, "MaxFiles=-2 is negative"), 1u);
    EXPECT_EQ(s_backend.opened, "PlcLog 3");
    for (int i = 0; i < 1200; ++i)
        LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "fill %d", i);
    EXPECT_EQ(Ring(LOG_STD_LOGGER).size(), 1000u) << "the default ring size";
    Configure("Logger.0.MaxEntries=999999\n");
    EXPECT_EQ(RingCount(LOG_STD_LOGGER, "MaxEntries=999999 is out of range"), 1u);
}

char s_consoleOn[] = "KESTREL_CONSOLE=1";
char s_consoleOff[] = "KESTREL_CONSOLE=";

// The host's KESTREL_CONSOLE=1 turns the echo on from the entry on until a
// Console key says otherwise (Console=1 and the late echo: end-to-end test).
TEST_F(LogTest, HostTurnsTheEchoOnAndTheSettingsCanOverrule) {
    putenv(s_consoleOn);
    EnterModule(cm_, WrappedLogEntry);
    LogAdd(LOG_STD_LOGGER, 1, LOG_ERROR, 0, 0, "Cannot find <file>%s</file>", "x.cfg");
    Configure("");
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "still echoed");
    putenv(s_consoleOff);
    ASSERT_EQ(s_console.size(), 2u);
    EXPECT_EQ(s_console[0].substr(12), " ERROR Cannot find x.cfg\n");
    Configure("Console=0\n");
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "silenced");
    EXPECT_EQ(s_console.size(), 2u);
}

// Concurrent writers lose no entry.
TEST_F(LogTest, ConcurrentWritersLoseNothing) {
    Configure("Logger.0.MaxEntries=10000\n");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 500; ++i)
                LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "concurrent %d", i);
        });
    }
    for (auto &th : threads)
        th.join();
    EXPECT_EQ(RingCount(LOG_STD_LOGGER, "concurrent "), 2000u);
}

// Logger 0 writes to class 260 by default, replaying earlier entries and using
// the handle each write returns; unregistering closes it and gives it back.
TEST_F(LogTest, FileBackendIsTheDefaultAndUnregisterGivesItBack) {
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "before the backend");
    Configure("Logger.0.Name=PlcLog\nLogger.0.MaxFiles=7\n");
    EXPECT_EQ(s_backend.opened, "PlcLog 7");
    ASSERT_FALSE(s_backend.texts.empty());
    EXPECT_EQ(s_backend.texts.back(), "before the backend");
    std::size_t n = s_backend.texts.size();
    for (int i = 0; i < 7; ++i)
        LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "to the file %d", i);
    ASSERT_EQ(s_backend.texts.size(), n + 7);
    EXPECT_EQ(s_backend.texts.back(), "to the file 6");
    EXPECT_EQ(Counts(), "opens 1, closes 0, deletes 0, references 1");
    EXPECT_EQ(LogUnregisterBackend(RTS_INVALID_HANDLE, 260), ERR_OK);
    EXPECT_EQ(Counts(), "opens 1, closes 1, deletes 1, references 0");
    EXPECT_FALSE(s_backend.wrongHandleSeen);
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "after unregister");
    EXPECT_EQ(s_backend.texts.size(), n + 7);
    EXPECT_EQ(RingCount(LOG_STD_LOGGER, "after unregister"), 1u) << "the ring goes on";
    EXPECT_EQ(LogUnregisterBackend(LOG_STD_LOGGER, 260), ERR_NO_OBJECT);
}

// Unknown classes, classes without interface 22 and backends that cannot open
// give a clear line each; a backend's own entries go to the ring only.
TEST_F(LogTest, UnusableBackendsGiveAClearLine) {
    Configure("Logger.0.Backend.0.ClassId=999\nLogger.0.Backend.1.ClassId=261\nLogger.0.Backend.2.ClassId=260\n");
    EXPECT_EQ(RingCount(LOG_STD_LOGGER, "Logger <name>PlcLog</name>: no backend of class 999"), 1u);
    EXPECT_EQ(RingCount(LOG_STD_LOGGER, "class 261 is no log backend"), 1u);
    EXPECT_EQ(Counts(), "opens 1, closes 0, deletes 0, references 1");
    s_backend.logWhileWriting = true;
    LogAdd(LOG_STD_LOGGER, 1, LOG_ERROR, 0, 0, "outer entry");
    EXPECT_EQ(s_backend.texts.back(), "outer entry");
    EXPECT_EQ(RingCount(LOG_STD_LOGGER, "backend trouble while writing"), 1u);
    cm_.Hook(CH_EXIT2);
    ResetBackend();
    s_backend.failOpen = true;
    Configure("");
    EXPECT_EQ(RingCount(LOG_STD_LOGGER, "backend of class 260 could not open"), 1u);
    EXPECT_EQ(Counts(), "opens 1, closes 0, deletes 1, references 0");
    LogAdd(LOG_STD_LOGGER, 1, LOG_INFO, 0, 0, "not written");
    EXPECT_TRUE(s_backend.texts.empty());
}

// Formats with ours (checking its length) or vsnprintf into size bytes.
std::string Format(bool ours, std::size_t size, const char *fmt, ...) {
    std::string buf(size, '\x7F');
    va_list args;
    va_start(args, fmt);
    std::size_t n = ours ? FormatText(buf.data(), size, fmt, args) : 0;
    if (ours)
        EXPECT_EQ(n, std::strlen(buf.c_str())) << fmt;
    else
        std::vsnprintf(buf.data(), size, fmt, args);
    va_end(args);
    return buf.c_str();
}

#define EXPECT_SAME(size, ...)                                                                                         \
    EXPECT_EQ(Format(true, size, __VA_ARGS__), Format(false, size, __VA_ARGS__)) << #__VA_ARGS__

// Flags, widths, precisions and length modifiers of the integer conversions.
TEST(LogFormat, IntegersMatchThePrintfFamily) {
    for (int v : {0, 1, -1, 42, 123456, INT_MAX, INT_MIN})
        EXPECT_SAME(64, "%d|%i|%5d|%-5d|%05d|%+d|% d|%.3d|%8.3d|%-8.3d|%.0d", v, v, v, v, v, v, v, v, v, v, v);
    for (unsigned v : {0u, 1u, 0xABCDu, UINT_MAX})
        EXPECT_SAME(96, "%u|%x|%X|%08x|%#x|%#X|%#010x|%o|%#o|%-10x|%.2x|%.0x", v, v, v, v, v, v, v, v, v, v, v, v);
    EXPECT_SAME(64, "%ld %lu %lx", -5L, 5UL, 0xFFFFFFFFUL);
    EXPECT_SAME(96, "%lld %llu %llx", LLONG_MIN, ULLONG_MAX, 0x123456789ABCDEFULL);
    EXPECT_SAME(64, "%zu %zx %td", static_cast<std::size_t>(77), static_cast<std::size_t>(255),
                static_cast<std::ptrdiff_t>(-3));
    EXPECT_SAME(64, "%hd %hu %hhd %hhu", 70000, 70000, 300, 300);
    EXPECT_SAME(64, "%jd %ju", static_cast<std::intmax_t>(-9), static_cast<std::uintmax_t>(9));
    EXPECT_SAME(64, "%*d|%-*d|%.*d|%*d", 6, 12, 6, 12, 4, 12, -6, 12);
}

// Strings, characters, '%', pointers ("0x" everywhere, unlike C libraries),
// null strings; floating point goes to the library.
TEST(LogFormat, TextCharactersPointersPercent) {
    EXPECT_SAME(64, "<cmp>%s</cmp> init, <id>0x%08x</id>", "CmpLog", 0x101u);
    EXPECT_SAME(64, "[%10s][%-10s][%.3s][%10.2s][%s]", "abc", "abc", "abcdef", "abcdef", "");
    EXPECT_SAME(64, "%c%c%5c%-3c|100%% %s", 'a', 'Z', 'q', 'r', "done");
    EXPECT_SAME(64, "%d %.2f %e|%g|%G %5.1f%%", 3, 2.5, 12345.678, 0.0001, 1e20, 99.44);
    int x = 0;
    std::string p = Format(true, 64, "%p", static_cast<void *>(&x));
    ASSERT_EQ(p.substr(0, 2), "0x");
    EXPECT_EQ(std::stoull(p.substr(2), nullptr, 16), reinterpret_cast<std::uintptr_t>(&x));
    EXPECT_EQ(Format(true, 64, "%s", static_cast<const char *>(nullptr)), "(null)");
}

// Output is cut at the buffer and always terminated.
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

// Console lines: time of day, a fixed-width level and the text without markup.
TEST(LogFormat, ConsoleLineHasTimeLevelAndTextWithoutMarkup) {
    LogEntry e{};
    e.classId = LOG_ERROR;
    std::snprintf(e.infoText, sizeof(e.infoText), "Failed to resolve <name>SysFoo</name> of <cmp>X</cmp> a<b >c</>");
    char line[400];
    FormatConsoleLine(line, sizeof(line), e, ((13u * 60u + 5u) * 60u + 9u) * 1000u + 7u);
    EXPECT_EQ(std::string(line), "13:05:09.007 ERROR Failed to resolve SysFoo of X a<b >c</>");
    std::string levels;
    for (RTS_UI32 c : {LOG_INFO, LOG_WARNING, LOG_EXCEPTION, LOG_DEBUG, LOG_PRINT}) {
        e.classId = static_cast<RTS_I32>(c);
        FormatConsoleLine(line, sizeof(line), e, 0);
        levels += std::string(line).substr(0, 19) + "|";
    }
    EXPECT_EQ(levels, "00:00:00.000 INFO  |00:00:00.000 WARN  |00:00:00.000 EXCPT |00:00:00.000 DEBUG |00:00:00.000 "
                      "      |");
    FormatConsoleLine(line, 20, e, 0);
    EXPECT_EQ(std::string(line).size(), 19u);
}

} // namespace
