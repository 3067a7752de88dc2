// Loading the group table: the product file, the "log_" files of the
// configuration directory, then the local override. A later file overrides
// an earlier one group by group; only the product's files set the default
// count that scaling starts from.

#include <string.h>

#include "os/log/log_internal.h"
#include "os/log/log_util_internal.h"
#include "safec/safec.h"

namespace {

constexpr uint32_t kDefaultResume = 86400;

}  // namespace

int32_t read_gid_conf_line(char* line, uint32_t localFlag) {
    if (DbgIsIgnoredConfLine(line)) return 0;
    uint32_t gid = 0;
    uint32_t num = 0;
    uint32_t interval = 0;
    uint32_t burst = 0;
    uint32_t resume = kDefaultResume;
    const int fields =
        sscanf_s(line, "gid=%u,num=%u,interval=%u,burst=%u,resume=%u\n", &gid, &num, &interval, &burst, &resume);
    if (fields != 5 && fields != 3) return -22;
    if (gid == 0 || gid == DBG_ALL_GID) return -22;
    return replace_or_add_gid(gid, num, interval, burst, resume, static_cast<int32_t>(localFlag));
}

void read_gid_conf(const char* path) {
    const uint32_t localFlag = strcmp(path, DBG_GID_LOCAL_CONF) == 0 ? 1 : 0;
    DbgReadConfFile(path, "read_gid_conf", "read_gid_conf_line", read_gid_conf_line, localFlag);
}

void read_gid_conf_filename(const char* name) { DbgReadPrefixedConf(name, "log_", read_gid_conf); }

void __load_gid_conf(void) { (void)DbgForEachConfEntry("__load_gid_conf", &gid_tree_mutex, read_gid_conf_filename); }

void load_gid_conf(void) {
    pthread_spin_init(&gid_tree_lock, PTHREAD_PROCESS_PRIVATE);
    read_gid_conf(DBG_GID_PRODUCT_CONF);
    __load_gid_conf();
    read_gid_conf(DBG_GID_LOCAL_CONF);
}
