#ifndef TESTS_PLUGIN_LINUX_ITEMS_TEST_UTIL_H
#define TESTS_PLUGIN_LINUX_ITEMS_TEST_UTIL_H

// Helpers: an item's arguments as the agent hands them in, a spinning process, every function aimed at one process.

#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "plugin/linux/allprocess.h"
#include "plugin/linux/err_report.h"
#include "plugin/linux/process_monitor.h"
#include "plugin/linux/zadi_item_list.h"
#include "plugin/linux/zadi_linux_plugin.h"
#include "tests/support/sandbox.h"

namespace itest {

using Params = std::vector<std::pair<std::string, std::string>>;

inline uint32_t Bits(float f) {
    uint32_t b;
    memcpy(&b, &f, sizeof(b));
    return b;
}
constexpr uint32_t kMarkerBits = ZADI_FAULT_MARKER_BITS;

// One configured item: parameters, the context the agent keeps between calls,
// and a result set before each call to values any write changes.
struct Args {
    std::vector<FI_PARAM_S> params;
    FI_CONTEXT_S context{};
    FI_RESULT_S result{};

    // A value longer than its field fills it whole, without a terminator.
    Args(const Params& kv = {}) {
        for (const auto& p : kv) {
            params.emplace_back();
            memcpy(params.back().name, p.first.data(), std::min(p.first.size(), sizeof(FI_PARAM_S::name)));
            memcpy(params.back().value, p.second.data(), std::min(p.second.size(), sizeof(FI_PARAM_S::value)));
        }
    }
    Args(std::initializer_list<std::pair<const char*, std::string>> kv) : Args(Params(kv.begin(), kv.end())) {}
    static constexpr int kOwn = 1000;  // an argc of kOwn + d: the parameter count plus d
    float Call(FI_ITEM_FN fn, int argc = kOwn, bool argv = true, bool ctx = true) {
        result = FI_RESULT_S{77, "untouched", -5, 99};
        return fn(argc >= kOwn ? static_cast<int>(params.size()) + argc - kOwn : argc, argv ? params.data() : nullptr,
                  ctx ? &context : nullptr, &result);
    }
    std::tuple<int, std::string, int, unsigned> Written() const {
        return std::make_tuple(result.result, std::string(result.reason), result.pid, result.hangflowid);
    }
    // Every process item's context begins with the pid it stores.
    pid_t StoredPid() const { return *reinterpret_cast<const pid_t*>(context.contextbuff); }
};

// A shell spinning on a processor: command line "sh -c T=<tag>; while ...".
struct Spinner {
    const std::string script;
    const pid_t pid;
    explicit Spinner(const std::string& tag) : script("T=" + tag + "; while :; do :; done"), pid(fork()) {
        if (pid == 0) {
            execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
            _exit(127);
        }
        usleep(50000);  // until the shell's command line shows
    }
    ~Spinner() {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
};

// The process the table's arguments aim at, with a heartbeat file.
struct Watched {
    std::string name = kt::UniqueName("fwalk");
    kt::Child child{name, {"/opt/" + name, "--walk"}};
    Watched() { kt::WriteFile(Beat(), "1\n"); }
    std::string Beat() const { return "/tmp/heartbeat/" + name + "___7___" + std::to_string(child.pid()); }
};

// How an item reads its arguments; the first two and kClear read none.
enum Shape { kSysCtx, kSys, kByCmd, kDisk, kFuzzy, kPeriod, kPreCmd, kHeartbeat, kClear, kReport };

// Arguments aimed at Watched{name}.
inline Params ParamsFor(Shape shape, const std::string& name) {
    const std::string cmd = "/opt/" + name + " --walk", pattern = "/opt/" + name + "*";
    // clang-format off
    const Params all[] = {{}, {}, {{"ProcessName", cmd}}, {{"Path", "/"}}, {{"ProcessName", pattern}},
        {{"ProcessName", pattern}, {"Period", "0"}},
        {{"ProcessName", cmd}, {"PreCmd", "echo active"}, {"RetKeyWords", "act"}},
        {{"ProcessName", name}, {"ProcessMoudleId", "7"}}, {},
        {{"ErrCode", "0xF000020F"}, {"ProcessName", name}, {"RecoverCmd", "restart"}, {"ProcessMoudleId", "7"},
         {"UserData", "17"}}};
    // clang-format on
    return all[shape];
}

// A census into a list holding a sentinel: success hands back its own list (freed again), failure leaves the list.
inline int Listed(int (*scan)(struct list_head*)) {
    struct list_head head, sentinel;
    head.next = head.prev = &sentinel;
    const int rc = scan(&head);
    EXPECT_EQ(head.next == &sentinel, rc != 0) << rc;
    if (rc == 0) {
        FreeAllProcessList(&head);
    }
    return rc;
}

inline Shape ShapeOf(const std::string& name, const std::string& params, bool primes, bool wildcard) {
    if (name == "ClearHeartBeatFile") {
        return kClear;
    }
    if (params.empty()) {
        return primes ? kSysCtx : kSys;
    }
    if (params == "Path") {
        return kDisk;
    }
    if (params == "ProcessName") {
        return wildcard ? kFuzzy : kByCmd;
    }
    if (params == "ProcessName Period") {
        return kPeriod;
    }
    if (params.rfind("ProcessName PreCmd", 0) == 0) {
        return kPreCmd;
    }
    return params.rfind("ProcessName ProcessMoudleId", 0) == 0 ? kHeartbeat : kReport;
}

// clang-format off
struct ItemCase { const char* name; FI_ITEM_FN fn; Shape shape; };
#define ITEST_ITEM(name, unit, params, match, pid, primes, meaning) \
    {#name, name, ShapeOf(#name, params, primes, std::string(#match) == "Wildcard")},
inline const ItemCase kItems[] = {ZADI_ITEM_LIST(ITEST_ITEM)};
#undef ITEST_ITEM

// lowest: statuses run from this failure code up to 0.
struct CensusCase { const char* name; int (*call)(const Watched& w); int lowest; };
inline const CensusCase kCensus[] = {
    {"GetAllProcessCoreCPU", [](const Watched&) {
        return Listed([](list_head* h) { int usersys = 0; return GetAllProcessCoreCPU(h, &usersys); }); }, -1},
    {"GetAllProcessRssMem", [](const Watched&) { return Listed(GetAllProcessRssMem); }, -1},
    {"CheckProcessExist", [](const Watched& w) { return CheckProcessExist(w.name.c_str(), w.child.pid()); }, -2},
    {"KillProcess", [](const Watched& w) { return KillProcess((w.name + "-none").c_str(), w.child.pid()); }, -2},
    {"GetProcessPid", [](const Watched& w) { int pid = 0; return GetProcessPid(w.name.c_str(), &pid); }, -1},
    {"GetProcessPidExtern", [](const Watched& w) {
        int pids[8]; unsigned int n = 0; return GetProcessPidExtern(("/opt/" + w.name).c_str(), pids, 8, &n); }, -2},
    {"GetProcessPidFuzzy", [](const Watched& w) {
        int pids[8]; unsigned int n = 0; return GetProcessPidFuzzy(("/opt/" + w.name + "*").c_str(), pids, 8, &n); }, -2}};
// clang-format on

}  // namespace itest

#endif
