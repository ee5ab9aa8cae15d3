// SysTarget's component frame: the entry record, the export order (IEC
// table first, then the C table, stopping at the first error), the export
// rows with their signatures and versions, and the IEC twins.
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

struct Registration {
    std::vector<std::string> names;
    RTS_UI32 external;
    RTS_UI32 cmpId;
};
std::vector<Registration> g_registrations;
RTS_RESULT g_registerAnswer = ERR_OK;

RTS_RESULT RecordingRegister(const void *table, RTS_VOID_FCTPTR fn, RTS_UI32 external, RTS_UI32 arg4) {
    Registration r{{}, external, arg4};
    if (fn == nullptr)
        for (auto *row = static_cast<const ExportEntry *>(table); row->pfFunction != nullptr; ++row)
            r.names.emplace_back(row->pszName);
    g_registrations.push_back(r);
    return g_registerAnswer;
}

TEST(SysTargetFrame, EntryFillsTheRecord) {
    ComponentInitStruct init{};
    init.pfCMRegisterAPI = &RecordingRegister;
    ASSERT_EQ(SysTargetEntry(&init), ERR_OK);
    EXPECT_EQ(init.CmpId, 274u);
    ASSERT_NE(init.pfExportFunctions, nullptr);
    ASSERT_NE(init.pfImportFunctions, nullptr);
    ASSERT_NE(init.pfGetVersion, nullptr);
    ASSERT_NE(init.pfHookFunction, nullptr);
    EXPECT_EQ(init.pfGetVersion(), 0x03050500u);
    EXPECT_EQ(init.pfHookFunction(CH_INIT, 0, 0), ERR_OK);
    EXPECT_EQ(SysTargetEntry(nullptr), ERR_PARAMETER);
}

TEST(SysTargetFrame, ExportsIecTableFirstThenCTable) {
    ComponentInitStruct init{};
    init.pfCMRegisterAPI = &RecordingRegister;
    ASSERT_EQ(SysTargetEntry(&init), ERR_OK);
    g_registrations.clear();
    g_registerAnswer = ERR_OK;
    ASSERT_EQ(init.pfExportFunctions(), ERR_OK);
    ASSERT_EQ(g_registrations.size(), 2u);
    EXPECT_EQ(g_registrations[0].external, 1u);
    EXPECT_EQ(g_registrations[0].cmpId, 274u);
    EXPECT_EQ(g_registrations[0].names.size(), 14u);
    EXPECT_EQ(g_registrations[0].names.front(), "systargetgetvendorname");
    EXPECT_EQ(g_registrations[1].external, 0u);
    EXPECT_EQ(g_registrations[1].names.size(), 10u);
}

TEST(SysTargetFrame, ExportStopsAtTheFirstError) {
    ComponentInitStruct init{};
    init.pfCMRegisterAPI = &RecordingRegister;
    ASSERT_EQ(SysTargetEntry(&init), ERR_OK);
    g_registrations.clear();
    g_registerAnswer = ERR_FAILED;
    EXPECT_EQ(init.pfExportFunctions(), ERR_FAILED);
    EXPECT_EQ(g_registrations.size(), 1u);
    g_registerAnswer = ERR_OK;
}

TEST(SysTargetFrame, ExportWithoutRegisterFunctionIsNotInitialised) {
    ComponentInitStruct init{};
    ASSERT_EQ(SysTargetEntry(&init), ERR_OK);
    EXPECT_EQ(init.pfExportFunctions(), ERR_NOT_INITIALIZED);
}

TEST(SysTargetFrame, ImportsAreOptional) {
    FakeCM cm;
    ASSERT_EQ(cm.Enter(&SysTargetEntry), ERR_OK);
    EXPECT_EQ(cm.Import(), ERR_OK);
    EXPECT_EQ(cm.Missing(),
              (std::vector<std::string>{"SettgGetStringValue", "SettgGetWStringValue", "SettgGetIntValue"}));
}

struct IecRow {
    const char *name;
    RTS_UI32 signature;
    RTS_VOID_FCTPTR function;
};

const IecRow kIecRows[] = {
    {"systargetgetvendorname", 0xC7C8EF60u, reinterpret_cast<RTS_VOID_FCTPTR>(&systargetgetvendorname)},
    {"systargetgetvendorname2", 0xECA5949Du, reinterpret_cast<RTS_VOID_FCTPTR>(&systargetgetvendorname2)},
    {"systargetgetversion", 0x03C80949u, reinterpret_cast<RTS_VOID_FCTPTR>(&systargetgetversion)},
    {"systargetgetversion2", 0x183560B4u, reinterpret_cast<RTS_VOID_FCTPTR>(&systargetgetversion2)},
    {"systargetgetnodename", 0xA0044621u, reinterpret_cast<RTS_VOID_FCTPTR>(&systargetgetnodename)},
    {"systargetgetnodename2", 0x72B60F75u, reinterpret_cast<RTS_VOID_FCTPTR>(&systargetgetnodename2)},
    {"systargetgetdevicename", 0x2DEFEA3Du, reinterpret_cast<RTS_VOID_FCTPTR>(&systargetgetdevicename)},
    {"systargetgetdevicename2", 0x332F9AF1u, reinterpret_cast<RTS_VOID_FCTPTR>(&systargetgetdevicename2)},
    {"systargetgetid", 0x02ED027Au, reinterpret_cast<RTS_VOID_FCTPTR>(&systargetgetid)},
    {"systargetgetid2", 0xEA1E39C4u, reinterpret_cast<RTS_VOID_FCTPTR>(&systargetgetid2)},
    {"systargetgettype", 0x4AD38850u, reinterpret_cast<RTS_VOID_FCTPTR>(&systargetgettype)},
    {"systargetgettype2", 0x5F20D079u, reinterpret_cast<RTS_VOID_FCTPTR>(&systargetgettype2)},
    {"systargetgetprocessorid", 0x1C22A79Fu, reinterpret_cast<RTS_VOID_FCTPTR>(&systargetgetprocessorid)},
    {"systargetgetoperatingsystemid", 0xC12147F5u, reinterpret_cast<RTS_VOID_FCTPTR>(&systargetgetoperatingsystemid)},
};

TEST(SysTargetFrame, IecExportRowsCarrySignatureAndVersion) {
    FakeCM cm;
    ASSERT_EQ(cm.Enter(&SysTargetEntry), ERR_OK);
    ASSERT_EQ(cm.CollectExports(), ERR_OK);
    ASSERT_EQ(cm.IecExports().size(), std::size(kIecRows));
    for (const auto &row : kIecRows) {
        auto it = cm.IecExports().find(row.name);
        ASSERT_NE(it, cm.IecExports().end()) << row.name;
        EXPECT_EQ(it->second.ulSignature, row.signature) << row.name;
        EXPECT_EQ(it->second.ulVersion, 0x03050500u) << row.name;
        EXPECT_EQ(it->second.pfFunction, row.function) << row.name;
    }
    for (const char *name :
         {"SysTargetGetType", "SysTargetGetId", "SysTargetGetOperatingSystemId", "SysTargetGetProcessorId",
          "SysTargetGetDeviceMask", "SysTargetGetVersion", "SysTargetGetConfiguredNodeName", "SysTargetGetNodeName",
          "SysTargetGetDeviceName", "SysTargetGetVendorName"})
        EXPECT_NE(cm.Export(name), nullptr) << name;
}

// Each number twin stores the C function's value and result; the "2"
// variants skip their leading word.
struct ValueTwin {
    void (*iec)(SysTargetIecValue *);
    void (*iec2)(SysTargetIecValue2 *);
    RTS_UI32 expected;
};

TEST(SysTargetFrame, NumberTwinsCallTheCFunctions) {
    const ValueTwin twins[] = {
        {&systargetgettype, &systargetgettype2, 0x1000u},
        {&systargetgetid, &systargetgetid2, 1u},
        {&systargetgetprocessorid, nullptr, 1u},
        {&systargetgetoperatingsystemid, nullptr, 2u},
    };
    for (const auto &twin : twins) {
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

TEST(SysTargetFrame, VersionTwinsReadTheSettings) {
    FakeSettings settings;
    FakeSettings::current = &settings;
    FakeCM cm;
    cm.Provide("SettgGetIntValue", &FakeSettings::GetIntValue);
    ASSERT_EQ(cm.Enter(&SysTargetEntry), ERR_OK);
    ASSERT_EQ(cm.Import(), ERR_OK);
    settings.ints[{"SysTarget", "TargetVersion"}] = 0x03050601;
    RTS_UI32 version = 0;
    SysTargetIecValue p{&version, 0xDEADu};
    systargetgetversion(&p);
    EXPECT_EQ(p.Result, ERR_OK);
    EXPECT_EQ(version, 0x03050601u);
    RTS_UI32 version2 = 0;
    SysTargetIecValue2 p2{0, &version2, 0xDEADu};
    systargetgetversion2(&p2);
    EXPECT_EQ(version2, 0x03050601u);
    cm.Hook(CH_EXIT2);
    FakeSettings::current = nullptr;
}

struct NameTwin {
    void (*iec)(SysTargetIecName *);
    void (*iec2)(SysTargetIecName2 *);
    const char16_t *expected;
};

TEST(SysTargetFrame, NameTwinsCallTheCFunctions) {
    FakeCM cm; // no settings: every name takes its fallback
    ASSERT_EQ(cm.Enter(&SysTargetEntry), ERR_OK);
    ASSERT_EQ(cm.Import(), ERR_OK);
    const NameTwin twins[] = {
        {&systargetgetdevicename, &systargetgetdevicename2, u"KESTREL Control Win V3"},
        {&systargetgetvendorname, &systargetgetvendorname2, u"Norvale GmbH"},
    };
    for (const auto &twin : twins) {
        RTS_WCHAR buffer[64] = {};
        RTS_SIZE length = 64;
        SysTargetIecName p{buffer, &length, 0xDEADu};
        twin.iec(&p);
        EXPECT_EQ(p.Result, ERR_OK);
        EXPECT_EQ(Wide(buffer), twin.expected);
        EXPECT_EQ(length, std::char_traits<char16_t>::length(twin.expected) + 1);

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

TEST(SysTargetFrame, NodeNameTwinsGiveTheComputerName) {
    FakeCM cm;
    ASSERT_EQ(cm.Enter(&SysTargetEntry), ERR_OK);
    ASSERT_EQ(cm.Import(), ERR_OK);
    RTS_WCHAR viaC[32] = {};
    RTS_SIZE lengthC = 32;
    ASSERT_EQ(SysTargetGetNodeName(viaC, &lengthC), ERR_OK);
    RTS_WCHAR viaIec[32] = {};
    RTS_SIZE lengthIec = 32;
    SysTargetIecName p{viaIec, &lengthIec, 0xDEADu};
    systargetgetnodename(&p);
    EXPECT_EQ(p.Result, ERR_OK);
    EXPECT_EQ(Wide(viaIec), Wide(viaC));
    RTS_WCHAR viaIec2[32] = {};
    RTS_SIZE lengthIec2 = 32;
    SysTargetIecName2 p2{0, viaIec2, &lengthIec2, 0xDEADu};
    systargetgetnodename2(&p2);
    EXPECT_EQ(Wide(viaIec2), Wide(viaC));
}

// The operating system's computer name: readable on the build machines, at
// most 15 characters, and a smaller buffer receives its beginning.
TEST(SysTargetOs, ComputerNameIsAtMostFifteenCharacters) {
    char name[64];
    std::memset(name, 'x', sizeof(name));
    ASSERT_EQ(SysTargetOsGetComputerName(name, sizeof(name)), ERR_OK);
    size_t len = std::strlen(name);
    EXPECT_GT(len, 0u);
    EXPECT_LE(len, 15u);
    char small[4];
    ASSERT_EQ(SysTargetOsGetComputerName(small, sizeof(small)), ERR_OK);
    EXPECT_EQ(std::string(small), std::string(name).substr(0, 3));
    EXPECT_EQ(SysTargetOsGetComputerName(nullptr, 4), ERR_PARAMETER);
    EXPECT_EQ(SysTargetOsGetComputerName(name, 0), ERR_PARAMETER);
}

} // namespace
} // namespace kestrel::test
