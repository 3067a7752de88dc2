// One scan of /proc for the census: which entries are processes, which of
// them are user processes, the record kept per process (each process's
// command line and status read once), and the list helpers (search by pid
// and name, conversion to the caller's record, freeing).

#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "os/base/kira_io.h"
#include "plugin/linux/allprocess_internal.h"
#include "plugin/linux/plugin_log_internal.h"
#include "plugin/linux/proc_read_internal.h"
#include "safec/safec.h"

namespace {

constexpr size_t kProcPathSize = 256;

bool IsProcessDirName(const char* name) { return isDigit(name, static_cast<int>(strlen(name))); }

// The command line at cmdLinePath as text in buf (kCmdlineBufSize); > 0 for
// a user process. An open failure is logged as the user-process test's.
ssize_t ReadUserCmdline(const char* cmdLinePath, char* buf) {
    const ssize_t got = zadi::ReadCmdlineText(cmdLinePath, buf, zadi::kCmdlineBufSize);
    if (got < 0) {
        PLUGIN_LOG_ERR_AS("IsUserProcess", "Open failed(%s), errno(%d, %s).", cmdLinePath, errno, strerror(errno));
    }
    return got;
}

// Resident memory and name from one read of the status file; false when the
// file cannot be opened or has no name (the process ended meanwhile). The
// log lines are those of the two readers this pass stands for.
bool ReadStatus(int pid, PROCESS_BASICDATA_S* data) {
    char path[zadi::kPidPathSize] = "";
    kira::LineReader reader;
    if (!zadi::OpenPidFile(reader, path, pid, "status")) {
        const int err = errno;
        PLUGIN_LOG_ERR_AS("get_phy_mem", "Open failed(%s), errno(%d, %s).", path, err, strerror(err));
        PLUGIN_LOG_ERR_AS("get_procname_bypid", "Open failed(%s), errno(%d, %s).", path, err, strerror(err));
        return false;
    }
    int kb = 0;
    zadi::StatusScan scan;
    scan.name = data->name;
    scan.nameSize = sizeof(data->name);
    scan.rssKb = &kb;
    zadi::ScanStatus(reader, &scan);
    data->rss = static_cast<int>(static_cast<unsigned int>(kb / 1024));
    return scan.nameFound;
}

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
    kira::DirWalk walk(opendir("/proc"), kira::DirWalk::kDirectories, IsProcessDirName);
    if (!walk) {
        return -1;
    }
    char path[kProcPathSize];
    while (const char* name = walk.Next()) {
        if (kira::ProcPidPath(path, sizeof(path), name, nullptr)) {
            iterfunc(path, atoi(name), pContext);
        }
    }
    return 0;
}

// Kernel threads have an empty command line.
bool IsUserProcess(const char* cmdLinePath) {
    char text[zadi::kCmdlineBufSize];
    return ReadUserCmdline(cmdLinePath, text) > 0;
}

void GetProcessBasicData(const char* procPath, int pid, void* pContext) {
    char cmdLinePath[kProcPathSize];
    char cmdline[zadi::kCmdlineBufSize];
    if (snprintf_s(cmdLinePath, sizeof(cmdLinePath), sizeof(cmdLinePath) - 1, "%s/cmdline", procPath) < 0 ||
        ReadUserCmdline(cmdLinePath, cmdline) <= 0) {
        return;
    }
    kira::UniqueBlock block(calloc(1, sizeof(PROCESS_BASICDATA_S)));
    if (!block) {
        PLUGIN_LOG_ERR("Fork failed, errno(%d, %s).", errno, strerror(errno));
        return;
    }
    PROCESS_BASICDATA_S* data = static_cast<PROCESS_BASICDATA_S*>(block.get());
    data->invalid = false;
    // Process ticks before system ticks, so the system total of a scan is
    // never older than the process figure it is set against.
    data->procputime = ZADI_Linux_Plugin::get_cpu_process_occupy(pid);
    data->syscputime = ZADI_Linux_Plugin::get_cpu_total_occupy();
    data->pid = pid;
    if (!ReadStatus(pid, data)) {
        return;  // ended meanwhile
    }
    (void)memcpy_s(data->cmdline, sizeof(data->cmdline), cmdline, sizeof(cmdline));
    list_add_tail(&data->stEntry, static_cast<struct list_head*>(pContext));
    (void)block.release();
}

struct list_head* SearchList(struct list_head* pstListHead, LIST_CMP_FN compare, struct list_head* pstEntry1) {
    struct list_head* pos;
    list_for_each(pos, pstListHead) {
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
        PLUGIN_LOG_ERR("Fork failed, errno(%d, %s).", errno, strerror(errno));
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

void FreeProcBasicData(struct list_head* pstListHead) { kira::FreeListEntries(pstListHead); }
