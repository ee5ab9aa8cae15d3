// Tests of the bounded copy and concatenation functions: results, the bytes
// written and, just as much, the bytes left alone.
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "CMUtlItf.h"
#include "ScanForms.h"
#include "TestBuffer.h"

namespace {

using SafeStrCpyForms = kestrel::test::ScanFormTest;
KESTREL_FOR_EACH_SCAN_FORM(SafeStrCpyForms);

using kestrel::test::kMarker;
using kestrel::test::MarkedBuffer;

struct CpyRow {
    RTS_SIZE size;
    const char *source;
    const char *text; // what the destination holds afterwards
    RTS_RESULT result;
};

const CpyRow kCpyRows[] = {
    {4, "abc", "abc", ERR_OK},
    {3, "abc", "ab", ERR_BUFFERSIZE},
    {2, "abc", "a", ERR_BUFFERSIZE},
    {1, "abc", "", ERR_BUFFERSIZE},
    {1, "", "", ERR_OK},
    {10, "abc", "abc", ERR_OK},
    {8, "abcdefg", "abcdefg", ERR_OK},
    {8, "abcdefgh", "abcdefg", ERR_BUFFERSIZE},
};

TEST(CMUtlSafeStrCpy, Table) {
    for (const CpyRow &row : kCpyRows) {
        MarkedBuffer<> dest;
        EXPECT_EQ(CMUtlSafeStrCpy(dest.get(), row.size, row.source), row.result) << row.size << ' ' << row.source;
        EXPECT_EQ(dest.Text(), row.text);
        // The text and its terminator, then untouched bytes up to the last
        // byte of the buffer, which always holds a terminator.
        const std::size_t written = std::strlen(row.text) + 1;
        EXPECT_TRUE(dest.UntouchedFrom(written, row.size - 1 > written ? row.size - 1 : written));
        EXPECT_EQ(dest.data[row.size - 1], 0);
        EXPECT_TRUE(dest.UntouchedFrom(row.size));
    }
}

TEST(CMUtlSafeStrCpy2, SameAsSafeStrCpyWhateverTheFourthValue) {
    for (const CpyRow &row : kCpyRows) {
        for (RTS_UI32 ignored : {0u, 3u, 0xFFFFFFFFu}) {
            MarkedBuffer<> a, b;
            EXPECT_EQ(CMUtlSafeStrCpy2(a.get(), row.size, row.source, ignored), row.result);
            CMUtlSafeStrCpy(b.get(), row.size, row.source);
            EXPECT_EQ(a.data, b.data);
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
    // Short copies take other paths than long ones; every pairing of source
    // length and buffer size up to past the longest short path is checked
    // against the rule: min(length + 1, size) bytes, a terminator in the
    // last byte, 15 when the text did not fit.
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

TEST_P(SafeStrCpyForms, SourcesAcrossPageBoundaries) {
    // Sources starting just before a page end take the careful path for
    // the bytes near the boundary; the copy must be the same.
    constexpr std::size_t kPage = 4096;
    char *span = static_cast<char *>(::operator new (3 * kPage, std::align_val_t{kPage}));
    std::memset(span, 'q', 3 * kPage);
    const std::string base = "/var/opt/kestrel/PlcLogic/Application/Application.app";
    for (std::size_t length : {0u, 5u, 15u, 16u, 31u, 32u, 40u, 53u}) {
        const std::string source = base.substr(0, length);
        for (std::size_t start = kPage - 60; start <= kPage + 1; ++start) {
            std::memcpy(span + start, source.c_str(), length + 1);
            for (RTS_SIZE size : {RTS_SIZE{8}, RTS_SIZE{33}, RTS_SIZE{64}}) {
                MarkedBuffer<> dest;
                const RTS_RESULT result = SafeStrCpy(dest.get(), size, span + start);
                ASSERT_EQ(result, length + 1 > size ? ERR_BUFFERSIZE : ERR_OK) << length << ' ' << start;
                ASSERT_EQ(dest.Text(), source.substr(0, size - 1)) << length << ' ' << start << ' ' << size;
                ASSERT_TRUE(dest.UntouchedFrom(size));
            }
        }
    }
    ::operator delete (span, std::align_val_t{kPage});
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
    const Row rows[] = {
        {10, "abc", 10, "abc\0\0"s, ERR_OK}, // the text, its terminator, and a zero behind it
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
            << row.size << ' ' << row.source << ' ' << row.count;
        EXPECT_EQ(std::string(dest.get(), row.bytes.size()), row.bytes) << row.size << ' ' << row.count;
        EXPECT_TRUE(dest.UntouchedFrom(row.bytes.size())) << row.size << ' ' << row.count;
    }
}

TEST(CMUtlSafeStrNCpy, ReadsNoFurtherThanCount) {
    // A source without terminator, as from a fixed-size record: only
    // `count` bytes of it may be read.
    const char source[3] = {'x', 'y', 'z'};
    MarkedBuffer<> dest;
    EXPECT_EQ(CMUtlSafeStrNCpy(dest.get(), 10, source, 3), ERR_OK);
    EXPECT_EQ(dest.Text(), "xyz");
    EXPECT_TRUE(dest.UntouchedFrom(4));
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
