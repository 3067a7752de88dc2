// CPU share of processes: the four-counter system total, a process's own
// ticks, the delta against a stored sample, and the group measurements that
// sample every match, sleep, and keep the busiest.

#include <unistd.h>

#include "plugin/linux/plugin_log_internal.h"
#include "plugin/linux/proc_read_internal.h"
#include "safec/safec.h"

namespace {

constexpr unsigned int kExternSleepUs = 500000;

}  // namespace

unsigned long long ZADI_Linux_Plugin::get_cpu_total_occupy() {
    // Read on every CPU item call: the line goes on the stack, never the heap.
    char line[zadi::kStatLineSize] = "";
    if (zadi::ReadFirstLine("/proc/stat", line, sizeof(line)) == zadi::FirstLine::kOpenFailed) {
        PLUGIN_LOG_ERR("Openfile failed, errno(%d, %s).", errno, strerror(errno));
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
        PLUGIN_LOG_ERR("Open file failed, errno(%d, %s).", errno, strerror(errno));
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

namespace {

// Table of the first PROCESS_SAMPLE_MAX matches, each with its first sample
// taken; null (and count 0, logged under `caller`) when the table cannot be
// allocated.
process_cpu_context_t* SampleMatches(const char* name, int mode, unsigned int& count, const char* caller) {
    const size_t bytes = PROCESS_SAMPLE_MAX * sizeof(process_cpu_context_t);
    auto* table = static_cast<process_cpu_context_t*>(malloc(bytes));
    count = 0;
    if (table == nullptr) {
        PLUGIN_LOG_ERR_AS(caller, "Fork failed, errno(%d, %s).", errno, strerror(errno));
        return nullptr;
    }
    (void)memset_s(table, bytes, 0, bytes);
    ZADI_Linux_Plugin::get_allpid(name, table, PROCESS_SAMPLE_MAX, &count, mode);
    for (unsigned int i = 0; i < count; ++i) {
        table[i].syscputime = ZADI_Linux_Plugin::get_cpu_total_occupy();
        table[i].procputime = ZADI_Linux_Plugin::get_cpu_process_occupy(table[i].pid);
    }
    return table;
}

}  // namespace

float ZADI_Linux_Plugin::get_process_cpu_extern(const char* name, int* pid) {
    unsigned int count = 0;
    kira::UniqueBlock block(SampleMatches(name, CMDLINE_MATCH_PREFIX, count, __FUNCTION__));
    if (count == 0) {
        return 0.0f;
    }
    auto* table = static_cast<process_cpu_context_t*>(block.get());
    usleep(kExternSleepUs);
    // Strictly greater: the first of equal shares wins, idle ones never do.
    float best = 0.0f;
    for (unsigned int i = 0; i < count; ++i) {
        const float value = get_pcpu(table[i].pid, table[i].syscputime, table[i].procputime);
        if (best < value) {
            best = value;
            *pid = table[i].pid;
        }
    }
    return best;
}

float ZADI_Linux_Plugin::get_process_cpu(const char* name, int period) {
    unsigned int count = 0;
    kira::UniqueBlock block(SampleMatches(name, CMDLINE_MATCH_FUZZY, count, __FUNCTION__));
    if (count == 0) {
        return 0.0f;
    }
    auto* table = static_cast<process_cpu_context_t*>(block.get());
    usleep(static_cast<useconds_t>(period));
    // Greater or equal: among equal shares the last match is reported.
    float best = 0.0f;
    for (unsigned int i = 0; i < count; ++i) {
        const float value = get_pcpu(table[i].pid, table[i].syscputime, table[i].procputime);
        if (value >= best) {
            best = value;
            max_usage_pid = table[i].pid;
        }
    }
    return best;
}
