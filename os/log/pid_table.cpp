// The module table: records keyed by module number, each with a display
// name, a cached level and a link to its rate-limit group; naming modules.
// Names and levels are read by every logging thread without the tree lock,
// so they are stored and read byte-wise with relaxed atomics.

#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

#include "os/log/keyed_tree_internal.h"
#include "os/log/log_internal.h"
#include "safec/safec.h"

struct rb_root pid_tree_root = RB_ROOT;
pthread_spinlock_t pid_tree_lock;
pthread_mutex_t pid_tree_mutex = PTHREAD_MUTEX_INITIALIZER;

static_assert(offsetof(DBG_PID_CONF_S, node) == 0, "records put their node first");

namespace {

// Shared by every caller of DBG_GetPidName for unnamed modules.
char g_unnamedPidName[16];

KeyedTree<DBG_PID_CONF_S, &DBG_PID_CONF_S::pid> PidTree() {
    return KeyedTree<DBG_PID_CONF_S, &DBG_PID_CONF_S::pid>(&pid_tree_root, &pid_tree_lock);
}

bool IsValidPidName(const char* name) {
    return name != nullptr && name[0] != '\0' && strnlen(name, DBG_PID_NAME_SIZE) < DBG_PID_NAME_SIZE;
}

// The inserted copy, or null with *rc -12 (out of memory) or -22 (the
// module is there already).
DBG_PID_CONF_S* InsertCopy(const DBG_PID_CONF_S* rec, int32_t* rc) {
    auto* copy = static_cast<DBG_PID_CONF_S*>(calloc(1, sizeof(DBG_PID_CONF_S)));
    if (copy == nullptr) {
        syslog(LOG_INFO, "%s: __nox_zmalloc fail\n", "add_pid_conf");
        *rc = -12;
        return nullptr;
    }
    *copy = *rec;
    copy->level = 0;
    if (!PidTree().Insert(copy)) {
        free(copy);
        *rc = -22;
        return nullptr;
    }
    *rc = 0;
    return copy;
}

}  // namespace

int32_t add_pid_conf(const DBG_PID_CONF_S* rec) {
    int32_t rc = 0;
    (void)InsertCopy(rec, &rc);
    return rc;
}

DBG_PID_CONF_S* search_pid_conf(uint32_t pid) { return PidTree().Find(pid); }

DBG_PID_CONF_S* DbgNextPid(DBG_PID_CONF_S* prev) { return PidTree().Next(prev); }

int32_t replace_or_add_pid(const DBG_PID_CONF_S* rec, uint32_t gid) {
    int32_t rc = 0;
    DBG_PID_CONF_S* conf = search_pid_conf(rec->pid);
    if (conf == nullptr) conf = InsertCopy(rec, &rc);
    // Another thread may have added the module in between.
    if (conf == nullptr) conf = search_pid_conf(rec->pid);
    if (conf == nullptr) {
        syslog(LOG_INFO, "%s: pid tree error\n", "replace_or_add_pid");
        return -1;
    }
    if (gid != 0) {
        DBG_GID_CONF_S* group = DbgFindOrAddGid(gid);
        if (group != nullptr) __atomic_store_n(&conf->group, group, __ATOMIC_RELEASE);
    }
    return 0;
}

void DbgSnapshotPidName(const DBG_PID_CONF_S* conf, char out[DBG_PID_NAME_SIZE]) {
    for (size_t i = 0; i < DBG_PID_NAME_SIZE - 1; ++i) {
        out[i] = RelaxedLoad(&conf->pid_name[i]);
        if (out[i] == '\0') return;
    }
    out[DBG_PID_NAME_SIZE - 1] = '\0';
}

void DbgStorePidName(DBG_PID_CONF_S* conf, const char* name) {
    size_t i = 0;
    for (; i < DBG_PID_NAME_SIZE - 1 && name[i] != '\0'; ++i) RelaxedStore(&conf->pid_name[i], name[i]);
    RelaxedStore(&conf->pid_name[i], '\0');
}

uint8_t DbgLoadPidLevel(const DBG_PID_CONF_S* conf) { return RelaxedLoad(&conf->level); }

void DbgStorePidLevel(DBG_PID_CONF_S* conf, uint8_t level) { RelaxedStore(&conf->level, level); }

extern "C" {

KIRA_EXPORT const char* DBG_GetPidName(uint32_t pid) {
    KIRA_DebugModuleInit();
    DBG_PID_CONF_S* conf = search_pid_conf(pid);
    if (conf != nullptr && RelaxedLoad(&conf->pid_name[0]) != '\0') return conf->pid_name;
    (void)snprintf_s(g_unnamedPidName, sizeof(g_unnamedPidName), sizeof(g_unnamedPidName) - 1, "<%u>", pid);
    return g_unnamedPidName;
}

KIRA_EXPORT void DBG_SetPidName(uint32_t pid, const char* name) {
    KIRA_DebugModuleInit();
    if (pid == 0) {
        syslog(LOG_INFO, "%s: pid is inval\n", "DBG_SetPidName");
        return;
    }
    if (!IsValidPidName(name)) {
        syslog(LOG_INFO, "%s: pid_name is inval\n", "DBG_SetPidName");
        return;
    }
    DBG_PID_CONF_S* conf = search_pid_conf(pid);
    if (conf != nullptr) {
        DbgStorePidName(conf, name);
        return;
    }
    DBG_PID_CONF_S rec;
    memset(&rec, 0, sizeof(rec));
    rec.pid = pid;
    (void)strncpy_s(rec.pid_name, sizeof(rec.pid_name), name, sizeof(rec.pid_name) - 1);
    (void)add_pid_conf(&rec);
}

}  // extern "C"
