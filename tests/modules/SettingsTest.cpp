// Tests of CmpSettings: database names, reading INI text (bad input gives
// clear lines and defaults), writes that keep the text around them and
// replace the file atomically, and a run of the INI document's fuzz target.
#include <cstdint>
#include <random>
#include <tuple>

#include "CmpSettingsItf.h"
#include "CmpSettingsTesting.h"
#include "IniDocument.h"
#include "ModuleTestSupport.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

using namespace kestrel::test;
using kestrel::settings::SetNextWriteFault;
using kestrel::settings::WriteFault;

namespace {

class SettingsTest : public ModuleTest<CmpSettingsEntry> {
  protected:
    // Writes the text as the database and opens it.
    void Open(const std::string &text) {
        path_ = dir_.Write("KESTRELControl.cfg", text);
        ASSERT_EQ(SettgSetDatabaseName(path_.c_str()), ERR_OK);
    }
    std::string File() const { return TempDir::Read(path_); }
    // Value and result of an integer read with a default.
    static std::pair<RTS_I32, RTS_RESULT> Int(const char *section, const char *key, RTS_I32 def) {
        RTS_I32 v = 0;
        RTS_RESULT r = SettgGetIntValue(section, key, &v, def);
        return {v, r};
    }
    // Result, text and length of a string read into a buffer of len bytes.
    static std::tuple<RTS_RESULT, std::string, RTS_I32> Str(const char *section, const char *key, RTS_I32 len = 64,
                                                            const char *def = "<default>") {
        char buf[64] = "?";
        RTS_RESULT r = SettgGetStringValue(section, key, buf, &len, def);
        return {r, buf, len};
    }
    static std::string Text(const char *section, const char *key) { return std::get<1>(Str(section, key)); }
    TempDir dir_;
    std::string path_;
};

// ".cfg" goes to a name without extension (a dot in a directory is none);
// a missing file, a directory or no name fail and keep the database.
TEST_F(SettingsTest, DatabaseNameGetsCfgWhenItHasNoExtension) {
    std::filesystem::create_directories(dir_.Path() / "dir.d");
    const std::pair<std::string, std::string> names[] = {
        {"plain", "plain.cfg"}, {"other.ini", "other.ini"}, {"dir.d/inner", "dir.d/inner.cfg"}};
    char used[512];
    for (const auto &[name, file] : names) {
        std::string path = dir_.Write(file, "[A]\nk=" + name + "\n");
        ASSERT_EQ(SettgSetDatabaseName(dir_.File(name).c_str()), ERR_OK) << name;
        ASSERT_EQ(SettgGetDatabaseName(used, sizeof(used)), ERR_OK);
        EXPECT_EQ(std::string(used), path);
        EXPECT_EQ(Text("A", "k"), name);
    }
    EXPECT_EQ(SettgSetDatabaseName(dir_.File("missing").c_str()), ERR_NO_OBJECT);
    EXPECT_EQ(SettgSetDatabaseName(dir_.Path().string().c_str()), ERR_NO_OBJECT) << "a directory is no database";
    EXPECT_EQ(SettgSetDatabaseName(nullptr), ERR_PARAMETER);
    EXPECT_EQ(SettgSetDatabaseName(""), ERR_PARAMETER);
    EXPECT_EQ(Text("A", "k"), "dir.d/inner");
    EXPECT_EQ(SettgGetDatabaseName(used, 4), ERR_BUFFERSIZE);
    EXPECT_EQ(std::string(used), dir_.File("dir.d/inner.cfg").substr(0, 3));
    EXPECT_EQ(SettgGetDatabaseName(nullptr, 10), ERR_PARAMETER);
    EXPECT_EQ(SettgSetOptions(SETTG_OPT_SPLIT_DATABASES), ERR_OK);
    EXPECT_EQ(SettgSetOptions(0x80), ERR_PARAMETER) << "only the split bit is known";
}

// BOM, CRLF, comments, blanks and the case of names do not matter; a ';'
// inside a value is kept; a clean file logs nothing.
TEST_F(SettingsTest, ReadsCrlfBomCommentsAndIgnoresCase) {
    Open("\xEF\xBB\xBF; comment\r\n[Section One]\r\n  Key = value with spaces  \r\n# other comment\r\n"
         "Path=C:/Data/, *.app; *.crc\r\nEmpty=\r\n");
    EXPECT_EQ(Text("section one", "KEY"), "value with spaces");
    EXPECT_EQ(Text("Section One", "Path"), "C:/Data/, *.app; *.crc");
    EXPECT_EQ(Str("Section One", "Empty"), std::tuple(ERR_OK, std::string(), 1));
    EXPECT_TRUE(LogRecorder::Lines().empty());
}

// Decimal and 0x hexadecimal within 32 bits; anything else: the default,
// ERR_PARAMETER and a line naming the value.
TEST_F(SettingsTest, IntegersDecimalHexAndBadValues) {
    Open("[N]\na=17\nb=-2147483648\nc=0x1F\nd=0XFFFFFFFF\ne=+5\nbig=2147483648\nhex9=0x100000000\n"
         "word=twelve\ntrail=12 ; note\nhexonly=0x\n");
    for (auto [key, value] :
         {std::pair<const char *, RTS_I32>{"a", 17}, {"b", INT32_MIN}, {"c", 31}, {"d", -1}, {"e", 5}})
        EXPECT_EQ(Int("N", key, -7), std::pair(value, ERR_OK)) << key;
    for (const char *key : {"big", "hex9", "word", "trail", "hexonly"})
        EXPECT_EQ(Int("N", key, -7), std::pair(-7, ERR_PARAMETER)) << key;
    EXPECT_EQ(Int("N", "absent", -7), std::pair(-7, ERR_NO_OBJECT));
    EXPECT_EQ(LogRecorder::Count("default -7 used"), 5u);
    EXPECT_EQ(LogRecorder::Count("2 Setting [N] word=twelve is no 32-bit number"), 1u);
    RTS_I32 v = 0;
    EXPECT_EQ(SettgGetIntValue(nullptr, "a", &v, 3), ERR_PARAMETER);
    EXPECT_EQ(v, 3);
    EXPECT_EQ(SettgGetIntValue("N", "a", nullptr, 3), ERR_PARAMETER);
}

// Length in/out: the needed size comes back, a short buffer gets a cut text,
// a missing key the default; no buffer only asks whether the key exists.
TEST_F(SettingsTest, StringLengthRule) {
    Open("[S]\nv=hello\n");
    EXPECT_EQ(Str("S", "v", 6), std::tuple(ERR_OK, std::string("hello"), 6));
    EXPECT_EQ(Str("S", "v", 4), std::tuple(ERR_BUFFERSIZE, std::string("hel"), 6));
    EXPECT_EQ(Str("S", "missing", 16, "dflt"), std::tuple(ERR_NO_OBJECT, std::string("dflt"), 5));
    EXPECT_EQ(Str("S", "missing", 16, nullptr), std::tuple(ERR_NO_OBJECT, std::string(), 1));
    EXPECT_EQ(std::get<0>(Str(nullptr, "v")), ERR_PARAMETER);
    RTS_I32 len = 0;
    EXPECT_EQ(SettgGetStringValue("S", "v", nullptr, nullptr, nullptr), ERR_OK);
    EXPECT_EQ(SettgGetStringValue("S", "v", nullptr, &len, nullptr), ERR_OK);
    EXPECT_EQ(len, 6);
    EXPECT_EQ(SettgGetStringValue("S", "nope", nullptr, nullptr, nullptr), ERR_NO_OBJECT);
    char buf[8];
    EXPECT_EQ(SettgGetStringValue("S", "v", buf, nullptr, ""), ERR_PARAMETER);
}

// UTF-8 comes out as UTF-16 with surrogate pairs that a cut never splits;
// malformed bytes become U+FFFD; a missing key gets the default.
TEST_F(SettingsTest, WideStringsAreUtf16) {
    Open("[SysTarget]\nNodeNameUnicode=Z\xC3\xBCrich \xE2\x82\xAC \xF0\x9F\x98\x80\nBad=a\xFF"
         "b\xC3\n");
    auto wide = [](const char *key, RTS_I32 len, const RTS_WCHAR *def = nullptr) {
        RTS_WCHAR buf[32];
        RTS_RESULT r = SettgGetWStringValue("SysTarget", key, buf, &len, def);
        std::u16string text;
        for (const RTS_WCHAR *p = buf; *p != 0; ++p)
            text += static_cast<char16_t>(*p);
        return std::tuple(r, text, len);
    };
    EXPECT_EQ(wide("NodeNameUnicode", 32), std::tuple(ERR_OK, std::u16string(u"Z\u00FCrich \u20AC \U0001F600"), 12));
    EXPECT_EQ(wide("NodeNameUnicode", 11), std::tuple(ERR_BUFFERSIZE, std::u16string(u"Z\u00FCrich \u20AC "), 12));
    EXPECT_EQ(wide("Bad", 32), std::tuple(ERR_OK, std::u16string(u"a\uFFFDb\uFFFD"), 5));
    const RTS_WCHAR def[] = {'d', 0};
    EXPECT_EQ(wide("None", 32, def), std::tuple(ERR_NO_OBJECT, std::u16string(u"d"), 2));
    EXPECT_EQ(SettgGetWStringValue("SysTarget", "Bad", nullptr, nullptr, nullptr), ERR_OK);
}

// Each malformed line is a warning with its number and is skipped ("b" is
// still in [Good]); a repeated key: the first counts, a removal takes both.
TEST_F(SettingsTest, MalformedLinesAreReportedWithTheirNumbersAndSkipped) {
    Open("orphan=1\n[Good]\na=1\njust some words\n=value without key\n[Broken\nb=2\n[]\n[Ok] trailing\na=3\n"
         "c=\x01\x02\n[Unknown Section]\nwhatever=1\n");
    const char *const expected[] = {"line 1 skipped: key=value pair before the first section",
                                    "line 4 skipped: neither a section",
                                    "line 5 skipped: key=value pair without a key",
                                    "line 6 skipped: section header without closing",
                                    "line 8 skipped: section header without a name",
                                    "line 9 skipped: text after the section header",
                                    "line 10 skipped: key \"a\" repeated",
                                    "line 11 skipped: control characters"};
    ASSERT_EQ(LogRecorder::Lines().size(), std::size(expected));
    for (std::size_t i = 0; i < std::size(expected); ++i)
        EXPECT_NE(LogRecorder::Lines()[i].find(expected[i]), std::string::npos) << LogRecorder::Lines()[i];
    EXPECT_EQ(LogRecorder::Count("2 Configuration"), std::size(expected)) << "all warnings";
    EXPECT_EQ(std::pair(Int("Good", "a", 0).first, Int("Good", "b", 0).first), std::pair(1, 2));
    EXPECT_EQ(std::pair(Int("Good", "c", 9).first, Int("Good", "orphan", 9).first), std::pair(9, 9)) << "skipped";
    ASSERT_EQ(SettgRemoveKey("Good", "a"), ERR_OK);
    EXPECT_EQ(Int("Good", "a", 9).first, 9);
}

// Random bytes: at most 20 problem lines and a summary, then the defaults.
TEST_F(SettingsTest, BinaryFileIsSurvivedWithABoundedReport) {
    std::mt19937 random(12345);
    std::string junk(20000, '\0');
    for (char &c : junk)
        c = static_cast<char>(random());
    Open(junk);
    EXPECT_LE(LogRecorder::Lines().size(), 21u);
    EXPECT_EQ(LogRecorder::Count("more problems not listed"), 1u);
    EXPECT_EQ(Int("ComponentManager", "DisablingOperations", 1), std::pair(1, ERR_NO_OBJECT));
}

const char kOriginal[] = "; top comment\n[ComponentManager]\n; which components\nComponent.0=CmpA   \n"
                         "OverloadableFunctions = 1\n\n[SysFile]\nFilePath=./data/\n";

// Changes keep the blanks around '=', new keys follow their section, new
// sections the end, removals take one line; the rest stays and reads back.
TEST_F(SettingsTest, WritesKeepCommentsAndOrder) {
    Open(kOriginal);
    ASSERT_EQ(SettgSetStringValue("componentmanager", "OVERLOADABLEFUNCTIONS", "0"), ERR_OK);
    EXPECT_EQ(Int("ComponentManager", "OverloadableFunctions", 7), std::pair(0, ERR_OK));
    ASSERT_EQ(SettgSetStringValue("ComponentManager", "Component.1", "CmpB"), ERR_OK);
    ASSERT_EQ(SettgSetIntValue("SysFileMap", "C:/Data/app.app", 0x1234), ERR_OK);
    ASSERT_EQ(SettgRemoveKey("ComponentManager", "Component.0"), ERR_OK);
    EXPECT_EQ(SettgRemoveKey("ComponentManager", "Component.0"), ERR_NO_OBJECT);
    EXPECT_EQ(SettgRemoveKey("NoSuchSection", "x"), ERR_NO_OBJECT);
    EXPECT_EQ(File(), "; top comment\n[ComponentManager]\n; which components\nOverloadableFunctions = 0\n"
                      "Component.1=CmpB\n\n[SysFile]\nFilePath=./data/\n\n[SysFileMap]\nC:/Data/app.app=4660\n");
    ASSERT_EQ(SettgSetDatabaseName(path_.c_str()), ERR_OK);
    EXPECT_EQ(Text("ComponentManager", "Component.1"), "CmpB");
}

// The BOM and each line's ending stay; new lines take the first line's; a
// missing last line break is added only with new lines.
TEST_F(SettingsTest, LineEndingsAndBomSurviveWrites) {
    Open("\xEF\xBB\xBF[A]\r\nx=1\ny=1");
    ASSERT_EQ(SettgSetStringValue("A", "y", "2"), ERR_OK);
    EXPECT_EQ(File(), "\xEF\xBB\xBF[A]\r\nx=1\ny=2");
    ASSERT_EQ(SettgSetStringValue("A", "z", "3"), ERR_OK);
    ASSERT_EQ(SettgSetStringValue("B", "w", "4"), ERR_OK);
    EXPECT_EQ(File(), "\xEF\xBB\xBF[A]\r\nx=1\ny=2\nz=3\r\n\r\n[B]\r\nw=4\r\n");
}

// Values that would break the file are refused; an unchanged value is not written.
TEST_F(SettingsTest, RefusedValuesLeaveTheFileAlone) {
    Open(kOriginal);
    for (RTS_RESULT r : {SettgSetStringValue("A", "k", "two\nlines"), SettgSetStringValue("A", "k=v", "x"),
                         SettgSetStringValue("A", "", "x"), SettgSetStringValue(nullptr, "k", "x"),
                         SettgSetStringValue("A", "k", nullptr)})
        EXPECT_EQ(r, ERR_PARAMETER);
    std::filesystem::remove(path_);
    EXPECT_EQ(SettgSetStringValue("SysFile", "FilePath", "./data/"), ERR_OK);
    EXPECT_FALSE(std::filesystem::exists(path_)) << "nothing was written";
}

// A failed write leaves the old file and values; the next write replaces a
// stale temporary file and a file deleted behind its back.
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
        LogRecorder::Lines().clear();
        SetNextWriteFault(row.fault);
        EXPECT_EQ(SettgSetStringValue("SysFile", "FilePath", "./new/"), row.result);
        EXPECT_EQ(File(), kOriginal);
        EXPECT_EQ(std::filesystem::exists(path_ + ".tmp"), row.tempLeft);
        EXPECT_EQ(Text("SysFile", "FilePath"), "./data/") << "memory follows the file";
        EXPECT_EQ(LogRecorder::Count("4 Cannot write configuration"), 1u);
    }
    std::filesystem::remove(path_);
    ASSERT_EQ(SettgSetStringValue("SysFile", "FilePath", "./new/"), ERR_OK);
    EXPECT_FALSE(std::filesystem::exists(path_ + ".tmp"));
    std::string expected = kOriginal;
    EXPECT_EQ(File(), expected.replace(expected.find("./data/"), 7, "./new/"));
}

// The fuzz target (anything parses, unchanged text writes back exactly, a
// change reads back) over fragments of real and broken configuration text.
TEST(IniDocument, FuzzTargetOverGeneratedInputs) {
    const std::string fragments[] = {
        "[",    "]",  "[Sec]", "[sec]", "key",          "=",    "value", ";",  "#",          "\n",
        "\r\n", "\r", " ",     "\t",    "\xEF\xBB\xBF", {'\0'}, "\xFF",  "=x", "[A]\nk=v\n", "Component.0=Cmp"};
    std::mt19937 random(2463534242u);
    for (int run = 0; run < 3000; ++run) {
        std::string input;
        for (auto pieces = random() % 40; pieces > 0; --pieces) {
            std::size_t pick = random() % (std::size(fragments) + 1);
            input += pick < std::size(fragments) ? fragments[pick] : std::string(1, static_cast<char>(random()));
        }
        ASSERT_EQ(LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t *>(input.data()), input.size()), 0);
    }
}

} // namespace
