// The group table: records created zero-filled with the limiter's starting
// values, looked up by group number, updated from configuration lines.

#include <stddef.h>
#include <stdlib.h>
#include <syslog.h>

#include "os/log/keyed_tree_internal.h"
#include "os/log/log_internal.h"

struct rb_root gid_tree_root = RB_ROOT;
pthread_spinlock_t gid_tree_lock;
pthread_mutex_t gid_tree_mutex = PTHREAD_MUTEX_INITIALIZER;

static_assert(offsetof(DBG_GID_CONF_S, node) == 0, "records put their node first");

namespace {

constexpr uint32_t kCreatedInterval = 1;
constexpr uint32_t kCreatedNum = 0xFFFFFFFFu;

KeyedTree<DBG_GID_CONF_S, &DBG_GID_CONF_S::gid> GidTree() {
    return KeyedTree<DBG_GID_CONF_S, &DBG_GID_CONF_S::gid>(&gid_tree_root, &gid_tree_lock);
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

DBG_GID_CONF_S* DbgNextGid(DBG_GID_CONF_S* prev) { return GidTree().Next(prev); }

DBG_GID_CONF_S* DbgFindOrAddGid(uint32_t gid) {
    DBG_GID_CONF_S* rec = search_gid_conf(gid);
    if (rec == nullptr) {
        (void)add_gid_conf(gid);
        rec = search_gid_conf(gid);
    }
    return rec;
}

int32_t replace_or_add_gid(uint32_t gid, uint32_t num, uint32_t interval, uint32_t burst, uint32_t resume,
                           int32_t localFlag) {
    DBG_GID_CONF_S* rec = DbgFindOrAddGid(gid);
    if (rec == nullptr) {
        syslog(LOG_INFO, "%s: gid tree error\n", "replace_or_add_gid");
        return -1;
    }
    SpinGuard hold(&rec->rs.lock);
    RelaxedStore(&rec->rs.interval, interval);
    rec->rs.num = num;
    rec->rs.burst = burst;
    rec->rs.resume = resume;
    if (localFlag == 0) rec->rs.default_num = num;
    return 0;
}
