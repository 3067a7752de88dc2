// Wall clock and monotonic clock readers.

#include <sys/time.h>
#include <syslog.h>
#include <time.h>

#include "os/base/kira_system.h"
#include "os/time/kira_time.h"
#include "os/time/time_internal.h"

using namespace kira_time;

namespace kira_time {

int64_t _KIRA_GetTime(void) {
    struct timeval now = {};
    struct timezone zone = {};
    gettimeofday(&now, &zone);
    return static_cast<int64_t>(now.tv_sec);
}

}  // namespace kira_time

extern "C" KIRA_EXPORT int64_t KIRA_GetTime(int64_t* seconds) {
    int64_t now = _KIRA_GetTime();
    if (now < 0) {
        now = 0;
    }
    if (seconds != nullptr) {
        *seconds = now;
    }
    return now;
}

extern "C" KIRA_EXPORT uint64_t KIRA_GetNanoSecond(void) {
    struct timespec ts = {};
    if (clock_gettime(CLOCK_MONOTONIC, &ts) != 0) {
        syslog(LOG_ERR, "Execute clock_gettime failed\n");
        return 0;
    }
    return static_cast<uint64_t>(ts.tv_sec) * 1000000000ULL + static_cast<uint64_t>(ts.tv_nsec);
}

extern "C" KIRA_EXPORT uint64_t KIRA_GetMilliSecond(void) {
    return KIRA_div64(KIRA_GetNanoSecond(), 1000000U, nullptr);
}
