#ifndef TESTS_OS_LOG_LOG_TEST_UTIL_H
#define TESTS_OS_LOG_LOG_TEST_UTIL_H

// Helpers of the logging tests: configuration files in the sandbox, the
// library's own lines among the captured syslog, and the monotonic clock
// fake (defined in ratelimit_test.cpp) that lets a test jump over the
// limiter's very long periods.

#include <stdint.h>
#include <string.h>

#include <string>
#include <vector>

#include "tests/support/sandbox.h"

namespace logtest {

// This thread's CLOCK_MONOTONIC stops at the current second.
void FreezeClock();
// Seconds added to every CLOCK_MONOTONIC reading of this thread.
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

// Captured lines whose message contains needle, as (priority, message).
inline std::vector<kt::SyslogLine> Lines(const std::string& needle) {
    std::vector<kt::SyslogLine> out;
    for (const auto& l : kt::SyslogLines()) {
        if (l.message.find(needle) != std::string::npos) out.push_back(l);
    }
    return out;
}

// The process-identity field every line of this executable ends with.
inline std::string ProcessName() { return "os_log_tests"; }

}  // namespace logtest

#endif
