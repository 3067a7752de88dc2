#ifndef OS_TIME_KIRA_TIME_H
#define OS_TIME_KIRA_TIME_H

// Clocks of the time layer: wall-clock seconds since 1970-01-01 UTC and the
// monotonic clock in nanoseconds and milliseconds. Including this header
// brings the whole time layer: calendar, timers, zone and daylight saving.

#include <stdint.h>

#include "os/base/kira_export.h"
#include "os/time/kira_calendar.h"
#include "os/time/kira_timer.h"
#include "os/time/kira_timezone.h"

#ifdef __cplusplus
extern "C" {
#endif

// Seconds since the epoch, never negative; also stored through seconds
// when it is given.
KIRA_EXPORT int64_t KIRA_GetTime(int64_t* seconds);
// Monotonic clock; 0 (after a log line) when the clock cannot be read.
KIRA_EXPORT uint64_t KIRA_GetNanoSecond(void);
KIRA_EXPORT uint64_t KIRA_GetMilliSecond(void);

#ifdef __cplusplus
}
#endif

#endif
