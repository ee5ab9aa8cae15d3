// Tests of CMUtlvsnprintf and CMUtlsnprintf: the Windows _vsnprintf result
// rule with the terminator forced into the last byte, the parameter checks,
// and the formatted text compared with the C library's for a wide range of
// conversions at every buffer size around the output's length.
#include <cfloat>
#include <cmath>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <string_view>
#include <tuple>

#include <gtest/gtest.h>

#include "CMUtlItf.h"
#include "TestBuffer.h"

namespace {

using kestrel::test::MarkedBuffer;

// The argument list type as CMUtlvsnprintf receives it (a pointer on these
// targets); a value-initialised one is the null list a C caller can pass.
template <typename R, typename... A> auto ParameterTypes(R (*)(A...)) -> std::tuple<A...>;
using ArgListParameter = std::tuple_element_t<3, decltype(ParameterTypes(&CMUtlvsnprintf))>;

RTS_RESULT CallV(char *dest, RTS_SIZE size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const RTS_RESULT result = CMUtlvsnprintf(dest, size, format, args);
    va_end(args);
    return result;
}

TEST(CMUtlvsnprintf, RejectsNullArguments) {
    MarkedBuffer<> dest;
    EXPECT_EQ(CallV(nullptr, 8, "x"), ERR_PARAMETER);
    EXPECT_EQ(CallV(dest.get(), 8, nullptr), ERR_PARAMETER);
    EXPECT_EQ(CMUtlvsnprintf(dest.get(), 8, "x", ArgListParameter{}), ERR_PARAMETER);
    EXPECT_EQ(CMUtlsnprintf(nullptr, 8, "x"), ERR_PARAMETER);
    EXPECT_EQ(CMUtlsnprintf(dest.get(), 8, nullptr), ERR_PARAMETER);
    EXPECT_TRUE(dest.UntouchedFrom(0));
    EXPECT_EQ(CallV(dest.get(), 8, "%s-%d", "v", 7), ERR_OK);
    EXPECT_EQ(dest.Text(), "v-7");
}

// The C library's text is expected at every buffer size from 0 to eight past its length; only the
// text, its terminator and a terminator in the last byte are written.
template <typename... A> void ExpectLikeCLibrary(const char *format, A... args) {
    char reference[512];
    const int length = std::snprintf(reference, sizeof reference, format, args...);
    ASSERT_GE(length, 0) << format;
    ASSERT_LT(static_cast<std::size_t>(length), sizeof reference) << format;
    for (RTS_SIZE size = 0; size <= static_cast<RTS_SIZE>(length) + 8; ++size) {
        MarkedBuffer<char, 520> dest;
        const RTS_RESULT result = CMUtlsnprintf(dest.get(), size, format, args...);
        ASSERT_EQ(result, static_cast<RTS_SIZE>(length) <= size ? ERR_OK : ERR_BUFFERSIZE)
            << '"' << format << "\" size " << size;
        if (size == 0) {
            ASSERT_TRUE(dest.UntouchedFrom(0)) << format;
            continue;
        }
        const std::size_t kept = static_cast<std::size_t>(length) < size ? static_cast<std::size_t>(length) : size - 1;
        ASSERT_EQ(std::string_view(dest.get(), kept), std::string_view(reference, kept))
            << '"' << format << "\" size " << size;
        ASSERT_EQ(dest.data[kept], 0) << '"' << format << "\" size " << size;
        ASSERT_TRUE(dest.UntouchedFrom(kept + 1, size - 1 > kept ? size - 1 : kept + 1)) << format << ' ' << size;
        ASSERT_EQ(dest.data[size - 1], 0);
        ASSERT_TRUE(dest.UntouchedFrom(size)) << '"' << format << "\" size " << size;
    }
}

TEST(CMUtlsnprintf, ResultAndTerminatorRuleAtEveryBufferSize) {
    ExpectLikeCLibrary("");
    ExpectLikeCLibrary("abc");
    ExpectLikeCLibrary("n=%d", 42);
}

TEST(CMUtlsnprintf, SignedIntegersLikeTheCLibrary) {
    for (int v : {0, 1, -1, 7, -42, 123456, INT_MAX, INT_MIN}) {
        for (const char *format : {"%d", "%i", "%5d", "%-5d|", "%05d", "%+d", "% d", "%+ d", "%.3d", "%.0d", "%8.3d",
                                   "%-+8.3d|", "%+05d", "% 05d", "%05.3d", "%-05d|", "%12d", "%-012d|"}) {
            ExpectLikeCLibrary(format, v);
        }
    }
    ExpectLikeCLibrary("%ld %ld %ld", LONG_MIN, LONG_MAX, 0L);
    ExpectLikeCLibrary("%lld %lli %+lld", LLONG_MIN, LLONG_MAX, 5LL);
    ExpectLikeCLibrary("%hhd %hhd %hd %hd", 300, -129, 70000, -32769);
    ExpectLikeCLibrary("%jd %jd", INTMAX_MIN, INTMAX_MAX);
    ExpectLikeCLibrary("%zd %td %td", static_cast<std::ptrdiff_t>(-5), PTRDIFF_MIN, PTRDIFF_MAX);
}

TEST(CMUtlsnprintf, UnsignedIntegersLikeTheCLibrary) {
    for (unsigned v : {0u, 1u, 8u, 255u, 0xDEADBEEFu, UINT_MAX}) {
        for (const char *format : {"%u", "%o", "%x", "%X", "%#o", "%#x", "%#X", "%.0u", "%.0o", "%.0x", "%#.0x", "%#5x",
                                   "%#-8x|", "%#08x", "%08X", "%#10.4o", "%.10x"}) {
            ExpectLikeCLibrary(format, v);
        }
    }
    ExpectLikeCLibrary("%lu %lx %lo", ULONG_MAX, ULONG_MAX, ULONG_MAX);
    ExpectLikeCLibrary("%llu %llx %#llX", ULLONG_MAX, 0x123456789ABCDEFULL, 0xFEDCBA9876543210ULL);
    ExpectLikeCLibrary("%hhu %hhx %hu %hx", -1, 0x1FF, -1, 0x12345);
    ExpectLikeCLibrary("%ju %zu %zx %tu", UINTMAX_MAX, SIZE_MAX, static_cast<std::size_t>(0xABC),
                       static_cast<std::ptrdiff_t>(-1));
}

TEST(CMUtlsnprintf, FlagCornersFollowTheCStandardOnEveryBuild) {
    // Corners where C libraries disagree (the mingw-w64 one prints a blank
    // for "% u" and nothing for "%#.0o" of 0); the text is the standard's.
    struct Row {
        const char *format;
        unsigned value;
        const char *text;
    };
    for (const Row &row : {Row{"% u", 5, "5"}, Row{"%+u", 5, "5"}, Row{"% x", 10, "a"}, Row{"%+X", 10, "A"},
                           Row{"%#.0o", 0, "0"}, Row{"%#o", 0, "0"}, Row{"%#.0x", 0, ""}, Row{"%#x", 0, "0"},
                           Row{"%#o", 8, "010"}, Row{"%#.3o", 8, "010"}, Row{"%#.4o", 8, "0010"}}) {
        char dest[16];
        EXPECT_EQ(CMUtlsnprintf(dest, sizeof dest, row.format, row.value), ERR_OK) << row.format;
        EXPECT_STREQ(dest, row.text) << row.format;
    }
}

TEST(CMUtlsnprintf, HugeWidthsAreCutNotCounted) {
    // Widths near and past the largest reportable output length.
    MarkedBuffer<> dest;
    EXPECT_EQ(CMUtlsnprintf(dest.get(), 16, "%2000000000d", 7), ERR_BUFFERSIZE);
    EXPECT_EQ(dest.Text(), std::string(15, ' '));
    EXPECT_TRUE(dest.UntouchedFrom(16));
    EXPECT_EQ(CMUtlsnprintf(dest.get(), 16, "%3000000000d", 7), ERR_BUFFERSIZE);
    EXPECT_EQ(CMUtlsnprintf(dest.get(), 16, "%2000000000d%2000000000d%2000000000d", 1, 2, 3), ERR_BUFFERSIZE);
    EXPECT_EQ(dest.data[15], 0);
    EXPECT_TRUE(dest.UntouchedFrom(16));
}

TEST(CMUtlsnprintf, CharactersAndStringsLikeTheCLibrary) {
    for (const char *format : {"%c", "%3c", "%-3c|"}) {
        ExpectLikeCLibrary(format, 'A');
        ExpectLikeCLibrary(format, 0xE4);
    }
    ExpectLikeCLibrary("[%c]", 0); // an embedded zero byte is output like any other
    for (const char *format :
         {"%s", "%5s", "%-5s|", "%.2s", "%5.1s", "%-5.1s|", "%.0s", "%.10s", "%40s", "<cmp>%s</cmp>"}) {
        ExpectLikeCLibrary(format, "abc");
        ExpectLikeCLibrary(format, "");
        ExpectLikeCLibrary(format, "a longer text of more than thirty-two characters");
    }
    const char unterminated[3] = {'x', 'y', 'z'};
    ExpectLikeCLibrary("%.3s|", unterminated); // a precision bounds the read
}

TEST(CMUtlsnprintf, StarsAndPercentLikeTheCLibrary) {
    ExpectLikeCLibrary("%*d|", 5, 42);
    ExpectLikeCLibrary("%-*d|", 5, 42);
    ExpectLikeCLibrary("%*d|", -5, 42); // a negative width left-aligns
    ExpectLikeCLibrary("%.*d|", 3, 7);
    ExpectLikeCLibrary("%.*d|", -1, 7); // a negative precision is none
    ExpectLikeCLibrary("%*.*s|", 6, 2, "abc");
    ExpectLikeCLibrary("%.*s|", 0, "abc");
    ExpectLikeCLibrary("%%");
    ExpectLikeCLibrary("100%% of %d%%", 5);
    ExpectLikeCLibrary("no conversion at all, just a literal run of text");
}

TEST(CMUtlsnprintf, ConversionsLeftToTheCLibrary) {
    ExpectLikeCLibrary("%f %.2f %10.3e %g %G %-12.4g| %+.1f", 3.14159, 2.5, -12345.678, 1e-5, 1e20, 0.5, 1.25);
    ExpectLikeCLibrary("%a %A %e %E %F", 1.0, -0.1, DBL_MAX, DBL_MIN, 1.0 / 3);
    ExpectLikeCLibrary("%lf %08.3f %#.0f", 2.0, -1.5, 3.0);
    ExpectLikeCLibrary("%Lf %.3Le", static_cast<long double>(1) / 7, static_cast<long double>(12345.5));
    ExpectLikeCLibrary("%*.*f|", 12, 3, 2.0 / 3);
    int object = 0;
    ExpectLikeCLibrary("%p %p", static_cast<void *>(&object), static_cast<void *>(nullptr));
    ExpectLikeCLibrary("[%s]", static_cast<const char *>(nullptr));
    ExpectLikeCLibrary("[%.3s]", static_cast<const char *>(nullptr));
    ExpectLikeCLibrary("[%05s]", "ab");
    ExpectLikeCLibrary("[%05c]", 'c');
    ExpectLikeCLibrary("%2$s %1$s", "world", "hello"); // positional: the whole format goes to the C library
}

// %f is formatted without the C library where 64 bits are exact; the text must match to the last
// digit: ties to even, negative zero, values rounding to zero, subnormals, every precision.
TEST(CMUtlsnprintf, FixedPointLikeTheCLibrary) {
    // clang-format off
    const double values[] = {0.0,      -0.0,   0.125,  0.375,     2.5,        3.5,         -2.5,        1.005,
                             0.045,    1e-7,   -1e-7,  0.5,       1.5,        1e15,        1.8e19,      1.9e19,
                             1e300,    5e-324, DBL_MIN, 123456.789, 4294967296.5, 9007199254740993.0,
                             0.1 + 0.2, 1.0 / 3, -2.0 / 3, 99.995, 10.25};
    // clang-format on
    for (double v : values) {
        for (const char *format : {"%f", "%.0f", "%.1f", "%.2f", "%.3f", "%.10f", "%.17f", "%.19f", "%.20f", "%.30f",
                                   "%F", "%#.0f", "%+.2f", "% .2f", "%012.3f", "%-12.3f|", "%+012.1f", "%3.0f"}) {
            ExpectLikeCLibrary(format, v);
        }
    }
}

TEST(CMUtlsnprintf, FixedPointOfGeneratedValuesLikeTheCLibrary) {
    // Random bit patterns over the whole exponent range, full mantissas of
    // the magnitudes that take the short path, and decimal fractions with
    // few digits, which land near ties.
    std::mt19937_64 rng(77);
    std::uniform_int_distribution<int> precision(0, 21);
    std::uniform_int_distribution<int> exponent(-90, 12);
    for (int n = 0; n < 30000; ++n) {
        double v;
        if (n % 3 == 1) {
            v = std::ldexp(static_cast<double>(rng() >> 11), exponent(rng));
        } else if (n % 3 == 0) {
            const std::uint64_t bits = rng();
            std::memcpy(&v, &bits, sizeof v);
            if (v != v || v - v != 0) {
                continue; // NaN or infinity
            }
        } else {
            v = static_cast<double>(static_cast<std::int64_t>(rng() % 2000001) - 1000000) / 1000.0;
        }
        const int p = precision(rng);
        char reference[512];
        char ours[512];
        const int length = std::snprintf(reference, sizeof reference, "%.*f", p, v);
        if (length < 0 || static_cast<std::size_t>(length) >= sizeof reference) {
            continue; // too long for the comparison buffers
        }
        ASSERT_EQ(CMUtlsnprintf(ours, sizeof ours, "%.*f", p, v), ERR_OK);
        ASSERT_STREQ(ours, reference) << "precision " << p;
    }
}

TEST(CMUtlsnprintf, MixedFormatsLikeTheCLibrary) {
    ExpectLikeCLibrary("<cmp>%s</cmp>: error <id>0x%08x</id> in %s at %d (%5.2f%%)", "SysFile", 0x104u, "open", -17,
                       99.5);
    ExpectLikeCLibrary("%s%s%s%s", "$PlcLogic$", "/", "dir", "/file.txt");
    ExpectLikeCLibrary("%-20s|%20s|%c%c%c", "left", "right", 'x', 'y', 'z');
    ExpectLikeCLibrary("%u.%u.%u.%u", 3u, 5u, 5u, 0u);
}

} // namespace
