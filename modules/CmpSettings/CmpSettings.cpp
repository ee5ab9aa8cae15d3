// CmpSettings: the settings database of the runtime, one INI file.
//
// SettgSetDatabaseName reads the whole file into an IniDocument; reads are
// served from memory; every change rewrites the file atomically (see
// SettingsFileOs.h) and keeps comments and order. Problems in the file are
// logged with their line numbers through the imported LogAdd and never stop
// the runtime: the affected line is skipped and readers get their defaults.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "CmpLogItf.h"
#include "CmpSettingsItf.h"
#include "CmpSettingsTesting.h"
#include "IniDocument.h"
#include "ModuleSupport.h"
#include "SettingsFileOs.h"

namespace {

using kestrel::settings::IniDocument;
using kestrel::settings::IniProblem;
using kestrel::settings::WriteFault;

constexpr std::size_t kMaxReportedProblems = 20; // a binary file would flood the log

struct State {
    std::mutex lock;
    IniDocument doc;
    std::string fileName; // empty: no database
    RTS_UI32 options = 0;
    WriteFault nextFault = WriteFault::None;
};

State &GetState() {
    static State s_state;
    return s_state;
}

kestrel::module::CmLink s_cm;
decltype(&LogAdd) s_pfLogAdd = nullptr;

template <typename... Args> void Log(RTS_UI32 ulClass, RTS_RESULT err, RTS_UI32 infoId, const char *fmt, Args... args) {
    if (s_pfLogAdd != nullptr)
        s_pfLogAdd(LOG_STD_LOGGER, CMPID_CmpSettings, ulClass, err, infoId, fmt, args...);
}

// "name" gets ".cfg" unless its last path element has an extension.
std::string WithExtension(const char *pszName) {
    std::string name(pszName);
    std::size_t slash = name.find_last_of("/\\");
    std::size_t dot = name.find('.', slash == std::string::npos ? 0 : slash + 1);
    if (dot == std::string::npos)
        name += ".cfg";
    return name;
}

// Decimal with an optional sign, within 32 bits; or 0x/0X and 1 to 8 hex
// digits, taken as the bit pattern of a 32-bit word (0xFFFFFFFF is -1).
bool ParseInt(const std::string &text, RTS_I32 *pValue) {
    const char *p = text.c_str();
    if ((p[0] == '0') && (p[1] == 'x' || p[1] == 'X')) {
        p += 2;
        std::size_t digits = std::strspn(p, "0123456789abcdefABCDEF");
        if (digits == 0 || digits > 8 || p[digits] != '\0')
            return false;
        *pValue = static_cast<RTS_I32>(static_cast<RTS_UI32>(std::strtoul(p, nullptr, 16)));
        return true;
    }
    bool negative = *p == '-';
    if (*p == '-' || *p == '+')
        ++p;
    std::size_t digits = std::strspn(p, "0123456789");
    if (digits == 0 || digits > 10 || p[digits] != '\0')
        return false;
    long long v = std::strtoll(p, nullptr, 10);
    if (negative)
        v = -v;
    if (v < -2147483648LL || v > 2147483647LL)
        return false;
    *pValue = static_cast<RTS_I32>(v);
    return true;
}

// Copies text into a caller's buffer under the length-in/out rule.
// Copies the value of a key out of the database under its lock; false when the key is missing.
bool LookUp(const char *pszSection, const char *pszKey, std::string &text) {
    State &st = GetState();
    std::lock_guard<std::mutex> guard(st.lock);
    const std::string *p = st.doc.Find(pszSection, pszKey);
    if (p == nullptr)
        return false;
    text = *p;
    return true;
}

RTS_RESULT CopyOut(const std::string &text, char *pszValue, RTS_I32 *piLen) {
    RTS_I32 size = *piLen;
    *piLen = static_cast<RTS_I32>(text.size() + 1);
    if (pszValue == nullptr || size <= 0)
        return ERR_BUFFERSIZE;
    std::size_t n = text.size() < static_cast<std::size_t>(size) ? text.size() : static_cast<std::size_t>(size) - 1;
    std::memcpy(pszValue, text.data(), n);
    pszValue[n] = '\0';
    return n < text.size() ? ERR_BUFFERSIZE : ERR_OK;
}

// UTF-8 to UTF-16; malformed sequences become U+FFFD.
std::u16string Utf8ToUtf16(const std::string &s) {
    std::u16string out;
    std::size_t i = 0;
    while (i < s.size()) {
        auto c = static_cast<unsigned char>(s[i]);
        std::uint32_t cp = 0xFFFD;
        std::size_t len = c < 0x80 ? 1 : (c >> 5) == 0x6 ? 2 : (c >> 4) == 0xE ? 3 : (c >> 3) == 0x1E ? 4 : 0;
        if (len == 1) {
            cp = c;
        } else if (len > 1 && i + len <= s.size()) {
            cp = c & (0x7F >> len);
            bool ok = true;
            for (std::size_t k = 1; k < len; ++k) {
                auto cc = static_cast<unsigned char>(s[i + k]);
                if ((cc & 0xC0) != 0x80) {
                    ok = false;
                    break;
                }
                cp = (cp << 6) | (cc & 0x3F);
            }
            static const std::uint32_t kMin[5] = {0, 0, 0x80, 0x800, 0x10000};
            if (!ok || cp < kMin[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
                cp = 0xFFFD;
                len = 1;
            }
        } else {
            len = 1;
        }
        i += len;
        if (cp >= 0x10000) {
            cp -= 0x10000;
            out.push_back(static_cast<char16_t>(0xD800 + (cp >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + (cp & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(cp));
        }
    }
    return out;
}

std::u16string FromWide(const RTS_WCHAR *p) {
    std::u16string out;
    while (p != nullptr && *p != 0)
        out.push_back(static_cast<char16_t>(*p++));
    return out;
}

// Writes the changed document; on failure the document goes back to what
// the file still holds. Called with the lock held.
RTS_RESULT Commit(State &st, const IniDocument &before) {
    WriteFault fault = st.nextFault;
    st.nextFault = WriteFault::None;
    RTS_RESULT result = kestrel::settings::OsReplaceFile(st.fileName.c_str(), st.doc.Serialize(), fault);
    if (result != ERR_OK) {
        st.doc = before;
        Log(LOG_ERROR, result, 3, "Cannot write configuration <file>%s</file>: the file is unchanged",
            st.fileName.c_str());
    }
    return result;
}

const ExportEntry s_exports[] = {
    RTS_EXPORT_FN(SettgSetDatabaseName),
    RTS_EXPORT_FN(SettgGetDatabaseName),
    RTS_EXPORT_FN(SettgSetOptions),
    RTS_EXPORT_FN(SettgGetIntValue),
    RTS_EXPORT_FN(SettgSetIntValue),
    RTS_EXPORT_FN(SettgGetStringValue),
    RTS_EXPORT_FN(SettgGetWStringValue),
    RTS_EXPORT_FN(SettgSetStringValue),
    RTS_EXPORT_FN(SettgRemoveKey),
    RTS_EXPORT_END,
};

RTS_RESULT ExportFunctions() {
    return s_cm.Export(s_exports, CMPID_CmpSettings);
}

RTS_RESULT ImportFunctions() {
    s_cm.Import("LogAdd", s_pfLogAdd);
    return ERR_OK;
}

RTS_RESULT HookFunction(RTS_UI32 ulHook, RTS_UINTPTR ulParam1, RTS_UINTPTR) {
    if (ulHook == CH_COMPONENT_EXIT && kestrel::module::IsLeaving(ulParam1, "CmpLog"))
        s_pfLogAdd = nullptr;
    return ERR_OK;
}

} // namespace

namespace kestrel::settings {
void SetNextWriteFault(WriteFault fault) {
    State &st = GetState();
    std::lock_guard<std::mutex> guard(st.lock);
    st.nextFault = fault;
}
} // namespace kestrel::settings

extern "C" {

RTS_RESULT SettgSetDatabaseName(const char *pszDatabase) {
    if (pszDatabase == nullptr || pszDatabase[0] == '\0')
        return ERR_PARAMETER;
    try {
        std::string name = WithExtension(pszDatabase);
        std::string text;
        RTS_RESULT result = kestrel::settings::OsReadFile(name.c_str(), &text);
        if (result != ERR_OK)
            return result; // the caller decides whether a missing file is worth a line
        std::vector<IniProblem> problems;
        IniDocument doc;
        doc.Parse(text, &problems);
        State &st = GetState();
        {
            std::lock_guard<std::mutex> guard(st.lock);
            st.doc = std::move(doc);
            st.fileName = name;
        }
        for (std::size_t i = 0; i < problems.size() && i < kMaxReportedProblems; ++i)
            Log(LOG_WARNING, ERR_PARAMETER, 1, "Configuration <file>%s</file> line %lu skipped: %s", name.c_str(),
                static_cast<unsigned long>(problems[i].line), problems[i].what.c_str());
        if (problems.size() > kMaxReportedProblems)
            Log(LOG_WARNING, ERR_PARAMETER, 1, "Configuration <file>%s</file>: %lu more problems not listed",
                name.c_str(), static_cast<unsigned long>(problems.size() - kMaxReportedProblems));
        return ERR_OK;
    } catch (...) {
        return ERR_NOMEMORY;
    }
}

RTS_RESULT SettgGetDatabaseName(char *pszDatabase, RTS_SIZE ulBufferSize) {
    if (pszDatabase == nullptr || ulBufferSize == 0)
        return ERR_PARAMETER;
    State &st = GetState();
    std::lock_guard<std::mutex> guard(st.lock);
    if (st.fileName.empty()) {
        pszDatabase[0] = '\0';
        return ERR_NO_OBJECT;
    }
    RTS_SIZE n = st.fileName.size() < ulBufferSize ? st.fileName.size() : ulBufferSize - 1;
    std::memcpy(pszDatabase, st.fileName.data(), n);
    pszDatabase[n] = '\0';
    return n < st.fileName.size() ? ERR_BUFFERSIZE : ERR_OK;
}

// Only the split-databases bit is known; this component keeps one file
// either way, and the bit is kept so that SettgSetOptions can be answered.
RTS_RESULT SettgSetOptions(RTS_UI32 ulOptions) {
    State &st = GetState();
    std::lock_guard<std::mutex> guard(st.lock);
    st.options = ulOptions;
    return (ulOptions & ~SETTG_OPT_SPLIT_DATABASES) != 0 ? ERR_PARAMETER : ERR_OK;
}

RTS_RESULT SettgGetIntValue(const char *pszSection, const char *pszKey, RTS_I32 *piValue, RTS_I32 iDefault) {
    if (piValue == nullptr)
        return ERR_PARAMETER;
    *piValue = iDefault;
    if (pszSection == nullptr || pszKey == nullptr)
        return ERR_PARAMETER;
    try {
        std::string text;
        if (!LookUp(pszSection, pszKey, text))
            return ERR_NO_OBJECT;
        if (!ParseInt(text, piValue)) {
            *piValue = iDefault;
            Log(LOG_WARNING, ERR_PARAMETER, 2,
                "Setting [%s] %s=%s is no 32-bit number (decimal or 0x hexadecimal): default %d used", pszSection,
                pszKey, text.c_str(), static_cast<int>(iDefault));
            return ERR_PARAMETER;
        }
        return ERR_OK;
    } catch (...) {
        return ERR_NOMEMORY;
    }
}

RTS_RESULT SettgSetIntValue(const char *pszSection, const char *pszKey, RTS_I32 iValue) {
    char text[16];
    std::snprintf(text, sizeof(text), "%d", static_cast<int>(iValue));
    return SettgSetStringValue(pszSection, pszKey, text);
}

RTS_RESULT SettgGetStringValue(const char *pszSection, const char *pszKey, char *pszValue, RTS_I32 *piLen,
                               const char *pszDefault) {
    if (pszSection == nullptr || pszKey == nullptr)
        return ERR_PARAMETER;
    if (pszValue != nullptr && piLen == nullptr)
        return ERR_PARAMETER;
    try {
        std::string text;
        bool found = LookUp(pszSection, pszKey, text);
        if (pszValue == nullptr) {
            // Existence test only; the needed size comes along.
            if (piLen != nullptr && found)
                *piLen = static_cast<RTS_I32>(text.size() + 1);
            return found ? ERR_OK : ERR_NO_OBJECT;
        }
        if (!found) {
            CopyOut(pszDefault != nullptr ? pszDefault : "", pszValue, piLen);
            return ERR_NO_OBJECT;
        }
        return CopyOut(text, pszValue, piLen);
    } catch (...) {
        return ERR_NOMEMORY;
    }
}

RTS_RESULT SettgGetWStringValue(const char *pszSection, const char *pszKey, RTS_WCHAR *pwszValue, RTS_I32 *piLen,
                                const RTS_WCHAR *pwszDefault) {
    if (pszSection == nullptr || pszKey == nullptr)
        return ERR_PARAMETER;
    if (pwszValue != nullptr && piLen == nullptr)
        return ERR_PARAMETER;
    try {
        std::string utf8;
        bool found = LookUp(pszSection, pszKey, utf8);
        std::u16string text = found ? Utf8ToUtf16(utf8) : std::u16string();
        if (pwszValue == nullptr) {
            if (piLen != nullptr && found)
                *piLen = static_cast<RTS_I32>(text.size() + 1);
            return found ? ERR_OK : ERR_NO_OBJECT;
        }
        if (!found)
            text = FromWide(pwszDefault);
        RTS_I32 size = *piLen;
        *piLen = static_cast<RTS_I32>(text.size() + 1);
        if (size <= 0)
            return found ? ERR_BUFFERSIZE : ERR_NO_OBJECT;
        std::size_t n = text.size() < static_cast<std::size_t>(size) ? text.size() : static_cast<std::size_t>(size) - 1;
        // Never split a surrogate pair at the cut.
        if (n < text.size() && n > 0 && text[n - 1] >= 0xD800 && text[n - 1] <= 0xDBFF)
            --n;
        for (std::size_t i = 0; i < n; ++i)
            pwszValue[i] = static_cast<RTS_WCHAR>(text[i]);
        pwszValue[n] = 0;
        if (!found)
            return ERR_NO_OBJECT;
        return n < text.size() ? ERR_BUFFERSIZE : ERR_OK;
    } catch (...) {
        return ERR_NOMEMORY;
    }
}

RTS_RESULT SettgSetStringValue(const char *pszSection, const char *pszKey, const char *pszValue) {
    if (pszSection == nullptr || pszKey == nullptr || pszValue == nullptr)
        return ERR_PARAMETER;
    try {
        State &st = GetState();
        std::lock_guard<std::mutex> guard(st.lock);
        if (st.fileName.empty())
            return ERR_NO_OBJECT;
        const std::string *p = st.doc.Find(pszSection, pszKey);
        if (p != nullptr && *p == pszValue)
            return ERR_OK; // nothing to write
        IniDocument before = st.doc;
        if (!st.doc.Set(pszSection, pszKey, pszValue))
            return ERR_PARAMETER;
        return Commit(st, before);
    } catch (...) {
        return ERR_NOMEMORY;
    }
}

RTS_RESULT SettgRemoveKey(const char *pszSection, const char *pszKey) {
    if (pszSection == nullptr || pszKey == nullptr)
        return ERR_PARAMETER;
    try {
        State &st = GetState();
        std::lock_guard<std::mutex> guard(st.lock);
        if (st.fileName.empty())
            return ERR_NO_OBJECT;
        IniDocument before = st.doc;
        if (!st.doc.Remove(pszSection, pszKey))
            return ERR_NO_OBJECT;
        return Commit(st, before);
    } catch (...) {
        return ERR_NOMEMORY;
    }
}

RTS_RESULT CmpSettingsEntry(ComponentInitStruct *pInit) {
    if (pInit == nullptr)
        return ERR_PARAMETER;
    s_cm.Enter(pInit, CMPID_CmpSettings, ExportFunctions, ImportFunctions, HookFunction);
    return ERR_OK;
}

} // extern "C"
