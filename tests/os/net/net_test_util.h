#ifndef TESTS_OS_NET_NET_TEST_UTIL_H
#define TESTS_OS_NET_NET_TEST_UTIL_H

// Probes shared by the network tests.

#include <dirent.h>

#include <string>
#include <vector>

#include "tests/support/sandbox.h"

namespace net_test {

// Texts logged since the last kt::SyslogClear(); every one must carry the
// layer's informational priority.
inline std::vector<std::string> Messages() {
    std::vector<std::string> out;
    for (const kt::SyslogLine& line : kt::SyslogLines()) {
        EXPECT_EQ(line.priority, 6) << line.message;
        out.push_back(line.message);
    }
    return out;
}

// The first syslog call of a process opens the log socket: callers log once
// before they start counting.
inline int OpenFdCount() {
    int n = 0;
    DIR* dir = opendir("/proc/self/fd");
    while (readdir(dir) != nullptr) n++;
    closedir(dir);
    return n;
}

}  // namespace net_test

#endif
