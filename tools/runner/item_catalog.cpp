// The items the runner can call, with the unit of their figure and whether
// they report a pid in the result.

#include "tools/runner/runner.h"

namespace zr {

const std::vector<ItemInfo>& KnownItems() {
    static const std::vector<ItemInfo> items = {
        {"GetDiskUsage", "%", false},
        {"GetSysCPU", "%", false},
        {"GetSysUsrCPU", "%", false},
        {"GetSysMemory", "%", false},
        {"GetSysFreeMemory", "MB", false},
        {"GetProcessSysCPU", "%", false},
        {"GetProcessSysCPUExtern", "%", true},
        {"GetProcessCoreCPU", "%core", false},
        {"GetProcessCoreCPUExtern", "%core", true},
        {"GetProcessMemory", "MB", false},
        {"GetProcessMemoryExtern", "MB", true},
        {"GetProcessHandle", "%", false},
        {"GetProcessHandleExtern", "%", true},
        {"IsExistProcess", "", false},
        {"IsExistProcessExtern", "", true},
        {"IsExistProcessPreCmd", "", false},
        {"GetProcessSysCPUFuzzyMatch", "%", true},
        {"GetProcessSysCPUFuzzyMatchCfgPeriod", "%", true},
        {"GetProcessCoreCPUFuzzyMatch", "%core", true},
        {"GetProcessCoreCPUFuzzyMatchCfgPeriod", "%core", true},
        {"GetProcessMemoryFuzzyMatch", "MB", true},
        {"GetProcessHandleFuzzyMatch", "%", true},
        {"ProcessHeartBeat", "", false},
        {"ClearHeartBeatFile", "", false},
        {"SendErrRpt", "", false},
    };
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

}  // namespace zr
