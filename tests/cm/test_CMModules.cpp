// Components in module files: loading by name from the program's directory, the hooks a dynamic
// component of the caller's list receives, modules named in the settings, the suffix rule, name
// lengths, missing modules and entries with the loader's own reason, unload order, and the CM's
// own imports from a module that goes away.
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "CMOs.h"
#include "CMTestFixture.h"

using namespace kestrel::cmtest;
using ::testing::ElementsAre;

namespace fs = std::filesystem;

namespace {

class ModuleTest : public CMTest {};

std::string Suffix() {
    return kestrel::cm::os::ModuleSuffixes()[0];
}

// A dynamic component of the caller's list gets hook 1 twice: with everyone, then with the
// dynamic components.
TEST_F(ModuleTest, CallersListModules) {
    ASSERT_EQ(ERR_OK, Start({{"TestModA", nullptr, 0}, CmpA(), {"TestModB", nullptr, 1}}));
    ComponentInfo *p = Find("TestModA");
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(CM_FLAG_DYNAMIC | CM_FLAG_ADDED, p->usFlags);
    EXPECT_NE(RTS_INVALID_HANDLE, p->hModule);
    EXPECT_THAT(R().Trace("TestModA"),
                ElementsAre("TestModA:entry", "TestModA:hook 1", "TestModA:hook 1", "TestModA:hook 8",
                            "TestModA:import", "TestModA:hook 2", "TestModA:hook 3", "TestModA:hook 7",
                            "TestModA:hook 4", "TestModA:hook 500", "TestModA:hook 5", "TestModA:hook 6",
                            "TestModA:hook 1000"));
    EXPECT_EQ(kStartHooks, R().Hooks("TestCmpA"));
    EXPECT_TRUE(F().Logged("Dynamic: <cmp>TestModA</cmp> init"));
    // Functions of the module are found by name, and run.
    RTS_VOID_FCTPTR pf = nullptr;
    ASSERT_EQ(ERR_OK, CMGetAPI("TestModAFn", &pf, 0));
    EXPECT_EQ("TestModA#0", CallTestFunction(pf));
    p = Find("TestModB");
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(CM_FLAG_DYNAMIC | CM_FLAG_SYSTEM | CM_FLAG_ADDED, p->usFlags);
    EXPECT_TRUE(F().Logged("System|Dynamic: <cmp>TestModB</cmp> init"));
}

TEST_F(ModuleTest, SettingsModules) {
    F().SetSetting("ComponentManager", "Component.2", "TestModB");
    F().SetSetting("ComponentManager", "Component.3", "NoSuchModule");
    F().SetSetting("ComponentManager", "Component.4", "TestModC");
    ASSERT_EQ(ERR_OK, Start({}));
    ComponentInfo *p = Find("TestModB");
    ASSERT_NE(nullptr, p);
    EXPECT_EQ(CM_FLAG_DYNAMIC | CM_FLAG_ADDED, p->usFlags);
    EXPECT_EQ(0u, p->bStaticName);
    EXPECT_EQ(CM_STATE_RUNNING, p->usState);
    EXPECT_NE(nullptr, Find("TestModC"));
    EXPECT_EQ(kStartHooks, R().Hooks("TestModB"));
    ExpectLog(12, LOG_ERROR, ERR_FAILED, "*** Error: Component <cmp>NoSuchModule</cmp> NOT loaded");
    // The loader's own reason is logged beside it.
    EXPECT_TRUE(F().Logged("Cannot load module <file>NoSuchModule" + Suffix() + "</file>: "));
}

// A host's list names more components than an installation carries: the names without a module
// file are summed up in one line per pass, with no error each; the pass still reports the failure.
TEST_F(ModuleTest, ListNamesWithoutModuleFilesAreSummedUp) {
    ASSERT_EQ(ERR_OK, Start({{"NoSuchModuleOne", nullptr, 0},
                             {"TestModA", nullptr, 0},
                             {"NoSuchModuleTwo", nullptr, 0},
                             {"SysNoSuchModule", nullptr, 0}}));
    EXPECT_NE(nullptr, Find("TestModA"));
    EXPECT_FALSE(F().Logged("Cannot load module"));
    // The system pass sees the "Sys" name, the full pass all three (the "Sys" name once more).
    EXPECT_TRUE(F().Logged("1 components of the list are not installed: SysNoSuchModule"));
    EXPECT_TRUE(
        F().Logged("3 components of the list are not installed: NoSuchModuleOne, NoSuchModuleTwo, SysNoSuchModule"));
}

TEST_F(ModuleTest, LoadModuleResults) {
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_HANDLE h = nullptr;
    const std::string name99(99, 'm');
    const std::string name100(100, 'm');
    EXPECT_EQ(ERR_BUFFERSIZE, kestrel::cm::LoadModule(name100.c_str(), &h));
    EXPECT_EQ(RTS_INVALID_HANDLE, h);
    EXPECT_EQ(ERR_NO_OBJECT, kestrel::cm::LoadModule(name99.c_str(), &h));
    EXPECT_EQ(ERR_NO_OBJECT, kestrel::cm::LoadModule("NoSuchModule", &h));
    ASSERT_EQ(ERR_OK, kestrel::cm::LoadModule("TestModC", &h));
    EXPECT_NE(nullptr, kestrel::cm::os::GetSymbol(h, "ComponentEntry"));
    // Only the entry is exported; everything else of the module is hidden.
    EXPECT_EQ(nullptr, kestrel::cm::os::GetSymbol(h, "TestCmpAEntry"));
    EXPECT_EQ(ERR_OK, kestrel::cm::os::UnloadModule(h));
}

// What CMLoadComponent answers for modules that cannot be used; none of them crashes or is added.
struct BadModuleCase {
    std::string name;
    RTS_RESULT entryResult; // of TestModA
    RTS_RESULT result;
    const char *pszLogged;
};

class BadModuleTest : public ModuleTest, public ::testing::WithParamInterface<BadModuleCase> {};

TEST_P(BadModuleTest, NotLoaded) {
    const BadModuleCase &c = GetParam();
    R().Behaviour("TestModA").entryResult = c.entryResult;
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_I32 nBefore = CMGetNumOfComponents();
    RTS_RESULT result = ERR_OK;
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMLoadComponent(c.name.c_str(), &result)));
    EXPECT_EQ(c.result, result);
    EXPECT_EQ(nBefore, CMGetNumOfComponents());
    if (c.pszLogged != nullptr) {
        EXPECT_TRUE(F().Logged(c.pszLogged)) << c.name;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BadModuleTest,
    ::testing::Values(BadModuleCase{std::string(100, 'x'), ERR_OK, ERR_FAILED, nullptr},
                      BadModuleCase{"NoSuchModule", ERR_OK, ERR_FAILED, "Cannot load module <file>NoSuchModule"},
                      BadModuleCase{"TestModNoEntry", ERR_OK, ERR_FAILED,
                                    "Module <cmp>TestModNoEntry</cmp> has no ComponentEntry"},
                      BadModuleCase{"TestModA", 5, 5, "Init function failed of <cmp>TestModA</cmp>"}));

#ifdef KESTREL_TEST_UNRESOLVED_MODULE
// RTLD_NOW: a module with an unresolved symbol fails at load time, with the loader's reason.
TEST_F(ModuleTest, UnresolvedSymbolFailsAtLoad) {
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_HANDLE h = nullptr;
    EXPECT_EQ(ERR_NO_OBJECT, kestrel::cm::LoadModule("TestModUnresolved", &h));
    EXPECT_TRUE(F().Logged("KestrelFunctionThatDoesNotExist"));
}
#endif

// A name that already carries the platform's suffix is loaded as it is.
TEST_F(ModuleTest, NameWithSuffix) {
    ASSERT_EQ(ERR_OK, Start({}));
    const std::string name = "TestModC" + Suffix();
    RTS_RESULT result = ERR_FAILED;
    ComponentInfo *p = CMLoadComponent(name.c_str(), &result);
    ASSERT_EQ(ERR_OK, result);
    EXPECT_STREQ(name.c_str(), p->pszName);
    EXPECT_EQ(ERR_OK, CMInitComponent(p));
    EXPECT_EQ(ERR_OK, CMExitComponent(p));
    EXPECT_EQ(ERR_OK, CMUnloadComponent(p));
}

// Modules come from the program's directory (or the system's search path), never from the working
// directory; a full path is taken as it is.
TEST_F(ModuleTest, WorkingDirectoryIsNotSearched) {
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_HANDLE hProbe = nullptr;
    ASSERT_EQ(ERR_OK, kestrel::cm::LoadModule("TestModC", &hProbe));
    kestrel::cm::os::UnloadModule(hProbe);
    // The module file beside the program.
    const fs::path program = fs::absolute(fs::path(::testing::internal::GetArgvs().at(0)));
    fs::path source = program.parent_path() / ("TestModC" + Suffix());
    ASSERT_TRUE(fs::exists(source)) << source.string();
    fs::path planted = fs::temp_directory_path() /
                       ("kestrel-cm-planted-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()));
    fs::create_directories(planted);
    fs::copy_file(source, planted / ("TestModPlanted" + Suffix()), fs::copy_options::overwrite_existing);
    fs::path previous = fs::current_path();
    fs::current_path(planted);
    RTS_RESULT result = ERR_OK;
    ComponentInfo *p = CMLoadComponent("TestModPlanted", &result);
    fs::current_path(previous);
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(p));
    EXPECT_EQ(ERR_FAILED, result);
    // By full path it loads.
    const std::string full = (planted / ("TestModPlanted" + Suffix())).string();
    ASSERT_LT(full.size(), 100u);
    p = CMLoadComponent(full.c_str(), &result);
    EXPECT_EQ(ERR_OK, result);
    if (result == ERR_OK) {
        EXPECT_EQ(ERR_OK, CMUnloadComponent(p));
    }
    std::error_code ec;
    fs::remove_all(planted, ec);
}

// Unload groups: dynamic non-system first, then static non-system, then system components.
TEST_F(ModuleTest, UnloadGroups) {
    R().Behaviour("TestModA").cmpId = 0x7101;
    R().Behaviour("TestCmpA").cmpId = 0x7001;
    R().Behaviour("TestCmpB").cmpId = 0x7002;
    ASSERT_EQ(ERR_OK, Start({CmpB(1), CmpA(), {"TestModA", nullptr, 0}}));
    R().Reset();
    Stop();
    std::vector<std::string> unloads;
    for (const TraceEvent &e : R().Events())
        if (e.component == "TestCmpB" && e.ulHook == CH_COMPONENT_EXIT)
            unloads.push_back(e.text);
    EXPECT_THAT(unloads,
                ElementsAre("TestCmpB:hook 24(TestModA)", "TestCmpB:hook 24(TestCmpA)", "TestCmpB:hook 24(TestCmpB)"));
    // The module heard of its own unloading before its code went away.
    std::vector<std::string> a = R().Trace("TestModA");
    ASSERT_FALSE(a.empty());
    EXPECT_EQ("TestModA:hook 24(TestModA)", a.back());
}

// The CM's own imports from a module are dropped when the module is unloaded.
TEST_F(ModuleTest, CMImportsFromAModuleAreDroppedWithIt) {
    AddExport(R().Behaviour("TestModA"), "SysTargetGetId", 1);
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_RESULT result = ERR_FAILED;
    ComponentInfo *p = CMLoadComponent("TestModA", &result);
    ASSERT_EQ(ERR_OK, result);
    ASSERT_EQ(ERR_OK, CMImportFunctions());
    EXPECT_NE(nullptr, kestrel::cm::Imp_SysTargetGetId());
    ASSERT_EQ(ERR_OK, CMInitComponent(p));
    ASSERT_EQ(ERR_OK, CMExitComponent(p));
    ASSERT_EQ(ERR_OK, CMUnloadComponent(p));
    EXPECT_EQ(nullptr, kestrel::cm::Imp_SysTargetGetId());
}

} // namespace
