#ifndef TESTS_PLUGIN_LINUX_ITEM_TABLE_TEST_UTIL_H
#define TESTS_PLUGIN_LINUX_ITEM_TABLE_TEST_UTIL_H

// Every exported item and census function with arguments aimed at one live
// process, for the tests that call all of them alike (failure walks, soak).

#include <string>
#include <utility>
#include <vector>

#include "plugin/linux/allprocess.h"
#include "plugin/linux/err_report.h"
#include "plugin/linux/process_monitor.h"
#include "plugin/linux/zadi_linux_plugin.h"
#include "tests/plugin/linux/items_test_util.h"
#include "tests/support/sandbox.h"

namespace itest {

// The process the items watch, and its heartbeat file.
struct Watched {
    std::string name = kt::UniqueName("fwalk");
    std::string cmd = "/opt/" + name + " --walk";
    kt::Child child{name, {"/opt/" + name, "--walk"}};
    Watched() {
        kt::MakeDirs("/tmp/heartbeat");
        kt::WriteFile("/tmp/heartbeat/" + name + "___7___" + std::to_string(child.pid()), "1\n");
    }
};

using Params = std::vector<std::pair<std::string, std::string>>;

// kSystem items look at no parameter.
enum Shape { kSystem, kByCmd, kDisk, kFuzzy, kPeriod, kPreCmd, kHeartbeat, kReport };

// The parameter count the item's own check wants; 0 where it has another.
inline int ArgcOf(Shape shape) {
    return shape == kByCmd || shape == kDisk || shape == kFuzzy ? 1 : shape == kPeriod ? 2 : shape == kPreCmd ? 3 : 0;
}

inline Params ParamsFor(Shape shape, const Watched& w) {
    switch (shape) {
        case kSystem:
            return {};
        case kByCmd:
            return {{"ProcessName", w.cmd}};
        case kDisk:
            return {{"ProcessName", "/"}};
        case kFuzzy:
            return {{"ProcessName", "/opt/" + w.name + "*"}};
        case kPeriod:
            return {{"ProcessName", "/opt/" + w.name + "*"}, {"Period", "0"}};
        case kPreCmd:
            return {{"ProcessName", w.name}, {"PreCmd", "echo active"}, {"RetKeyWords", "act"}};
        case kHeartbeat:
            return {{"ProcessName", w.name}, {"ProcessMoudleId", "7"}};
        case kReport:
            return {{"ErrCode", "0xF000020F"},
                    {"ProcessName", w.name},
                    {"RecoverCmd", "restart"},
                    {"ProcessMoudleId", "7"},
                    {"UserData", "17"}};
    }
    return {};
}

struct ItemCase {
    const char* name;
    FI_ITEM_FN fn;
    Shape shape;
};

// clang-format off
inline const ItemCase kItems[] = {
    {"GetDiskUsage", GetDiskUsage, kDisk},
    {"GetSysCPU", GetSysCPU, kSystem},
    {"GetSysUsrCPU", GetSysUsrCPU, kSystem},
    {"GetSysMemory", GetSysMemory, kSystem},
    {"GetSysFreeMemory", GetSysFreeMemory, kSystem},
    {"GetProcessSysCPU", GetProcessSysCPU, kByCmd},
    {"GetProcessSysCPUExtern", GetProcessSysCPUExtern, kByCmd},
    {"GetProcessCoreCPU", GetProcessCoreCPU, kByCmd},
    {"GetProcessCoreCPUExtern", GetProcessCoreCPUExtern, kByCmd},
    {"GetProcessMemory", GetProcessMemory, kByCmd},
    {"GetProcessMemoryExtern", GetProcessMemoryExtern, kByCmd},
    {"GetProcessHandle", GetProcessHandle, kByCmd},
    {"GetProcessHandleExtern", GetProcessHandleExtern, kByCmd},
    {"IsExistProcess", IsExistProcess, kByCmd},
    {"IsExistProcessExtern", IsExistProcessExtern, kByCmd},
    {"IsExistProcessPreCmd", IsExistProcessPreCmd, kPreCmd},
    {"GetProcessSysCPUFuzzyMatch", GetProcessSysCPUFuzzyMatch, kFuzzy},
    {"GetProcessSysCPUFuzzyMatchCfgPeriod", GetProcessSysCPUFuzzyMatchCfgPeriod, kPeriod},
    {"GetProcessCoreCPUFuzzyMatch", GetProcessCoreCPUFuzzyMatch, kFuzzy},
    {"GetProcessCoreCPUFuzzyMatchCfgPeriod", GetProcessCoreCPUFuzzyMatchCfgPeriod, kPeriod},
    {"GetProcessMemoryFuzzyMatch", GetProcessMemoryFuzzyMatch, kFuzzy},
    {"GetProcessHandleFuzzyMatch", GetProcessHandleFuzzyMatch, kFuzzy},
    {"ProcessHeartBeat", ProcessHeartBeat, kHeartbeat},
    {"ClearHeartBeatFile", ClearHeartBeatFile, kHeartbeat},
    {"SendErrRpt", SendErrRpt, kReport},
};
// clang-format on

struct CensusCase {
    const char* name;
    int (*call)(const Watched& w);
    int lowest;  // statuses run from this failure code up to 0
};

inline int ListCall(int (*scan)(struct list_head*)) {
    struct list_head head;
    INIT_LIST_HEAD(&head);
    const int rc = scan(&head);
    if (rc != 0) {
        EXPECT_TRUE(list_empty(&head)) << "a failed census hands back nothing";
    }
    FreeAllProcessList(&head);
    return rc;
}

inline int CoreCpuScan(struct list_head* head) {
    int usersys = 0;
    return GetAllProcessCoreCPU(head, &usersys);
}

inline int PidList(int (*fn)(const char*, int*, unsigned int, unsigned int*), const std::string& name) {
    int pids[8];
    unsigned int used = 0;
    return fn(name.c_str(), pids, 8, &used);
}

// clang-format off
inline const CensusCase kCensus[] = {
    {"GetAllProcessCoreCPU", [](const Watched&) { return ListCall(CoreCpuScan); }, -1},
    {"GetAllProcessRssMem", [](const Watched&) { return ListCall(GetAllProcessRssMem); }, -1},
    {"CheckProcessExist", [](const Watched& w) { return CheckProcessExist(w.name.c_str(), w.child.pid()); }, -2},
    {"KillProcess", [](const Watched& w) { return KillProcess((w.name + "-none").c_str(), w.child.pid()); }, -2},
    {"GetProcessPid", [](const Watched& w) { int pid = 0; return GetProcessPid(w.name.c_str(), &pid); }, -1},
    {"GetProcessPidExtern", [](const Watched& w) { return PidList(GetProcessPidExtern, "/opt/" + w.name); }, -2},
    {"GetProcessPidFuzzy", [](const Watched& w) { return PidList(GetProcessPidFuzzy, "/opt/" + w.name + "*"); }, -2},
};
// clang-format on

}  // namespace itest

#endif
