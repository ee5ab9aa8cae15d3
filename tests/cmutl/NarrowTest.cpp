// Tests of the narrow-string functions: reversal, white space, backward search, case-insensitive
// comparison and search, case conversion, length, and the bounded copies and concatenation with
// the bytes they write and, just as much, the bytes they leave alone. CMUtlStrICmp and
// CMUtlSafeStrCpy are tested in both their forms in ScanFormTest.cpp.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "CMUtlItf.h"
#include "TestBuffer.h"

namespace {

using kestrel::test::MarkedBuffer;

// In place, odd and even lengths; null passes through.
TEST(CMUtlStrrev, ReversesInPlace) {
    for (const char *in : {"", "a", "abc", "abcd"}) {
        std::string s = in;
        std::string expected = in;
        std::reverse(expected.begin(), expected.end());
        EXPECT_EQ(CMUtlStrrev(s.data()), s.data()) << in;
        EXPECT_EQ(s, expected);
    }
    EXPECT_EQ(CMUtlStrrev(nullptr), nullptr);
}

// Blanks and tabs only, up to the terminator.
TEST(CMUtlSkipWhiteSpace, SkipsBlanksAndTabsOnly) {
    using Row = std::tuple<const char *, std::size_t>;
    for (const auto &[in, skipped] : {Row{"", 0}, Row{" \t \tx y", 4}, Row{"\n x", 0}, Row{"   ", 3}}) {
        std::string s = in;
        EXPECT_EQ(CMUtlSkipWhiteSpace(s.data()), s.data() + skipped) << '"' << in << '"';
    }
}

// The position and the start are included; the scan crosses terminators.
TEST(CMUtlStrRChr, SearchesBackwardsFromThePosition) {
    char text[] = {'a', '/', 'b', 0, 'c', '/', 0};
    using Row = std::tuple<std::ptrdiff_t, char, std::ptrdiff_t>; // position, c, found (-1: null)
    for (const auto &[position, c, found] :
         {Row{5, '/', 5}, Row{4, '/', 1}, Row{0, '/', -1}, Row{5, 'a', 0}, Row{5, 'x', -1}, Row{5, 0, 3}}) {
        EXPECT_EQ(CMUtlStrRChr(text, text + position, c), found < 0 ? nullptr : text + found) << position << c;
    }
    EXPECT_EQ(CMUtlStrRChr(nullptr, text + 2, 'a'), nullptr);
    EXPECT_EQ(CMUtlStrRChr(text, nullptr, 'a'), nullptr);
}

// At most n bytes; when one string ends first the raw bytes decide, not lower-cased.
TEST(CMUtlStrNICmp, Table) {
    using Row = std::tuple<const char *, const char *, RTS_SIZE, RTS_I32>;
    for (const auto &[a, b, n, expected] :
         {Row{"abc", "ABD", 2, 0}, Row{"abc", "ABD", 3, 'c' - 'd'}, Row{"abc", "abc", 10, 0}, Row{"a", "b", 0, 0},
          Row{"AB", "abC", 3, 0 - 'C'}, Row{"abC", "AB", 3, 'C' - 0}, Row{"[", "A", 1, '[' - 'a'},
          Row{nullptr, "a", 1, -1}, Row{"a", nullptr, 0, -1}}) {
        EXPECT_EQ(CMUtlStrNICmp(a, b, n), expected) << (a ? a : "null") << ' ' << (b ? b : "null") << ' ' << n;
    }
}

// An empty needle is found at the start, but not in an empty haystack.
TEST(CMUtlStrIStr, Table) {
    using Row = std::tuple<const char *, const char *, std::ptrdiff_t>; // haystack, needle, found (-1: null)
    for (const auto &[haystack, needle, found] :
         {Row{"Hello", "LL", 2}, Row{"Hello", "", 0}, Row{"", "", -1}, Row{"Hello", "lo", 3}, Row{"Hello", "LOX", -1},
          Row{"Hello", "Hello!", -1}, Row{"abcabd", "ABD", 3}}) {
        EXPECT_EQ(CMUtlStrIStr(haystack, needle), found < 0 ? nullptr : haystack + found) << haystack << ' ' << needle;
    }
    EXPECT_EQ(CMUtlStrIStr(nullptr, "a"), nullptr);
    EXPECT_EQ(CMUtlStrIStr("a", nullptr), nullptr);
}

// The program runs in the C locale, the runtime's: every byte converts as the C library does.
TEST(CMUtlCase, EveryByteMapsAsTheCLibraryDoes) {
    std::string all;
    for (int c = 1; c < 256; ++c) {
        all += static_cast<char>(c);
    }
    using Row = std::tuple<char *(*)(char *), int (*)(int)>;
    const auto lower = [](int c) { return std::tolower(c); };
    const auto upper = [](int c) { return std::toupper(c); };
    for (const auto &[convert, map] : {Row{&CMUtlStrlwr, lower}, Row{&CMUtlStrToLower, lower}, Row{&CMUtlStrupr, upper},
                                       Row{&CMUtlStrToUpper, upper}}) {
        std::string s = all;
        std::string expected = all;
        for (char &e : expected) {
            e = static_cast<char>(map(static_cast<unsigned char>(e)));
        }
        EXPECT_EQ(convert(s.data()), s.data());
        EXPECT_EQ(s, expected);
    }
    EXPECT_EQ(CMUtlStrlwr(nullptr), nullptr);
    EXPECT_EQ(CMUtlStrupr(nullptr), nullptr);
}

// Bytes up to the terminator; 0 for null.
TEST(CMUtlStrLen, CountsBytesAndToleratesNull) {
    EXPECT_EQ(CMUtlStrLen(nullptr), 0u);
    EXPECT_EQ(CMUtlStrLen("\xFF\x80x"), 3u);
}

// Copies `count` bytes when they fit, else nothing.
TEST(CMUtlSafeMemCpy, Table) {
    const char source[8] = {'1', '2', '3', '4', 0, '6', '7', '8'};
    using Row = std::tuple<RTS_SIZE, RTS_SIZE, RTS_RESULT>; // size, count, result
    for (const auto &[size, count, result] :
         {Row{8, 5, ERR_OK}, Row{5, 5, ERR_OK}, Row{4, 5, ERR_PARAMETER}, Row{0, 0, ERR_OK}}) {
        MarkedBuffer<char, 8> dest;
        EXPECT_EQ(CMUtlSafeMemCpy(dest.get(), size, source, count), result) << size << ' ' << count;
        const std::size_t copied = result == ERR_OK ? count : 0;
        EXPECT_EQ(std::memcmp(dest.get(), source, copied), 0);
        EXPECT_TRUE(dest.UntouchedFrom(copied));
    }
    char dest[4];
    EXPECT_EQ(CMUtlSafeMemCpy(nullptr, 4, source, 1), ERR_PARAMETER);
    EXPECT_EQ(CMUtlSafeMemCpy(dest, 4, nullptr, 1), ERR_PARAMETER);
}

// The variant 2 ignores its fourth value (not a size, not a limit).
TEST(CMUtlSafeStrCpy2, IgnoresTheFourthValue) {
    MarkedBuffer<> dest;
    EXPECT_EQ(CMUtlSafeStrCpy2(dest.get(), 0, "a", 3), ERR_PARAMETER);
    EXPECT_TRUE(dest.UntouchedFrom(0));
    EXPECT_EQ(CMUtlSafeStrCpy2(dest.get(), 8, "abc", 0), ERR_OK);
    EXPECT_EQ(dest.Text(), "abc");
    EXPECT_TRUE(dest.UntouchedFrom(4, 7) && dest.data[7] == 0 && dest.UntouchedFrom(8));
}

// The verdict looks at `count`, not at the source: a short source with a large count reports 15,
// a size equal to the count none although the text is cut.
TEST(CMUtlSafeStrNCpy, Table) {
    using namespace std::string_literals;
    const char unterminated[3] = {'x', 'y', 'z'}; // as from a fixed-size record
    // size, source, count, the bytes written from the start, result
    using Row = std::tuple<RTS_SIZE, const char *, RTS_SIZE, std::string, RTS_RESULT>;
    for (const auto &[size, source, count, bytes, result] : {
             Row{10, unterminated, 3, "xyz\0"s, ERR_OK}, // only `count` bytes of the source are read
             Row{10, "abc", 10, "abc\0\0"s, ERR_OK},     // the text, its terminator, and a zero behind it
             Row{10, "abc", 2, "ab\0"s, ERR_OK},
             Row{4, "ab", 10, "ab\0\0"s, ERR_BUFFERSIZE},
             Row{3, "abc", 3, "ab\0"s, ERR_OK},
             Row{3, "abcdef", 5, "ab\0"s, ERR_BUFFERSIZE},
             Row{5, "abc", 0, "\0"s, ERR_OK},
             Row{0, "abc", 0, ""s, ERR_OK}, // no buffer: nothing written
             Row{0, "abc", 1, ""s, ERR_BUFFERSIZE},
         }) {
        MarkedBuffer<> dest;
        EXPECT_EQ(CMUtlSafeStrNCpy(dest.get(), size, source, count), result) << size << ' ' << count;
        EXPECT_EQ(std::string(dest.get(), bytes.size()), bytes) << size << ' ' << count;
        EXPECT_TRUE(dest.UntouchedFrom(bytes.size())) << size << ' ' << count;
    }
}

// What fits of "cd" is appended to "ab", the last byte of the buffer is a terminator, 15 when the
// text was cut.
TEST(CMUtlSafeStrCat, Table) {
    using Row = std::tuple<RTS_SIZE, const char *, RTS_RESULT>; // size, text, result
    for (const auto &[size, text, result] : {Row{10, "abcd", ERR_OK}, Row{5, "abcd", ERR_OK},
                                             Row{4, "abc", ERR_BUFFERSIZE}, Row{0, "ab", ERR_BUFFERSIZE}}) {
        MarkedBuffer<> dest;
        std::strcpy(dest.get(), "ab");
        EXPECT_EQ(CMUtlSafeStrCat(dest.get(), size, "cd"), result) << size;
        EXPECT_EQ(dest.Text(), text) << size;
        EXPECT_TRUE(size == 0 || dest.data[size - 1] == 0) << size;
        EXPECT_TRUE(dest.UntouchedFrom(size > 3 ? size : 3)) << size;
    }
}

} // namespace
