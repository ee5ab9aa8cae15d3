// Shared helpers of the module tests: the entries of the statically linked
// module variants, a LogAdd stand-in that records lines, temporary
// directories, and a fixture that enters one module through FakeCM.
#pragma once

#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CmpLogItf.h"
#include "FakeCM.h"

extern "C" {
RTS_RESULT SysTimeEntry(ComponentInitStruct *pInit);
RTS_RESULT SysTimeRtcEntry(ComponentInitStruct *pInit);
RTS_RESULT SysOutEntry(ComponentInitStruct *pInit);
RTS_RESULT SysCpuHandlingEntry(ComponentInitStruct *pInit);
RTS_RESULT SysIntEntry(ComponentInitStruct *pInit);
RTS_RESULT SysSemEntry(ComponentInitStruct *pInit);
RTS_RESULT SysMemEntry(ComponentInitStruct *pInit);
RTS_RESULT SysExceptEntry(ComponentInitStruct *pInit);
RTS_RESULT CmpChecksumEntry(ComponentInitStruct *pInit);
RTS_RESULT CmpEventMgrEntry(ComponentInitStruct *pInit);
RTS_RESULT CmpSettingsEntry(ComponentInitStruct *pInit);
RTS_RESULT CmpLogEntry(ComponentInitStruct *pInit);
// Test access of SysMem (not exported from the module).
RTS_RESULT SysMemGetAccount(const char *pszComponentName, RTS_SIZE *pBytes, RTS_SIZE *pBlocks);
}

namespace kestrel::test {

// One recorded LogAdd call.
struct LoggedLine {
    CMPID cmpId;
    RTS_UI32 classId;
    RTS_RESULT errorId;
    RTS_UI32 infoId;
    std::string text;
};

// A LogAdd for modules under test: records every line.
class LogRecorder {
  public:
    static std::vector<LoggedLine> &Lines() {
        static std::vector<LoggedLine> s_lines;
        return s_lines;
    }
    static void Clear() { Lines().clear(); }
    static RTS_RESULT LogAdd(RTS_HANDLE, CMPID cmpId, RTS_UI32 ulClassId, RTS_RESULT errorId, RTS_UI32 ulInfoId,
                             const char *pszInfo, ...) {
        char text[1024];
        va_list args;
        va_start(args, pszInfo);
        std::vsnprintf(text, sizeof(text), pszInfo, args);
        va_end(args);
        Lines().push_back(LoggedLine{cmpId, ulClassId, errorId, ulInfoId, text});
        return ERR_OK;
    }
    // Lines whose text contains needle.
    static std::vector<LoggedLine> Containing(const std::string &needle) {
        std::vector<LoggedLine> found;
        for (const LoggedLine &l : Lines()) {
            if (l.text.find(needle) != std::string::npos)
                found.push_back(l);
        }
        return found;
    }
};

// A directory of its own for each test, removed afterwards.
class TempDir {
  public:
    TempDir() {
        static int s_counter = 0;
        auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
        path_ = std::filesystem::temp_directory_path() /
                ("kestrel_" + std::to_string(stamp) + "_" + std::to_string(++s_counter));
        std::filesystem::create_directories(path_);
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;

    std::string File(const std::string &name) const { return (path_ / name).string(); }
    std::string Write(const std::string &name, const std::string &contents) const {
        std::string p = File(name);
        std::ofstream(p, std::ios::binary) << contents;
        return p;
    }
    static std::string Read(const std::string &path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    const std::filesystem::path &Path() const { return path_; }

  private:
    std::filesystem::path path_;
};

// Enters a module through the stand-in manager and collects its exports.
inline void EnterModule(FakeCM &cm, PF_COMPONENT_ENTRY entry, CMPID expectedId) {
    ASSERT_EQ(cm.Enter(entry), ERR_OK);
    EXPECT_EQ(cm.Init().CmpId, expectedId);
    ASSERT_NE(cm.Init().pfExportFunctions, nullptr);
    ASSERT_EQ(cm.CollectExports(), ERR_OK);
    // Every import is optional: a runtime without the provider still starts.
    ASSERT_EQ(cm.Import(), ERR_OK);
    ASSERT_NE(cm.Init().pfGetVersion, nullptr);
    EXPECT_EQ(cm.Init().pfGetVersion(), RTS_SYSTEM_VERSION);
}

// The C names a module registered, sorted and separated by blanks.
inline std::string ExportNames(const FakeCM &cm) {
    std::string names;
    for (const auto &[name, row] : cm.Exports()) {
        names += (names.empty() ? "" : " ") + name;
        EXPECT_EQ(row.ulSignature, 0u) << name;
        EXPECT_EQ(row.ulVersion, 0u) << name;
        EXPECT_NE(row.pfFunction, nullptr) << name;
    }
    return names;
}

// Enters one module with LogAdd recorded; Provide() adds further imports.
template <PF_COMPONENT_ENTRY Entry, CMPID Id> class ModuleTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LogRecorder::Clear();
        cm_.Provide("LogAdd", &LogRecorder::LogAdd);
        Provide();
        EnterModule(cm_, Entry, Id);
    }
    virtual void Provide() {}
    FakeCM cm_;
};

} // namespace kestrel::test
