// The items the runner can call: the unit of their figure, the parameters
// they read (in the order the item reads them), how they find processes,
// and a line saying what the figure means.

#include "tools/runner/runner.h"

namespace zr {

namespace {

constexpr Match kNone = Match::kNone;
constexpr Match kExact = Match::kExact;
constexpr Match kPrefix = Match::kPrefix;
constexpr Match kWild = Match::kWildcard;

}  // namespace

const std::vector<ItemInfo>& KnownItems() {
    // clang-format off
    static const std::vector<ItemInfo> items = {
        {"GetDiskUsage", "%", "Path", kNone, false, false, "used share of the file system holding Path"},
        {"GetSysCPU", "%", "", kNone, false, true, "busy share of all processors since the previous call"},
        {"GetSysUsrCPU", "%", "", kNone, false, true, "user-mode share of all processors since the previous call"},
        {"GetSysMemory", "%", "", kNone, false, false, "used share of memory (free is the kernel's plain free memory)"},
        {"GetSysFreeMemory", "MB", "", kNone, false, false, "free memory"},
        {"GetProcessSysCPU", "%", "ProcessName", kExact, false, true, "CPU share of all processors since the previous call, process named exactly"},
        {"GetProcessSysCPUExtern", "%", "ProcessName", kPrefix, true, false, "highest CPU share of all processors over 0.5 s among processes whose command line starts so"},
        {"GetProcessCoreCPU", "%core", "ProcessName", kExact, false, true, "CPU use since the previous call, process named exactly"},
        {"GetProcessCoreCPUExtern", "%core", "ProcessName", kPrefix, true, false, "highest CPU use over 0.5 s among processes whose command line starts so"},
        {"GetProcessMemory", "MB", "ProcessName", kExact, false, false, "resident memory of the process named exactly"},
        {"GetProcessMemoryExtern", "MB", "ProcessName", kPrefix, true, false, "highest resident memory among processes whose command line starts so"},
        {"GetProcessHandle", "%", "ProcessName", kExact, false, false, "open handles as a share of the open-files limit, process named exactly"},
        {"GetProcessHandleExtern", "%", "ProcessName", kPrefix, true, false, "highest handle share among processes whose command line starts so"},
        {"IsExistProcess", "exists", "ProcessName", kNone, false, false, "1 when a process is named exactly so"},
        {"IsExistProcessExtern", "exists", "ProcessName", kNone, true, false, "1 when a command line starts so"},
        {"IsExistProcessPreCmd", "exists", "ProcessName PreCmd RetKeyWords", kNone, false, false, "1 when the process runs or PreCmd's output does not start with RetKeyWords"},
        {"GetProcessSysCPUFuzzyMatch", "%", "ProcessName", kWild, true, false, "highest CPU share of all processors over 0.5 s among processes matching the pattern (? and *)"},
        {"GetProcessSysCPUFuzzyMatchCfgPeriod", "%", "ProcessName Period", kWild, true, false, "as GetProcessSysCPUFuzzyMatch over Period seconds (1 to 240)"},
        {"GetProcessCoreCPUFuzzyMatch", "%core", "ProcessName", kWild, true, false, "highest CPU use over 0.5 s among processes matching the pattern (? and *)"},
        {"GetProcessCoreCPUFuzzyMatchCfgPeriod", "%core", "ProcessName Period", kWild, true, false, "as GetProcessCoreCPUFuzzyMatch over Period seconds (1 to 240)"},
        {"GetProcessMemoryFuzzyMatch", "MB", "ProcessName", kWild, true, false, "highest resident memory among processes matching the pattern (? and *)"},
        {"GetProcessHandleFuzzyMatch", "%", "ProcessName", kWild, true, false, "highest handle share among processes matching the pattern (? and *)"},
        {"ProcessHeartBeat", "beats", "ProcessName ProcessMoudleId ErrRpt ErrRptUserData", kNone, false, false, "1 when every heartbeat file of the process changed since the previous call, 0 when one hangs"},
        {"ClearHeartBeatFile", "", "", kNone, false, false, "removes heartbeat files of processes that are gone; always 1"},
        {"SendErrRpt", "", "ErrCode ProcessMoudleId ResId ProcessName UserData RecoverCmd ...", kNone, false, false, "raises an error report through the agent"},
    };
    // clang-format on
    return items;
}

const ItemInfo* FindItemInfo(const std::string& name) {
    for (const ItemInfo& info : KnownItems()) {
        if (name == info.name) {
            return &info;
        }
    }
    return nullptr;
}

const char* UnitLegend() {
    return "  %       percent: of all processors together (CPU), of the file system (disk),\n"
           "          of memory, or of the process's open-files limit (handles)\n"
           "  %core   percent of one processor: 100 is one processor busy, 200 two\n"
           "  MB      whole megabytes (resident or free memory)\n"
           "  exists  1 running, 0 not running;  beats: 1 beating, 0 hung\n";
}

}  // namespace zr
