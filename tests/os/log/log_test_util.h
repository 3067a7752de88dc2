#ifndef TESTS_OS_LOG_LOG_TEST_UTIL_H
#define TESTS_OS_LOG_LOG_TEST_UTIL_H

// Helpers of the logging tests; the clock fake (in ratelimit_test.cpp) lets a
// test jump over the limiter's very long periods.

#include <stdint.h>
#include <string.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "tests/support/sandbox.h"

namespace logtest {

// This thread's CLOCK_MONOTONIC stops at the current second; AdvanceClock moves it on.
void FreezeClock();
void AdvanceClock(int64_t seconds);
// The next n CLOCK_MONOTONIC readings of this thread fail with EINVAL.
void FailClockReads(int n);

constexpr int64_t kUnit = 21600000;  // seconds of one limiter period unit

inline void WriteConf(const std::string& path, const std::string& content) {
    kt::MakeDirs(path.substr(0, path.rfind('/')));
    kt::WriteFile(path, content);
}

// The shared default-level block as another process would have left it.
inline void WriteSharedBlock(uint32_t magic, uint8_t level, uint8_t reservedFill) {
    std::string block(16, static_cast<char>(reservedFill));
    memcpy(&block[0], &magic, 4);
    block[4] = static_cast<char>(level);
    WriteConf("/dev/shm/dbglog.cfg", block);
}

// Captured lines whose message contains needle.
inline std::vector<kt::SyslogLine> Lines(const std::string& needle) {
    std::vector<kt::SyslogLine> out;
    for (const auto& l : kt::SyslogLines()) {
        if (l.message.find(needle) != std::string::npos) out.push_back(l);
    }
    return out;
}

// How many captured lines hold each needle (at that priority, unless -1), as "n,n,...".
inline std::string Seen(std::initializer_list<std::string> needles, int priority = -1) {
    std::string out;
    for (const std::string& n : needles) out += (out.empty() ? "" : ",") + std::to_string(kt::SyslogCount(n, priority));
    return out;
}

// What a process that cannot use the shared default-level block says once.
inline std::string Banner(int gid) {
    const std::string stars = std::string(32, ' ') + std::string(62, '*') + "\n";
    return stars + std::string(32, ' ') +
           "Can not open print level config file, log will not write/read to log file,gid=" + std::to_string(gid) +
           "\n" + stars;
}

// The process-identity field every line of this executable ends with.
inline std::string ProcessName() { return "os_log_tests"; }

}  // namespace logtest

#endif
