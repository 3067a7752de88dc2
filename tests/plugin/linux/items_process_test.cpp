// Process items: lookups by command line against real processes, figures from files bound over their /proc entries,
// the match a group reports, the pre-command gate, and what a call with a stored pid costs.

#include <sys/sysinfo.h>
#include <sys/wait.h>

#include <chrono>

#include "plugin/linux/plugin_internal.h"
#include "tests/plugin/linux/items_test_util.h"
#include "tests/support/fault_inject.h"

using itest::Args;
using P = ZADI_Linux_Plugin;

namespace {

std::string ProcFile(pid_t pid, const char* leaf) { return "/proc/" + std::to_string(pid) + "/" + leaf; }

// total4: the first four counters of /proc/stat; utime, stime: fields 14, 15.
void Ticks(pid_t pid, unsigned long long total4, unsigned long long utime, unsigned long long stime) {
    const std::string tenth = std::to_string(total4 / 10) + " ";
    kt::BindFileOver("/proc/stat", "cpu  " + std::to_string(total4 - 3 * (total4 / 10)) + " " + tenth + tenth + tenth +
                                       "777 777 777 0 0\n");
    kt::BindFileOver(ProcFile(pid, "stat"), std::to_string(pid) + " (pc) S 1 1 1 0 -1 0 0 0 0 0 " +
                                                std::to_string(utime) + " " + std::to_string(stime) + " 0 0 20 0\n");
}

// The open-files soft limit is read from the ninth line: the ones before lie.
void Figures(pid_t pid, int rssKb, const std::string& openFiles) {
    kt::BindFileOver(ProcFile(pid, "status"), "Name:\tres\nVmRSS:\t" + std::to_string(rssKb) + " kB\n");
    std::string limits;
    for (int i = 0; i < 8; ++i) {
        limits += "Max cpu time 1 1 seconds\n";
    }
    kt::BindFileOver(ProcFile(pid, "limits"), limits + "Max open files " + openFiles + " 4096 files\n");
}

}  // namespace

SANDBOX_TEST(ProcessItems, LookupsFiguresAndTheMatchAGroupReports) {
    // Anchored only at the first character: "axab" matches "ab", "xab" does not.
    // clang-format off
    const std::pair<const char*, const char*> match[] = {
        {"ab", "ab"}, {"axab", "ab"}, {"abc", "ab*"}, {"abc", "a?c"}, {"", "*"}, {"", ""}, {"aab", "ab"},
        {"abc", "*c"}, {"abc", "a*c"}, {"abc", "???"}, {"a", "a**"}, {"/bin/app -x", "/*/app -?"}};
    const std::pair<const char*, const char*> noMatch[] = {
        {"xab", "ab"}, {"abab", "ab"}, {"abc", "ab"}, {"abc", ""}, {"abc", "*x"}, {"abc", "?"}, {"abc", "????"},
        {"xyz", "x*z?"}, {nullptr, "*"}, {"a", nullptr}};
    // clang-format on
    for (const auto& c : match) {
        EXPECT_TRUE(P::str_fuzzy_match(c.first, c.second)) << c.first << " ~ " << c.second;
    }
    for (const auto& c : noMatch) {
        EXPECT_FALSE(P::str_fuzzy_match(c.first, c.second)) << c.second;
    }
    EXPECT_EQ(zadi::ParseStatLineTicks("9 (x y) S 1 1 1 0 -1 0 0 0 0 0 7 8 0 0"), 7u);  // a space shifts the fields
    const std::string tag = kt::UniqueName("lk"), u = "/opt/" + tag, srv = u + "/srv w", busy = "sh -c T=" + tag;
    kt::Child t1("twa", {u + "/srv", "w"}), t2("twb", {u + "/srv", "w"}), gap("lkg", {u + "/gap", "", "x"});
    const pid_t first = std::min(t1.pid(), t2.pid()), last = std::max(t1.pid(), t2.pid());  // /proc order
    itest::Spinner spin(tag);
    kt::Child calm("grc", {"sh", "-c", "T=" + tag + "; idle"});  // after the spinner in /proc
    // Exact is the whole text, and an empty argument ends it.
    for (const auto& e : {std::make_pair(srv, first), {u + "/srv", 0}, {u + "/gap", gap.pid()}, {u + "/gap  x", 0}}) {
        int pid = -1;
        EXPECT_EQ(std::make_pair(P::get_pid_byname(e.first.c_str(), pid), pid), std::make_pair(e.second, e.second));
    }
    // The census's lookups: exact, prefix, wildcard (in /proc order); one slot stops the walk.
    int pids[4] = {0, 0, 0, 0};
    EXPECT_TRUE(GetProcessPid(srv.c_str(), pids) == 0 && pids[0] == first);
    unsigned int used = 0, one = 0;
    EXPECT_EQ(0, GetProcessPidExtern((u + "/").c_str(), pids, 3, &used) +
                     GetProcessPidFuzzy(("*" + u.substr(5) + "/s?v*").c_str(), pids + 3, 1, &one));
    EXPECT_EQ(std::vector<int>(pids, pids + used + one), (std::vector<int>{first, last, gap.pid(), first}));
    EXPECT_EQ(GetProcessPid(nullptr, pids) + GetProcessPid("x", nullptr) + GetProcessPidExtern("x", pids, 0, &used) +
                  GetProcessPidFuzzy(nullptr, pids, 1, &used) + GetProcessPidExtern("x", nullptr, 1, &used) +
                  GetProcessPidExtern("x", pids, 1, nullptr),
              -6);                         // -1 each
    kt::FaultArm({kt::Fault::kAlloc, 1});  // out of memory: -2, logged
    const int oom = GetProcessPidExtern("x", pids, 1, &used);
    EXPECT_TRUE(kt::FaultDisarm() && oom == -2 && kt::SyslogCount("Fork failed, errno(12,") == 1);
    // '*' and "" match every user process, nothing a kernel thread; mode 7 is exact.
    Args all{{"ProcessName", "*"}}, prefixAll{{"ProcessName", ""}};
    all.Call(GetProcessMemoryFuzzyMatch);
    EXPECT_TRUE(all.result.pid > 0 && prefixAll.Call(IsExistProcessExtern) == 1.0f);
    EXPECT_TRUE(kt::ReadFile("/proc/2/comm") != "kthreadd\n" || !P::check_with_cmdline("/proc/2/cmdline", "*", 2));
    kt::WriteFile("/tmp/cl", std::string("prog\0a\nb\0", 9));  // compared up to the newline
    EXPECT_TRUE(P::check_with_cmdline("/tmp/cl", "prog a\n", 7) && !P::check_with_cmdline("/tmp/cl", "prog", 7));
    char buf[64];
    EXPECT_EQ(P::get_procname_bypid(gap.pid(), buf, sizeof(buf)) + P::get_cmdline_bypid(gap.pid(), buf + 8, 56), 0);
    EXPECT_EQ(std::string(buf) + "|" + (buf + 8), "lkg|" + u + "/gap");
    EXPECT_EQ(P::get_cmdline_bypid(gap.pid(), buf, 2) + P::get_cmdline_bypid(gap.pid(), nullptr, 10), -1);

    // CPU groups name the busiest; of idle ones the prefix group (strictly from
    // 0.0) none, the wildcard group the last. Period 0 is 0.5 s; no match, no sleep.
    // clang-format off
    const struct { Args args; FI_ITEM_FN fn; pid_t pid; double minS, maxS; } groups[] = {
        {{{"ProcessName", busy}}, GetProcessCoreCPUExtern, spin.pid, 0.5, 60},
        {{{"ProcessName", busy + ";*"}}, GetProcessSysCPUFuzzyMatch, spin.pid, 0.5, 60},
        {{{"ProcessName", u + "/srv"}}, GetProcessSysCPUExtern, 0, 0.5, 60},
        {{{"ProcessName", srv}, {"Period", "0"}}, GetProcessCoreCPUFuzzyMatchCfgPeriod, last, 0.5, 3},
        {{{"ProcessName", u + "-none*"}, {"Period", "100"}}, GetProcessSysCPUFuzzyMatchCfgPeriod, 0, 0, 2}};
    // clang-format on
    for (auto g : groups) {
        const auto t0 = std::chrono::steady_clock::now();
        const float v = g.args.Call(g.fn);
        const double took = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
        EXPECT_EQ(std::make_tuple(v > 0.0f, g.args.result.result, g.args.result.pid),
                  std::make_tuple(g.pid == spin.pid, 0, g.pid));
        EXPECT_TRUE(took >= g.minS && took < g.maxS) << took;
    }

    // First: 5 MB, 3 handles of 7; last: 7 MB, no limit. Exact (pid -5) stores the first.
    const auto check = [&](std::vector<std::tuple<FI_ITEM_FN, std::string, float, pid_t>> rows) {
        for (const auto& [fn, name, value, named] : rows) {
            Args a{{"ProcessName", name}};
            const float v = a.Call(fn);
            EXPECT_EQ(std::make_tuple(v, a.result.result, a.result.pid), std::make_tuple(value, 0, named)) << name;
            EXPECT_TRUE(named != -5 || a.StoredPid() == (v > 0 ? first : 0)) << name;
        }
    };
    Figures(first, 5120, "7");
    Figures(last, 8191, "unlimited");
    // clang-format off
    check({{GetProcessMemory, srv, 5, -5}, {GetProcessMemoryExtern, u + "/srv", 7, last}, {GetProcessMemoryFuzzyMatch, srv, 7, last},
           {GetProcessHandle, srv, 42, -5}, {GetProcessHandleExtern, u + "/srv", 42, first},
           {GetProcessHandleFuzzyMatch, srv, 42, first}, {IsExistProcess, srv, 1, -5}, {IsExistProcessExtern, u + "/srv", 1, first},
           {GetProcessMemory, u + "/x", 0, -5}, {IsExistProcessExtern, u + "/x", 0, 0}});
    // Equals: the prefix group keeps the first and names no pid for 0; the wildcard group names the last.
    Figures(first, 5120, "unlimited");
    Figures(last, 5120, "unlimited");
    check({{GetProcessMemoryExtern, u + "/srv", 5, first}, {GetProcessMemoryFuzzyMatch, srv, 5, last},
           {GetProcessHandleExtern, u + "/srv", 0, 0}, {GetProcessHandleFuzzyMatch, srv, 0, last}});
    // Output not beginning with the keywords (31 characters count): present unseen.
    const std::string n40 = "0123456789012345678901234567890123456789";
    const struct { std::string name, cmd, keywords; float value; } gates[] = {{u + "/x", "echo standby", "active", 1},
        {u + "/x", "echo active-primary", "active", 0}, {u + "/x", "echo " + n40, n40, 1},
        {u + "/x", "echo " + n40, n40.substr(0, 31), 0}, {srv, "echo on", "on", 1}};
    // clang-format on
    for (const auto& g : gates) {
        Args a{{"ProcessName", g.name}, {"PreCmd", g.cmd}, {"RetKeyWords", g.keywords}};
        EXPECT_EQ(std::make_pair(a.Call(IsExistProcessPreCmd), a.result.result), std::make_pair(g.value, 0)) << g.cmd;
    }
    EXPECT_LE(waitpid(-1, nullptr, WNOHANG), 0) << "every command is waited for";
    char on[] = "echo active", part[] = "printf act", kw[] = "active";
    const int earlier = P::exec_pre_cmd(on, kw), later = P::exec_pre_cmd(part, kw);  // no leftover output counts
    EXPECT_EQ(std::make_tuple(earlier, later, P::exec_pre_cmd(nullptr, kw) + P::exec_pre_cmd(on, nullptr)),
              std::make_tuple(0, -1, -2));

    // From a zeroed context: the share since boot, the pid in the context only.
    Args a{{"ProcessName", srv}}, core{{"ProcessName", srv}};
    Ticks(first, 100000, 300, 200);
    EXPECT_FLOAT_EQ(a.Call(GetProcessSysCPU), 0.5f);
    EXPECT_EQ(a.Written(), std::make_tuple(0, std::string("untouched"), -5, 99u));
    // Same total, no tick of its own, no total: 0.0 each, and no sample stored.
    for (const auto& t : {std::make_tuple(100000, 900, 0), std::make_tuple(102000, 0, 0), std::make_tuple(0, 9, 9)}) {
        Ticks(first, std::get<0>(t), std::get<1>(t), std::get<2>(t));
        EXPECT_EQ(a.Call(GetProcessSysCPU), 0.0f);
    }
    Ticks(first, 101000, 600, 150);  // +250 of +1000
    EXPECT_FLOAT_EQ(a.Call(GetProcessSysCPU), 25.0f);
    EXPECT_FLOAT_EQ(core.Call(GetProcessCoreCPU), 750 * 100.0f / 101000 * static_cast<float>(get_nprocs()));
    // A stored pid costs open, read and close of its command line and of each
    // file read after it, and no heap block (not traced under an emulator).
    for (const auto& cost : {std::make_pair(IsExistProcess, 3L), std::make_pair(GetProcessMemory, 6L),
                             std::make_pair(GetProcessCoreCPU, 9L)}) {
        core.Call(cost.first);
        const long count = kt::CountSyscalls([&] { core.Call(cost.first); });
        EXPECT_LE(count, cost.second) << "system calls (-1: not traced here)";
        kt::FaultArm({kt::Fault::kAlloc, 0, kt::FaultMode::kFail, false});
        core.Call(cost.first);
        EXPECT_EQ(std::make_pair(kt::FaultSeen(), core.StoredPid()), std::make_pair(0, first)) << "heap blocks";
        kt::FaultDisarm();
    }

    // A stored pid running the same command line keeps its samples; else /proc is walked again, the samples dropped.
    int pid = last;
    unsigned long long sys = 5, proc = 6;
    EXPECT_EQ(std::make_tuple(P::get_pid_byname(srv.c_str(), pid, sys, proc), pid, sys, proc),
              std::make_tuple(last, last, 5ull, 6ull));
    pid = gap.pid();
    EXPECT_EQ(std::make_tuple(P::get_pid_byname(srv.c_str(), pid, sys, proc), pid, sys, proc),
              std::make_tuple(first, first, 0ull, 0ull));
    t1.Kill();
    t2.Kill();
    EXPECT_EQ(std::make_pair(P::get_pid_byname(srv.c_str(), pid), pid), std::make_pair(0, 0));
}
