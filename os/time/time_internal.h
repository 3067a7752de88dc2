#ifndef OS_TIME_TIME_INTERNAL_H
#define OS_TIME_TIME_INTERNAL_H

// Helpers shared inside the time layer; never exported.

#include <stdint.h>

namespace kira_time {

// Seconds since the epoch straight from gettimeofday, sign kept.
int64_t _KIRA_GetTime(void);

// The steps of KIRA_GmTime. Each writes nothing when one of its out pointers
// is null.
// Past 5000-12-31 the year is 1970 and the day 0; the weekday is set first
// and kept.
void KIRA_GmTimeGetYearDays(uint64_t days, uint32_t* year, uint32_t* dayOfYear, uint32_t* weekday);
// A day of the year past its end walks through all twelve months: month 13.
void KIRA_GmTimeGetMonthDayFromDaysOfYear(uint32_t year, uint32_t dayOfYear, uint32_t* month, uint32_t* day);
void KIRA_GmTimeGetHourMinSec(uint32_t secondsOfDay, uint32_t* hour, uint32_t* minute, uint32_t* second);

}  // namespace kira_time

#endif
