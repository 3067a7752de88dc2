#ifndef OS_LOG_LOG_INTERNAL_H
#define OS_LOG_LOG_INTERNAL_H

// Internals of the logging subsystem shared by its files: the group and
// module records, the kernel-side request record and the process-wide
// state. Nothing here is exported (the helpers other components call are
// declared in dbg_log.h).

#include <pthread.h>
#include <stdint.h>
#include <time.h>

#include "os/base/kira_rbtree.h"
#include "os/log/dbg_log.h"

// ---- fixed paths ----
#define DBG_CFG_FILE "/dev/shm/dbglog.cfg"
#define DBG_LEVEL_CTL_FILE "/proc/nox/log_level"
#define DBG_CONF_DIR "/etc/nox/pid/"
#define DBG_GID_PRODUCT_CONF "/ZUK/conf/gid_print_limit.conf"
#define DBG_GID_LOCAL_CONF "/startup_disk/conf/conf_local/gid_log_ratelimit.conf"
#define DBG_PID_OBSOLETE_CONF "/ZUK/conf/pid_obsolete.conf"
#define DBG_PID_GID_CONF "/ZUK/conf/gid_of_pid.conf"
#define DBG_PID_LEVEL_CONF "/startup_disk/conf/conf_local/pid_log_level.conf"

#define DBG_CONF_LINE_SIZE 256
#define DBG_PID_NAME_SIZE 32
#define DBG_ALL_GID 0xFFFFFFFFu

// ---- group records ----
// Seconds of one rate-limit period unit; also the divisor of the "days"
// figure in the suppression report (the same constant in both places is
// how the product reports it).
#define DBG_RATELIMIT_UNIT 21600000LL

typedef struct tagDBG_RATELIMIT_S {
    pthread_spinlock_t lock;
    uint32_t interval;     // periods of DBG_RATELIMIT_UNIT; 0 = no limit
    uint32_t default_num;  // product-configured count, base for scaling
    uint32_t num;          // lines allowed per period
    uint32_t printed;
    uint32_t missed;
    uint32_t burst;         // kept and saved only
    uint32_t resume;        // kept and saved only
    struct timespec begin;  // tv_sec 0: period not started
    struct timespec last_report;
} DBG_RATELIMIT_S;

typedef struct tagDBG_GID_CONF_S {
    struct rb_node node;
    uint32_t gid;
    DBG_RATELIMIT_S rs;
} DBG_GID_CONF_S;

// ---- module records ----
struct tagDBG_PID_CONF_S {
    struct rb_node node;
    uint32_t pid;
    uint8_t level;          // last level seen; written and read with relaxed atomics
    DBG_GID_CONF_S* group;  // set once linked, read without the tree lock
    char pid_name[DBG_PID_NAME_SIZE];
};

// Request record of "/proc/nox/log_level", laid out as the kernel side
// expects it.
typedef struct tagDBG_LEVEL_REQ_S {
    uint32_t pid;
    uint8_t level;
    uint8_t pad1[3];
    uint32_t num;
    uint32_t pad2;
    uint64_t array;
} DBG_LEVEL_REQ_S;
static_assert(sizeof(DBG_LEVEL_REQ_S) == 24, "kernel request record is 24 bytes");

#define DBG_REQ_GET_LEVEL 801
#define DBG_REQ_SET_LEVEL 802
#define DBG_REQ_GET_NUM 803
#define DBG_REQ_GET_ALL 804
#define DBG_REQ_SAVE 805

// ---- process-wide state ----
extern struct rb_root gid_tree_root;
extern pthread_spinlock_t gid_tree_lock;
extern pthread_mutex_t gid_tree_mutex;
extern struct rb_root pid_tree_root;
extern pthread_spinlock_t pid_tree_lock;
extern pthread_mutex_t pid_tree_mutex;

// Default level of the shared block, 4 when the block is not mapped.
uint8_t DbgDefaultLevel(void);
// DBG_GetPidLevel once the set-up has run.
uint32_t DbgPidLevel(uint32_t pid);
// Descriptor of the control file, -1 when absent.
int DbgControlFd(void);

// ---- output ----
// Lines dropped by the rate limiter since the process started.
uint64_t DbgRateLimitedLines(void);

// ---- group table ----
// The group's record, created with the starting values when missing; null
// only when memory runs out.
DBG_GID_CONF_S* DbgFindOrAddGid(uint32_t gid);
// In-order walk that may run beside insertions: null starts at the first.
DBG_GID_CONF_S* DbgNextGid(DBG_GID_CONF_S* prev);

// ---- module table ----
DBG_PID_CONF_S* DbgNextPid(DBG_PID_CONF_S* prev);
// Copies the module's name (possibly being renamed by another thread).
void DbgSnapshotPidName(const DBG_PID_CONF_S* conf, char out[DBG_PID_NAME_SIZE]);
void DbgStorePidName(DBG_PID_CONF_S* conf, const char* name);
uint8_t DbgLoadPidLevel(const DBG_PID_CONF_S* conf);
void DbgStorePidLevel(DBG_PID_CONF_S* conf, uint8_t level);

#endif
