// Module levels held by the kernel side, reached through control requests
// on "/proc/nox/log_level", and saving the module table's cached levels.

#include <fcntl.h>
#include <string.h>
#include <sys/ioctl.h>
#include <syslog.h>

#include "os/base/kira_file.h"
#include "os/base/kira_raii.h"
#include "os/log/log_internal.h"
#include "os/log/log_util_internal.h"
#include "safec/safec.h"

namespace {

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
    if (fd < 0) syslog(LOG_INFO, "open /proc/nox/log_level fail\n");
    return fd;
}

void CloseControlFile(kira::UniqueFd& fd) { KIRA_close(fd.release()); }

bool NextSavedPidLine(void** cursor, char* buf, size_t size) {
    auto* conf = DbgNextPid(static_cast<DBG_PID_CONF_S*>(*cursor));
    *cursor = conf;
    if (conf == nullptr) return false;
    return snprintf_s(buf, size, size - 1, "pid=%u,level=%u\n", conf->pid,
                      static_cast<unsigned>(DbgLoadPidLevel(conf))) >= 0;
}

}  // namespace

uint32_t DbgPidLevel(uint32_t pid) {
    const int fd = DbgControlFd();
    if (fd < 0) return DbgDefaultLevel();
    DBG_LEVEL_REQ_S req = LevelRequest(pid, 0);
    if (Request(fd, DBG_REQ_GET_LEVEL, &req) != 0) {
        syslog(LOG_INFO, "execute ioctl get log level fail\n");
        return DbgDefaultLevel();
    }
    return req.level;
}

extern "C" {

KIRA_EXPORT uint32_t DBG_GetPidLevel(uint32_t pid) {
    KIRA_DebugModuleInit();
    return DbgPidLevel(pid);
}

KIRA_EXPORT int32_t DBG_SetPidLevel(uint32_t pid, uint8_t level) {
    KIRA_DebugModuleInit();
    DBG_PID_CONF_S* conf = search_pid_conf(pid);
    const int fd = DbgControlFd();
    if (fd < 0) return -1;
    DBG_LEVEL_REQ_S req = LevelRequest(pid, level);
    if (Request(fd, DBG_REQ_SET_LEVEL, &req) != 0) {
        syslog(LOG_INFO, "execute ioctl set log level fail\n");
        return -1;
    }
    if (conf == nullptr) {
        DBG_PID_CONF_S rec;
        memset(&rec, 0, sizeof(rec));
        rec.pid = pid;
        (void)add_pid_conf(&rec);
        conf = search_pid_conf(pid);
        if (conf == nullptr) {
            syslog(LOG_INFO, "<3>pid not exists,something error[%s].\n", "DBG_SetPidLevel");
            return -1;
        }
    }
    DbgStorePidLevel(conf, level);
    return 0;
}

KIRA_EXPORT uint32_t KIRA_get_num_of_pid(void) {
    KIRA_DebugModuleInit();
    kira::UniqueFd fd(OpenControlFile());
    if (!fd.valid()) return 0;
    DBG_LEVEL_REQ_S req = LevelRequest(0, 0);
    const int rc = Request(fd.get(), DBG_REQ_GET_NUM, &req);
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
    if (!fd.valid()) return -1;
    DBG_LEVEL_REQ_S req = LevelRequest(0, 0);
    req.num = capacity;
    req.array = reinterpret_cast<uintptr_t>(array);
    const int rc = Request(fd.get(), DBG_REQ_GET_ALL, &req);
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
    const int fd = DbgControlFd();
    if (fd < 0) return -1;
    DBG_LEVEL_REQ_S req = LevelRequest(0, 0);
    if (Request(fd, DBG_REQ_SAVE, &req) != 0) {
        syslog(LOG_INFO, "execute ioctl get log level fail\n");
        return -1;
    }
    return 0;
}

KIRA_EXPORT int32_t save_pid_log_level(void) {
    KIRA_DebugModuleInit();
    return DbgSaveConf("save_pid_log_level", DBG_PID_LEVEL_CONF, &pid_tree_mutex, NextSavedPidLine);
}

}  // extern "C"
