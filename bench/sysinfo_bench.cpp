// The work pool against a plain mutex-and-condition-variable pool written
// here with as many threads as the pool has when each benchmark starts: throughput with 1, 2 and 4 posting threads and
// trivial handlers, and the post-to-start latency (median and 99th percentile) of one item at a time. Then two /proc
// readers against one read() of the same file parsed by hand. The closing lines give each pair as a ratio (ours /
// baseline: below 1 is faster for times, above 1 for throughput).

#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "os/sysinfo/kira_schedwork.h"
#include "os/sysinfo/sysinfo_internal.h"

using namespace kira_sysinfo;

namespace {

using Clock = std::chrono::steady_clock;
std::atomic<uint64_t> g_threadsStarted{0};

}  // namespace

// Counts the pool's thread starts (its top-ups) to show where its time
// goes. Hidden like every symbol here, it sees only the calls linked into
// this executable, i.e. the layer's, not those of the C++ library.
extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*routine)(void*), void* arg) {
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static Create real = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    g_threadsStarted.fetch_add(1, std::memory_order_relaxed);
    return real(thread, attr, routine, arg);
}

namespace {

uint64_t NowNs() {
    return static_cast<uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch()).count());
}

// ---- the baseline pool ----
class MutexPool {
public:
    explicit MutexPool(int threads) {
        for (int i = 0; i < threads; i++) {
            workers_.emplace_back([this] { Run(); });
        }
    }
    ~MutexPool() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            stop_ = true;
        }
        ready_.notify_all();
        for (auto& t : workers_) {
            t.join();
        }
    }
    void Post(KIRA_SCHED_WORK_S* work) {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            queue_.push_back(work);
        }
        ready_.notify_one();
    }

private:
    void Run() {
        for (;;) {
            KIRA_SCHED_WORK_S* work;
            {
                std::unique_lock<std::mutex> lock(mutex_);
                ready_.wait(lock, [this] { return stop_ || !queue_.empty(); });
                if (queue_.empty()) {
                    return;
                }
                work = queue_.front();
                queue_.pop_front();
            }
            work->handler(work);
        }
    }
    std::mutex mutex_;
    std::condition_variable ready_;
    std::deque<KIRA_SCHED_WORK_S*> queue_;
    bool stop_ = false;
    std::vector<std::thread> workers_;
};

std::atomic<uint64_t> g_done{0};
std::vector<uint64_t> g_latencies;

void CountDone(KIRA_SCHED_WORK_S*) { g_done.fetch_add(1, std::memory_order_relaxed); }

void NoteLatency(KIRA_SCHED_WORK_S* work) {
    g_latencies.push_back(NowNs() - work->data);
    g_done.fetch_add(1, std::memory_order_release);
}

MutexPool* g_baseline = nullptr;
int g_baselineThreads = 0;

// The pool starts once; the baseline is rebuilt whenever the pool's size
// changed, so each pair compares the same number of threads.
void EnsurePools() {
    static bool started = false;
    if (!started) {
        started = true;
        KIRA_SchedWorkInit();
        std::vector<KIRA_SCHED_WORK_S> warm(20000);
        for (auto& w : warm) {
            w.handler = CountDone;
            KIRA_SchedWork(&w);
        }
        while (g_done.load() < warm.size()) {
            std::this_thread::yield();
        }
    }
    int threads = static_cast<int>(atomic_read(&g_stSchedWorkAlive));
    if (threads != g_baselineThreads) {
        delete g_baseline;
        g_baseline = new MutexPool(threads);
        g_baselineThreads = threads;
    }
}

constexpr int kItemsPerPoster = 20000;

template <bool kKira>
void BM_Throughput(benchmark::State& state) {
    EnsurePools();
    int posters = static_cast<int>(state.range(0));
    std::vector<std::vector<KIRA_SCHED_WORK_S>> items(posters, std::vector<KIRA_SCHED_WORK_S>(kItemsPerPoster));
    for (auto& v : items) {
        for (auto& w : v) {
            w.handler = CountDone;
        }
    }
    uint64_t started = g_threadsStarted.load();
    for (auto _ : state) {
        g_done.store(0);
        std::vector<std::thread> threads;
        for (int p = 0; p < posters; p++) {
            threads.emplace_back([&, p] {
                for (auto& w : items[p]) {
                    kKira ? (void)KIRA_SchedWork(&w) : g_baseline->Post(&w);
                }
            });
        }
        for (auto& t : threads) {
            t.join();
        }
        uint64_t total = static_cast<uint64_t>(posters) * kItemsPerPoster;
        while (g_done.load(std::memory_order_relaxed) < total) {
            std::this_thread::yield();
        }
    }
    state.SetItemsProcessed(state.iterations() * posters * kItemsPerPoster);
    state.counters["threads"] = g_baselineThreads;
    state.counters["threads_started_per_1k"] = static_cast<double>(g_threadsStarted.load() - started) * 1000.0 /
                                               (state.iterations() * posters * kItemsPerPoster);
}

template <bool kKira>
void BM_Latency(benchmark::State& state) {
    EnsurePools();
    KIRA_SCHED_WORK_S work = {};
    work.handler = NoteLatency;
    g_latencies.clear();
    g_latencies.reserve(1 << 20);
    uint64_t started = g_threadsStarted.load();
    for (auto _ : state) {
        uint64_t before = g_done.load(std::memory_order_acquire);
        work.data = NowNs();
        kKira ? (void)KIRA_SchedWork(&work) : g_baseline->Post(&work);
        while (g_done.load(std::memory_order_acquire) == before) {
        }
    }
    state.counters["threads_started"] = static_cast<double>(g_threadsStarted.load() - started);
    state.counters["threads"] = g_baselineThreads;
    std::sort(g_latencies.begin(), g_latencies.end());
    if (!g_latencies.empty()) {
        state.counters["p50_us"] = g_latencies[g_latencies.size() / 2] / 1000.0;
        state.counters["p99_us"] = g_latencies[g_latencies.size() * 99 / 100] / 1000.0;
    }
}

BENCHMARK_TEMPLATE(BM_Throughput, true)->Name("Pool/Throughput/kira")->Arg(1)->Arg(2)->Arg(4)->UseRealTime();
BENCHMARK_TEMPLATE(BM_Throughput, false)->Name("Pool/Throughput/mutex")->Arg(1)->Arg(2)->Arg(4)->UseRealTime();
BENCHMARK_TEMPLATE(BM_Latency, true)->Name("Pool/Latency/kira")->Iterations(20000)->UseRealTime();
BENCHMARK_TEMPLATE(BM_Latency, false)->Name("Pool/Latency/mutex")->Iterations(20000)->UseRealTime();

// ---- readers against one read() parsed by hand ----
size_t ReadWhole(const char* path, char* buf, size_t size) {
    int fd = open(path, O_RDONLY);
    ssize_t got = read(fd, buf, size - 1);
    close(fd);
    buf[got > 0 ? got : 0] = '\0';
    return got > 0 ? static_cast<size_t>(got) : 0;
}

void ParseCounters(const char* p, uint64_t* out, int n) {
    char* end;
    for (int i = 0; i < n; i++, p = end) {
        out[i] = strtoull(p, &end, 10);
    }
}

void BM_ProcessorStats(benchmark::State& state) {
    processor_stat_t s;
    for (auto _ : state) {
        benchmark::DoNotOptimize(KIRA_get_all_processor_stats(&s));
    }
}

void BM_ProcessorStatsByHand(benchmark::State& state) {
    static char buf[65536];
    uint64_t v[10];
    for (auto _ : state) {
        ReadWhole("/proc/stat", buf, sizeof(buf));
        ParseCounters(buf + 4, v, 10);
        benchmark::DoNotOptimize(v);
    }
}

void BM_Netdev(benchmark::State& state) {
    netdev_info_t s;
    for (auto _ : state) {
        benchmark::DoNotOptimize(KIRA_get_netdev_info("lo", &s));
    }
}

void BM_NetdevByHand(benchmark::State& state) {
    static char buf[65536];
    uint64_t v[9];
    for (auto _ : state) {
        ReadWhole("/proc/net/dev", buf, sizeof(buf));
        const char* line = strstr(buf, "lo:");
        if (line != nullptr) {
            ParseCounters(line + 3, v, 9);
        }
        benchmark::DoNotOptimize(v);
    }
}

BENCHMARK(BM_ProcessorStats)->Name("Reader/ProcessorStats/kira");
BENCHMARK(BM_ProcessorStatsByHand)->Name("Reader/ProcessorStats/hand");
BENCHMARK(BM_Netdev)->Name("Reader/Netdev/kira");
BENCHMARK(BM_NetdevByHand)->Name("Reader/Netdev/hand");

// Keeps each run's figures so the pairs can be printed as ratios.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const auto& r : runs) {
            std::string name = r.benchmark_name();
            times_[name] = r.GetAdjustedRealTime();
            auto ips = r.counters.find("items_per_second");
            if (ips != r.counters.end()) {
                rates_[name] = ips->second;
            }
            for (const char* c : {"p50_us", "p99_us"}) {
                auto it = r.counters.find(c);
                if (it != r.counters.end()) {
                    rates_[name + "/" + c] = it->second;
                }
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void PrintRatios() const {
        printf("\nratios (kira / baseline)\n");
        for (const char* n : {"1", "2", "4"}) {
            std::string k = std::string("Pool/Throughput/kira/") + n + "/real_time";
            std::string m = std::string("Pool/Throughput/mutex/") + n + "/real_time";
            if (rates_.count(k) && rates_.count(m)) {
                printf("  throughput, %s posting: %.2fx (goal >= 1.0)\n", n, rates_.at(k) / rates_.at(m));
            }
        }
        for (const char* c : {"p50_us", "p99_us"}) {
            std::string k = std::string("Pool/Latency/kira/iterations:20000/real_time/") + c;
            std::string m = std::string("Pool/Latency/mutex/iterations:20000/real_time/") + c;
            if (rates_.count(k) && rates_.count(m)) {
                printf("  latency %s: %.2fx (%.1f vs %.1f us)\n", c, rates_.at(k) / rates_.at(m), rates_.at(k),
                       rates_.at(m));
            }
        }
        for (const char* r : {"ProcessorStats", "Netdev"}) {
            std::string k = std::string("Reader/") + r + "/kira";
            std::string h = std::string("Reader/") + r + "/hand";
            if (times_.count(k) && times_.count(h)) {
                printf("  %s time per call: %.2fx (%.2f vs %.2f us)\n", r, times_.at(k) / times_.at(h),
                       times_.at(k) / 1000.0, times_.at(h) / 1000.0);
            }
        }
    }

private:
    std::map<std::string, double> times_;
    std::map<std::string, double> rates_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
    benchmark::Shutdown();
    return 0;
}
