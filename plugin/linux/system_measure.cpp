// What the machine as a whole uses. In order:
//   disk: the used share of the file system holding a path (statfs)
//   CPU: the seven counters of /proc/stat's first line, the busy and user
//     shares against the sample kept in the item's context
//   memory: total and free from /proc/meminfo, the used share, free megabytes
// The processor count belongs to the per-core process figures
// (process_measure.cpp).

#include <stdint.h>
#include <sys/vfs.h>

#include "plugin/linux/plugin_internal.h"

float ZADI_Linux_Plugin::get_disk_usage(const char* path) {
    struct statfs fs;
    if (statfs(path, &fs) != 0) {
        return -1.0f;
    }
    if (fs.f_blocks == 0) {
        return 0.0f;
    }
    const uint64_t used = static_cast<uint64_t>(fs.f_blocks) - static_cast<uint64_t>(fs.f_bfree);
    const uint64_t base = used + static_cast<uint64_t>(fs.f_bavail);
    if (base == 0) {
        return 0.0f;
    }
    // The half is added twice on purpose (in the numerator and after the
    // single-precision division): the agent's thresholds were set against it.
    const uint64_t numerator = used * 100 + base / 2;
    const float share = static_cast<float>(numerator) / static_cast<float>(base);
    const int64_t rounded = static_cast<int64_t>(static_cast<double>(share) + 0.5);
    return static_cast<float>(rounded);
}

int ZADI_Linux_Plugin::get_sys_cpu_tick(unsigned long long& user, unsigned long long& nice, unsigned long long& system,
                                        unsigned long long& idle, unsigned long long& iowait, unsigned long long& irq,
                                        unsigned long long& softirq) {
    static const char kPath[] = "/proc/stat";
    kira::LineReader reader;
    if (!reader.Open(kPath, kira::ReadEnd::kShortRead)) {
        PLUGIN_LOG_ERRNO("Open failed(%s)", kPath);
        return -1;
    }
    char line[zadi::kStatusLineSize] = {0};
    (void)reader.Gets(line, sizeof(line));
    unsigned long long v[7] = {0, 0, 0, 0, 0, 0, 0};
    (void)sscanf_s(line, "%*s %llu %llu %llu %llu %llu %llu %llu", &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &v[6]);
    user = v[0];
    nice = v[1];
    system = v[2];
    idle = v[3];
    iowait = v[4];
    irq = v[5];
    softirq = v[6];
    return 0;
}

float ZADI_Linux_Plugin::get_sys_cpu(sys_cpu_context_t* ctx) {
    zadi::SysTicks t;
    if (!t.Read() || t.Total() == ctx->totaltime) {
        return 0.0f;
    }
    // Only idle counts as idle: iowait, irq and softirq are busy time.
    const double usage =
        100.0 - static_cast<double>(t.idle - ctx->idletime) * 100.0 / static_cast<double>(t.Total() - ctx->totaltime);
    ctx->idletime = t.idle;
    ctx->totaltime = t.Total();
    return static_cast<float>(usage);
}

float ZADI_Linux_Plugin::get_sys_usr_cpu(sys_usr_cpu_context_t* ctx) {
    zadi::SysTicks t;
    if (!t.Read() || t.Total() == ctx->totaltime) {
        return 0.0f;
    }
    const double usage =
        static_cast<double>(t.user - ctx->uesrtime) * 100.0 / static_cast<double>(t.Total() - ctx->totaltime);
    ctx->uesrtime = t.user;
    ctx->totaltime = t.Total();
    return static_cast<float>(usage);
}

bool ZADI_Linux_Plugin::get_sys_mem_info(unsigned long long& total, unsigned long long& free) {
    static const char kPath[] = "/proc/meminfo";
    kira::LineReader reader;
    if (!reader.Open(kPath, kira::ReadEnd::kShortRead)) {
        PLUGIN_LOG_ERRNO("Open failed(%s)", kPath);
        return false;
    }
    // Taken by position, not by label: total is line 1, free is line 2.
    unsigned long long* const out[2] = {&total, &free};
    for (unsigned long long* value : out) {
        char line[zadi::kStatusLineSize] = {0};
        (void)reader.Gets(line, sizeof(line));
        *value = 0;
        (void)sscanf_s(line, "%*s %llu", value);
    }
    return true;
}

float ZADI_Linux_Plugin::get_sys_mem() {
    unsigned long long total = 0;
    unsigned long long free = 0;
    if (!get_sys_mem_info(total, free) || total == 0) {
        return 0.0f;
    }
    // Plain free memory, not the kernel's available estimate, on purpose.
    return static_cast<float>(static_cast<double>(total - free) * 100.0 / static_cast<double>(total));
}

float ZADI_Linux_Plugin::get_sys_free_mem() {
    unsigned long long total = 0;
    unsigned long long free = 0;
    if (!get_sys_mem_info(total, free)) {
        return 0.0f;
    }
    return static_cast<float>(free >> 10);
}
