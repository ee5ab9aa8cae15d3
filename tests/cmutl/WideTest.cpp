// Tests of the wide-string functions. Both families (CMUtlw... and CMUtlcw...) run through the
// same tests, so they are held to identical behaviour; the conversion from narrow text is checked
// against the full Windows-1252 table.
#include <algorithm>
#include <cstring>
#include <string>
#include <tuple>

#include <gtest/gtest.h>

#include "CMUtlItf.h"
#include "TestBuffer.h"

namespace {

using kestrel::test::MarkedBuffer;
using WString = std::basic_string<RTS_WCHAR>;

// One family's functions (RTS_WCHAR and RTS_CWCHAR are the same 16-bit type).
struct Family {
    const char *name;
    decltype(&CMUtlwstrcmp) cmp;
    decltype(&CMUtlwstrcpy) cpy;
    decltype(&CMUtlwstrcat) cat;
    decltype(&CMUtlwstrncpy) ncpy;
    decltype(&CMUtlwstrlen) len;
    decltype(&CMUtlwtolower) lower;
    decltype(&CMUtlwtoupper) upper;
    decltype(&CMUtlwstrchr) chr;
    decltype(&CMUtlStrToW) fromNarrow;
    decltype(&CMUtlWToStr) toNarrow;
};
const Family kFamilies[] = {{"w", &CMUtlwstrcmp, &CMUtlwstrcpy, &CMUtlwstrcat, &CMUtlwstrncpy, &CMUtlwstrlen,
                             &CMUtlwtolower, &CMUtlwtoupper, &CMUtlwstrchr, &CMUtlStrToW, &CMUtlWToStr},
                            {"cw", &CMUtlcwstrcmp, &CMUtlcwstrcpy, &CMUtlcwstrcat, &CMUtlcwstrncpy, &CMUtlcwstrlen,
                             &CMUtlcwtolower, &CMUtlcwtoupper, &CMUtlcwstrchr, &CMUtlStrToCW, &CMUtlCWToStr}};

// UTF-16 literals as the 16-bit unit strings of the interface.
WString W(const char16_t *s) {
    return WString(s, s + std::char_traits<char16_t>::length(s));
}

const WString kA = W(u"a");

// Units compare unsigned and without case folding; null compares equal to anything.
TEST(WideStrings, Compare) {
    using Row = std::tuple<const char16_t *, const char16_t *, RTS_I32>;
    for (const Family &f : kFamilies) {
        for (const auto &[a, b, expected] :
             {Row{u"abc", u"abc", 0}, Row{u"abc", u"abd", 'c' - 'd'}, Row{u"ab", u"abc", -'c'}, Row{u"abc", u"ab", 'c'},
              Row{u"a", u"\uFFFF", 'a' - 0xFFFF}, Row{u"A", u"a", 'A' - 'a'}}) {
            EXPECT_EQ(f.cmp(W(a).c_str(), W(b).c_str()), expected) << f.name;
        }
        EXPECT_EQ(f.cmp(nullptr, kA.c_str()), 0) << f.name;
        EXPECT_EQ(f.cmp(kA.c_str(), nullptr), 0) << f.name;
    }
    EXPECT_EQ(CMUtlwstrncmp(nullptr, kA.c_str(), 1), 0);
    EXPECT_EQ(CMUtlwstrncmp(kA.c_str(), nullptr, 1), 0);
    using NRow = std::tuple<const char16_t *, const char16_t *, RTS_SIZE, RTS_I32>;
    for (const auto &[a, b, n, expected] :
         {NRow{u"abc", u"abd", 2, 0}, NRow{u"abc", u"abd", 3, 'c' - 'd'}, NRow{u"abc", u"abc", 10, 0},
          NRow{u"ab", u"abc", 3, -'c'}, NRow{u"\uFFFF", u"a", 1, 0xFFFF - 'a'}}) {
        EXPECT_EQ(CMUtlwstrncmp(W(a).c_str(), W(b).c_str(), n), expected);
    }
}

// Copy: what fits, and 0 even when the text was cut. Concatenate: all or nothing. Copy counted:
// 1 when fewer than `count` units were copied, because the source or the buffer ended first.
TEST(WideStrings, CopyConcatenateAndCopyCounted) {
    enum Op { kCpy, kCat, kNCpy };
    // operation, size, source, count, the text after it, result; the buffer holds "ab" before
    using Row = std::tuple<Op, RTS_SIZE, const char16_t *, RTS_SIZE, const char16_t *, RTS_RESULT>;
    for (const Family &f : kFamilies) {
        for (const auto &[op, size, source, count, text, result] :
             {Row{kCpy, 4, u"abc", 0, u"abc", ERR_OK}, Row{kCpy, 3, u"abc", 0, u"ab", ERR_OK},
              Row{kCpy, 1, u"abc", 0, u"", ERR_OK}, Row{kCat, 5, u"cd", 0, u"abcd", ERR_OK},
              Row{kCat, 4, u"cd", 0, u"ab", ERR_PARAMETER}, Row{kCat, 2, u"", 0, u"ab", ERR_PARAMETER},
              Row{kNCpy, 10, u"abc", 2, u"ab", ERR_OK}, Row{kNCpy, 4, u"abc", 3, u"abc", ERR_OK},
              Row{kNCpy, 10, u"abc", 5, u"abc", ERR_FAILED}, Row{kNCpy, 3, u"abc", 3, u"ab", ERR_FAILED}}) {
            MarkedBuffer<RTS_WCHAR> dest;
            std::memcpy(dest.get(), W(u"ab").c_str(), 3 * sizeof(RTS_WCHAR));
            const WString src = W(source);
            EXPECT_EQ(op == kCpy   ? f.cpy(dest.get(), size, src.c_str())
                      : op == kCat ? f.cat(dest.get(), size, src.c_str())
                                   : f.ncpy(dest.get(), size, src.c_str(), count),
                      result)
                << f.name << ' ' << op << ' ' << size << ' ' << count;
            EXPECT_EQ(dest.Text(), W(text)) << f.name << ' ' << op << ' ' << size << ' ' << count;
            EXPECT_TRUE(dest.UntouchedFrom(std::max<std::size_t>(W(text).size() + 1, 3)));
        }
        MarkedBuffer<RTS_WCHAR> dest;
        EXPECT_EQ(f.cpy(dest.get(), 0, kA.c_str()), ERR_OK);
        EXPECT_EQ(f.cpy(nullptr, 4, kA.c_str()), ERR_PARAMETER);
        EXPECT_EQ(f.cpy(dest.get(), 4, nullptr), ERR_PARAMETER);
        EXPECT_EQ(f.cat(nullptr, 4, kA.c_str()), ERR_PARAMETER);
        EXPECT_EQ(f.cat(dest.get(), 4, nullptr), ERR_PARAMETER);
        EXPECT_EQ(f.ncpy(nullptr, 4, kA.c_str(), 3), ERR_FAILED);
        EXPECT_EQ(f.ncpy(dest.get(), 4, nullptr, 0), ERR_OK);
        EXPECT_EQ(f.ncpy(dest.get(), 0, kA.c_str(), 1), ERR_FAILED);
        EXPECT_TRUE(dest.UntouchedFrom(0)) << f.name;
    }
}

// Case conversion of ASCII letters only; the terminator is never found.
TEST(WideStrings, LengthCaseAndSearch) {
    for (const Family &f : kFamilies) {
        EXPECT_EQ(f.len(nullptr), 0u);
        EXPECT_EQ(f.len(W(u"a\u20ACc").c_str()), 3u);
        WString s = W(u"AbZ[@`{\u00C4\u00E4xY");
        EXPECT_EQ(f.lower(s.data()), s.data());
        EXPECT_EQ(s, W(u"abz[@`{\u00C4\u00E4xy")) << f.name;
        EXPECT_EQ(f.upper(s.data()), s.data());
        EXPECT_EQ(s, W(u"ABZ[@`{\u00C4\u00E4XY")) << f.name;
        EXPECT_EQ(f.lower(nullptr), nullptr);
        EXPECT_EQ(f.upper(nullptr), nullptr);
        const WString text = W(u"abca\u20AC");
        EXPECT_EQ(f.chr(text.c_str(), 'a'), text.c_str());
        EXPECT_EQ(f.chr(text.c_str(), 0x20AC), text.c_str() + 4);
        EXPECT_EQ(f.chr(text.c_str(), 'x'), nullptr);
        EXPECT_EQ(f.chr(text.c_str(), 0), nullptr);
        EXPECT_EQ(f.chr(nullptr, 'a'), nullptr);
    }
}

// Windows-1252, 0x80..0x9F, written as the characters themselves; the five unassigned bytes stand
// for themselves, every other byte for the character of the same number.
const char16_t kCp1252High[] = u"€\u0081‚ƒ„…†‡ˆ‰Š‹Œ\u008DŽ\u008F\u0090‘’“”•–—˜™š›œ\u009DžŸ";

RTS_WCHAR Cp1252(int byte) {
    return static_cast<RTS_WCHAR>(byte >= 0x80 && byte <= 0x9F ? kCp1252High[byte - 0x80] : byte);
}

// Every byte alone (converted one at a time), then all bytes in one text (in blocks of 16).
TEST(WideStrings, NarrowToWideUsesCodePage1252) {
    for (const Family &f : kFamilies) {
        std::string text;
        for (int byte = 1; byte < 256; ++byte) {
            const char source[2] = {static_cast<char>(byte), 0};
            RTS_WCHAR dest[2] = {0xBEEF, 0xBEEF};
            ASSERT_EQ(f.fromNarrow(source, dest, 2), ERR_OK);
            EXPECT_EQ(dest[0], Cp1252(byte)) << f.name << " byte 0x" << std::hex << byte;
            EXPECT_EQ(dest[1], 0);
            text.push_back(source[0]);
        }
        WString wide(text.size() + 1, 0xBEEF);
        ASSERT_EQ(f.fromNarrow(text.c_str(), wide.data(), wide.size()), ERR_OK);
        for (int byte = 1; byte < 256; ++byte) {
            EXPECT_EQ(wide[byte - 1], Cp1252(byte)) << f.name << " byte 0x" << std::hex << byte << " in the text";
        }
        EXPECT_EQ(wide[text.size()], 0);
    }
}

// Both conversions: cut to the buffer with 1 as the result, nothing written without room; the way
// back keeps the low byte (no reverse mapping of the code page).
TEST(WideStrings, ConversionLimitsAndBadInput) {
    for (const Family &f : kFamilies) {
        for (const auto &[size, text, result] : {std::tuple{4, "abc", ERR_OK}, std::tuple{3, "ab", ERR_FAILED}}) {
            MarkedBuffer<RTS_WCHAR> wide;
            EXPECT_EQ(f.fromNarrow("abc", wide.get(), size), result) << f.name << size;
            EXPECT_EQ(wide.Text(), WString(text, text + std::strlen(text)));
            EXPECT_TRUE(wide.UntouchedFrom(std::strlen(text) + 1));
            MarkedBuffer<> narrow;
            EXPECT_EQ(f.toNarrow(W(u"abc").c_str(), narrow.get(), size), result) << f.name << size;
            EXPECT_EQ(narrow.Text(), text);
            EXPECT_TRUE(narrow.UntouchedFrom(std::strlen(text) + 1));
        }
        char low[4];
        EXPECT_EQ(f.toNarrow(W(u"\u20AC\u0142").c_str(), low, sizeof low), ERR_OK);
        EXPECT_STREQ(low, "\xAC\x42");
        MarkedBuffer<RTS_WCHAR> wide;
        MarkedBuffer<> narrow;
        EXPECT_EQ(f.fromNarrow("ab", wide.get(), 0), ERR_FAILED);
        EXPECT_EQ(f.fromNarrow("", wide.get(), 0), ERR_OK);
        EXPECT_EQ(f.toNarrow(kA.c_str(), narrow.get(), 0), ERR_FAILED);
        EXPECT_EQ(f.fromNarrow(nullptr, wide.get(), 4), ERR_PARAMETER);
        EXPECT_EQ(f.fromNarrow("a", nullptr, 4), ERR_PARAMETER);
        EXPECT_EQ(f.toNarrow(nullptr, narrow.get(), 4), ERR_PARAMETER);
        EXPECT_EQ(f.toNarrow(kA.c_str(), nullptr, 4), ERR_PARAMETER);
        EXPECT_TRUE(wide.UntouchedFrom(0) && narrow.UntouchedFrom(0)) << f.name;
    }
}

} // namespace
