// Tests of the wide-string functions. Both families (RTS_WCHAR and
// RTS_CWCHAR) run through the same typed tests and tables, so they are held
// to identical behaviour; the conversions are checked against the full
// Windows-1252 table.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "CMUtlItf.h"
#include "TestBuffer.h"

namespace {

using kestrel::test::MarkedBuffer;
using WString = std::basic_string<RTS_WCHAR>;

// A view of one family's functions, so that one test body serves both.
struct WFamily {
    using Ch = RTS_WCHAR;
    static RTS_I32 Cmp(const Ch *a, const Ch *b) { return CMUtlwstrcmp(a, b); }
    static RTS_RESULT Cpy(Ch *d, RTS_SIZE s, const Ch *src) { return CMUtlwstrcpy(d, s, src); }
    static RTS_RESULT Cat(Ch *d, RTS_SIZE s, const Ch *src) { return CMUtlwstrcat(d, s, src); }
    static RTS_RESULT NCpy(Ch *d, RTS_SIZE s, const Ch *src, RTS_SIZE n) { return CMUtlwstrncpy(d, s, src, n); }
    static RTS_SIZE Len(const Ch *s) { return CMUtlwstrlen(s); }
    static Ch *Lower(Ch *s) { return CMUtlwtolower(s); }
    static Ch *Upper(Ch *s) { return CMUtlwtoupper(s); }
    static Ch *Chr(const Ch *s, Ch c) { return CMUtlwstrchr(s, c); }
    static RTS_RESULT FromNarrow(const char *s, Ch *d, RTS_SIZE n) { return CMUtlStrToW(s, d, n); }
    static RTS_RESULT ToNarrow(const Ch *s, char *d, RTS_SIZE n) { return CMUtlWToStr(s, d, n); }
};

struct CWFamily {
    using Ch = RTS_CWCHAR;
    static RTS_I32 Cmp(const Ch *a, const Ch *b) { return CMUtlcwstrcmp(a, b); }
    static RTS_RESULT Cpy(Ch *d, RTS_SIZE s, const Ch *src) { return CMUtlcwstrcpy(d, s, src); }
    static RTS_RESULT Cat(Ch *d, RTS_SIZE s, const Ch *src) { return CMUtlcwstrcat(d, s, src); }
    static RTS_RESULT NCpy(Ch *d, RTS_SIZE s, const Ch *src, RTS_SIZE n) { return CMUtlcwstrncpy(d, s, src, n); }
    static RTS_SIZE Len(const Ch *s) { return CMUtlcwstrlen(s); }
    static Ch *Lower(Ch *s) { return CMUtlcwtolower(s); }
    static Ch *Upper(Ch *s) { return CMUtlcwtoupper(s); }
    static Ch *Chr(const Ch *s, Ch c) { return CMUtlcwstrchr(s, c); }
    static RTS_RESULT FromNarrow(const char *s, Ch *d, RTS_SIZE n) { return CMUtlStrToCW(s, d, n); }
    static RTS_RESULT ToNarrow(const Ch *s, char *d, RTS_SIZE n) { return CMUtlCWToStr(s, d, n); }
};

// UTF-16 literals as the 16-bit unit strings of the interface.
WString W(const char16_t *s) {
    WString out;
    for (; *s != 0; ++s) {
        out.push_back(static_cast<RTS_WCHAR>(*s));
    }
    return out;
}

template <typename F> class WideFamily : public ::testing::Test {};
using Families = ::testing::Types<WFamily, CWFamily>;
TYPED_TEST_SUITE(WideFamily, Families);

TYPED_TEST(WideFamily, Compare) {
    struct Row {
        const char16_t *a;
        const char16_t *b;
        RTS_I32 expected;
    };
    const Row rows[] = {
        {u"abc", u"abc", 0},
        {u"abc", u"abd", 'c' - 'd'},
        {u"abd", u"abc", 'd' - 'c'},
        {u"ab", u"abc", -'c'},
        {u"abc", u"ab", 'c'},
        {u"", u"", 0},
        {u"\u20AC", u"a", 0x20AC - 'a'},
        {u"a", u"\uFFFF", 'a' - 0xFFFF}, // units compare unsigned
        {u"A", u"a", 'A' - 'a'},         // no case folding
    };
    for (const Row &row : rows) {
        EXPECT_EQ(TypeParam::Cmp(W(row.a).c_str(), W(row.b).c_str()), row.expected);
    }
    const WString a = W(u"a");
    EXPECT_EQ(TypeParam::Cmp(nullptr, a.c_str()), 0); // null compares equal
    EXPECT_EQ(TypeParam::Cmp(a.c_str(), nullptr), 0);
    EXPECT_EQ(TypeParam::Cmp(nullptr, nullptr), 0);
}

TYPED_TEST(WideFamily, Copy) {
    struct Row {
        RTS_SIZE size;
        const char16_t *source;
        const char16_t *text;
    };
    for (const Row &row : {Row{4, u"abc", u"abc"}, Row{10, u"abc", u"abc"}, Row{3, u"abc", u"ab"}, Row{1, u"abc", u""},
                           Row{1, u"", u""}}) {
        MarkedBuffer<RTS_WCHAR> dest;
        EXPECT_EQ(TypeParam::Cpy(dest.get(), row.size, W(row.source).c_str()), ERR_OK); // 0 even when cut
        EXPECT_EQ(dest.Text(), W(row.text));
        EXPECT_TRUE(dest.UntouchedFrom(W(row.text).size() + 1));
    }
    MarkedBuffer<RTS_WCHAR> dest;
    const WString a = W(u"a");
    EXPECT_EQ(TypeParam::Cpy(dest.get(), 0, a.c_str()), ERR_OK);
    EXPECT_EQ(TypeParam::Cpy(nullptr, 4, a.c_str()), ERR_PARAMETER);
    EXPECT_EQ(TypeParam::Cpy(dest.get(), 4, nullptr), ERR_PARAMETER);
    EXPECT_TRUE(dest.UntouchedFrom(0));
}

TYPED_TEST(WideFamily, Concatenate) {
    struct Row {
        RTS_SIZE size;
        const char16_t *initial;
        const char16_t *source;
        const char16_t *text;
        RTS_RESULT result;
    };
    const Row rows[] = {
        {10, u"ab", u"cd", u"abcd", ERR_OK},
        {5, u"ab", u"cd", u"abcd", ERR_OK},
        {4, u"ab", u"cd", u"ab", ERR_PARAMETER}, // all or nothing
        {2, u"ab", u"", u"ab", ERR_PARAMETER},
        {3, u"ab", u"", u"ab", ERR_OK},
        {1, u"", u"", u"", ERR_OK},
    };
    for (const Row &row : rows) {
        MarkedBuffer<RTS_WCHAR> dest;
        const WString initial = W(row.initial);
        std::copy(initial.c_str(), initial.c_str() + initial.size() + 1, dest.get());
        EXPECT_EQ(TypeParam::Cat(dest.get(), row.size, W(row.source).c_str()), row.result) << row.size;
        EXPECT_EQ(dest.Text(), W(row.text)) << row.size;
        EXPECT_TRUE(dest.UntouchedFrom(W(row.text).size() + 1)) << row.size;
    }
    MarkedBuffer<RTS_WCHAR> dest;
    const WString a = W(u"a");
    EXPECT_EQ(TypeParam::Cat(nullptr, 4, a.c_str()), ERR_PARAMETER);
    EXPECT_EQ(TypeParam::Cat(dest.get(), 4, nullptr), ERR_PARAMETER);
}

TYPED_TEST(WideFamily, CopyCounted) {
    struct Row {
        RTS_SIZE size;
        const char16_t *source;
        RTS_SIZE count;
        const char16_t *text;
        RTS_RESULT result;
    };
    const Row rows[] = {
        {10, u"abc", 2, u"ab", ERR_OK},      {10, u"abc", 3, u"abc", ERR_OK},
        {10, u"abc", 5, u"abc", ERR_FAILED}, // the source ended first
        {3, u"abc", 3, u"ab", ERR_FAILED},   // the buffer was full first
        {4, u"abc", 3, u"abc", ERR_OK},      {10, u"abc", 0, u"", ERR_OK},
        {1, u"abc", 1, u"", ERR_FAILED},     {10, u"", 1, u"", ERR_FAILED},
    };
    for (const Row &row : rows) {
        MarkedBuffer<RTS_WCHAR> dest;
        EXPECT_EQ(TypeParam::NCpy(dest.get(), row.size, W(row.source).c_str(), row.count), row.result)
            << row.size << ' ' << row.count;
        EXPECT_EQ(dest.Text(), W(row.text)) << row.size << ' ' << row.count;
        EXPECT_TRUE(dest.UntouchedFrom(W(row.text).size() + 1));
    }
    MarkedBuffer<RTS_WCHAR> dest;
    const WString a = W(u"a");
    EXPECT_EQ(TypeParam::NCpy(nullptr, 4, a.c_str(), 3), ERR_FAILED);
    EXPECT_EQ(TypeParam::NCpy(dest.get(), 4, nullptr, 3), ERR_FAILED);
    EXPECT_EQ(TypeParam::NCpy(nullptr, 4, a.c_str(), 0), ERR_OK);
    EXPECT_EQ(TypeParam::NCpy(dest.get(), 4, nullptr, 0), ERR_OK);
    EXPECT_EQ(TypeParam::NCpy(dest.get(), 0, a.c_str(), 1), ERR_FAILED);
    EXPECT_TRUE(dest.UntouchedFrom(0));
}

TYPED_TEST(WideFamily, LengthCaseAndSearch) {
    EXPECT_EQ(TypeParam::Len(nullptr), 0u);
    EXPECT_EQ(TypeParam::Len(W(u"").c_str()), 0u);
    EXPECT_EQ(TypeParam::Len(W(u"a\u20ACc").c_str()), 3u);

    WString s = W(u"AbZ[@`{\u00C4\u00E4xY");
    EXPECT_EQ(TypeParam::Lower(s.data()), s.data());
    EXPECT_EQ(s, W(u"abz[@`{\u00C4\u00E4xy")); // ASCII letters only
    EXPECT_EQ(TypeParam::Upper(s.data()), s.data());
    EXPECT_EQ(s, W(u"ABZ[@`{\u00C4\u00E4XY"));
    EXPECT_EQ(TypeParam::Lower(nullptr), nullptr);
    EXPECT_EQ(TypeParam::Upper(nullptr), nullptr);

    const WString text = W(u"abca\u20AC");
    EXPECT_EQ(TypeParam::Chr(text.c_str(), 'a'), text.c_str());
    EXPECT_EQ(TypeParam::Chr(text.c_str(), 'c'), text.c_str() + 2);
    EXPECT_EQ(TypeParam::Chr(text.c_str(), 0x20AC), text.c_str() + 4);
    EXPECT_EQ(TypeParam::Chr(text.c_str(), 'x'), nullptr);
    EXPECT_EQ(TypeParam::Chr(text.c_str(), 0), nullptr); // the terminator is never found
    EXPECT_EQ(TypeParam::Chr(nullptr, 'a'), nullptr);
}

// Windows-1252, 0x80..0x9F, written as the characters themselves; the five
// unassigned bytes stand for themselves.
const char16_t kCp1252High[] = u"€\u0081‚ƒ„…†‡ˆ‰Š‹Œ\u008DŽ\u008F\u0090‘’“”•–—˜™š›œ\u009DžŸ";

RTS_WCHAR Cp1252(int byte) {
    return static_cast<RTS_WCHAR>(byte >= 0x80 && byte <= 0x9F ? kCp1252High[byte - 0x80] : byte);
}

// Every byte alone, then all bytes in one text, where the code-page bytes fall into the middle of
// blocks converted together.
TYPED_TEST(WideFamily, NarrowToWideUsesCodePage1252) {
    static_assert(sizeof kCp1252High / sizeof kCp1252High[0] == 33);
    std::string text;
    for (int byte = 1; byte < 256; ++byte) {
        const char source[2] = {static_cast<char>(byte), 0};
        RTS_WCHAR dest[2] = {0xBEEF, 0xBEEF};
        ASSERT_EQ(TypeParam::FromNarrow(source, dest, 2), ERR_OK);
        EXPECT_EQ(dest[0], Cp1252(byte)) << "byte 0x" << std::hex << byte;
        EXPECT_EQ(dest[1], 0);
        text.push_back(source[0]);
    }
    std::basic_string<RTS_WCHAR> wide(text.size() + 1, 0xBEEF);
    ASSERT_EQ(TypeParam::FromNarrow(text.c_str(), wide.data(), wide.size()), ERR_OK);
    for (int byte = 1; byte < 256; ++byte) {
        EXPECT_EQ(wide[byte - 1], Cp1252(byte)) << "byte 0x" << std::hex << byte << " in the text";
    }
    EXPECT_EQ(wide[text.size()], 0);
}

TYPED_TEST(WideFamily, NarrowToWideTruncation) {
    struct Row {
        const char *source;
        RTS_SIZE size;
        const char16_t *text;
        RTS_RESULT result;
    };
    const Row rows[] = {
        {"abc", 4, u"abc", ERR_OK},         {"abc", 10, u"abc", ERR_OK}, {"abc", 3, u"ab", ERR_FAILED},
        {"abc", 1, u"", ERR_FAILED},        {"", 1, u"", ERR_OK},        {"a\x80\xFF", 4, u"a€\u00FF", ERR_OK},
        {"Gr\xFC\xDF", 5, u"Grüß", ERR_OK},
    };
    for (const Row &row : rows) {
        MarkedBuffer<RTS_WCHAR> dest;
        EXPECT_EQ(TypeParam::FromNarrow(row.source, dest.get(), row.size), row.result) << row.source << ' ' << row.size;
        EXPECT_EQ(dest.Text(), W(row.text));
        EXPECT_TRUE(dest.UntouchedFrom(W(row.text).size() + 1));
    }
    MarkedBuffer<RTS_WCHAR> dest;
    EXPECT_EQ(TypeParam::FromNarrow("ab", dest.get(), 0), ERR_FAILED); // no room at all: nothing written
    EXPECT_EQ(TypeParam::FromNarrow("", dest.get(), 0), ERR_OK);
    EXPECT_EQ(TypeParam::FromNarrow(nullptr, dest.get(), 4), ERR_PARAMETER);
    EXPECT_EQ(TypeParam::FromNarrow("a", nullptr, 4), ERR_PARAMETER);
    EXPECT_TRUE(dest.UntouchedFrom(0));
}

TYPED_TEST(WideFamily, WideToNarrowKeepsTheLowByte) {
    struct Row {
        const char16_t *source;
        RTS_SIZE size;
        const char *text;
        RTS_RESULT result;
    };
    const Row rows[] = {
        {u"€", 2, "\xAC", ERR_OK}, // no reverse mapping of the code page
        {u"a\u0142b", 4, "aBb", ERR_OK},
        {u"Grüß", 5, "Gr\xFC\xDF", ERR_OK},
        {u"abc", 3, "ab", ERR_FAILED},
        {u"abc", 1, "", ERR_FAILED},
        {u"", 1, "", ERR_OK},
    };
    for (const Row &row : rows) {
        MarkedBuffer<> dest;
        EXPECT_EQ(TypeParam::ToNarrow(W(row.source).c_str(), dest.get(), row.size), row.result) << row.size;
        EXPECT_EQ(dest.Text(), row.text);
        EXPECT_TRUE(dest.UntouchedFrom(std::strlen(row.text) + 1));
    }
    MarkedBuffer<> dest;
    const WString a = W(u"a");
    EXPECT_EQ(TypeParam::ToNarrow(a.c_str(), dest.get(), 0), ERR_FAILED);
    EXPECT_EQ(TypeParam::ToNarrow(nullptr, dest.get(), 4), ERR_PARAMETER);
    EXPECT_EQ(TypeParam::ToNarrow(a.c_str(), nullptr, 4), ERR_PARAMETER);
    EXPECT_TRUE(dest.UntouchedFrom(0));
}

TYPED_TEST(WideFamily, LongTextRoundTrip) {
    // Every byte outside 0x80..0x9F comes back unchanged, through the conversions' bulk paths.
    std::string text;
    for (int round = 0; round < 3; ++round) {
        for (int byte = 1; byte < 256; ++byte) {
            if (byte < 0x80 || byte > 0x9F) {
                text.push_back(static_cast<char>(byte));
            }
        }
    }
    std::basic_string<RTS_WCHAR> wide(text.size() + 1, 0);
    ASSERT_EQ(TypeParam::FromNarrow(text.c_str(), wide.data(), wide.size()), ERR_OK);
    std::string back(text.size() + 1, 'x');
    ASSERT_EQ(TypeParam::ToNarrow(wide.c_str(), back.data(), back.size()), ERR_OK);
    EXPECT_EQ(back.c_str(), text);
}

TEST(CMUtlwstrncmp, Table) {
    struct Row {
        const char16_t *a;
        const char16_t *b;
        RTS_SIZE n;
        RTS_I32 expected;
    };
    const Row rows[] = {
        {u"abc", u"abd", 2, 0}, {u"abc", u"abd", 3, 'c' - 'd'},     {u"abc", u"abc", 10, 0}, {u"ab", u"abc", 3, -'c'},
        {u"a", u"b", 0, 0},     {u"\uFFFF", u"a", 1, 0xFFFF - 'a'},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(CMUtlwstrncmp(W(row.a).c_str(), W(row.b).c_str(), row.n), row.expected);
    }
    const WString a = W(u"a");
    EXPECT_EQ(CMUtlwstrncmp(nullptr, a.c_str(), 1), 0);
    EXPECT_EQ(CMUtlwstrncmp(a.c_str(), nullptr, 1), 0);
}

} // namespace
