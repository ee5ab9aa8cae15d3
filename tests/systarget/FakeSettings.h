// A settings database in memory for the SysTarget tests: the three reading
// functions with the settings component's contract (length in and out, the
// default copied for a missing key, a null buffer only asks).
#pragma once

#include <cstring>
#include <map>
#include <string>
#include <utility>

#include "CmpSettingsItf.h"

namespace kestrel::test {

inline std::u16string Wide(const RTS_WCHAR *text) {
    std::u16string s;
    for (; text != nullptr && *text != 0; ++text)
        s.push_back(static_cast<char16_t>(*text));
    return s;
}

struct FakeSettings {
    using Key = std::pair<std::string, std::string>;
    std::map<Key, std::string> narrow;
    std::map<Key, std::u16string> wide;
    std::map<Key, RTS_I32> ints;
    RTS_I32 lastIntDefault = 0;
    int reads = 0;

    static inline FakeSettings *current = nullptr;

    static RTS_RESULT GetStringValue(const char *section, const char *key, char *value, RTS_I32 *len, const char *def) {
        ++current->reads;
        auto it = current->narrow.find({section, key});
        return Copy<char>(it == current->narrow.end() ? nullptr : &it->second, def, value, len);
    }
    static RTS_RESULT GetWStringValue(const char *section, const char *key, RTS_WCHAR *value, RTS_I32 *len,
                                      const RTS_WCHAR *def) {
        ++current->reads;
        auto it = current->wide.find({section, key});
        const std::u16string defText = Wide(def);
        return Copy<char16_t>(it == current->wide.end() ? nullptr : &it->second, defText.c_str(),
                              reinterpret_cast<char16_t *>(value), len);
    }
    static RTS_RESULT GetIntValue(const char *section, const char *key, RTS_I32 *value, RTS_I32 def) {
        ++current->reads;
        current->lastIntDefault = def;
        auto it = current->ints.find({section, key});
        *value = it == current->ints.end() ? def : it->second;
        return it == current->ints.end() ? ERR_NO_OBJECT : ERR_OK;
    }

  private:
    template <typename C>
    static RTS_RESULT Copy(const std::basic_string<C> *found, const C *def, C *value, RTS_I32 *len) {
        if (len == nullptr)
            return ERR_PARAMETER;
        const std::basic_string<C> text = found != nullptr ? *found
                                          : def != nullptr ? std::basic_string<C>(def)
                                                           : std::basic_string<C>();
        const RTS_I32 capacity = *len;
        *len = static_cast<RTS_I32>(text.size() + 1);
        if (value == nullptr)
            return found != nullptr ? ERR_OK : ERR_NO_OBJECT;
        if (capacity <= 0)
            return ERR_BUFFERSIZE;
        const size_t n = text.size() < static_cast<size_t>(capacity) ? text.size() : static_cast<size_t>(capacity) - 1;
        std::memcpy(value, text.data(), n * sizeof(C));
        value[n] = 0;
        if (found == nullptr)
            return ERR_NO_OBJECT;
        return n < text.size() ? ERR_BUFFERSIZE : ERR_OK;
    }
};

} // namespace kestrel::test
