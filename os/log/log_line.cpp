// One logging line from the call to syslog, answering "why was my line
// dropped, and what does it look like". In the order a line meets them:
// the entry points DBG_Log/KIRA_log and the steps of one line (LogLine);
// the level filter (the module's level from the kernel side, else the
// shared default); the group rate limit (is_print_full and the limiter
// ___ratelimit3 with its "callbacks suppressed" reports); the function-name
// shortening, the fixed line format and its priority (__output_log); the
// level names. Everything a line needs lives on the caller's stack; nothing
// is allocated.

#include <errno.h>
#include <stdarg.h>
#include <string.h>
#include <syslog.h>
#include <time.h>

#include "os/log/log_internal.h"
#include "safec/safec.h"

using kira_log::DefaultLevel;
using kira_log::PidLevel;
using kira_log::RelaxedLoad;
using kira_log::SnapshotPidName;
using kira_log::SpinGuard;
using kira_log::StorePidLevel;

namespace {

constexpr uint32_t kFuncNameWidth = 33;
constexpr size_t kMessageSize = 160;
constexpr size_t kModuleNameSize = 16;
constexpr uint64_t kLineIdBase = 0x0001500000000000ULL;
const char kLimiterName[] = "___ratelimit3";

const char* const g_aszLogLevelName[DBG_LOG_BUTT] = {"", "CRI", "ERR", "WARN", "INFO", "DBG"};

uint64_t g_rateLimitedLines = 0;

int32_t LevelWanted(DBG_PID_CONF_S* conf, uint32_t pid, int32_t level);
uint64_t LineId(uint32_t pid, uint32_t logCode);

// ---- the entry points and the steps of one line ----

// The message is cut to 159 characters; the module's record (null for a
// module never named or configured) carries its group and its name.
void LogLine(uint32_t pid, int32_t level, const char* func, int32_t line, uint32_t logCode, int32_t identityMode,
             const char* format, va_list args) __attribute__((format(printf, 7, 0)));
void LogLine(uint32_t pid, int32_t level, const char* func, int32_t line, uint32_t logCode, int32_t identityMode,
             const char* format, va_list args) {
    KIRA_DebugModuleInit();
    DBG_PID_CONF_S* conf = search_pid_conf(pid);
    if (LevelWanted(conf, pid, level) == 0) {
        return;
    }
    if (is_print_full(conf) != 0) {
        return;
    }
    char funcBuf[kFuncNameWidth];
    const char* shortFunc = DBG_GetTruncFuncName(func, funcBuf, kFuncNameWidth);
    char message[kMessageSize];
    (void)vsnprintf_s(message, sizeof(message), sizeof(message) - 1, format, args);
    message[kMessageSize - 1] = '\0';
    __output_log(pid, static_cast<uint32_t>(level), shortFunc, static_cast<uint32_t>(line), LineId(pid, logCode),
                 message, identityMode, conf);
}

}  // namespace

extern "C" {

KIRA_EXPORT void DBG_Log(uint32_t pid, int32_t level, const char* func, int32_t line, uint32_t logCode,
                         const char* format, ...) {
    va_list args;
    va_start(args, format);
    LogLine(pid, level, func, line, logCode, 0, format, args);
    va_end(args);
}

KIRA_EXPORT void KIRA_log(uint32_t pid, int32_t level, const char* func, int32_t line, uint32_t logCode,
                          const char* format, ...) {
    va_list args;
    va_start(args, format);
    LogLine(pid, level, func, line, logCode, 1, format, args);
    va_end(args);
}

}  // extern "C"

// ---- level filter ----

namespace {

// DBG_CheckArgs once the set-up has run: a line pays for one once-check.
int32_t LevelWanted(DBG_PID_CONF_S* conf, uint32_t pid, int32_t level) {
    if (level > DBG_LOG_DEBUG || level < 0) {
        return 0;
    }
    const uint8_t moduleLevel = static_cast<uint8_t>(PidLevel(pid));
    if (conf != nullptr) {
        StorePidLevel(conf, moduleLevel);
    }
    const uint8_t effective = moduleLevel != 0 ? moduleLevel : DefaultLevel();
    return effective >= level ? 1 : 0;
}

}  // namespace

extern "C" {

KIRA_EXPORT int32_t DBG_CheckArgs(DBG_PID_CONF_S* conf, uint32_t pid, int32_t level) {
    KIRA_DebugModuleInit();
    return LevelWanted(conf, pid, level);
}

}  // extern "C"

// ---- group rate limit ----
// A period of `interval` units opens at the first limited call; within it
// `num` lines pass, the rest are counted and dropped, with a "callbacks
// suppressed" report at the first drop and then at most once per unit.

namespace {

void LogClockFailure() {
    syslog(LOG_ERR, "Execute clock_gettime failed, errno is %d.Print limit can not take effect.[%s].\n", errno,
           kLimiterName);
}

bool ReadClock(struct timespec* ts) { return clock_gettime(CLOCK_MONOTONIC, ts) == 0; }

// A line that ends a period reports the period's drops and clears it; the
// next period opens only at the following call.
void CloseExpiredPeriod(DBG_RATELIMIT_S* rs, const struct timespec& now, const char* name) {
    if (now.tv_sec <= rs->begin.tv_sec + static_cast<int64_t>(rs->interval) * DBG_RATELIMIT_UNIT) {
        return;
    }
    if (rs->missed != 0) {
        syslog(LOG_WARNING, "%s: %d callbacks suppressed in %u days[%s].\n", name, static_cast<int>(rs->missed),
               static_cast<unsigned>((now.tv_sec - rs->begin.tv_sec) / DBG_RATELIMIT_UNIT), kLimiterName);
    }
    rs->begin.tv_sec = 0;
    rs->last_report.tv_sec = 0;
    rs->printed = 0;
    rs->missed = 0;
}

}  // namespace

int32_t is_print_full(DBG_PID_CONF_S* conf) {
    if (conf == nullptr) {
        return 0;
    }
    DBG_GID_CONF_S* group = __atomic_load_n(&conf->group, __ATOMIC_ACQUIRE);
    if (group == nullptr) {
        return 0;
    }
    char name[DBG_PID_NAME_SIZE];
    SnapshotPidName(conf, name);
    const int32_t full = ___ratelimit3(&group->rs, name);
    if (full != 0) {
        __atomic_fetch_add(&g_rateLimitedLines, 1, __ATOMIC_RELAXED);
    }
    return full;
}

uint64_t kira_log::RateLimitedLines(void) { return __atomic_load_n(&g_rateLimitedLines, __ATOMIC_RELAXED); }

int32_t ___ratelimit3(DBG_RATELIMIT_S* rs, const char* name) {
    if (RelaxedLoad(&rs->interval) == 0) {
        return 0;
    }
    SpinGuard hold(&rs->lock);
    if (rs->begin.tv_sec == 0 && (!ReadClock(&rs->begin) || !ReadClock(&rs->last_report))) {
        LogClockFailure();
        return 0;
    }
    struct timespec now;
    if (!ReadClock(&now)) {
        LogClockFailure();
        return 0;
    }
    CloseExpiredPeriod(rs, now, name);
    if (rs->num != 0 && rs->num > rs->printed) {
        rs->printed++;
        return 0;
    }
    rs->missed++;
    if (rs->missed != 1 && now.tv_sec < rs->last_report.tv_sec + DBG_RATELIMIT_UNIT) {
        return 1;
    }
    if (!ReadClock(&rs->last_report)) {
        LogClockFailure();
    }
    syslog(LOG_WARNING, "%s: %d callbacks suppressed[%s].\n", name, static_cast<int>(rs->missed), kLimiterName);
    return 1;
}

// ---- line format ----

extern "C" {

KIRA_EXPORT const char* DBG_GetTruncFuncName(const char* name, char* buffer, uint32_t width) {
    if (name == nullptr || buffer == nullptr || width < 4) {
        return name;
    }
    const size_t len = strlen(name);
    if (width > len) {
        return name;
    }
    (void)memcpy_s(buffer, width, name, width - 4);
    buffer[width - 4] = '.';
    buffer[width - 3] = '.';
    buffer[width - 2] = name[len - 1];
    buffer[width - 1] = '\0';
    return buffer;
}

}  // extern "C"

namespace {

// Level 4 goes out as LOG_NOTICE, not LOG_INFO, deliberately; priorities 1,
// 2 and 6 are never used.
int SyslogPriority(uint32_t level) {
    switch (level) {
        case DBG_LOG_EMERG:
            return LOG_EMERG;
        case DBG_LOG_ERROR:
            return LOG_ERR;
        case DBG_LOG_WARNING:
            return LOG_WARNING;
        case DBG_LOG_INFO:
            return LOG_NOTICE;
        case DBG_LOG_DEBUG:
            return LOG_DEBUG;
        default:
            return -1;
    }
}

uint64_t LineId(uint32_t pid, uint32_t logCode) {
    return kLineIdBase | (static_cast<uint64_t>(pid & 0xFFFFu) << 16) | (logCode & 0xFFFFu);
}

}  // namespace

// "[sec.usec][line id][level][message][module][function,line][process]".
void __output_log(uint32_t pid, uint32_t level, const char* func, uint32_t line, uint64_t lineId, const char* message,
                  int32_t identityMode, DBG_PID_CONF_S* conf) {
    char moduleName[DBG_PID_NAME_SIZE];
    if (conf != nullptr) {
        SnapshotPidName(conf, moduleName);
    } else {
        moduleName[0] = '\0';
    }
    if (moduleName[0] == '\0') {
        (void)snprintf_s(moduleName, kModuleNameSize, kModuleNameSize - 1, "<%u>", pid);
    }
    struct timespec now = {0, 0};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    const int priority = SyslogPriority(level);
    if (priority < 0) {
        return;
    }
    syslog(priority, "[%5lu.%06lu][%lx][%s][%s][%s][%s,%d][%s]\n", static_cast<unsigned long>(now.tv_sec),
           static_cast<unsigned long>(now.tv_nsec / 1000), static_cast<unsigned long>(lineId), g_aszLogLevelName[level],
           message, moduleName, func, static_cast<int>(line), __get_process_info(identityMode));
}

extern "C" {

KIRA_EXPORT const char* DBG_GetLevelName(uint8_t level) {
    if (level == 0 || level >= DBG_LOG_BUTT) {
        return "Default";
    }
    return g_aszLogLevelName[level];
}

}  // extern "C"
