// In-memory settings for the SysTarget tests.
#include "FakeSettings.h"

#include <cstring>

namespace kestrel::test {

FakeSettings *FakeSettings::current = nullptr;

namespace {

template <typename C, typename S> RTS_RESULT Copy(const S *found, const C *def, C *value, RTS_I32 *len) {
    if (len == nullptr)
        return ERR_PARAMETER;
    S text = found != nullptr ? *found : S(def != nullptr ? def : S());
    RTS_I32 capacity = *len;
    *len = static_cast<RTS_I32>(text.size() + 1);
    if (value == nullptr)
        return found != nullptr ? ERR_OK : ERR_NO_OBJECT;
    if (capacity <= 0)
        return ERR_BUFFERSIZE;
    size_t n = text.size() < static_cast<size_t>(capacity) ? text.size() : static_cast<size_t>(capacity) - 1;
    std::memcpy(value, text.data(), n * sizeof(C));
    value[n] = 0;
    if (found == nullptr)
        return ERR_NO_OBJECT;
    return n < text.size() ? ERR_BUFFERSIZE : ERR_OK;
}

} // namespace

RTS_RESULT FakeSettings::GetStringValue(const char *section, const char *key, char *value, RTS_I32 *len,
                                        const char *def) {
    ++current->reads;
    auto it = current->narrow.find({section, key});
    return Copy<char, std::string>(it == current->narrow.end() ? nullptr : &it->second, def, value, len);
}

RTS_RESULT FakeSettings::GetWStringValue(const char *section, const char *key, RTS_WCHAR *value, RTS_I32 *len,
                                         const RTS_WCHAR *def) {
    ++current->reads;
    auto it = current->wide.find({section, key});
    std::u16string defText = Wide(def);
    auto *raw = reinterpret_cast<char16_t *>(value);
    return Copy<char16_t, std::u16string>(it == current->wide.end() ? nullptr : &it->second, defText.c_str(), raw, len);
}

RTS_RESULT FakeSettings::GetIntValue(const char *section, const char *key, RTS_I32 *value, RTS_I32 def) {
    ++current->reads;
    current->lastIntDefault = def;
    auto it = current->ints.find({section, key});
    *value = it == current->ints.end() ? def : it->second;
    return it == current->ints.end() ? ERR_NO_OBJECT : ERR_OK;
}

std::u16string Wide(const RTS_WCHAR *text) {
    std::u16string s;
    for (; text != nullptr && *text != 0; ++text)
        s.push_back(static_cast<char16_t>(*text));
    return s;
}

} // namespace kestrel::test
