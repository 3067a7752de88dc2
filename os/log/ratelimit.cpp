// The per-group limiter: a period of `interval` units opens at the first
// limited call; within it `num` lines pass, the rest are counted and
// dropped, with a "callbacks suppressed" report at the first drop and then
// at most once per unit.

#include <errno.h>
#include <syslog.h>
#include <time.h>

#include "os/log/log_internal.h"
#include "os/log/log_util_internal.h"

namespace {

const char kFuncName[] = "___ratelimit3";

void LogClockFailure() {
    syslog(LOG_ERR, "Execute clock_gettime failed, errno is %d.Print limit can not take effect.[%s].\n", errno,
           kFuncName);
}

bool ReadClock(struct timespec* ts) { return clock_gettime(CLOCK_MONOTONIC, ts) == 0; }

// A line that ends a period reports the period's drops and clears it; the
// next period opens only at the following call.
void CloseExpiredPeriod(DBG_RATELIMIT_S* rs, const struct timespec& now, const char* name) {
    if (now.tv_sec <= rs->begin.tv_sec + static_cast<int64_t>(rs->interval) * DBG_RATELIMIT_UNIT) return;
    if (rs->missed != 0) {
        syslog(LOG_WARNING, "%s: %d callbacks suppressed in %u days[%s].\n", name, static_cast<int>(rs->missed),
               static_cast<unsigned>((now.tv_sec - rs->begin.tv_sec) / DBG_RATELIMIT_UNIT), kFuncName);
    }
    rs->begin.tv_sec = 0;
    rs->last_report.tv_sec = 0;
    rs->printed = 0;
    rs->missed = 0;
}

}  // namespace

int32_t ___ratelimit3(DBG_RATELIMIT_S* rs, const char* name) {
    if (RelaxedLoad(&rs->interval) == 0) return 0;
    SpinGuard hold(&rs->lock);
    if (rs->begin.tv_sec == 0 && (!ReadClock(&rs->begin) || !ReadClock(&rs->last_report))) {
        LogClockFailure();
        return 0;
    }
    struct timespec now;
    if (!ReadClock(&now)) {
        LogClockFailure();
        return 0;
    }
    CloseExpiredPeriod(rs, now, name);
    if (rs->num != 0 && rs->num > rs->printed) {
        rs->printed++;
        return 0;
    }
    rs->missed++;
    if (rs->missed != 1 && now.tv_sec < rs->last_report.tv_sec + DBG_RATELIMIT_UNIT) return 1;
    if (!ReadClock(&rs->last_report)) LogClockFailure();
    syslog(LOG_WARNING, "%s: %d callbacks suppressed[%s].\n", name, static_cast<int>(rs->missed), kFuncName);
    return 1;
}
