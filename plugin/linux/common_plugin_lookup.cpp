// Finding processes by command line: the lookup that re-uses a stored pid,
// and the collection of every match of a mode.

#include "plugin/linux/proc_read_internal.h"

bool ZADI_Linux_Plugin::check_pid_with_name(const char* name, int& pid) {
    char path[zadi::kStoredPidPathSize];
    if (!kira::ProcPidPath(path, sizeof(path), pid, "cmdline")) {
        return false;
    }
    // Called on every item call with a stored pid: the text goes on the
    // stack, never the heap.
    char buf[zadi::kCmdlineBufSize];
    return zadi::CmdlineMatches(path, name, CMDLINE_MATCH_EXACT, buf);
}

pid_t ZADI_Linux_Plugin::get_pid_byname(const char* name, int& pid, unsigned long long& syscputime,
                                        unsigned long long& procputime) {
    // The stored pid still runs the same command line: no /proc walk.
    if (check_pid_with_name(name, pid)) {
        return pid;
    }
    // The previous samples belong to another process.
    pid = 0;
    syscputime = 0;
    procputime = 0;
    (void)zadi::WalkMatching(name, CMDLINE_MATCH_EXACT, [&pid](int found) {
        pid = found;
        return false;
    });
    return pid;
}

pid_t ZADI_Linux_Plugin::get_pid_byname(const char* name, int& pid) {
    unsigned long long syscputime = 0;
    unsigned long long procputime = 0;
    return get_pid_byname(name, pid, syscputime, procputime);
}

void ZADI_Linux_Plugin::get_allpid(const char* name, process_cpu_context_t* table, unsigned int max,
                                   unsigned int* count, int mode) {
    unsigned int found = 0;
    (void)zadi::WalkMatching(name, mode, [&](int pid) {
        if (found >= max) {
            return false;
        }
        table[found++].pid = pid;
        return true;
    });
    *count = found;
}
