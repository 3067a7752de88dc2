// Cost of one ProcessHeartBeat call with seven tracked heartbeat files (all
// changed, the steady state of a healthy process group), of one
// GetAllProcessRssMem scan of this machine, and, side by side with 1000 extra
// processes, the CPU time of "zadi_runner census rss" against
// "ps -eo pid,rss,args --sort=-rss" (ps_ratio: runner over ps).
//
// The heartbeat files live on a private tmpfs over /tmp/heartbeat alone (own
// mount namespace, needs root), so nothing is written to the host's
// directory and the rest of /tmp, a build tree there included, stays seen.
// A directory the host lacked is made as the mount point and removed after.

#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench/bench_processes.h"
#include "plugin/linux/allprocess.h"
#include "plugin/linux/process_monitor.h"

namespace {

constexpr int kTracked = 7;
const char kName[] = "hbbench";
const char kHeartbeatDir[] = "/tmp/heartbeat";
bool g_privateTmp = false;
bool g_madeHeartbeatDir = false;
std::vector<pid_t> g_children;

bool EnterPrivateHeartbeatDir() {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return false;
    }
    g_madeHeartbeatDir = mkdir(kHeartbeatDir, 0755) == 0;
    return mount("tmpfs", kHeartbeatDir, "tmpfs", 0, "size=16m") == 0;
}

void LeavePrivateHeartbeatDir() {
    if (g_privateTmp && umount(kHeartbeatDir) == 0 && g_madeHeartbeatDir) {
        (void)rmdir(kHeartbeatDir);
    }
}

void WriteHeartbeat(pid_t pid, const char* content) {
    std::string path = "/tmp/heartbeat/" + std::string(kName) + "___1___" + std::to_string(pid);
    FILE* f = fopen(path.c_str(), "w");
    if (f != nullptr) {
        fputs(content, f);
        fclose(f);
    }
}

void StartWatchedProcesses() {
    for (int i = 0; i < kTracked; ++i) {
        pid_t pid = fork();
        if (pid == 0) {
            prctl(PR_SET_NAME, kName);
            for (;;) {
                pause();
            }
        }
        g_children.push_back(pid);
    }
}

void StopWatchedProcesses() {
    for (pid_t pid : g_children) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

void BM_ProcessHeartBeatSevenChanged(benchmark::State& state) {
    if (!g_privateTmp) {
        state.SkipWithError("needs root for a private /tmp/heartbeat");
        return;
    }
    FI_PARAM_S argv[2] = {};
    strcpy(argv[0].name, "ProcessName");
    strcpy(argv[0].value, kName);
    strcpy(argv[1].name, "ProcessMoudleId");
    strcpy(argv[1].value, "1");
    FI_CONTEXT_S seen = {};
    FI_RESULT_S result = {};
    for (pid_t pid : g_children) {
        WriteHeartbeat(pid, "old\n1\n");
    }
    ProcessHeartBeat(2, argv, &seen, &result);
    for (pid_t pid : g_children) {
        WriteHeartbeat(pid, "new\n2\n");
    }

    FI_CONTEXT_S ctx;
    for (auto _ : state) {
        // Start every call from the table holding the old tokens, so every
        // file reads as changed (a 1 KiB copy, included in the figure).
        memcpy(&ctx, &seen, sizeof(ctx));
        benchmark::DoNotOptimize(ProcessHeartBeat(2, argv, &ctx, &result));
    }
    if (result.result != 0) {
        state.SkipWithError("ProcessHeartBeat failed");
    }
}
BENCHMARK(BM_ProcessHeartBeatSevenChanged);

void BM_GetAllProcessRssMem(benchmark::State& state) {
    struct list_head head;
    size_t processes = 0;
    for (auto _ : state) {
        if (GetAllProcessRssMem(&head) != 0) {
            state.SkipWithError("scan failed");
            break;
        }
        processes = 0;
        struct list_head* p;
        list_for_each(p, &head)++ processes;
        FreeAllProcessList(&head);
    }
    state.counters["processes"] = static_cast<double>(processes);
}
BENCHMARK(BM_GetAllProcessRssMem)->Unit(benchmark::kMillisecond);

#if defined(ZADI_BENCH_RUNNER)
// User plus system CPU seconds of one run of argv, its output discarded.
double ChildCpuSeconds(std::vector<std::string> args) {
    std::vector<char*> argv;
    for (std::string& a : args) {
        argv.push_back(&a[0]);
    }
    argv.push_back(nullptr);
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
    pid_t pid;
    const int rc = posix_spawnp(&pid, argv[0], &fa, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&fa);
    if (rc != 0) {
        return -1.0;
    }
    int status = 0;
    struct rusage usage;
    if (wait4(pid, &status, 0, &usage) != pid || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        return -1.0;
    }
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) * 1e-6;
}

void BM_CensusRssVsPs(benchmark::State& state) {
    static bench::Sleepers sleepers;
    sleepers.Grow(1000);
    const std::vector<std::string> runner = {ZADI_BENCH_RUNNER, "--lib", ZADI_BENCH_LIB, "census", "rss"};
    const std::vector<std::string> ps = {"ps", "-eo", "pid,rss,args", "--sort=-rss"};
    double runnerCpu = 0.0;
    double psCpu = 0.0;
    bool runnerFirst = true;
    for (auto _ : state) {
        const double a = runnerFirst ? ChildCpuSeconds(runner) : 0.0;
        const double b = ChildCpuSeconds(ps);
        const double c = runnerFirst ? a : ChildCpuSeconds(runner);
        if (c < 0.0 || b < 0.0) {
            state.SkipWithError("a command failed");
            return;
        }
        runnerCpu += c;
        psCpu += b;
        state.SetIterationTime(c);
        runnerFirst = !runnerFirst;
    }
    state.counters["ps_ratio"] = psCpu > 0.0 ? runnerCpu / psCpu : 0.0;
}
BENCHMARK(BM_CensusRssVsPs)->UseManualTime()->Iterations(60)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

int main(int argc, char** argv) {
    g_privateTmp = EnterPrivateHeartbeatDir();
    if (g_privateTmp) {
        StartWatchedProcesses();
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    StopWatchedProcesses();
    LeavePrivateHeartbeatDir();
    return 0;
}
