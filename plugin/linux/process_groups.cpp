// Which process of a group uses most, and how much: the prefix ("Extern")
// and wildcard ("FuzzyMatch") measurements. In order:
//   CPU: every match (at most PROCESS_SAMPLE_MAX) sampled, a sleep, the
//     busiest kept: prefix for 0.5 s (first of equals wins), wildcard for a
//     given period (last of equals wins)
//   memory and handles: the heaviest wildcard match (last of equals wins)
//   one resource over the prefix matches (first of equals wins, a zero never
//     names a pid)
// The figures of each process come from the single-process measurements.

#include <string.h>
#include <unistd.h>

#include "plugin/linux/plugin_internal.h"

// ---- CPU ----

namespace zadi {
namespace {

constexpr unsigned int kExternSleepUs = 500000;

// Table of the first PROCESS_SAMPLE_MAX matches, each with its first sample
// taken; null (and count 0, logged under `caller`) when the table cannot be
// allocated.
process_cpu_context_t* SampleMatches(const char* name, int mode, unsigned int& count, const char* caller) {
    const size_t bytes = PROCESS_SAMPLE_MAX * sizeof(process_cpu_context_t);
    auto* table = static_cast<process_cpu_context_t*>(malloc(bytes));
    count = 0;
    if (table == nullptr) {
        PLUGIN_LOG_ERRNO_AS(caller, errno, "Fork failed");
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
}  // namespace zadi

float ZADI_Linux_Plugin::get_process_cpu_extern(const char* name, int* pid) {
    unsigned int count = 0;
    kira::UniqueBlock block(zadi::SampleMatches(name, CMDLINE_MATCH_PREFIX, count, __FUNCTION__));
    if (count == 0) {
        return 0.0f;
    }
    auto* table = static_cast<process_cpu_context_t*>(block.get());
    usleep(zadi::kExternSleepUs);
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
    kira::UniqueBlock block(zadi::SampleMatches(name, CMDLINE_MATCH_FUZZY, count, __FUNCTION__));
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

// ---- memory and handles, wildcard ----

namespace zadi {
namespace {

// Heaviest wildcard match by `measure`; among equals the last one wins.
template <typename Measure>
float HeaviestFuzzyMatch(const char* name, int& maxUsagePid, Measure measure) {
    float best = 0.0f;
    (void)WalkMatching(name, CMDLINE_MATCH_FUZZY, [&](int pid) {
        const float value = measure(pid);
        if (value >= best) {
            best = value;
            maxUsagePid = pid;
        }
        return true;
    });
    return best;
}

}  // namespace
}  // namespace zadi

float ZADI_Linux_Plugin::get_process_memory(const char* name) {
    return zadi::HeaviestFuzzyMatch(name, max_usage_pid, [](int pid) { return static_cast<float>(get_phy_mem(pid)); });
}

float ZADI_Linux_Plugin::get_process_handle(const char* name) {
    return zadi::HeaviestFuzzyMatch(name, max_usage_pid,
                                    [this](int pid) { return static_cast<float>(get_handle_usage(pid)); });
}

// ---- one resource, prefix ----

float ZADI_Linux_Plugin::get_process_resource(PROCESS_RESOURCE_E type, const char* name, int* pid) {
    float best = 0.0f;
    if (static_cast<int>(type) >= static_cast<int>(PROCESS_RESOURCE_MAX)) {
        return best;
    }
    (void)zadi::WalkMatching(name, CMDLINE_MATCH_PREFIX, [&](int found) {
        float value;
        switch (type) {
            case PROCESS_RESOURCE_MEM:
                value = static_cast<float>(get_phy_mem(found));
                break;
            case PROCESS_RESOURCE_HANDLE:
                value = static_cast<float>(get_handle_usage(found));
                break;
            case PROCESS_RESOURCE_EXIST:
                value = 1.0f;
                break;
            default:  // a negative type ends the walk with what was found
                return false;
        }
        // Strictly greater: the first of equals wins and a zero never
        // names a pid.
        if (value > best) {
            *pid = found;
            best = value;
        }
        return true;
    });
    return best;
}
