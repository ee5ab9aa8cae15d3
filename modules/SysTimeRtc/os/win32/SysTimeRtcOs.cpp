// Win32 backend of SysTimeRtc: the local offset from the system's time-zone
// conversion of the moment itself, so that daylight saving time applies as
// it did at that moment.
#include "SysTimeRtcOs.h"

#include <windows.h>

namespace kestrel::systimertc {

bool OsLocalOffset(std::int64_t utcSeconds, std::int64_t *pOffsetSeconds) {
    // FILETIME counts 100 ns since 1601-01-01.
    const std::int64_t kEpochDelta = 11644473600LL;
    ULARGE_INTEGER utc;
    utc.QuadPart = static_cast<ULONGLONG>((utcSeconds + kEpochDelta) * 10000000LL);
    FILETIME ftUtc{utc.LowPart, utc.HighPart};
    SYSTEMTIME stUtc, stLocal;
    if (!FileTimeToSystemTime(&ftUtc, &stUtc) || !SystemTimeToTzSpecificLocalTime(nullptr, &stUtc, &stLocal))
        return false;
    FILETIME ftLocal;
    if (!SystemTimeToFileTime(&stLocal, &ftLocal))
        return false;
    ULARGE_INTEGER local;
    local.LowPart = ftLocal.dwLowDateTime;
    local.HighPart = ftLocal.dwHighDateTime;
    *pOffsetSeconds =
        (static_cast<std::int64_t>(local.QuadPart) - static_cast<std::int64_t>(utc.QuadPart)) / 10000000LL;
    return true;
}

} // namespace kestrel::systimertc
