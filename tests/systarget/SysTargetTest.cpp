// SysTarget functions: constants, version, node, device and vendor names with
// their settings and fallbacks, the computer-name rules, and the IEC twins.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "FakeCM.h"
#include "FakeSettings.h"
#include "SysTargetItf.h"
#include "SysTargetOs.h"

namespace kestrel::test {
namespace {

std::string g_computerName;
bool g_computerNameFails = false;

RTS_RESULT InjectedComputerName(char *name, RTS_SIZE size) {
    if (g_computerNameFails)
        return ERR_FAILED;
    size_t n = g_computerName.size() < size ? g_computerName.size() : size - 1;
    std::memcpy(name, g_computerName.data(), n);
    name[n] = '\0';
    return ERR_OK;
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
        g_computerNameFails = false;
        SysTargetSetComputerNameSource(&InjectedComputerName);
    }
    void TearDown() override {
        cm.Hook(CH_EXIT2);
        SysTargetSetComputerNameSource(nullptr);
        FakeSettings::current = nullptr;
    }

    void SetNarrow(const char *key, const std::string &value) { settings.narrow[{"SysTarget", key}] = value; }
    void SetWide(const char *key, const std::u16string &value) { settings.wide[{"SysTarget", key}] = value; }

    // Calls a name function with a buffer of `capacity` characters pre-filled
    // with a marker; returns the text and the reported length.
    struct NameAnswer {
        RTS_RESULT result;
        std::u16string text;
        RTS_SIZE length;
        bool untouched; // the buffer still holds only the marker
    };
    static NameAnswer Ask(RTS_RESULT (*fn)(RTS_WCHAR *, RTS_SIZE *), RTS_SIZE capacity) {
        std::vector<RTS_WCHAR> buffer(capacity + 1, 0x2A);
        buffer[capacity] = 0;
        RTS_SIZE length = capacity;
        NameAnswer answer{};
        answer.result = fn(buffer.data(), &length);
        answer.text = Wide(buffer.data());
        answer.length = length;
        answer.untouched = capacity == 0 || buffer[0] == 0x2A;
        return answer;
    }

    FakeCM cm;
    FakeSettings settings;
};

TEST_F(SysTargetTest, ConstantsOfTheTarget) {
    RTS_UI32 value = 0xFFFFFFFFu;
    EXPECT_EQ(SysTargetGetType(&value), ERR_OK);
    EXPECT_EQ(value, 0x1000u);
    EXPECT_EQ(SysTargetGetId(&value), ERR_OK);
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(SysTargetGetOperatingSystemId(&value), ERR_OK);
    EXPECT_EQ(value, 2u);
    EXPECT_EQ(SysTargetGetProcessorId(&value), ERR_OK);
    EXPECT_EQ(value, 1u);
    RTS_UI16 mask = 0xFFFF;
    EXPECT_EQ(SysTargetGetDeviceMask(&mask), ERR_OK);
    EXPECT_EQ(mask, 0u);
}

TEST_F(SysTargetTest, NullOutputPointersAreInvalidParameters) {
    EXPECT_EQ(SysTargetGetType(nullptr), ERR_PARAMETER);
    EXPECT_EQ(SysTargetGetId(nullptr), ERR_PARAMETER);
    EXPECT_EQ(SysTargetGetOperatingSystemId(nullptr), ERR_PARAMETER);
    EXPECT_EQ(SysTargetGetProcessorId(nullptr), ERR_PARAMETER);
    EXPECT_EQ(SysTargetGetDeviceMask(nullptr), ERR_PARAMETER);
    EXPECT_EQ(SysTargetGetVersion(nullptr), ERR_PARAMETER);
    RTS_WCHAR buffer[8];
    EXPECT_EQ(SysTargetGetConfiguredNodeName(buffer, nullptr), ERR_PARAMETER);
    EXPECT_EQ(SysTargetGetNodeName(buffer, nullptr), ERR_PARAMETER);
    EXPECT_EQ(SysTargetGetDeviceName(buffer, nullptr), ERR_PARAMETER);
    EXPECT_EQ(SysTargetGetVendorName(buffer, nullptr), ERR_PARAMETER);
}

TEST_F(SysTargetTest, VersionFromSettingsWithTheIncomingValueAsDefault) {
    settings.ints[{"SysTarget", "TargetVersion"}] = 0x04000102;
    RTS_UI32 version = 0x01020304u;
    EXPECT_EQ(SysTargetGetVersion(&version), ERR_OK);
    EXPECT_EQ(version, 0x04000102u);
    EXPECT_EQ(settings.lastIntDefault, 0x01020304);
}

TEST_F(SysTargetTest, VersionWithoutKeyIsTheSystemVersion) {
    RTS_UI32 version = 0x01020304u;
    EXPECT_EQ(SysTargetGetVersion(&version), ERR_OK);
    EXPECT_EQ(version, 0x03050500u);
}

TEST_F(SysTargetTest, VersionWithoutSettingsComponentIsTheSystemVersion) {
    cm.Withdraw("SettgGetIntValue");
    ASSERT_EQ(cm.Import(), ERR_OK); // optional import
    RTS_UI32 version = 7;
    EXPECT_EQ(SysTargetGetVersion(&version), ERR_OK);
    EXPECT_EQ(version, 0x03050500u);
}

TEST_F(SysTargetTest, ConfiguredNodeNamePrefersTheUnicodeKey) {
    SetWide("NodeNameUnicode", u"Presse\u00e9 7");
    SetNarrow("NodeName", "narrow");
    auto a = Ask(&SysTargetGetConfiguredNodeName, 32);
    EXPECT_EQ(a.result, ERR_OK);
    EXPECT_EQ(a.text, u"Presse\u00e9 7");
    EXPECT_EQ(a.length, 10u);
}

TEST_F(SysTargetTest, ConfiguredNodeNameFallsBackToTheNarrowKey) {
    SetNarrow("NodeName", "Line\x80"); // 0x80 is the euro sign in code page 1252
    auto a = Ask(&SysTargetGetConfiguredNodeName, 32);
    EXPECT_EQ(a.result, ERR_OK);
    EXPECT_EQ(a.text, u"Line\u20ac");
    EXPECT_EQ(a.length, 6u);
}

TEST_F(SysTargetTest, ConfiguredNodeNameNarrowConversionIsLimitedToTheCapacity) {
    SetNarrow("NodeName", "ABCDEFGH");
    auto a = Ask(&SysTargetGetConfiguredNodeName, 4);
    EXPECT_EQ(a.result, ERR_OK);
    EXPECT_EQ(a.text, u"ABC");
}

TEST_F(SysTargetTest, ConfiguredNodeNameWithoutAnyKeyIsAnError) {
    auto a = Ask(&SysTargetGetConfiguredNodeName, 32);
    EXPECT_NE(a.result, ERR_OK);
}

TEST_F(SysTargetTest, ConfiguredNodeNameWithNullBufferGivesTheLength) {
    SetNarrow("NodeName", "Twelve chars");
    RTS_SIZE length = 0;
    EXPECT_EQ(SysTargetGetConfiguredNodeName(nullptr, &length), ERR_OK);
    EXPECT_EQ(length, 13u);
    SetWide("NodeNameUnicode", u"abc");
    length = 0;
    EXPECT_EQ(SysTargetGetConfiguredNodeName(nullptr, &length), ERR_OK);
    EXPECT_EQ(length, 4u);
}

TEST_F(SysTargetTest, NodeNameIsTheConfiguredNameWhenThereIsOne) {
    SetNarrow("NodeName", "Configured");
    auto a = Ask(&SysTargetGetNodeName, 32);
    EXPECT_EQ(a.result, ERR_OK);
    EXPECT_EQ(a.text, u"Configured");
    EXPECT_EQ(a.length, 11u);
}

TEST_F(SysTargetTest, NodeNameIsTheComputerNameOtherwise) {
    auto a = Ask(&SysTargetGetNodeName, 32);
    EXPECT_EQ(a.result, ERR_OK);
    EXPECT_EQ(a.text, u"PLCHOST");
    EXPECT_EQ(a.length, 8u);
}

TEST_F(SysTargetTest, NodeNameWithNullBufferGivesTheNeededLength) {
    g_computerName = "ABCDEFGHIJKL";
    RTS_SIZE length = 4;
    EXPECT_EQ(SysTargetGetNodeName(nullptr, &length), ERR_OK);
    EXPECT_EQ(length, 13u);
}

// The name is cut to (capacity - 3) characters and "..." appended; the wide
// conversion then keeps what fits in the capacity with its terminator.
struct CutCase {
    const char *computerName;
    RTS_SIZE capacity;
    const char16_t *expected;
};

class NodeNameCutTest : public SysTargetTest, public ::testing::WithParamInterface<CutCase> {};

TEST_P(NodeNameCutTest, LongComputerNamesAreCut) {
    g_computerName = GetParam().computerName;
    auto a = Ask(&SysTargetGetNodeName, GetParam().capacity);
    EXPECT_EQ(a.result, ERR_OK);
    EXPECT_EQ(a.text, GetParam().expected);
    EXPECT_EQ(a.length, a.text.size() + 1);
    EXPECT_LT(a.text.size(), GetParam().capacity);
}

INSTANTIATE_TEST_SUITE_P(Capacities, NodeNameCutTest,
                         ::testing::Values(CutCase{"ABCDEFGHIJKLMNO", 10, u"ABCDEFG.."}, // longer than the capacity
                                           CutCase{"ABCDEFGHIJ", 10, u"ABCDEFG.."},      // exactly the capacity
                                           CutCase{"ABCDEFGHI", 10, u"ABCDEFGHI"},       // fits with its terminator
                                           CutCase{"ABCDEFGHIJ", 4, u"A.."}, CutCase{"ABCDEFGHIJ", 3, u".."},
                                           CutCase{"ABCDEFGHIJ", 2, u"A"}));

TEST_F(SysTargetTest, UnreadableComputerNameGivesNoName) {
    g_computerNameFails = true;
    auto a = Ask(&SysTargetGetNodeName, 9);
    EXPECT_EQ(a.result, ERR_OK);
    EXPECT_EQ(a.text, u"<NoName>");
    EXPECT_EQ(a.length, 9u);
}

TEST_F(SysTargetTest, UnreadableComputerNameAndTooSmallBufferCopiesNothing) {
    g_computerNameFails = true;
    auto a = Ask(&SysTargetGetNodeName, 8);
    EXPECT_EQ(a.result, ERR_OK);
    EXPECT_EQ(a.text, u"");
    EXPECT_EQ(a.length, 1u);
}

TEST_F(SysTargetTest, DeviceNameFallbackWithoutKeys) {
    auto a = Ask(&SysTargetGetDeviceName, 64);
    EXPECT_EQ(a.result, ERR_OK);
    EXPECT_EQ(a.text, u"KESTREL Control Win V3");
    EXPECT_EQ(a.length, 23u);
}

TEST_F(SysTargetTest, DeviceNameFallbackLengthIsTheNeededOneEvenWhenCut) {
    auto a = Ask(&SysTargetGetDeviceName, 8);
    EXPECT_EQ(a.result, ERR_OK);
    EXPECT_EQ(a.text, u"KESTREL");
    EXPECT_EQ(a.length, 23u);
    RTS_SIZE length = 0;
    EXPECT_EQ(SysTargetGetDeviceName(nullptr, &length), ERR_OK);
    EXPECT_EQ(length, 23u);
}

TEST_F(SysTargetTest, VendorNameFallbackWithoutKeys) {
    auto a = Ask(&SysTargetGetVendorName, 64);
    EXPECT_EQ(a.result, ERR_OK);
    EXPECT_EQ(a.text, u"Norvale GmbH");
    EXPECT_EQ(a.length, 13u);
}

TEST_F(SysTargetTest, NamesWithoutSettingsComponentUseTheFallbacks) {
    cm.Withdraw("SettgGetStringValue");
    cm.Withdraw("SettgGetWStringValue");
    ASSERT_EQ(cm.Import(), ERR_OK);
    EXPECT_EQ(Ask(&SysTargetGetDeviceName, 64).text, u"KESTREL Control Win V3");
    EXPECT_EQ(Ask(&SysTargetGetVendorName, 64).text, u"Norvale GmbH");
    EXPECT_NE(Ask(&SysTargetGetConfiguredNodeName, 64).result, ERR_OK);
    EXPECT_EQ(Ask(&SysTargetGetNodeName, 64).text, u"PLCHOST");
}

// Device and vendor name: the wide key wins over the 8-bit key, which wins
// over the fallback; every call reads the settings again.
struct NameKeys {
    RTS_RESULT (*fn)(RTS_WCHAR *, RTS_SIZE *);
    const char *wideKey;
    const char *narrowKey;
};

class NameKeyTest : public SysTargetTest, public ::testing::WithParamInterface<NameKeys> {};

TEST_P(NameKeyTest, WideThenNarrowThenFallback) {
    SetNarrow(GetParam().narrowKey, "Narrow Name");
    auto narrow = Ask(GetParam().fn, 64);
    EXPECT_EQ(narrow.text, u"Narrow Name");
    EXPECT_EQ(narrow.length, 12u);
    SetWide(GetParam().wideKey, u"Wide \u0416");
    auto wide = Ask(GetParam().fn, 64);
    EXPECT_EQ(wide.text, u"Wide \u0416");
    EXPECT_EQ(wide.length, 7u);
    int before = settings.reads;
    Ask(GetParam().fn, 64);
    EXPECT_GT(settings.reads, before);
}

INSTANTIATE_TEST_SUITE_P(Keys, NameKeyTest,
                         ::testing::Values(NameKeys{&SysTargetGetDeviceName, "DeviceNameUnicode", "DeviceName"},
                                           NameKeys{&SysTargetGetVendorName, "VendorNameUnicode", "VendorName"}));

TEST_F(SysTargetTest, NarrowSettingOfOneHundredCharactersIsRead) {
    std::string hundred(100, 'x');
    SetNarrow("DeviceName", hundred);
    auto a = Ask(&SysTargetGetDeviceName, 128);
    EXPECT_EQ(a.text, std::u16string(100, u'x'));
    EXPECT_EQ(a.length, 101u);
}

} // namespace
} // namespace kestrel::test
