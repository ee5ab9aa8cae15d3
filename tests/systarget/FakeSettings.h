// A settings database in memory for the SysTarget tests: the three reading
// functions with the settings component's contract (length in and out, the
// default copied for a missing key, a null buffer only asks).
#pragma once

#include <map>
#include <string>
#include <utility>

#include "CmpSettingsItf.h"

namespace kestrel::test {

struct FakeSettings {
    std::map<std::pair<std::string, std::string>, std::string> narrow;
    std::map<std::pair<std::string, std::string>, std::u16string> wide;
    std::map<std::pair<std::string, std::string>, RTS_I32> ints;
    RTS_I32 lastIntDefault = 0;
    int reads = 0;

    static FakeSettings *current;

    static RTS_RESULT GetStringValue(const char *section, const char *key, char *value, RTS_I32 *len, const char *def);
    static RTS_RESULT GetWStringValue(const char *section, const char *key, RTS_WCHAR *value, RTS_I32 *len,
                                      const RTS_WCHAR *def);
    static RTS_RESULT GetIntValue(const char *section, const char *key, RTS_I32 *value, RTS_I32 def);
};

std::u16string Wide(const RTS_WCHAR *text);

} // namespace kestrel::test
