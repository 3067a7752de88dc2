// One scan of /proc for the census: which entries are processes, which of
// them are user processes, the record kept per process, and the list helpers
// (search by pid and name, conversion to the caller's record, freeing).

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "os/base/kira_raii.h"
#include "os/log/dbg_log.h"
#include "plugin/linux/allprocess_internal.h"
#include "plugin/linux/zadi_linux_plugin.h"
#include "safec/safec.h"

namespace {

constexpr size_t kProcPathSize = 256;
constexpr size_t kCmdlineProbeSize = 256;

}  // namespace

bool isDigit(const char* str, int strLen) {
    if (str == nullptr) {
        return false;
    }
    for (int i = 0; i < strLen; ++i) {
        if (str[i] < '0' || str[i] > '9') {
            return false;
        }
    }
    return true;
}

int ForeachProcDir(PROC_DIR_ITER_FN iterfunc, void* pContext) {
    kira::UniqueDir dir(opendir("/proc"));
    if (!dir) {
        return -1;
    }
    char path[kProcPathSize];
    for (struct dirent* entry = readdir(dir.get()); entry != nullptr; entry = readdir(dir.get())) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0 || entry->d_type != DT_DIR) {
            continue;
        }
        if (!isDigit(entry->d_name, static_cast<int>(strlen(entry->d_name)))) {
            continue;
        }
        if (snprintf_s(path, sizeof(path), sizeof(path) - 1, "/proc/%s", entry->d_name) < 0) {
            continue;
        }
        iterfunc(path, atoi(entry->d_name), pContext);
    }
    return 0;
}

// Kernel threads have an empty command line.
bool IsUserProcess(const char* cmdLinePath) {
    kira::UniqueFd fd(open(cmdLinePath, O_RDONLY | O_CLOEXEC));
    if (!fd.valid()) {
        int err = errno;
        DBG_Log(PID_CTRL_ZADIMONITOR, DBG_LOG_ERROR, "IsUserProcess", __LINE__, 0, "Open failed(%s), errno(%d, %s).",
                cmdLinePath, err, strerror(err));
        return false;
    }
    char probe[kCmdlineProbeSize];
    ssize_t n;
    do {
        n = read(fd.get(), probe, sizeof(probe));
    } while (n < 0 && errno == EINTR);
    return n > 0;
}

void GetProcessBasicData(const char* procPath, int pid, void* pContext) {
    char cmdLinePath[kProcPathSize];
    if (snprintf_s(cmdLinePath, sizeof(cmdLinePath), sizeof(cmdLinePath) - 1, "%s/cmdline", procPath) < 0 ||
        !IsUserProcess(cmdLinePath)) {
        return;
    }
    PROCESS_BASICDATA_S* data = static_cast<PROCESS_BASICDATA_S*>(calloc(1, sizeof(PROCESS_BASICDATA_S)));
    if (data == nullptr) {
        int err = errno;
        DBG_Log(PID_CTRL_ZADIMONITOR, DBG_LOG_ERROR, "GetProcessBasicData", __LINE__, 0, "Fork failed, errno(%d, %s).",
                err, strerror(err));
        return;
    }
    data->invalid = false;
    // Process ticks before system ticks, so the system total of a scan is
    // never older than the process figure it is set against.
    data->procputime = ZADI_Linux_Plugin::get_cpu_process_occupy(pid);
    data->syscputime = ZADI_Linux_Plugin::get_cpu_total_occupy();
    data->rss = static_cast<int>(ZADI_Linux_Plugin::get_phy_mem(pid));
    data->pid = pid;
    if (ZADI_Linux_Plugin::get_procname_bypid(pid, data->name, sizeof(data->name)) != 0 ||
        ZADI_Linux_Plugin::get_cmdline_bypid(pid, data->cmdline, sizeof(data->cmdline)) != 0) {
        free(data);  // ended meanwhile
        return;
    }
    list_add_tail(&data->stEntry, static_cast<struct list_head*>(pContext));
}

struct list_head* SearchList(struct list_head* pstListHead, LIST_CMP_FN compare, struct list_head* pstEntry1) {
    for (struct list_head* pos = pstListHead->next; pos != pstListHead; pos = pos->next) {
        if (compare(pstEntry1, pos) == 0) {
            return pos;
        }
    }
    return nullptr;
}

int ProcBasicDataCmpMatchPidName(struct list_head* pstEntry1, struct list_head* pstEntry2) {
    const PROCESS_BASICDATA_S* a = list_entry(pstEntry1, PROCESS_BASICDATA_S, stEntry);
    const PROCESS_BASICDATA_S* b = list_entry(pstEntry2, PROCESS_BASICDATA_S, stEntry);
    if (a->pid == b->pid && strncmp(a->name, b->name, sizeof(a->name)) == 0) {
        return 0;
    }
    return -1;
}

PROCESS_INFO_S* ProcBasicDataToProcInfo(PROCESS_BASICDATA_S* pstBasicData) {
    PROCESS_INFO_S* info = static_cast<PROCESS_INFO_S*>(calloc(1, sizeof(PROCESS_INFO_S)));
    if (info == nullptr) {
        int err = errno;
        DBG_Log(PID_CTRL_ZADIMONITOR, DBG_LOG_ERROR, "ProcBasicDataToProcInfo", __LINE__, 0,
                "Fork failed, errno(%d, %s).", err, strerror(err));
        return nullptr;
    }
    info->pid = pstBasicData->pid;
    info->corecpu = pstBasicData->corecpu;
    info->rss = pstBasicData->rss;
    (void)memcpy_s(info->name, sizeof(info->name), pstBasicData->name, sizeof(pstBasicData->name));
    (void)memcpy_s(info->cmdline, sizeof(info->cmdline), pstBasicData->cmdline, sizeof(pstBasicData->cmdline));
    info->name[sizeof(info->name) - 1] = '\0';
    info->cmdline[sizeof(info->cmdline) - 1] = '\0';
    INIT_LIST_HEAD(&info->stEntry);
    info->used = false;
    return info;
}

void FreeListEntries(struct list_head* pstListHead) {
    struct list_head* pos = pstListHead->next;
    while (pos != pstListHead) {
        struct list_head* next = pos->next;
        list_del(pos);
        free(pos);
        pos = next;
    }
}

void FreeProcBasicData(struct list_head* pstListHead) { FreeListEntries(pstListHead); }
