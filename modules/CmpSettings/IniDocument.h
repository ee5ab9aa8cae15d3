// The settings file as text: an INI document kept line by line, so that a
// change rewrites only the line it concerns and every comment, blank line
// and the order of sections and keys survive a write.
//
// Accepted text: an optional UTF-8 byte-order mark; lines ending in LF or
// CRLF; "[Section]" headers; "Key=Value" lines (blanks around key and value
// are dropped; the value is everything after the first "=", including any
// ";"); lines starting with ";" or "#" are comments. Section and key names
// compare without regard to ASCII case. A line that is none of these, a key
// before the first section, or a line with control characters is reported
// as a problem with its line number and otherwise ignored; a key repeated
// within a section is reported too, and its first occurrence counts.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace kestrel::settings {

struct IniProblem {
    std::size_t line; // 1-based line number in the file
    std::string what; // what is wrong with it
};

class IniDocument {
  public:
    // Replaces the document with the parsed text; problems are appended.
    void Parse(std::string_view text, std::vector<IniProblem> *pProblems);
    void Clear();

    // The value of a key, or null when the section or key is missing.
    const std::string *Find(std::string_view section, std::string_view key) const;

    // Changes a key's value in place, or adds the key at the end of its
    // section, or adds the section at the end of the document. Values with a
    // line break are refused (false), since they would break the file.
    bool Set(std::string_view section, std::string_view key, std::string_view value);
    // Removes every line of the key in that section; false when there is none.
    bool Remove(std::string_view section, std::string_view key);

    // The text to write back: the original lines with the changes, each
    // line with its own line ending, and the byte-order mark. A document
    // that was not changed gives back exactly the parsed text.
    std::string Serialize() const;

    std::size_t LineCount() const { return lines_.size(); }

  private:
    enum class Kind { Blank, Comment, Section, Key, Malformed };
    struct Line {
        std::string text;    // the line without its line ending
        Kind kind;           // what the line is
        std::string section; // Section: the name; Key: the name of the section it belongs to
        std::string key;     // Key: the name as written
        std::string value;   // Key: the value, blanks removed
        std::size_t valueAt; // Key: where the value starts in text
        bool cr = false;     // the line ended in CRLF
    };

    static std::string Fold(std::string_view s);
    static std::string IndexKey(std::string_view section, std::string_view key);
    Line ParseLine(std::string_view text, const std::string &currentSection, bool *pHasSection,
                   std::string *pProblem) const;
    void Reindex();

    std::vector<Line> lines_;
    std::unordered_map<std::string, std::size_t> index_; // folded "section\nkey" -> first key line
    bool bom_ = false;
    bool crlf_ = false;      // the file's first line ended in CRLF: new lines get CRLF too
    bool finalBreak_ = true; // the file ended with a line break
};

} // namespace kestrel::settings
