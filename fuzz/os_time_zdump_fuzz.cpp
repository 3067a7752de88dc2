// A zdump cache of any content: the period and transition readers must stay
// within their capacities and never read or write outside their buffers.
// The first byte picks the year; the rest is the file.

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "os/time/zone_internal.h"

using namespace kira_time;

// Bad lines are logged; the fuzzer has no use for the log.
extern "C" void syslog(int, const char*, ...) {}
extern "C" void __syslog_chk(int, int, const char*, ...) {}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    static int fd = memfd_create("zdump_fuzz", 0);
    if (fd < 0) {
        abort();
    }
    if (ftruncate(fd, 0) != 0 || pwrite(fd, data + 1, size - 1, 0) != static_cast<ssize_t>(size - 1)) {
        abort();
    }
    char path[64];
    snprintf(path, sizeof(path), "/proc/self/fd/%d", fd);

    KIRA_DST_CONFIG_S config = {};
    (void)read_dst_file(path, KIRA_DST_FIRST_YEAR + data[0] % 68, &config);
    if (config.count > KIRA_DST_MAX_PERIODS) {
        abort();
    }
    static KIRA_TZ_TRANSITIONS_S table;
    memset(&table, 0, sizeof(table));
    (void)read_timezone_file(path, 0, 2145916799, &table);
    if (table.count > KIRA_TZ_MAX_TRANSITIONS) {
        abort();
    }
    return 0;
}
