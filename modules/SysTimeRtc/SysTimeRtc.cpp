// SysTimeRtc: the real-time clock in milliseconds since 1970-01-01 UTC and
// its conversion into calendar dates, in UTC or in local time. The calendar
// arithmetic is done here (proleptic Gregorian calendar, any year from 1970
// on); only the local time zone's offset comes from the operating system.
#include <chrono>

#include "ModuleSupport.h"
#include "SysTimeRtcItf.h"
#include "SysTimeRtcOs.h"

namespace {


constexpr RTS_UI64 kMsPerDay = 86400000ull;

// Days since 1970-01-01 to year/month/day (Howard Hinnant's civil_from_days).
void CivilFromDays(std::int64_t z, RTS_UI16 *pYear, RTS_UI16 *pMonth, RTS_UI16 *pDay) {
    z += 719468;
    const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const std::int64_t doe = z - era * 146097;
    const std::int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const std::int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const std::int64_t mp = (5 * doy + 2) / 153;
    const std::int64_t d = doy - (153 * mp + 2) / 5 + 1;
    const std::int64_t m = mp < 10 ? mp + 3 : mp - 9;
    const std::int64_t y = yoe + era * 400 + (m <= 2 ? 1 : 0);
    *pYear = static_cast<RTS_UI16>(y);
    *pMonth = static_cast<RTS_UI16>(m);
    *pDay = static_cast<RTS_UI16>(d);
}

bool IsLeap(unsigned year) {
    return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

RTS_UI16 DayOfYear(unsigned year, unsigned month, unsigned day) {
    static const unsigned kBefore[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
    return static_cast<RTS_UI16>(kBefore[month - 1] + day + (month > 2 && IsLeap(year) ? 1 : 0));
}

RTS_RESULT ToDate(RTS_UI64 ms, RTS_SYSTIMEDATE *pDate) {
    // Years beyond 65535 do not fit the record.
    if (ms / kMsPerDay > 23191000ull)
        return ERR_PARAMETER;
    const std::int64_t days = static_cast<std::int64_t>(ms / kMsPerDay);
    const RTS_UI64 rest = ms % kMsPerDay;
    CivilFromDays(days, &pDate->wYear, &pDate->wMonth, &pDate->wDay);
    pDate->wHour = static_cast<RTS_UI16>(rest / 3600000ull);
    pDate->wMinute = static_cast<RTS_UI16>(rest / 60000ull % 60);
    pDate->wSecond = static_cast<RTS_UI16>(rest / 1000ull % 60);
    pDate->wMilliseconds = static_cast<RTS_UI16>(rest % 1000ull);
    pDate->wDayOfWeek = static_cast<RTS_UI16>((days + 4) % 7); // 1970-01-01 was a Thursday
    pDate->wYday = DayOfYear(pDate->wYear, pDate->wMonth, pDate->wDay);
    return ERR_OK;
}

const ExportEntry s_exports[] = {
    RTS_EXPORT_FN(SysTimeRtcHighResGet),
    RTS_EXPORT_FN(SysTimeRtcConvertHighResToDate),
    RTS_EXPORT_FN(SysTimeRtcConvertHighResToLocal),
    RTS_EXPORT_END,
};

using Component = kestrel::module::ExportOnlyComponent<CMPID_SysTimeRtc, s_exports>;

} // namespace

extern "C" {

RTS_RESULT SysTimeRtcHighResGet(RTS_SYSTIME *pTime) {
    if (pTime == nullptr)
        return ERR_PARAMETER;
    auto since = std::chrono::system_clock::now().time_since_epoch();
    auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(since).count();
    *pTime = ms < 0 ? 0 : static_cast<RTS_SYSTIME>(ms);
    return ERR_OK;
}

RTS_RESULT SysTimeRtcConvertHighResToDate(const RTS_SYSTIME *pTime, RTS_SYSTIMEDATE *pDate) {
    if (pTime == nullptr || pDate == nullptr)
        return ERR_PARAMETER;
    return ToDate(*pTime, pDate);
}

RTS_RESULT SysTimeRtcConvertHighResToLocal(const RTS_SYSTIME *pTime, RTS_SYSTIMEDATE *pDate) {
    if (pTime == nullptr || pDate == nullptr)
        return ERR_PARAMETER;
    std::int64_t offset = 0;
    if (!kestrel::systimertc::OsLocalOffset(static_cast<std::int64_t>(*pTime / 1000ull), &offset))
        return ERR_FAILED;
    const std::int64_t local = static_cast<std::int64_t>(*pTime) + offset * 1000;
    if (local < 0)
        return ERR_PARAMETER;
    return ToDate(static_cast<RTS_UI64>(local), pDate);
}

RTS_RESULT SysTimeRtcEntry(ComponentInitStruct *pInit) {
    return Component::Enter(pInit);
}

} // extern "C"
