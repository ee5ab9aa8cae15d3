// CmpLog: the loggers of the runtime.
//
// Logger handle 0 is the standard logger, which exists from the entry call
// on, so that the component manager can log from its first steps. Every
// logger keeps a ring of its recent entries (LogGetFirstEntry/Next walk it)
// and passes each entry to its backends: instances of backend classes
// (class 260 is the file system's log-file writer) reached through their
// interface 22, and the console.
//
// Console rule: entries are echoed through the imported SysOutVPrintf when
// the environment variable KESTREL_CONSOLE is "1" (the host sets it when it
// runs in the foreground) or when [CmpLog] "Console"=1; "Console"=0 turns
// the echo off even in the foreground.
//
// Settings, section "CmpLog", read at hook 8 (after the component manager
// opened the configuration), for logger N (0 = the standard logger; 1, 2,
// ... are further loggers made at that point):
//   Logger.N.Name         name, also the base of its file name (N=0: "PlcLog")
//   Logger.N.Enable       0 drops every entry (default 1)
//   Logger.N.Filter       mask of the classes kept (default 0xFFFFFFFF)
//   Logger.N.Options      LogOptions flags (default 0x2000, 64-bit RTC ms)
//   Logger.N.MaxEntries   ring size (default 1000, at most 100000)
//   Logger.N.MaxFileSize  bytes before a backend rotates its file (default 1000000)
//   Logger.N.MaxFiles     numbered backup files (default 3)
//   Logger.N.Path         directory of the log file (default: none)
//   Logger.N.Backend.M.ClassId  backend classes, M = 0, 1, ... (N=0 default: 260)
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "CMItf.h"
#include "CmpLogItf.h"
#include "CmpSettingsItf.h"
#include "LogFormat.h"
#include "Logger.h"
#include "ModuleSupport.h"
#include "SysOutItf.h"

namespace {

using kestrel::cmplog::Backend;
using kestrel::cmplog::Logger;
using kestrel::cmplog::LoggerServices;

constexpr const char *kSection = "CmpLog";
constexpr const char *kStdLoggerName = "PlcLog";
constexpr RTS_UI32 kFileBackendClass = 260;

kestrel::module::CmLink s_cm;
decltype(&SysOutVPrintf) s_pfSysOutVPrintf = nullptr;
decltype(&SettgGetIntValue) s_pfSettgGetIntValue = nullptr;
decltype(&SettgGetStringValue) s_pfSettgGetStringValue = nullptr;
bool s_bSysOutGone = false; // SysOut was there and has been unloaded

void ConsoleLine(const char *pszLine);
void ReleaseBackend(const Backend &backend);
const LoggerServices s_services{ConsoleLine, ReleaseBackend};

LogOptions DefaultOptions(const char *pszName) {
    LogOptions o{};
    std::strncpy(o.name, pszName, LOG_MAX_NAME - 1);
    o.enable = 1;
    o.options = LOG_OPT_TIMESTAMP_RTC_HIGHRES;
    o.filter = 0xFFFFFFFFu;
    o.maxEntries = Logger::kDefaultEntries;
    o.maxFileSize = 1000000;
    o.maxFiles = 3;
    o.path = nullptr;
    return o;
}

struct State {
    std::mutex lock; // guards the list, not the loggers
    Logger standard{DefaultOptions(kStdLoggerName), &s_services};
    std::vector<Logger *> others; // LogCreate and the settings
};

State &GetState() {
    static State s_state;
    return s_state;
}

// The console goes through SysOut; once SysOut has been unloaded (it goes
// before the logger at shut-down) the last lines go to standard output
// directly, so that the leak report of the final hook is still seen.
void ConsoleText(const char *pszFormat, ...) {
    va_list args;
    va_start(args, pszFormat);
    if (s_pfSysOutVPrintf != nullptr) {
        s_pfSysOutVPrintf(pszFormat, args);
    } else if (s_bSysOutGone) {
        std::vfprintf(stdout, pszFormat, args);
        std::fflush(stdout);
    }
    va_end(args);
}

void ConsoleLine(const char *pszLine) {
    ConsoleText("%s\n", pszLine);
}

void ReleaseBackend(const Backend &backend) {
    if (backend.pBase != nullptr && backend.pBase->Release != nullptr)
        backend.pBase->Release(backend.pBase); // the reference QueryInterface took
    if (s_cm.pfDeleteInstance2 != nullptr)
        s_cm.pfDeleteInstance2(backend.classId, backend.pBase);
}

// Logger of a handle: 0 is the standard logger; others must be in the list.
Logger *Find(RTS_HANDLE hLogger) {
    State &st = GetState();
    if (hLogger == LOG_STD_LOGGER)
        return &st.standard;
    std::lock_guard<std::mutex> guard(st.lock);
    for (Logger *l : st.others) {
        if (l == hLogger)
            return l;
    }
    return nullptr;
}

void Log(RTS_UI32 ulClass, RTS_RESULT err, RTS_UI32 infoId, const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    GetState().standard.Add(CMPID_CmpLog, ulClass, err, infoId, fmt, args);
    va_end(args);
}

bool ConsoleFromEnvironment() {
    const char *p = std::getenv("KESTREL_CONSOLE");
    return p != nullptr && std::strcmp(p, "1") == 0;
}

RTS_I32 ReadInt(const std::string &key, RTS_I32 iDefault) {
    RTS_I32 v = iDefault;
    if (s_pfSettgGetIntValue != nullptr)
        s_pfSettgGetIntValue(kSection, key.c_str(), &v, iDefault);
    return v;
}

bool ReadString(const std::string &key, std::string *pValue) {
    if (s_pfSettgGetStringValue == nullptr)
        return false;
    char buffer[256];
    RTS_I32 len = static_cast<RTS_I32>(sizeof(buffer));
    RTS_RESULT r = s_pfSettgGetStringValue(kSection, key.c_str(), buffer, &len, "");
    if (r != ERR_OK && r != ERR_BUFFERSIZE)
        return false;
    if (r == ERR_BUFFERSIZE)
        Log(LOG_WARNING, r, 3, "Setting [CmpLog] %s is longer than %d characters and was cut", key.c_str(),
            static_cast<int>(sizeof(buffer) - 1));
    *pValue = buffer;
    return true;
}

// Creates an instance of a backend class and attaches it to a logger; every
// failure is one clear line, and the logger goes on with what it has.
void AttachBackendClass(Logger &logger, CLASSID classId) {
    if (s_cm.pfCreateInstance == nullptr) {
        Log(LOG_WARNING, ERR_NOTIMPLEMENTED, 4, "Logger <name>%s</name>: no instance service for backend class %u",
            logger.Name(), static_cast<unsigned>(classId));
        return;
    }
    RTS_RESULT result = ERR_OK;
    auto *pBase = static_cast<IBase *>(s_cm.pfCreateInstance(classId, &result));
    if (pBase == nullptr || pBase == RTS_INVALID_HANDLE) {
        Log(LOG_WARNING, result != ERR_OK ? result : ERR_NO_OBJECT, 5,
            "Logger <name>%s</name>: no backend of class %u; entries stay in memory", logger.Name(),
            static_cast<unsigned>(classId));
        return;
    }
    void *pItf = pBase->QueryInterface != nullptr ? pBase->QueryInterface(pBase, ITFID_ILogBackend, &result) : nullptr;
    auto *pBackend = static_cast<ILogBackend *>(pItf);
    if (pBackend == nullptr || pBackend->Open == nullptr || pBackend->Close == nullptr ||
        pBackend->WriteEntry == nullptr) {
        Log(LOG_WARNING, ERR_NO_OBJECT, 6, "Logger <name>%s</name>: class %u is no log backend (no interface %u)",
            logger.Name(), static_cast<unsigned>(classId), static_cast<unsigned>(ITFID_ILogBackend));
        if (pBackend != nullptr && pBase->Release != nullptr)
            pBase->Release(pBase);
        if (s_cm.pfDeleteInstance2 != nullptr)
            s_cm.pfDeleteInstance2(classId, pBase);
        return;
    }
    Backend b{classId, pBase, pBackend, nullptr};
    if (!logger.AttachBackend(b)) {
        Log(LOG_WARNING, ERR_FAILED, 7, "Logger <name>%s</name>: backend of class %u could not open", logger.Name(),
            static_cast<unsigned>(classId));
        ReleaseBackend(b);
    }
}

// Options and backends of logger N from the settings; false when logger N
// is not configured (N > 0 without a name).
bool ConfigureFromSettings(int n, std::vector<CLASSID> *pBackends, LogOptions *pOptions, std::string *pPath) {
    const std::string prefix = "Logger." + std::to_string(n) + ".";
    std::string name;
    bool named = ReadString(prefix + "Name", &name) && !name.empty();
    if (n > 0 && !named)
        return false;
    LogOptions o = DefaultOptions(named ? name.c_str() : kStdLoggerName);
    if (named && name.size() >= LOG_MAX_NAME)
        Log(LOG_WARNING, ERR_BUFFERSIZE, 8, "Logger name %s is longer than %d characters and was cut", name.c_str(),
            LOG_MAX_NAME - 1);
    o.enable = ReadInt(prefix + "Enable", 1);
    o.filter = static_cast<RTS_UI32>(ReadInt(prefix + "Filter", -1));
    o.options = static_cast<RTS_UI32>(ReadInt(prefix + "Options", static_cast<RTS_I32>(LOG_OPT_TIMESTAMP_RTC_HIGHRES)));
    o.maxEntries = ReadInt(prefix + "MaxEntries", Logger::kDefaultEntries);
    if (o.maxEntries < 1 || o.maxEntries > Logger::kMaxEntries) {
        Log(LOG_WARNING, ERR_PARAMETER, 9, "Setting [CmpLog] %sMaxEntries=%d is out of range 1..%d; %d used",
            prefix.c_str(), static_cast<int>(o.maxEntries), static_cast<int>(Logger::kMaxEntries),
            static_cast<int>(o.maxEntries < 1 ? Logger::kDefaultEntries : Logger::kMaxEntries));
        o.maxEntries = o.maxEntries < 1 ? Logger::kDefaultEntries : Logger::kMaxEntries;
    }
    o.maxFileSize = ReadInt(prefix + "MaxFileSize", 1000000);
    o.maxFiles = ReadInt(prefix + "MaxFiles", 3);
    if (o.maxFiles < 0) {
        Log(LOG_WARNING, ERR_PARAMETER, 9, "Setting [CmpLog] %sMaxFiles=%d is negative; 3 used", prefix.c_str(),
            static_cast<int>(o.maxFiles));
        o.maxFiles = 3;
    }
    if (ReadString(prefix + "Path", pPath) && !pPath->empty())
        o.path = pPath->c_str();
    *pOptions = o;
    // Backends: index 0, 1, ... until the first missing key. Logger 0 writes
    // to the file backend unless its first backend is configured otherwise
    // (0 there means no backend at all).
    for (int m = 0;; ++m) {
        std::string key = prefix + "Backend." + std::to_string(m) + ".ClassId";
        RTS_I32 classId = ReadInt(key, (n == 0 && m == 0) ? static_cast<RTS_I32>(kFileBackendClass) : -1);
        if (classId == -1 || (m == 0 && classId == 0))
            break;
        pBackends->push_back(static_cast<CLASSID>(classId));
    }
    return true;
}

void ApplySettings() {
    State &st = GetState();
    RTS_I32 console = ReadInt("Console", -1);
    st.standard.SetConsole(console == -1 ? ConsoleFromEnvironment() : console != 0);
    for (int n = 0;; ++n) {
        std::vector<CLASSID> backends;
        LogOptions options{};
        std::string path;
        if (!ConfigureFromSettings(n, &backends, &options, &path))
            break;
        Logger *pLogger = &st.standard;
        if (n == 0) {
            st.standard.Configure(options);
        } else {
            pLogger = new (std::nothrow) Logger(options, &s_services);
            if (pLogger == nullptr)
                break;
            std::lock_guard<std::mutex> guard(st.lock);
            st.others.push_back(pLogger);
        }
        for (CLASSID classId : backends)
            AttachBackendClass(*pLogger, classId);
    }
}

// Detaches every backend and deletes every logger but the standard one.
void Shutdown() {
    State &st = GetState();
    st.standard.DetachBackends(0xFFFFFFFFu);
    std::vector<Logger *> others;
    {
        std::lock_guard<std::mutex> guard(st.lock);
        others.swap(st.others);
    }
    for (Logger *l : others) {
        l->DetachBackends(0xFFFFFFFFu);
        delete l;
    }
}

const ExportEntry s_exports[] = {
    RTS_EXPORT_FN(LogAdd),
    RTS_EXPORT_FN(LogAddArg),
    RTS_EXPORT_FN(LogCreate),
    RTS_EXPORT_FN(LogDelete),
    RTS_EXPORT_FN(LogGetFirstEntry),
    RTS_EXPORT_FN(LogGetNextEntry),
    RTS_EXPORT_FN(LogUnregisterBackend),
    RTS_EXPORT_END,
};

RTS_RESULT ExportFunctions() {
    return s_cm.Export(s_exports, CMPID_CmpLog);
}

RTS_RESULT ImportFunctions() {
    s_bSysOutGone = false;
    s_cm.Import("SysOutVPrintf", s_pfSysOutVPrintf);
    s_cm.Import("SettgGetIntValue", s_pfSettgGetIntValue);
    s_cm.Import("SettgGetStringValue", s_pfSettgGetStringValue);
    return ERR_OK;
}

RTS_RESULT HookFunction(RTS_UI32 ulHook, RTS_UINTPTR ulParam1, RTS_UINTPTR) {
    try {
        if (ulHook == CH_COMPONENT_EXIT && kestrel::module::IsLeaving(ulParam1, "SysOut")) {
            s_bSysOutGone = s_pfSysOutVPrintf != nullptr;
            s_pfSysOutVPrintf = nullptr;
        }
        if (ulHook == CH_COMPONENT_EXIT && kestrel::module::IsLeaving(ulParam1, "CmpSettings")) {
            s_pfSettgGetIntValue = nullptr;
            s_pfSettgGetStringValue = nullptr;
        }
        if (ulHook == CH_INIT_SYSTEM)
            ApplySettings();
        else if (ulHook == CH_EXIT2)
            Shutdown(); // backend providers are unloaded after this hook
    } catch (...) {
        return ERR_NOMEMORY;
    }
    return ERR_OK;
}

} // namespace

extern "C" {

RTS_RESULT LogAddArg(RTS_HANDLE hLogger, CMPID cmpId, RTS_UI32 ulClassId, RTS_RESULT errorId, RTS_UI32 ulInfoId,
                     const char *pszInfo, va_list args) {
    Logger *l = Find(hLogger);
    if (l == nullptr)
        return ERR_PARAMETER;
    return l->Add(cmpId, ulClassId, errorId, ulInfoId, pszInfo, args);
}

RTS_RESULT LogAdd(RTS_HANDLE hLogger, CMPID cmpId, RTS_UI32 ulClassId, RTS_RESULT errorId, RTS_UI32 ulInfoId,
                  const char *pszInfo, ...) {
    va_list args;
    va_start(args, pszInfo);
    RTS_RESULT result = LogAddArg(hLogger, cmpId, ulClassId, errorId, ulInfoId, pszInfo, args);
    va_end(args);
    return result;
}

RTS_HANDLE LogCreate(const LogOptions *pOptions, RTS_RESULT *pResult) {
    auto set = [pResult](RTS_RESULT r) {
        if (pResult != nullptr)
            *pResult = r;
    };
    if (pOptions == nullptr || pOptions->name[0] == '\0') {
        set(ERR_PARAMETER);
        return RTS_INVALID_HANDLE;
    }
    State &st = GetState();
    std::lock_guard<std::mutex> guard(st.lock);
    for (Logger *l : st.others) {
        if (std::strncmp(l->Name(), pOptions->name, LOG_MAX_NAME) == 0) {
            set(ERR_DUPLICATE); // the existing logger, e.g. one configured in the settings
            return l;
        }
    }
    try {
        auto *l = new Logger(*pOptions, &s_services);
        st.others.push_back(l);
        set(ERR_OK);
        return l;
    } catch (...) {
        set(ERR_NOMEMORY);
        return RTS_INVALID_HANDLE;
    }
}

RTS_RESULT LogDelete(RTS_HANDLE hLogger) {
    if (hLogger == LOG_STD_LOGGER)
        return ERR_PARAMETER; // the standard logger lives as long as the component
    State &st = GetState();
    Logger *found = nullptr;
    {
        std::lock_guard<std::mutex> guard(st.lock);
        for (auto it = st.others.begin(); it != st.others.end(); ++it) {
            if (*it == hLogger) {
                found = *it;
                st.others.erase(it);
                break;
            }
        }
    }
    if (found == nullptr)
        return ERR_PARAMETER;
    found->DetachBackends(0xFFFFFFFFu);
    delete found;
    return ERR_OK;
}

RTS_HANDLE LogGetFirstEntry(RTS_HANDLE hLogger, LogEntry *pEntry, RTS_RESULT *pResult) {
    Logger *l = Find(hLogger);
    if (l == nullptr) {
        if (pResult != nullptr)
            *pResult = ERR_PARAMETER;
        return nullptr;
    }
    return l->First(pEntry, pResult);
}

RTS_HANDLE LogGetNextEntry(RTS_HANDLE hLogger, RTS_HANDLE hEntry, LogEntry *pEntry, RTS_RESULT *pResult) {
    Logger *l = Find(hLogger);
    if (l == nullptr) {
        if (pResult != nullptr)
            *pResult = ERR_PARAMETER;
        return nullptr;
    }
    return l->Next(hEntry, pEntry, pResult);
}

RTS_RESULT LogUnregisterBackend(RTS_HANDLE hLogger, CLASSID classId) {
    int count = 0;
    if (hLogger == RTS_INVALID_HANDLE) { // every logger
        State &st = GetState();
        count += st.standard.DetachBackends(classId);
        std::vector<Logger *> others;
        {
            std::lock_guard<std::mutex> guard(st.lock);
            others = st.others;
        }
        for (Logger *l : others)
            count += l->DetachBackends(classId);
    } else {
        Logger *l = Find(hLogger);
        if (l == nullptr)
            return ERR_PARAMETER;
        count = l->DetachBackends(classId);
    }
    return count > 0 ? ERR_OK : ERR_NO_OBJECT;
}

RTS_RESULT CmpLogEntry(ComponentInitStruct *pInit) {
    if (pInit == nullptr)
        return ERR_PARAMETER;
    s_cm.Enter(pInit, CMPID_CmpLog, ExportFunctions, ImportFunctions, HookFunction);
    // Until the settings are read, the host's word decides about the console.
    GetState().standard.SetConsole(ConsoleFromEnvironment());
    return ERR_OK;
}

} // extern "C"
