#ifndef OS_TIME_KIRA_TIMER_H
#define OS_TIME_KIRA_TIMER_H

// POSIX per-process timers behind argument checks: a refused call logs at
// emergency priority and returns -22 without reaching the C library.

#include <signal.h>
#include <time.h>

#include "os/base/kira_export.h"

#ifdef __cplusplus
extern "C" {
#endif

// clockid must lie in 0..3.
KIRA_EXPORT int KIRA_timer_create(int clockid, struct sigevent* evp, timer_t* timerid);
// A timer id of zero counts as null.
KIRA_EXPORT int KIRA_timer_delete(timer_t timerid);
KIRA_EXPORT int KIRA_timer_settime(timer_t timerid, int flags, const struct itimerspec* new_value,
                                   struct itimerspec* old_value);
KIRA_EXPORT int KIRA_timer_gettime(timer_t timerid, struct itimerspec* curr_value);
KIRA_EXPORT int KIRA_timer_getoverrun(timer_t timerid);

#ifdef __cplusplus
}
#endif

#endif
