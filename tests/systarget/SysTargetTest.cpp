// SysTarget functions: constants, version, node, device and vendor names with
// their settings and fallbacks, the computer-name rules, and the IEC twins.
#include <gtest/gtest.h>

#include <cstdio>
#include <ostream>
#include <string>
#include <vector>

#include "FakeCM.h"
#include "FakeSettings.h"
#include "SysTargetItf.h"
#include "SysTargetOs.h"

namespace kestrel::test {
namespace {

using NameFunction = RTS_RESULT (*)(RTS_WCHAR *, RTS_SIZE *);

const char *g_computerName = nullptr; // null: the name cannot be read

RTS_RESULT InjectedComputerName(char *name, RTS_SIZE size) {
    if (g_computerName == nullptr)
        return ERR_FAILED;
    std::snprintf(name, size, "%s", g_computerName);
    return ERR_OK;
}

// What a name function answered: its result, the text and the reported length.
struct Name {
    RTS_RESULT result;
    std::u16string text;
    RTS_SIZE length;
    bool operator==(const Name &) const = default;
};
void PrintTo(const Name &name, std::ostream *os) {
    *os << name.result << ' ' << ::testing::PrintToString(name.text) << ' ' << name.length;
}

// Calls a name function with a buffer of `capacity` characters pre-filled with a marker.
Name Ask(NameFunction fn, RTS_SIZE capacity) {
    std::vector<RTS_WCHAR> buffer(capacity + 1, 0x2A);
    buffer[capacity] = 0;
    RTS_SIZE length = capacity;
    const RTS_RESULT result = fn(buffer.data(), &length);
    return {result, Wide(buffer.data()), length};
}

// Calls a name function with a null buffer, which only asks for the length.
Name AskLength(NameFunction fn, RTS_SIZE length = 0) {
    const RTS_RESULT result = fn(nullptr, &length);
    return {result, u"", length};
}

class SysTargetTest : public ::testing::Test {
  protected:
    void SetUp() override {
        FakeSettings::current = &settings;
        cm.Provide("SettgGetStringValue", &FakeSettings::GetStringValue);
        cm.Provide("SettgGetWStringValue", &FakeSettings::GetWStringValue);
        cm.Provide("SettgGetIntValue", &FakeSettings::GetIntValue);
        ASSERT_EQ(cm.Enter(&SysTargetEntry), ERR_OK);
        ASSERT_EQ(cm.Import(), ERR_OK);
        g_computerName = "PLCHOST";
        SysTargetSetComputerNameSource(&InjectedComputerName);
    }
    void TearDown() override {
        cm.Hook(CH_EXIT2);
        SysTargetSetComputerNameSource(nullptr);
        FakeSettings::current = nullptr;
    }

    void SetNarrow(const std::string &key, const std::string &value) { settings.narrow[{"SysTarget", key}] = value; }
    void SetWide(const std::string &key, const std::u16string &value) { settings.wide[{"SysTarget", key}] = value; }

    FakeCM cm;
    FakeSettings settings;
};

TEST_F(SysTargetTest, ConstantsOfTheTargetAndNullOutputPointers) {
    struct Row {
        RTS_RESULT (*fn)(RTS_UI32 *);
        RTS_UI32 expected;
    };
    for (const Row &row : {Row{&SysTargetGetType, 0x1000u}, Row{&SysTargetGetId, 1u},
                           Row{&SysTargetGetOperatingSystemId, 2u}, Row{&SysTargetGetProcessorId, 1u}}) {
        RTS_UI32 value = 0xFFFFFFFFu;
        EXPECT_EQ(row.fn(&value), ERR_OK) << row.expected;
        EXPECT_EQ(value, row.expected);
        EXPECT_EQ(row.fn(nullptr), ERR_PARAMETER) << row.expected;
    }
    RTS_UI16 mask = 0xFFFF;
    EXPECT_EQ(SysTargetGetDeviceMask(&mask), ERR_OK);
    EXPECT_EQ(mask, 0u);
    EXPECT_EQ(SysTargetGetDeviceMask(nullptr), ERR_PARAMETER);
    EXPECT_EQ(SysTargetGetVersion(nullptr), ERR_PARAMETER);
    RTS_WCHAR buffer[8];
    for (NameFunction fn :
         {&SysTargetGetConfiguredNodeName, &SysTargetGetNodeName, &SysTargetGetDeviceName, &SysTargetGetVendorName})
        EXPECT_EQ(fn(buffer, nullptr), ERR_PARAMETER);
}

TEST_F(SysTargetTest, VersionFromSettingsWithTheIncomingValueAsDefault) {
    RTS_UI32 version = 0x01020304u;
    EXPECT_EQ(SysTargetGetVersion(&version), ERR_OK);
    EXPECT_EQ(version, 0x03050500u); // no key
    settings.ints[{"SysTarget", "TargetVersion"}] = 0x04000102;
    version = 0x01020304u;
    EXPECT_EQ(SysTargetGetVersion(&version), ERR_OK);
    EXPECT_EQ(version, 0x04000102u);
    EXPECT_EQ(settings.lastIntDefault, 0x01020304);
}

TEST_F(SysTargetTest, ConfiguredNodeNamePrefersTheUnicodeKeyToTheNarrowOne) {
    EXPECT_NE(Ask(&SysTargetGetConfiguredNodeName, 32).result, ERR_OK); // no key at all
    SetNarrow("NodeName", "Line\x80");                                  // the euro sign in code page 1252
    EXPECT_EQ(Ask(&SysTargetGetConfiguredNodeName, 32), (Name{ERR_OK, u"Line\u20ac", 6}));
    EXPECT_EQ(Ask(&SysTargetGetConfiguredNodeName, 4), (Name{ERR_OK, u"Lin", 6})); // converted up to the capacity
    EXPECT_EQ(AskLength(&SysTargetGetConfiguredNodeName), (Name{ERR_OK, u"", 6}));
    SetWide("NodeNameUnicode", u"Presse\u00e9 7");
    EXPECT_EQ(Ask(&SysTargetGetConfiguredNodeName, 32), (Name{ERR_OK, u"Presse\u00e9 7", 10}));
    EXPECT_EQ(AskLength(&SysTargetGetConfiguredNodeName), (Name{ERR_OK, u"", 10}));
}

TEST_F(SysTargetTest, NodeNameIsTheConfiguredNameElseTheComputerName) {
    EXPECT_EQ(Ask(&SysTargetGetNodeName, 32), (Name{ERR_OK, u"PLCHOST", 8}));
    g_computerName = "ABCDEFGHIJKL";
    EXPECT_EQ(AskLength(&SysTargetGetNodeName, 4), (Name{ERR_OK, u"", 13}));
    SetNarrow("NodeName", "Configured");
    EXPECT_EQ(Ask(&SysTargetGetNodeName, 32), (Name{ERR_OK, u"Configured", 11}));
}

// A long name is cut to (capacity - 3) characters and "..." appended; the wide conversion then
// keeps what fits in the capacity with its terminator. An unreadable name is "<NoName>" if it fits.
TEST_F(SysTargetTest, ComputerNameCutToTheCapacity) {
    struct Row {
        const char *computerName; // null: unreadable
        RTS_SIZE capacity;
        const char16_t *expected;
    };
    for (const Row &row : {
             Row{"ABCDEFGHIJKLMNO", 10, u"ABCDEFG.."}, // longer than the capacity
             Row{"ABCDEFGHIJ", 10, u"ABCDEFG.."},      // exactly the capacity
             Row{"ABCDEFGHI", 10, u"ABCDEFGHI"},       // fits with its terminator
             Row{"ABCDEFGHIJ", 4, u"A.."},
             Row{"ABCDEFGHIJ", 3, u".."},
             Row{"ABCDEFGHIJ", 2, u"A"},
             Row{nullptr, 9, u"<NoName>"},
             Row{nullptr, 8, u""},
         }) {
        g_computerName = row.computerName;
        const std::u16string expected = row.expected;
        EXPECT_EQ(Ask(&SysTargetGetNodeName, row.capacity), (Name{ERR_OK, expected, expected.size() + 1}))
            << (row.computerName != nullptr ? row.computerName : "unreadable") << ' ' << row.capacity;
    }
}

TEST_F(SysTargetTest, DeviceAndVendorNameFallbacksReportTheNeededLength) {
    EXPECT_EQ(Ask(&SysTargetGetDeviceName, 64), (Name{ERR_OK, u"KESTREL Control Win V3", 23}));
    EXPECT_EQ(Ask(&SysTargetGetDeviceName, 8), (Name{ERR_OK, u"KESTREL", 23}));
    EXPECT_EQ(AskLength(&SysTargetGetDeviceName), (Name{ERR_OK, u"", 23}));
    EXPECT_EQ(Ask(&SysTargetGetVendorName, 64), (Name{ERR_OK, u"Norvale GmbH", 13}));
}

TEST_F(SysTargetTest, WithoutSettingsComponentTheImportsAreMissingAndTheFallbacksAnswer) {
    const std::vector<std::string> imports = {"SettgGetStringValue", "SettgGetWStringValue", "SettgGetIntValue"};
    for (const std::string &name : imports)
        cm.Withdraw(name);
    ASSERT_EQ(cm.Import(), ERR_OK);
    EXPECT_EQ(cm.Missing(), imports);
    EXPECT_EQ(Ask(&SysTargetGetDeviceName, 64).text, u"KESTREL Control Win V3");
    EXPECT_EQ(Ask(&SysTargetGetVendorName, 64).text, u"Norvale GmbH");
    EXPECT_NE(Ask(&SysTargetGetConfiguredNodeName, 64).result, ERR_OK);
    EXPECT_EQ(Ask(&SysTargetGetNodeName, 64).text, u"PLCHOST");
    RTS_UI32 version = 7;
    EXPECT_EQ(SysTargetGetVersion(&version), ERR_OK);
    EXPECT_EQ(version, 0x03050500u);
}

// Device and vendor name: the wide key wins over the 8-bit key (of up to 100 characters), which
// wins over the fallback; every call reads the settings again.
TEST_F(SysTargetTest, DeviceAndVendorNameWideKeyThenNarrowKey) {
    struct Row {
        NameFunction fn;
        const char *key;
        std::string narrow;
    };
    for (const Row &row : {Row{&SysTargetGetDeviceName, "DeviceName", std::string(100, 'x')},
                           Row{&SysTargetGetVendorName, "VendorName", "Narrow Name"}}) {
        SCOPED_TRACE(row.key);
        SetNarrow(row.key, row.narrow);
        const std::u16string narrow(row.narrow.begin(), row.narrow.end());
        EXPECT_EQ(Ask(row.fn, 128), (Name{ERR_OK, narrow, narrow.size() + 1}));
        SetWide(std::string(row.key) + "Unicode", u"Wide \u0416");
        EXPECT_EQ(Ask(row.fn, 64), (Name{ERR_OK, u"Wide \u0416", 7}));
        const int before = settings.reads;
        Ask(row.fn, 64);
        EXPECT_GT(settings.reads, before);
    }
}

// Each number twin stores the C function's value and result; the "2" variants skip their leading word.
TEST_F(SysTargetTest, NumberTwinsCallTheCFunctions) {
    settings.ints[{"SysTarget", "TargetVersion"}] = 0x03050601;
    struct Twin {
        void (*iec)(SysTargetIecValue *);
        void (*iec2)(SysTargetIecValue2 *);
        RTS_UI32 expected;
    };
    for (const Twin &twin :
         {Twin{&systargetgettype, &systargetgettype2, 0x1000u}, Twin{&systargetgetid, &systargetgetid2, 1u},
          Twin{&systargetgetversion, &systargetgetversion2, 0x03050601u}, Twin{&systargetgetprocessorid, nullptr, 1u},
          Twin{&systargetgetoperatingsystemid, nullptr, 2u}}) {
        SCOPED_TRACE(twin.expected);
        RTS_UI32 value = 0;
        SysTargetIecValue p{&value, 0xDEADu};
        twin.iec(&p);
        EXPECT_EQ(p.Result, ERR_OK);
        EXPECT_EQ(value, twin.expected);
        SysTargetIecValue bad{nullptr, 0xDEADu};
        twin.iec(&bad);
        EXPECT_EQ(bad.Result, ERR_PARAMETER);
        if (twin.iec2 != nullptr) {
            RTS_UI32 value2 = 0;
            SysTargetIecValue2 p2{~static_cast<RTS_UINTPTR>(0), &value2, 0xDEADu};
            twin.iec2(&p2);
            EXPECT_EQ(p2.Result, ERR_OK);
            EXPECT_EQ(value2, twin.expected);
        }
    }
}

TEST_F(SysTargetTest, NameTwinsCallTheCFunctions) {
    struct Twin {
        void (*iec)(SysTargetIecName *);
        void (*iec2)(SysTargetIecName2 *);
        std::u16string expected;
    };
    for (const Twin &twin : {Twin{&systargetgetdevicename, &systargetgetdevicename2, u"KESTREL Control Win V3"},
                             Twin{&systargetgetvendorname, &systargetgetvendorname2, u"Norvale GmbH"},
                             Twin{&systargetgetnodename, &systargetgetnodename2, u"PLCHOST"}}) {
        SCOPED_TRACE(::testing::PrintToString(twin.expected));
        RTS_WCHAR buffer[64] = {};
        RTS_SIZE length = 64;
        SysTargetIecName p{buffer, &length, 0xDEADu};
        twin.iec(&p);
        EXPECT_EQ(p.Result, ERR_OK);
        EXPECT_EQ(Wide(buffer), twin.expected);
        EXPECT_EQ(length, twin.expected.size() + 1);

        RTS_WCHAR buffer2[64] = {};
        RTS_SIZE length2 = 64;
        SysTargetIecName2 p2{12345, buffer2, &length2, 0xDEADu};
        twin.iec2(&p2);
        EXPECT_EQ(p2.Result, ERR_OK);
        EXPECT_EQ(Wide(buffer2), twin.expected);

        SysTargetIecName bad{buffer, nullptr, 0xDEADu};
        twin.iec(&bad);
        EXPECT_EQ(bad.Result, ERR_PARAMETER);
    }
}

} // namespace
} // namespace kestrel::test
