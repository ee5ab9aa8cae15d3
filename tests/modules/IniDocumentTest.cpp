// Tests of the INI document below the settings component, and a run of its
// fuzz target over generated inputs (the libFuzzer build runs it longer).
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "IniDocument.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

using kestrel::settings::IniDocument;
using kestrel::settings::IniProblem;

namespace {

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
