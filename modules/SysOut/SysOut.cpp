// SysOut: text output of the runtime. Everything goes to the process's
// standard output and is flushed at once, so that lines reach a console or a
// service journal in order even when the process ends abruptly.
#include <cstdio>
#include <mutex>

#include "ModuleSupport.h"
#include "SysOutItf.h"

namespace {

std::mutex s_lock; // keeps lines of concurrent writers whole

const ExportEntry s_exports[] = {
    RTS_EXPORT_FN(SysOutVPrintf),
    RTS_EXPORT_END,
};

using Component = kestrel::module::ExportOnlyComponent<CMPID_SysOut, s_exports>;

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
    return Component::Enter(pInit);
}

} // extern "C"
