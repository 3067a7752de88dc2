// Seconds to calendar record and text, and a record back to seconds.
//
// The year, month and day are the ones a walk year by year from 1970 (capped
// at 5000) would give, computed in constant time with civil-from-days
// arithmetic on a calendar starting in March, where the leap day is last.

#include <time.h>

#include "os/time/kira_time.h"
#include "os/time/time_internal.h"
#include "safec/safec.h"

using namespace kira_time;

namespace kira_time {

namespace {

constexpr uint32_t kSecondsPerDay = 86400;
constexpr uint32_t kFirstYear = 1970;
// Days from 1970-01-01 to 5001-01-01: the walk gives up at this count.
constexpr uint64_t kDaysToCap = 1107050;
// Days from 0000-03-01 to 1970-01-01, and of one 400-year cycle.
constexpr uint32_t kEpochFromMarchZero = 719468;
constexpr uint32_t kDaysPerEra = 146097;

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

struct Civil {
    uint32_t year;
    uint32_t month;  // 1 to 12
    uint32_t day;    // 1 to 31
};

// Only for days below kDaysToCap, so 32 bits hold every figure. Centuries,
// years of the century and days of a March-based year come from
// multiply-and-shift steps with no data-dependent branch (random instants
// would mispredict them).
__attribute__((always_inline)) inline Civil CivilOf(uint32_t days) {
    const uint32_t n1 = 4 * (days + kEpochFromMarchZero) + 3;
    // Four times the days over the days of 400 years: whole centuries.
    const uint32_t century = n1 / kDaysPerEra;
    const uint32_t n2 = (n1 % kDaysPerEra) | 3;
    const uint64_t p2 = uint64_t{2939745} * n2;
    const uint32_t yearOfCentury = static_cast<uint32_t>(p2 >> 32);
    const uint32_t dayFromMarch = static_cast<uint32_t>(p2) / 2939745 / 4;
    const uint32_t n3 = 2141 * dayFromMarch + 197913;
    // January and February close the March-based year.
    const uint32_t lateInYear = dayFromMarch >= 306 ? 1 : 0;
    return {100 * century + yearOfCentury + lateInYear, (n3 >> 16) - 12 * lateInYear, (n3 & 0xFFFF) / 2141 + 1};
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
    const Civil c = CivilOf(static_cast<uint32_t>(days));
    *year = c.year;
    *dayOfYear = kMonthStart[IsLeap(c.year) ? 1 : 0][c.month - 1] + c.day - 1;
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

}  // namespace kira_time

extern "C" KIRA_EXPORT void KIRA_GmTime(const int64_t* seconds, KIRA_DATE_TIME_S* record) {
    if (record == nullptr) {
        return;
    }
    int64_t input = seconds == nullptr ? _KIRA_GetTime() : *seconds;
    if (input < 0) {
        input = 0;
    }
    // The same quotient and rest as KIRA_div64, with the divisor known here
    // so the compiler turns the division into a multiplication.
    const uint64_t days = static_cast<uint64_t>(input) / kSecondsPerDay;
    const uint32_t secondsOfDay = static_cast<uint32_t>(static_cast<uint64_t>(input) - days * kSecondsPerDay);
    // The steps' results in one pass: year, month and day straight from the
    // day count, the cap and the weekday rule kept.
    Civil c = {kFirstYear, 1, 1};
    if (days < kDaysToCap) {
        // The weekday rule in 32 bits: (days - 3) mod 7 is (days + 4) mod 7.
        record->weekday = (static_cast<uint32_t>(days) + 4) % 7;
        c = CivilOf(static_cast<uint32_t>(days));
    } else {
        record->weekday = WeekdayOf(days);
    }
    record->year = c.year;
    record->month = c.month;
    record->day = c.day;
    KIRA_GmTimeGetHourMinSec(secondsOfDay, &record->hour, &record->minute, &record->second);
}

extern "C" KIRA_EXPORT void KIRA_AscTime(const int64_t* seconds, char* buffer, uint32_t size) {
    // A size of 0 leaves no room even for the terminator.
    if (seconds == nullptr || buffer == nullptr || size == 0) {
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
