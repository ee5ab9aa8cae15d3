// Tests of CmpSettings: database names, the INI text it reads (numbers,
// strings, wide strings, bad input with clear log lines and defaults), writes
// that keep comments, order and line endings and replace the file atomically
// (failures leave the old file whole), the INI document below it, and a run
// of its fuzz target over generated inputs (the libFuzzer build runs it longer).
#include <cstdint>
#include <string>
#include <vector>

#include "CmpSettingsItf.h"
#include "CmpSettingsTesting.h"
#include "IniDocument.h"
#include "ModuleTestSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

using namespace kestrel::test;
using kestrel::settings::IniDocument;
using kestrel::settings::IniProblem;
using kestrel::settings::SetNextWriteFault;
using kestrel::settings::WriteFault;

namespace {

class SettingsTest : public ModuleTest<CmpSettingsEntry, CMPID_CmpSettings> {
  protected:
    // Writes the text as the database and opens it.
    void Open(const std::string &text) {
        path_ = dir_.Write("KESTRELControl.cfg", text);
        ASSERT_EQ(SettgSetDatabaseName(path_.c_str()), ERR_OK);
    }
    std::string File() const { return TempDir::Read(path_); }
    static RTS_I32 Int(const char *section, const char *key, RTS_I32 def, RTS_RESULT *pResult = nullptr) {
        RTS_I32 v = 0;
        RTS_RESULT r = SettgGetIntValue(section, key, &v, def);
        if (pResult != nullptr)
            *pResult = r;
        return v;
    }
    static std::string Str(const char *section, const char *key, RTS_RESULT *pResult = nullptr) {
        char buf[256];
        RTS_I32 len = sizeof(buf);
        RTS_RESULT r = SettgGetStringValue(section, key, buf, &len, "<default>");
        if (pResult != nullptr)
            *pResult = r;
        return buf;
    }
    TempDir dir_;
    std::string path_;
};

TEST_F(SettingsTest, DatabaseNameGetsCfgWhenItHasNoExtension) {
    // An extension is kept as it is; a dot in a directory name is no extension.
    std::filesystem::create_directories(dir_.Path() / "dir.d");
    const std::pair<std::string, std::string> names[] = {
        {"plain", "plain.cfg"}, {"other.ini", "other.ini"}, {"dir.d/inner", "dir.d/inner.cfg"}};
    for (const auto &[name, file] : names) {
        std::string path = dir_.Write(file, "[A]\nk=" + name + "\n");
        ASSERT_EQ(SettgSetDatabaseName(dir_.File(name).c_str()), ERR_OK) << name;
        char used[512];
        ASSERT_EQ(SettgGetDatabaseName(used, sizeof(used)), ERR_OK);
        EXPECT_EQ(std::string(used), path);
        EXPECT_EQ(Str("A", "k"), name);
    }
    char small[4];
    EXPECT_EQ(SettgGetDatabaseName(small, sizeof(small)), ERR_BUFFERSIZE);
    EXPECT_EQ(std::string(small), dir_.File("dir.d/inner.cfg").substr(0, 3));
    EXPECT_EQ(SettgGetDatabaseName(nullptr, 10), ERR_PARAMETER);
}

TEST_F(SettingsTest, MissingFileFailsAndKeepsThePreviousDatabase) {
    Open("[Keep]\nx=5\n");
    EXPECT_EQ(SettgSetDatabaseName(dir_.File("missing").c_str()), ERR_NO_OBJECT);
    EXPECT_EQ(SettgSetDatabaseName(dir_.Path().string().c_str()), ERR_NO_OBJECT) << "a directory is no database";
    EXPECT_EQ(SettgSetDatabaseName(nullptr), ERR_PARAMETER);
    EXPECT_EQ(SettgSetDatabaseName(""), ERR_PARAMETER);
    EXPECT_EQ(Int("Keep", "x", 0), 5);
}

TEST_F(SettingsTest, ReadsCrlfBomCommentsAndIgnoresCase) {
    Open("\xEF\xBB\xBF; comment\r\n[Section One]\r\n  Key = value with spaces  \r\n# other comment\r\n"
         "Path=C:/Data/, *.app; *.crc\r\nEmpty=\r\n[second]\r\nNum=42\r\n");
    EXPECT_EQ(Str("Section One", "Key"), "value with spaces");
    EXPECT_EQ(Str("section one", "KEY"), "value with spaces");
    EXPECT_EQ(Str("Section One", "Path"), "C:/Data/, *.app; *.crc") << "a ';' inside a value is kept";
    RTS_RESULT r = ERR_FAILED;
    EXPECT_EQ(Str("Section One", "Empty", &r), "");
    EXPECT_EQ(r, ERR_OK);
    EXPECT_EQ(Int("SECOND", "num", 0), 42);
    EXPECT_TRUE(LogRecorder::Lines().empty()) << "a clean file gives no line";
}

TEST_F(SettingsTest, IntegersDecimalHexAndBadValues) {
    Open("[N]\na=17\nb=-2147483648\nc=0x1F\nd=0XFFFFFFFF\ne=+5\nbig=2147483648\nhex9=0x100000000\n"
         "word=twelve\ntrail=12 ; note\nempty=\nhexonly=0x\n");
    auto expect = [](const char *key, RTS_I32 value, RTS_RESULT result) {
        RTS_RESULT r = ERR_FAILED;
        EXPECT_EQ(Int("N", key, -7, &r), value) << key;
        EXPECT_EQ(r, result) << key;
    };
    for (auto [key, value] :
         {std::pair<const char *, RTS_I32>{"a", 17}, {"b", INT32_MIN}, {"c", 31}, {"d", -1}, {"e", 5}})
        expect(key, value, ERR_OK);
    for (const char *key : {"big", "hex9", "word", "trail", "empty", "hexonly"})
        expect(key, -7, ERR_PARAMETER);
    expect("absent", -7, ERR_NO_OBJECT);
    // Each unusable value was named in the log, with the default used.
    EXPECT_EQ(LogRecorder::Containing("default -7 used").size(), 6u);
    EXPECT_EQ(LogRecorder::Containing("[N] word=twelve").size(), 1u);
    RTS_I32 v = 0;
    EXPECT_EQ(SettgGetIntValue(nullptr, "a", &v, 3), ERR_PARAMETER);
    EXPECT_EQ(v, 3);
    EXPECT_EQ(SettgGetIntValue("N", "a", nullptr, 3), ERR_PARAMETER);
}

TEST_F(SettingsTest, StringLengthRule) {
    Open("[S]\nv=hello\n");
    char buf[16];
    RTS_I32 len = 6; // exactly value plus terminator
    EXPECT_EQ(SettgGetStringValue("S", "v", buf, &len, ""), ERR_OK);
    EXPECT_EQ(std::string(buf), "hello");
    EXPECT_EQ(len, 6);
    len = 4;
    EXPECT_EQ(SettgGetStringValue("S", "v", buf, &len, ""), ERR_BUFFERSIZE);
    EXPECT_EQ(std::string(buf), "hel");
    EXPECT_EQ(len, 6) << "the needed size comes back";
    len = 16;
    EXPECT_EQ(SettgGetStringValue("S", "missing", buf, &len, "dflt"), ERR_NO_OBJECT);
    EXPECT_EQ(std::string(buf), "dflt");
    EXPECT_EQ(len, 5);
    len = 16;
    EXPECT_EQ(SettgGetStringValue("S", "missing", buf, &len, nullptr), ERR_NO_OBJECT);
    EXPECT_EQ(std::string(buf), "");
    // A null buffer only tests for existence.
    EXPECT_EQ(SettgGetStringValue("S", "v", nullptr, nullptr, nullptr), ERR_OK);
    len = 0;
    EXPECT_EQ(SettgGetStringValue("S", "v", nullptr, &len, nullptr), ERR_OK);
    EXPECT_EQ(len, 6);
    EXPECT_EQ(SettgGetStringValue("S", "nope", nullptr, nullptr, nullptr), ERR_NO_OBJECT);
    EXPECT_EQ(SettgGetStringValue("S", "v", buf, nullptr, ""), ERR_PARAMETER);
    EXPECT_EQ(SettgGetStringValue(nullptr, "v", buf, &len, ""), ERR_PARAMETER);
}

TEST_F(SettingsTest, WideStringsAreUtf16) {
    Open("[SysTarget]\nNodeNameUnicode=Z\xC3\xBCrich \xE2\x82\xAC \xF0\x9F\x98\x80\nBad=a\xFF"
         "b\xC3\n");
    RTS_WCHAR buf[32];
    RTS_I32 len = 32;
    ASSERT_EQ(SettgGetWStringValue("SysTarget", "NodeNameUnicode", buf, &len, nullptr), ERR_OK);
    const std::vector<RTS_WCHAR> expected = {'Z', 0xFC, 'r', 'i', 'c', 'h', ' ', 0x20AC, ' ', 0xD83D, 0xDE00, 0};
    EXPECT_EQ(std::vector<RTS_WCHAR>(buf, buf + expected.size()), expected);
    EXPECT_EQ(len, 12);
    // A cut never leaves half a surrogate pair.
    len = 11;
    EXPECT_EQ(SettgGetWStringValue("SysTarget", "NodeNameUnicode", buf, &len, nullptr), ERR_BUFFERSIZE);
    EXPECT_EQ(buf[9], 0);
    len = 32;
    ASSERT_EQ(SettgGetWStringValue("SysTarget", "Bad", buf, &len, nullptr), ERR_OK);
    EXPECT_EQ(std::vector<RTS_WCHAR>(buf, buf + 5), (std::vector<RTS_WCHAR>{'a', 0xFFFD, 'b', 0xFFFD, 0}));
    const RTS_WCHAR def[] = {'d', 0};
    len = 32;
    EXPECT_EQ(SettgGetWStringValue("SysTarget", "None", buf, &len, def), ERR_NO_OBJECT);
    EXPECT_EQ(buf[0], 'd');
    EXPECT_EQ(buf[1], 0);
    EXPECT_EQ(SettgGetWStringValue("SysTarget", "Bad", nullptr, nullptr, nullptr), ERR_OK);
}

TEST_F(SettingsTest, EmptyFileGivesDefaults) {
    Open("");
    EXPECT_EQ(Int("ComponentManager", "MinimalCommCycleHookInterval", 250), 250);
    EXPECT_TRUE(LogRecorder::Lines().empty());
}

TEST_F(SettingsTest, MalformedLinesAreReportedWithTheirNumbersAndSkipped) {
    Open("orphan=1\n"           // 1: before any section
         "[Good]\n"             // 2
         "a=1\n"                // 3
         "just some words\n"    // 4: no '='
         "=value without key\n" // 5
         "[Broken\n"            // 6: no ']'
         "b=2\n"                // 7: still in [Good]
         "[]\n"                 // 8: no name
         "[Ok] trailing\n"      // 9: text after the header
         "a=3\n"                // 10: repeated key, first counts
         "c=\x01\x02\n"         // 11: control characters
         "[Unknown Section]\n"  // 12: fine, nobody reads it
         "whatever=1\n");       // 13
    const std::pair<int, const char *> rows[] = {{1, "before the first section"},
                                                 {4, "neither a section"},
                                                 {5, "without a key"},
                                                 {6, "without closing"},
                                                 {8, "without a name"},
                                                 {9, "text after the section header"},
                                                 {10, "repeated"},
                                                 {11, "control characters"}};
    ASSERT_EQ(LogRecorder::Lines().size(), std::size(rows));
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const auto &l = LogRecorder::Lines()[i];
        EXPECT_NE(l.text.find("line " + std::to_string(rows[i].first) + " skipped"), std::string::npos) << l.text;
        EXPECT_NE(l.text.find(rows[i].second), std::string::npos) << l.text;
        EXPECT_EQ(l.classId, LOG_WARNING);
        EXPECT_EQ(l.cmpId, CMPID_CmpSettings);
    }
    EXPECT_EQ(Int("Good", "a", 0), 1);
    EXPECT_EQ(Int("Good", "b", 0), 2);
    EXPECT_EQ(Int("Good", "c", 9), 9);
    EXPECT_EQ(Int("Good", "orphan", 9), 9);
}

TEST_F(SettingsTest, BinaryFileIsSurvivedWithABoundedReport) {
    std::string junk;
    unsigned state = 12345;
    for (int i = 0; i < 20000; ++i) {
        state = state * 1103515245u + 12345u;
        junk.push_back(static_cast<char>(state >> 16));
    }
    Open(junk);
    EXPECT_LE(LogRecorder::Lines().size(), 21u) << "at most 20 lines and a summary";
    EXPECT_FALSE(LogRecorder::Containing("more problems not listed").empty());
    EXPECT_EQ(Int("ComponentManager", "DisablingOperations", 1), 1);
}

TEST_F(SettingsTest, OptionsAcceptOnlyTheSplitBit) {
    EXPECT_EQ(SettgSetOptions(0), ERR_OK);
    EXPECT_EQ(SettgSetOptions(SETTG_OPT_SPLIT_DATABASES), ERR_OK);
    EXPECT_EQ(SettgSetOptions(0x80), ERR_PARAMETER);
}

const char kOriginal[] = "; top comment\n"
                         "[ComponentManager]\n"
                         "; which components\n"
                         "Component.0=CmpA   \n"
                         "OverloadableFunctions = 1\n"
                         "\n"
                         "[SysFile]\n"
                         "FilePath=./data/\n";

// kOriginal with the first occurrence of from replaced by to.
std::string Edited(const std::string &from, const std::string &to) {
    std::string text = kOriginal;
    return text.replace(text.find(from), from.size(), to);
}

TEST_F(SettingsTest, ChangeInPlaceKeepsEverythingElse) {
    Open(kOriginal);
    ASSERT_EQ(SettgSetStringValue("componentmanager", "OVERLOADABLEFUNCTIONS", "0"), ERR_OK);
    EXPECT_EQ(File(), Edited("OverloadableFunctions = 1\n", "OverloadableFunctions = 0\n"));
    EXPECT_EQ(Int("ComponentManager", "OverloadableFunctions", 7), 0);
}

TEST_F(SettingsTest, NewKeysGoBehindTheirSectionNewSectionsAtTheEnd) {
    Open(kOriginal);
    ASSERT_EQ(SettgSetStringValue("ComponentManager", "Component.1", "CmpB"), ERR_OK);
    ASSERT_EQ(SettgSetIntValue("SysFileMap", "C:/Data/app.app", 0x1234), ERR_OK);
    EXPECT_EQ(File(), Edited("OverloadableFunctions = 1\n", "OverloadableFunctions = 1\nComponent.1=CmpB\n") +
                          "\n[SysFileMap]\nC:/Data/app.app=4660\n");
    // What was written reads back after loading the file again.
    ASSERT_EQ(SettgSetDatabaseName(path_.c_str()), ERR_OK);
    RTS_RESULT r = ERR_FAILED;
    EXPECT_EQ(Str("ComponentManager", "Component.1", &r), "CmpB");
    EXPECT_EQ(r, ERR_OK);
}

TEST_F(SettingsTest, RemoveKeyDeletesOnlyThatLine) {
    Open(kOriginal);
    ASSERT_EQ(SettgRemoveKey("ComponentManager", "Component.0"), ERR_OK);
    EXPECT_EQ(SettgRemoveKey("ComponentManager", "Component.0"), ERR_NO_OBJECT);
    EXPECT_EQ(SettgRemoveKey("NoSuchSection", "x"), ERR_NO_OBJECT);
    EXPECT_EQ(File(), Edited("Component.0=CmpA   \n", ""));
}

TEST_F(SettingsTest, CrlfAndBomSurviveAWrite) {
    Open("\xEF\xBB\xBF[A]\r\nx=1\r\n");
    ASSERT_EQ(SettgSetStringValue("A", "y", "2"), ERR_OK);
    ASSERT_EQ(SettgSetStringValue("B", "z", "3"), ERR_OK);
    EXPECT_EQ(File(), "\xEF\xBB\xBF[A]\r\nx=1\r\ny=2\r\n\r\n[B]\r\nz=3\r\n");
}

TEST_F(SettingsTest, RefusedValuesLeaveTheFileAlone) {
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

TEST_F(SettingsTest, FailedWritesLeaveTheOldFileAndTheOldValues) {
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
        EXPECT_EQ(Str("SysFile", "FilePath"), "./data/") << "memory follows the file";
        EXPECT_EQ(LogRecorder::Containing("Cannot write configuration").size(), 1u);
    }
    // After the "crash" the next write replaces the stale temporary file too.
    ASSERT_EQ(SettgSetStringValue("SysFile", "FilePath", "./new/"), ERR_OK);
    EXPECT_FALSE(std::filesystem::exists(path_ + ".tmp"));
    EXPECT_NE(File().find("FilePath=./new/\n"), std::string::npos);
}

TEST_F(SettingsTest, FileDeletedBehindItsBackIsWrittenAnew) {
    Open("[A]\nx=1\n");
    std::filesystem::remove(path_);
    ASSERT_EQ(SettgSetStringValue("A", "x", "2"), ERR_OK) << "the file is written anew";
    EXPECT_EQ(File(), "[A]\nx=2\n");
}

TEST_F(SettingsTest, ManyWritesKeepTheFileParseable) {
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
    EXPECT_EQ(Int("Stress", "Key.6", -1), 48);
    EXPECT_NE(File().find("; which components\n"), std::string::npos);
}

TEST(IniDocument, UnchangedDocumentWritesBackItsExactText) {
    const std::string texts[] = {
        "",
        "\n",
        "[A]\nx=1",
        "[A]\r\nx=1\nY = 2 \r\n",
        "\xEF\xBB\xBF;c\n[S]\n\n\n",
        "garbage\x01line\n[A]\nk=v\r",
        "[A]\n=\n[\n]\nk",
    };
    for (const std::string &t : texts) {
        IniDocument doc;
        doc.Parse(t, nullptr);
        EXPECT_EQ(doc.Serialize(), t);
    }
}

TEST(IniDocument, MixedLineEndingsAreKeptPerLine) {
    IniDocument doc;
    doc.Parse("[A]\r\nx=1\ny=2\r\n", nullptr);
    ASSERT_TRUE(doc.Set("A", "y", "3"));
    ASSERT_TRUE(doc.Set("A", "z", "4"));
    EXPECT_EQ(doc.Serialize(), "[A]\r\nx=1\ny=3\r\nz=4\r\n");
}

TEST(IniDocument, MissingFinalLineBreakIsAddedOnlyWhenLinesAreAdded) {
    IniDocument doc;
    doc.Parse("[A]\nx=1", nullptr);
    ASSERT_TRUE(doc.Set("A", "x", "2"));
    EXPECT_EQ(doc.Serialize(), "[A]\nx=2");
    ASSERT_TRUE(doc.Set("A", "y", "3"));
    EXPECT_EQ(doc.Serialize(), "[A]\nx=2\ny=3\n");
}

TEST(IniDocument, RepeatedSectionsMergeAndNewKeysGoToTheLastBlock) {
    IniDocument doc;
    std::vector<IniProblem> problems;
    doc.Parse("[A]\na=1\n[B]\nb=1\n[a]\nc=1\n[B]\n", &problems);
    EXPECT_TRUE(problems.empty());
    ASSERT_NE(doc.Find("A", "c"), nullptr);
    ASSERT_TRUE(doc.Set("A", "d", "1"));
    EXPECT_EQ(doc.Serialize(), "[A]\na=1\n[B]\nb=1\n[a]\nc=1\nd=1\n[B]\n");
    ASSERT_TRUE(doc.Remove("a", "A"));
    EXPECT_EQ(doc.Find("A", "a"), nullptr);
}

TEST(IniDocument, RemovesEveryCopyOfARepeatedKey) {
    IniDocument doc;
    std::vector<IniProblem> problems;
    doc.Parse("[A]\nk=1\nk=2\n", &problems);
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(problems[0].line, 3u);
    EXPECT_EQ(*doc.Find("A", "k"), "1");
    ASSERT_TRUE(doc.Remove("A", "k"));
    EXPECT_EQ(doc.Serialize(), "[A]\n");
    EXPECT_FALSE(doc.Remove("A", "k"));
}

TEST(IniDocument, FuzzTargetOverGeneratedInputs) {
    // Fragments of real and broken configuration text, combined at random.
    const char *fragments[] = {
        "[",    "]",  "[Sec]", "[sec]", "key",          "=",    "value", ";",          "#",  "\n",
        "\r\n", "\r", " ",     "\t",    "\xEF\xBB\xBF", "\x00", "\xFF",  "[A]\nk=v\n", "=x", "Component.0=Cmp"};
    std::uint32_t state = 2463534242u;
    auto next = [&state] {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        return state;
    };
    for (int run = 0; run < 3000; ++run) {
        std::string input;
        int pieces = static_cast<int>(next() % 40);
        for (int i = 0; i < pieces; ++i) {
            std::uint32_t pick = next() % (std::size(fragments) + 1);
            if (pick == std::size(fragments))
                input.push_back(static_cast<char>(next() & 0xFF));
            else if (fragments[pick][0] == '\0')
                input.push_back('\0');
            else
                input += fragments[pick];
        }
        ASSERT_EQ(LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.data()), input.size()), 0);
    }
}

} // namespace
