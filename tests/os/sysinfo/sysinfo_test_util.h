#ifndef TESTS_OS_SYSINFO_SYSINFO_TEST_UTIL_H
#define TESTS_OS_SYSINFO_SYSINFO_TEST_UTIL_H

// Helpers shared by the system information tests.

#include <errno.h>
#include <string.h>
#include <sys/mount.h>

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

}  // namespace sysinfo_test

#endif
