// Cost of one ProcessHeartBeat call with seven tracked heartbeat files (all
// changed, the steady state of a healthy process group) and of one
// GetAllProcessRssMem scan of this machine.
//
// The heartbeat files live in a private /tmp (own mount namespace, needs
// root), so nothing is written to the host's /tmp/heartbeat.

#include <sched.h>
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

#include "plugin/linux/allprocess.h"
#include "plugin/linux/process_monitor.h"

namespace {

constexpr int kTracked = 7;
const char kName[] = "hbbench";
bool g_privateTmp = false;
std::vector<pid_t> g_children;

bool EnterPrivateTmp() {
    return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("tmpfs", "/tmp", "tmpfs", 0, "size=16m") == 0 && mkdir("/tmp/heartbeat", 0755) == 0;
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
            for (;;) pause();
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
        state.SkipWithError("needs root for a private /tmp");
        return;
    }
    FI_PARAM_S argv[2] = {};
    strcpy(argv[0].name, "ProcessName");
    strcpy(argv[0].value, kName);
    strcpy(argv[1].name, "ProcessMoudleId");
    strcpy(argv[1].value, "1");
    FI_CONTEXT_S seen = {};
    FI_RESULT_S result = {};
    for (pid_t pid : g_children) WriteHeartbeat(pid, "old\n1\n");
    ProcessHeartBeat(2, argv, &seen, &result);
    for (pid_t pid : g_children) WriteHeartbeat(pid, "new\n2\n");

    FI_CONTEXT_S ctx;
    for (auto _ : state) {
        // Start every call from the table holding the old tokens, so every
        // file reads as changed (a 1 KiB copy, included in the figure).
        memcpy(&ctx, &seen, sizeof(ctx));
        benchmark::DoNotOptimize(ProcessHeartBeat(2, argv, &ctx, &result));
    }
    if (result.result != 0) state.SkipWithError("ProcessHeartBeat failed");
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
        for (struct list_head* p = head.next; p != &head; p = p->next) ++processes;
        FreeAllProcessList(&head);
    }
    state.counters["processes"] = static_cast<double>(processes);
}
BENCHMARK(BM_GetAllProcessRssMem)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    g_privateTmp = EnterPrivateTmp();
    if (g_privateTmp) StartWatchedProcesses();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    StopWatchedProcesses();
    return 0;
}
