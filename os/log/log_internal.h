#ifndef OS_LOG_LOG_INTERNAL_H
#define OS_LOG_LOG_INTERNAL_H

// What the logging files share and nothing outside the layer needs (the
// steps other components drive are declared in dbg_log.h).
//
// In order: the fixed paths; the group and module records; the relaxed
// atomics the lock-free readers rely on; the keyed tree both tables are;
// then, file by file, what each file offers the others: the line
// (log_line.cpp), module levels (levels_and_limits.cpp), configuration
// files (conf_files.cpp), the set-up and the shared block (log_setup.cpp),
// the group table (levels_and_limits.cpp).

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include "os/base/kira_raii.h"
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

namespace kira_log {

using kira::MutexGuard;
using kira::SpinGuard;

template <typename T>
inline T RelaxedLoad(const T* p) {
    return __atomic_load_n(p, __ATOMIC_RELAXED);
}
template <typename T>
inline void RelaxedStore(T* p, T v) {
    __atomic_store_n(p, v, __ATOMIC_RELAXED);
}

// The group and module tables are the same kind of tree: records with their
// node first, keyed by a u32, never removed. Insertions and lookups hold the
// table's spin lock only for the walk; a record found stays valid after the
// lock is dropped because nothing is ever erased.
template <typename T, uint32_t T::*Key>
class KeyedTree {
    static_assert(offsetof(T, node) == 0, "records put their node first");

public:
    KeyedTree(rb_root* root, pthread_spinlock_t* lock) : root_(root), lock_(lock) {}

    T* Find(uint32_t key) const {
        SpinGuard hold(lock_);
        rb_node* n = root_->rb_node;
        while (n != nullptr) {
            T* rec = Entry(n);
            if (key < rec->*Key) {
                n = n->rb_left;
            } else if (key > rec->*Key) {
                n = n->rb_right;
            } else {
                return rec;
            }
        }
        return nullptr;
    }

    // False when a record with the same key is there already.
    bool Insert(T* rec) {
        SpinGuard hold(lock_);
        rb_node** link = &root_->rb_node;
        rb_node* parent = nullptr;
        while (*link != nullptr) {
            parent = *link;
            const uint32_t key = Entry(parent)->*Key;
            if (rec->*Key < key) {
                link = &parent->rb_left;
            } else if (rec->*Key > key) {
                link = &parent->rb_right;
            } else {
                return false;
            }
        }
        rb_link_node(&rec->node, parent, link);
        rb_insert_color(&rec->node, root_);
        return true;
    }

    // Ascending walk, one step per lock hold, so that a long walk doing I/O
    // never keeps inserters (and loggers) spinning.
    T* Next(T* prev) const {
        SpinGuard hold(lock_);
        rb_node* n = prev == nullptr ? rb_first(root_) : rb_next(&prev->node);
        return n == nullptr ? nullptr : Entry(n);
    }

private:
    static T* Entry(rb_node* n) { return reinterpret_cast<T*>(n); }  // the node is the first member

    rb_root* root_;
    pthread_spinlock_t* lock_;
};

// ---- the line (log_line.cpp) ----
// Lines dropped by the rate limiter since the process started.
uint64_t RateLimitedLines(void);

// ---- module levels (levels_and_limits.cpp) ----
// The module table: the spin lock guards the tree; the mutex keeps
// directory walks and saves of the table from running into each other.
extern struct rb_root pid_tree_root;
extern pthread_spinlock_t pid_tree_lock;
extern pthread_mutex_t pid_tree_mutex;

using PidTable = KeyedTree<DBG_PID_CONF_S, &DBG_PID_CONF_S::pid>;
inline PidTable PidTree() { return PidTable(&pid_tree_root, &pid_tree_lock); }

// Copies the module's name (possibly being renamed by another thread).
void SnapshotPidName(const DBG_PID_CONF_S* conf, char out[DBG_PID_NAME_SIZE]);
void StorePidLevel(DBG_PID_CONF_S* conf, uint8_t level);
// DBG_GetPidLevel once the set-up has run.
uint32_t PidLevel(uint32_t pid);
// Opens the process's descriptor of the control file; the set-up calls it
// once, after mapping the shared block.
void OpenControl(void);

// ---- configuration files (conf_files.cpp) ----
// A configuration line that begins with a newline or holds '#' anywhere
// carries nothing.
bool IsIgnoredConfLine(const char* line);
// Module files accept commas and blanks alike as separators.
void CommasToBlanks(char* line);
// Reads path line by line (256-byte pieces) and hands each to parse(line,
// arg); a negative answer logs "<reader>: <path> <parser> fail, (<line>)".
// A file that cannot be opened, or is not a regular file, is skipped
// silently; past 100000 lines the rest is ignored, with one line saying so.
void ReadConfFile(const char* path, const char* reader, const char* parser, int32_t (*parse)(char* line, uint32_t arg),
                  uint32_t arg);
// Produces the next saved line into buf; false when there is none.
typedef bool (*SaveLineFn)(void** cursor, char* buf, size_t size);
// Writes every line to "<finalPath>.new" synchronously, then renames it with
// "mv -f", all under mutex. Returns the command's status, or the failed
// open's result, or the count of a short write.
int32_t SaveConf(const char* caller, const char* finalPath, pthread_mutex_t* mutex, SaveLineFn next);

// ---- the shared block (log_setup.cpp) ----
// Default level of the shared block, 4 when the block is not mapped.
uint8_t DefaultLevel(void);

// ---- the group table (levels_and_limits.cpp) ----
// Locked as the module table is.
extern struct rb_root gid_tree_root;
extern pthread_spinlock_t gid_tree_lock;
extern pthread_mutex_t gid_tree_mutex;

using GidTable = KeyedTree<DBG_GID_CONF_S, &DBG_GID_CONF_S::gid>;
inline GidTable GidTree() { return GidTable(&gid_tree_root, &gid_tree_lock); }

// The group's record, created with the starting values when missing; null
// only when memory runs out.
DBG_GID_CONF_S* FindOrAddGid(uint32_t gid);

}  // namespace kira_log

#endif
