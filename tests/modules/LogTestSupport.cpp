// Fixture and test backend of the logger tests (see LogTestSupport.h).
#include "LogTestSupport.h"

#include <cstdio>

extern "C" RTS_RESULT CmpLogEntry(ComponentInitStruct *pInit);

namespace kestrel::test {

namespace {

TestBackend s_backend;
IBase s_noLogInterface{};

void Answer(RTS_RESULT *pResult, RTS_RESULT result) {
    if (pResult != nullptr)
        *pResult = result;
}

RTS_HANDLE Open(RTS_HANDLE, RTS_HANDLE, LogOptions *pOptions) {
    ++s_backend.opens;
    if (s_backend.failOpen)
        return RTS_INVALID_HANDLE;
    s_backend.openedName = pOptions->name;
    s_backend.openedMaxFiles = pOptions->maxFiles;
    s_backend.current = reinterpret_cast<RTS_HANDLE>(static_cast<RTS_UINTPTR>(0x1000));
    return s_backend.current;
}

RTS_RESULT Close(RTS_HANDLE hFile) {
    ++s_backend.closes;
    if (hFile != s_backend.current)
        s_backend.wrongHandleSeen = true;
    return ERR_OK;
}

// Every third entry the "file" is rotated: a new handle comes back.
RTS_HANDLE WriteEntry(RTS_HANDLE hFile, LogOptions *, LogEntry *pEntry, RTS_I32 *pbFailed) {
    if (hFile != s_backend.current)
        s_backend.wrongHandleSeen = true;
    s_backend.texts.emplace_back(pEntry->infoText);
    if (s_backend.logWhileWriting)
        LogAdd(LOG_STD_LOGGER, 0x777, LOG_ERROR, 1, 0, "backend trouble while writing");
    if (pbFailed != nullptr)
        *pbFailed = 0;
    if (s_backend.texts.size() % 3 == 0)
        s_backend.current = reinterpret_cast<RTS_HANDLE>(reinterpret_cast<RTS_UINTPTR>(s_backend.current) + 1);
    return s_backend.current;
}

void *QueryInterface(IBase *pBase, ITFID iid, RTS_RESULT *pResult) {
    if (pBase == &s_backend.base && (iid == ITFID_ILogBackend || iid == ITFID_IBase)) {
        ++s_backend.references;
        Answer(pResult, ERR_OK);
        return iid == ITFID_IBase ? static_cast<void *>(&s_backend.base) : static_cast<void *>(&s_backend.itf);
    }
    Answer(pResult, ERR_NO_OBJECT);
    return nullptr;
}

RTS_I32 AddRef(IBase *) {
    return ++s_backend.references;
}
RTS_I32 Release(IBase *) {
    return --s_backend.references;
}

RTS_HANDLE CreateInstance(CLASSID classId, RTS_RESULT *pResult) {
    IBase *instance = classId == 260 ? &s_backend.base : classId == 261 ? &s_noLogInterface : nullptr;
    Answer(pResult, instance != nullptr ? ERR_OK : ERR_NO_OBJECT);
    return instance;
}

RTS_RESULT DeleteInstance2(CLASSID classId, RTS_HANDLE hInstance) {
    if (classId == 260 && hInstance == &s_backend.base)
        ++s_backend.deletes;
    return ERR_OK;
}

void *NoInterface(IBase *, ITFID, RTS_RESULT *pResult) {
    Answer(pResult, ERR_NO_OBJECT);
    return nullptr;
}

void ResetBackend() {
    s_backend = TestBackend{};
    s_backend.base.pInstance = &s_backend;
    s_backend.base.QueryInterface = QueryInterface;
    s_backend.base.AddRef = AddRef;
    s_backend.base.Release = Release;
    s_backend.itf.pInstance = &s_backend;
    s_backend.itf.Open = Open;
    s_backend.itf.Close = Close;
    s_backend.itf.WriteEntry = WriteEntry;
    s_noLogInterface.QueryInterface = NoInterface;
}

RTS_RESULT WrappedLogEntry(ComponentInitStruct *pInit) {
    pInit->pfCMCreateInstance = CreateInstance;
    pInit->pfCMDeleteInstance2 = DeleteInstance2;
    return CmpLogEntry(pInit);
}

RTS_RESULT RecordingVPrintf(const char *fmt, va_list args) {
    char text[1024];
    std::vsnprintf(text, sizeof(text), fmt, args);
    ConsoleLines().emplace_back(text);
    return ERR_OK;
}

} // namespace

TestBackend &Backend() {
    return s_backend;
}

std::vector<std::string> &ConsoleLines() {
    static std::vector<std::string> s_lines;
    return s_lines;
}

std::vector<LogEntry> Ring(RTS_HANDLE hLogger) {
    std::vector<LogEntry> entries;
    LogEntry e{};
    RTS_RESULT r = ERR_FAILED;
    for (RTS_HANDLE h = LogGetFirstEntry(hLogger, &e, &r); r == ERR_OK; h = LogGetNextEntry(hLogger, h, &e, &r))
        entries.push_back(e);
    return entries;
}

std::vector<std::string> RingTexts(RTS_HANDLE hLogger, const std::string &needle) {
    std::vector<std::string> texts;
    for (const LogEntry &e : Ring(hLogger)) {
        if (std::string(e.infoText).find(needle) != std::string::npos)
            texts.emplace_back(e.infoText);
    }
    return texts;
}

void LogTest::SetUp() {
    ResetBackend();
    ConsoleLines().clear();
    cm_.Provide("SysOutVPrintf", &RecordingVPrintf);
    cm_.Provide("SettgGetIntValue", &SettgGetIntValue);
    cm_.Provide("SettgGetStringValue", &SettgGetStringValue);
    EnterModule(cm_, WrappedLogEntry, CMPID_CmpLog);
}

void LogTest::TearDown() {
    cm_.Hook(CH_EXIT2);
}

void LogTest::Configure(const std::string &cmpLogSection) {
    std::string path = dir_.Write("log.cfg", "[CmpLog]\n" + cmpLogSection);
    ASSERT_EQ(SettgSetDatabaseName(path.c_str()), ERR_OK);
    ASSERT_EQ(cm_.Hook(CH_INIT_SYSTEM), ERR_OK);
}

} // namespace kestrel::test
