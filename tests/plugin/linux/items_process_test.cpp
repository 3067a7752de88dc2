// Process items against real processes: CPU arithmetic on frozen tick
// counts, Core multiplication, handle usage from real limits, the tie rules
// of prefix and wildcard groups, the pre-command gate, and bad input on
// every item.

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <fstream>
#include <sstream>

#include "plugin/linux/common_plugin_internal.h"
#include "tests/plugin/linux/items_test_util.h"
#include "tests/support/sandbox.h"

using itest::Args;
using itest::Bits;
using itest::kMarkerBits;

namespace {

// A shell spinning on a CPU, stopped and resumed by the test so that its
// tick count can be frozen.
class Spinner {
public:
    explicit Spinner(const std::string& tag) {
        const std::string script = "T=" + tag + "; while :; do :; done";
        pid_ = fork();
        if (pid_ == 0) {
            execl("/bin/sh", "sh", "-c", script.c_str(), static_cast<char*>(nullptr));
            _exit(127);
        }
        usleep(50000);  // let exec finish so cmdline shows the shell
    }
    ~Spinner() {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    // Runs for `ms`, then stops; returns utime + stime read from its stat.
    unsigned long long RunFor(int ms) {
        kill(pid_, SIGCONT);
        usleep(ms * 1000);
        kill(pid_, SIGSTOP);
        usleep(20000);
        std::ifstream in("/proc/" + std::to_string(pid_) + "/stat");
        std::string line;
        std::getline(in, line);
        std::istringstream rest(line.substr(line.rfind(')') + 2));
        std::string field;
        unsigned long long utime = 0, stime = 0;
        for (int i = 3; i <= 15; ++i) {
            rest >> field;
            if (i == 14) utime = std::stoull(field);
            if (i == 15) stime = std::stoull(field);
        }
        return utime + stime;
    }
    pid_t pid() const { return pid_; }

private:
    pid_t pid_;
};

std::string TotalStat(unsigned long long total4) {
    // Only user+nice+system+idle make the process total; the rest is noise.
    return "cpu  " + std::to_string(total4) + " 0 0 0 777 777 777 777 0 0\n";
}

// Soft limit of open files; the hard limit is kept (raising it needs a
// capability the sandbox may not have). Returns the hard limit.
rlim_t SetOpenFiles(pid_t pid, rlim_t soft) {
    struct rlimit old;
    EXPECT_EQ(prlimit(pid, RLIMIT_NOFILE, nullptr, &old), 0);
    struct rlimit lim = {soft < old.rlim_max ? soft : old.rlim_max, old.rlim_max};
    EXPECT_EQ(prlimit(pid, RLIMIT_NOFILE, &lim, nullptr), 0) << strerror(errno);
    return old.rlim_max;
}

// The sleeper closes its start-up pipe (descriptor 3) just after exec;
// counts taken before that would change under the test.
void WaitStartupPipeClosed(pid_t pid) {
    const std::string fd3 = "/proc/" + std::to_string(pid) + "/fd/3";
    for (int i = 0; i < 200 && access(fd3.c_str(), F_OK) == 0; ++i) usleep(10000);
}

unsigned int CountFds(pid_t pid) {
    unsigned int n = 0;
    DIR* d = opendir(("/proc/" + std::to_string(pid) + "/fd").c_str());
    for (struct dirent* e = readdir(d); e != nullptr; e = readdir(d)) {
        if (e->d_name[0] != '.') ++n;
    }
    closedir(d);
    return n;
}

double Seconds() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

std::string CmdlineOf(pid_t pid) {
    char buf[1024];
    EXPECT_EQ(ZADI_Linux_Plugin::get_cmdline_bypid(pid, buf, sizeof(buf)), 0);
    return buf;
}

}  // namespace

SANDBOX_TEST(ProcessCpu, SharesFromFrozenTicksAndStoredSamples) {
    Spinner spin(kt::UniqueName("spin"));
    const unsigned long long p1 = spin.RunFor(300);
    ASSERT_GT(p1, 0u);
    const std::string name = CmdlineOf(spin.pid());
    kt::BindFileOver("/proc/stat", TotalStat(100000));

    Args a({{"ProcessName", name}});
    EXPECT_FLOAT_EQ(a.Call(GetProcessSysCPU), static_cast<float>(p1 * 100.0 / 100000.0));
    EXPECT_EQ(a.result.result, 0);
    EXPECT_EQ(a.result.pid, -5);  // plain items do not report a pid
    auto ctx = a.Ctx<process_cpu_context_t>();
    EXPECT_EQ(ctx.pid, spin.pid());
    EXPECT_EQ(ctx.syscputime, 100000u);
    EXPECT_EQ(ctx.procputime, p1);

    // Same system total: 0.0 and the samples stay.
    EXPECT_EQ(a.Call(GetProcessSysCPU), 0.0f);
    EXPECT_EQ(a.Ctx<process_cpu_context_t>().procputime, p1);

    const unsigned long long p2 = spin.RunFor(300);
    kt::BindFileOver("/proc/stat", TotalStat(101000));
    EXPECT_FLOAT_EQ(a.Call(GetProcessSysCPU), static_cast<float>((p2 - p1) * 100.0 / 1000.0));
    EXPECT_EQ(a.Ctx<process_cpu_context_t>().procputime, p2);

    // Core: the same share times the processor count.
    Args sys({{"ProcessName", name}});
    Args core({{"ProcessName", name}});
    const float s = sys.Call(GetProcessSysCPU);
    const float c = core.Call(GetProcessCoreCPU);
    EXPECT_GT(s, 0.0f);
    EXPECT_EQ(c, s * static_cast<float>(ZADI_Linux_Plugin::get_cpu_core_num()));
    EXPECT_EQ(core.result.result, 0);

    // Not running: 0.0 (times the processor count), a success.
    Args none({{"ProcessName", "/opt/" + kt::UniqueName("absent")}});
    EXPECT_EQ(none.Call(GetProcessCoreCPU), 0.0f);
    EXPECT_EQ(none.result.result, 0);
}

SANDBOX_TEST(ProcessCpu, IdleGroupsFollowTheirTieRules) {
    const std::string u = kt::UniqueName("idl");
    kt::Child a("ida", {"/opt/" + u, "w"});
    kt::Child b("idb", {"/opt/" + u, "w"});
    const bool aFirst = itest::ProcOrder(a.pid()) < itest::ProcOrder(b.pid());
    const pid_t later = aFirst ? b.pid() : a.pid();

    // Prefix: strictly greater from 0.0, so idle processes never name a pid.
    Args ext({{"ProcessName", "/opt/" + u}});
    const double t0 = Seconds();
    EXPECT_EQ(ext.Call(GetProcessSysCPUExtern), 0.0f);
    EXPECT_GE(Seconds() - t0, 0.5);
    EXPECT_EQ(ext.result.result, 0);
    EXPECT_EQ(ext.result.pid, 0);

    // Wildcard: greater or equal, so the last idle match is reported.
    Args fz({{"ProcessName", "/opt/" + u + " ?"}});
    EXPECT_EQ(fz.Call(GetProcessSysCPUFuzzyMatch), 0.0f);
    EXPECT_EQ(fz.result.pid, later);
    Args fzc({{"ProcessName", "/opt/" + u + " ?"}, {"Period", "0"}});
    const double t1 = Seconds();
    EXPECT_EQ(fzc.Call(GetProcessCoreCPUFuzzyMatchCfgPeriod), 0.0f);
    const double took = Seconds() - t1;
    EXPECT_GE(took, 0.5);  // a period of 0 becomes 0.5 s
    EXPECT_LT(took, 3.0);
    EXPECT_EQ(fzc.result.pid, later);

    // No match at all: 0.0, pid 0, no sleep needed.
    Args miss({{"ProcessName", "/opt/" + u + "-none*"}, {"Period", "100"}});
    const double t2 = Seconds();
    EXPECT_EQ(miss.Call(GetProcessSysCPUFuzzyMatchCfgPeriod), 0.0f);
    EXPECT_LT(Seconds() - t2, 2.0);
    EXPECT_EQ(miss.result.pid, 0);
    EXPECT_EQ(miss.result.result, 0);
}

SANDBOX_TEST(ProcessCpu, BusiestPrefixMatchIsReported) {
    const std::string tag = kt::UniqueName("busy");
    Spinner spin(tag);
    kt::Child idle("bsi", {"sh", "-c", "T=" + tag + "; idle"});
    Args ext({{"ProcessName", "sh -c T=" + tag}});
    const float v = ext.Call(GetProcessCoreCPUExtern);
    EXPECT_EQ(ext.result.pid, spin.pid());
    EXPECT_GT(v, 0.0f);  // up to one whole processor, far less on a loaded machine
}

SANDBOX_TEST(ProcessHandle, UsageFromOpenFilesAndTheSoftLimit) {
    const std::string u = kt::UniqueName("hd");
    kt::Child a("hda", {"/opt/" + u, "h"});
    kt::Child b("hdb", {"/opt/" + u, "h"});
    const bool aFirst = itest::ProcOrder(a.pid()) < itest::ProcOrder(b.pid());
    const pid_t earlier = aFirst ? a.pid() : b.pid();
    const pid_t later = aFirst ? b.pid() : a.pid();
    WaitStartupPipeClosed(a.pid());
    WaitStartupPipeClosed(b.pid());
    const unsigned int fdsA = CountFds(a.pid());
    ASSERT_GT(fdsA, 0u);

    ZADI_Linux_Plugin p;
    SetOpenFiles(a.pid(), 7);
    EXPECT_EQ(p.get_handle_max(a.pid()), 7u);
    EXPECT_EQ(p.get_handle_count(a.pid()), fdsA);
    EXPECT_EQ(p.get_handle_usage(a.pid()), fdsA * 100 / 7);
    if (SetOpenFiles(a.pid(), RLIM_INFINITY) == RLIM_INFINITY) {
        EXPECT_EQ(p.get_handle_max(a.pid()), 0u);  // "unlimited" does not parse
        EXPECT_EQ(p.get_handle_usage(a.pid()), 0u);
    }
    EXPECT_EQ(p.get_handle_count(999999999), 0u);

    // Both at 0 %: prefix keeps pid 0, wildcard reports the later one.
    ASSERT_GT(SetOpenFiles(a.pid(), RLIM_INFINITY), fdsA * 100);
    ASSERT_GT(SetOpenFiles(b.pid(), RLIM_INFINITY), CountFds(b.pid()) * 100);
    Args ext({{"ProcessName", "/opt/" + u}});
    EXPECT_EQ(ext.Call(GetProcessHandleExtern), 0.0f);
    EXPECT_EQ(ext.result.pid, 0);
    Args fz({{"ProcessName", "/opt/" + u + " *"}});
    EXPECT_EQ(fz.Call(GetProcessHandleFuzzyMatch), 0.0f);
    EXPECT_EQ(fz.result.pid, later);
    // Existence by prefix: the first match in directory order.
    Args ex({{"ProcessName", "/opt/" + u}});
    EXPECT_EQ(ex.Call(IsExistProcessExtern), 1.0f);
    EXPECT_EQ(ex.result.pid, earlier);

    // The earlier one at 100 %: both groups report it.
    SetOpenFiles(earlier, CountFds(earlier));
    EXPECT_EQ(ext.Call(GetProcessHandleExtern), 100.0f);
    EXPECT_EQ(ext.result.pid, earlier);
    EXPECT_EQ(fz.Call(GetProcessHandleFuzzyMatch), 100.0f);
    EXPECT_EQ(fz.result.pid, earlier);

    // Exact: the pid is kept in the context.
    Args exact({{"ProcessName", "/opt/" + u + " h"}});
    EXPECT_EQ(exact.Call(GetProcessHandle), 100.0f);
    EXPECT_EQ(exact.Ctx<int>(), earlier);
}

int RssKb(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("VmRSS:", 0) == 0) return std::stoi(line.substr(6));
    }
    return -1;
}

SANDBOX_TEST(ProcessMemory, ResidentMegabytesAndStoredPid) {
    const std::string u = kt::UniqueName("mem");
    kt::Child a("mma", {"/opt/" + u});
    // A starting process may still be paging in: accept the figure before
    // or after the call.
    const int kb1 = RssKb(a.pid());
    Args m({{"ProcessName", "/opt/" + u}});
    const float mb = m.Call(GetProcessMemory);
    const int kb2 = RssKb(a.pid());
    ASSERT_GE(kb1, 0);
    EXPECT_TRUE(mb == static_cast<float>(kb1 / 1024) || mb == static_cast<float>(kb2 / 1024)) << mb;
    EXPECT_EQ(m.result.result, 0);
    EXPECT_EQ(m.Ctx<int>(), a.pid());
    // Strictly greater for the prefix group: 0 MB never names a pid.
    Args ext({{"ProcessName", "/opt/" + u}});
    const float extMb = ext.Call(GetProcessMemoryExtern);
    EXPECT_EQ(ext.result.pid, extMb > 0.0f ? a.pid() : 0);
    Args fz({{"ProcessName", "/opt/" + u}});
    fz.Call(GetProcessMemoryFuzzyMatch);
    EXPECT_EQ(fz.result.pid, a.pid());
    a.Kill();
    EXPECT_EQ(m.Call(GetProcessMemory), 0.0f);
    EXPECT_EQ(m.Ctx<int>(), 0);
    EXPECT_EQ(ZADI_Linux_Plugin::get_phy_mem(a.pid()), 0u);  // gone between walk and read
}

SANDBOX_TEST(ProcessExist, PreCommandGateCountsAnUnmetGateAsPresent) {
    const std::string u = kt::UniqueName("ex");
    const std::string absent = "/opt/" + u + "-absent";
    Args gate({{"ProcessName", absent}, {"PreCmd", "echo standby"}, {"RetKeyWords", "active"}});
    EXPECT_EQ(gate.Call(IsExistProcessPreCmd), 1.0f);
    EXPECT_EQ(gate.result.result, 0);
    Args met({{"ProcessName", absent}, {"PreCmd", "echo active"}, {"RetKeyWords", "active"}});
    EXPECT_EQ(met.Call(IsExistProcessPreCmd), 0.0f);
    EXPECT_EQ(met.result.result, 0);
    kt::Child c("exc", {"/opt/" + u});
    Args present({{"ProcessName", "/opt/" + u}, {"PreCmd", "echo active"}, {"RetKeyWords", "act"}});
    EXPECT_EQ(present.Call(IsExistProcessPreCmd), 1.0f);
    EXPECT_EQ(present.Ctx<int>(), c.pid());
    Args plain({{"ProcessName", "/opt/" + u}});
    EXPECT_EQ(plain.Call(IsExistProcess), 1.0f);
    EXPECT_EQ(plain.Ctx<int>(), c.pid());
    // Types outside the enumeration measure nothing, even for a match.
    ZADI_Linux_Plugin p;
    int pid = -7;
    EXPECT_EQ(p.get_process_resource(PROCESS_RESOURCE_MAX, ("/opt/" + u).c_str(), &pid), 0.0f);
    EXPECT_EQ(p.get_process_resource(static_cast<PROCESS_RESOURCE_E>(-1), ("/opt/" + u).c_str(), &pid), 0.0f);
    EXPECT_EQ(pid, -7);
    EXPECT_EQ(p.get_process_resource(PROCESS_RESOURCE_EXIST, ("/opt/" + u).c_str(), &pid), 1.0f);
    EXPECT_EQ(pid, c.pid());
    Args noone({{"ProcessName", "/opt/" + u + "x"}});
    EXPECT_EQ(noone.Call(IsExistProcessExtern), 0.0f);
    EXPECT_EQ(noone.result.pid, 0);
    EXPECT_EQ(noone.result.result, 0);
}

namespace {

struct ItemCase {
    const char* name;
    FI_ITEM_FN fn;
    int argc;  // what the item's check wants
};

const ItemCase kItems[] = {
    {"GetDiskUsage", GetDiskUsage, 1},
    {"GetProcessSysCPU", GetProcessSysCPU, 1},
    {"GetProcessSysCPUExtern", GetProcessSysCPUExtern, 1},
    {"GetProcessCoreCPU", GetProcessCoreCPU, 1},
    {"GetProcessCoreCPUExtern", GetProcessCoreCPUExtern, 1},
    {"GetProcessMemory", GetProcessMemory, 1},
    {"GetProcessMemoryExtern", GetProcessMemoryExtern, 1},
    {"GetProcessHandle", GetProcessHandle, 1},
    {"GetProcessHandleExtern", GetProcessHandleExtern, 1},
    {"IsExistProcess", IsExistProcess, 1},
    {"IsExistProcessExtern", IsExistProcessExtern, 1},
    {"IsExistProcessPreCmd", IsExistProcessPreCmd, 3},
    {"GetProcessSysCPUFuzzyMatch", GetProcessSysCPUFuzzyMatch, 1},
    {"GetProcessSysCPUFuzzyMatchCfgPeriod", GetProcessSysCPUFuzzyMatchCfgPeriod, 2},
    {"GetProcessCoreCPUFuzzyMatch", GetProcessCoreCPUFuzzyMatch, 1},
    {"GetProcessCoreCPUFuzzyMatchCfgPeriod", GetProcessCoreCPUFuzzyMatchCfgPeriod, 2},
    {"GetProcessMemoryFuzzyMatch", GetProcessMemoryFuzzyMatch, 1},
    {"GetProcessHandleFuzzyMatch", GetProcessHandleFuzzyMatch, 1},
};

Args GoodArgs(int argc, const std::string& name) {
    Args a({{"ProcessName", name}});
    if (argc == 2) a.Add("Period", "0");
    if (argc == 3) {
        a.Add("PreCmd", "echo on");
        a.Add("RetKeyWords", "on");
    }
    return a;
}

}  // namespace

TEST(ItemArguments, EveryItemRejectsBadArgumentsWithTheFaultMarker) {
    for (const ItemCase& item : kItems) {
        SCOPED_TRACE(item.name);
        Args a = GoodArgs(item.argc, "x");
        EXPECT_EQ(Bits(item.fn(item.argc, a.argv(), &a.context, nullptr)), kMarkerBits);

        EXPECT_EQ(Bits(item.fn(0, a.argv(), &a.context, &a.result)), kMarkerBits);
        EXPECT_EQ(a.result.result, -1);
        EXPECT_EQ(a.reason(), "Input parameter number error.");

        a.ResetResult();
        EXPECT_EQ(Bits(item.fn(item.argc + 1, a.argv(), &a.context, &a.result)), kMarkerBits);
        EXPECT_EQ(a.reason(), "Input parameter number error.");

        a.ResetResult();
        EXPECT_EQ(Bits(item.fn(item.argc, nullptr, nullptr, &a.result)), kMarkerBits);
        EXPECT_EQ(a.reason(), "Input parameter argv is NULL.");

        a.ResetResult();
        EXPECT_EQ(Bits(item.fn(item.argc, a.argv(), nullptr, &a.result)), kMarkerBits);
        EXPECT_EQ(a.reason(), "Input parameter context is NULL.");
        EXPECT_EQ(a.result.pid, -5);
        EXPECT_EQ(a.result.hangflowid, 99u);
        // Context untouched by a refused call.
        for (char ch : a.context.contextbuff) ASSERT_EQ(ch, 0);
    }
}

SANDBOX_TEST(ItemArguments, OddNamesAndPatternsNeverFail) {
    const std::string longName(399, 'n');
    const std::string names[] = {"", longName, "*", "?", "**??**", "[", "%s%n"};
    for (const std::string& n : names) {
        for (const ItemCase& item : kItems) {
            if (item.fn == GetDiskUsage || strstr(item.name, "CPU") != nullptr) continue;  // slow or other meaning
            SCOPED_TRACE(std::string(item.name) + " with \"" + n.substr(0, 12) + "\"");
            Args a = GoodArgs(item.argc, n);
            const float v = a.Call(item.fn);
            EXPECT_EQ(a.result.result, 0);
            EXPECT_GE(v, 0.0f);
        }
    }
    // Only '*' matches every user process: some pid is reported.
    Args all;
    all.Add("ProcessName", "*");
    all.Call(GetProcessMemoryFuzzyMatch);
    EXPECT_GT(all.result.pid, 0);
    Args prefixAll;
    prefixAll.Add("ProcessName", "");
    EXPECT_EQ(prefixAll.Call(IsExistProcessExtern), 1.0f);  // an empty prefix matches everything
    // A non-numeric period is the shortest one.
    EXPECT_EQ(ConvertStr2PeriodUS("often"), 500000);
}
