// Seconds to calendar record and text, and a record back to seconds.
//
// The year, month and day are the ones a walk year by year from 1970 (capped
// at 5000) would give, computed in constant time with civil-from-days
// arithmetic on a calendar starting in March, where the leap day is last.

#include <time.h>

#include "os/base/kira_system.h"
#include "os/time/kira_time.h"
#include "os/time/time_internal.h"
#include "safec/safec.h"

namespace {

constexpr uint32_t kSecondsPerDay = 86400;
constexpr uint32_t kFirstYear = 1970;
constexpr uint32_t kLastYear = 5000;
// Days from 1970-01-01 to 5001-01-01: the walk gives up at this count.
constexpr uint64_t kDaysToCap = 1107050;
// Days from 0000-03-01 to 1970-01-01, and of one 400-year cycle.
constexpr uint64_t kEpochFromMarchZero = 719468;
constexpr uint64_t kDaysPerEra = 146097;

constexpr uint16_t kMonthStart[2][13] = {
    {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334, 365},
    {0, 31, 60, 91, 121, 152, 182, 213, 244, 274, 305, 335, 366},
};

const char kWeekdayNames[7][4] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char kMonthNames[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

bool IsLeap(uint32_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

uint32_t WeekdayOf(uint64_t days) {
    // 1970-01-01 was a Thursday.
    return static_cast<uint32_t>(days > 2 ? (days - 3) % 7 : days + 4);
}

struct YearDay {
    uint32_t year;
    uint32_t dayOfYear;
};

// Only for days below kDaysToCap.
YearDay YearDayOf(uint64_t days) {
    const uint64_t z = days + kEpochFromMarchZero;
    const uint64_t era = z / kDaysPerEra;
    const uint32_t dayOfEra = static_cast<uint32_t>(z - era * kDaysPerEra);
    const uint32_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const uint32_t dayFromMarch = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    uint32_t year = static_cast<uint32_t>(era * 400) + yearOfEra;
    // January and February close the March-based year.
    if (dayFromMarch >= 306) {
        return {year + 1, dayFromMarch - 306};
    }
    return {year, dayFromMarch + 59 + (IsLeap(year) ? 1 : 0)};
}

}  // namespace

void KIRA_GmTimeGetYearDays(uint64_t days, uint32_t* year, uint32_t* dayOfYear, uint32_t* weekday) {
    if (year == nullptr || dayOfYear == nullptr || weekday == nullptr) {
        return;
    }
    *weekday = WeekdayOf(days);
    if (days >= kDaysToCap) {
        *year = kFirstYear;
        *dayOfYear = 0;
        return;
    }
    const YearDay yd = YearDayOf(days);
    *year = yd.year;
    *dayOfYear = yd.dayOfYear;
}

void KIRA_GmTimeGetMonthDayFromDaysOfYear(uint32_t year, uint32_t dayOfYear, uint32_t* month, uint32_t* day) {
    if (month == nullptr || day == nullptr) {
        return;
    }
    const uint16_t* start = kMonthStart[IsLeap(year) ? 1 : 0];
    if (dayOfYear >= start[12]) {
        *month = 13;
        *day = dayOfYear - start[12] + 1;
        return;
    }
    // Every month has 28 to 31 days, so dayOfYear / 32 is the month or the
    // one before it.
    uint32_t m = dayOfYear / 32;
    if (dayOfYear >= start[m + 1]) {
        m++;
    }
    *month = m + 1;
    *day = dayOfYear - start[m] + 1;
}

void KIRA_GmTimeGetHourMinSec(uint32_t secondsOfDay, uint32_t* hour, uint32_t* minute, uint32_t* second) {
    if (hour == nullptr || minute == nullptr || second == nullptr) {
        return;
    }
    *hour = (secondsOfDay / 3600) % 24;
    *minute = (secondsOfDay / 60) % 60;
    *second = secondsOfDay % 60;
}

extern "C" KIRA_EXPORT void KIRA_GmTime(const int64_t* seconds, KIRA_DATE_TIME_S* record) {
    if (record == nullptr) {
        return;
    }
    int64_t input = seconds == nullptr ? _KIRA_GetTime() : *seconds;
    if (input < 0) {
        input = 0;
    }
    uint32_t secondsOfDay = 0;
    const uint64_t days = KIRA_div64(static_cast<uint64_t>(input), kSecondsPerDay, &secondsOfDay);
    uint32_t dayOfYear = 0;
    KIRA_GmTimeGetYearDays(days, &record->year, &dayOfYear, &record->weekday);
    KIRA_GmTimeGetMonthDayFromDaysOfYear(record->year, dayOfYear, &record->month, &record->day);
    KIRA_GmTimeGetHourMinSec(secondsOfDay, &record->hour, &record->minute, &record->second);
}

extern "C" KIRA_EXPORT void KIRA_AscTime(const int64_t* seconds, char* buffer, uint32_t size) {
    if (seconds == nullptr || buffer == nullptr) {
        return;
    }
    KIRA_DATE_TIME_S r;
    KIRA_GmTime(seconds, &r);
    // An over-long text is cut to the buffer; the cut is not a fault here.
    (void)snprintf_s(buffer, size, size - 1, "%.3s %.3s %3d %02d:%02d:%02d %d", kWeekdayNames[r.weekday],
                     kMonthNames[r.month - 1], r.day, r.hour, r.minute, r.second, r.year);
    buffer[size - 1] = '\0';
}

extern "C" KIRA_EXPORT int64_t KIRA_mkTime(const KIRA_DATE_TIME_S* record) {
    if (record == nullptr) {
        return 0;
    }
    struct tm t = {};
    t.tm_year = static_cast<int>(record->year) - 1900;
    t.tm_mon = static_cast<int>(record->month) - 1;
    t.tm_mday = static_cast<int>(record->day);
    t.tm_hour = static_cast<int>(record->hour);
    t.tm_min = static_cast<int>(record->minute);
    t.tm_sec = static_cast<int>(record->second);
    t.tm_isdst = -1;
    return KIRA_GetLocalTimeFromUtcTime(static_cast<int64_t>(mktime(&t)));
}
