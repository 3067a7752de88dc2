// How much one process uses, once it is found. In order:
//   /proc files: opening a pid's file, the first line of a file, one pass
//     over a status file for its name and resident memory, and the parsers
//     of single stat, status and limits lines (fuzzed on their own)
//   CPU: the system's four-counter total (/proc/stat), the process's ticks
//     (/proc/<pid>/stat), the share against a stored sample, the exact-name
//     measurement, and the processor count that makes it a share of one core
//   resident memory (status), descriptor figures (fd directory, limits row)
//   existence
// A process that is not found measures 0, never a failure.

#include <string.h>
#include <sys/sysinfo.h>

#include <atomic>

#include "plugin/linux/plugin_internal.h"

// ---- /proc files ----

namespace zadi {
namespace {

constexpr int kStatLineSize = 1024;  // stat lines

// Opens path and reads its first line into buf (fgets semantics, count =
// size).
enum class FirstLine { kOk, kOpenFailed, kEmpty };
FirstLine ReadFirstLine(const char* path, char* buf, int size) {
    kira::LineReader reader;
    if (!reader.Open(path, kira::ReadEnd::kShortRead)) {
        return FirstLine::kOpenFailed;
    }
    return reader.Gets(buf, size) ? FirstLine::kOk : FirstLine::kEmpty;
}

}  // namespace

bool OpenPidFile(kira::LineReader& reader, char (&path)[kPidPathSize], long long pid, const char* leaf) {
    if (!kira::ProcPidPath(path, kPidPathSize, pid, leaf)) {
        return false;
    }
    return reader.Open(path, kira::ReadEnd::kShortRead);
}

void ScanStatus(kira::LineReader& reader, StatusScan* scan) {
    const bool wantName = scan->name != nullptr;
    const bool wantRss = scan->rssKb != nullptr;
    if (wantRss) {
        *scan->rssKb = 0;
    }
    char line[kStatusLineSize];
    while ((wantName && !scan->nameFound) || (wantRss && !scan->rssFound)) {
        if (!reader.Gets(line, sizeof(line))) {
            return;
        }
        if (wantName && !scan->nameFound && strstr(line, "Name:") != nullptr) {
            // A name with a space keeps only its first word.
            (void)sscanf_s(line, "%*s %s", scan->name, static_cast<unsigned int>(scan->nameSize));
            scan->nameFound = true;
        }
        if (wantRss && !scan->rssFound && strstr(line, "VmRSS:") != nullptr) {
            *scan->rssKb = ParseStatusKb(line);
            scan->rssFound = true;
        }
    }
}

unsigned long long ParseStatLineTicks(const char* line) {
    unsigned long long utime = 0;
    unsigned long long stime = 0;
    const char* fields = ZADI_Linux_Plugin::get_items(line, 14);
    if (fields != nullptr) {
        (void)sscanf_s(fields, "%llu %llu", &utime, &stime);
    }
    return utime + stime;
}

int ParseStatusKb(const char* line) {
    int kb = 0;
    (void)sscanf_s(line, "%*s %d", &kb);
    return kb;
}

int ParseLimitSoft(const char* line) {
    int soft = 0;
    (void)sscanf_s(line, "%*s %*s %*s %d", &soft);
    return soft;
}

}  // namespace zadi

const char* ZADI_Linux_Plugin::get_items(const char* str, int n) {
    if (str == nullptr) {
        return nullptr;
    }
    if (n < 2) {
        return str;
    }
    // Single spaces are counted; runs of spaces are not merged.
    int spaces = 0;
    const char* p = str;
    for (; *p != '\0'; ++p) {
        if (*p == ' ' && ++spaces == n - 1) {
            return p + 1;
        }
    }
    return p;
}

// ---- CPU ----

unsigned long long ZADI_Linux_Plugin::get_cpu_total_occupy() {
    // Read on every CPU item call: the line goes on the stack, never the heap.
    char line[zadi::kStatLineSize] = "";
    if (zadi::ReadFirstLine("/proc/stat", line, sizeof(line)) == zadi::FirstLine::kOpenFailed) {
        PLUGIN_LOG_ERRNO("Openfile failed");
        return 0;
    }
    // Four counters only (unlike the system CPU items): kept on purpose so
    // figures stay comparable with earlier releases.
    total_cpu_occupy_t t = {0, 0, 0, 0};
    (void)sscanf_s(line, "%*s %llu %llu %llu %llu", &t.user, &t.nice, &t.system, &t.idle);
    return t.user + t.nice + t.system + t.idle;
}

unsigned long long ZADI_Linux_Plugin::get_cpu_process_occupy(int pid) {
    char path[zadi::kPidPathSize];
    if (!kira::ProcPidPath(path, sizeof(path), pid, "stat")) {
        return 0;
    }
    char line[zadi::kStatLineSize] = "";
    if (zadi::ReadFirstLine(path, line, sizeof(line)) == zadi::FirstLine::kOpenFailed) {
        PLUGIN_LOG_ERRNO("Open file failed");
        return 0;
    }
    return zadi::ParseStatLineTicks(line);
}

float ZADI_Linux_Plugin::get_pcpu(int pid, unsigned long long& syscputime, unsigned long long& procputime) {
    const unsigned long long total = get_cpu_total_occupy();
    if (total == 0) {
        return 0.0f;
    }
    // A process that has not used a tick yet reads as idle.
    const unsigned long long proc = get_cpu_process_occupy(pid);
    if (proc == 0 || total == syscputime) {
        return 0.0f;
    }
    const double value = static_cast<double>(proc - procputime) * 100.0 / static_cast<double>(total - syscputime);
    syscputime = total;
    procputime = proc;
    return static_cast<float>(value);
}

float ZADI_Linux_Plugin::get_process_cpu(const char* name, int& pid, unsigned long long& syscputime,
                                         unsigned long long& procputime) {
    if (get_pid_byname(name, pid, syscputime, procputime) == 0) {
        return 0.0f;
    }
    return get_pcpu(pid, syscputime, procputime);
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

// ---- resident memory ----

unsigned int ZADI_Linux_Plugin::get_phy_mem(int pid) {
    char path[zadi::kPidPathSize] = "";
    kira::LineReader reader;
    if (!zadi::OpenPidFile(reader, path, pid, "status")) {
        PLUGIN_LOG_ERRNO("Open failed(%s)", path);
        return 0;
    }
    int kb = 0;
    zadi::StatusScan scan;
    scan.rssKb = &kb;
    zadi::ScanStatus(reader, &scan);
    return static_cast<unsigned int>(kb / 1024);
}

float ZADI_Linux_Plugin::get_process_memory(const char* name, int& pid) {
    if (get_pid_byname(name, pid) == 0) {
        return 0.0f;
    }
    return static_cast<float>(get_phy_mem(pid));
}

// ---- descriptors ----

unsigned int ZADI_Linux_Plugin::get_handle_count(int pid) {
    char path[zadi::kPidPathSize];
    if (!kira::ProcPidPath(path, sizeof(path), pid, "fd")) {
        return 0;
    }
    kira::DirWalk walk(opendir(path));
    // The walk leaves out "." and "..", which are not handles.
    unsigned int count = 0;
    while (walk.Next() != nullptr) {
        ++count;
    }
    return count;
}

unsigned int ZADI_Linux_Plugin::get_handle_max(int pid) {
    char path[zadi::kPidPathSize] = "";
    kira::LineReader reader;
    if (!zadi::OpenPidFile(reader, path, pid, "limits")) {
        PLUGIN_LOG_ERRNO("Open failed(%s)", path);
        return 0;
    }
    // The ninth line is the open-files row; taken by position, not label.
    char line[zadi::kStatusLineSize];
    for (int i = 0; i < 9; ++i) {
        if (!reader.Gets(line, sizeof(line))) {
            return 0;
        }
    }
    return static_cast<unsigned int>(zadi::ParseLimitSoft(line));
}

unsigned int ZADI_Linux_Plugin::get_handle_usage(int pid) {
    const unsigned int count = get_handle_count(pid);
    if (count == 0) {
        return 0;
    }
    const unsigned int limit = get_handle_max(pid);
    if (limit == 0) {
        return 0;
    }
    return count * 100 / limit;
}

float ZADI_Linux_Plugin::get_process_handle(const char* name, int& pid) {
    if (get_pid_byname(name, pid) == 0) {
        return 0.0f;
    }
    return static_cast<float>(get_handle_usage(pid));
}

// ---- existence ----

float ZADI_Linux_Plugin::get_process_exist(const char* name, int& pid) {
    return get_pid_byname(name, pid) != 0 ? 1.0f : 0.0f;
}
