// Every exported item and census function with each of its opens, reads,
// mappings, directory calls and allocations failing in turn (and its reads
// interrupted or cut short): each run must end in the system's own failure
// form or a valid result, without a crash or a lost descriptor. Heap leaks
// are LeakSanitizer's to find in the sanitizer stage.

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

// In a sandbox with a watched process, walks every injection over call(w),
// judging each failing run with check(). The logging set-up is done first:
// its own failures are walked elsewhere.
void WalkAll(const std::function<void(const Watched&)>& call, const std::function<void()>& check) {
    kt::RunSandboxed([&] {
        Watched w;
        DBG_Log(PID_CTRL_ZADIMONITOR, DBG_LOG_EVENT, "walk", 1, 0, "logging set up");
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

}  // namespace
