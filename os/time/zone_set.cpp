// Changing the node's zone and clocks: KIRA_SetTimeZone (link, clock
// settings file, backup, kernel table) and KIRA_SetTime (hardware clock,
// then the system clock from it, then the kernel table).

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "os/base/kira_file.h"
#include "os/base/kira_system.h"
#include "os/time/zone_internal.h"
#include "safec/safec.h"

using namespace kira_time;

namespace kira_time {

namespace {

constexpr char kClockFile[] = "/etc/sysconfig/clock";
constexpr char kClockTmpDir[] = "/var/nox";
constexpr char kClockTmpFile[] = "/var/nox/time_tmp";
// The platform's configuration backup, given the changed file.
constexpr char kBackupScript[] = "/ZUK/script/os_conf_backup.sh";
// 2069-01-01 00:00:00 UTC: the hardware clock keeps two year digits.
constexpr int64_t kFirstRefusedTime = 3124224000LL;

// Runs a command built in a bounded buffer; -1 when it does not fit.
int RunCommand(const char* format, ...) __attribute__((format(printf, 1, 2)));
int RunCommand(const char* format, ...) {
    char cmd[KIRA_TIME_CMD_SIZE];
    va_list args;
    va_start(args, format);
    const int n = vsnprintf_s(cmd, sizeof(cmd), sizeof(cmd) - 1, format, args);
    va_end(args);
    return n < 0 ? -1 : KIRA_system(cmd);
}

// Both edits' results are ignored; the clock file keeps its place.
void EditClockFile(const char* zone) {
    if (KIRA_access(kClockTmpDir, F_OK) != 0) {
        (void)mkdir(kClockTmpDir, 0755);
    }
    (void)RunCommand("sed s@^DEFAULT_TIMEZONE=.*@DEFAULT_TIMEZONE=\"%s\"@g %s >%s", zone, kClockFile, kClockTmpFile);
    (void)RunCommand("sed s@^TIMEZONE=.*@TIMEZONE=\"`date | awk '{print $5}'`\"@g %s >%s", kClockTmpFile, kClockFile);
    (void)unlink(kClockTmpFile);
}

}  // namespace

}  // namespace kira_time

extern "C" KIRA_EXPORT int KIRA_SetTimeZone(const char* zone) {
    if (zone == nullptr) {
        syslog(LOG_INFO, "Input timezone name pointor is NULL.\n");
        return -1;
    }
    char zonePath[KIRA_TIME_PATH_SIZE];
    if (zone_file_path(zone, zonePath, sizeof(zonePath)) != 0) {
        return -1;
    }
    if (KIRA_access(kClockFile, F_OK) != 0) {
        syslog(LOG_INFO, "file %s not exist\n", kClockFile);
        return -1;
    }
    (void)unlink(KIRA_LOCALTIME_LINK);
    if (symlink(zonePath, KIRA_LOCALTIME_LINK) != 0) {
        syslog(LOG_INFO, "%s: symlink %s fail, errno(%d, %s)\n", __func__, zonePath, errno, strerror(errno));
        return -1;
    }
    EditClockFile(zone);
    const int backup = RunCommand("%s %s >/dev/kmsg 2>&1", kBackupScript, kClockFile);
    if (backup != 0) {
        syslog(LOG_INFO, "%s: KIRA_system fail, %d, %s\n", __func__, backup, zonePath);
        return -1;
    }
    const int ret = sync_timezone_to_kernel();
    return ret < 0 ? -1 : ret;
}

extern "C" KIRA_EXPORT int KIRA_SetTime(const int64_t* utc) {
    if (utc == nullptr || *utc < 1 || *utc >= kFirstRefusedTime) {
        syslog(LOG_INFO, "Input time param is error.\n");
        return -1;
    }
    const time_t t = static_cast<time_t>(*utc);
    struct tm g;
    if (gmtime_r(&t, &g) == nullptr) {
        syslog(LOG_INFO, "Convert to GMT time failed.\n");
        return -1;
    }
    const int twoDigitYear = g.tm_year >= 100 ? g.tm_year - 100 : g.tm_year;
    int ret = RunCommand("%s%02d%s%02d%s%02d %02d%s%02d%s%02d -0%s", "hwclock --set --utc --date=\"", g.tm_mon + 1, "/",
                         g.tm_mday, "/", twoDigitYear, g.tm_hour, ":", g.tm_min, ":", g.tm_sec, "\"");
    if (ret != 0) {
        syslog(LOG_INFO, "Set RTC failed, return value is %d.\n", ret);
        return -1;
    }
    // Two spaces after the command word, as the platform has always run it.
    ret = KIRA_system("hwclock  --utc --hctosys");
    if (ret != 0) {
        syslog(LOG_INFO, "Sync time from RTC to system failed, return value is %d.\n", ret);
        return -1;
    }
    return sync_timezone_to_kernel() < 0 ? -1 : 0;
}
