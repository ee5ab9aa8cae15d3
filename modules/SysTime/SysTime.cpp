// SysTime: the monotonic clock of the runtime in milliseconds and
// microseconds. The clock never jumps with the wall clock, so differences of
// two readings measure elapsed time (the component manager's shut-down
// timeout and communication-cycle interval rely on that).
#include <chrono>

#include "ModuleSupport.h"
#include "SysTimeItf.h"

namespace {


std::chrono::steady_clock::duration Elapsed() {
    // Counting from the first reading keeps the 32-bit millisecond value far
    // from its wrap-around for the first 49 days of a run.
    static const std::chrono::steady_clock::time_point s_start = std::chrono::steady_clock::now();
    return std::chrono::steady_clock::now() - s_start;
}

const ExportEntry s_exports[] = {
    RTS_EXPORT_FN(SysTimeGetMs),
    RTS_EXPORT_FN(SysTimeGetUs),
    RTS_EXPORT_END,
};

using Component = kestrel::module::ExportOnlyComponent<CMPID_SysTime, s_exports>;

} // namespace

extern "C" {

RTS_UI32 SysTimeGetMs(void) {
    return static_cast<RTS_UI32>(std::chrono::duration_cast<std::chrono::milliseconds>(Elapsed()).count());
}

RTS_RESULT SysTimeGetUs(RTS_UI64 *pullUs) {
    if (pullUs == nullptr)
        return ERR_PARAMETER;
    *pullUs = static_cast<RTS_UI64>(std::chrono::duration_cast<std::chrono::microseconds>(Elapsed()).count());
    return ERR_OK;
}

RTS_RESULT SysTimeEntry(ComponentInitStruct *pInit) {
    if (RTS_RESULT result = Component::Enter(pInit); result != ERR_OK)
        return result;
    Elapsed();
    return ERR_OK;
}

} // extern "C"
