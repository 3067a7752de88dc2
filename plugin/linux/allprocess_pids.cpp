// Census lookups: does a pid still run a program, killing it if so, and pids
// by command line (exact, prefix, wildcard).

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "os/base/kira_raii.h"
#include "plugin/linux/allprocess_internal.h"
#include "plugin/linux/plugin_log_internal.h"
#include "plugin/linux/zadi_linux_plugin.h"
#include "safec/safec.h"

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

}  // namespace

int CheckProcessExist(const char* procName, int pid) { return MatchProcessName(procName, pid); }

int KillProcess(const char* procName, int pid) {
    int ret = MatchProcessName(procName, pid);
    if (ret != 0) {
        return ret;
    }
    char cmd[kKillCmdSize];
    if (snprintf_s(cmd, sizeof(cmd), sizeof(cmd) - 1, "kill -9 %u >/dev/null 2>&1 &", static_cast<unsigned>(pid)) < 0) {
        return 0;
    }
    (void)ZADI_ExecuteCmd(cmd);
    return 0;
}

int ZADI_ExecuteCmd(const char* recoverCmd) {
    FILE* pipe = popen(recoverCmd, "r");
    if (pipe == nullptr) {
        PLUGIN_LOG_ERR("Open file failed, errno(%d, %s).", errno, strerror(errno));
        return -1;
    }
    return pclose(pipe);
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

int GetProcessPidInter(const char* procName, int* pidbuff, unsigned int pidbuffsize, unsigned int* pidbuffused,
                       int matchflag) {
    if (procName == nullptr || pidbuff == nullptr || pidbuffused == nullptr || pidbuffsize == 0) {
        return -1;
    }
    kira::UniqueBlock block(calloc(pidbuffsize, sizeof(process_cpu_context_t)));
    if (!block) {
        PLUGIN_LOG_ERR("Fork failed, errno(%d, %s).", errno, strerror(errno));
        return -2;
    }
    process_cpu_context_t* records = static_cast<process_cpu_context_t*>(block.get());
    ZADI_Linux_Plugin::get_allpid(procName, records, pidbuffsize, pidbuffused, matchflag);
    for (unsigned int i = 0; i < *pidbuffused && i < pidbuffsize; ++i) {
        pidbuff[i] = records[i].pid;
    }
    return 0;
}

int GetProcessPidExtern(const char* procName, int* pidbuff, unsigned int pidbuffsize, unsigned int* pidbuffused) {
    return GetProcessPidInter(procName, pidbuff, pidbuffsize, pidbuffused, CMDLINE_MATCH_PREFIX);
}

int GetProcessPidFuzzy(const char* procName, int* pidbuff, unsigned int pidbuffsize, unsigned int* pidbuffused) {
    return GetProcessPidInter(procName, pidbuff, pidbuffsize, pidbuffused, CMDLINE_MATCH_FUZZY);
}
