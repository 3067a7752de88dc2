#ifndef TESTS_PLUGIN_LINUX_ITEMS_TEST_UTIL_H
#define TESTS_PLUGIN_LINUX_ITEMS_TEST_UTIL_H

// Helpers of the plugin tests: item arguments as the agent hands them in,
// a result that shows any write, the fault marker's bits, processes to
// watch, and every exported item and census function with arguments aimed
// at one live process, for the tests that call all of them alike.

#include <dirent.h>
#include <signal.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <initializer_list>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "plugin/linux/allprocess.h"
#include "plugin/linux/err_report.h"
#include "plugin/linux/fi_types.h"
#include "plugin/linux/process_monitor.h"
#include "plugin/linux/zadi_linux_plugin.h"
#include "tests/support/sandbox.h"

namespace itest {

inline uint32_t Bits(float f) {
    uint32_t b;
    memcpy(&b, &f, sizeof(b));
    return b;
}
constexpr uint32_t kMarkerBits = 0x00800000u;

// result 77, reason "untouched", pid -5, hangflowid 99: any write shows.
inline FI_RESULT_S FreshResult() {
    FI_RESULT_S r;
    memset(&r, 0, sizeof(r));
    r.result = 77;
    strcpy(r.reason, "untouched");
    r.pid = -5;
    r.hangflowid = 99;
    return r;
}

// A refused call: the marker, result -1 with `reason`, pid and hangflowid
// as FreshResult left them.
inline void ExpectRefused(float value, const FI_RESULT_S& r, const std::string& reason) {
    EXPECT_EQ(Bits(value), kMarkerBits);
    EXPECT_EQ(r.result, -1);
    EXPECT_EQ(std::string(r.reason), reason);
    EXPECT_EQ(r.pid, -5);
    EXPECT_EQ(r.hangflowid, 99u);
}

// One bad call of an item and the reason it must give.
struct BadCall {
    int argc;
    FI_PARAM_S* argv;
    FI_CONTEXT_S* ctx;
    const char* reason;
};

struct Args {
    std::vector<FI_PARAM_S> params;
    FI_CONTEXT_S context;
    FI_RESULT_S result;

    Args() : result(FreshResult()) { memset(&context, 0, sizeof(context)); }
    Args(std::initializer_list<std::pair<std::string, std::string>> kv) : Args() {
        for (const auto& p : kv) Add(p.first, p.second);
    }
    explicit Args(const std::vector<std::pair<std::string, std::string>>& kv) : Args() {
        for (const auto& p : kv) Add(p.first, p.second);
    }
    // A value longer than the field fills it completely, without a terminator.
    Args& Add(const std::string& name, const std::string& value) {
        FI_PARAM_S p;
        memset(&p, 0, sizeof(p));
        memcpy(p.name, name.data(), name.size() < sizeof(p.name) ? name.size() : sizeof(p.name));
        memcpy(p.value, value.data(), value.size() < sizeof(p.value) ? value.size() : sizeof(p.value));
        params.push_back(p);
        return *this;
    }
    void ResetResult() { result = FreshResult(); }
    int argc() const { return static_cast<int>(params.size()); }
    FI_PARAM_S* argv() { return params.empty() ? nullptr : params.data(); }
    float Call(FI_ITEM_FN fn) { return fn(argc(), argv(), &context, &result); }
    // A call that must succeed (result 0).
    float Ok(FI_ITEM_FN fn) {
        const float v = Call(fn);
        EXPECT_EQ(result.result, 0);
        return v;
    }
    // The figure and the pid reported with it.
    std::pair<float, int> WithPid(FI_ITEM_FN fn) {
        const float v = Call(fn);
        return {v, result.pid};
    }
    std::string reason() const { return result.reason; }
    template <typename T>
    T Ctx() const {
        T v;
        memcpy(&v, context.contextbuff, sizeof(T));
        return v;
    }
};

// Directory position of pid in /proc (the order the lookups walk), -1 when absent.
inline int ProcOrder(int pid) {
    DIR* dir = opendir("/proc");
    if (dir == nullptr) return -1;
    int index = 0, found = -1;
    const std::string want = std::to_string(pid);
    for (struct dirent* e = readdir(dir); e != nullptr && found < 0; e = readdir(dir), ++index) {
        if (want == e->d_name) found = index;
    }
    closedir(dir);
    return found;
}

// Two sleepers on the same command line, in /proc directory order.
struct Twins {
    kt::Child a, b;
    pid_t earlier, later;
    Twins(const std::string& cmd, const std::string& arg) : a("twa", {cmd, arg}), b("twb", {cmd, arg}) {
        const bool aFirst = ProcOrder(a.pid()) < ProcOrder(b.pid());
        earlier = aFirst ? a.pid() : b.pid();
        later = aFirst ? b.pid() : a.pid();
    }
};

// Field `n` (1-based, n >= 3) of /proc/PID/stat; "" when gone.
inline std::string StatField(pid_t pid, int n) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string stat((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>()), field;
    const size_t close = stat.rfind(')');
    if (close == std::string::npos || close + 2 >= stat.size()) return "";
    std::istringstream rest(stat.substr(close + 2));
    for (int i = 3; i <= n && rest >> field; ++i) {
    }
    return field;
}

// A figure in kB of /proc/PID/status ("VmRSS:"), -1 when absent.
inline long StatusKb(const std::string& pid, const char* label) {
    std::ifstream in("/proc/" + pid + "/status");
    for (std::string line; std::getline(in, line);) {
        if (line.rfind(label, 0) == 0) return strtol(line.c_str() + strlen(label), nullptr, 10);
    }
    return -1;
}

// A forked copy of this program under its own kernel name, doing `work`
// until killed.
class Forked {
public:
    template <typename Fn>
    Forked(const std::string& name, Fn work) : pid_(fork()) {
        if (pid_ == 0) {
            prctl(PR_SET_NAME, name.c_str());
            work();
            _exit(0);
        }
    }
    ~Forked() {
        if (pid_ > 0 && kill(pid_, SIGKILL) == 0) waitpid(pid_, nullptr, 0);
    }
    pid_t pid() const { return pid_; }

private:
    pid_t pid_;
};

// A shell spinning on a CPU, stopped and resumed so that its ticks can be frozen.
struct Spinner : Forked {
    explicit Spinner(const std::string& tag)
        : Forked("spin",
                 [&] { execl("/bin/sh", "sh", "-c", ("T=" + tag + "; while :; do :; done").c_str(), nullptr); }) {
        usleep(50000);  // let exec finish so cmdline shows the shell
    }
    // Runs for `ms`, then stops; returns utime + stime from its stat.
    unsigned long long RunFor(int ms) {
        kill(pid(), SIGCONT);
        usleep(ms * 1000);
        kill(pid(), SIGSTOP);
        usleep(20000);
        return std::stoull(StatField(pid(), 14)) + std::stoull(StatField(pid(), 15));
    }
};

inline double SecondsSince(std::chrono::steady_clock::time_point start) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// A process name no other test uses (one process per sandboxed test); the
// kernel keeps 15 characters.
inline std::string Unique(const char* stem) {
    static int counter = 0;
    return (std::string(stem).substr(0, 6) + std::to_string(getpid()) + std::to_string(counter++)).substr(0, 15);
}

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
        case kSystem:  // looked at by none of them
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
