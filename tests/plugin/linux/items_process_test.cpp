// Process items against real processes: CPU arithmetic on frozen tick
// counts, handle usage from real limits, the tie rules of prefix and
// wildcard groups, the pre-command gate, and bad input on every item.

#include <signal.h>
#include <sys/resource.h>

#include "plugin/linux/proc_read_internal.h"
#include "tests/plugin/linux/items_test_util.h"
#include "tests/support/sandbox.h"

using itest::Args;
using itest::Bits;
using itest::kMarkerBits;
using P = ZADI_Linux_Plugin;

namespace {

// Only user+nice+system+idle make the process total; the rest is noise.
std::string TotalStat(unsigned long long total4) {
    return "cpu  " + std::to_string(total4) + " 0 0 0 777 777 777 777 0 0\n";
}

// Sets the soft limit of open files, keeping the hard one (raising it needs a
// capability the sandbox may lack); returns the hard limit.
rlim_t SetOpenFiles(pid_t pid, rlim_t soft) {
    struct rlimit old;
    EXPECT_EQ(prlimit(pid, RLIMIT_NOFILE, nullptr, &old), 0);
    struct rlimit lim = {soft < old.rlim_max ? soft : old.rlim_max, old.rlim_max};
    EXPECT_EQ(prlimit(pid, RLIMIT_NOFILE, &lim, nullptr), 0) << strerror(errno);
    return old.rlim_max;
}

// Descriptors of pid, once the sleeper has closed its start-up pipe (fd 3).
unsigned int CountFds(pid_t pid) {
    const std::string dir = "/proc/" + std::to_string(pid) + "/fd";
    for (int i = 0; i < 200 && access((dir + "/3").c_str(), F_OK) == 0; ++i) usleep(10000);
    unsigned int n = 0;
    DIR* d = opendir(dir.c_str());
    for (struct dirent* e = readdir(d); e != nullptr; e = readdir(d)) n += e->d_name[0] != '.';
    closedir(d);
    return n;
}

using Reported = std::pair<float, int>;

Args GoodArgs(int argc, const std::string& name) {
    Args a{{"ProcessName", name}};
    if (argc == 2) a.Add("Period", "0");
    if (argc == 3) a.Add("PreCmd", "echo on").Add("RetKeyWords", "on");
    return a;
}

}  // namespace

SANDBOX_TEST(ProcessCpu, SharesFromFrozenTicksAndStoredSamples) {
    itest::Spinner spin(kt::UniqueName("spin"));
    const unsigned long long p1 = spin.RunFor(300);
    ASSERT_GT(p1, 0u);
    char cmd[1024];
    ASSERT_EQ(P::get_cmdline_bypid(spin.pid(), cmd, sizeof(cmd)), 0);
    const std::string name = cmd;
    kt::BindFileOver("/proc/stat", TotalStat(100000));

    Args a{{"ProcessName", name}};
    EXPECT_FLOAT_EQ(a.Ok(GetProcessSysCPU), static_cast<float>(p1 * 100.0 / 100000.0));
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
    Args sys{{"ProcessName", name}}, core{{"ProcessName", name}};
    const float s = sys.Call(GetProcessSysCPU);
    EXPECT_GT(s, 0.0f);
    EXPECT_EQ(core.Ok(GetProcessCoreCPU), s * static_cast<float>(P::get_cpu_core_num()));
    // Not running: 0.0, a success.
    Args none{{"ProcessName", "/opt/" + kt::UniqueName("absent")}};
    EXPECT_EQ(none.Ok(GetProcessCoreCPU), 0.0f);
}

SANDBOX_TEST(ProcessCpu, BusiestPrefixMatchIsReported) {
    const std::string tag = kt::UniqueName("busy");
    itest::Spinner spin(tag);
    kt::Child idle("bsi", {"sh", "-c", "T=" + tag + "; idle"});
    Args ext{{"ProcessName", "sh -c T=" + tag}};
    EXPECT_GT(ext.Call(GetProcessCoreCPUExtern), 0.0f);  // far less than a processor on a loaded machine
    EXPECT_EQ(ext.result.pid, spin.pid());
}

SANDBOX_TEST(ProcessCpu, IdleGroupsFollowTheirTieRules) {
    const std::string u = kt::UniqueName("idl");
    itest::Twins t("/opt/" + u, "w");
    const std::string all = "/opt/" + u + " ?";
    const struct {
        std::vector<std::pair<std::string, std::string>> args;
        FI_ITEM_FN fn;
        pid_t pid;
        double min_s, max_s;
    } cases[] = {
        // Prefix: strictly greater from 0.0, so idle processes never name a pid.
        {{{"ProcessName", "/opt/" + u}}, GetProcessSysCPUExtern, 0, 0.5, 60},
        // Wildcard: greater or equal, so the last idle match is reported.
        {{{"ProcessName", all}}, GetProcessSysCPUFuzzyMatch, t.later, 0, 60},
        {{{"ProcessName", all}, {"Period", "0"}}, GetProcessCoreCPUFuzzyMatchCfgPeriod, t.later, 0.5, 3},  // 0 is 0.5 s
        // No match at all: no sleep needed.
        {{{"ProcessName", "/opt/" + u + "-none*"}, {"Period", "100"}}, GetProcessSysCPUFuzzyMatchCfgPeriod, 0, 0, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args[0].second);
        Args a(c.args);
        const auto t0 = std::chrono::steady_clock::now();
        EXPECT_EQ(a.Call(c.fn), 0.0f);
        const double took = itest::SecondsSince(t0);
        EXPECT_GE(took, c.min_s);
        EXPECT_LT(took, c.max_s);
        EXPECT_EQ(a.result.result, 0);
        EXPECT_EQ(a.result.pid, c.pid);
    }
}

SANDBOX_TEST(ProcessHandle, UsageFromOpenFilesAndTheSoftLimit) {
    const std::string u = kt::UniqueName("hd");
    itest::Twins t("/opt/" + u, "h");
    const pid_t a = t.a.pid();
    const unsigned int fdsA = CountFds(a);
    ASSERT_GT(fdsA, 0u);
    P p;
    SetOpenFiles(a, 7);
    EXPECT_EQ(p.get_handle_max(a), 7u);
    EXPECT_EQ(p.get_handle_count(a), fdsA);
    EXPECT_EQ(p.get_handle_usage(a), fdsA * 100 / 7);
    if (SetOpenFiles(a, RLIM_INFINITY) == RLIM_INFINITY) {
        EXPECT_EQ(p.get_handle_max(a), 0u);  // "unlimited" does not parse
        EXPECT_EQ(p.get_handle_usage(a), 0u);
    }
    EXPECT_EQ(p.get_handle_count(999999999), 0u);

    // Both at 0 %: prefix keeps pid 0, wildcard reports the later one.
    ASSERT_GT(SetOpenFiles(a, RLIM_INFINITY), fdsA * 100);
    ASSERT_GT(SetOpenFiles(t.b.pid(), RLIM_INFINITY), CountFds(t.b.pid()) * 100);
    Args ext{{"ProcessName", "/opt/" + u}}, fz{{"ProcessName", "/opt/" + u + " *"}}, ex{{"ProcessName", "/opt/" + u}};
    EXPECT_EQ(ext.WithPid(GetProcessHandleExtern), Reported(0.0f, 0));
    EXPECT_EQ(fz.WithPid(GetProcessHandleFuzzyMatch), Reported(0.0f, t.later));
    // Existence by prefix: the first match in directory order.
    EXPECT_EQ(ex.WithPid(IsExistProcessExtern), Reported(1.0f, t.earlier));
    // The earlier one at 100 %: both groups report it.
    SetOpenFiles(t.earlier, CountFds(t.earlier));
    EXPECT_EQ(ext.WithPid(GetProcessHandleExtern), Reported(100.0f, t.earlier));
    EXPECT_EQ(fz.WithPid(GetProcessHandleFuzzyMatch), Reported(100.0f, t.earlier));
    // Exact: the pid is kept in the context.
    Args exact{{"ProcessName", "/opt/" + u + " h"}};
    EXPECT_EQ(exact.Call(GetProcessHandle), 100.0f);
    EXPECT_EQ(exact.Ctx<int>(), t.earlier);
}

SANDBOX_TEST(ProcessMemory, ResidentMegabytesAndStoredPid) {
    const std::string u = kt::UniqueName("mem");
    kt::Child a("mma", {"/opt/" + u});
    // A starting process may still be paging in: accept the figure before or after.
    const long kb1 = itest::StatusKb(std::to_string(a.pid()), "VmRSS:");
    Args m{{"ProcessName", "/opt/" + u}};
    const float mb = m.Call(GetProcessMemory);
    const long kb2 = itest::StatusKb(std::to_string(a.pid()), "VmRSS:");
    ASSERT_GE(kb1, 0);
    EXPECT_TRUE(mb == static_cast<float>(kb1 / 1024) || mb == static_cast<float>(kb2 / 1024)) << mb;
    EXPECT_EQ(m.result.result, 0);
    EXPECT_EQ(m.Ctx<int>(), a.pid());
    // Strictly greater for the prefix group: 0 MB never names a pid.
    Args ext{{"ProcessName", "/opt/" + u}}, fz{{"ProcessName", "/opt/" + u}};
    EXPECT_EQ(ext.result.pid, ext.Call(GetProcessMemoryExtern) > 0.0f ? a.pid() : 0);
    fz.Call(GetProcessMemoryFuzzyMatch);
    EXPECT_EQ(fz.result.pid, a.pid());
    a.Kill();
    EXPECT_EQ(m.Call(GetProcessMemory), 0.0f);
    EXPECT_EQ(m.Ctx<int>(), 0);
    EXPECT_EQ(P::get_phy_mem(a.pid()), 0u);  // gone between walk and read
}

SANDBOX_TEST(ProcessExist, PreCommandGateCountsAnUnmetGateAsPresent) {
    const std::string u = "/opt/" + kt::UniqueName("ex");
    Args gate{{"ProcessName", u + "-absent"}, {"PreCmd", "echo standby"}, {"RetKeyWords", "active"}};
    EXPECT_EQ(gate.Ok(IsExistProcessPreCmd), 1.0f);
    Args met{{"ProcessName", u + "-absent"}, {"PreCmd", "echo active"}, {"RetKeyWords", "active"}};
    EXPECT_EQ(met.Ok(IsExistProcessPreCmd), 0.0f);
    kt::Child c("exc", {u});
    Args present{{"ProcessName", u}, {"PreCmd", "echo active"}, {"RetKeyWords", "act"}}, plain{{"ProcessName", u}};
    EXPECT_EQ(present.Call(IsExistProcessPreCmd), 1.0f);
    EXPECT_EQ(present.Ctx<int>(), c.pid());
    EXPECT_EQ(plain.Call(IsExistProcess), 1.0f);
    EXPECT_EQ(plain.Ctx<int>(), c.pid());
    // Types outside the enumeration measure nothing, even for a match.
    P p;
    int pid = -7;
    EXPECT_EQ(p.get_process_resource(PROCESS_RESOURCE_MAX, u.c_str(), &pid), 0.0f);
    EXPECT_EQ(p.get_process_resource(static_cast<PROCESS_RESOURCE_E>(-1), u.c_str(), &pid), 0.0f);
    EXPECT_EQ(pid, -7);
    Args noone{{"ProcessName", u + "x"}};
    EXPECT_EQ(noone.WithPid(IsExistProcessExtern), Reported(0.0f, 0));
    EXPECT_EQ(noone.result.result, 0);
}

TEST(ItemArguments, EveryItemRejectsBadArgumentsWithTheFaultMarker) {
    for (const itest::ItemCase& item : itest::kItems) {
        const int argc = itest::ArgcOf(item.shape);
        if (argc == 0) continue;
        SCOPED_TRACE(item.name);
        Args a = GoodArgs(argc, "x");
        EXPECT_EQ(Bits(item.fn(argc, a.argv(), &a.context, nullptr)), kMarkerBits);
        const itest::BadCall bad[] = {
            {0, a.argv(), &a.context, "Input parameter number error."},
            {argc + 1, a.argv(), &a.context, "Input parameter number error."},
            {argc, nullptr, nullptr, "Input parameter argv is NULL."},
            {argc, a.argv(), nullptr, "Input parameter context is NULL."},
        };
        for (const auto& b : bad) {
            a.ResetResult();
            itest::ExpectRefused(item.fn(b.argc, b.argv, b.ctx, &a.result), a.result, b.reason);
        }
        // Context untouched by a refused call.
        for (char ch : a.context.contextbuff) ASSERT_EQ(ch, 0);
    }
}

SANDBOX_TEST(ItemArguments, OddNamesAndPatternsNeverFail) {
    for (const std::string& n : {std::string(), std::string(399, 'n'), std::string("*"), std::string("?"),
                                 std::string("**??**"), std::string("["), std::string("%s%n")}) {
        for (const itest::ItemCase& item : itest::kItems) {
            // Disk and CPU items: another meaning or slow.
            if (itest::ArgcOf(item.shape) == 0 || item.shape == itest::kDisk || strstr(item.name, "CPU")) continue;
            SCOPED_TRACE(std::string(item.name) + " with \"" + n.substr(0, 12) + "\"");
            Args a = GoodArgs(itest::ArgcOf(item.shape), n);
            EXPECT_GE(a.Call(item.fn), 0.0f);
            EXPECT_EQ(a.result.result, 0);
        }
    }
    // Only '*' matches every user process: some pid is reported.
    Args all{{"ProcessName", "*"}}, prefixAll{{"ProcessName", ""}};
    all.Call(GetProcessMemoryFuzzyMatch);
    EXPECT_GT(all.result.pid, 0);
    EXPECT_EQ(prefixAll.Call(IsExistProcessExtern), 1.0f);  // an empty prefix matches everything
}
