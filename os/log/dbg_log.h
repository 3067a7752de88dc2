#ifndef OS_LOG_DBG_LOG_H
#define OS_LOG_DBG_LOG_H

// Diagnostic logging entry points: a level filter per module, a rate limit
// per group of modules, one fixed-format line to syslog.
//
// Sections: levels and the shared default-level block; the two entry points
// and their helpers; module levels and names (kernel side through
// "/proc/nox/log_level"); group rate limits.
//
// Every call that reads the tables, the shared block or the control file
// first runs the once-per-process initialisation (KIRA_DebugModuleInit).

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

// Content of "/dev/shm/dbglog.cfg", shared by every process of the node.
// The library reads the default level from the file at most once a second
// and never through the mapping (a file another process cuts short would
// fault the reader); a block that is a link, has a second name or is
// shorter than 16 bytes counts as absent, since any user may place one.
#define DBG_CFG_MAGIC 0x78ABC001u
typedef struct tagDBG_CFG_S {
    uint32_t uiMagic;
    uint8_t ucDefLevel;
    uint8_t aucReserved1[3];
    uint8_t aucReserved2[8];
} DBG_CFG_S;

// Records of the module and group tables and a group's rate-limit state;
// their layouts are private to the library.
typedef struct tagDBG_PID_CONF_S DBG_PID_CONF_S;
typedef struct tagDBG_GID_CONF_S DBG_GID_CONF_S;
typedef struct tagDBG_RATELIMIT_S DBG_RATELIMIT_S;

#ifdef __cplusplus
extern "C" {
#endif

// ---- entry points ----
// pid is the module number (424 for the monitoring plug-in), logCode a
// 16-bit code of the caller. KIRA_log ends the line with "name,pid".
KIRA_EXPORT void DBG_Log(uint32_t pid, int32_t level, const char* func, int32_t line, uint32_t logCode,
                         const char* format, ...) __attribute__((format(printf, 6, 7)));
KIRA_EXPORT void KIRA_log(uint32_t pid, int32_t level, const char* func, int32_t line, uint32_t logCode,
                          const char* format, ...) __attribute__((format(printf, 6, 7)));

KIRA_EXPORT void KIRA_DebugModuleInit(void);

// "CRI", "ERR", "WARN", "INFO", "DBG"; "Default" for 0 and 6 or more.
KIRA_EXPORT const char* DBG_GetLevelName(uint8_t level);
// 1 when stored; only a root-group process may change the default.
KIRA_EXPORT int32_t DBG_SetDefLogLevel(uint8_t level);
// The live mapping of the shared block. Another process may cut the file
// short at any time, and reading the mapping then raises SIGBUS: the library
// itself reads and writes the block through the file, never through this.
KIRA_EXPORT DBG_CFG_S* DBG_GetLogConfig(void);
KIRA_EXPORT void DBG_SetDefaultCfg(DBG_CFG_S* cfg);
// 1 when a line of this level is wanted for the module; caches the module's
// level in conf (may be null).
KIRA_EXPORT int32_t DBG_CheckArgs(DBG_PID_CONF_S* conf, uint32_t pid, int32_t level);
// name itself when shorter than width, else width-1 characters in buffer:
// the head, "..", and the last character.
KIRA_EXPORT const char* DBG_GetTruncFuncName(const char* name, char* buffer, uint32_t width);

// ---- module levels and names ----
// The module's name, or "<pid>" in a buffer shared by all callers.
KIRA_EXPORT const char* DBG_GetPidName(uint32_t pid);
KIRA_EXPORT void DBG_SetPidName(uint32_t pid, const char* name);
KIRA_EXPORT uint32_t DBG_GetPidLevel(uint32_t pid);
KIRA_EXPORT int32_t DBG_SetPidLevel(uint32_t pid, uint8_t level);
// array's element layout belongs to the kernel side; capacity is its count.
KIRA_EXPORT int32_t DBG_GetAllPidLevel(void* array, uint32_t capacity);
KIRA_EXPORT uint32_t KIRA_get_num_of_pid(void);
KIRA_EXPORT int32_t KIRA_save_log_level(void);
KIRA_EXPORT int32_t save_pid_log_level(void);

// ---- group rate limits ----
KIRA_EXPORT int32_t KIRA_reset_log_ratelimit(void);
KIRA_EXPORT int32_t KIRA_loglimit_init(void);
// gid 0xFFFFFFFF scales every group.
KIRA_EXPORT int32_t KIRA_set_log_ratelimit(uint32_t gid, uint32_t multiple);
KIRA_EXPORT int32_t KIRA_save_log_ratelimit(void);
KIRA_EXPORT int32_t KIRA_set_log_num_interval(uint32_t gid, uint32_t num, uint32_t interval);
KIRA_EXPORT int32_t KIRA_get_log_num_interval(uint32_t gid, uint32_t* num, uint32_t* interval);

// ---- the steps behind the entry points, for components that drive them ----
// Output: 1 when the module's group limit drops the line; one formatted
// line; the process identity texts.
KIRA_EXPORT int32_t is_print_full(DBG_PID_CONF_S* conf);
KIRA_EXPORT void __output_log(uint32_t pid, uint32_t level, const char* func, uint32_t line, uint64_t lineId,
                              const char* message, int32_t identityMode, DBG_PID_CONF_S* conf);
KIRA_EXPORT const char* __get_process_info(int32_t mode);
KIRA_EXPORT void __get_process_name(char* out);
// The once-per-process initialisation KIRA_DebugModuleInit runs.
KIRA_EXPORT void KIRA_DebugInitialize(void);

// Group table and its configuration files; 1 when the line is dropped.
KIRA_EXPORT int32_t add_gid_conf(uint32_t gid);
KIRA_EXPORT DBG_GID_CONF_S* search_gid_conf(uint32_t gid);
KIRA_EXPORT int32_t replace_or_add_gid(uint32_t gid, uint32_t num, uint32_t interval, uint32_t burst, uint32_t resume,
                                       int32_t localFlag);
KIRA_EXPORT int32_t ___ratelimit3(DBG_RATELIMIT_S* rs, const char* name);
KIRA_EXPORT int32_t read_gid_conf_line(char* line, uint32_t localFlag);
KIRA_EXPORT void read_gid_conf(const char* path);
KIRA_EXPORT void read_gid_conf_filename(const char* name);
KIRA_EXPORT void __load_gid_conf(void);
KIRA_EXPORT void load_gid_conf(void);

// Module table and its configuration files.
KIRA_EXPORT int32_t add_pid_conf(const DBG_PID_CONF_S* rec);
KIRA_EXPORT DBG_PID_CONF_S* search_pid_conf(uint32_t pid);
KIRA_EXPORT int32_t replace_or_add_pid(const DBG_PID_CONF_S* rec, uint32_t gid);
KIRA_EXPORT int32_t read_pid_conf_line(char* line);
KIRA_EXPORT void read_pid_conf(const char* path);
KIRA_EXPORT void read_pid_conf_filename(const char* name);
KIRA_EXPORT int32_t read_log_level_conf_line(char* line);
KIRA_EXPORT void read_log_level_conf(const char* path);
KIRA_EXPORT void __load_pid_conf(void);
KIRA_EXPORT void load_pid_conf(void);

#ifdef __cplusplus
}
#endif

#endif
