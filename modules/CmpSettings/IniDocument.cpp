// The INI document of the settings component: parsing into lines, lookup
// through an index, in-place changes and writing back (see IniDocument.h).
#include "IniDocument.h"

namespace kestrel::settings {

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view Trim(std::string_view s) {
    while (!s.empty() && IsBlank(s.front()))
        s.remove_prefix(1);
    while (!s.empty() && IsBlank(s.back()))
        s.remove_suffix(1);
    return s;
}

bool HasControlCharacter(std::string_view s) {
    for (char c : s) {
        auto u = static_cast<unsigned char>(c);
        if ((u < 0x20 && c != '\t') || u == 0x7F)
            return true;
    }
    return false;
}

} // namespace

std::string IniDocument::Fold(std::string_view s) {
    std::string out(s);
    for (char &c : out) {
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

std::string IniDocument::IndexKey(std::string_view section, std::string_view key) {
    std::string k = Fold(section);
    k += '\n'; // cannot occur in a name
    k += Fold(key);
    return k;
}

void IniDocument::Clear() {
    lines_.clear();
    index_.clear();
    bom_ = false;
    crlf_ = false;
    finalBreak_ = true;
}

IniDocument::Line IniDocument::ParseLine(std::string_view text, const std::string &currentSection, bool *pHasSection,
                                         std::string *pProblem) const {
    Line line{std::string(text), Kind::Blank, {}, {}, {}, 0, false};
    std::string_view t = Trim(text);
    if (t.empty())
        return line;
    if (HasControlCharacter(text)) {
        line.kind = Kind::Malformed;
        *pProblem = "control characters or binary data";
        return line;
    }
    if (t.front() == ';' || t.front() == '#') {
        line.kind = Kind::Comment;
        return line;
    }
    if (t.front() == '[') {
        std::size_t close = t.find(']');
        std::string_view name = close == std::string_view::npos ? std::string_view() : Trim(t.substr(1, close - 1));
        std::string_view rest = close == std::string_view::npos ? std::string_view() : Trim(t.substr(close + 1));
        if (close == std::string_view::npos) {
            *pProblem = "section header without closing \"]\"";
        } else if (name.empty()) {
            *pProblem = "section header without a name";
        } else if (!rest.empty() && rest.front() != ';' && rest.front() != '#') {
            *pProblem = "text after the section header";
        } else {
            line.kind = Kind::Section;
            line.section = std::string(name);
            *pHasSection = true;
            return line;
        }
        line.kind = Kind::Malformed;
        return line;
    }
    std::size_t eq = text.find('=');
    if (eq == std::string_view::npos) {
        line.kind = Kind::Malformed;
        *pProblem = "neither a section, a key=value pair nor a comment";
        return line;
    }
    std::string_view key = Trim(text.substr(0, eq));
    if (key.empty()) {
        line.kind = Kind::Malformed;
        *pProblem = "key=value pair without a key";
        return line;
    }
    if (!*pHasSection) {
        line.kind = Kind::Malformed;
        *pProblem = "key=value pair before the first section";
        return line;
    }
    std::size_t valueAt = eq + 1;
    while (valueAt < text.size() && IsBlank(text[valueAt]))
        ++valueAt;
    line.kind = Kind::Key;
    line.section = currentSection;
    line.key = std::string(key);
    line.value = std::string(Trim(text.substr(eq + 1)));
    line.valueAt = valueAt;
    return line;
}

void IniDocument::Parse(std::string_view text, std::vector<IniProblem> *pProblems) {
    Clear();
    if (text.size() >= 3 && text.substr(0, 3) == "\xEF\xBB\xBF") {
        bom_ = true;
        text.remove_prefix(3);
    }
    std::size_t firstBreak = text.find('\n');
    crlf_ = firstBreak != std::string_view::npos && firstBreak > 0 && text[firstBreak - 1] == '\r';
    finalBreak_ = text.empty() || text.back() == '\n';

    std::string section;
    bool hasSection = false;
    std::size_t number = 0;
    while (!text.empty()) {
        std::size_t end = text.find('\n');
        std::string_view raw = end == std::string_view::npos ? text : text.substr(0, end);
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        bool cr = end != std::string_view::npos && !raw.empty() && raw.back() == '\r';
        if (cr)
            raw.remove_suffix(1);
        ++number;
        std::string problem;
        Line line = ParseLine(raw, section, &hasSection, &problem);
        if (line.kind == Kind::Section)
            section = line.section;
        if (line.kind == Kind::Key) {
            auto [it, added] = index_.emplace(IndexKey(line.section, line.key), lines_.size());
            if (!added)
                problem = "key \"" + line.key + "\" repeated in section \"" + line.section + "\"; the first one counts";
        }
        if (!problem.empty() && pProblems != nullptr)
            pProblems->push_back(IniProblem{number, problem});
        line.cr = cr;
        lines_.push_back(std::move(line));
    }
}

void IniDocument::Reindex() {
    index_.clear();
    for (std::size_t i = 0; i < lines_.size(); ++i) {
        if (lines_[i].kind == Kind::Key)
            index_.emplace(IndexKey(lines_[i].section, lines_[i].key), i);
    }
}

const std::string *IniDocument::Find(std::string_view section, std::string_view key) const {
    auto it = index_.find(IndexKey(Trim(section), Trim(key)));
    return it == index_.end() ? nullptr : &lines_[it->second].value;
}

bool IniDocument::Set(std::string_view section, std::string_view key, std::string_view value) {
    section = Trim(section);
    key = Trim(key);
    value = Trim(value);
    if (section.empty() || key.empty() || key.find('=') != std::string_view::npos || key.front() == '[' ||
        key.front() == ';' || key.front() == '#' || section.find(']') != std::string_view::npos ||
        HasControlCharacter(section) || HasControlCharacter(key) || HasControlCharacter(value))
        return false;
    auto it = index_.find(IndexKey(section, key));
    if (it != index_.end()) {
        Line &line = lines_[it->second];
        line.text = line.text.substr(0, line.valueAt) + std::string(value);
        line.value = std::string(value);
        return true;
    }
    // Behind the last key (or the header) of the section's last block.
    std::size_t insertAt = lines_.size();
    bool found = false;
    std::string sectionName;
    std::string folded = Fold(section);
    for (std::size_t i = 0; i < lines_.size(); ++i) {
        const Line &l = lines_[i];
        if (l.kind == Kind::Section && Fold(l.section) == folded) {
            found = true;
            sectionName = l.section;
            insertAt = i + 1;
        } else if (found && l.kind == Kind::Key && Fold(l.section) == folded) {
            insertAt = i + 1;
        }
    }
    Line line{std::string(key) + "=" + std::string(value),
              Kind::Key,
              {},
              std::string(key),
              std::string(value),
              key.size() + 1};
    line.cr = crlf_;
    finalBreak_ = true; // a file that lacked its last line break gets one with the new lines
    if (found) {
        line.section = sectionName;
        lines_.insert(lines_.begin() + static_cast<std::ptrdiff_t>(insertAt), std::move(line));
    } else {
        if (!lines_.empty() && lines_.back().kind != Kind::Blank)
            lines_.push_back(Line{"", Kind::Blank, {}, {}, {}, 0, crlf_});
        lines_.push_back(Line{"[" + std::string(section) + "]", Kind::Section, std::string(section), {}, {}, 0, crlf_});
        line.section = std::string(section);
        lines_.push_back(std::move(line));
    }
    Reindex();
    return true;
}

bool IniDocument::Remove(std::string_view section, std::string_view key) {
    std::string wanted = IndexKey(Trim(section), Trim(key));
    std::size_t before = lines_.size();
    std::vector<Line> kept;
    kept.reserve(lines_.size());
    for (Line &l : lines_) {
        if (l.kind == Kind::Key && IndexKey(l.section, l.key) == wanted)
            continue;
        kept.push_back(std::move(l));
    }
    lines_ = std::move(kept);
    Reindex();
    return lines_.size() != before;
}

std::string IniDocument::Serialize() const {
    std::string out;
    if (bom_)
        out += "\xEF\xBB\xBF";
    for (std::size_t i = 0; i < lines_.size(); ++i) {
        out += lines_[i].text;
        // The last line keeps its missing line break, unless lines were added.
        if (i + 1 < lines_.size() || finalBreak_)
            out += lines_[i].cr ? "\r\n" : "\n";
    }
    return out;
}

} // namespace kestrel::settings
