// Tests of number-to-text conversion, the GUID text and the binary search.
#include <climits>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "CMUtlItf.h"
#include "TestBuffer.h"

namespace {

using kestrel::test::MarkedBuffer;

// Only decimal text has a sign, hexadecimal has the prefix "0x", other radices show the two's
// complement digits; the smallest buffer of each kind; "0" (or nothing) for a bad radix. Without a
// result pointer the text is the same.
TEST(CMUtlLtoaUltoa, Table) {
    // signed (CMUtlLtoa, else CMUtlUltoa), value, size, radix, text, result
    using Row = std::tuple<bool, RTS_I64, RTS_SIZE, RTS_I32, const char *, RTS_RESULT>;
    for (const auto &[isSigned, value, size, radix, text, expected] : {
             Row{true, -5, 3, 10, "-5", ERR_OK},
             Row{true, -5, 2, 10, "", ERR_PARAMETER},
             Row{false, 255, 5, 16, "0xFF", ERR_OK},
             Row{false, 255, 4, 16, "", ERR_PARAMETER},
             Row{true, 0, 2, 10, "0", ERR_OK},
             Row{true, INT_MIN, 12, 10, "-2147483648", ERR_OK},
             Row{false, UINT_MAX, 11, 10, "4294967295", ERR_OK},
             Row{true, -1, 11, 16, "0xFFFFFFFF", ERR_OK},
             Row{true, -2, 33, 2, "11111111111111111111111111111110", ERR_OK},
             Row{false, 8, 3, 8, "10", ERR_OK},
             Row{false, 35, 2, 36, "Z", ERR_OK},
             Row{true, 5, 5, 1, "0", ERR_PARAMETER},
             Row{true, 5, 5, 37, "0", ERR_PARAMETER},
             Row{false, 5, 1, -16, "", ERR_PARAMETER},
         }) {
        for (bool withResult : {true, false}) {
            MarkedBuffer<> buffer;
            RTS_RESULT result = 12345;
            RTS_RESULT *pResult = withResult ? &result : nullptr;
            EXPECT_EQ(isSigned ? CMUtlLtoa(static_cast<RTS_I32>(value), buffer.get(), size, radix, pResult)
                               : CMUtlUltoa(static_cast<RTS_UI32>(value), buffer.get(), size, radix, pResult),
                      buffer.get());
            EXPECT_EQ(buffer.Text(), text) << value << " size " << size << " radix " << radix;
            EXPECT_EQ(result, withResult ? expected : 12345) << value << " size " << size << " radix " << radix;
            EXPECT_TRUE(buffer.UntouchedFrom(size));
        }
    }
    RTS_RESULT result = ERR_OK;
    EXPECT_EQ(CMUtlLtoa(5, nullptr, 10, 10, &result), nullptr); // no buffer: null
    EXPECT_EQ(result, ERR_PARAMETER);
    MarkedBuffer<> buffer;
    EXPECT_EQ(CMUtlUltoa(5, buffer.get(), 0, 16, nullptr), nullptr);
    EXPECT_TRUE(buffer.UntouchedFrom(0));
}

// Signed decimal and unsigned hexadecimal as the C library prints them, every magnitude.
TEST(CMUtlLtoaUltoa, AgreesWithTheCLibraryAcrossTheRange) {
    for (RTS_I64 v = INT_MIN; v <= INT_MAX; v += 65537 * 31) {
        char expected[16];
        char buffer[16];
        std::snprintf(expected, sizeof expected, "%d", static_cast<int>(v));
        ASSERT_STREQ(CMUtlLtoa(static_cast<RTS_I32>(v), buffer, sizeof buffer, 10, nullptr), expected);
        std::snprintf(expected, sizeof expected, "0x%X", static_cast<unsigned>(v));
        ASSERT_STREQ(CMUtlUltoa(static_cast<RTS_UI32>(v), buffer, sizeof buffer, 16, nullptr), expected);
    }
}

// {Data1-Data2Data3-Data4[0..3]-Data4[4..7]} in lower-case hex: 37 characters and the terminator.
TEST(CMUtlGUIDToString, ProgramsOwnLayout) {
    const RTS_GUID guid = {0x0123abcd, 0x4567, 0x89ef, {0x00, 0x1f, 0xa0, 0x3b, 0xc4, 0x5d, 0xe6, 0xff}};
    MarkedBuffer<> buffer;
    EXPECT_EQ(CMUtlGUIDToString(&guid, buffer.get(), 38), ERR_OK);
    EXPECT_EQ(buffer.Text(), "{0123abcd-456789ef-001fa03b-c45de6ff}");
    EXPECT_TRUE(buffer.UntouchedFrom(38));
    MarkedBuffer<> untouched;
    EXPECT_EQ(CMUtlGUIDToString(nullptr, untouched.get(), 38), ERR_PARAMETER);
    EXPECT_EQ(CMUtlGUIDToString(&guid, nullptr, 38), ERR_PARAMETER);
    EXPECT_EQ(CMUtlGUIDToString(&guid, untouched.get(), 37), ERR_PARAMETER);
    EXPECT_TRUE(untouched.UntouchedFrom(0));
}

constexpr RTS_SIZE kNone = ~RTS_SIZE{0};

// Arrays of 1 to 30 six-byte elements with the u32 key at offset 1 (keys straddle alignment) and
// keys 1, 4, 7, ...: every key from every first index before and behind its element. The element
// at index `count` is read as well: callers keep one behind the array (here with key 0xFFFFFFFF).
TEST(CMUtlBinarySearch_UI32, EveryLengthKeyAndFirstIndex) {
    constexpr RTS_SIZE kSize = 6;
    for (RTS_SIZE count = 1; count <= 30; ++count) {
        std::vector<unsigned char> bytes((count + 1) * kSize, 0xFF);
        for (RTS_SIZE i = 0; i < count; ++i) {
            const RTS_UI32 key = static_cast<RTS_UI32>(3 * i + 1);
            std::memcpy(&bytes[i * kSize + 1], &key, sizeof key);
        }
        for (RTS_UI32 key = 0; key <= 3 * count + 2; ++key) {
            const bool present = key % 3 == 1 && (key - 1) / 3 < count;
            const RTS_SIZE index = present ? (key - 1) / 3 : kNone;
            for (RTS_SIZE first : {RTS_SIZE{0}, present ? index : 0, present ? index + 1 : 0}) {
                RTS_RESULT result = 12345;
                const bool found = present && first <= index;
                ASSERT_EQ(CMUtlBinarySearch_UI32(bytes.data(), count * kSize, kSize, 1, first, key, &result),
                          found ? index : kNone)
                    << count << ' ' << key << " from " << first;
                ASSERT_EQ(result, found ? ERR_OK : ERR_NO_OBJECT);
            }
        }
        EXPECT_EQ(CMUtlBinarySearch_UI32(bytes.data(), count * kSize, kSize, 1, 0, 0xFFFFFFFF, nullptr), count);
    }
}

// A null array, an element size of 0 or larger than the array, a key not within the element.
TEST(CMUtlBinarySearch_UI32, RejectsBadParameters) {
    const RTS_UI32 records[2][2] = {{0, 1}, {1, 2}};
    using Row = std::tuple<const void *, RTS_SIZE, RTS_SIZE, RTS_SIZE>; // base, total, element, key offset
    for (const auto &[base, total, element, offset] :
         {Row{nullptr, 8, 8, 4}, Row{records, 8, 0, 0}, Row{records, 8, 16, 4}, Row{records, 16, 8, 8},
          Row{records, 16, 8, 9}}) {
        RTS_RESULT result = 12345;
        EXPECT_EQ(CMUtlBinarySearch_UI32(base, total, element, offset, 0, 1, &result), kNone);
        EXPECT_EQ(result, ERR_PARAMETER);
    }
}

} // namespace
