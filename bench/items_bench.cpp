// Process lookup and item costs with 1000+ extra processes on the machine:
// exact lookup without a stored pid against `pgrep -f -x`, a wildcard memory
// item against `pgrep -f`, and item calls that re-use a stored pid (time and
// heap allocations per call).

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "plugin/linux/zadi_linux_plugin.h"

extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);

namespace {

// Heap allocations made while armed (malloc, calloc, realloc).
bool g_counting = false;
long g_allocs = 0;

constexpr int kProcesses = 1000;
std::vector<pid_t> g_children;
std::string g_tag;

std::string ProcName(int i) {
    char buf[32];
    snprintf(buf, sizeof(buf), "/p%04d", i);
    return g_tag + buf;
}

void SpawnProcesses() {
    g_tag = "/opt/zbench" + std::to_string(getpid());
    for (int i = 0; i < kProcesses; ++i) {
        const std::string argv0 = ProcName(i);
        const pid_t pid = fork();
        if (pid == 0) {
            execl("/bin/sleep", argv0.c_str(), "3600", static_cast<char*>(nullptr));
            _exit(127);
        }
        g_children.push_back(pid);
    }
    usleep(500000);  // let every exec finish
}

void KillProcesses() {
    for (pid_t pid : g_children) kill(pid, SIGKILL);
    for (pid_t pid : g_children) waitpid(pid, nullptr, 0);
}

// The last spawned process: late in /proc order, so a walk sees nearly all.
std::string Target() { return ProcName(kProcesses - 1) + " 3600"; }

int RunPgrep(const std::vector<std::string>& args) {
    std::vector<char*> argv;
    std::string prog = "pgrep";
    argv.push_back(&prog[0]);
    std::vector<std::string> copy = args;
    for (std::string& a : copy) argv.push_back(&a[0]);
    argv.push_back(nullptr);
    pid_t pid;
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
    if (posix_spawnp(&pid, "pgrep", &fa, nullptr, argv.data(), environ) != 0) return -1;
    posix_spawn_file_actions_destroy(&fa);
    int status = 0;
    waitpid(pid, &status, 0);
    return WEXITSTATUS(status);
}

void BM_ExactLookupNoStoredPid(benchmark::State& state) {
    const std::string name = Target();
    for (auto _ : state) {
        int pid = 0;
        benchmark::DoNotOptimize(ZADI_Linux_Plugin::get_pid_byname(name.c_str(), pid));
        if (pid == 0) state.SkipWithError("target not found");
    }
}

void BM_PgrepExact(benchmark::State& state) {
    const std::string name = Target();
    for (auto _ : state) {
        if (RunPgrep({"-f", "-x", name}) != 0) state.SkipWithError("pgrep found nothing");
    }
}

void BM_PgrepStartupOnly(benchmark::State& state) {
    for (auto _ : state) RunPgrep({"--version"});
}

FI_PARAM_S Param(const char* name, const std::string& value) {
    FI_PARAM_S p;
    memset(&p, 0, sizeof(p));
    strncpy(p.name, name, sizeof(p.name) - 1);
    strncpy(p.value, value.c_str(), sizeof(p.value) - 1);
    return p;
}

void BM_FuzzyMemoryItem(benchmark::State& state) {
    FI_PARAM_S param = Param("ProcessName", "*" + ProcName(kProcesses - 1).substr(5) + " *");
    FI_CONTEXT_S ctx;
    memset(&ctx, 0, sizeof(ctx));
    FI_RESULT_S res;
    for (auto _ : state) {
        benchmark::DoNotOptimize(GetProcessMemoryFuzzyMatch(1, &param, &ctx, &res));
        if (res.pid == 0) state.SkipWithError("no match");
    }
}

void BM_PgrepPattern(benchmark::State& state) {
    const std::string pattern = ProcName(kProcesses - 1).substr(5) + " ";
    for (auto _ : state) {
        if (RunPgrep({"-f", pattern}) != 0) state.SkipWithError("pgrep found nothing");
    }
}

// An item whose stored pid still runs the same command line.
void StoredPidItem(benchmark::State& state, FI_ITEM_FN item) {
    FI_PARAM_S param = Param("ProcessName", Target());
    FI_CONTEXT_S ctx;
    memset(&ctx, 0, sizeof(ctx));
    FI_RESULT_S res;
    item(1, &param, &ctx, &res);  // finds and stores the pid
    g_allocs = 0;
    long calls = 0;
    for (auto _ : state) {
        g_counting = true;
        benchmark::DoNotOptimize(item(1, &param, &ctx, &res));
        g_counting = false;
        ++calls;
    }
    state.counters["allocs_per_call"] = static_cast<double>(g_allocs) / static_cast<double>(calls);
}

void BM_StoredPidMemoryItem(benchmark::State& state) { StoredPidItem(state, GetProcessMemory); }
void BM_StoredPidCpuItem(benchmark::State& state) { StoredPidItem(state, GetProcessSysCPU); }
void BM_StoredPidExistItem(benchmark::State& state) { StoredPidItem(state, IsExistProcess); }

}  // namespace

extern "C" void* malloc(size_t n) {
    if (g_counting) ++g_allocs;
    return __libc_malloc(n);
}
extern "C" void* calloc(size_t n, size_t m) {
    if (g_counting) ++g_allocs;
    return __libc_calloc(n, m);
}
extern "C" void* realloc(void* p, size_t n) {
    if (g_counting) ++g_allocs;
    return __libc_realloc(p, n);
}

BENCHMARK(BM_ExactLookupNoStoredPid)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PgrepExact)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PgrepStartupOnly)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FuzzyMemoryItem)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_PgrepPattern)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_StoredPidMemoryItem)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StoredPidCpuItem)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StoredPidExistItem)->Unit(benchmark::kMicrosecond);

int main(int argc, char** argv) {
    SpawnProcesses();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    KillProcesses();
    return 0;
}
