// Every exported item and census function with each of its opens, reads,
// mappings, directory calls and allocations failing in turn (and its reads
// interrupted or cut short): each run must end in the system's own failure
// form or a valid result, without a crash or a lost descriptor. Heap leaks
// are LeakSanitizer's to find in the sanitizer stage.

#include <sys/stat.h>

#include <string>
#include <vector>

#include "os/log/dbg_log.h"
#include "plugin/linux/allprocess.h"
#include "plugin/linux/err_report.h"
#include "plugin/linux/process_monitor.h"
#include "plugin/linux/zadi_linux_plugin.h"
#include "tests/plugin/linux/items_test_util.h"
#include "tests/support/fault_inject.h"
#include "tests/support/sandbox.h"

using itest::Args;

namespace {

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

enum Shape { kByCmd, kDisk, kFuzzy, kPeriod, kPreCmd, kHeartbeat, kReport };

Params ParamsFor(Shape shape, const Watched& w) {
    switch (shape) {
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
const ItemCase kItems[] = {
    {"GetDiskUsage", GetDiskUsage, kDisk},
    {"GetSysCPU", GetSysCPU, kByCmd},
    {"GetSysUsrCPU", GetSysUsrCPU, kByCmd},
    {"GetSysMemory", GetSysMemory, kByCmd},
    {"GetSysFreeMemory", GetSysFreeMemory, kByCmd},
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

struct Injection {
    kt::Fault kind;
    kt::FaultMode mode;
};
const Injection kInjections[] = {
    {kt::Fault::kOpen, kt::FaultMode::kFail},      {kt::Fault::kRead, kt::FaultMode::kFail},
    {kt::Fault::kRead, kt::FaultMode::kInterrupt}, {kt::Fault::kRead, kt::FaultMode::kShort},
    {kt::Fault::kMmap, kt::FaultMode::kFail},      {kt::Fault::kDir, kt::FaultMode::kFail},
    {kt::Fault::kAlloc, kt::FaultMode::kFail},
};

// Runs the walk of every injection over one call; the logging set-up is done
// first, since its own failures are walked elsewhere.
void WalkAll(const std::function<void()>& call, const std::function<void(int)>& check) {
    DBG_Log(PID_CTRL_ZADIMONITOR, DBG_LOG_EVENT, "walk", 1, 0, "logging set up");
    for (const Injection& inj : kInjections) {
        SCOPED_TRACE(inj.mode == kt::FaultMode::kFail        ? "fail"
                     : inj.mode == kt::FaultMode::kInterrupt ? "interrupt"
                                                             : "short");
        kt::FaultWalk(inj.kind, inj.mode, call, check, 3000);
    }
}

class ItemWalk : public ::testing::TestWithParam<ItemCase> {};

TEST_P(ItemWalk, EveryFailureEndsInTheItemsOwnForm) {
    if (!kt::SandboxAvailable()) GTEST_SKIP() << "needs root and mount namespaces";
    const ItemCase item = GetParam();
    kt::SandboxOptions opts;
    opts.timeout_s = 170;
    kt::RunSandboxed(
        [item] {
            Watched w;
            Args a;
            float v = 0;
            WalkAll(
                [&] {
                    a = Args(ParamsFor(item.shape, w));
                    v = a.Call(item.fn);
                },
                [&](int) {
                    if (a.result.result == 0) return;
                    ASSERT_EQ(a.result.result, -1) << "value " << v;
                    EXPECT_EQ(itest::Bits(v), itest::kMarkerBits);
                    EXPECT_NE(a.reason(), "untouched");
                    EXPECT_NE(a.reason(), "");
                });
        },
        opts);
}

INSTANTIATE_TEST_SUITE_P(Items, ItemWalk, ::testing::ValuesIn(kItems),
                         [](const ::testing::TestParamInfo<ItemCase>& info) { return std::string(info.param.name); });

struct CensusCase {
    const char* name;
    int (*call)(const Watched& w);
    int lowest;  // statuses run from this failure code up to 0
};

int ListCall(int (*scan)(struct list_head*)) {
    struct list_head head;
    INIT_LIST_HEAD(&head);
    const int rc = scan(&head);
    if (rc != 0) {
        EXPECT_TRUE(list_empty(&head)) << "a failed census hands back nothing";
    }
    FreeAllProcessList(&head);
    return rc;
}

int CoreCpuScan(struct list_head* head) {
    int usersys = 0;
    return GetAllProcessCoreCPU(head, &usersys);
}

int PidList(int (*fn)(const char*, int*, unsigned int, unsigned int*), const std::string& name) {
    int pids[8];
    unsigned int used = 0;
    return fn(name.c_str(), pids, 8, &used);
}

// clang-format off
const CensusCase kCensus[] = {
    {"GetAllProcessCoreCPU", [](const Watched&) { return ListCall(CoreCpuScan); }, -1},
    {"GetAllProcessRssMem", [](const Watched&) { return ListCall(GetAllProcessRssMem); }, -1},
    {"CheckProcessExist", [](const Watched& w) { return CheckProcessExist(w.name.c_str(), w.child.pid()); }, -2},
    {"KillProcess", [](const Watched& w) { return KillProcess((w.name + "-none").c_str(), 0); }, -2},
    {"GetProcessPid", [](const Watched& w) { int pid = 0; return GetProcessPid(w.name.c_str(), &pid); }, -1},
    {"GetProcessPidExtern", [](const Watched& w) { return PidList(GetProcessPidExtern, "/opt/" + w.name); }, -2},
    {"GetProcessPidFuzzy", [](const Watched& w) { return PidList(GetProcessPidFuzzy, "/opt/" + w.name + "*"); }, -2},
};
// clang-format on

class CensusWalk : public ::testing::TestWithParam<CensusCase> {};

TEST_P(CensusWalk, EveryFailureEndsInAStatus) {
    if (!kt::SandboxAvailable()) GTEST_SKIP() << "needs root and mount namespaces";
    const CensusCase census = GetParam();
    kt::SandboxOptions opts;
    opts.timeout_s = 170;
    kt::RunSandboxed(
        [census] {
            Watched w;
            int rc = 0;
            WalkAll([&] { rc = census.call(w); }, [&](int) { EXPECT_TRUE(rc >= census.lowest && rc <= 0) << rc; });
        },
        opts);
}

INSTANTIATE_TEST_SUITE_P(Census, CensusWalk, ::testing::ValuesIn(kCensus),
                         [](const ::testing::TestParamInfo<CensusCase>& info) { return std::string(info.param.name); });

}  // namespace
