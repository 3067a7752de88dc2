// Every exported item and census function with each of its opens, reads, mappings, directory calls and allocations
// failing in turn (reads also interrupted or cut short): each run ends in its own failure form or a valid result,
// without a crash or a lost descriptor (leaks: the sanitizer stage).

#include "os/log/dbg_log.h"
#include "plugin/linux/zadi_inner.h"
#include "tests/plugin/linux/items_test_util.h"
#include "tests/support/fault_inject.h"

namespace {

// In a sandbox with a watched process, logging set up (walked elsewhere).
void WalkAll(const std::function<void(const itest::Watched&)>& call, const std::function<void()>& check) {
    kt::RunSandboxed([&] {
        itest::Watched w;
        DBG_Log(PID_CTRL_ZADIMONITOR, DBG_LOG_EVENT, "walk", 1, 0, "logging set up");
        using F = kt::Fault;
        using M = kt::FaultMode;
        for (const auto& inj : {std::make_pair(F::kOpen, M::kFail), std::make_pair(F::kRead, M::kFail),
                                std::make_pair(F::kRead, M::kInterrupt), std::make_pair(F::kRead, M::kShort),
                                std::make_pair(F::kMmap, M::kFail), std::make_pair(F::kDir, M::kFail),
                                std::make_pair(F::kAlloc, M::kFail)}) {
            SCOPED_TRACE("mode " + std::to_string(static_cast<int>(inj.second)));
            kt::FaultWalk(
                inj.first, inj.second, [&] { call(w); }, [&](int) { check(); }, 3000);
        }
    });
}

const auto ByName = [](const auto& info) { return std::string(info.param.name); };

class ItemWalk : public ::testing::TestWithParam<itest::ItemCase> {};

// A failure is the marker with a reason.
TEST_P(ItemWalk, EveryFailureEndsInTheItemsOwnForm) {
    itest::Args a;
    float v = 0;
    WalkAll(
        [&](const itest::Watched& w) {
            a = itest::Args(itest::ParamsFor(GetParam().shape, w.name));
            v = a.Call(GetParam().fn);
        },
        [&] {
            EXPECT_TRUE(a.result.result == 0 || (a.result.result == -1 && itest::Bits(v) == itest::kMarkerBits &&
                                                 std::get<1>(a.Written()) != "untouched" && a.result.reason[0] != '\0'))
                << a.result.result << " " << a.result.reason;
        });
}

INSTANTIATE_TEST_SUITE_P(Items, ItemWalk, ::testing::ValuesIn(itest::kItems), ByName);

class CensusWalk : public ::testing::TestWithParam<itest::CensusCase> {};

TEST_P(CensusWalk, EveryFailureEndsInAStatus) {
    int rc = 0;
    WalkAll([&](const itest::Watched& w) { rc = GetParam().call(w); },
            [&] { EXPECT_TRUE(rc >= GetParam().lowest && rc <= 0) << rc; });
}

INSTANTIATE_TEST_SUITE_P(Census, CensusWalk, ::testing::ValuesIn(itest::kCensus), ByName);

}  // namespace
