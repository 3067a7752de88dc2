// Every exported item and census function, called alike:
// - with each of its opens, reads, mappings, directory calls and allocations
//   failing in turn (and its reads interrupted or cut short): each run must
//   end in the system's own failure form or a valid result, without a crash
//   or a lost descriptor. Heap leaks are LeakSanitizer's to find.
// - round after round on a live process (100,000 calls in all;
//   KIRA_SOAK_CALLS sets another count, as the valgrind stage does):
//   descriptors stay as they were and resident memory grows by less than
//   64 KiB after a warm-up. Sleeps are skipped, the measurements are not.

#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <string>
#include <vector>

#include "os/log/dbg_log.h"
#include "plugin/linux/zadi_inner.h"
#include "tests/plugin/linux/items_test_util.h"
#include "tests/support/fault_inject.h"
#include "tests/support/sandbox.h"

using itest::Args;
using itest::CensusCase;
using itest::ItemCase;
using itest::kCensus;
using itest::kItems;
using itest::ParamsFor;
using itest::Watched;

namespace {

struct Injection {
    kt::Fault kind;
    kt::FaultMode mode;
};
const Injection kInjections[] = {
    {kt::Fault::kOpen, kt::FaultMode::kFail},      {kt::Fault::kRead, kt::FaultMode::kFail},
    {kt::Fault::kRead, kt::FaultMode::kInterrupt}, {kt::Fault::kRead, kt::FaultMode::kShort},
    {kt::Fault::kMmap, kt::FaultMode::kFail},      {kt::Fault::kDir, kt::FaultMode::kFail},
    {kt::Fault::kAlloc, kt::FaultMode::kFail},
};

// Runs body in a sandbox with a watched process. The logging set-up is done
// first: its own failures are walked elsewhere.
void WithWatched(const std::function<void(const Watched&)>& body) {
    if (!kt::SandboxAvailable()) GTEST_SKIP() << "needs root and mount namespaces";
    kt::SandboxOptions opts;
    opts.timeout_s = 170;
    kt::RunSandboxed(
        [&] {
            Watched w;
            DBG_Log(PID_CTRL_ZADIMONITOR, DBG_LOG_EVENT, "walk", 1, 0, "logging set up");
            body(w);
        },
        opts);
}

// Walks every injection over call(w), judging each failing run with check().
void WalkAll(const std::function<void(const Watched&)>& call, const std::function<void()>& check) {
    WithWatched([&](const Watched& w) {
        for (const Injection& inj : kInjections) {
            SCOPED_TRACE(inj.mode == kt::FaultMode::kFail        ? "fail"
                         : inj.mode == kt::FaultMode::kInterrupt ? "interrupt"
                                                                 : "short");
            kt::FaultWalk(
                inj.kind, inj.mode, [&] { call(w); }, [&](int) { check(); }, 3000);
        }
    });
}

class ItemWalk : public ::testing::TestWithParam<ItemCase> {};

TEST_P(ItemWalk, EveryFailureEndsInTheItemsOwnForm) {
    const ItemCase item = GetParam();
    Args a;
    float v = 0;
    WalkAll(
        [&](const Watched& w) {
            a = Args(ParamsFor(item.shape, w));
            v = a.Call(item.fn);
        },
        [&] {
            if (a.result.result == 0) return;
            ASSERT_EQ(a.result.result, -1) << "value " << v;
            EXPECT_EQ(itest::Bits(v), itest::kMarkerBits);
            EXPECT_NE(a.reason(), "untouched");
            EXPECT_NE(a.reason(), "");
        });
}

INSTANTIATE_TEST_SUITE_P(Items, ItemWalk, ::testing::ValuesIn(kItems),
                         [](const ::testing::TestParamInfo<ItemCase>& info) { return std::string(info.param.name); });

class CensusWalk : public ::testing::TestWithParam<CensusCase> {};

TEST_P(CensusWalk, EveryFailureEndsInAStatus) {
    const CensusCase census = GetParam();
    int rc = 0;
    WalkAll([&](const Watched& w) { rc = census.call(w); }, [&] { EXPECT_TRUE(rc >= census.lowest && rc <= 0) << rc; });
}

INSTANTIATE_TEST_SUITE_P(Census, CensusWalk, ::testing::ValuesIn(kCensus),
                         [](const ::testing::TestParamInfo<CensusCase>& info) { return std::string(info.param.name); });

TEST(Soak, EveryFunctionOnLiveProcessesSlow) {
    const char* env = getenv("KIRA_SOAK_CALLS");
    const long calls = env != nullptr ? atol(env) : 100000;
    WithWatched([calls, env](const Watched& w) {
        const std::string beat = "/tmp/heartbeat/" + w.name + "___7___" + std::to_string(w.child.pid());
        constexpr size_t kItemCount = sizeof(kItems) / sizeof(kItems[0]);
        constexpr size_t kRound = kItemCount + sizeof(kCensus) / sizeof(kCensus[0]);
        const long warmUp = calls / 10;
        int fds = -1;
        long rss = -1;
        kt::FaultArm({kt::Fault::kOpen, 0});  // nothing fails; sleeps are skipped
        for (long i = 0; i < calls; ++i) {
            if (i == warmUp) {
                fds = kt::OpenFdCount();
                rss = itest::StatusKb("self", "VmRSS:");
            }
            if (i % kRound == 0) kt::WriteFile(beat, std::to_string(i) + "\n");
            // Items first, then the census.
            const size_t n = static_cast<size_t>(i) % kRound;
            if (n < kItemCount) {
                Args(ParamsFor(kItems[n].shape, w)).Call(kItems[n].fn);
            } else {
                (void)kCensus[n - kItemCount].call(w);
            }
        }
        kt::FaultDisarm();
        EXPECT_EQ(kt::OpenFdCount(), fds);
        const long grown = itest::StatusKb("self", "VmRSS:") - rss;
        fprintf(stderr, "soak: %ld calls, resident memory grew by %ld KiB after the first %ld\n", calls, grown, warmUp);
        // Under valgrind the figure says nothing about the library.
        if (env == nullptr) {
            EXPECT_LT(grown, 64);
        }
    });
}

}  // namespace
