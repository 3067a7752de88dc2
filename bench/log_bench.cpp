// Cost of one logging call against a bare syslog() of the same final text:
// a line dropped by the level filter, a line dropped by its group's rate
// limit, and an emitted line. Heap allocations are counted per call by
// wrapping the allocator of this executable.
//
// The process first moves into a private mount namespace with its own
// /dev/shm (as root), so the shared default-level block it creates never
// reaches the host; elsewhere it runs with a non-root group, which only
// reads the block. There is no kernel side on a build host: levels come
// from the default level.
//
// A build host usually has no /dev/log listener, and syslog() then fails
// its connect on every call. With LOG_BENCH_LISTENER=1 (root only) a
// private /dev gets a socket at /dev/log drained by a thread, so the
// figures show a logger that is listening.

#include <benchmark/benchmark.h>
#include <sched.h>
#include <sys/stat.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <new>

#include "os/log/dbg_log.h"
#include "os/log/log_internal.h"
#include "plugin/linux/zadi_inner.h"
#include "safec/safec.h"

extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t n, size_t size);
extern "C" void* __libc_realloc(void* p, size_t size);
extern "C" void __libc_free(void* p);

namespace {

std::atomic<uint64_t> g_allocations{0};

constexpr uint32_t kModule = PID_CTRL_ZADIMONITOR;
constexpr uint32_t kLimitedModule = 500;
constexpr uint32_t kLimitedGroup = 77;

bool IsolateSharedBlock() {
    if (getgid() != 0) {
        return false;
    }
    if (unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
        mount("tmpfs", "/dev/shm", "tmpfs", 0, nullptr) == 0) {
        return true;
    }
    if (setgid(65534) != 0) {
        abort();
    }
    return false;
}

// A private /dev holding only the shared-memory directory and a drained
// /dev/log socket.
void StartListener() {
    if (mount("tmpfs", "/dev", "tmpfs", 0, nullptr) != 0 || mkdir("/dev/shm", 01777) != 0 ||
        mount("tmpfs", "/dev/shm", "tmpfs", 0, nullptr) != 0) {
        abort();
    }
    const int fd = socket(AF_UNIX, SOCK_DGRAM, 0);
    struct sockaddr_un addr;
    memset(&addr, 0, sizeof(addr));
    addr.sun_family = AF_UNIX;
    (void)strcpy_s(addr.sun_path, sizeof(addr.sun_path), "/dev/log");
    if (fd < 0 || bind(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)) != 0) {
        abort();
    }
    std::thread([fd] {
        char buf[2048];
        while (recv(fd, buf, sizeof(buf), 0) >= 0) {
        }
    }).detach();
}

// Module 500 in a group that lets nothing through; the first drop's report
// is spent here, so the measured drops are silent.
void SetUpTables() {
    KIRA_DebugModuleInit();
    DBG_PID_CONF_S rec;
    memset(&rec, 0, sizeof(rec));
    rec.pid = kLimitedModule;
    (void)strcpy_s(rec.pid_name, sizeof(rec.pid_name), "bench");
    replace_or_add_pid(&rec, kLimitedGroup);
    KIRA_set_log_num_interval(kLimitedGroup, 0, 1);
    DBG_Log(kLimitedModule, DBG_LOG_ERROR, "setup", 1, 0, "spend the first report");
}

void ReportAllocations(benchmark::State& state, uint64_t before) {
    state.counters["allocs_per_call"] = benchmark::Counter(static_cast<double>(g_allocations.load() - before) /
                                                           static_cast<double>(state.iterations()));
}

void BM_LevelDropped(benchmark::State& state) {
    const uint64_t before = g_allocations.load();
    for (auto _ : state) {
        DBG_Log(kModule, DBG_LOG_DEBUG, __func__, __LINE__, 0, "dropped %d", 5);
    }
    ReportAllocations(state, before);
}

void BM_RateLimitDropped(benchmark::State& state) {
    const uint64_t before = g_allocations.load();
    for (auto _ : state) {
        DBG_Log(kLimitedModule, DBG_LOG_ERROR, __func__, __LINE__, 0, "dropped %d", 5);
    }
    ReportAllocations(state, before);
}

void BM_Emitted(benchmark::State& state) {
    const uint64_t before = g_allocations.load();
    for (auto _ : state) {
        DBG_Log(kModule, DBG_LOG_ERROR, "BM_Emitted", 77, 0, "emitted %d", 5);
    }
    ReportAllocations(state, before);
}

// The emitted line's final text, formatted by syslog itself as DBG_Log has it.
void BM_BareSyslog(benchmark::State& state) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const uint64_t before = g_allocations.load();
    for (auto _ : state) {
        syslog(LOG_ERR, "[%5lu.%06lu][%lx][%s][%s][%s][%s,%d][%s]\n", static_cast<unsigned long>(now.tv_sec),
               static_cast<unsigned long>(now.tv_nsec / 1000), 0x1500001a80000UL, "ERR", "emitted 5", "<424>",
               "BM_Emitted", 77, "log_bench");
    }
    ReportAllocations(state, before);
}

BENCHMARK(BM_LevelDropped);
BENCHMARK(BM_RateLimitDropped);
BENCHMARK(BM_Emitted);
BENCHMARK(BM_BareSyslog);

}  // namespace

extern "C" void* malloc(size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}
extern "C" void* calloc(size_t n, size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(n, size);
}
extern "C" void* realloc(void* p, size_t size) {
    g_allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(p, size);
}
extern "C" void free(void* p) { __libc_free(p); }
void* operator new(size_t size) {
    void* p = malloc(size);
    if (p == nullptr) {
        abort();
    }
    return p;
}
void* operator new[](size_t size) { return operator new(size); }
void operator delete(void* p) noexcept { free(p); }
void operator delete[](void* p) noexcept { free(p); }
void operator delete(void* p, size_t) noexcept { free(p); }
void operator delete[](void* p, size_t) noexcept { free(p); }

int main(int argc, char** argv) {
    const char* listener = getenv("LOG_BENCH_LISTENER");
    if (IsolateSharedBlock() && listener != nullptr && strcmp(listener, "1") == 0) {
        StartListener();
    }
    SetUpTables();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
