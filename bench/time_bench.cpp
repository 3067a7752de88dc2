// Calendar conversion against the C library, side by side in one run:
// KIRA_GmTime against gmtime_r over random instants of 1970-2100 and of
// 1970-5000, and KIRA_AscTime against gmtime_r plus snprintf of the same
// text. The ratios (layer / C library) are printed after the table; the
// goals are at most 0.3 for the conversion and 1.0 for the text.

#include <benchmark/benchmark.h>
#include <stdio.h>
#include <time.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "os/time/kira_time.h"

namespace {

constexpr int64_t kYear2100 = 4133980799;   // 2100-12-31 23:59:59
constexpr int64_t kYear5000 = 95649119999;  // 5000-12-31 23:59:59

std::vector<int64_t> Instants(int64_t last) {
    std::mt19937_64 gen(42);
    std::uniform_int_distribution<int64_t> dist(0, last);
    std::vector<int64_t> v(4096);
    for (int64_t& t : v) {
        t = dist(gen);
    }
    return v;
}

const std::vector<int64_t>& Range(int64_t last) {
    static const std::vector<int64_t> to2100 = Instants(kYear2100), to5000 = Instants(kYear5000);
    return last == kYear2100 ? to2100 : to5000;
}

void BM_KiraGmTime(benchmark::State& state) {
    const std::vector<int64_t>& in = Range(state.range(0));
    size_t i = 0;
    KIRA_DATE_TIME_S r;
    for (auto _ : state) {
        KIRA_GmTime(&in[i++ & 4095], &r);
        benchmark::DoNotOptimize(r);
    }
}

void BM_gmtime_r(benchmark::State& state) {
    const std::vector<int64_t>& in = Range(state.range(0));
    size_t i = 0;
    struct tm r;
    for (auto _ : state) {
        const time_t t = static_cast<time_t>(in[i++ & 4095]);
        benchmark::DoNotOptimize(gmtime_r(&t, &r));
        benchmark::DoNotOptimize(r);
    }
}

void BM_KiraAscTime(benchmark::State& state) {
    const std::vector<int64_t>& in = Range(kYear2100);
    size_t i = 0;
    char buf[32];
    for (auto _ : state) {
        KIRA_AscTime(&in[i++ & 4095], buf, sizeof(buf));
        benchmark::DoNotOptimize(buf);
    }
}

void BM_gmtime_r_snprintf(benchmark::State& state) {
    static const char kDays[7][4] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char kMonths[12][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::vector<int64_t>& in = Range(kYear2100);
    size_t i = 0;
    char buf[80];  // room for any int, as the compiler cannot see the ranges
    for (auto _ : state) {
        const time_t t = static_cast<time_t>(in[i++ & 4095]);
        struct tm r;
        gmtime_r(&t, &r);
        snprintf(buf, sizeof(buf), "%.3s %.3s %3d %02d:%02d:%02d %d", kDays[r.tm_wday], kMonths[r.tm_mon], r.tm_mday,
                 r.tm_hour, r.tm_min, r.tm_sec, r.tm_year + 1900);
        benchmark::DoNotOptimize(buf);
    }
}

BENCHMARK(BM_KiraGmTime)->Arg(kYear2100)->Arg(kYear5000);
BENCHMARK(BM_gmtime_r)->Arg(kYear2100)->Arg(kYear5000);
BENCHMARK(BM_KiraAscTime);
BENCHMARK(BM_gmtime_r_snprintf);

// Keeps each run's time per iteration for the ratio lines.
class RatioReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& r : runs) {
            ns_[r.benchmark_name()] = r.GetAdjustedCPUTime();
        }
        ConsoleReporter::ReportRuns(runs);
    }
    void PrintRatios() const {
        const std::string to2100 = "/" + std::to_string(kYear2100), to5000 = "/" + std::to_string(kYear5000);
        Ratio("KIRA_GmTime / gmtime_r, 1970-2100", "BM_KiraGmTime" + to2100, "BM_gmtime_r" + to2100, 0.3);
        Ratio("KIRA_GmTime / gmtime_r, 1970-5000", "BM_KiraGmTime" + to5000, "BM_gmtime_r" + to5000, 0.3);
        Ratio("KIRA_AscTime / gmtime_r+snprintf", "BM_KiraAscTime", "BM_gmtime_r_snprintf", 1.0);
    }

private:
    void Ratio(const char* what, const std::string& ours, const std::string& theirs, double goal) const {
        auto a = ns_.find(ours), b = ns_.find(theirs);
        if (a == ns_.end() || b == ns_.end() || b->second <= 0) {
            return;
        }
        const double ratio = a->second / b->second;
        printf("%-36s %.3f (goal <= %.1f) %s\n", what, ratio, goal, ratio <= goal ? "ok" : "MISSED");
    }
    std::map<std::string, double> ns_;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
    benchmark::Shutdown();
    return 0;
}
