// Tests of number-to-text conversion, the GUID text and the binary search.
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CMUtlItf.h"
#include "TestBuffer.h"

namespace {

using kestrel::test::MarkedBuffer;

struct ToTextRow {
    bool isSigned; // CMUtlLtoa, else CMUtlUltoa
    RTS_I64 value;
    RTS_SIZE size;
    RTS_I32 radix;
    const char *text;
    RTS_RESULT result;
};

const ToTextRow kToTextRows[] = {
    {true, -5, 3, 10, "-5", ERR_OK},
    {true, -5, 2, 10, "", ERR_PARAMETER},
    {false, 255, 5, 16, "0xFF", ERR_OK},
    {false, 255, 4, 16, "", ERR_PARAMETER},
    {true, 255, 5, 16, "0xFF", ERR_OK},
    {true, 0, 2, 10, "0", ERR_OK},
    {true, 0, 1, 10, "", ERR_PARAMETER},
    {false, 0, 4, 16, "0x0", ERR_OK},
    {true, 123, 4, 10, "123", ERR_OK},
    {true, 123, 3, 10, "", ERR_PARAMETER},
    {true, -123, 5, 10, "-123", ERR_OK},
    {true, -123, 4, 10, "", ERR_PARAMETER},
    {true, INT_MIN, 12, 10, "-2147483648", ERR_OK},
    {true, INT_MIN, 11, 10, "", ERR_PARAMETER},
    {true, INT_MAX, 11, 10, "2147483647", ERR_OK},
    {false, UINT_MAX, 11, 10, "4294967295", ERR_OK},
    {false, UINT_MAX, 10, 10, "", ERR_PARAMETER},
    {true, -1, 11, 16, "0xFFFFFFFF", ERR_OK}, // two's complement, no sign
    {true, -1, 10, 16, "", ERR_PARAMETER},
    {true, -5, 11, 16, "0xFFFFFFFB", ERR_OK},
    {true, -2, 33, 2, "11111111111111111111111111111110", ERR_OK},
    {true, -2, 32, 2, "", ERR_PARAMETER},
    {true, -5, 12, 8, "37777777773", ERR_OK},
    {false, 8, 3, 8, "10", ERR_OK},
    {false, 5, 4, 2, "101", ERR_OK},
    {false, 35, 2, 36, "Z", ERR_OK},
    {false, 36, 3, 36, "10", ERR_OK},
    {false, 0xABCDEF, 9, 16, "0xABCDEF", ERR_OK},
    {false, 1295, 3, 36, "ZZ", ERR_OK},
    {true, 5, 5, 1, "0", ERR_PARAMETER}, // radix out of range: "0" when room
    {true, 5, 5, 37, "0", ERR_PARAMETER},
    {false, 5, 2, 0, "0", ERR_PARAMETER},
    {false, 5, 1, -16, "", ERR_PARAMETER}, // ... and empty when there is none
};

// CMUtlLtoa or CMUtlUltoa.
char *ToText(bool isSigned, RTS_I64 value, char *buffer, RTS_SIZE size, RTS_I32 radix, RTS_RESULT *result) {
    return isSigned ? CMUtlLtoa(static_cast<RTS_I32>(value), buffer, size, radix, result)
                    : CMUtlUltoa(static_cast<RTS_UI32>(value), buffer, size, radix, result);
}

TEST(CMUtlLtoaUltoa, Table) {
    for (const ToTextRow &row : kToTextRows) {
        MarkedBuffer<> buffer;
        RTS_RESULT result = 12345;
        const std::string label =
            std::to_string(row.value) + " size " + std::to_string(row.size) + " radix " + std::to_string(row.radix);
        EXPECT_EQ(ToText(row.isSigned, row.value, buffer.get(), row.size, row.radix, &result), buffer.get()) << label;
        EXPECT_EQ(buffer.Text(), row.text) << label;
        EXPECT_EQ(result, row.result) << label;
        EXPECT_TRUE(buffer.UntouchedFrom(row.size)) << label;
        // Without a result pointer the text is the same.
        MarkedBuffer<> again;
        ToText(row.isSigned, row.value, again.get(), row.size, row.radix, nullptr);
        EXPECT_EQ(again.Text(), row.text) << label;
    }
}

TEST(CMUtlLtoaUltoa, NoBufferGivesNull) {
    MarkedBuffer<> buffer;
    for (bool isSigned : {true, false}) {
        for (char *dest : {static_cast<char *>(nullptr), buffer.get()}) {
            const RTS_SIZE size = dest == nullptr ? 10 : 0;
            RTS_RESULT result = ERR_OK;
            EXPECT_EQ(ToText(isSigned, 5, dest, size, isSigned ? 10 : 16, &result), nullptr) << isSigned << size;
            EXPECT_EQ(result, ERR_PARAMETER);
            EXPECT_EQ(ToText(isSigned, 5, dest, size, isSigned ? 10 : 16, nullptr), nullptr);
        }
    }
    EXPECT_TRUE(buffer.UntouchedFrom(0));
}

TEST(CMUtlLtoaUltoa, DecimalAgreesWithTheCLibraryAcrossTheRange) {
    // Signed decimal has a sign and no prefix; every magnitude class is hit.
    for (RTS_I64 v = INT_MIN; v <= INT_MAX; v += 65537 * 31) {
        char expected[16];
        std::snprintf(expected, sizeof expected, "%d", static_cast<int>(v));
        char buffer[16];
        RTS_RESULT result = 12345;
        CMUtlLtoa(static_cast<RTS_I32>(v), buffer, sizeof buffer, 10, &result);
        ASSERT_STREQ(buffer, expected);
        ASSERT_EQ(result, ERR_OK);
        char hex[16];
        std::snprintf(hex, sizeof hex, "0x%X", static_cast<unsigned>(v));
        CMUtlUltoa(static_cast<RTS_UI32>(v), buffer, sizeof buffer, 16, &result);
        ASSERT_STREQ(buffer, hex);
    }
}

TEST(CMUtlGUIDToString, ProgramsOwnLayout) {
    const RTS_GUID guid = {0x0123abcd, 0x4567, 0x89ef, {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77}};
    MarkedBuffer<> buffer;
    EXPECT_EQ(CMUtlGUIDToString(&guid, buffer.get(), 38), ERR_OK);
    EXPECT_EQ(buffer.Text(), "{0123abcd-456789ef-00112233-44556677}");
    EXPECT_EQ(buffer.Text().size(), 37u);
    EXPECT_TRUE(buffer.UntouchedFrom(38));

    const RTS_GUID high = {0xFFFFFFFF, 0xABCD, 0x00EF, {0xFF, 0xA0, 0x0B, 0x9C, 0xDE, 0x01, 0xF0, 0x0F}};
    MarkedBuffer<> upper;
    EXPECT_EQ(CMUtlGUIDToString(&high, upper.get(), 64), ERR_OK);
    EXPECT_EQ(upper.Text(), "{ffffffff-abcd00ef-ffa00b9c-de01f00f}");
}

TEST(CMUtlGUIDToString, RejectsNullAndShortBuffers) {
    const RTS_GUID guid = {};
    MarkedBuffer<> buffer;
    EXPECT_EQ(CMUtlGUIDToString(nullptr, buffer.get(), 38), ERR_PARAMETER);
    EXPECT_EQ(CMUtlGUIDToString(&guid, nullptr, 38), ERR_PARAMETER);
    EXPECT_EQ(CMUtlGUIDToString(&guid, buffer.get(), 37), ERR_PARAMETER);
    EXPECT_EQ(CMUtlGUIDToString(&guid, buffer.get(), 0), ERR_PARAMETER);
    EXPECT_TRUE(buffer.UntouchedFrom(0));
}

// Records as callers keep them: an id and a u32 key at offset 4.
struct Record {
    RTS_UI32 id;
    RTS_UI32 key;
};
constexpr RTS_SIZE kKeyOffset = offsetof(Record, key);
constexpr RTS_SIZE kNone = ~RTS_SIZE{0};

TEST(CMUtlBinarySearch_UI32, SearchesFromTheFirstIndex) {
    std::vector<Record> records = {{0, 2}, {1, 4}, {2, 8}, {3, 16}, {4, 32}, {5, 0xFFFFFFFF}};
    struct Row {
        RTS_UI32 key;
        RTS_SIZE first;
        RTS_SIZE index;
        RTS_RESULT result;
    };
    for (const Row &row : {Row{16, 3, 3, ERR_OK}, Row{16, 4, kNone, ERR_NO_OBJECT}, Row{8, 2, 2, ERR_OK}}) {
        RTS_RESULT result = 12345;
        EXPECT_EQ(CMUtlBinarySearch_UI32(records.data(), 5 * sizeof(Record), sizeof(Record), kKeyOffset, row.first,
                                         row.key, &result),
                  row.index)
            << row.key << " from " << row.first;
        EXPECT_EQ(result, row.result) << row.key;
    }
}

TEST(CMUtlBinarySearch_UI32, LooksAtTheElementBehindTheArray) {
    // A key larger than all leads the search to index `count`, whose element is read as well.
    std::vector<Record> records = {{0, 10}, {1, 20}, {2, 30}, {3, 999}};
    RTS_RESULT result = 12345;
    EXPECT_EQ(CMUtlBinarySearch_UI32(records.data(), 3 * sizeof(Record), sizeof(Record), kKeyOffset, 0, 999, &result),
              3u);
    EXPECT_EQ(result, ERR_OK);
}

TEST(CMUtlBinarySearch_UI32, UnalignedKeysAndOddElementSizes) {
    // Six-byte elements with the key at offset 1: keys straddle alignment.
    constexpr RTS_SIZE kSize = 6;
    const RTS_UI32 keys[] = {3, 300, 70000, 0x80000000u, 0xFFFFFFFEu};
    std::vector<unsigned char> bytes((std::size(keys) + 1) * kSize, 0xFF);
    for (std::size_t i = 0; i < std::size(keys); ++i) {
        std::memcpy(&bytes[i * kSize + 1], &keys[i], sizeof keys[i]);
    }
    for (std::size_t i = 0; i < std::size(keys); ++i) {
        RTS_RESULT result = 12345;
        EXPECT_EQ(CMUtlBinarySearch_UI32(bytes.data(), std::size(keys) * kSize, kSize, 1, 0, keys[i], &result), i);
        EXPECT_EQ(result, ERR_OK);
    }
    EXPECT_EQ(CMUtlBinarySearch_UI32(bytes.data(), std::size(keys) * kSize, kSize, 1, 0, 301, nullptr), kNone);
}

TEST(CMUtlBinarySearch_UI32, EveryArrayLengthUpToThirty) {
    for (RTS_SIZE count = 1; count <= 30; ++count) {
        std::vector<Record> records(count + 1);
        for (RTS_SIZE i = 0; i < count; ++i) {
            records[i] = {static_cast<RTS_UI32>(i), static_cast<RTS_UI32>(3 * i + 1)};
        }
        records[count] = {0, 0xFFFFFFFF};
        for (RTS_UI32 key = 0; key <= 3 * count + 2; ++key) {
            RTS_RESULT result = 12345;
            const RTS_SIZE index = CMUtlBinarySearch_UI32(records.data(), count * sizeof(Record), sizeof(Record),
                                                          kKeyOffset, 0, key, &result);
            if (key % 3 == 1 && (key - 1) / 3 < count) {
                ASSERT_EQ(index, (key - 1) / 3) << count << ' ' << key;
                ASSERT_EQ(result, ERR_OK);
            } else {
                ASSERT_EQ(index, kNone) << count << ' ' << key;
                ASSERT_EQ(result, ERR_NO_OBJECT);
            }
        }
    }
}

TEST(CMUtlBinarySearch_UI32, RejectsBadParameters) {
    Record records[2] = {{0, 1}, {1, 2}};
    struct Row {
        const void *base;
        RTS_SIZE total;
        RTS_SIZE element;
        RTS_SIZE offset;
    };
    for (const Row &row : {Row{nullptr, 8, 8, 4}, Row{records, 8, 0, 0}, Row{records, 8, 16, 4}, Row{records, 16, 8, 8},
                           Row{records, 16, 8, 9}}) {
        RTS_RESULT result = 12345;
        EXPECT_EQ(CMUtlBinarySearch_UI32(row.base, row.total, row.element, row.offset, 0, 1, &result), kNone);
        EXPECT_EQ(result, ERR_PARAMETER);
    }
}

} // namespace
