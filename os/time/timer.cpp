// POSIX timers behind argument checks. A refused call never reaches the C
// library; an accepted one returns the C library's result unchanged.

#include <errno.h>
#include <syslog.h>

#include "os/time/kira_timer.h"

namespace {

constexpr int kRefused = -EINVAL;
// CLOCK_REALTIME to CLOCK_THREAD_CPUTIME_ID.
constexpr int kLastClockId = 3;

}  // namespace

extern "C" {

KIRA_EXPORT int KIRA_timer_create(int clockid, struct sigevent* evp, timer_t* timerid) {
    if (evp == nullptr || timerid == nullptr) {
        syslog(LOG_EMERG, "Argument NULL in KIRA_timer_create, evp: %p, timerid: %p!\n", static_cast<void*>(evp),
               static_cast<void*>(timerid));
        return kRefused;
    }
    if (clockid < 0 || clockid > kLastClockId) {
        syslog(LOG_EMERG, "Argument clockid: %d is out of range in KIRA_timer_create!\n", clockid);
        return kRefused;
    }
    return timer_create(clockid, evp, timerid);
}

KIRA_EXPORT int KIRA_timer_delete(timer_t timerid) {
    if (timerid == nullptr) {
        syslog(LOG_EMERG, "Argument NULL in KIRA_timer_delete, timerid: %p!\n", timerid);
        return kRefused;
    }
    return timer_delete(timerid);
}

KIRA_EXPORT int KIRA_timer_settime(timer_t timerid, int flags, const struct itimerspec* new_value,
                                   struct itimerspec* old_value) {
    if (timerid == nullptr || new_value == nullptr) {
        syslog(LOG_EMERG, "Argument NULL in KIRA_timer_settime, timerid: %p, new_value: %p!\n", timerid,
               static_cast<const void*>(new_value));
        return kRefused;
    }
    return timer_settime(timerid, flags, new_value, old_value);
}

KIRA_EXPORT int KIRA_timer_gettime(timer_t timerid, struct itimerspec* curr_value) {
    if (timerid == nullptr || curr_value == nullptr) {
        syslog(LOG_EMERG, "Argument NULL in KIRA_timer_gettime, timerid: %p, curr_value: %p!\n", timerid,
               static_cast<void*>(curr_value));
        return kRefused;
    }
    return timer_gettime(timerid, curr_value);
}

KIRA_EXPORT int KIRA_timer_getoverrun(timer_t timerid) {
    if (timerid == nullptr) {
        syslog(LOG_EMERG, "Argument NULL in KIRA_timer_getoverrun, timerid: %p!\n", timerid);
        return kRefused;
    }
    return timer_getoverrun(timerid);
}

}  // extern "C"
