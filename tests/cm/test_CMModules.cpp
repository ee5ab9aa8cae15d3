// Components in module files: loading by name from the program's directory, the hooks a dynamic
// component of the caller's list receives, modules named in the settings, name lengths, missing
// modules and entries with the loader's own reason, unload order, and the CM's own imports from a
// module that goes away.
#include <filesystem>

#include "CMOs.h"
#include "CMTestFixture.h"

using namespace kestrel::cmtest;
namespace fs = std::filesystem;

namespace {

using ModuleTest = CMTest;

std::string Suffix() {
    return kestrel::cm::os::ModuleSuffixes()[0];
}

// A dynamic component of the caller's list gets hook 1 twice: with everyone, then with the
// dynamic components. Its functions are found by name, and run.
TEST_F(ModuleTest, CallersListModules) {
    ASSERT_EQ(ERR_OK, Start({{"TestModA", nullptr, 0}, CmpA(), {"TestModB", nullptr, 1}}));
    EXPECT_EQ("TestModA:entry TestModA:1 TestModA:1 TestModA:8 TestModA:import TestModA:2 TestModA:3 TestModA:7 "
              "TestModA:4 TestModA:500 TestModA:5 TestModA:6 TestModA:1000",
              R().Trace("TestModA"));
    EXPECT_EQ(kStartHooks, R().Hooks("TestCmpA"));
    EXPECT_EQ(1, F().Logged("Dynamic: <cmp>TestModA</cmp> init"));
    EXPECT_EQ(1, F().Logged("System|Dynamic: <cmp>TestModB</cmp> init"));
    RTS_VOID_FCTPTR pf = nullptr;
    ASSERT_EQ(ERR_OK, CMGetAPI("TestModAFn", &pf, 0));
    EXPECT_EQ("TestModA#0", CallTestFunction(pf));
}

// Modules named in the settings come in as dynamic components; a missing one is logged with the
// loader's own reason.
TEST_F(ModuleTest, SettingsModules) {
    F().SetSetting("ComponentManager", "Component.2", "TestModB");
    F().SetSetting("ComponentManager", "Component.3", "NoSuchModule");
    F().SetSetting("ComponentManager", "Component.4", "TestModC");
    ASSERT_EQ(ERR_OK, Start({}));
    EXPECT_EQ(CM_FLAG_DYNAMIC | CM_FLAG_ADDED, Find("TestModB")->usFlags);
    EXPECT_NE(nullptr, Find("TestModC"));
    EXPECT_EQ(kStartHooks, R().Hooks("TestModB"));
    EXPECT_EQ(1, F().Logged("*** Error: Component <cmp>NoSuchModule</cmp> NOT loaded"));
    EXPECT_EQ(1, F().Logged("Cannot load module <file>NoSuchModule" + Suffix() + "</file>: "));
}

// The names of a host's list without a module file are summed up in one line per pass (the system
// pass sees only the "Sys" name), with no error each.
TEST_F(ModuleTest, ListNamesWithoutModuleFilesAreSummedUp) {
    ASSERT_EQ(ERR_OK, Start({{"NoSuchModuleOne", nullptr, 0},
                             {"TestModA", nullptr, 0},
                             {"NoSuchModuleTwo", nullptr, 0},
                             {"SysNoSuchModule", nullptr, 0}}));
    EXPECT_NE(nullptr, Find("TestModA"));
    EXPECT_EQ(0, F().Logged("Cannot load module"));
    EXPECT_EQ(1, F().Logged("1 components of the list are not installed: SysNoSuchModule"));
    EXPECT_EQ(
        1, F().Logged("3 components of the list are not installed: NoSuchModuleOne, NoSuchModuleTwo, SysNoSuchModule"));
}

// The loader: names of 100 characters or more are 15, missing modules 16.
TEST_F(ModuleTest, LoadModuleResults) {
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_HANDLE h = nullptr;
    EXPECT_EQ(ERR_BUFFERSIZE, kestrel::cm::LoadModule(std::string(100, 'm').c_str(), &h));
    EXPECT_EQ(RTS_INVALID_HANDLE, h);
    EXPECT_EQ(ERR_NO_OBJECT, kestrel::cm::LoadModule(std::string(99, 'm').c_str(), &h));
    EXPECT_EQ(ERR_NO_OBJECT, kestrel::cm::LoadModule("NoSuchModule", &h));
    ASSERT_EQ(ERR_OK, kestrel::cm::LoadModule("TestModC", &h));
    EXPECT_NE(nullptr, kestrel::cm::os::GetSymbol(h, "ComponentEntry"));
    EXPECT_EQ(ERR_OK, kestrel::cm::os::UnloadModule(h));
#ifdef KESTREL_TEST_UNRESOLVED_MODULE
    // A module with an unresolved symbol fails at load time, with the loader's reason.
    EXPECT_EQ(ERR_NO_OBJECT, kestrel::cm::LoadModule("TestModUnresolved", &h));
    EXPECT_EQ(1, F().Logged("KestrelFunctionThatDoesNotExist"));
#endif
}

// What CMLoadComponent answers for modules that cannot be used; none of them crashes or is added.
struct BadModuleCase {
    std::string name;
    RTS_RESULT entryResult; // of TestModA
    RTS_RESULT result;
    const char *pszLogged;
};

class BadModuleTest : public CMTest, public ::testing::WithParamInterface<BadModuleCase> {};

TEST_P(BadModuleTest, NotLoaded) {
    const BadModuleCase &c = GetParam();
    R().Behaviour("TestModA").entryResult = c.entryResult;
    ASSERT_EQ(ERR_OK, Start({}));
    RTS_I32 nBefore = CMGetNumOfComponents();
    F().log.clear();
    RTS_RESULT result = ERR_OK;
    EXPECT_EQ(RTS_INVALID_HANDLE, static_cast<RTS_HANDLE>(CMLoadComponent(c.name.c_str(), &result)));
    EXPECT_EQ(c.result, result);
    EXPECT_EQ(nBefore, CMGetNumOfComponents());
    EXPECT_EQ(*c.pszLogged != '\0' ? 1u : 0u, F().log.size()) << c.name;
    EXPECT_EQ(F().log.size(), static_cast<std::size_t>(F().Logged(c.pszLogged))) << c.name;
}

INSTANTIATE_TEST_SUITE_P(
    Cases, BadModuleTest,
    ::testing::Values(BadModuleCase{std::string(100, 'x'), ERR_OK, ERR_FAILED, ""},
                      BadModuleCase{"NoSuchModule", ERR_OK, ERR_FAILED, "Cannot load module <file>NoSuchModule"},
                      BadModuleCase{"TestModNoEntry", ERR_OK, ERR_FAILED,
                                    "Module <cmp>TestModNoEntry</cmp> has no ComponentEntry"},
                      BadModuleCase{"TestModA", 5, 5, "Init function failed of <cmp>TestModA</cmp>"}));

// Modules come from the program's directory (or the system's search path), never from the working
// directory; a full path (which carries the suffix) is taken as it is.
TEST_F(ModuleTest, WorkingDirectoryIsNotSearched) {
    ASSERT_EQ(ERR_OK, Start({}));
    fs::path source = fs::absolute(::testing::internal::GetArgvs().at(0)).parent_path() / ("TestModC" + Suffix());
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
    const std::string full = (planted / ("TestModPlanted" + Suffix())).string();
    ASSERT_LT(full.size(), 100u);
    p = CMLoadComponent(full.c_str(), &result);
    EXPECT_EQ(ERR_OK, result);
    if (result == ERR_OK) {
        EXPECT_STREQ(full.c_str(), p->pszName);
        EXPECT_EQ(ERR_OK, CMUnloadComponent(p));
    }
    std::error_code ec;
    fs::remove_all(planted, ec);
}

// Unload groups: dynamic non-system first, then static non-system, then system components; a
// module hears of its own unloading before its code goes away.
TEST_F(ModuleTest, UnloadGroups) {
    R().Behaviour("TestModA").cmpId = 0x7101;
    R().Behaviour("TestCmpA").cmpId = 0x7001;
    R().Behaviour("TestCmpB").cmpId = 0x7002;
    ASSERT_EQ(ERR_OK, Start({CmpB(1), CmpA(), {"TestModA", nullptr, 0}}));
    R().Reset();
    Stop();
    EXPECT_THAT(R().Trace("TestCmpB"), ::testing::EndsWith("B:15 B:24(TestModA) B:24(A) B:24(B)"));
    EXPECT_THAT(R().Trace("TestModA"), ::testing::EndsWith("TestModA:15 TestModA:24(TestModA)"));
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
