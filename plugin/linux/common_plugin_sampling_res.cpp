// Resident memory, open-handle usage and existence of processes: single
// process by exact command line, wildcard groups (last of equals wins) and
// prefix groups (first of equals wins).

#include "plugin/linux/plugin_log_internal.h"
#include "plugin/linux/proc_read_internal.h"

unsigned int ZADI_Linux_Plugin::get_phy_mem(int pid) {
    char path[zadi::kPidPathSize] = "";
    kira::LineReader reader;
    if (!zadi::OpenPidFile(reader, path, pid, "status")) {
        PLUGIN_LOG_ERR("Open failed(%s), errno(%d, %s).", path, errno, strerror(errno));
        return 0;
    }
    int kb = 0;
    zadi::StatusScan scan;
    scan.rssKb = &kb;
    zadi::ScanStatus(reader, &scan);
    return static_cast<unsigned int>(kb / 1024);
}

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
        PLUGIN_LOG_ERR("Open failed(%s), errno(%d, %s).", path, errno, strerror(errno));
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

float ZADI_Linux_Plugin::get_process_memory(const char* name, int& pid) {
    if (get_pid_byname(name, pid) == 0) {
        return 0.0f;
    }
    return static_cast<float>(get_phy_mem(pid));
}

float ZADI_Linux_Plugin::get_process_handle(const char* name, int& pid) {
    if (get_pid_byname(name, pid) == 0) {
        return 0.0f;
    }
    return static_cast<float>(get_handle_usage(pid));
}

float ZADI_Linux_Plugin::get_process_exist(const char* name, int& pid) {
    return get_pid_byname(name, pid) != 0 ? 1.0f : 0.0f;
}

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
