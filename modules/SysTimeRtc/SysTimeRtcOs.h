// Operating-system part of SysTimeRtc: the local time zone's offset from UTC
// at a given moment (daylight saving time included). One backend per OS in
// os/posix and os/win32.
#pragma once

#include <cstdint>

namespace kestrel::systimertc {

// Seconds to add to UTC to get local time at the UTC moment utcSeconds
// (seconds since 1970-01-01). Returns false when the OS cannot tell.
bool OsLocalOffset(std::int64_t utcSeconds, std::int64_t *pOffsetSeconds);

} // namespace kestrel::systimertc
