// Local wall time and the current zone: UTC to local seconds, this year,
// the standard offset, the zone name behind "/etc/localtime" and
// KIRA_GetTimeZone.

#include <string.h>
#include <syslog.h>
#include <unistd.h>

#include "os/time/zone_internal.h"
#include "safec/safec.h"

using namespace kira_time;

extern "C" {

KIRA_EXPORT int64_t KIRA_GetLocalTimeFromUtcTime(int64_t utc) {
    tzset();
    const time_t t = static_cast<time_t>(utc);
    struct tm local;
    if (localtime_r(&t, &local) == nullptr) {
        syslog(LOG_INFO, "%s: localtime_r fail\n", __func__);
        return utc;
    }
    local.tm_isdst = 0;
    return static_cast<int64_t>(timegm(&local));
}

KIRA_EXPORT int64_t KIRA_GetDSTTimeFromUtcTime(int64_t utc) { return KIRA_GetLocalTimeFromUtcTime(utc); }

KIRA_EXPORT int64_t KIRA_GetLocalTime(int64_t* local) {
    const int64_t now = KIRA_GetLocalTimeFromUtcTime(static_cast<int64_t>(time(nullptr)));
    if (local != nullptr) {
        *local = now;
    }
    return now;
}

KIRA_EXPORT int KIRA_GetDSTTime(int64_t* local) { return KIRA_GetLocalTime(local) != 0 ? 0 : -1; }

}  // extern "C"

namespace kira_time {

int get_this_year(void) {
    const time_t now = time(nullptr);
    tzset();
    struct tm local = {};
    (void)localtime_r(&now, &local);
    return local.tm_year + 1900;
}

int32_t get_gmt_offset(const struct tm* tm) {
    struct tm t = {};
    if (tm != nullptr) {
        t = *tm;
    } else {
        const time_t now = time(nullptr);
        (void)localtime_r(&now, &t);
    }
    if (t.tm_isdst > 0) {
        const time_t inSummer = mktime(&t);
        t.tm_isdst = 0;
        const time_t asStandard = mktime(&t);
        // mktime moved the wall time by the daylight shift and set the flag
        // again: taking the shift off gives the standard offset.
        if (t.tm_isdst > 0) {
            return static_cast<int32_t>(t.tm_gmtoff + (inSummer - asStandard));
        }
    }
    return static_cast<int32_t>(t.tm_gmtoff);
}

int get_timezone_name(char* buffer, size_t size) {
    char target[256] = {};
    const ssize_t n = readlink(KIRA_LOCALTIME_LINK, target, sizeof(target) - 1);
    if (n < 0) {
        syslog(LOG_INFO, "%s: readlink %d\n", __func__, static_cast<int>(n));
        return -1;
    }
    // The prefix is cut without being checked, as the link is ours.
    const char* name = target + strlen(KIRA_ZONEINFO_DIR);
    size_t len = strlen(name);
    if (len > size - 1) {
        len = size - 1;
    }
    (void)memcpy_s(buffer, size, name, len);
    buffer[len] = '\0';
    return 0;
}

}  // namespace kira_time

extern "C" KIRA_EXPORT int KIRA_GetTimeZone(char* offsetText, char* name, char* abbrev) {
    char zone[KIRA_ZONE_NAME_SIZE];
    const int ret = get_timezone_name(zone, sizeof(zone));
    if (ret != 0) {
        return ret;
    }
    const time_t now = time(nullptr);
    struct tm local = {};
    (void)localtime_r(&now, &local);
    if (offsetText != nullptr) {
        // The standard offset: a zone in summer time reports its winter one.
        const int32_t off = get_gmt_offset(&local);
        const int32_t magnitude = off < 0 ? -off : off;
        (void)snprintf_s(offsetText, 32, 31, "%c%02d:%02d", off < 0 ? '-' : '+', magnitude / 3600,
                         (magnitude % 3600) / 60);
    }
    if (abbrev != nullptr) {
        (void)strncpy_s(abbrev, 32, local.tm_zone != nullptr ? local.tm_zone : "", 31);
    }
    if (name != nullptr) {
        (void)strcpy_s(name, KIRA_ZONE_NAME_SIZE, zone);
    }
    return 0;
}
