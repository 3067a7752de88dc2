#ifndef OS_TIME_KIRA_CALENDAR_H
#define OS_TIME_KIRA_CALENDAR_H

// Calendar conversion without the C library's zone machinery: seconds since
// 1970-01-01 UTC to a broken-down record and a printable text (years 1970 to
// 5000), and a record back to seconds.

#include <stdint.h>

#include "os/base/kira_export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tagKIRA_DATE_TIME_S {
    uint32_t year;
    uint32_t month;  // 1 to 12
    uint32_t day;    // 1 to 31
    uint32_t hour;
    uint32_t minute;
    uint32_t second;
    uint32_t weekday;  // Sunday 0
} KIRA_DATE_TIME_S;

// A null seconds pointer means now, a negative value counts as 0; an
// instant past 5000-12-31 gives 1970-01-01 with the time of day and the
// weekday still its own. Nothing happens when record is null.
KIRA_EXPORT void KIRA_GmTime(const int64_t* seconds, KIRA_DATE_TIME_S* record);
// "Thu Jan   1 00:00:00 1970", cut to size - 1 characters and terminated.
// Nothing happens when seconds or buffer is null.
KIRA_EXPORT void KIRA_AscTime(const int64_t* seconds, char* buffer, uint32_t size);
// The record's first six fields read as local time, turned back into local
// wall seconds counted as UTC.
KIRA_EXPORT int64_t KIRA_mkTime(const KIRA_DATE_TIME_S* record);

#ifdef __cplusplus
}
#endif

#endif
