// Tests of the bounded copy and concatenation functions: results, the bytes
// written and, just as much, the bytes left alone.
#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "CMUtlItf.h"
#include "ScanForms.h"
#include "TestBuffer.h"

namespace {

using SafeStrCpyForms = kestrel::test::ScanFormTest;
KESTREL_FOR_EACH_SCAN_FORM(SafeStrCpyForms);

using kestrel::test::MarkedBuffer;
using kestrel::test::PageSpan;

// The fourth value is ignored: every source length against every buffer size as CMUtlSafeStrCpy.
TEST(CMUtlSafeStrCpy2, SameAsSafeStrCpyWhateverTheFourthValue) {
    const std::string alphabet = "abcdefghij";
    for (std::size_t length = 0; length <= alphabet.size(); ++length) {
        const std::string source = alphabet.substr(0, length);
        for (RTS_SIZE size = 1; size <= 12; ++size) {
            MarkedBuffer<> expected;
            const RTS_RESULT result = CMUtlSafeStrCpy(expected.get(), size, source.c_str());
            for (RTS_UI32 ignored : {0u, 3u, 0xFFFFFFFFu}) {
                MarkedBuffer<> dest;
                ASSERT_EQ(CMUtlSafeStrCpy2(dest.get(), size, source.c_str(), ignored), result) << length << ' ' << size;
                ASSERT_EQ(dest.data, expected.data) << length << ' ' << size;
            }
        }
    }
}

TEST(CMUtlSafeStrCpy, RejectsNullAndEmptyBuffers) {
    MarkedBuffer<> dest;
    EXPECT_EQ(CMUtlSafeStrCpy(nullptr, 4, "a"), ERR_PARAMETER);
    EXPECT_EQ(CMUtlSafeStrCpy(dest.get(), 4, nullptr), ERR_PARAMETER);
    EXPECT_EQ(CMUtlSafeStrCpy(dest.get(), 0, "a"), ERR_PARAMETER);
    EXPECT_EQ(CMUtlSafeStrCpy2(dest.get(), 0, "a", 3), ERR_PARAMETER);
    EXPECT_TRUE(dest.UntouchedFrom(0));
}

TEST_P(SafeStrCpyForms, EveryLengthAgainstEverySize) {
    // Past the longest short path: min(length + 1, size) bytes, a terminator in the last byte, 15
    // when the text did not fit.
    const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+-";
    for (std::size_t length = 0; length <= 64; ++length) {
        const std::string source = alphabet.substr(0, length);
        for (RTS_SIZE size = 1; size <= 70; ++size) {
            MarkedBuffer<> dest;
            const RTS_RESULT result = SafeStrCpy(dest.get(), size, source.c_str());
            const std::size_t copied = length + 1 < size ? length + 1 : size;
            ASSERT_EQ(result, length + 1 > size ? ERR_BUFFERSIZE : ERR_OK) << length << ' ' << size;
            ASSERT_EQ(std::memcmp(dest.get(), source.c_str(), copied - (copied == size ? 1 : 0)), 0);
            ASSERT_EQ(dest.data[copied - 1], 0); // the source's terminator, or the one that cut it
            ASSERT_TRUE(dest.UntouchedFrom(copied, size - 1 > copied ? size - 1 : copied)) << length << ' ' << size;
            ASSERT_EQ(dest.data[size - 1], 0);
            ASSERT_TRUE(dest.UntouchedFrom(size)) << length << ' ' << size;
        }
    }
}

// Sources starting just before a page end take the careful path for the bytes near the boundary.
TEST_P(SafeStrCpyForms, SourcesAcrossPageBoundaries) {
    PageSpan span;
    const std::string base = "/var/opt/kestrel/PlcLogic/Application/Application.app";
    for (std::size_t length : {0u, 5u, 15u, 16u, 31u, 32u, 40u, 53u}) {
        const std::string source = base.substr(0, length);
        for (std::size_t start = PageSpan::kPage - 60; start <= PageSpan::kPage + 1; ++start) {
            const char *placed = span.Place(start, source);
            for (RTS_SIZE size : {RTS_SIZE{8}, RTS_SIZE{33}, RTS_SIZE{64}}) {
                MarkedBuffer<> dest;
                const RTS_RESULT result = SafeStrCpy(dest.get(), size, placed);
                ASSERT_EQ(result, length + 1 > size ? ERR_BUFFERSIZE : ERR_OK) << length << ' ' << start;
                ASSERT_EQ(dest.Text(), source.substr(0, size - 1)) << length << ' ' << start << ' ' << size;
                ASSERT_TRUE(dest.UntouchedFrom(size));
            }
        }
    }
}

TEST_P(SafeStrCpyForms, SourcesAtTheEndOfTheirAllocation) {
    for (std::size_t length = 0; length < 70; ++length) {
        std::unique_ptr<char[]> source(new char[length + 1]);
        std::memset(source.get(), 'z', length);
        source[length] = 0;
        MarkedBuffer<> dest;
        ASSERT_EQ(SafeStrCpy(dest.get(), 80, source.get()), ERR_OK);
        ASSERT_EQ(dest.Text(), std::string(length, 'z'));
    }
}

TEST(CMUtlSafeStrNCpy, Table) {
    struct Row {
        RTS_SIZE size;
        const char *source;
        RTS_SIZE count;
        std::string bytes; // the bytes written, from the start
        RTS_RESULT result;
    };
    using namespace std::string_literals;
    const char unterminated[3] = {'x', 'y', 'z'}; // as from a fixed-size record
    const Row rows[] = {
        {10, unterminated, 3, "xyz\0"s, ERR_OK}, // only `count` bytes of the source are read
        {10, "abc", 10, "abc\0\0"s, ERR_OK},     // the text, its terminator, and a zero behind it
        {10, "abc", 2, "ab\0"s, ERR_OK},
        {10, "abc", 3, "abc\0"s, ERR_OK},
        {4, "ab", 10, "ab\0\0"s, ERR_BUFFERSIZE}, // short source, large count: 15 all the same
        {3, "abc", 3, "ab\0"s, ERR_OK},           // size equal to count: no complaint, text cut
        {3, "abcdef", 5, "ab\0"s, ERR_BUFFERSIZE},
        {5, "abc", 0, "\0"s, ERR_OK},
        {1, "abc", 1, "\0"s, ERR_OK},
        {1, "", 1, "\0"s, ERR_OK},
        {2, "abc", 1, "a\0"s, ERR_OK},
        {0, "abc", 0, ""s, ERR_OK}, // no buffer: nothing written
        {0, "abc", 1, ""s, ERR_BUFFERSIZE},
    };
    for (const Row &row : rows) {
        MarkedBuffer<> dest;
        EXPECT_EQ(CMUtlSafeStrNCpy(dest.get(), row.size, row.source, row.count), row.result)
            << row.size << ' ' << row.count;
        EXPECT_EQ(std::string(dest.get(), row.bytes.size()), row.bytes) << row.size << ' ' << row.count;
        EXPECT_TRUE(dest.UntouchedFrom(row.bytes.size())) << row.size << ' ' << row.count;
    }
}

TEST(CMUtlSafeStrCat, Table) {
    struct Row {
        RTS_SIZE size;
        const char *initial;
        const char *source;
        const char *text;
        RTS_RESULT result;
    };
    const Row rows[] = {
        {10, "ab", "cd", "abcd", ERR_OK},
        {5, "ab", "cd", "abcd", ERR_OK},
        {4, "ab", "cd", "abc", ERR_BUFFERSIZE},
        {3, "ab", "cd", "ab", ERR_BUFFERSIZE},
        {3, "ab", "", "ab", ERR_OK},
        {1, "", "x", "", ERR_BUFFERSIZE},
        {1, "", "", "", ERR_OK},
        {40, "0123456789012345678901234", "abcdefghij", "0123456789012345678901234abcdefghij", ERR_OK},
        {30, "0123456789012345678901234", "abcdefghij", "0123456789012345678901234abcd", ERR_BUFFERSIZE},
    };
    for (const Row &row : rows) {
        MarkedBuffer<> dest;
        std::strcpy(dest.get(), row.initial);
        EXPECT_EQ(CMUtlSafeStrCat(dest.get(), row.size, row.source), row.result) << row.size << ' ' << row.source;
        EXPECT_EQ(dest.Text(), row.text) << row.size << ' ' << row.source;
        EXPECT_EQ(dest.data[row.size - 1], 0);
        EXPECT_TRUE(dest.UntouchedFrom(row.size));
    }
}

TEST(CMUtlSafeStrCat, EmptyBufferTakesNothing) {
    MarkedBuffer<> dest;
    dest.data[0] = 0;
    EXPECT_EQ(CMUtlSafeStrCat(dest.get(), 0, "x"), ERR_BUFFERSIZE);
    EXPECT_TRUE(dest.UntouchedFrom(1));
}

} // namespace
