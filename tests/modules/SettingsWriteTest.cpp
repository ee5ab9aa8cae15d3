// Tests of CmpSettings writing: changes keep comments, order and line
// endings; new keys and sections land where a person would put them; every
// write replaces the file atomically, so failures and crashes leave the old
// file whole.
#include <string>

#include "CmpSettingsItf.h"
#include "CmpSettingsTesting.h"
#include "ModuleTestSupport.h"

using kestrel::settings::SetNextWriteFault;
using kestrel::settings::WriteFault;
using kestrel::test::EnterModule;
using kestrel::test::FakeCM;
using kestrel::test::LogRecorder;
using kestrel::test::TempDir;

namespace {

class SettingsWriteTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LogRecorder::Clear();
        cm_.Provide("LogAdd", &LogRecorder::LogAdd);
        EnterModule(cm_, CmpSettingsEntry, CMPID_CmpSettings);
    }
    std::string Open(const std::string &text) {
        path_ = dir_.Write("KESTRELControl.cfg", text);
        EXPECT_EQ(SettgSetDatabaseName(path_.c_str()), ERR_OK);
        return path_;
    }
    std::string File() const { return TempDir::Read(path_); }
    FakeCM cm_;
    TempDir dir_;
    std::string path_;
};

const char kOriginal[] = "; top comment\n"
                         "[ComponentManager]\n"
                         "; which components\n"
                         "Component.0=CmpA   \n"
                         "OverloadableFunctions = 1\n"
                         "\n"
                         "[SysFile]\n"
                         "FilePath=./data/\n";

TEST_F(SettingsWriteTest, ChangeInPlaceKeepsEverythingElse) {
    Open(kOriginal);
    ASSERT_EQ(SettgSetStringValue("componentmanager", "OVERLOADABLEFUNCTIONS", "0"), ERR_OK);
    EXPECT_EQ(File(), "; top comment\n"
                      "[ComponentManager]\n"
                      "; which components\n"
                      "Component.0=CmpA   \n"
                      "OverloadableFunctions = 0\n"
                      "\n"
                      "[SysFile]\n"
                      "FilePath=./data/\n");
    RTS_I32 v = 7;
    SettgGetIntValue("ComponentManager", "OverloadableFunctions", &v, 7);
    EXPECT_EQ(v, 0);
}

TEST_F(SettingsWriteTest, NewKeysGoBehindTheirSectionNewSectionsAtTheEnd) {
    Open(kOriginal);
    ASSERT_EQ(SettgSetStringValue("ComponentManager", "Component.1", "CmpB"), ERR_OK);
    ASSERT_EQ(SettgSetIntValue("SysFileMap", "C:/Data/app.app", 0x1234), ERR_OK);
    EXPECT_EQ(File(), "; top comment\n"
                      "[ComponentManager]\n"
                      "; which components\n"
                      "Component.0=CmpA   \n"
                      "OverloadableFunctions = 1\n"
                      "Component.1=CmpB\n"
                      "\n"
                      "[SysFile]\n"
                      "FilePath=./data/\n"
                      "\n"
                      "[SysFileMap]\n"
                      "C:/Data/app.app=4660\n");
    // What was written reads back after loading the file again.
    ASSERT_EQ(SettgSetDatabaseName(path_.c_str()), ERR_OK);
    char buf[32];
    RTS_I32 len = sizeof(buf);
    ASSERT_EQ(SettgGetStringValue("ComponentManager", "Component.1", buf, &len, ""), ERR_OK);
    EXPECT_EQ(std::string(buf), "CmpB");
}

TEST_F(SettingsWriteTest, RemoveKeyDeletesOnlyThatLine) {
    Open(kOriginal);
    ASSERT_EQ(SettgRemoveKey("ComponentManager", "Component.0"), ERR_OK);
    EXPECT_EQ(SettgRemoveKey("ComponentManager", "Component.0"), ERR_NO_OBJECT);
    EXPECT_EQ(SettgRemoveKey("NoSuchSection", "x"), ERR_NO_OBJECT);
    EXPECT_EQ(File(), "; top comment\n"
                      "[ComponentManager]\n"
                      "; which components\n"
                      "OverloadableFunctions = 1\n"
                      "\n"
                      "[SysFile]\n"
                      "FilePath=./data/\n");
}

TEST_F(SettingsWriteTest, CrlfAndBomSurviveAWrite) {
    Open("\xEF\xBB\xBF[A]\r\nx=1\r\n");
    ASSERT_EQ(SettgSetStringValue("A", "y", "2"), ERR_OK);
    ASSERT_EQ(SettgSetStringValue("B", "z", "3"), ERR_OK);
    EXPECT_EQ(File(), "\xEF\xBB\xBF[A]\r\nx=1\r\ny=2\r\n\r\n[B]\r\nz=3\r\n");
}

TEST_F(SettingsWriteTest, RefusedValuesLeaveTheFileAlone) {
    Open(kOriginal);
    EXPECT_EQ(SettgSetStringValue("A", "k", "two\nlines"), ERR_PARAMETER);
    EXPECT_EQ(SettgSetStringValue("A", "k=v", "x"), ERR_PARAMETER);
    EXPECT_EQ(SettgSetStringValue("A", "", "x"), ERR_PARAMETER);
    EXPECT_EQ(SettgSetStringValue(nullptr, "k", "x"), ERR_PARAMETER);
    EXPECT_EQ(SettgSetStringValue("A", "k", nullptr), ERR_PARAMETER);
    EXPECT_EQ(File(), kOriginal);
    // Writing the value a key already has does not touch the file.
    EXPECT_EQ(SettgSetStringValue("SysFile", "FilePath", "./data/"), ERR_OK);
    EXPECT_EQ(File(), kOriginal);
}

TEST_F(SettingsWriteTest, FailedWritesLeaveTheOldFileAndTheOldValues) {
    Open(kOriginal);
    struct Row {
        WriteFault fault;
        RTS_RESULT result;
        bool tempLeft;
    };
    const Row rows[] = {
        {WriteFault::FailCreate, ERR_NO_ACCESS_RIGHTS, false},
        {WriteFault::DiskFull, ERR_DISK_FULL, false},
        {WriteFault::CrashBeforeRename, ERR_FAILED, true},
    };
    for (const Row &row : rows) {
        LogRecorder::Clear();
        SetNextWriteFault(row.fault);
        EXPECT_EQ(SettgSetStringValue("SysFile", "FilePath", "./new/"), row.result);
        EXPECT_EQ(File(), kOriginal) << "the old file stays whole";
        EXPECT_EQ(std::filesystem::exists(path_ + ".tmp"), row.tempLeft);
        char buf[32];
        RTS_I32 len = sizeof(buf);
        SettgGetStringValue("SysFile", "FilePath", buf, &len, "");
        EXPECT_EQ(std::string(buf), "./data/") << "memory follows the file";
        EXPECT_EQ(LogRecorder::Containing("Cannot write configuration").size(), 1u);
    }
    // After the "crash" the next write replaces the stale temporary file too.
    ASSERT_EQ(SettgSetStringValue("SysFile", "FilePath", "./new/"), ERR_OK);
    EXPECT_FALSE(std::filesystem::exists(path_ + ".tmp"));
    EXPECT_NE(File().find("FilePath=./new/\n"), std::string::npos);
}

TEST_F(SettingsWriteTest, FileDeletedBehindItsBackIsWrittenAnew) {
    Open("[A]\nx=1\n");
    std::filesystem::remove(path_);
    ASSERT_EQ(SettgSetStringValue("A", "x", "2"), ERR_OK) << "the file is written anew";
    EXPECT_EQ(File(), "[A]\nx=2\n");
}

TEST_F(SettingsWriteTest, ManyWritesKeepTheFileParseable) {
    Open(kOriginal);
    for (int i = 0; i < 50; ++i) {
        std::string key = "Key." + std::to_string(i % 7);
        ASSERT_EQ(SettgSetIntValue("Stress", key.c_str(), i), ERR_OK);
        if (i % 5 == 0)
            SettgRemoveKey("Stress", "Key.3");
    }
    LogRecorder::Clear();
    ASSERT_EQ(SettgSetDatabaseName(path_.c_str()), ERR_OK);
    EXPECT_TRUE(LogRecorder::Lines().empty()) << "no malformed line was written";
    RTS_I32 v = 0;
    SettgGetIntValue("Stress", "Key.6", &v, -1);
    EXPECT_EQ(v, 48);
    EXPECT_NE(File().find("; which components\n"), std::string::npos);
}

} // namespace
