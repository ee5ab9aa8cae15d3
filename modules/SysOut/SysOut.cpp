// SysOut: text output of the runtime. Everything goes to the process's
// standard output and is flushed at once, so that lines reach a console or a
// service journal in order even when the process ends abruptly.
#include <cstdio>
#include <mutex>

#include "ModuleSupport.h"
#include "SysOutItf.h"

namespace {

kestrel::module::CmLink s_cm;
std::mutex s_lock; // keeps lines of concurrent writers whole

const ExportEntry s_exports[] = {
    RTS_EXPORT_ROW(SysOutVPrintf, "SysOutVPrintf", 0, 0),
    RTS_EXPORT_END,
};

RTS_RESULT ExportFunctions() {
    return s_cm.Export(s_exports, CMPID_SysOut);
}
RTS_RESULT ImportFunctions() {
    return ERR_OK;
}
RTS_UI32 GetVersion() {
    return RTS_SYSTEM_VERSION;
}
RTS_RESULT HookFunction(RTS_UI32, RTS_UINTPTR, RTS_UINTPTR) {
    return ERR_OK;
}

} // namespace

extern "C" {

RTS_RESULT SysOutVPrintf(const char *pszFormat, va_list args) {
    if (pszFormat == nullptr)
        return ERR_PARAMETER;
    std::lock_guard<std::mutex> guard(s_lock);
    int written = std::vfprintf(stdout, pszFormat, args);
    std::fflush(stdout);
    return written < 0 ? ERR_FAILED : ERR_OK;
}

RTS_RESULT SysOutEntry(ComponentInitStruct *pInit) {
    if (pInit == nullptr)
        return ERR_PARAMETER;
    s_cm.Enter(pInit, CMPID_SysOut, ExportFunctions, ImportFunctions, GetVersion, HookFunction);
    return ERR_OK;
}

} // extern "C"
