// The zdump cache of a zone and the parsing of its lines: zone name checks,
// the cache file beside "/var/run/timezone" and read_dst_line.

#include <string.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "os/base/kira_file.h"
#include "os/base/kira_system.h"
#include "os/time/zone_internal.h"
#include "safec/safec.h"

namespace kira_time {

namespace {

bool IsZoneNameChar(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '/' || c == '_' ||
           c == '-' || c == '+' || c == '.';
}

void LogMissingZone(const char* zone) { syslog(LOG_INFO, "file %s%s not exist\n", KIRA_ZONEINFO_DIR, zone); }

}  // namespace

bool zone_name_is_valid(const char* zone) {
    if (zone == nullptr || zone[0] == '\0' || zone[0] == '/') {
        return false;
    }
    const char* component = zone;
    for (const char* p = zone;; p++) {
        if (*p == '/' || *p == '\0') {
            const size_t len = static_cast<size_t>(p - component);
            if (len == 0 || (len == 2 && component[0] == '.' && component[1] == '.')) {
                return false;
            }
            if (*p == '\0') {
                return true;
            }
            component = p + 1;
        } else if (!IsZoneNameChar(*p)) {
            return false;
        }
    }
}

int zone_file_path(const char* zone, char* path, size_t size) {
    const bool built =
        zone_name_is_valid(zone) && snprintf_s(path, size, size - 1, "%s%s", KIRA_ZONEINFO_DIR, zone) > 0;
    if (!built || KIRA_access(path, F_OK) != 0) {
        LogMissingZone(zone);
        return -1;
    }
    return 0;
}

int zdump_timezone(const char* zone, char* path, size_t size) {
    if (!zone_name_is_valid(zone)) {
        LogMissingZone(zone);
        return -1;
    }
    if (KIRA_access(KIRA_ZDUMP_CACHE_DIR, F_OK) != 0) {
        (void)mkdir(KIRA_ZDUMP_CACHE_DIR, 0755);
    }
    if (snprintf_s(path, size, size - 1, "%s/%s", KIRA_ZDUMP_CACHE_DIR, zone) < 0) {
        path[0] = '\0';  // a cut path could name another file
        return -1;
    }
    // From the separator after the directory name on: the cache file lies
    // beside the directory, never inside it.
    for (size_t i = sizeof(KIRA_ZDUMP_CACHE_DIR) - 1; path[i] != '\0'; i++) {
        if (path[i] == '/') {
            path[i] = '_';
        }
    }
    if (KIRA_access(path, F_OK) == 0) {
        return 0;
    }
    char cmd[KIRA_TIME_CMD_SIZE];
    if (snprintf_s(cmd, sizeof(cmd), sizeof(cmd) - 1, "zdump -v %s > %s 2>/dev/kmsg", zone, path) < 0) {
        return -1;
    }
    const int ret = KIRA_system(cmd);
    if (ret != 0) {
        syslog(LOG_INFO, "zdump fail %d.\n", ret);
        // A cache is never refreshed: a half-written one must not stay.
        (void)unlink(path);
        return -1;
    }
    return 0;
}

int month_name_to_index(const char* name) {
    static const char kNames[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                       "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    for (int i = 0; i < 12; i++) {
        if (strcmp(name, kNames[i]) == 0) {
            return i;
        }
    }
    return -1;
}

int read_dst_line(const char* line, KIRA_DST_LINE_S* rec) {
    memset(rec, 0, sizeof(*rec));
    char zone[64];
    char utcWeekday[4];
    char utcMonth[4];
    char universal[64];
    char localWeekday[4];
    char localMonth[4];
    const int n =
        sscanf_s(line, "%s %s %s %d %d:%d:%d %d %s = %s %s %d %d:%d:%d %d %s isdst=%d gmtoff=%d", zone,
                 static_cast<unsigned>(sizeof(zone)), utcWeekday, static_cast<unsigned>(sizeof(utcWeekday)), utcMonth,
                 static_cast<unsigned>(sizeof(utcMonth)), &rec->utc.tm_mday, &rec->utc.tm_hour, &rec->utc.tm_min,
                 &rec->utc.tm_sec, &rec->utc.tm_year, universal, static_cast<unsigned>(sizeof(universal)), localWeekday,
                 static_cast<unsigned>(sizeof(localWeekday)), localMonth, static_cast<unsigned>(sizeof(localMonth)),
                 &rec->local.tm_mday, &rec->local.tm_hour, &rec->local.tm_min, &rec->local.tm_sec, &rec->local.tm_year,
                 rec->abbrev, static_cast<unsigned>(sizeof(rec->abbrev)), &rec->isdst, &rec->gmtoff);
    if (n != 19) {
        // Callers fail only on a negative count: a partial line is taken
        // with the fields read.
        syslog(LOG_INFO, "%s: sscanf_s fail, %d, %s\n", __func__, n, line);
        return n;
    }
    rec->utc.tm_mon = month_name_to_index(utcMonth);
    rec->local.tm_mon = month_name_to_index(localMonth);
    rec->utc.tm_year -= 1900;
    rec->local.tm_year -= 1900;
    // zdump shows the last second before a change and the first second of
    // it; one second more turns the first into the wall time of the change.
    const time_t local = timegm(&rec->local) + 1;
    (void)gmtime_r(&local, &rec->local);
    return 0;
}

}  // namespace kira_time
