#ifndef OS_TIME_KIRA_TIMEZONE_H
#define OS_TIME_KIRA_TIMEZONE_H

// The node's time zone and clocks: UTC to local wall seconds, setting the
// zone and the system and hardware clocks, the daylight-saving periods of a
// zone in a year, and the table of offset changes handed to the kernel.
// Faults are logged to syslog at informational priority.

#include <stdint.h>

#include "os/base/kira_export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KIRA_DST_MAX_PERIODS 8
#define KIRA_TZ_MAX_TRANSITIONS 544
// The range of years KIRA_show_dst_config answers for.
#define KIRA_DST_FIRST_YEAR 1970
#define KIRA_DST_LAST_YEAR 2037

typedef struct tagKIRA_DST_PERIOD_S {
    int64_t begin;  // first second of daylight time (or the year's start)
    int64_t end;    // first second after it (or the year's last second)
    int32_t gmtoff;
    char beginText[32];  // local wall time of the change, "%m-%d %H:%M:%S"
    char endText[32];
    int32_t offsetMinutes;  // daylight minus standard offset
} KIRA_DST_PERIOD_S;

// Callers zero it before use.
typedef struct tagKIRA_DST_CONFIG_S {
    uint32_t count;
    KIRA_DST_PERIOD_S periods[KIRA_DST_MAX_PERIODS];
} KIRA_DST_CONFIG_S;

// Argument of request 902 on the kernel module's timezone device; its layout
// is shared with the kernel and must not change.
typedef struct tagKIRA_TZ_TRANSITION_S {
    int64_t time;    // UTC seconds of the change
    int32_t gmtoff;  // seconds east of UTC from then on
    int32_t reserved;
} KIRA_TZ_TRANSITION_S;

typedef struct tagKIRA_TZ_TRANSITIONS_S {
    uint32_t count;
    uint32_t reserved;
    KIRA_TZ_TRANSITION_S entries[KIRA_TZ_MAX_TRANSITIONS];
} KIRA_TZ_TRANSITIONS_S;

#define KIRA_TZ_IOCTL_TRANSITIONS 902

KIRA_EXPORT int64_t KIRA_GetLocalTimeFromUtcTime(int64_t utc);
KIRA_EXPORT int64_t KIRA_GetDSTTimeFromUtcTime(int64_t utc);
KIRA_EXPORT int64_t KIRA_GetLocalTime(int64_t* local);
// 0 when the local time could be read (non-zero), else -1.
KIRA_EXPORT int KIRA_GetDSTTime(int64_t* local);

KIRA_EXPORT int KIRA_SetTimeZone(const char* zone);
// offsetText (32 bytes) gets the standard offset, "+05:45"; name 64 bytes,
// abbrev 32 bytes. Any of them may be null.
KIRA_EXPORT int KIRA_GetTimeZone(char* offsetText, char* name, char* abbrev);
// 1 <= *utc < 2069-01-01 00:00:00 UTC.
KIRA_EXPORT int KIRA_SetTime(const int64_t* utc);

KIRA_EXPORT int KIRA_show_dst_config(int year, const char* zone, KIRA_DST_CONFIG_S* config);
KIRA_EXPORT int KIRA_QueryDstForRegion(const char* zone, int32_t* flag);
// begin and end get exactly 14 bytes, without a terminator. flag is written
// only for a period that lies within this year.
KIRA_EXPORT int KIRA_QueryDstConfInfoForRegion(const char* zone, char* begin, char* end, uint32_t* offset,
                                               int32_t* flag);
KIRA_EXPORT int KIRA_QueryDstConfInfo(char* begin, char* end, uint32_t* offset, int32_t* flag);

// Hands the current zone's offset changes up to 2037 to the kernel module.
// The ioctl's result, or a negative failure.
KIRA_EXPORT int sync_timezone_to_kernel(void);

#ifdef __cplusplus
}
#endif

#endif
