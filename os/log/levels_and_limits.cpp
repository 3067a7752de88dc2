// Module levels and names, and group limits: the two tables a line is
// judged by, answering "which level and name does a module have, which
// limit does its group have, and who set them". In order: the module table
// (records keyed by module number, each with a display name, a cached level
// and a link to its rate-limit group); naming modules; the kernel side,
// which holds the levels, through requests on "/proc/nox/log_level"; the
// local level file, read at set-up and written by save_pid_log_level; then
// the group table (records created zero-filled with the limiter's starting
// values, looked up by group number, updated from configuration lines);
// reset to the configured values; scaling by a multiple, with its overflow
// reports; direct set and get; saving to the local override file. The
// limiter that applies a group's limit to a line is in log_line.cpp.
// Names and levels are read by every logging thread without the tree lock,
// so they are stored and read byte-wise with relaxed atomics.

#include <fcntl.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <syslog.h>

#include "os/base/kira_file.h"
#include "os/base/kira_raii.h"
#include "os/log/log_internal.h"
#include "safec/safec.h"

using kira_log::GidTree;
using kira_log::MutexGuard;
using kira_log::PidTree;
using kira_log::RelaxedLoad;
using kira_log::RelaxedStore;
using kira_log::SpinGuard;

// ---- the module table ----

namespace kira_log {

struct rb_root pid_tree_root = RB_ROOT;
pthread_spinlock_t pid_tree_lock;
pthread_mutex_t pid_tree_mutex = PTHREAD_MUTEX_INITIALIZER;

}  // namespace kira_log

namespace {

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

// A record for a module met without a name: number only, level cleared.
void AddBarePid(uint32_t pid) {
    DBG_PID_CONF_S rec;
    memset(&rec, 0, sizeof(rec));
    rec.pid = pid;
    (void)add_pid_conf(&rec);
}

}  // namespace

int32_t add_pid_conf(const DBG_PID_CONF_S* rec) {
    int32_t rc = 0;
    (void)InsertCopy(rec, &rc);
    return rc;
}

DBG_PID_CONF_S* search_pid_conf(uint32_t pid) { return PidTree().Find(pid); }

int32_t replace_or_add_pid(const DBG_PID_CONF_S* rec, uint32_t gid) {
    int32_t rc = 0;
    DBG_PID_CONF_S* conf = search_pid_conf(rec->pid);
    if (conf == nullptr) {
        conf = InsertCopy(rec, &rc);
    }
    // Another thread may have added the module in between.
    if (conf == nullptr) {
        conf = search_pid_conf(rec->pid);
    }
    if (conf == nullptr) {
        syslog(LOG_INFO, "%s: pid tree error\n", "replace_or_add_pid");
        return -1;
    }
    if (gid != 0) {
        DBG_GID_CONF_S* group = kira_log::FindOrAddGid(gid);
        if (group != nullptr) {
            __atomic_store_n(&conf->group, group, __ATOMIC_RELEASE);
        }
    }
    return 0;
}

namespace kira_log {

void SnapshotPidName(const DBG_PID_CONF_S* conf, char out[DBG_PID_NAME_SIZE]) {
    for (size_t i = 0; i < DBG_PID_NAME_SIZE - 1; ++i) {
        out[i] = RelaxedLoad(&conf->pid_name[i]);
        if (out[i] == '\0') {
            return;
        }
    }
    out[DBG_PID_NAME_SIZE - 1] = '\0';
}

void StorePidLevel(DBG_PID_CONF_S* conf, uint8_t level) { RelaxedStore(&conf->level, level); }

}  // namespace kira_log

// ---- naming modules ----

namespace {

// Shared by every caller of DBG_GetPidName for unnamed modules.
char g_unnamedPidName[16];

bool IsValidPidName(const char* name) {
    return name != nullptr && name[0] != '\0' && strnlen(name, DBG_PID_NAME_SIZE) < DBG_PID_NAME_SIZE;
}

void StorePidName(DBG_PID_CONF_S* conf, const char* name) {
    size_t i = 0;
    for (; i < DBG_PID_NAME_SIZE - 1 && name[i] != '\0'; ++i) {
        RelaxedStore(&conf->pid_name[i], name[i]);
    }
    RelaxedStore(&conf->pid_name[i], '\0');
}

}  // namespace

extern "C" {

KIRA_EXPORT const char* DBG_GetPidName(uint32_t pid) {
    KIRA_DebugModuleInit();
    DBG_PID_CONF_S* conf = search_pid_conf(pid);
    if (conf != nullptr && RelaxedLoad(&conf->pid_name[0]) != '\0') {
        return conf->pid_name;
    }
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
        StorePidName(conf, name);
        return;
    }
    DBG_PID_CONF_S rec;
    memset(&rec, 0, sizeof(rec));
    rec.pid = pid;
    (void)strncpy_s(rec.pid_name, sizeof(rec.pid_name), name, sizeof(rec.pid_name) - 1);
    (void)add_pid_conf(&rec);
}

}  // extern "C"

// ---- the kernel side ----

namespace {

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

constexpr unsigned long kReqGetLevel = 801;
constexpr unsigned long kReqSetLevel = 802;
constexpr unsigned long kReqGetNum = 803;
constexpr unsigned long kReqGetAll = 804;
constexpr unsigned long kReqSave = 805;

// The process's descriptor, opened once by the set-up; -1 when absent.
int iFd_log_level = -1;

DBG_LEVEL_REQ_S LevelRequest(uint32_t pid, uint8_t level) {
    DBG_LEVEL_REQ_S req;
    memset(&req, 0, sizeof(req));
    req.pid = pid;
    req.level = level;
    return req;
}

int Request(int fd, unsigned long request, DBG_LEVEL_REQ_S* req) { return ioctl(fd, request, req); }

// Counting and listing open the control file afresh rather than sharing the
// process's descriptor.
int OpenControlFile() {
    const int fd = KIRA_open(DBG_LEVEL_CTL_FILE, O_RDWR, 0);
    if (fd < 0) {
        syslog(LOG_INFO, "open /proc/nox/log_level fail\n");
    }
    return fd;
}

void CloseControlFile(kira::UniqueFd& fd) { KIRA_close(fd.release()); }

}  // namespace

namespace kira_log {

void OpenControl(void) {
    iFd_log_level = KIRA_open(DBG_LEVEL_CTL_FILE, O_RDWR, 0);
    if (iFd_log_level == -1) {
        syslog(LOG_INFO, "open /proc/nox/log_level fail\n");
    }
}

uint32_t PidLevel(uint32_t pid) {
    const int fd = iFd_log_level;
    if (fd < 0) {
        return DefaultLevel();
    }
    DBG_LEVEL_REQ_S req = LevelRequest(pid, 0);
    if (Request(fd, kReqGetLevel, &req) != 0) {
        syslog(LOG_INFO, "execute ioctl get log level fail\n");
        return DefaultLevel();
    }
    return req.level;
}

}  // namespace kira_log

extern "C" {

KIRA_EXPORT uint32_t DBG_GetPidLevel(uint32_t pid) {
    KIRA_DebugModuleInit();
    return kira_log::PidLevel(pid);
}

KIRA_EXPORT int32_t DBG_SetPidLevel(uint32_t pid, uint8_t level) {
    KIRA_DebugModuleInit();
    DBG_PID_CONF_S* conf = search_pid_conf(pid);
    const int fd = iFd_log_level;
    if (fd < 0) {
        return -1;
    }
    DBG_LEVEL_REQ_S req = LevelRequest(pid, level);
    if (Request(fd, kReqSetLevel, &req) != 0) {
        syslog(LOG_INFO, "execute ioctl set log level fail\n");
        return -1;
    }
    if (conf == nullptr) {
        AddBarePid(pid);
        conf = search_pid_conf(pid);
        if (conf == nullptr) {
            syslog(LOG_INFO, "<3>pid not exists,something error[%s].\n", "DBG_SetPidLevel");
            return -1;
        }
    }
    kira_log::StorePidLevel(conf, level);
    return 0;
}

KIRA_EXPORT uint32_t KIRA_get_num_of_pid(void) {
    KIRA_DebugModuleInit();
    kira::UniqueFd fd(OpenControlFile());
    if (!fd.valid()) {
        return 0;
    }
    DBG_LEVEL_REQ_S req = LevelRequest(0, 0);
    const int rc = Request(fd.get(), kReqGetNum, &req);
    CloseControlFile(fd);
    if (rc != 0) {
        syslog(LOG_INFO, "execute ioctl get pid num fail\n");
        return 0;
    }
    return req.num;
}

KIRA_EXPORT int32_t DBG_GetAllPidLevel(void* array, uint32_t capacity) {
    KIRA_DebugModuleInit();
    if (array == nullptr) {
        syslog(LOG_INFO, "<3>param array is NULL\n");
        return -1;
    }
    kira::UniqueFd fd(OpenControlFile());
    if (!fd.valid()) {
        return -1;
    }
    DBG_LEVEL_REQ_S req = LevelRequest(0, 0);
    req.num = capacity;
    req.array = reinterpret_cast<uintptr_t>(array);
    const int rc = Request(fd.get(), kReqGetAll, &req);
    CloseControlFile(fd);
    if (rc != 0) {
        syslog(LOG_INFO, "execute ioctl get all pid log level fail\n");
        return -1;
    }
    return 0;
}

// The failure text says "get" although this is the save request; it is the
// text the node's tooling has always seen.
KIRA_EXPORT int32_t KIRA_save_log_level(void) {
    KIRA_DebugModuleInit();
    const int fd = iFd_log_level;
    if (fd < 0) {
        return -1;
    }
    DBG_LEVEL_REQ_S req = LevelRequest(0, 0);
    if (Request(fd, kReqSave, &req) != 0) {
        syslog(LOG_INFO, "execute ioctl get log level fail\n");
        return -1;
    }
    return 0;
}

}  // extern "C"

// ---- the local level file ----
// "pid=<n>,level=<n>" lines; commas and blanks alike separate.

namespace {

int32_t ParseLevelLine(char* line, uint32_t) { return read_log_level_conf_line(line); }

bool NextSavedPidLine(void** cursor, char* buf, size_t size) {
    auto* conf = PidTree().Next(static_cast<DBG_PID_CONF_S*>(*cursor));
    *cursor = conf;
    if (conf == nullptr) {
        return false;
    }
    return snprintf_s(buf, size, size - 1, "pid=%u,level=%u\n", conf->pid,
                      static_cast<unsigned>(RelaxedLoad(&conf->level))) >= 0;
}

}  // namespace

// A module met only here keeps no level: the record is created through
// add_pid_conf, which clears it.
int32_t read_log_level_conf_line(char* line) {
    if (kira_log::IsIgnoredConfLine(line)) {
        return 0;
    }
    kira_log::CommasToBlanks(line);
    uint32_t pid = 0;
    uint32_t level = 0;
    if (sscanf_s(line, "pid=%u level=%u\n", &pid, &level) != 2 || pid == 0) {
        return -22;
    }
    DBG_PID_CONF_S* conf = search_pid_conf(pid);
    if (conf != nullptr) {
        kira_log::StorePidLevel(conf, static_cast<uint8_t>(level));
        return 0;
    }
    AddBarePid(pid);
    return 0;
}

// The rejection text names the module-file parser deliberately; it is the
// text this file has always been reported with.
void read_log_level_conf(const char* path) {
    kira_log::ReadConfFile(path, "read_log_level_conf", "read_pid_conf_line", ParseLevelLine, 0);
}

extern "C" {

KIRA_EXPORT int32_t save_pid_log_level(void) {
    KIRA_DebugModuleInit();
    return kira_log::SaveConf("save_pid_log_level", DBG_PID_LEVEL_CONF, &kira_log::pid_tree_mutex, NextSavedPidLine);
}

}  // extern "C"

// ---- the group table ----

namespace kira_log {

struct rb_root gid_tree_root = RB_ROOT;
pthread_spinlock_t gid_tree_lock;
pthread_mutex_t gid_tree_mutex = PTHREAD_MUTEX_INITIALIZER;

}  // namespace kira_log

namespace {

constexpr uint32_t kCreatedInterval = 1;
constexpr uint32_t kCreatedNum = 0xFFFFFFFFu;

// In-order walk that may run beside insertions: null starts at the first.
DBG_GID_CONF_S* NextGid(DBG_GID_CONF_S* prev) { return GidTree().Next(prev); }

// FindOrAddGid, with the caller's report when memory runs out.
DBG_GID_CONF_S* FindOrAddReported(uint32_t gid, const char* caller) {
    DBG_GID_CONF_S* rec = kira_log::FindOrAddGid(gid);
    if (rec == nullptr) {
        syslog(LOG_INFO, "%s: gid tree error\n", caller);
    }
    return rec;
}

}  // namespace

int32_t add_gid_conf(uint32_t gid) {
    auto* rec = static_cast<DBG_GID_CONF_S*>(calloc(1, sizeof(DBG_GID_CONF_S)));
    if (rec == nullptr) {
        syslog(LOG_INFO, "%s: __nox_zmalloc fail\n", "add_gid_conf");
        return -12;
    }
    rec->gid = gid;
    pthread_spin_init(&rec->rs.lock, PTHREAD_PROCESS_PRIVATE);
    rec->rs.interval = kCreatedInterval;
    rec->rs.num = kCreatedNum;
    if (!GidTree().Insert(rec)) {
        pthread_spin_destroy(&rec->rs.lock);
        free(rec);
        return -22;
    }
    return 0;
}

DBG_GID_CONF_S* search_gid_conf(uint32_t gid) { return GidTree().Find(gid); }

DBG_GID_CONF_S* kira_log::FindOrAddGid(uint32_t gid) {
    DBG_GID_CONF_S* rec = search_gid_conf(gid);
    if (rec == nullptr) {
        (void)add_gid_conf(gid);
        rec = search_gid_conf(gid);
    }
    return rec;
}

int32_t replace_or_add_gid(uint32_t gid, uint32_t num, uint32_t interval, uint32_t burst, uint32_t resume,
                           int32_t localFlag) {
    DBG_GID_CONF_S* rec = FindOrAddReported(gid, "replace_or_add_gid");
    if (rec == nullptr) {
        return -1;
    }
    SpinGuard hold(&rec->rs.lock);
    RelaxedStore(&rec->rs.interval, interval);
    rec->rs.num = num;
    rec->rs.burst = burst;
    rec->rs.resume = resume;
    if (localFlag == 0) {
        rec->rs.default_num = num;
    }
    return 0;
}

// ---- reset ----

namespace {

constexpr uint32_t kUnlimitedNum = 0xFFFFFFFFu;

void ClearToUnlimited(DBG_GID_CONF_S* rec) {
    SpinGuard hold(&rec->rs.lock);
    RelaxedStore(&rec->rs.interval, 1u);
    rec->rs.num = kUnlimitedNum;
    rec->rs.printed = 0;
    rec->rs.missed = 0;
    rec->rs.begin.tv_sec = 0;
    rec->rs.last_report.tv_sec = 0;
}

}  // namespace

extern "C" {

KIRA_EXPORT int32_t KIRA_reset_log_ratelimit(void) {
    KIRA_DebugModuleInit();
    syslog(LOG_INFO, "<4>Reset log rate setting to the default values[%s].\n", "KIRA_reset_log_ratelimit");
    {
        MutexGuard hold(&kira_log::gid_tree_mutex);
        for (DBG_GID_CONF_S* rec = NextGid(nullptr); rec != nullptr; rec = NextGid(rec)) {
            ClearToUnlimited(rec);
        }
    }
    // The local override stays unread on purpose: a reset returns to the
    // product's values.
    read_gid_conf(DBG_GID_PRODUCT_CONF);
    __load_gid_conf();
    read_pid_conf(DBG_PID_GID_CONF);
    __load_pid_conf();
    return 0;
}

KIRA_EXPORT int32_t KIRA_loglimit_init(void) { return KIRA_reset_log_ratelimit(); }

}  // extern "C"

// ---- scaling ----

namespace {

// Product of base and multiple, capped at the largest count with a report
// when it does not fit; the overflow is found by dividing back.
uint32_t ScaledNum(uint32_t base, uint32_t multiple, uint32_t gid, bool everyGid) {
    const uint32_t product = base * multiple;
    if (product / multiple == base) {
        return product;
    }
    if (everyGid) {
        syslog(LOG_INFO,
               "<4>The number of logs of gid=%d after you have increased is more than %u, it will only be set to %u "
               "[%s].\n",
               static_cast<int>(gid), kUnlimitedNum, kUnlimitedNum, "KIRA_set_log_ratelimit");
    } else {
        syslog(LOG_INFO,
               "<4>The number of logs of gid=%u after you have increased is more than %u, it will only be set to %u "
               "[%s].\n",
               gid, kUnlimitedNum, kUnlimitedNum, "KIRA_set_log_ratelimit");
    }
    return kUnlimitedNum;
}

int32_t ScaleOneGid(uint32_t gid, uint32_t multiple) {
    KIRA_DebugModuleInit();
    DBG_GID_CONF_S* rec = search_gid_conf(gid);
    if (rec == nullptr) {
        syslog(LOG_INFO, "<3>%s: gid=%u is inval\n", "KIRA_set_log_ratelimit", gid);
        return -22;
    }
    SpinGuard hold(&rec->rs.lock);
    rec->rs.num = ScaledNum(rec->rs.default_num, multiple, gid, false);
    return 0;
}

// Every group starts from the freshly reloaded configuration, then its
// current count is multiplied.
int32_t ScaleEveryGid(uint32_t multiple) {
    syslog(LOG_INFO, "<4>Set the number of logs to %d times for every gid[%s].\n", static_cast<int>(multiple),
           "KIRA_set_log_ratelimit");
    (void)KIRA_reset_log_ratelimit();
    for (DBG_GID_CONF_S* rec = NextGid(nullptr); rec != nullptr; rec = NextGid(rec)) {
        SpinGuard hold(&rec->rs.lock);
        rec->rs.num = ScaledNum(rec->rs.num, multiple, rec->gid, true);
    }
    return 0;
}

}  // namespace

extern "C" {

KIRA_EXPORT int32_t KIRA_set_log_ratelimit(uint32_t gid, uint32_t multiple) {
    if (multiple == 0) {
        syslog(LOG_INFO, "<3>The input param multiple is zero[%s].\n", "KIRA_set_log_ratelimit");
        return -22;
    }
    return gid == DBG_ALL_GID ? ScaleEveryGid(multiple) : ScaleOneGid(gid, multiple);
}

}  // extern "C"

// ---- direct set and get ----

namespace {

// Direct set and get address one group: neither 0 nor "every group".
bool CheckSingleGid(uint32_t gid, const char* caller) {
    if (gid != 0 && gid != DBG_ALL_GID) {
        return true;
    }
    syslog(LOG_INFO, "<3>%s: gid is inval\n", caller);
    return false;
}

}  // namespace

extern "C" {

KIRA_EXPORT int32_t KIRA_set_log_num_interval(uint32_t gid, uint32_t num, uint32_t interval) {
    KIRA_DebugModuleInit();
    if (!CheckSingleGid(gid, "KIRA_set_log_num_interval")) {
        return -22;
    }
    DBG_GID_CONF_S* rec = FindOrAddReported(gid, "KIRA_set_log_num_interval");
    if (rec == nullptr) {
        return -1;
    }
    SpinGuard hold(&rec->rs.lock);
    RelaxedStore(&rec->rs.interval, interval);
    rec->rs.num = num;
    return 0;
}

KIRA_EXPORT int32_t KIRA_get_log_num_interval(uint32_t gid, uint32_t* num, uint32_t* interval) {
    KIRA_DebugModuleInit();
    if (!CheckSingleGid(gid, "KIRA_get_log_num_interval")) {
        return -22;
    }
    DBG_GID_CONF_S* rec = search_gid_conf(gid);
    if (rec == nullptr) {
        syslog(LOG_INFO, "<3>%s: gid %u is not exist\n", "KIRA_get_log_num_interval", gid);
        return -22;
    }
    SpinGuard hold(&rec->rs.lock);
    if (num != nullptr) {
        *num = rec->rs.num;
    }
    if (interval != nullptr) {
        *interval = rec->rs.interval;
    }
    return 0;
}

}  // extern "C"

// ---- saving ----

namespace {

bool NextSavedGidLine(void** cursor, char* buf, size_t size) {
    auto* rec = NextGid(static_cast<DBG_GID_CONF_S*>(*cursor));
    *cursor = rec;
    if (rec == nullptr) {
        return false;
    }
    SpinGuard hold(&rec->rs.lock);
    return snprintf_s(buf, size, size - 1, "gid=%u,num=%u,interval=%u,burst=%u,resume=%u\n", rec->gid, rec->rs.num,
                      rec->rs.interval, rec->rs.burst, rec->rs.resume) >= 0;
}

}  // namespace

extern "C" {

KIRA_EXPORT int32_t KIRA_save_log_ratelimit(void) {
    KIRA_DebugModuleInit();
    return kira_log::SaveConf("KIRA_save_log_ratelimit", DBG_GID_LOCAL_CONF, &kira_log::gid_tree_mutex,
                              NextSavedGidLine);
}

}  // extern "C"
