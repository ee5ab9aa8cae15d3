// Tests of the narrow-string functions: reversal, white space, backward
// search, case-insensitive comparison and search, case conversion, length and
// the checked memory copy.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <memory>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "CMUtlItf.h"
#include "ScanForms.h"

namespace {

using StrICmpForms = kestrel::test::ScanFormTest;
KESTREL_FOR_EACH_SCAN_FORM(StrICmpForms);

TEST(CMUtlStrrev, ReversesInPlace) {
    struct Row {
        const char *in;
        const char *out;
    };
    for (const Row &row :
         {Row{"", ""}, Row{"a", "a"}, Row{"ab", "ba"}, Row{"abc", "cba"}, Row{"abcd", "dcba"}, Row{"0xFF", "FFx0"}}) {
        std::string s = row.in;
        EXPECT_EQ(CMUtlStrrev(s.data()), s.data()) << row.in;
        EXPECT_EQ(s, row.out) << row.in;
    }
    EXPECT_EQ(CMUtlStrrev(nullptr), nullptr);
}

TEST(CMUtlSkipWhiteSpace, SkipsBlanksAndTabsOnly) {
    struct Row {
        const char *in;
        std::size_t skipped;
    };
    for (const Row &row : {Row{"", 0}, Row{"x", 0}, Row{" x", 1}, Row{"\t x", 2}, Row{" \t \tx y", 4}, Row{"\n x", 0},
                           Row{"\r", 0}, Row{"   ", 3}}) {
        std::string s = row.in;
        EXPECT_EQ(CMUtlSkipWhiteSpace(s.data()), s.data() + row.skipped) << '"' << row.in << '"';
    }
}

TEST(CMUtlStrRChr, SearchesBackwardsFromThePosition) {
    char text[] = "a/b/c";
    struct Row {
        std::ptrdiff_t position;
        char c;
        std::ptrdiff_t found; // -1: null
    };
    for (const Row &row : {Row{4, '/', 3}, Row{3, '/', 3}, Row{2, '/', 1}, Row{0, '/', -1}, Row{4, 'a', 0},
                           Row{0, 'a', 0}, Row{4, 'x', -1}, Row{5, 0, 5}}) {
        char *result = CMUtlStrRChr(text, text + row.position, row.c);
        if (row.found < 0) {
            EXPECT_EQ(result, nullptr) << row.position << ' ' << row.c;
        } else {
            EXPECT_EQ(result, text + row.found) << row.position << ' ' << row.c;
        }
    }
    EXPECT_EQ(CMUtlStrRChr(nullptr, text + 2, 'a'), nullptr);
    EXPECT_EQ(CMUtlStrRChr(text, nullptr, 'a'), nullptr);
}

TEST(CMUtlStrRChr, ScanCrossesTerminators) {
    char text[] = {'a', 'b', 0, 'c', 'd', 0};
    EXPECT_EQ(CMUtlStrRChr(text, text + 4, 'a'), text);
    EXPECT_EQ(CMUtlStrRChr(text, text + 4, 0), text + 2);
}

struct CompareRow {
    const char *a;
    const char *b;
    RTS_I32 expected;
};

TEST(CMUtlStrICmp, Table) {
    const std::string longA(40, 'k');
    const std::string longB(40, 'K');
    std::string longDiff = longB;
    longDiff[30] = 'M'; // 'k' - 'm'
    std::string longDiff17 = longB;
    longDiff17[17] = 'A'; // 'k' - 'a'
    std::string longDiff15 = longB;
    longDiff15[15] = 'Z'; // 'k' - 'z'
    const std::string longShort = longB.substr(0, 25);
    const std::string head16 = longA.substr(0, 16);
    const CompareRow rows[] = {
        {"abc", "ABC", 0},
        {"abc", "abd", 'c' - 'd'},
        {"abd", "ABC", 'd' - 'c'},
        {"Hello", "hellO", 0},
        {"ab", "abc", -1},
        {"abc", "ab", 1},
        {"ABC", "ab", 1},
        {"", "", 0},
        {"", "a", -1},
        {"a", "", 1},
        {"a", "B", 'a' - 'b'},
        {"Z", "a", 'z' - 'a'},
        {"[", "A", '[' - 'a'}, // compared lower-cased: '[' sorts before 'a'
        {"@", "`", '@' - '`'},
        {"\xC4", "\xE4", 0xC4 - 0xE4}, // the C locale does not fold Latin-1
        {"\xFF", "a", 0xFF - 'a'},
        {longA.c_str(), longB.c_str(), 0},
        {longA.c_str(), longDiff.c_str(), 'k' - 'm'},
        {longDiff17.c_str(), longA.c_str(), 'a' - 'k'},
        {longA.c_str(), longDiff15.c_str(), 'k' - 'z'},
        {longShort.c_str(), longA.c_str(), -1},
        {longA.c_str(), longShort.c_str(), 1},
        {head16.c_str(), longA.c_str(), -1},
        {longA.c_str(), head16.c_str(), 1},
    };
    for (const CompareRow &row : rows) {
        EXPECT_EQ(CMUtlStrICmp(row.a, row.b), row.expected) << '"' << row.a << "\" \"" << row.b << '"';
    }
    EXPECT_EQ(CMUtlStrICmp(nullptr, "a"), -1);
    EXPECT_EQ(CMUtlStrICmp("a", nullptr), -1);
    EXPECT_EQ(CMUtlStrICmp(nullptr, nullptr), -1);
}

// The comparison spelled out byte by byte, for generated strings.
RTS_I32 ReferenceICmp(const std::string &a, const std::string &b) {
    std::size_t i = 0;
    for (; i < a.size() && i < b.size(); ++i) {
        const int d = std::tolower(static_cast<unsigned char>(a[i])) - std::tolower(static_cast<unsigned char>(b[i]));
        if (d != 0) {
            return d;
        }
    }
    if (a.size() == b.size()) {
        return 0;
    }
    return i == a.size() ? -1 : 1;
}

TEST_P(StrICmpForms, AgreesWithByteWiseComparisonOnGeneratedStrings) {
    // Few letters and case pairs: long equal stretches, case and real differences at every offset.
    const char alphabet[] = "aAbB@[`{\xC4\xE4z";
    std::mt19937 rng(1234);
    std::uniform_int_distribution<std::size_t> len(0, 90);
    std::uniform_int_distribution<std::size_t> pick(0, sizeof alphabet - 2);
    std::uniform_int_distribution<int> mutate(0, 3);
    for (int n = 0; n < 4000; ++n) {
        std::string a(len(rng), 'x');
        for (char &c : a) {
            c = alphabet[pick(rng)];
        }
        std::string b = a;
        for (char &c : b) {
            if (std::isalpha(static_cast<unsigned char>(c)) && (c & 0x80) == 0 && mutate(rng) == 0) {
                c ^= 0x20; // other case, same letter
            }
        }
        switch (mutate(rng)) {
        case 0:
            if (!b.empty()) {
                b[std::uniform_int_distribution<std::size_t>(0, b.size() - 1)(rng)] = alphabet[pick(rng)];
            }
            break;
        case 1:
            b.resize(std::uniform_int_distribution<std::size_t>(0, b.size())(rng));
            break;
        case 2:
            b += alphabet[pick(rng)];
            break;
        default:
            break;
        }
        ASSERT_EQ(StrICmp(a.c_str(), b.c_str()), ReferenceICmp(a, b)) << '"' << a << "\" \"" << b << '"';
        ASSERT_EQ(StrICmp(b.c_str(), a.c_str()), ReferenceICmp(b, a)) << '"' << b << "\" \"" << a << '"';
    }
}

using kestrel::test::PageSpan;

TEST_P(StrICmpForms, StringsAcrossPageBoundaries) {
    // Every start within 40 bytes before a page end, for both strings and several lengths.
    PageSpan spanA;
    PageSpan spanB;
    const std::string base = "Component.Manager.Setting.Key.With.Forty.Bytes";
    for (std::size_t length : {0u, 1u, 15u, 16u, 17u, 31u, 33u, 45u}) {
        const std::string a = base.substr(0, length);
        for (std::size_t startA = PageSpan::kPage - 40; startA <= PageSpan::kPage + 1; ++startA) {
            for (std::size_t shift : {0u, 1u, 7u, 16u, 23u}) {
                const std::size_t startB = startA - shift;
                std::string b = a;
                for (char &c : b) {
                    c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
                }
                const char *pa = spanA.Place(startA, a);
                const char *pb = spanB.Place(startB, b);
                ASSERT_EQ(StrICmp(pa, pb), 0) << length << ' ' << startA << ' ' << shift;
                if (length > 0) {
                    b[length - 1] = '~'; // differs in the last byte
                    pb = spanB.Place(startB, b);
                    ASSERT_EQ(StrICmp(pa, pb), ReferenceICmp(a, b)) << length << ' ' << startA << ' ' << shift;
                    b.pop_back(); // b ends first
                    pb = spanB.Place(startB, b);
                    ASSERT_EQ(StrICmp(pa, pb), 1) << length << ' ' << startA << ' ' << shift;
                    ASSERT_EQ(StrICmp(pb, pa), -1) << length << ' ' << startA << ' ' << shift;
                }
            }
        }
    }
}

TEST_P(StrICmpForms, LongStringsRunIntoAPageEndAtEveryAlignment) {
    // Starts at every offset of a 32-byte block, running into a page end of b's (or a's) part-way;
    // equal, or differing in one byte at every position.
    PageSpan spanA;
    PageSpan spanB;
    std::string a;
    for (int k = 0; k < 150; ++k) {
        a += static_cast<char>('a' + k % 26);
    }
    for (std::size_t startA = PageSpan::kPage - 140; startA < PageSpan::kPage - 100; ++startA) {
        for (std::size_t startB : {startA, startA - 33, startA + 5, std::size_t{64} + startA % 32}) {
            std::string b = a;
            for (std::size_t k = 0; k < b.size(); k += 3) {
                b[k] = static_cast<char>(std::toupper(static_cast<unsigned char>(b[k])));
            }
            const char *pa = spanA.Place(startA, a);
            ASSERT_EQ(StrICmp(pa, spanB.Place(startB, b)), 0) << startA << ' ' << startB;
            for (std::size_t at = 0; at < a.size(); ++at) {
                std::string c = b;
                c[at] = '#';
                ASSERT_EQ(StrICmp(pa, spanB.Place(startB, c)), ReferenceICmp(a, c))
                    << startA << ' ' << startB << ' ' << at;
            }
        }
    }
}

TEST_P(StrICmpForms, StringsAtTheEndOfTheirAllocation) {
    // Exactly sized heap blocks: AddressSanitizer reports a read past them.
    for (std::size_t length = 0; length < 70; ++length) {
        std::string text(length, 'k');
        std::unique_ptr<char[]> a(new char[length + 1]);
        std::unique_ptr<char[]> b(new char[length + 1]);
        std::memcpy(a.get(), text.c_str(), length + 1);
        std::transform(text.begin(), text.end(), text.begin(), [](char c) { return static_cast<char>(c - 32); });
        std::memcpy(b.get(), text.c_str(), length + 1);
        ASSERT_EQ(StrICmp(a.get(), b.get()), 0) << length;
    }
}

TEST(CMUtlStrNICmp, Table) {
    struct Row {
        const char *a;
        const char *b;
        RTS_SIZE n;
        RTS_I32 expected;
    };
    const Row rows[] = {
        {"abc", "ABD", 2, 0},
        {"abc", "ABD", 3, 'c' - 'd'},
        {"ABC", "abd", 3, 'c' - 'd'},
        {"abc", "abc", 10, 0},
        {"a", "b", 0, 0},
        {"x", "X", 1, 0},
        {"ab", "abc", 3, 0 - 'c'}, // a ended first: raw bytes
        {"AB", "abC", 3, 0 - 'C'}, // raw, not lower-cased
        {"abC", "AB", 3, 'C' - 0},
        {"", "A", 1, 0 - 'A'},
        {"[", "A", 1, '[' - 'a'},
        {"\xE4", "\xC4", 1, 0xE4 - 0xC4},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(CMUtlStrNICmp(row.a, row.b, row.n), row.expected)
            << '"' << row.a << "\" \"" << row.b << "\" " << row.n;
    }
    EXPECT_EQ(CMUtlStrNICmp(nullptr, "a", 1), -1);
    EXPECT_EQ(CMUtlStrNICmp("a", nullptr, 0), -1);
}

TEST(CMUtlStrIStr, Table) {
    struct Row {
        const char *haystack;
        const char *needle;
        std::ptrdiff_t found; // -1: null
    };
    const Row rows[] = {
        {"Hello", "LL", 2},
        {"Hello", "", 0},
        {"", "", -1},
        {"", "a", -1},
        {"Hello", "lo", 3},
        {"Hello", "LOX", -1},
        {"Hello", "hello", 0},
        {"Hello", "Hello!", -1},
        {"abcabd", "ABD", 3},
        {"aab", "AB", 1},
        {"a\xC4", "\xE4", -1},
        {"x", "X", 0},
        {"path/File.TXT", "file.txt", 5},
    };
    for (const Row &row : rows) {
        char *result = CMUtlStrIStr(row.haystack, row.needle);
        if (row.found < 0) {
            EXPECT_EQ(result, nullptr) << '"' << row.haystack << "\" \"" << row.needle << '"';
        } else {
            EXPECT_EQ(result, row.haystack + row.found) << '"' << row.haystack << "\" \"" << row.needle << '"';
        }
    }
    EXPECT_EQ(CMUtlStrIStr(nullptr, "a"), nullptr);
    EXPECT_EQ(CMUtlStrIStr("a", nullptr), nullptr);
}

// The program runs in the C locale: every byte, in front of a longer text, must be converted as
// the C library does, and the comparison must fold the same way.
TEST(CMUtlCase, EveryByteMapsAsTheCLibraryDoes) {
    struct Row {
        char *(*convert)(char *);
        int (*map)(int);
    };
    const Row rows[] = {{&CMUtlStrlwr, [](int c) { return std::tolower(c); }},
                        {&CMUtlStrToLower, [](int c) { return std::tolower(c); }},
                        {&CMUtlStrupr, [](int c) { return std::toupper(c); }},
                        {&CMUtlStrToUpper, [](int c) { return std::toupper(c); }}};
    for (int c = 1; c < 256; ++c) {
        const std::string text = static_cast<char>(c) + std::string("Hello, World! [@`{] \xC4\xE4");
        for (const Row &row : rows) {
            std::string s = text;
            std::string expected = text;
            for (char &e : expected)
                e = static_cast<char>(row.map(static_cast<unsigned char>(e)));
            EXPECT_EQ(row.convert(s.data()), s.data());
            EXPECT_EQ(s, expected) << c;
        }
        const char single[2] = {static_cast<char>(c), 0};
        const char folded[2] = {static_cast<char>(std::toupper(c)), 0};
        EXPECT_EQ(CMUtlStrICmp(single, folded), 0) << c;
    }
    EXPECT_EQ(CMUtlStrlwr(nullptr), nullptr);
    EXPECT_EQ(CMUtlStrupr(nullptr), nullptr);
}

TEST(CMUtlStrLen, CountsBytesAndToleratesNull) {
    EXPECT_EQ(CMUtlStrLen(nullptr), 0u);
    EXPECT_EQ(CMUtlStrLen(""), 0u);
    EXPECT_EQ(CMUtlStrLen("abc"), 3u);
    EXPECT_EQ(CMUtlStrLen("\xFF\x80"), 2u);
}

TEST(CMUtlSafeMemCpy, Table) {
    struct Row {
        RTS_SIZE size;
        RTS_SIZE count;
        RTS_RESULT result;
    };
    const char source[8] = {'1', '2', '3', '4', 0, '6', '7', '8'};
    for (const Row &row : {Row{8, 8, ERR_OK}, Row{8, 5, ERR_OK}, Row{5, 5, ERR_OK}, Row{4, 5, ERR_PARAMETER},
                           Row{0, 0, ERR_OK}, Row{0, 1, ERR_PARAMETER}}) {
        char dest[8];
        std::memset(dest, 'x', sizeof dest);
        EXPECT_EQ(CMUtlSafeMemCpy(dest, row.size, source, row.count), row.result) << row.size << ' ' << row.count;
        const std::size_t copied = row.result == ERR_OK ? row.count : 0;
        EXPECT_EQ(std::memcmp(dest, source, copied), 0);
        for (std::size_t i = copied; i < sizeof dest; ++i) {
            EXPECT_EQ(dest[i], 'x') << "byte " << i << " written";
        }
    }
    char dest[4];
    EXPECT_EQ(CMUtlSafeMemCpy(nullptr, 4, source, 1), ERR_PARAMETER);
    EXPECT_EQ(CMUtlSafeMemCpy(dest, 4, nullptr, 1), ERR_PARAMETER);
}

} // namespace
