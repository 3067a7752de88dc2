#ifndef OS_LOG_DBG_LOG_H
#define OS_LOG_DBG_LOG_H

// Diagnostic logging entry points: a level filter per module, a rate limit
// per group of modules, one fixed-format line to syslog.

#include <stdint.h>

#include "os/base/kira_export.h"

typedef enum tagDBG_LOG_TYPE {
    DBG_LOG_EMERG = 1,
    DBG_LOG_ERROR = 2,
    DBG_LOG_WARNING = 3,
    DBG_LOG_EVENT = 4,
    DBG_LOG_INFO = 4,
    DBG_LOG_TRACE = 5,
    DBG_LOG_DEBUG = 5,
    DBG_LOG_BUTT = 6
} DBG_LOG_TYPE;

#define PID_CTRL_ZADIMONITOR 424

#ifdef __cplusplus
extern "C" {
#endif

KIRA_EXPORT void DBG_Log(uint32_t pid, int32_t level, const char* func, int32_t line, uint32_t logCode,
                         const char* format, ...) __attribute__((format(printf, 6, 7)));
KIRA_EXPORT void KIRA_log(uint32_t pid, int32_t level, const char* func, int32_t line, uint32_t logCode,
                          const char* format, ...) __attribute__((format(printf, 6, 7)));

#ifdef __cplusplus
}
#endif

#endif
