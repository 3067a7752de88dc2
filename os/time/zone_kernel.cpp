// The table of a zone's offset changes handed to the kernel module through
// request 902 on "/proc/nox/timezone".

#include <fcntl.h>
#include <stddef.h>
#include <string.h>
#include <sys/ioctl.h>
#include <syslog.h>

#include "os/base/kira_file.h"
#include "os/base/kira_raii.h"
#include "os/time/zone_internal.h"

using namespace kira_time;

namespace kira_time {

// The record is the ioctl's argument: its layout is shared with the kernel.
static_assert(sizeof(KIRA_TZ_TRANSITION_S) == 16, "transition entry is 16 bytes");
static_assert(offsetof(KIRA_TZ_TRANSITION_S, time) == 0, "time at byte 0");
static_assert(offsetof(KIRA_TZ_TRANSITION_S, gmtoff) == 8, "gmtoff at byte 8");
static_assert(offsetof(KIRA_TZ_TRANSITIONS_S, count) == 0, "count at byte 0");
static_assert(offsetof(KIRA_TZ_TRANSITIONS_S, entries) == 8, "entries at byte 8");
static_assert(sizeof(KIRA_TZ_TRANSITIONS_S) == 8 + 544 * 16, "544 entries");

namespace {

constexpr char kKernelDevice[] = "/proc/nox/timezone";
// 2037-12-31 23:59:59 UTC.
constexpr int64_t kLastSyncedSecond = 2145916799;

}  // namespace

int read_timezone_file(const char* path, int64_t low, int64_t high, KIRA_TZ_TRANSITIONS_S* table) {
    kira::LineReader reader;
    if (!reader.Open(path, kira::ReadEnd::kUntilEof)) {
        return -1;
    }
    char line[KIRA_DST_LINE_SIZE];
    int result = 0;
    while (reader.ReadLine(line, sizeof(line))) {
        if (strstr(line, "= NULL") != nullptr) {
            continue;
        }
        KIRA_DST_LINE_S rec;
        result = read_dst_line(line, &rec);
        if (result < 0) {
            syslog(LOG_INFO, "%s: read_dst_line fail, (%s)\n", __func__, line);
            break;
        }
        uint32_t& count = table->count;
        if (count > 0 && rec.gmtoff == table->entries[count - 1].gmtoff) {
            continue;
        }
        const int64_t t = timegm(&rec.utc);
        // Only the newest change at or before low survives.
        if (count > 0 && t <= low) {
            count--;
        }
        if (count == KIRA_TZ_MAX_TRANSITIONS) {
            // A damaged or planted cache; real zones stay far below this.
            syslog(LOG_INFO, "%s: more than %d transitions, rest ignored, (%s)\n", __func__, KIRA_TZ_MAX_TRANSITIONS,
                   path);
            break;
        }
        table->entries[count].time = t;
        table->entries[count].gmtoff = rec.gmtoff;
        count++;
        if (t > high) {
            break;
        }
    }
    return result;
}

}  // namespace kira_time

extern "C" KIRA_EXPORT int sync_timezone_to_kernel(void) {
    char zone[KIRA_ZONE_NAME_SIZE];
    int ret = get_timezone_name(zone, sizeof(zone));
    if (ret != 0) {
        return ret;
    }
    // A failed dump leaves no cache: reading it fails and is reported below.
    char path[KIRA_TIME_PATH_SIZE] = "";
    (void)zdump_timezone(zone, path, sizeof(path));
    KIRA_TZ_TRANSITIONS_S table;
    memset(&table, 0, sizeof(table));
    ret = read_timezone_file(path, 0, kLastSyncedSecond, &table);
    if (ret < 0) {
        syslog(LOG_INFO, "%s: read_timezone_file fail, %d\n", __func__, ret);
        return ret;
    }
    kira::UniqueFd dev(KIRA_open(kKernelDevice, O_RDWR, 0));
    if (!dev.valid()) {
        syslog(LOG_INFO, "%s: KIRA_open fail, %d\n", __func__, dev.get());
        return dev.get();
    }
    ret = ioctl(dev.get(), KIRA_TZ_IOCTL_TRANSITIONS, &table);
    if (ret != 0) {
        syslog(LOG_INFO, "%s: ioctl fail, %d\n", __func__, ret);
    }
    return ret;
}
