// Process lookup and item costs with 1000+ extra processes on the machine:
// exact lookup without a stored pid against `pgrep -f -x` and against the
// system-call floor (one getdents64 walk, openat/read/close per process) at
// 1000 and 4000 processes, a wildcard memory item against `pgrep -f`, and
// item calls that re-use a stored pid against their own floor (open, read,
// close of each file they need), with heap allocations per call.

#include <benchmark/benchmark.h>
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <string.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "bench/bench_processes.h"
#include "plugin/linux/zadi_linux_plugin.h"

extern "C" void* __libc_malloc(size_t);
extern "C" void* __libc_calloc(size_t, size_t);
extern "C" void* __libc_realloc(void*, size_t);

namespace {

// Heap allocations made while armed (malloc, calloc, realloc).
bool g_counting = false;
long g_allocs = 0;

constexpr int kProcesses = 1000;
bench::Sleepers* g_sleepers = nullptr;

std::string ProcName(int i) { return g_sleepers->Name(i); }

// The last spawned process: late in /proc order, so a walk sees nearly all.
std::string Target() { return ProcName(kProcesses - 1) + " 3600"; }

int RunPgrep(const std::vector<std::string>& args) {
    std::vector<char*> argv;
    std::string prog = "pgrep";
    argv.push_back(&prog[0]);
    std::vector<std::string> copy = args;
    for (std::string& a : copy) {
        argv.push_back(&a[0]);
    }
    argv.push_back(nullptr);
    pid_t pid;
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 1, "/dev/null", O_WRONLY, 0);
    if (posix_spawnp(&pid, "pgrep", &fa, nullptr, argv.data(), environ) != 0) {
        return -1;
    }
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
        if (pid == 0) {
            state.SkipWithError("target not found");
        }
    }
}

void BM_PgrepExact(benchmark::State& state) {
    const std::string name = Target();
    for (auto _ : state) {
        if (RunPgrep({"-f", "-x", name}) != 0) {
            state.SkipWithError("pgrep found nothing");
        }
    }
}

void BM_PgrepStartupOnly(benchmark::State& state) {
    for (auto _ : state) {
        RunPgrep({"--version"});
    }
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
        if (res.pid == 0) {
            state.SkipWithError("no match");
        }
    }
}

void BM_PgrepPattern(benchmark::State& state) {
    const std::string pattern = ProcName(kProcesses - 1).substr(5) + " ";
    for (auto _ : state) {
        if (RunPgrep({"-f", pattern}) != 0) {
            state.SkipWithError("pgrep found nothing");
        }
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

// The least an exact lookup can cost: one getdents64 walk of /proc and an
// openat/read/close of each process directory's command line, up to the
// first whose bytes equal `raw`.
pid_t FloorLookup(const std::string& raw) {
    const int dirFd = open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    alignas(8) char entries[32768];
    char data[1024];
    pid_t found = 0;
    for (long n; found == 0 && (n = syscall(SYS_getdents64, dirFd, entries, sizeof(entries))) > 0;) {
        for (long off = 0; off < n && found == 0;) {
            const struct dirent64* e = reinterpret_cast<const struct dirent64*>(entries + off);
            off += e->d_reclen;
            if (e->d_type != DT_DIR || e->d_name[0] < '0' || e->d_name[0] > '9') {
                continue;
            }
            char leaf[300];
            snprintf(leaf, sizeof(leaf), "%s/cmdline", e->d_name);
            const int fd = openat(dirFd, leaf, O_RDONLY | O_CLOEXEC);
            if (fd < 0) {
                continue;
            }
            const ssize_t got = read(fd, data, sizeof(data));
            close(fd);
            if (got == static_cast<ssize_t>(raw.size()) && memcmp(data, raw.data(), raw.size()) == 0) {
                found = atoi(e->d_name);
            }
        }
    }
    close(dirFd);
    return found;
}

// Runs `a` and `b` alternately (each goes first every other time, so neither
// always finds the caches warmed by the other); the figure is a's time, and
// floor_ratio a's time over b's.
void SideBySide(benchmark::State& state, const std::function<void()>& a, const std::function<void()>& b) {
    double ta = 0.0;
    double tb = 0.0;
    bool aFirst = true;
    for (auto _ : state) {
        for (int round = 0; round < 2; ++round) {
            const bool runA = (round == 0) == aFirst;
            const timespec start = bench::Now();
            runA ? a() : b();
            const double took = bench::Seconds(start, bench::Now());
            if (runA) {
                ta += took;
                state.SetIterationTime(took);
            } else {
                tb += took;
            }
        }
        aFirst = !aFirst;
    }
    state.counters["floor_ratio"] = tb > 0.0 ? ta / tb : 0.0;
}

void BM_ExactLookupVsFloor(benchmark::State& state) {
    const int processes = static_cast<int>(state.range(0));
    g_sleepers->Grow(processes);
    const std::string name = ProcName(processes - 1) + " 3600";
    const std::string raw = ProcName(processes - 1) + std::string("\0", 1) + "3600" + std::string("\0", 1);
    if (FloorLookup(raw) == 0) {
        state.SkipWithError("target not found");
        return;
    }
    SideBySide(
        state,
        [&] {
            int pid = 0;
            benchmark::DoNotOptimize(ZADI_Linux_Plugin::get_pid_byname(name.c_str(), pid));
        },
        [&] { benchmark::DoNotOptimize(FloorLookup(raw)); });
}

// open, one read, close of each file, as the item itself needs them.
void ReadFiles(const std::vector<std::string>& paths) {
    char data[4096];
    for (const std::string& path : paths) {
        const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        benchmark::DoNotOptimize(read(fd, data, sizeof(data)));
        close(fd);
    }
}

void StoredPidVsFloor(benchmark::State& state, FI_ITEM_FN item, std::vector<std::string> leaves) {
    FI_PARAM_S param = Param("ProcessName", Target());
    FI_CONTEXT_S ctx;
    memset(&ctx, 0, sizeof(ctx));
    FI_RESULT_S res;
    item(1, &param, &ctx, &res);
    pid_t pid;
    memcpy(&pid, ctx.contextbuff, sizeof(pid));
    std::vector<std::string> paths;
    for (const std::string& leaf : leaves) {
        paths.push_back(leaf[0] == '/' ? leaf : "/proc/" + std::to_string(pid) + "/" + leaf);
    }
    SideBySide(
        state, [&] { benchmark::DoNotOptimize(item(1, &param, &ctx, &res)); }, [&] { ReadFiles(paths); });
}

void BM_StoredPidExistVsFloor(benchmark::State& state) { StoredPidVsFloor(state, IsExistProcess, {"cmdline"}); }
void BM_StoredPidMemoryVsFloor(benchmark::State& state) {
    StoredPidVsFloor(state, GetProcessMemory, {"cmdline", "status"});
}
void BM_StoredPidCpuVsFloor(benchmark::State& state) {
    StoredPidVsFloor(state, GetProcessCoreCPU, {"cmdline", "/proc/stat", "stat"});
}

}  // namespace

extern "C" void* malloc(size_t n) {
    if (g_counting) {
        ++g_allocs;
    }
    return __libc_malloc(n);
}
extern "C" void* calloc(size_t n, size_t m) {
    if (g_counting) {
        ++g_allocs;
    }
    return __libc_calloc(n, m);
}
extern "C" void* realloc(void* p, size_t n) {
    if (g_counting) {
        ++g_allocs;
    }
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
BENCHMARK(BM_StoredPidExistVsFloor)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StoredPidMemoryVsFloor)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_StoredPidCpuVsFloor)->UseManualTime()->Unit(benchmark::kMicrosecond);
// Last: the 4000 case leaves 4000 sleepers running.
BENCHMARK(BM_ExactLookupVsFloor)->Arg(1000)->Arg(4000)->UseManualTime()->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    bench::Sleepers sleepers;
    g_sleepers = &sleepers;
    sleepers.Grow(kProcesses);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
