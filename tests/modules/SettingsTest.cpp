// Tests of CmpSettings reading: database names, the INI text it accepts,
// numbers, strings and wide strings with the length rule, and bad input
// (missing, empty, binary and malformed files), which must give clear log
// lines and defaults.
#include <string>
#include <vector>

#include "CmpSettingsItf.h"
#include "ModuleTestSupport.h"

using kestrel::test::EnterModule;
using kestrel::test::FakeCM;
using kestrel::test::LogRecorder;
using kestrel::test::TempDir;

namespace {

class SettingsTest : public ::testing::Test {
  protected:
    void SetUp() override {
        LogRecorder::Clear();
        cm_.Provide("LogAdd", &LogRecorder::LogAdd);
        EnterModule(cm_, CmpSettingsEntry, CMPID_CmpSettings);
    }
    // Writes the text as the database and opens it.
    void Open(const std::string &text) {
        std::string path = dir_.Write("db.cfg", text);
        ASSERT_EQ(SettgSetDatabaseName(path.c_str()), ERR_OK);
    }
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
    FakeCM cm_;
    TempDir dir_;
};

TEST_F(SettingsTest, DatabaseNameGetsCfgWhenItHasNoExtension) {
    std::string path = dir_.Write("plain.cfg", "[A]\nk=1\n");
    std::string base = path.substr(0, path.size() - 4);
    ASSERT_EQ(SettgSetDatabaseName(base.c_str()), ERR_OK);
    char name[512];
    ASSERT_EQ(SettgGetDatabaseName(name, sizeof(name)), ERR_OK);
    EXPECT_EQ(std::string(name), path);
    EXPECT_EQ(Int("A", "k", 0), 1);
    // An extension is kept as it is; a dot in a directory name is no extension.
    dir_.Write("other.ini", "[A]\nk=2\n");
    ASSERT_EQ(SettgSetDatabaseName(dir_.File("other.ini").c_str()), ERR_OK);
    EXPECT_EQ(Int("A", "k", 0), 2);
    std::filesystem::create_directories(dir_.Path() / "dir.d");
    dir_.Write("dir.d/inner.cfg", "[A]\nk=3\n");
    ASSERT_EQ(SettgSetDatabaseName(dir_.File("dir.d/inner").c_str()), ERR_OK);
    EXPECT_EQ(Int("A", "k", 0), 3);
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
    struct Row {
        const char *key;
        RTS_I32 expected;
        RTS_RESULT result;
    };
    const Row rows[] = {
        {"a", 17, ERR_OK},
        {"b", INT32_MIN, ERR_OK},
        {"c", 31, ERR_OK},
        {"d", -1, ERR_OK},
        {"e", 5, ERR_OK},
        {"big", -7, ERR_PARAMETER},
        {"hex9", -7, ERR_PARAMETER},
        {"word", -7, ERR_PARAMETER},
        {"trail", -7, ERR_PARAMETER},
        {"empty", -7, ERR_PARAMETER},
        {"hexonly", -7, ERR_PARAMETER},
        {"absent", -7, ERR_NO_OBJECT},
    };
    for (const Row &row : rows) {
        RTS_RESULT r = ERR_FAILED;
        EXPECT_EQ(Int("N", row.key, -7, &r), row.expected) << row.key;
        EXPECT_EQ(r, row.result) << row.key;
    }
    // Each unusable value was named in the log, with the default used.
    auto lines = LogRecorder::Containing("default -7 used");
    EXPECT_EQ(lines.size(), 6u);
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
    struct Row {
        int line;
        const char *what;
    };
    const Row rows[] = {{1, "before the first section"},
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
        EXPECT_NE(l.text.find("line " + std::to_string(rows[i].line) + " skipped"), std::string::npos) << l.text;
        EXPECT_NE(l.text.find(rows[i].what), std::string::npos) << l.text;
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

} // namespace
