// The API registry: lookups in table order, the first fitting row of a component, overloading,
// IEC lookups, signature and version tests with the found value written back, options, name
// lengths; every test runs with the export-row cache and without it.
#include <set>
#include <string>

#include "CMTestFixture.h"

using namespace kestrel::cmtest;

namespace {

class RegistryTest : public CMTest, public ::testing::WithParamInterface<bool> {
  protected:
    void SetUp() override {
        CMTest::SetUp();
        kestrel::cm::RegistryUseCache(GetParam());
    }

    RTS_RESULT StartAB(const char *pszOverloadable = nullptr) {
        if (pszOverloadable != nullptr)
            F().SetSetting("ComponentManager", "OverloadableFunctions", pszOverloadable);
        return Start({CmpA(), CmpB()});
    }

    static std::string Resolve(const char *pszName, RTS_UI32 ulOptions = 0, RTS_RESULT *pResult = nullptr) {
        RTS_VOID_FCTPTR pf = nullptr;
        RTS_RESULT result = CMGetAPI2(pszName, &pf, ulOptions, 0, 0);
        if (pResult != nullptr)
            *pResult = result;
        return CallTestFunction(pf);
    }
};

// Of two components with the same name, the later one answers; the earlier one once the later is
// removed, or when overloading is switched off.
TEST_P(RegistryTest, SharedNameOverloading) {
    AddExport(R().Behaviour("TestCmpA"), "SharedFn", 0);
    AddExport(R().Behaviour("TestCmpB"), "SharedFn", 1);
    ASSERT_EQ(ERR_OK, StartAB());
    EXPECT_EQ("TestCmpB#1", Resolve("SharedFn"));
    ComponentInfo *pB = Find("TestCmpB");
    ASSERT_EQ(ERR_OK, CMExitComponent(pB));
    ASSERT_EQ(ERR_OK, CMUnloadComponent(pB));
    EXPECT_EQ("TestCmpA#0", Resolve("SharedFn"));
    Stop();
    ASSERT_EQ(ERR_OK, StartAB("0"));
    EXPECT_EQ("TestCmpA#0", Resolve("SharedFn"));
}

TEST_P(RegistryTest, FirstRowOfAComponentWins) {
    TestCmpBehaviour &a = R().Behaviour("TestCmpA");
    AddExport(a, "Other", 0);
    AddExport(a, "Dup", 1);
    AddExport(a, "Dup", 2);
    ASSERT_EQ(ERR_OK, StartAB());
    EXPECT_EQ("TestCmpA#1", Resolve("Dup"));
}

// A name not found empties the slot; only a required lookup fails and logs. Without a slot the
// lookup only reports.
TEST_P(RegistryTest, NameNotFound) {
    ASSERT_EQ(ERR_OK, StartAB());
    RTS_VOID_FCTPTR pf = reinterpret_cast<RTS_VOID_FCTPTR>(&CMExit);
    EXPECT_EQ(ERR_OK, CMGetAPI2("NoSuchFunction", &pf, CM_IMPORT_OPTIONAL, 0, 0));
    EXPECT_EQ(nullptr, pf);
    EXPECT_TRUE(F().LogWithInfo(22).empty());
    pf = reinterpret_cast<RTS_VOID_FCTPTR>(&CMExit);
    EXPECT_EQ(ERR_FAILED, CMGetAPI("NoSuchFunction", &pf, 0));
    EXPECT_EQ(nullptr, pf);
    ExpectLog(22, LOG_ERROR, ERR_FAILED, "Failed to resolve <name>NoSuchFunction</name>");
    EXPECT_EQ(ERR_OK, CMGetAPI("TestCmpAFn", nullptr, 0));
    EXPECT_EQ(ERR_FAILED, CMGetAPI("NoSuchFunction", nullptr, 0));
}

// IEC lookups compare ignoring case, but only against rows registered as external library.
TEST_P(RegistryTest, IecLookupsIgnoreCaseOnlyForExternalRows) {
    TestCmpBehaviour &a = R().Behaviour("TestCmpA");
    AddExport(a, "PlainRow", 0);
    AddExport(a, "ieclibrow", 1, 1);
    ASSERT_EQ(ERR_OK, StartAB());
    RTS_VOID_FCTPTR pf = nullptr;
    EXPECT_EQ(ERR_OK, CMGetAPI2("CMAddComponent", &pf, CM_IMPORT_IEC, 0, 0));
    EXPECT_EQ(reinterpret_cast<RTS_VOID_FCTPTR>(&cmaddcomponent), pf);
    EXPECT_EQ(ERR_OK, CMGetAPI2("CMAddComponent", &pf, 0, 0, 0));
    EXPECT_EQ(reinterpret_cast<RTS_VOID_FCTPTR>(&CMAddComponent), pf);
    RTS_RESULT result = ERR_OK;
    EXPECT_EQ("TestCmpA#1", Resolve("IecLibRow", CM_IMPORT_IEC, &result));
    EXPECT_EQ(ERR_OK, result);
    EXPECT_EQ("(null)", Resolve("IecLibRow", 0, &result));
    EXPECT_EQ(ERR_FAILED, result);
    EXPECT_EQ("(null)", Resolve("plainrow", CM_IMPORT_IEC, &result));
    EXPECT_EQ(ERR_FAILED, result);
    EXPECT_EQ("TestCmpA#0", Resolve("PlainRow", CM_IMPORT_IEC, &result));
}

struct CheckCase {
    const char *pszCase;
    RTS_UI32 ulOptions;
    RTS_UI32 ulExportSignature;
    RTS_UI32 ulExportVersion;
    RTS_UI32 ulWantedSignature;
    RTS_UI32 ulWantedVersion;
    RTS_RESULT result;
    RTS_UI32 ulSignatureAfter;
    RTS_UI32 ulVersionAfter;
};

class RegistryCheckTest : public CMTest, public ::testing::WithParamInterface<std::tuple<bool, CheckCase>> {};

TEST_P(RegistryCheckTest, SignatureAndVersion) {
    kestrel::cm::RegistryUseCache(std::get<0>(GetParam()));
    const CheckCase &c = std::get<1>(GetParam());
    AddExport(R().Behaviour("TestCmpA"), "checkedfn", 1, 1, c.ulExportSignature, c.ulExportVersion);
    ASSERT_EQ(ERR_OK, Start({CmpA()}));
    RTS_UI32 ulSig = c.ulWantedSignature;
    RTS_UI32 ulVer = c.ulWantedVersion;
    RTS_VOID_FCTPTR pf = reinterpret_cast<RTS_VOID_FCTPTR>(&CMExit);
    EXPECT_EQ(c.result, CMGetAPI3("checkedfn", &pf, c.ulOptions, &ulSig, &ulVer)) << c.pszCase;
    EXPECT_EQ(c.ulSignatureAfter, ulSig) << c.pszCase;
    EXPECT_EQ(c.ulVersionAfter, ulVer) << c.pszCase;
    if (c.result != ERR_OK) {
        EXPECT_EQ(nullptr, pf) << c.pszCase;
    } else if ((c.ulOptions & CM_IMPORT_OPTIONAL) == 0) {
        EXPECT_EQ("TestCmpA#1", CallTestFunction(pf)) << c.pszCase;
    }
}

const CheckCase kCheckCases[] = {
    {"no test", 0, 0x1111, 0x03050500, 0, 0, ERR_OK, 0, 0},
    {"same signature", 0, 0x1111, 0, 0x1111, 0, ERR_OK, 0x1111, 0},
    {"signature mismatch", 0, 0x1111, 0, 0x2222, 0, ERR_SIGNATURE_MISMATCH, 0x1111, 0},
    {"export without signature", 0, 0, 0, 0x2222, 0, ERR_OK, 0x2222, 0},
    {"mismatch, optional", CM_IMPORT_OPTIONAL, 0x1111, 0, 0x2222, 0, ERR_OK, 0x1111, 0},
    {"same major version", 0, 0, 0x03050500, 0, 0x03010000, ERR_OK, 0, 0x03010000},
    {"version mismatch", 0, 0, 0x03050500, 0, 0x02000000, ERR_VERSION_MISMATCH, 0, 0x03050500},
    {"export without version", 0, 0, 0, 0, 0x02000000, ERR_OK, 0, 0x02000000},
    {"old IEC version passes", CM_IMPORT_IEC, 0, 0x03050500, 0, 0x00010000, ERR_OK, 0, 0x00010000},
    {"old version, C lookup", 0, 0, 0x03050500, 0, 0x00010000, ERR_VERSION_MISMATCH, 0, 0x03050500},
    {"IEC version mismatch", CM_IMPORT_IEC, 0, 0x03050500, 0, 0x02000000, ERR_VERSION_MISMATCH, 0, 0x03050500},
    {"signature before version", 0, 0x1111, 0x03050500, 0x2222, 0x02000000, ERR_SIGNATURE_MISMATCH, 0x1111, 0x02000000},
};

INSTANTIATE_TEST_SUITE_P(Cases, RegistryCheckTest,
                         ::testing::Combine(::testing::Bool(), ::testing::ValuesIn(kCheckCases)));

// The written-back value takes part in the tests of the later components of the same lookup.
TEST_P(RegistryTest, WrittenBackSignatureIsComparedWithLaterComponents) {
    AddExport(R().Behaviour("TestCmpA"), "SigFn", 0, 0, 0x1111);
    AddExport(R().Behaviour("TestCmpB"), "SigFn", 1, 0, 0x2222);
    ASSERT_EQ(ERR_OK, StartAB());
    RTS_UI32 ulSig = 0x2222;
    RTS_VOID_FCTPTR pf = nullptr;
    EXPECT_EQ(ERR_SIGNATURE_MISMATCH, CMGetAPI3("SigFn", &pf, 0, &ulSig, nullptr));
    EXPECT_EQ(0x2222u, ulSig); // B's, written back after A's was
    EXPECT_EQ(nullptr, pf);
}

// A mismatch in one component does not keep a later component from being the answer.
TEST_P(RegistryTest, MismatchThenMatch) {
    AddExport(R().Behaviour("TestCmpA"), "VerFn", 0, 0, 0, 0x02000000);
    AddExport(R().Behaviour("TestCmpB"), "VerFn", 1, 0, 0, 0); // agrees with any version
    ASSERT_EQ(ERR_OK, StartAB());
    RTS_UI32 ulVer = 0x03050500;
    RTS_VOID_FCTPTR pf = nullptr;
    EXPECT_EQ(ERR_OK, CMGetAPI3("VerFn", &pf, 0, nullptr, &ulVer));
    EXPECT_EQ("TestCmpB#1", CallTestFunction(pf));
    EXPECT_EQ(0x02000000u, ulVer);
}

TEST_P(RegistryTest, NameLengths) {
    const std::string name63(63, 'n');
    const std::string name64(64, 'n');
    AddExport(R().Behaviour("TestCmpA"), name63.c_str(), 2);
    ASSERT_EQ(ERR_OK, StartAB());
    EXPECT_EQ("TestCmpA#2", Resolve(name63.c_str()));
    RTS_VOID_FCTPTR pf = reinterpret_cast<RTS_VOID_FCTPTR>(&CMExit);
    EXPECT_EQ(ERR_BUFFERSIZE, CMGetAPI(name64.c_str(), &pf, 0));
    EXPECT_EQ(reinterpret_cast<RTS_VOID_FCTPTR>(&CMExit), pf); // untouched
    EXPECT_EQ(ERR_BUFFERSIZE, CMGetAPI2(name64.c_str(), &pf, CM_IMPORT_OPTIONAL, 0, 0));
    EXPECT_EQ(ERR_PARAMETER, CMGetAPI(nullptr, &pf, 0));
    EXPECT_EQ(ERR_PARAMETER, CMGetAPI3(nullptr, &pf, CM_IMPORT_OPTIONAL, nullptr, nullptr));
}

// An export callback that fails still registered its rows for the lookup at hand.
TEST_P(RegistryTest, FailingExportCallbackStillRegisters) {
    TestCmpBehaviour &a = R().Behaviour("TestCmpA");
    AddExport(a, "FlakyFn", 1);
    a.exportResult = ERR_FAILED;
    ASSERT_EQ(ERR_OK, StartAB());
    EXPECT_EQ("TestCmpA#1", Resolve("FlakyFn"));
    EXPECT_EQ("TestCmpA#1", Resolve("FlakyFn"));
}

// The component's own import callback convention: required imports fail the import, optional ones
// only leave the slot empty.
TEST_P(RegistryTest, ImportsThroughComponentCallbacks) {
    TestCmpBehaviour &a = R().Behaviour("TestCmpA");
    AddImport(a, "TestCmpBFn");
    AddImport(a, "NotThere", CM_IMPORT_OPTIONAL);
    ASSERT_EQ(ERR_OK, StartAB());
    ASSERT_EQ(2u, R().imports.size());
    EXPECT_EQ("TestCmpBFn", R().imports[0].name);
    EXPECT_EQ(ERR_OK, R().imports[0].result);
    EXPECT_EQ("TestCmpB#0", CallTestFunction(R().imports[0].pfSlot));
    EXPECT_EQ(ERR_OK, R().imports[1].result);
    EXPECT_EQ(nullptr, R().imports[1].pfSlot);
}

TEST_P(RegistryTest, RegisterWithoutLookup) {
    ASSERT_EQ(ERR_OK, StartAB());
    EXPECT_EQ(ERR_NOT_INITIALIZED, CMRegisterAPI(nullptr, nullptr, 0, 0));
    EXPECT_EQ(ERR_OK, CMRegisterAPI("Name", reinterpret_cast<RTS_VOID_FCTPTR>(&CMExit), 0, 0));
    EXPECT_EQ(ERR_OK, CMRegisterAPI2("Name", reinterpret_cast<RTS_VOID_FCTPTR>(&CMExit), 0, 0, 0));
    EXPECT_EQ(ERR_OK, CMRegisterAPI2(nullptr, nullptr, 0, 0, 0));
    EXPECT_EQ(ERR_OK, CMReleaseAPI("CMExit"));
    // Registration outside a lookup does not make a name findable.
    RTS_VOID_FCTPTR pf = nullptr;
    EXPECT_EQ(ERR_FAILED, CMGetAPI("Name", &pf, 0));
}

// Every C export of the CM is found under its name, with signature and version 0.
TEST_P(RegistryTest, CMExportTables) {
    ASSERT_EQ(ERR_OK, StartAB());
    const std::set<std::string> expectedC = {
        // start-up, shut-down, output
        "CMInit", "CMInit2", "CMInit3", "CMInitEnd", "CMExit", "CMSetExit", "CMGetExit", "CMDebugOut", "CMDebugOutArg",
        // registry
        "CMRegisterAPI", "CMRegisterAPI2", "CMGetAPI", "CMGetAPI2", "CMGetAPI3", "CMReleaseAPI", "CMImportFunctions",
        // table
        "CMAddComponent", "CMRemoveComponent", "CMLoadComponent", "CMUnloadComponent", "CMInitComponent",
        "CMExitComponent", "CMGetComponentByName", "CMGetCmpId", "CMGetCmpName", "CMGetComponent",
        "CMGetNumOfComponents", "CMGetComponentByIndex", "CMGetFirstComponent", "CMGetNextComponent",
        // instances
        "CMCreateInstance", "CMDeleteInstance", "CMDeleteInstance2", "CMGetInstance", "CMRegisterInstance",
        "CMUnregisterInstance", "CMGetInstanceList",
        // hooks and the rest
        "CMCallHook", "CMCallHook2", "CMCallExtraCommCycleHook", "CMGetCurrentHook", "CMIsOperationDisabled",
        "CMProfiling"};
    std::set<std::string> names;
    for (const ExportEntry *p = kestrel::cm::g_cmExportsC; p->pfFunction != nullptr; ++p) {
        names.insert(p->pszName);
        EXPECT_EQ(0u, p->ulSignature);
        EXPECT_EQ(0u, p->ulVersion);
        RTS_VOID_FCTPTR pf = nullptr;
        EXPECT_EQ(ERR_OK, CMGetAPI(p->pszName, &pf, 0)) << p->pszName;
        EXPECT_EQ(p->pfFunction, pf) << p->pszName;
    }
    EXPECT_EQ(expectedC, names);
    for (const char *pszName : {"CMBasicChecks", "CMLockCreate", "CMLockDelete", "CMLockEnter", "CMLockLeave",
                                "CMUtlStrICmp", "CMUtlSafeStrCpy", "CMUtlcwstrcpy", "CMStringCreate"}) {
        RTS_VOID_FCTPTR pf = nullptr;
        EXPECT_EQ(ERR_OK, CMGetAPI(pszName, &pf, 0)) << pszName;
        EXPECT_NE(nullptr, pf) << pszName;
    }
}

TEST_P(RegistryTest, CMIecExports) {
    ASSERT_EQ(ERR_OK, StartAB());
    struct IecRow {
        const char *pszName;
        RTS_UI32 ulSignature;
        RTS_UI32 ulVersion;
    };
    const IecRow rows[] = {{"cmaddcomponent", 0, RTS_SYSTEM_VERSION},
                           {"cmremovecomponent", 0, RTS_SYSTEM_VERSION},
                           {"cmloadcomponent", 0, 0},
                           {"cmunloadcomponent", 0, 0},
                           {"cmshutdown", 0, RTS_SYSTEM_VERSION},
                           {"cmutlstricmp", 0, RTS_SYSTEM_VERSION},
                           {"cmutlwstrcpy", 0, RTS_SYSTEM_VERSION},
                           {"cmutlsafestrcpy", 0, RTS_SYSTEM_VERSION},
                           {"cmutlcwstrcpy", 0x09DB4923u, RTS_SYSTEM_VERSION},
                           {"cmgetcomponentbyname", 0, RTS_SYSTEM_VERSION},
                           {"cmexitcomponent", 0, RTS_SYSTEM_VERSION},
                           {"cminitcomponent", 0, RTS_SYSTEM_VERSION}};
    std::size_t n = 0;
    for (const ExportEntry *p = kestrel::cm::g_cmExportsIec; p->pfFunction != nullptr; ++p, ++n) {
        ASSERT_LT(n, sizeof(rows) / sizeof(rows[0]));
        EXPECT_STREQ(rows[n].pszName, p->pszName);
        EXPECT_EQ(rows[n].ulSignature, p->ulSignature) << p->pszName;
        EXPECT_EQ(rows[n].ulVersion, p->ulVersion) << p->pszName;
        // A wanted version of another major release reveals the row's version.
        RTS_UI32 ulSig = 0;
        RTS_UI32 ulVer = 0x07000000;
        RTS_VOID_FCTPTR pf = nullptr;
        RTS_RESULT result = CMGetAPI3(p->pszName, &pf, CM_IMPORT_IEC, &ulSig, &ulVer);
        EXPECT_EQ(rows[n].ulVersion == 0 ? ERR_OK : ERR_VERSION_MISMATCH, result) << p->pszName;
    }
    EXPECT_EQ(sizeof(rows) / sizeof(rows[0]), n);
    RTS_UI32 ulSig = 0x12345678;
    RTS_VOID_FCTPTR pf = nullptr;
    EXPECT_EQ(ERR_SIGNATURE_MISMATCH, CMGetAPI3("cmutlcwstrcpy", &pf, CM_IMPORT_IEC, &ulSig, nullptr));
    EXPECT_EQ(0x09DB4923u, ulSig);
}

TEST_P(RegistryTest, IecTwinsWriteTheirResult) {
    ASSERT_EQ(ERR_OK, StartAB());
    cmgetcomponentbyname_struct byName{"TestCmpA", nullptr, nullptr};
    cmgetcomponentbyname(&byName);
    EXPECT_EQ(Find("TestCmpA"), byName.CMGetComponentByName);
    cmutlstricmp_struct cmp{"ABC", "abc", 5};
    cmutlstricmp(&cmp);
    EXPECT_EQ(0, cmp.CMUtlStrICmp);
    char szBuffer[4];
    cmutlsafestrcpy_struct copy{szBuffer, sizeof(szBuffer), "abcdef", 0};
    cmutlsafestrcpy(&copy);
    EXPECT_EQ(ERR_BUFFERSIZE, copy.CMUtlSafeStrCpy);
    EXPECT_STREQ("abc", szBuffer);
    cmexitcomponent_struct exitRecord{Find("TestCmpA"), 99};
    cmexitcomponent(&exitRecord);
    EXPECT_EQ(ERR_OK, exitRecord.CMExitComponent);
    cminitcomponent_struct initRecord{Find("TestCmpA"), 99};
    cminitcomponent(&initRecord);
    EXPECT_EQ(ERR_OK, initRecord.CMInitComponent);
    cmunloadcomponent_struct unload{reinterpret_cast<ComponentInfo *>(RTS_INVALID_HANDLE), 0};
    cmunloadcomponent(&unload);
    EXPECT_EQ(ERR_PARAMETER, unload.CMUnloadComponent);
    cmshutdown_struct shutdown{99};
    cmshutdown(&shutdown);
    EXPECT_EQ(ERR_OK, shutdown.CMShutdown);
    EXPECT_EQ(1, CMGetExit());
    cmshutdown(nullptr); // a null record is ignored
}

INSTANTIATE_TEST_SUITE_P(CacheOnOff, RegistryTest, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool> &p) { return p.param ? "Cached" : "Plain"; });

} // namespace
