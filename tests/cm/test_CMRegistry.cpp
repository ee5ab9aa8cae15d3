// The API registry: lookups in table order, the first fitting row of a component, overloading,
// IEC lookups, signature and version tests with the found value written back, options, name
// lengths, the CM's own export tables and IEC twins; each with the export-row cache and without.
#include <tuple>

#include "CMTestFixture.h"

using namespace kestrel::cmtest;

namespace {

class RegistryTest : public CMTest, public ::testing::WithParamInterface<bool> {
  protected:
    void SetUp() override {
        CMTest::SetUp();
        kestrel::cm::RegistryUseCache(GetParam());
    }
};

// What the function found answers, or "(null)".
std::string Resolve(const char *pszName, RTS_UI32 ulOptions = 0) {
    RTS_VOID_FCTPTR pf = nullptr;
    CMGetAPI2(pszName, &pf, ulOptions, 0, 0);
    return CallTestFunction(pf);
}

// The later of two components answers, or the earlier once the later is gone or overloading is
// off; the first fitting row of a component; IEC lookups ignore case for external rows only.
TEST_P(RegistryTest, TableOrderRowsAndOverloading) {
    TestCmpBehaviour &a = R().Behaviour("TestCmpA");
    AddExport(a, "SharedFn", 0);
    AddExport(a, "Dup", 1);
    AddExport(a, "Dup", 2);
    AddExport(a, "ieclibrow", 1, 1);
    AddExport(R().Behaviour("TestCmpB"), "SharedFn", 1);
    ASSERT_EQ(ERR_OK, Start({CmpA(), CmpB()}));
    EXPECT_EQ("TestCmpB#1", Resolve("SharedFn"));
    EXPECT_EQ("TestCmpA#1", Resolve("Dup"));
    EXPECT_EQ("TestCmpA#1", Resolve("IecLibRow", CM_IMPORT_IEC));
    EXPECT_EQ("(null)", Resolve("IecLibRow"));
    EXPECT_EQ("(null)", Resolve("sharedfn", CM_IMPORT_IEC));
    EXPECT_EQ("TestCmpB#1", Resolve("SharedFn", CM_IMPORT_IEC));
    ASSERT_EQ(ERR_OK, CMExitComponent(Find("TestCmpB")));
    ASSERT_EQ(ERR_OK, CMUnloadComponent(Find("TestCmpB")));
    EXPECT_EQ("TestCmpA#0", Resolve("SharedFn"));
    Stop();
    F().SetSetting("ComponentManager", "OverloadableFunctions", "0");
    ASSERT_EQ(ERR_OK, Start({CmpA(), CmpB()}));
    EXPECT_EQ("TestCmpA#0", Resolve("SharedFn"));
}

// A name not found empties the slot; only a required lookup fails and logs. 63 characters are a
// name, 64 are 15 (the slot untouched), none is 2, whatever the options. Registration outside a
// lookup makes no name findable; a null table is 3.
TEST_P(RegistryTest, NamesNotFound) {
    const std::string name63(63, 'n'), name64(64, 'n');
    AddExport(R().Behaviour("TestCmpA"), name63.c_str(), 2);
    ASSERT_EQ(ERR_OK, Start({CmpA()}));
    EXPECT_EQ("TestCmpA#2", Resolve(name63.c_str()));
    RTS_VOID_FCTPTR pf = reinterpret_cast<RTS_VOID_FCTPTR>(&CMExit);
    EXPECT_EQ(ERR_OK, CMGetAPI2("NoSuchFunction", &pf, CM_IMPORT_OPTIONAL, 0, 0));
    EXPECT_EQ(nullptr, pf);
    EXPECT_EQ("", Log(22));
    pf = reinterpret_cast<RTS_VOID_FCTPTR>(&CMExit);
    EXPECT_EQ(ERR_BUFFERSIZE, CMGetAPI2(name64.c_str(), &pf, CM_IMPORT_OPTIONAL, 0, 0));
    EXPECT_EQ(reinterpret_cast<RTS_VOID_FCTPTR>(&CMExit), pf);
    EXPECT_EQ(ERR_PARAMETER, CMGetAPI3(nullptr, &pf, CM_IMPORT_OPTIONAL, nullptr, nullptr));
    EXPECT_EQ(ERR_FAILED, CMGetAPI("NoSuchFunction", &pf, 0));
    EXPECT_EQ(nullptr, pf);
    ExpectLog(22, LOG_ERROR, ERR_FAILED, "Failed to resolve <name>NoSuchFunction</name>");
    EXPECT_EQ(ERR_OK, CMGetAPI(name63.c_str(), nullptr, 0));
    EXPECT_EQ(ERR_NOT_INITIALIZED, CMRegisterAPI(nullptr, nullptr, 0, 0));
    EXPECT_EQ(ERR_OK, CMRegisterAPI("Name", reinterpret_cast<RTS_VOID_FCTPTR>(&CMExit), 0, 0));
    EXPECT_EQ(ERR_OK, CMRegisterAPI2(nullptr, nullptr, 0, 0, 0));
    EXPECT_EQ(ERR_OK, CMReleaseAPI("CMExit"));
    EXPECT_EQ(ERR_FAILED, CMGetAPI("Name", nullptr, 0));
}

// Signature and version tests of one export row; a mismatch writes the found value back.
struct CheckCase {
    const char *pszCase;
    RTS_UI32 ulOptions, ulExportSignature, ulExportVersion, ulSignature, ulVersion;
    RTS_RESULT result;
    RTS_UI32 ulSignatureAfter, ulVersionAfter;
};

class RegistryCheckTest : public CMTest, public ::testing::WithParamInterface<std::tuple<bool, CheckCase>> {};

TEST_P(RegistryCheckTest, SignatureAndVersion) {
    kestrel::cm::RegistryUseCache(std::get<0>(GetParam()));
    const CheckCase &c = std::get<1>(GetParam());
    AddExport(R().Behaviour("TestCmpA"), "checkedfn", 1, 1, c.ulExportSignature, c.ulExportVersion);
    ASSERT_EQ(ERR_OK, Start({CmpA()}));
    RTS_UI32 ulSig = c.ulSignature, ulVer = c.ulVersion;
    RTS_VOID_FCTPTR pf = reinterpret_cast<RTS_VOID_FCTPTR>(&CMExit);
    EXPECT_EQ(c.result, CMGetAPI3("checkedfn", &pf, c.ulOptions, &ulSig, &ulVer)) << c.pszCase;
    EXPECT_EQ(c.ulSignatureAfter, ulSig) << c.pszCase;
    EXPECT_EQ(c.ulVersionAfter, ulVer) << c.pszCase;
    EXPECT_EQ(c.result == ERR_OK ? "TestCmpA#1" : "(null)", CallTestFunction(pf)) << c.pszCase;
}

const CheckCase kCheckCases[] = {
    {"no test", 0, 0x1111, 0x03050500, 0, 0, ERR_OK, 0, 0},
    {"same signature", 0, 0x1111, 0, 0x1111, 0, ERR_OK, 0x1111, 0},
    {"signature mismatch", 0, 0x1111, 0, 0x2222, 0, ERR_SIGNATURE_MISMATCH, 0x1111, 0},
    {"export without signature", 0, 0, 0, 0x2222, 0, ERR_OK, 0x2222, 0},
    {"same major version", 0, 0, 0x03050500, 0, 0x03010000, ERR_OK, 0, 0x03010000},
    {"version mismatch", 0, 0, 0x03050500, 0, 0x02000000, ERR_VERSION_MISMATCH, 0, 0x03050500},
    {"old IEC version passes", CM_IMPORT_IEC, 0, 0x03050500, 0, 0x00010000, ERR_OK, 0, 0x00010000},
    {"old version, C lookup", 0, 0, 0x03050500, 0, 0x00010000, ERR_VERSION_MISMATCH, 0, 0x03050500},
    {"IEC version mismatch", CM_IMPORT_IEC, 0, 0x03050500, 0, 0x02000000, ERR_VERSION_MISMATCH, 0, 0x03050500},
    {"signature before version", 0, 0x1111, 0x03050500, 0x2222, 0x02000000, ERR_SIGNATURE_MISMATCH, 0x1111, 0x02000000},
};

INSTANTIATE_TEST_SUITE_P(Cases, RegistryCheckTest,
                         ::testing::Combine(::testing::Bool(), ::testing::ValuesIn(kCheckCases)));

// A value written back takes part in the tests of the later components of the same lookup; a
// mismatch does not keep a later component from being the answer. A's export callback fails: its
// rows count for the lookup at hand all the same, and it is asked again by the next.
TEST_P(RegistryTest, MismatchesAcrossComponents) {
    TestCmpBehaviour &a = R().Behaviour("TestCmpA");
    AddExport(a, "SigFn", 0, 0, 0x1111);
    AddExport(a, "VerFn", 0, 0, 0, 0x02000000);
    a.exportResult = ERR_FAILED;
    AddExport(R().Behaviour("TestCmpB"), "SigFn", 1, 0, 0x2222);
    AddExport(R().Behaviour("TestCmpB"), "VerFn", 1, 0, 0, 0);
    ASSERT_EQ(ERR_OK, Start({CmpA(), CmpB()}));
    RTS_UI32 ulSig = 0x2222, ulVer = 0x03050500;
    RTS_VOID_FCTPTR pf = nullptr;
    EXPECT_EQ(ERR_SIGNATURE_MISMATCH, CMGetAPI3("SigFn", &pf, 0, &ulSig, nullptr));
    EXPECT_EQ(0x2222u, ulSig); // B's, written back after A's was
    EXPECT_EQ(nullptr, pf);
    EXPECT_EQ(ERR_OK, CMGetAPI3("VerFn", &pf, 0, nullptr, &ulVer));
    EXPECT_EQ("TestCmpB#1", CallTestFunction(pf));
    EXPECT_EQ(0x02000000u, ulVer);
}

// The CM exports its C functions, its utilities (with the checks and locks) and its IEC table, whose
// rows have version 3.5.5.0 except the load and unload rows, and the signature of cmutlcwstrcpy.
TEST_P(RegistryTest, CMExportTables) {
    ASSERT_EQ(ERR_OK, Start({}));
    using namespace kestrel::cm;
    for (const ExportEntry *pTable : {g_cmExportsC, g_cmExportsUtl, g_cmExportsIec}) {
        for (const ExportEntry *p = pTable; p->pfFunction != nullptr; ++p) {
            RTS_VOID_FCTPTR pf = nullptr;
            EXPECT_EQ(ERR_OK, CMGetAPI2(p->pszName, &pf, pTable == g_cmExportsIec ? CM_IMPORT_IEC : 0, 0, 0));
            EXPECT_EQ(p->pfFunction, pf) << p->pszName;
        }
    }
    RTS_UI32 ulSig = 0x4711, ulVer = 0x07000000;
    RTS_VOID_FCTPTR pf = nullptr;
    EXPECT_EQ(ERR_OK, CMGetAPI3("cmunloadcomponent", &pf, CM_IMPORT_IEC, nullptr, &ulVer));
    EXPECT_EQ(ERR_VERSION_MISMATCH, CMGetAPI3("cmaddcomponent", &pf, CM_IMPORT_IEC, nullptr, &ulVer));
    EXPECT_EQ(RTS_SYSTEM_VERSION, ulVer);
    EXPECT_EQ(ERR_SIGNATURE_MISMATCH, CMGetAPI3("cmutlcwstrcpy", &pf, CM_IMPORT_IEC, &ulSig, nullptr));
    EXPECT_EQ(0x09DB4923u, ulSig);
}

// Each IEC twin writes the result of its C function into the last field of its record.
template <typename Record> Record Call(void (*pfTwin)(Record *), Record record) {
    pfTwin(&record);
    return record;
}

TEST_P(RegistryTest, IecTwinsWriteTheirResult) {
    ASSERT_EQ(ERR_OK, Start({CmpA()}));
    ComponentInfo *pA = Find("TestCmpA");
    EXPECT_EQ(pA, Call(&cmgetcomponentbyname, {"TestCmpA", nullptr, nullptr}).CMGetComponentByName);
    EXPECT_EQ(0, Call(&cmutlstricmp, {"ABC", "abc", 5}).CMUtlStrICmp);
    char szBuffer[4];
    EXPECT_EQ(ERR_BUFFERSIZE, Call(&cmutlsafestrcpy, {szBuffer, sizeof(szBuffer), "abcdef", 0}).CMUtlSafeStrCpy);
    EXPECT_STREQ("abc", szBuffer);
    EXPECT_EQ(ERR_OK, Call(&cmexitcomponent, {pA, 99}).CMExitComponent);
    EXPECT_EQ(ERR_OK, Call(&cminitcomponent, {pA, 99}).CMInitComponent);
    auto *pBad = static_cast<ComponentInfo *>(RTS_INVALID_HANDLE);
    EXPECT_EQ(ERR_PARAMETER, Call(&cmunloadcomponent, {pBad, 0}).CMUnloadComponent);
    EXPECT_EQ(ERR_OK, Call(&cmshutdown, {99}).CMShutdown);
    EXPECT_EQ(1, CMGetExit());
    cmshutdown(nullptr); // a null record is ignored
}

INSTANTIATE_TEST_SUITE_P(CacheOnOff, RegistryTest, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool> &p) { return p.param ? "Cached" : "Plain"; });

} // namespace
