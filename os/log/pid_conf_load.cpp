// Loading the module table: the obsolete and current module files, the
// "pid_" files of the configuration directory, then the local level file.
// The first file to name a module fixes its name; later lines only move it
// to another group.

#include <string.h>

#include "os/log/log_internal.h"
#include "os/log/log_util_internal.h"
#include "safec/safec.h"

namespace {

int32_t ParsePidLine(char* line, uint32_t) { return read_pid_conf_line(line); }
int32_t ParseLevelLine(char* line, uint32_t) { return read_log_level_conf_line(line); }

// Scans a module line into rec and gid. A named line needs a group other
// than 0; a line with the number alone must carry a group; a named line
// without a group is taken as it is (the product's files rely on that).
bool ScanPidLine(const char* line, DBG_PID_CONF_S* rec, uint32_t* gid) {
    memset(rec, 0, sizeof(*rec));
    *gid = 0;
    const int fields = sscanf_s(line, "pid=%u pid_name=%31s gid=%u\n", &rec->pid, rec->pid_name,
                                static_cast<unsigned>(sizeof(rec->pid_name)), gid);
    if (fields == 3) return *gid != 0;
    if (fields == 1) {
        memset(rec, 0, sizeof(*rec));
        *gid = 0;
        return sscanf_s(line, "pid=%u gid=%u\n", &rec->pid, gid) == 2;
    }
    return fields == 2;
}

}  // namespace

int32_t read_pid_conf_line(char* line) {
    if (DbgIsIgnoredConfLine(line)) return 0;
    DbgCommasToBlanks(line);
    DBG_PID_CONF_S rec;
    uint32_t gid = 0;
    if (!ScanPidLine(line, &rec, &gid) || rec.pid == 0) return -22;
    (void)replace_or_add_pid(&rec, gid);
    return 0;
}

void read_pid_conf(const char* path) { DbgReadConfFile(path, "read_pid_conf", "read_pid_conf_line", ParsePidLine, 0); }

void read_pid_conf_filename(const char* name) { DbgReadPrefixedConf(name, "pid_", read_pid_conf); }

// A module met only here keeps no level: the record is created through
// add_pid_conf, which clears it.
int32_t read_log_level_conf_line(char* line) {
    if (DbgIsIgnoredConfLine(line)) return 0;
    DbgCommasToBlanks(line);
    uint32_t pid = 0;
    uint32_t level = 0;
    if (sscanf_s(line, "pid=%u level=%u\n", &pid, &level) != 2 || pid == 0) return -22;
    DBG_PID_CONF_S* conf = search_pid_conf(pid);
    if (conf != nullptr) {
        DbgStorePidLevel(conf, static_cast<uint8_t>(level));
        return 0;
    }
    DBG_PID_CONF_S rec;
    memset(&rec, 0, sizeof(rec));
    rec.pid = pid;
    (void)add_pid_conf(&rec);
    return 0;
}

// The rejection text names the module-file parser deliberately; it is the
// text this file has always been reported with.
void read_log_level_conf(const char* path) {
    DbgReadConfFile(path, "read_log_level_conf", "read_pid_conf_line", ParseLevelLine, 0);
}

void __load_pid_conf(void) {
    if (!DbgForEachConfEntry("__load_pid_conf", &pid_tree_mutex, read_pid_conf_filename)) return;
    read_log_level_conf(DBG_PID_LEVEL_CONF);
}

void load_pid_conf(void) {
    pthread_spin_init(&pid_tree_lock, PTHREAD_PROCESS_PRIVATE);
    read_pid_conf(DBG_PID_OBSOLETE_CONF);
    read_pid_conf(DBG_PID_GID_CONF);
    __load_pid_conf();
}
