// Run-time control of the group limits: reset to the configured values,
// scaling by a multiple, direct set and get, and saving to the local
// override file.

#include <syslog.h>

#include "os/log/log_internal.h"
#include "os/log/log_util_internal.h"
#include "safec/safec.h"

namespace {

constexpr uint32_t kUnlimitedNum = 0xFFFFFFFFu;

// Direct set and get address one group: neither 0 nor "every group".
bool CheckSingleGid(uint32_t gid, const char* caller) {
    if (gid != 0 && gid != DBG_ALL_GID) return true;
    syslog(LOG_INFO, "<3>%s: gid is inval\n", caller);
    return false;
}

void ClearToUnlimited(DBG_GID_CONF_S* rec) {
    SpinGuard hold(&rec->rs.lock);
    RelaxedStore(&rec->rs.interval, 1u);
    rec->rs.num = kUnlimitedNum;
    rec->rs.printed = 0;
    rec->rs.missed = 0;
    rec->rs.begin.tv_sec = 0;
    rec->rs.last_report.tv_sec = 0;
}

// Product of base and multiple, capped at the largest count with a report
// when it does not fit; the overflow is found by dividing back.
uint32_t ScaledNum(uint32_t base, uint32_t multiple, uint32_t gid, bool everyGid) {
    const uint32_t product = base * multiple;
    if (product / multiple == base) return product;
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
    for (DBG_GID_CONF_S* rec = DbgNextGid(nullptr); rec != nullptr; rec = DbgNextGid(rec)) {
        SpinGuard hold(&rec->rs.lock);
        rec->rs.num = ScaledNum(rec->rs.num, multiple, rec->gid, true);
    }
    return 0;
}

bool NextSavedGidLine(void** cursor, char* buf, size_t size) {
    auto* rec = DbgNextGid(static_cast<DBG_GID_CONF_S*>(*cursor));
    *cursor = rec;
    if (rec == nullptr) return false;
    SpinGuard hold(&rec->rs.lock);
    return snprintf_s(buf, size, size - 1, "gid=%u,num=%u,interval=%u,burst=%u,resume=%u\n", rec->gid, rec->rs.num,
                      rec->rs.interval, rec->rs.burst, rec->rs.resume) >= 0;
}

}  // namespace

extern "C" {

KIRA_EXPORT int32_t KIRA_reset_log_ratelimit(void) {
    KIRA_DebugModuleInit();
    syslog(LOG_INFO, "<4>Reset log rate setting to the default values[%s].\n", "KIRA_reset_log_ratelimit");
    {
        MutexGuard hold(&gid_tree_mutex);
        for (DBG_GID_CONF_S* rec = DbgNextGid(nullptr); rec != nullptr; rec = DbgNextGid(rec)) {
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

KIRA_EXPORT int32_t KIRA_set_log_ratelimit(uint32_t gid, uint32_t multiple) {
    if (multiple == 0) {
        syslog(LOG_INFO, "<3>The input param multiple is zero[%s].\n", "KIRA_set_log_ratelimit");
        return -22;
    }
    return gid == DBG_ALL_GID ? ScaleEveryGid(multiple) : ScaleOneGid(gid, multiple);
}

KIRA_EXPORT int32_t KIRA_save_log_ratelimit(void) {
    KIRA_DebugModuleInit();
    return DbgSaveConf("KIRA_save_log_ratelimit", DBG_GID_LOCAL_CONF, &gid_tree_mutex, NextSavedGidLine);
}

KIRA_EXPORT int32_t KIRA_set_log_num_interval(uint32_t gid, uint32_t num, uint32_t interval) {
    KIRA_DebugModuleInit();
    if (!CheckSingleGid(gid, "KIRA_set_log_num_interval")) return -22;
    DBG_GID_CONF_S* rec = DbgFindOrAddGid(gid);
    if (rec == nullptr) {
        syslog(LOG_INFO, "%s: gid tree error\n", "KIRA_set_log_num_interval");
        return -1;
    }
    SpinGuard hold(&rec->rs.lock);
    RelaxedStore(&rec->rs.interval, interval);
    rec->rs.num = num;
    return 0;
}

KIRA_EXPORT int32_t KIRA_get_log_num_interval(uint32_t gid, uint32_t* num, uint32_t* interval) {
    KIRA_DebugModuleInit();
    if (!CheckSingleGid(gid, "KIRA_get_log_num_interval")) return -22;
    DBG_GID_CONF_S* rec = search_gid_conf(gid);
    if (rec == nullptr) {
        syslog(LOG_INFO, "<3>%s: gid %u is not exist\n", "KIRA_get_log_num_interval", gid);
        return -22;
    }
    SpinGuard hold(&rec->rs.lock);
    if (num != nullptr) *num = rec->rs.num;
    if (interval != nullptr) *interval = rec->rs.interval;
    return 0;
}

}  // extern "C"
