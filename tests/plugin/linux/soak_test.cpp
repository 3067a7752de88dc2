// Every item and census function called round after round on a live process (100,000 calls; KIRA_SOAK_CALLS sets
// another count, as the valgrind stage does): descriptors stay as they were and resident memory grows by less than
// 64 KiB after a warm-up. Sleeps are skipped, the measurements are not. It fails for a leak, a descriptor or a hang,
// never for a slow machine: its time limit is ten times the pace of its first 1,000 calls.

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "tests/plugin/linux/items_test_util.h"
#include "tests/support/fault_inject.h"

namespace {

long ResidentKb() {
    const std::string status = kt::ReadFile("/proc/self/status");
    const size_t at = status.find("VmRSS:");
    return at == std::string::npos ? -1 : strtol(status.c_str() + at + 6, nullptr, 10);
}

void CallOne(size_t n, const itest::Watched& w) {
    constexpr size_t kItemCount = std::size(itest::kItems);
    if (n >= kItemCount) {
        return (void)itest::kCensus[n - kItemCount].call(w);
    }
    itest::Args(itest::ParamsFor(itest::kItems[n].shape, w.name)).Call(itest::kItems[n].fn);
}

}  // namespace

TEST(Soak, EveryFunctionOnLiveProcessesSlow) {
    const char* env = getenv("KIRA_SOAK_CALLS");
    const long calls = env != nullptr ? atol(env) : 100000;
    kt::RunSandboxed([calls] {
        itest::Watched w;
        constexpr size_t kRound = std::size(itest::kItems) + std::size(itest::kCensus);
        const long warmUp = calls / 10;
        long fds = -1, rss = -1;
        kt::FaultArm({kt::Fault::kOpen, 0});  // nothing fails; sleeps are skipped
        // A hang is ended by SIGALRM: 120 s for the first calls, then ten times what the rest would take at their pace.
        constexpr long kPaceCalls = 1000;
        alarm(120);
        const auto start = std::chrono::steady_clock::now();
        for (long i = 0; i < calls; ++i) {
            if (i == kPaceCalls) {
                const double paced = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
                alarm(static_cast<unsigned>(10 * paced * static_cast<double>(calls) / kPaceCalls) + 10);
            }
            if (i == warmUp) {
                fds = kt::OpenFdCount();
                rss = ResidentKb();
            }
            if (i % kRound == 0) {
                kt::WriteFile(w.Beat(), std::to_string(i) + "\n");
                kt::SyslogClear();  // the capture's store would count as the library's memory
            }
            CallOne(static_cast<size_t>(i) % kRound, w);
        }
        kt::FaultDisarm();
        alarm(0);
        EXPECT_EQ(kt::OpenFdCount(), fds);
        // Under valgrind the figure says nothing about the library.
        const long grown = ResidentKb() - rss;
        fprintf(stderr, "soak: %ld calls, resident memory grew by %ld KiB after the first %ld\n", calls, grown, warmUp);
        if (getenv("KIRA_SOAK_CALLS") == nullptr) {
            EXPECT_LT(grown, 64);
        }
    });
}
