// SysTarget's component frame: the entry record, the export order (IEC
// table first, then the C table, stopping at the first error), the export
// rows with their signatures and versions, and the OS computer name.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "FakeCM.h"
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

// The component entered with a register function that records the tables.
class SysTargetFrame : public ::testing::Test {
  protected:
    void SetUp() override {
        g_registrations.clear();
        g_registerAnswer = ERR_OK;
        init.pfCMRegisterAPI = &RecordingRegister;
        ASSERT_EQ(SysTargetEntry(&init), ERR_OK);
    }

    ComponentInitStruct init{};
};

TEST_F(SysTargetFrame, EntryFillsTheRecordAndKeepsTheRegisterFunction) {
    EXPECT_EQ(init.CmpId, 274u);
    ASSERT_NE(init.pfExportFunctions, nullptr);
    ASSERT_NE(init.pfImportFunctions, nullptr);
    ASSERT_NE(init.pfGetVersion, nullptr);
    ASSERT_NE(init.pfHookFunction, nullptr);
    EXPECT_EQ(init.pfGetVersion(), 0x03050500u);
    EXPECT_EQ(init.pfHookFunction(CH_INIT, 0, 0), ERR_OK);
    EXPECT_EQ(SysTargetEntry(nullptr), ERR_PARAMETER);
    ComponentInitStruct bare{}; // without a register function, exporting is not possible
    ASSERT_EQ(SysTargetEntry(&bare), ERR_OK);
    EXPECT_EQ(bare.pfExportFunctions(), ERR_NOT_INITIALIZED);
}

TEST_F(SysTargetFrame, ExportsIecTableFirstThenCTableStoppingAtTheFirstError) {
    ASSERT_EQ(init.pfExportFunctions(), ERR_OK);
    ASSERT_EQ(g_registrations.size(), 2u);
    EXPECT_EQ(g_registrations[0].external, 1u);
    EXPECT_EQ(g_registrations[0].cmpId, 274u);
    EXPECT_EQ(g_registrations[0].names.size(), 14u);
    EXPECT_EQ(g_registrations[0].names.front(), "systargetgetvendorname");
    EXPECT_EQ(g_registrations[1].external, 0u);
    EXPECT_EQ(g_registrations[1].names.size(), 10u);
    g_registrations.clear();
    g_registerAnswer = ERR_FAILED;
    EXPECT_EQ(init.pfExportFunctions(), ERR_FAILED);
    EXPECT_EQ(g_registrations.size(), 1u);
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

TEST(SysTargetFrameExports, IecExportRowsCarrySignatureAndVersion) {
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

// Readable on the build machines, at most 15 characters; a smaller buffer receives its beginning.
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
