// Tests of CMUtlvsnprintf and CMUtlsnprintf: the text compared with the C library's at every buffer
// size around its length, under the Windows _vsnprintf result rule (success up to an output of
// exactly `size` characters) with the terminator forced into the last byte; the parameter checks;
// and the corners where C libraries differ.
#include <algorithm>
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

// The argument list type as CMUtlvsnprintf receives it; a value-initialised one is the null list a
// C caller can pass.
template <typename R, typename... A> auto ParameterTypes(R (*)(A...)) -> std::tuple<A...>;
using ArgListParameter = std::tuple_element_t<3, decltype(ParameterTypes(&CMUtlvsnprintf))>;

RTS_RESULT CallV(char *dest, RTS_SIZE size, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const RTS_RESULT result = CMUtlvsnprintf(dest, size, format, args);
    va_end(args);
    return result;
}

// A null buffer, format or argument list is 1, and nothing is written.
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

// The C library's text is expected at every buffer size from 0 to eight past its length: the
// result 0 up to an output of exactly `size` characters, else 15; only the text that fits, its
// terminator and a terminator in the last byte written.
template <typename... A> void ExpectLikeCLibrary(const char *format, A... args) {
    char reference[512];
    const int length = std::snprintf(reference, sizeof reference, format, args...);
    ASSERT_TRUE(length >= 0 && length < 512) << format;
    for (std::size_t size = 0; size <= static_cast<std::size_t>(length) + 8; ++size) {
        MarkedBuffer<char, 520> dest;
        const RTS_RESULT result = CMUtlsnprintf(dest.get(), size, format, args...);
        const std::size_t kept = std::min<std::size_t>(length, size == 0 ? 0 : size - 1);
        ASSERT_EQ(result, static_cast<std::size_t>(length) <= size ? ERR_OK : ERR_BUFFERSIZE) << format << ' ' << size;
        ASSERT_TRUE(size == 0 ? dest.UntouchedFrom(0)
                              : std::string_view(dest.get(), kept) == std::string_view(reference, kept) &&
                                    dest.data[kept] == 0 && dest.UntouchedFrom(kept + 1, size - 1) &&
                                    dest.data[size - 1] == 0 && dest.UntouchedFrom(size))
            << '"' << format << "\" size " << size << ": \"" << dest.get() << '"';
    }
}

// Signed and unsigned conversions with their flags, widths and precisions, and every length.
TEST(CMUtlsnprintf, IntegersLikeTheCLibrary) {
    for (int v : {0, -1, -12345, 123456, INT_MAX, INT_MIN}) {
        for (const char *format : {"%d", "%i", "%5d", "%-5d|", "%05d", "%+d", "% d", "%+ d", "%.3d", "%.0d", "%8.3d",
                                   "%-+8.3d|", "%+05d", "%05.3d", "%-05d|"}) {
            ExpectLikeCLibrary(format, v);
        }
    }
    ExpectLikeCLibrary("%ld %ld %ld", LONG_MIN, LONG_MAX, 0L);
    ExpectLikeCLibrary("%lld %lli %+lld", LLONG_MIN, LLONG_MAX, 5LL);
    ExpectLikeCLibrary("%hhd %hhd %hd %hd", 300, -129, 70000, -32769);
    ExpectLikeCLibrary("%jd %jd", INTMAX_MIN, INTMAX_MAX);
    ExpectLikeCLibrary("%zd %td %td", static_cast<std::ptrdiff_t>(-5), PTRDIFF_MIN, PTRDIFF_MAX);
    for (unsigned v : {0u, 8u, 255u, 0xDEADBEEFu, UINT_MAX}) {
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

// Corners where C libraries disagree (the mingw-w64 one prints a blank for "% u" and nothing for
// "%#.0o" of 0): the text is the C standard's on every build.
TEST(CMUtlsnprintf, FlagCornersFollowTheCStandardOnEveryBuild) {
    using Row = std::tuple<const char *, unsigned, const char *>; // format, value, text
    for (const auto &[format, value, text] : {Row{"% u", 5, "5"}, Row{"%+X", 10, "A"}, Row{"%#.0o", 0, "0"},
                                              Row{"%#.0x", 0, ""}, Row{"%#.4o", 8, "0010"}}) {
        char dest[16];
        EXPECT_EQ(CMUtlsnprintf(dest, sizeof dest, format, value), ERR_OK) << format;
        EXPECT_STREQ(dest, text) << format;
    }
}

// Widths near and past the largest reportable output length are cut, not counted.
TEST(CMUtlsnprintf, HugeWidthsAreCutNotCounted) {
    MarkedBuffer<> dest;
    EXPECT_EQ(CMUtlsnprintf(dest.get(), 16, "%2000000000d", 7), ERR_BUFFERSIZE);
    EXPECT_EQ(dest.Text(), std::string(15, ' '));
    EXPECT_TRUE(dest.UntouchedFrom(16));
    EXPECT_EQ(CMUtlsnprintf(dest.get(), 16, "%3000000000d", 7), ERR_BUFFERSIZE);
    EXPECT_EQ(CMUtlsnprintf(dest.get(), 16, "%2000000000d%2000000000d%2000000000d", 1, 2, 3), ERR_BUFFERSIZE);
    EXPECT_EQ(dest.data[15], 0);
    EXPECT_TRUE(dest.UntouchedFrom(16));
}

// Several directives in one format: each one's text cut at every position, and arguments taken in
// order across them.
TEST(CMUtlsnprintf, CharactersStringsStarsAndPercentLikeTheCLibrary) {
    ExpectLikeCLibrary("");
    ExpectLikeCLibrary("%c|%3c|%-3c|%c|[%c]", 'A', 'b', 'c', 0xE4, 0); // an embedded zero byte is output too
    for (const char *s : {"", "abc", "a longer text of more than thirty-two characters"}) {
        ExpectLikeCLibrary("%s|%5s|%-5s|%.2s|%5.1s|%-5.1s|%.0s|%.10s|%40s|", s, s, s, s, s, s, s, s, s);
    }
    const char unterminated[3] = {'x', 'y', 'z'};
    ExpectLikeCLibrary("%.3s|", unterminated); // a precision bounds the read
    // A negative width left-aligns, a negative precision is none.
    ExpectLikeCLibrary("%*d|%-*d|%*d|%.*d|%.*d|%*.*s|%.*s|", 5, 42, 5, 42, -5, 42, 3, 7, -1, 7, 6, 2, "abc", 0, "abc");
    ExpectLikeCLibrary("<cmp>%s</cmp>: error <id>0x%08x</id> in %s at %d (%5.2f%%)", "SysFile", 0x104u, "open", -17,
                       99.5);
}

// Floating point other than %f with a plain double, pointers, null strings and '0' with %s and %c
// are the C library's to format; positional arguments hand it the whole format.
TEST(CMUtlsnprintf, ConversionsLeftToTheCLibrary) {
    ExpectLikeCLibrary("%f %.2f %10.3e %g %G %-12.4g| %+.1f", 3.14159, 2.5, -12345.678, 1e-5, 1e20, 0.5, 1.25);
    ExpectLikeCLibrary("%a %A %e %E %F", 1.0, -0.1, DBL_MAX, DBL_MIN, 1.0 / 3);
    ExpectLikeCLibrary("%lf %*.*f|", 2.0, 12, 3, 2.0 / 3);
    ExpectLikeCLibrary("%Lf %.3Le", static_cast<long double>(1) / 7, static_cast<long double>(12345.5));
    int object = 0;
    ExpectLikeCLibrary("%p %p", static_cast<void *>(&object), static_cast<void *>(nullptr));
    ExpectLikeCLibrary("[%s][%.3s]", static_cast<const char *>(nullptr), static_cast<const char *>(nullptr));
    ExpectLikeCLibrary("[%05s][%05c]", "ab", 'c'); // the C standard leaves '0' open here
    ExpectLikeCLibrary("%2$s %1$s", "world", "hello");
}

// %f is formatted without the C library where 64 bits are exact; the text must match to the last
// digit: ties to even, negative zero, values rounding to zero, subnormals, every precision.
TEST(CMUtlsnprintf, FixedPointLikeTheCLibrary) {
    for (double v : {0.0, -0.0, 0.125, 0.375, 2.5, 3.5, -2.5, 1.005, -1e-7, 1e15, 1.8e19, 1.9e19, 1e300, 5e-324,
                     DBL_MIN, 0.1 + 0.2, 1.0 / 3, 99.995}) {
        for (const char *format : {"%f", "%.0f", "%.1f", "%.2f", "%.3f", "%.10f", "%.17f", "%.19f", "%.20f", "%.30f",
                                   "%F", "%#.0f", "%+.2f", "% .2f", "%012.3f", "%-12.3f|", "%+012.1f", "%3.0f"}) {
            ExpectLikeCLibrary(format, v);
        }
    }
}

// Random bit patterns over the whole exponent range, full mantissas of the magnitudes that take
// the short path, and decimal fractions with few digits, which land near ties.
TEST(CMUtlsnprintf, FixedPointOfGeneratedValuesLikeTheCLibrary) {
    std::mt19937_64 rng(77);
    std::uniform_int_distribution<int> precision(0, 21);
    std::uniform_int_distribution<int> exponent(-90, 12);
    for (int n = 0; n < 30000; ++n) {
        double v = static_cast<double>(static_cast<std::int64_t>(rng() % 2000001) - 1000000) / 1000.0;
        if (n % 3 == 1) {
            v = std::ldexp(static_cast<double>(rng() >> 11), exponent(rng));
        } else if (const std::uint64_t bits = rng(); n % 3 == 0) {
            std::memcpy(&v, &bits, sizeof v);
        }
        const int p = precision(rng);
        char reference[512];
        char ours[512];
        const int length = std::snprintf(reference, sizeof reference, "%.*f", p, v);
        if (v - v == 0 && length > 0 && static_cast<std::size_t>(length) < sizeof reference) { // finite, short
            ASSERT_EQ(CMUtlsnprintf(ours, sizeof ours, "%.*f", p, v), ERR_OK);
            ASSERT_STREQ(ours, reference) << "precision " << p;
        }
    }
}

} // namespace
