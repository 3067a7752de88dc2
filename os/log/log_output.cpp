// The two entry points and the steps of one line: level filter, group rate
// limit, function-name shortening, message formatting, the line id and the
// fixed line format handed to syslog. Everything a line needs lives on the
// caller's stack; nothing is allocated.

#include <stdarg.h>
#include <string.h>
#include <syslog.h>
#include <time.h>

#include "os/log/log_internal.h"
#include "os/log/log_util_internal.h"
#include "safec/safec.h"

namespace {

constexpr uint32_t kFuncNameWidth = 33;
constexpr size_t kMessageSize = 160;
constexpr size_t kModuleNameSize = 16;
constexpr uint64_t kLineIdBase = 0x0001500000000000ULL;

const char* const g_aszLogLevelName[DBG_LOG_BUTT] = {"", "CRI", "ERR", "WARN", "INFO", "DBG"};

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

uint64_t g_rateLimitedLines = 0;

uint64_t LineId(uint32_t pid, uint32_t logCode) {
    return kLineIdBase | (static_cast<uint64_t>(pid & 0xFFFFu) << 16) | (logCode & 0xFFFFu);
}

// DBG_CheckArgs once the set-up has run: a line pays for one once-check.
int32_t LevelWanted(DBG_PID_CONF_S* conf, uint32_t pid, int32_t level) {
    if (level > DBG_LOG_DEBUG || level < 0) return 0;
    const uint8_t moduleLevel = static_cast<uint8_t>(DbgPidLevel(pid));
    if (conf != nullptr) DbgStorePidLevel(conf, moduleLevel);
    const uint8_t effective = moduleLevel != 0 ? moduleLevel : DbgDefaultLevel();
    return effective >= level ? 1 : 0;
}

void LogLine(uint32_t pid, int32_t level, const char* func, int32_t line, uint32_t logCode, int32_t identityMode,
             const char* format, va_list args) __attribute__((format(printf, 7, 0)));
void LogLine(uint32_t pid, int32_t level, const char* func, int32_t line, uint32_t logCode, int32_t identityMode,
             const char* format, va_list args) {
    KIRA_DebugModuleInit();
    DBG_PID_CONF_S* conf = search_pid_conf(pid);
    if (LevelWanted(conf, pid, level) == 0) return;
    if (is_print_full(conf) != 0) return;
    char funcBuf[kFuncNameWidth];
    const char* shortFunc = DBG_GetTruncFuncName(func, funcBuf, kFuncNameWidth);
    char message[kMessageSize];
    (void)vsnprintf_s(message, sizeof(message), sizeof(message) - 1, format, args);
    message[kMessageSize - 1] = '\0';
    __output_log(pid, static_cast<uint32_t>(level), shortFunc, static_cast<uint32_t>(line), LineId(pid, logCode),
                 message, identityMode, conf);
}

}  // namespace

int32_t is_print_full(DBG_PID_CONF_S* conf) {
    if (conf == nullptr) return 0;
    DBG_GID_CONF_S* group = __atomic_load_n(&conf->group, __ATOMIC_ACQUIRE);
    if (group == nullptr) return 0;
    char name[DBG_PID_NAME_SIZE];
    DbgSnapshotPidName(conf, name);
    const int32_t full = ___ratelimit3(&group->rs, name);
    if (full != 0) __atomic_fetch_add(&g_rateLimitedLines, 1, __ATOMIC_RELAXED);
    return full;
}

uint64_t DbgRateLimitedLines(void) { return __atomic_load_n(&g_rateLimitedLines, __ATOMIC_RELAXED); }

void __output_log(uint32_t pid, uint32_t level, const char* func, uint32_t line, uint64_t lineId, const char* message,
                  int32_t identityMode, DBG_PID_CONF_S* conf) {
    char moduleName[DBG_PID_NAME_SIZE];
    if (conf != nullptr) {
        DbgSnapshotPidName(conf, moduleName);
    } else {
        moduleName[0] = '\0';
    }
    if (moduleName[0] == '\0') {
        (void)snprintf_s(moduleName, kModuleNameSize, kModuleNameSize - 1, "<%u>", pid);
    }
    struct timespec now = {0, 0};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    const int priority = SyslogPriority(level);
    if (priority < 0) return;
    syslog(priority, "[%5lu.%06lu][%lx][%s][%s][%s][%s,%d][%s]\n", static_cast<unsigned long>(now.tv_sec),
           static_cast<unsigned long>(now.tv_nsec / 1000), static_cast<unsigned long>(lineId), g_aszLogLevelName[level],
           message, moduleName, func, static_cast<int>(line), __get_process_info(identityMode));
}

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

KIRA_EXPORT int32_t DBG_CheckArgs(DBG_PID_CONF_S* conf, uint32_t pid, int32_t level) {
    KIRA_DebugModuleInit();
    return LevelWanted(conf, pid, level);
}

KIRA_EXPORT const char* DBG_GetTruncFuncName(const char* name, char* buffer, uint32_t width) {
    if (name == nullptr || buffer == nullptr || width < 4) return name;
    const size_t len = strlen(name);
    if (width > len) return name;
    (void)memcpy_s(buffer, width, name, width - 4);
    buffer[width - 4] = '.';
    buffer[width - 3] = '.';
    buffer[width - 2] = name[len - 1];
    buffer[width - 1] = '\0';
    return buffer;
}

KIRA_EXPORT const char* DBG_GetLevelName(uint8_t level) {
    if (level == 0 || level >= DBG_LOG_BUTT) return "Default";
    return g_aszLogLevelName[level];
}

}  // extern "C"
