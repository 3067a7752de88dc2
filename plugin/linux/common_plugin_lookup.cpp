// Finding processes by command line: the cmdline file read and converted to
// text, the three match modes, the lookup that re-uses a stored pid, the
// collection of every match, and the cached processor count.

#include <sys/sysinfo.h>

#include <atomic>

#include "plugin/linux/common_plugin_internal.h"

int ZADI_Linux_Plugin::read_file(const char* path, char* buf, unsigned int size, int line) {
    if (path == nullptr || buf == nullptr || size == 0) {
        return -1;
    }
    zadi::LineReader reader;
    if (!reader.Open(path)) {
        return -1;
    }
    for (int i = 0; i < line; ++i) {
        (void)memset_s(buf, size, 0, size);
        // One less than the buffer: at least two NULs stay at the end.
        if (!reader.Gets(buf, static_cast<int>(size - 1))) {
            return -1;
        }
    }
    return 0;
}

void ZADI_Linux_Plugin::change_cmdlie_to_str(char* buf, unsigned int size) {
    for (unsigned int i = 0; i + 1 < size; ++i) {
        if (buf[i] == '\0' && buf[i + 1] == '\0') {
            // An empty argument ends the text there; later arguments are lost.
            break;
        }
        if (buf[i] == '\0') {
            buf[i] = ' ';
        }
    }
}

namespace zadi {

bool CmdlineMatches(const char* path, const char* name, int mode, char* buf) {
    // A kernel thread's cmdline is empty, so it never matches anything.
    if (ZADI_Linux_Plugin::read_file(path, buf, kCmdlineBufSize, 1) != 0) {
        return false;
    }
    ZADI_Linux_Plugin::change_cmdlie_to_str(buf, kCmdlineBufSize);
    switch (mode) {
        case CMDLINE_MATCH_PREFIX:
            return strncmp(buf, name, strlen(name)) == 0;
        case CMDLINE_MATCH_FUZZY:
            return ZADI_Linux_Plugin::str_fuzzy_match(buf, name);
        default:
            return strcmp(buf, name) == 0;
    }
}

char* AllocCmdlineBuffer() {
    char* buf = static_cast<char*>(malloc(kCmdlineBufSize));
    if (buf == nullptr) {
        PLUGIN_LOG_ERR_AS("check_with_cmdline", "Malloc failed, errno(%d, %s).", errno, strerror(errno));
    }
    return buf;
}

}  // namespace zadi

bool ZADI_Linux_Plugin::check_with_cmdline(const char* path, const char* name, int mode) {
    kira::UniqueBlock buf(zadi::AllocCmdlineBuffer());
    if (!buf) {
        return false;
    }
    return zadi::CmdlineMatches(path, name, mode, static_cast<char*>(buf.get()));
}

bool ZADI_Linux_Plugin::check_pid_with_name(const char* name, int& pid) {
    char path[50];
    if (snprintf_s(path, sizeof(path), sizeof(path) - 1, "/proc/%d/cmdline", pid) < 0) {
        return false;
    }
    return check_with_cmdline(path, name, CMDLINE_MATCH_EXACT);
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

unsigned int ZADI_Linux_Plugin::get_cpu_core_num() {
    // Read once per process lifetime on purpose; a racing first call only
    // stores the same figure twice.
    static std::atomic<unsigned int> cores{0};
    unsigned int n = cores.load(std::memory_order_relaxed);
    if (n == 0) {
        n = static_cast<unsigned int>(get_nprocs());
        cores.store(n, std::memory_order_relaxed);
    }
    return n;
}
