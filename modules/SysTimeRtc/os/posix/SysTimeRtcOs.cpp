// POSIX backend of SysTimeRtc: the local offset from localtime_r's tm_gmtoff.
#include "SysTimeRtcOs.h"

#include <time.h>

namespace kestrel::systimertc {

bool OsLocalOffset(std::int64_t utcSeconds, std::int64_t *pOffsetSeconds) {
    time_t t = static_cast<time_t>(utcSeconds);
    struct tm local {};
    if (localtime_r(&t, &local) == nullptr)
        return false;
    *pOffsetSeconds = static_cast<std::int64_t>(local.tm_gmtoff);
    return true;
}

} // namespace kestrel::systimertc
