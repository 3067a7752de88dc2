#ifndef TESTS_OS_NET_NET_TEST_UTIL_H
#define TESTS_OS_NET_NET_TEST_UTIL_H

// Probes shared by the network tests.

#include <functional>
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

// Runs body in the sandbox with a network namespace of its own (its own
// interfaces and netlink port ids); skips where namespaces cannot be made.
inline void RunInOwnNetwork(const std::function<void()>& body) {
    kt::SandboxOptions opts;
    opts.new_net = true;
    kt::RunSandboxed(body, opts);
}

}  // namespace net_test

#endif
