// Tests of the logger's own printf formatting (against the C library's
// vsnprintf, conversion by conversion) and of the console line.
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

#include "LogFormat.h"

using kestrel::cmplog::FormatConsoleLine;
using kestrel::cmplog::FormatText;

namespace {

// Formats with both and returns whether they agree (reported on failure).
std::string Ours(std::size_t size, const char *fmt, ...) {
    std::string buf(size, '\x7F');
    va_list args;
    va_start(args, fmt);
    std::size_t n = FormatText(buf.data(), size, fmt, args);
    va_end(args);
    EXPECT_EQ(n, std::string(buf.c_str()).size()) << fmt;
    return buf.c_str();
}

std::string Theirs(std::size_t size, const char *fmt, ...) {
    std::string buf(size, '\x7F');
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(buf.data(), size, fmt, args);
    va_end(args);
    return buf.c_str();
}

#define EXPECT_SAME(size, ...) EXPECT_EQ(Ours(size, __VA_ARGS__), Theirs(size, __VA_ARGS__)) << #__VA_ARGS__

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
    std::string p = Ours(64, "%p", static_cast<void *>(&x));
    ASSERT_EQ(p.substr(0, 2), "0x");
    EXPECT_EQ(std::stoull(p.substr(2), nullptr, 16), reinterpret_cast<std::uintptr_t>(&x));
    EXPECT_EQ(Ours(64, "%s", static_cast<const char *>(nullptr)), "(null)");
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
