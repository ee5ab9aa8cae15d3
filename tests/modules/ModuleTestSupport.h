// Shared helpers of the module tests: the entries of the statically linked
// module variants, a LogAdd stand-in that records lines, temporary
// directories, and a fixture that enters one module through FakeCM.
#pragma once

#include <algorithm>
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
RTS_RESULT SysMemEntry(ComponentInitStruct *pInit);
RTS_RESULT SysExceptEntry(ComponentInitStruct *pInit);
RTS_RESULT CmpEventMgrEntry(ComponentInitStruct *pInit);
RTS_RESULT CmpSettingsEntry(ComponentInitStruct *pInit);
RTS_RESULT CmpLogEntry(ComponentInitStruct *pInit);
// Test access of SysMem (not exported from the module).
RTS_RESULT SysMemGetAccount(const char *pszComponentName, RTS_SIZE *pBytes, RTS_SIZE *pBlocks);
}

namespace kestrel::test {

// A LogAdd for modules under test: records "<class> <text>" per line.
struct LogRecorder {
    static std::vector<std::string> &Lines() {
        static std::vector<std::string> s_lines;
        return s_lines;
    }
    static RTS_RESULT LogAdd(RTS_HANDLE, CMPID, RTS_UI32 ulClassId, RTS_RESULT, RTS_UI32, const char *pszInfo, ...) {
        char text[1024];
        va_list args;
        va_start(args, pszInfo);
        std::vsnprintf(text, sizeof(text), pszInfo, args);
        va_end(args);
        Lines().push_back(std::to_string(ulClassId) + " " + text);
        return ERR_OK;
    }
    // The number of lines that contain needle.
    static std::size_t Count(const std::string &needle) {
        return static_cast<std::size_t>(std::count_if(
            Lines().begin(), Lines().end(), [&](const std::string &l) { return l.find(needle) != std::string::npos; }));
    }
};

// A directory of its own for each test, removed afterwards.
class TempDir {
  public:
    TempDir() { std::filesystem::create_directories(path_); }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    std::string File(const std::string &name) const { return (path_ / name).string(); }
    std::string Write(const std::string &name, const std::string &contents) const {
        std::ofstream(File(name), std::ios::binary) << contents;
        return File(name);
    }
    static std::string Read(const std::string &path) {
        std::ifstream in(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    const std::filesystem::path &Path() const { return path_; }

  private:
    std::filesystem::path path_ =
        std::filesystem::temp_directory_path() /
        ("kestrel_" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
};

// Enters a module through the stand-in manager, collects its exports and
// resolves its imports (all optional: a runtime without a provider starts).
inline void EnterModule(FakeCM &cm, PF_COMPONENT_ENTRY entry) {
    ASSERT_EQ(cm.Enter(entry), ERR_OK);
    ASSERT_EQ(cm.CollectExports(), ERR_OK);
    ASSERT_EQ(cm.Import(), ERR_OK);
}

// Enters one module with LogAdd recorded; Provide() adds further imports.
template <PF_COMPONENT_ENTRY Entry> class ModuleTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LogRecorder::Lines().clear();
        cm_.Provide("LogAdd", &LogRecorder::LogAdd);
        Provide();
        EnterModule(cm_, Entry);
    }
    virtual void Provide() {}
    FakeCM cm_;
};

} // namespace kestrel::test
