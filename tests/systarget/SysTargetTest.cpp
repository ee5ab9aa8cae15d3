// SysTarget: the component frame (entry record, export order), the constants, version, node,
// device and vendor names with their settings and fallbacks, the computer-name rules, and the IEC
// twins with their export rows.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "CmpSettingsItf.h"
#include "FakeCM.h"
#include "SysTargetItf.h"
#include "SysTargetOs.h"

namespace kestrel::test {
namespace {

std::u16string Wide(const RTS_WCHAR *text) {
    const RTS_WCHAR *end = text;
    while (*end != 0)
        ++end;
    return std::u16string(text, end);
}

// Section "SysTarget" of a settings database in memory: the value of a key that is there with its
// length (terminator included) in *len, a null buffer only asks, a short one is 15; a missing key
// is 16.
struct Settings {
    static inline std::map<std::string, std::string> narrow;
    static inline std::map<std::string, std::u16string> wide;
    static inline std::map<std::string, RTS_I32> ints;
    static inline RTS_I32 lastIntDefault = 0;

    template <typename Map, typename T>
    static RTS_RESULT Read(const Map &map, const char *section, const char *key, T *value, RTS_I32 *len) {
        const auto it = map.find(key);
        if (std::strcmp(section, "SysTarget") != 0 || it == map.end())
            return ERR_NO_OBJECT;
        if (value != nullptr && static_cast<std::size_t>(*len) <= it->second.size())
            return ERR_BUFFERSIZE;
        if (value != nullptr)
            std::copy(it->second.c_str(), it->second.c_str() + it->second.size() + 1, value);
        *len = static_cast<RTS_I32>(it->second.size() + 1);
        return ERR_OK;
    }
    static RTS_RESULT GetString(const char *section, const char *key, char *value, RTS_I32 *len, const char *) {
        return Read(narrow, section, key, value, len);
    }
    static RTS_RESULT GetWString(const char *section, const char *key, RTS_WCHAR *value, RTS_I32 *len,
                                 const RTS_WCHAR *) {
        return Read(wide, section, key, value, len);
    }
    static RTS_RESULT GetInt(const char *section, const char *key, RTS_I32 *value, RTS_I32 def) {
        lastIntDefault = *value = def;
        const bool found = std::strcmp(section, "SysTarget") == 0 && ints.count(key) != 0;
        if (found)
            *value = ints[key];
        return found ? ERR_OK : ERR_NO_OBJECT;
    }
};

const char *g_computerName = nullptr; // null: the name cannot be read

RTS_RESULT InjectedComputerName(char *name, RTS_SIZE size) {
    if (g_computerName == nullptr)
        return ERR_FAILED;
    std::snprintf(name, size, "%s", g_computerName);
    return ERR_OK;
}

using NameFunction = RTS_RESULT (*)(RTS_WCHAR *, RTS_SIZE *);

// What a name function answered: its result, the text and the reported length.
using Name = std::tuple<RTS_RESULT, std::u16string, RTS_SIZE>;

// Calls a name function with a buffer of `capacity` characters pre-filled with a marker, or with
// a null buffer, which only asks for the length.
Name Ask(NameFunction fn, RTS_SIZE capacity, bool nullBuffer = false) {
    std::vector<RTS_WCHAR> buffer(capacity + 1, 0x2A);
    buffer[capacity] = 0;
    RTS_SIZE length = capacity;
    const RTS_RESULT result = fn(nullBuffer ? nullptr : buffer.data(), &length);
    return {result, nullBuffer ? u"" : Wide(buffer.data()), length};
}

// The component entered and its imports resolved against the settings above; the computer name
// is "PLCHOST".
class SysTargetTest : public ::testing::Test {
  protected:
    void SetUp() override {
        Settings::narrow.clear();
        Settings::wide.clear();
        Settings::ints.clear();
        cm.Provide("SettgGetStringValue", &Settings::GetString);
        cm.Provide("SettgGetWStringValue", &Settings::GetWString);
        cm.Provide("SettgGetIntValue", &Settings::GetInt);
        ASSERT_EQ(cm.Enter(&SysTargetEntry), ERR_OK);
        ASSERT_EQ(cm.Import(), ERR_OK);
        g_computerName = "PLCHOST";
        SysTargetSetComputerNameSource(&InjectedComputerName);
    }
    void TearDown() override {
        cm.Hook(CH_EXIT2);
        SysTargetSetComputerNameSource(nullptr);
    }
    FakeCM cm;
};

// The version: without the key the system's own, whatever came in, which is passed as the default
// of the read (the key's value is checked with the IEC twins). Null output pointers.
TEST_F(SysTargetTest, VersionDeviceMaskAndNullOutputPointers) {
    RTS_UI32 version = 0x01020304u;
    EXPECT_EQ(SysTargetGetVersion(&version), ERR_OK);
    EXPECT_EQ(version, 0x03050500u);
    EXPECT_EQ(Settings::lastIntDefault, 0x01020304);
    RTS_UI16 mask = 0xFFFF;
    EXPECT_EQ(SysTargetGetDeviceMask(&mask), ERR_OK);
    EXPECT_EQ(mask, 0u);
    EXPECT_EQ(SysTargetGetDeviceMask(nullptr), ERR_PARAMETER);
    EXPECT_EQ(SysTargetGetVersion(nullptr), ERR_PARAMETER);
    RTS_WCHAR buffer[8];
    EXPECT_EQ(SysTargetGetConfiguredNodeName(buffer, nullptr), ERR_PARAMETER);
}

// The Unicode key wins over the 8-bit one (read as code page 1252, converted up to the capacity,
// the needed length reported); without either there is no configured name.
TEST_F(SysTargetTest, ConfiguredNodeNamePrefersTheUnicodeKeyToTheNarrowOne) {
    EXPECT_NE(std::get<0>(Ask(&SysTargetGetConfiguredNodeName, 32)), ERR_OK);
    Settings::narrow["NodeName"] = "Line\x80";
    EXPECT_EQ(Ask(&SysTargetGetConfiguredNodeName, 32), (Name{ERR_OK, u"Line\u20ac", 6}));
    EXPECT_EQ(Ask(&SysTargetGetConfiguredNodeName, 4), (Name{ERR_OK, u"Lin", 6}));
    EXPECT_EQ(Ask(&SysTargetGetConfiguredNodeName, 0, true), (Name{ERR_OK, u"", 6}));
    Settings::wide["NodeNameUnicode"] = u"Presse\u00e9 7";
    EXPECT_EQ(Ask(&SysTargetGetConfiguredNodeName, 32), (Name{ERR_OK, u"Presse\u00e9 7", 10}));
    EXPECT_EQ(Ask(&SysTargetGetConfiguredNodeName, 0, true), (Name{ERR_OK, u"", 10}));
}

// The node name is the configured name, else the computer name: one at least as long as the
// capacity is cut to (capacity - 3) characters and "..." appended, and the wide conversion keeps
// what fits with its terminator; an unreadable one is "<NoName>" if it fits, else empty. A null
// buffer asks for the length.
TEST_F(SysTargetTest, NodeNameIsTheConfiguredNameElseTheComputerNameCutToTheCapacity) {
    using Row = std::tuple<const char *, RTS_SIZE, std::u16string>; // computer name (null: unreadable)
    for (const auto &[computerName, capacity, expected] :
         {Row{"ABCDEFGHIJ", 10, u"ABCDEFG.."}, Row{"ABCDEFGHI", 10, u"ABCDEFGHI"}, Row{"ABCDEFGHIJ", 3, u".."},
          Row{"ABCDEFGHIJ", 2, u"A"}, Row{nullptr, 9, u"<NoName>"}, Row{nullptr, 8, u""}}) {
        g_computerName = computerName;
        EXPECT_EQ(Ask(&SysTargetGetNodeName, capacity), (Name{ERR_OK, expected, expected.size() + 1}))
            << (computerName != nullptr ? computerName : "unreadable") << ' ' << capacity;
    }
    g_computerName = "ABCDEFGHIJKL";
    EXPECT_EQ(Ask(&SysTargetGetNodeName, 4, true), (Name{ERR_OK, u"", 13}));
    Settings::narrow["NodeName"] = "Configured";
    EXPECT_EQ(Ask(&SysTargetGetNodeName, 32), (Name{ERR_OK, u"Configured", 11}));
}

// Device and vendor name: the wide key wins over the 8-bit key (of up to 100 characters), which
// wins over the fallback text; every call reads the settings anew.
TEST_F(SysTargetTest, DeviceAndVendorNameWideKeyThenNarrowKeyThenFallback) {
    using Row = std::tuple<NameFunction, std::string, std::u16string, std::string>;
    for (const auto &[fn, key, fallback, narrow] :
         {Row{&SysTargetGetDeviceName, "DeviceName", u"KESTREL Control Win V3", std::string(100, 'x')},
          Row{&SysTargetGetVendorName, "VendorName", u"Norvale GmbH", "Narrow Name"}}) {
        SCOPED_TRACE(key);
        EXPECT_EQ(Ask(fn, 64), (Name{ERR_OK, fallback, fallback.size() + 1}));
        Settings::narrow[key] = narrow;
        const std::u16string narrowWide(narrow.begin(), narrow.end());
        EXPECT_EQ(Ask(fn, 128), (Name{ERR_OK, narrowWide, narrow.size() + 1}));
        Settings::wide[key + "Unicode"] = u"Wide \u0416";
        EXPECT_EQ(Ask(fn, 64), (Name{ERR_OK, u"Wide \u0416", 7}));
    }
}

// Every import is optional: without the settings component the fallbacks answer.
TEST_F(SysTargetTest, WithoutSettingsComponentTheImportsAreMissingAndTheFallbacksAnswer) {
    const std::vector<std::string> imports = {"SettgGetStringValue", "SettgGetWStringValue", "SettgGetIntValue"};
    for (const std::string &name : imports)
        cm.Withdraw(name);
    ASSERT_EQ(cm.Import(), ERR_OK);
    EXPECT_EQ(cm.Missing(), imports);
    EXPECT_EQ(std::get<1>(Ask(&SysTargetGetDeviceName, 64)), u"KESTREL Control Win V3");
    EXPECT_EQ(std::get<1>(Ask(&SysTargetGetVendorName, 64)), u"Norvale GmbH");
    EXPECT_NE(std::get<0>(Ask(&SysTargetGetConfiguredNodeName, 64)), ERR_OK);
    EXPECT_EQ(std::get<1>(Ask(&SysTargetGetNodeName, 64)), u"PLCHOST");
    RTS_UI32 version = 7;
    EXPECT_EQ(SysTargetGetVersion(&version), ERR_OK);
    EXPECT_EQ(version, 0x03050500u);
}

// Calls an IEC function of an export row with a record; returns the result stored in it.
template <typename Record> RTS_RESULT Call(const ExportEntry &row, Record record) {
    reinterpret_cast<void (*)(Record *)>(row.pfFunction)(&record);
    return record.Result;
}

// Every IEC twin, found in the IEC export table with its signature and the system version, and
// called through that entry: it stores the C function's value (or name and length) and result;
// the records of the "2" twins start with a word that is not read.
TEST_F(SysTargetTest, IecTwinsAreExportedWithTheirSignaturesAndCallTheCFunctions) {
    Settings::ints["TargetVersion"] = 0x03050601;
    ASSERT_EQ(cm.CollectExports(), ERR_OK);
    using Row = std::tuple<const char *, RTS_UI32, RTS_UI32>; // name, signature, value
    for (const auto &[name, signature, expected] :
         {Row{"systargetgetversion", 0x03C80949u, 0x03050601u}, Row{"systargetgetversion2", 0x183560B4u, 0x03050601u},
          Row{"systargetgetid", 0x02ED027Au, 1u}, Row{"systargetgetid2", 0xEA1E39C4u, 1u},
          Row{"systargetgettype", 0x4AD38850u, 0x1000u}, Row{"systargetgettype2", 0x5F20D079u, 0x1000u},
          Row{"systargetgetprocessorid", 0x1C22A79Fu, 1u}, Row{"systargetgetoperatingsystemid", 0xC12147F5u, 2u}}) {
        SCOPED_TRACE(name);
        const ExportEntry &row = cm.IecExports().at(name);
        EXPECT_EQ(row.ulSignature, signature);
        EXPECT_EQ(row.ulVersion, 0x03050500u);
        RTS_UI32 value = 0;
        const bool two = name[std::strlen(name) - 1] == '2';
        EXPECT_EQ(two ? Call(row, SysTargetIecValue2{~RTS_UINTPTR{0}, &value, 0xDEADu})
                      : Call(row, SysTargetIecValue{&value, 0xDEADu}),
                  ERR_OK);
        EXPECT_EQ(value, expected);
        EXPECT_TRUE(two || Call(row, SysTargetIecValue{nullptr, 0xDEADu}) == ERR_PARAMETER);
    }
    using NameRow = std::tuple<const char *, RTS_UI32, std::u16string>;
    for (const auto &[name, signature, expected] :
         {NameRow{"systargetgetvendorname", 0xC7C8EF60u, u"Norvale GmbH"},
          NameRow{"systargetgetvendorname2", 0xECA5949Du, u"Norvale GmbH"},
          NameRow{"systargetgetnodename", 0xA0044621u, u"PLCHOST"},
          NameRow{"systargetgetnodename2", 0x72B60F75u, u"PLCHOST"},
          NameRow{"systargetgetdevicename", 0x2DEFEA3Du, u"KESTREL Control Win V3"},
          NameRow{"systargetgetdevicename2", 0x332F9AF1u, u"KESTREL Control Win V3"}}) {
        SCOPED_TRACE(name);
        const ExportEntry &row = cm.IecExports().at(name);
        EXPECT_EQ(row.ulSignature, signature);
        EXPECT_EQ(row.ulVersion, 0x03050500u);
        RTS_WCHAR buffer[64] = {};
        RTS_SIZE length = 64;
        const bool two = name[std::strlen(name) - 1] == '2';
        EXPECT_EQ(two ? Call(row, SysTargetIecName2{12345, buffer, &length, 0xDEADu})
                      : Call(row, SysTargetIecName{buffer, &length, 0xDEADu}),
                  ERR_OK);
        EXPECT_EQ(Wide(buffer), expected);
        EXPECT_EQ(length, expected.size() + 1);
        EXPECT_TRUE(two || Call(row, SysTargetIecName{buffer, nullptr, 0xDEADu}) == ERR_PARAMETER);
    }
}

std::vector<std::vector<std::string>> g_registered; // names of each table registered
RTS_RESULT g_registerAnswer = ERR_OK;

// Records the tables registered: the names, then the external flag and the CmpId.
RTS_RESULT RecordingRegister(const void *table, RTS_VOID_FCTPTR, RTS_UI32 external, RTS_UI32 cmpId) {
    g_registered.emplace_back();
    for (auto *row = static_cast<const ExportEntry *>(table); row->pfFunction != nullptr; ++row)
        g_registered.back().push_back(row->pszName);
    g_registered.back().push_back(std::to_string(external) + ' ' + std::to_string(cmpId));
    return g_registerAnswer;
}

// The entry fills the record (CmpId 274) and keeps the register function; exporting registers the
// IEC table (external) first, then the C table, and stops at the first error.
TEST(SysTargetFrame, EntryAndExportOrder) {
    EXPECT_EQ(SysTargetEntry(nullptr), ERR_PARAMETER);
    ComponentInitStruct bare{}; // without a register function, exporting is not possible
    ASSERT_EQ(SysTargetEntry(&bare), ERR_OK);
    EXPECT_EQ(bare.pfExportFunctions(), ERR_NOT_INITIALIZED);

    ComponentInitStruct init{};
    init.pfCMRegisterAPI = &RecordingRegister;
    ASSERT_EQ(SysTargetEntry(&init), ERR_OK);
    EXPECT_EQ(init.CmpId, 274u);
    EXPECT_EQ(init.pfGetVersion(), 0x03050500u);
    EXPECT_EQ(init.pfHookFunction(CH_INIT, 0, 0), ERR_OK);
    g_registered.clear();
    g_registerAnswer = ERR_OK;
    ASSERT_EQ(init.pfExportFunctions(), ERR_OK);
    ASSERT_EQ(g_registered.size(), 2u);
    EXPECT_EQ(g_registered[0].size(), 15u);
    EXPECT_EQ(g_registered[0].front(), "systargetgetvendorname");
    EXPECT_EQ(g_registered[0].back(), "1 274");
    EXPECT_EQ(g_registered[1].size(), 11u);
    EXPECT_EQ(g_registered[1].back(), "0 274");
    g_registered.clear();
    g_registerAnswer = ERR_FAILED;
    EXPECT_EQ(init.pfExportFunctions(), ERR_FAILED);
    EXPECT_EQ(g_registered.size(), 1u);
}

// Readable on the build machines, at most 15 characters; a smaller buffer receives its beginning.
TEST(SysTargetOs, ComputerNameIsAtMostFifteenCharacters) {
    char name[64];
    std::memset(name, 'x', sizeof(name));
    ASSERT_EQ(SysTargetOsGetComputerName(name, sizeof(name)), ERR_OK);
    EXPECT_GT(std::strlen(name), 0u);
    EXPECT_LE(std::strlen(name), 15u);
    char small[4];
    ASSERT_EQ(SysTargetOsGetComputerName(small, sizeof(small)), ERR_OK);
    EXPECT_EQ(std::string(small), std::string(name).substr(0, 3));
    EXPECT_EQ(SysTargetOsGetComputerName(nullptr, 4), ERR_PARAMETER);
    EXPECT_EQ(SysTargetOsGetComputerName(name, 0), ERR_PARAMETER);
}

} // namespace
} // namespace kestrel::test
