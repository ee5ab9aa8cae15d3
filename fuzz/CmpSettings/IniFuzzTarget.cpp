// Fuzz target of the settings component's INI document: any byte string is
// parsed without crashing; an unchanged document writes back exactly the
// bytes it was parsed from; a change survives writing and parsing again,
// and leaves every other key as it was.
//
// Built as a libFuzzer target by fuzz/CmpSettings/CMakeLists.txt (clang),
// and run over a generated corpus by the settings tests.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "IniDocument.h"

namespace {

[[noreturn]] void Fail() {
    std::abort();
}

void Check(bool ok) {
    if (!ok)
        Fail();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using kestrel::settings::IniDocument;
    using kestrel::settings::IniProblem;
    const std::string_view text(reinterpret_cast<const char *>(data), size);

    IniDocument doc;
    std::vector<IniProblem> problems;
    doc.Parse(text, &problems);
    for (const IniProblem &p : problems)
        Check(p.line >= 1 && p.line <= doc.LineCount());
    std::string once = doc.Serialize();
    Check(once == text);

    // Use the first bytes as section, key and value of a change.
    std::string section = "S" + std::string(text.substr(0, size < 3 ? size : 3));
    std::string key = "K" + std::string(text.substr(size < 3 ? 0 : 3, size < 6 ? 0 : 3));
    const std::string value = "v=1;x";
    IniDocument changed = doc;
    if (changed.Set(section, key, value)) {
        IniDocument again;
        again.Parse(changed.Serialize(), nullptr);
        const std::string *got = again.Find(section, key);
        Check(got != nullptr && *got == value);
        Check(again.Remove(section, key));
        Check(again.Find(section, key) == nullptr);
    }
    return 0;
}
