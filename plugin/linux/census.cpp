// The all-process census and the lookups of allprocess.h. In order:
//   one scan of /proc: which entries are processes, which of them are user
//     processes, the record kept per process (its command line and status
//     each read once)
//   the list helpers: search by pid and name, conversion to the caller's
//     record
//   the census: CPU share of every user process between two scans a minute
//     apart, resident memory of every user process from one scan
//   the lookups: does a pid still run a program (and killing it if so), pids
//     by command line (exact, prefix, wildcard)
// Result lists belong to the caller; scans are released on every path.

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "os/base/kira_raii.h"
#include "plugin/linux/allprocess.h"
#include "plugin/linux/plugin_internal.h"

// ---- one scan of /proc ----

namespace zadi {
namespace {

typedef struct tagPROCESS_BASICDATA_S {
    struct list_head stEntry;
    bool invalid;  // no CPU figure could be computed
    pid_t pid;
    uint64_t syscputime;
    uint64_t procputime;
    int corecpu;
    int rss;
    char name[32];
    char cmdline[1024];
} PROCESS_BASICDATA_S;

typedef void (*PROC_DIR_ITER_FN)(const char* procPath, int pid, void* pContext);
typedef int (*LIST_CMP_FN)(struct list_head* pstEntry1, struct list_head* pstEntry2);

constexpr size_t kProcPathSize = 256;

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

bool IsProcessDirName(const char* name) { return isDigit(name, static_cast<int>(strlen(name))); }

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

// The command line at cmdLinePath as text in buf (kCmdlineBufSize); > 0 for
// a user process. An open failure is logged as the user-process test's.
ssize_t ReadUserCmdline(const char* cmdLinePath, char* buf) {
    const ssize_t got = ReadCmdlineText(cmdLinePath, buf, kCmdlineBufSize);
    if (got < 0) {
        PLUGIN_LOG_ERRNO_AS("IsUserProcess", errno, "Open failed(%s)", cmdLinePath);
    }
    return got;
}

// Resident memory and name from one read of the status file; false when the
// file cannot be opened or has no name (the process ended meanwhile). The
// log lines are those of the two readers this pass stands for.
bool ReadStatus(int pid, PROCESS_BASICDATA_S* data) {
    char path[kPidPathSize] = "";
    kira::LineReader reader;
    if (!OpenPidFile(reader, path, pid, "status")) {
        const int err = errno;
        PLUGIN_LOG_ERRNO_AS("get_phy_mem", err, "Open failed(%s)", path);
        PLUGIN_LOG_ERRNO_AS("get_procname_bypid", err, "Open failed(%s)", path);
        return false;
    }
    int kb = 0;
    StatusScan scan;
    scan.name = data->name;
    scan.nameSize = sizeof(data->name);
    scan.rssKb = &kb;
    ScanStatus(reader, &scan);
    data->rss = static_cast<int>(static_cast<unsigned int>(kb / 1024));
    return scan.nameFound;
}

void GetProcessBasicData(const char* procPath, int pid, void* pContext) {
    char cmdLinePath[kProcPathSize];
    char cmdline[kCmdlineBufSize];
    if (snprintf_s(cmdLinePath, sizeof(cmdLinePath), sizeof(cmdLinePath) - 1, "%s/cmdline", procPath) < 0 ||
        ReadUserCmdline(cmdLinePath, cmdline) <= 0) {
        return;
    }
    kira::UniqueBlock block(calloc(1, sizeof(PROCESS_BASICDATA_S)));
    if (!block) {
        PLUGIN_LOG_ERRNO("Fork failed");
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

int ScanInto(kira::HeapList& scan) { return ForeachProcDir(GetProcessBasicData, scan.get()); }

}  // namespace

bool IsUserProcess(const char* cmdLinePath) {
    char text[kCmdlineBufSize];
    return ReadUserCmdline(cmdLinePath, text) > 0;
}

// ---- the list helpers ----

namespace {

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
        PLUGIN_LOG_ERRNO("Fork failed");
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

void AppendInfo(PROCESS_BASICDATA_S* data, struct list_head* result) {
    PROCESS_INFO_S* info = ProcBasicDataToProcInfo(data);
    if (info != nullptr) {
        list_add_tail(&info->stEntry, result);
    }
}

void AppendValid(struct list_head* scan, struct list_head* result) {
    PROCESS_BASICDATA_S* data;
    list_for_each_entry(data, scan, stEntry) {
        if (!data->invalid) {
            AppendInfo(data, result);
        }
    }
}

// ---- the census ----

constexpr unsigned int kCpuIntervalSeconds = 60;

// Whole seconds; a signal does not cut the interval short.
void SleepSeconds(unsigned int seconds) {
    while (seconds > 0) {
        seconds = sleep(seconds);
    }
}

void CalcAllProcessCoreCPU(struct list_head* firstScan, struct list_head* secondScan, struct list_head* result) {
    unsigned int cores = ZADI_Linux_Plugin::get_cpu_core_num();
    PROCESS_BASICDATA_S* e1;
    list_for_each_entry(e1, firstScan, stEntry) {
        e1->invalid = true;
        struct list_head* found = SearchList(secondScan, ProcBasicDataCmpMatchPidName, &e1->stEntry);
        if (found == nullptr) {
            continue;  // ended, or the pid now runs another program
        }
        PROCESS_BASICDATA_S* e2 = list_entry(found, PROCESS_BASICDATA_S, stEntry);
        if (e2->syscputime <= e1->syscputime) {
            continue;
        }
        double share = static_cast<double>(e2->procputime - e1->procputime) * 100.0 /
                       static_cast<double>(e2->syscputime - e1->syscputime);
        e1->corecpu = static_cast<int>(share * cores);
        e1->invalid = false;
    }
    AppendValid(firstScan, result);
}

void CalcAllProcessRssMem(struct list_head* scan, struct list_head* result) { AppendValid(scan, result); }

}  // namespace

int GetAllProcessCoreCPUEvery(struct list_head* allProcessListHead, int* usersyscpu, unsigned int intervalSeconds) {
    if (allProcessListHead == nullptr || usersyscpu == nullptr) {
        return -1;
    }
    SysTicks before;
    if (!before.Read()) {
        return -1;
    }
    kira::HeapList first;
    if (ScanInto(first) != 0) {
        return -1;
    }
    SleepSeconds(intervalSeconds);
    SysTicks after;
    kira::HeapList second;
    if (!after.Read() || ScanInto(second) != 0) {
        return -1;
    }
    const unsigned long long total1 = before.Total();
    const unsigned long long total2 = after.Total();
    if (total2 == total1) {
        return -1;
    }
    // Only user ticks count, whatever the name says.
    *usersyscpu = static_cast<int>((after.user - before.user) * 100ULL / (total2 - total1));

    INIT_LIST_HEAD(allProcessListHead);
    CalcAllProcessCoreCPU(first.get(), second.get(), allProcessListHead);
    return 0;
}

}  // namespace zadi

int GetAllProcessCoreCPU(struct list_head* allProcessListHead, int* usersyscpu) {
    return zadi::GetAllProcessCoreCPUEvery(allProcessListHead, usersyscpu, zadi::kCpuIntervalSeconds);
}

int GetAllProcessRssMem(struct list_head* allProcessListHead) {
    if (allProcessListHead == nullptr) {
        return -1;
    }
    kira::HeapList scan;
    if (zadi::ScanInto(scan) != 0) {
        return -1;
    }
    INIT_LIST_HEAD(allProcessListHead);
    zadi::CalcAllProcessRssMem(scan.get(), allProcessListHead);
    return 0;
}

void FreeAllProcessList(struct list_head* allProcessListHead) {
    if (allProcessListHead == nullptr) {
        return;
    }
    kira::FreeListEntries(allProcessListHead);
}

// ---- the lookups ----

namespace zadi {
namespace {

constexpr size_t kProcNameSize = 32;
constexpr size_t kKillCmdSize = 256;

// The kernel keeps at most 15 characters of a name, so only as many as it
// kept are compared: a longer procName with that beginning also matches.
int MatchProcessName(const char* procName, int pid) {
    if (procName == nullptr) {
        return -1;
    }
    char name[kProcNameSize] = {0};
    if (ZADI_Linux_Plugin::get_procname_bypid(pid, name, sizeof(name)) != 0) {
        return -1;
    }
    return strncmp(procName, name, strlen(name)) == 0 ? 0 : -2;
}

int GetProcessPidInter(const char* procName, int* pidbuff, unsigned int pidbuffsize, unsigned int* pidbuffused,
                       int matchflag) {
    if (procName == nullptr || pidbuff == nullptr || pidbuffused == nullptr || pidbuffsize == 0) {
        return -1;
    }
    kira::UniqueBlock block(calloc(pidbuffsize, sizeof(process_cpu_context_t)));
    if (!block) {
        PLUGIN_LOG_ERRNO("Fork failed");
        return -2;
    }
    process_cpu_context_t* records = static_cast<process_cpu_context_t*>(block.get());
    ZADI_Linux_Plugin::get_allpid(procName, records, pidbuffsize, pidbuffused, matchflag);
    for (unsigned int i = 0; i < *pidbuffused && i < pidbuffsize; ++i) {
        pidbuff[i] = records[i].pid;
    }
    return 0;
}

}  // namespace

int ZADI_ExecuteCmd(const char* recoverCmd) {
    FILE* pipe = popen(recoverCmd, "r");
    if (pipe == nullptr) {
        PLUGIN_LOG_ERRNO("Open file failed");
        return -1;
    }
    return pclose(pipe);
}

}  // namespace zadi

int CheckProcessExist(const char* procName, int pid) { return zadi::MatchProcessName(procName, pid); }

int KillProcess(const char* procName, int pid) {
    int ret = zadi::MatchProcessName(procName, pid);
    if (ret != 0) {
        return ret;
    }
    char cmd[zadi::kKillCmdSize];
    if (snprintf_s(cmd, sizeof(cmd), sizeof(cmd) - 1, "kill -9 %u >/dev/null 2>&1 &", static_cast<unsigned>(pid)) < 0) {
        return 0;
    }
    (void)zadi::ZADI_ExecuteCmd(cmd);
    return 0;
}

int GetProcessPid(const char* procName, int* pid) {
    if (procName == nullptr || pid == nullptr) {
        return -1;
    }
    int found = 0;
    (void)ZADI_Linux_Plugin::get_pid_byname(procName, found);
    *pid = found;
    return 0;
}

int GetProcessPidExtern(const char* procName, int* pidbuff, unsigned int pidbuffsize, unsigned int* pidbuffused) {
    return zadi::GetProcessPidInter(procName, pidbuff, pidbuffsize, pidbuffused, CMDLINE_MATCH_PREFIX);
}

int GetProcessPidFuzzy(const char* procName, int* pidbuff, unsigned int pidbuffsize, unsigned int* pidbuffused) {
    return zadi::GetProcessPidInter(procName, pidbuff, pidbuffsize, pidbuffused, CMDLINE_MATCH_FUZZY);
}
