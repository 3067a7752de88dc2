#ifndef TESTS_OS_SYSINFO_SYSINFO_TEST_UTIL_H
#define TESTS_OS_SYSINFO_SYSINFO_TEST_UTIL_H

// Helpers shared by the system information tests.

#include <errno.h>
#include <string.h>
#include <sys/mount.h>

#include <unistd.h>

#include <chrono>
#include <functional>
#include <string>

#include "tests/support/sandbox.h"

namespace sysinfo_test {

// Entries under /proc/net are looked up afresh on every access, so a mount
// on one is never seen: the process's whole net directory is covered by
// one holding only "dev". Sandbox only.
inline void BindNetDev(const std::string& content) {
    kt::MakeDirs("/tmp/kira_net");
    kt::WriteFile("/tmp/kira_net/dev", content);
    umount2("/proc/self/net", MNT_DETACH);
    ASSERT_EQ(mount("/tmp/kira_net", "/proc/self/net", nullptr, MS_BIND, nullptr), 0) << strerror(errno);
}

// Polls every 5 ms; false when done() is still false after timeoutMs.
inline bool WaitUntil(const std::function<bool()>& done, int timeoutMs) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done()) {
        if (std::chrono::steady_clock::now() > end) return false;
        usleep(5 * 1000);
    }
    return true;
}

}  // namespace sysinfo_test

#endif
