#ifndef TESTS_OS_NET_NET_TEST_UTIL_H
#define TESTS_OS_NET_NET_TEST_UTIL_H

// Probes shared by the network tests.

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

}  // namespace net_test

#endif
