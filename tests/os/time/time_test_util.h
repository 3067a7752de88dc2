#ifndef TESTS_OS_TIME_TIME_TEST_UTIL_H
#define TESTS_OS_TIME_TIME_TEST_UTIL_H

// Shared by the time layer's tests: choosing the process's zone inside the
// sandbox, and catching the table the kernel module would receive.

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "os/time/kira_time.h"
#include "os/time/zone_internal.h"
#include "tests/support/sandbox.h"

namespace time_test {

// Points /etc/localtime at the zone (the process follows it: TZ is unset).
inline void UseZone(const std::string& zone) {
    unsetenv("TZ");
    (void)unlink("/etc/localtime");
    ASSERT_EQ(symlink(("/usr/share/zoneinfo/" + zone).c_str(), "/etc/localtime"), 0) << zone;
    tzset();
}

// Every test that may run a command first keeps /dev/kmsg to itself.
inline void PrivateKernelLog() { kt::BindFileOver("/dev/kmsg", ""); }

inline std::string CachePath(std::string zone) {
    std::replace(zone.begin(), zone.end(), '/', '_');
    return "/var/run/timezone_" + zone;
}

// Two lines of "zdump -v" for a change at utc (its first second) from one
// offset to another, as the cache holds them.
struct Offset {
    int gmtoff;
    int isdst;
    const char* abbrev;
};
inline std::string ZdumpPair(const std::string& zone, int64_t utc, Offset before, Offset after) {
    std::string out;
    for (int i = 0; i < 2; i++) {
        const Offset& o = i == 0 ? before : after;
        const time_t u = static_cast<time_t>(utc - 1 + i), l = u + o.gmtoff;
        struct tm ut, lt;
        gmtime_r(&u, &ut);
        gmtime_r(&l, &lt);
        char us[40], ls[40], line[200];
        strftime(us, sizeof(us), "%a %b %e %H:%M:%S %Y", &ut);
        strftime(ls, sizeof(ls), "%a %b %e %H:%M:%S %Y", &lt);
        snprintf(line, sizeof(line), "%s  %s UT = %s %s isdst=%d gmtoff=%d\n", zone.c_str(), us, ls, o.abbrev, o.isdst,
                 o.gmtoff);
        out += line;
    }
    return out;
}
// The same lines as written on another system: each padded to 126
// characters (blanks after the zone name) and ended by CR LF, so a reader
// that kept the CR would split every line at the 128-byte buffer.
inline std::string CrLfAt126(const std::string& text) {
    std::string out;
    for (size_t pos = 0, nl; (nl = text.find('\n', pos)) != std::string::npos; pos = nl + 1) {
        std::string line = text.substr(pos, nl - pos);
        line.insert(line.find(' '), 126 - line.size(), ' ');
        out += line + "\r\n";
    }
    return out;
}
inline std::string ZdumpNullPair(const std::string& zone) {
    return zone + "  -9223372036854775808 = NULL\n" + zone + "  -9223372036854689408 = NULL\n";
}

// Answers request 902 and keeps a copy of the table it carried.
struct KernelTable {
    KIRA_TZ_TRANSITIONS_S table = {};
    int requests = 0;
    int answer = 0;
    KernelTable() {
        kt::NoxSetHandler("/proc/nox/timezone", [this](unsigned long request, void* arg) {
            if (request == KIRA_TZ_IOCTL_TRANSITIONS) {
                memcpy(&table, arg, sizeof(table));
                requests++;
            }
            return answer;
        });
    }
    ~KernelTable() { kt::NoxRemove("/proc/nox/timezone"); }
};

}  // namespace time_test

#endif
