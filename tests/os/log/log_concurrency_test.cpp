// Many threads logging while the tables are reset, scaled, saved and the levels
// changed: meant for the ThreadSanitizer build, yet in every build each line
// must be either printed or counted as dropped.

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "os/log/dbg_log.h"
#include "os/log/log_internal.h"
#include "tests/os/log/log_test_util.h"
#include "tests/support/fake_log_level.h"
#include "tests/support/sandbox.h"

namespace {

constexpr int kLoggers = 4;
constexpr int kLinesEach = 300;
// Two modules share group 1, one has group 2 of its own, one has none, and
// group 3 lets nothing through whatever the controller does.
constexpr uint32_t kModules[] = {100, 101, 200, 300, 400};

// Everything that changes the tables at run time, round after round:
// resets, scaling, saving, level changes and renaming; each gives its
// success value.
void Control(std::atomic<bool>& stop) {
    using Step = int (*)(unsigned round);
    // clang-format off
    static const std::pair<Step, int> steps[] = {
        {[](unsigned) { return int{KIRA_reset_log_ratelimit()}; }, 0},
        {[](unsigned) { return int{KIRA_set_log_ratelimit(1, 2)}; }, 0},
        {[](unsigned) { return int{KIRA_set_log_ratelimit(0xFFFFFFFFu, 3)}; }, 0},
        {[](unsigned) { return int{KIRA_save_log_ratelimit()}; }, 0},
        {[](unsigned) { return int{save_pid_log_level()}; }, 0},
        {[](unsigned r) { return int{DBG_SetPidLevel(100, 4 + r % 2)}; }, 0},
        {[](unsigned r) { return int{DBG_SetDefLogLevel(4 + r % 2)}; }, 1},
        {[](unsigned r) { return int{KIRA_set_log_num_interval(2, 20 + r % 5, 1)}; }, 0},
        {[](unsigned r) { return DBG_SetPidName(100, r % 2 ? "a" : "a-longer-name"), 0; }, 0},
    };
    // clang-format on
    for (unsigned round = 0; !stop.load(); ++round) {
        const auto& step = steps[round % (sizeof steps / sizeof steps[0])];
        EXPECT_EQ(step.first(round), step.second) << "step " << round % 9;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

}  // namespace

SANDBOX_TEST(LogConcurrency, PrintedPlusDroppedEqualsLogged) {
    kt::FakeLogLevel kernel;
    for (uint32_t m : kModules) kernel.SetLevel(m, 4);
    logtest::WriteConf("/ZUK/conf/gid_of_pid.conf",
                       "pid=100,pid_name=a,gid=1\npid=101,pid_name=b,gid=1\n"
                       "pid=200,pid_name=c,gid=2\npid=300,pid_name=d\n"
                       "pid=400,pid_name=e,gid=3\n");
    logtest::WriteConf("/ZUK/conf/gid_print_limit.conf",
                       "gid=1,num=5,interval=1\ngid=2,num=25,interval=1\n"
                       "gid=3,num=0,interval=1\n");
    kt::MakeDirs("/startup_disk/conf/conf_local");

    // The child ends with _exit, which skips the sanitizer's exit status: its reports are read back from stderr.
    const int saved_stderr = dup(2), capture = memfd_create("stderr", 0);
    dup2(capture, 2);
    std::atomic<bool> stop{false};
    std::thread controller(Control, std::ref(stop));
    // New modules keep rebalancing the module tree under the loggers' lookups.
    std::thread namer([&stop] {
        for (uint32_t pid = 1000; !stop.load(); ++pid) DBG_SetPidName(pid, "new");
    });
    std::vector<std::thread> loggers;
    for (int t = 0; t < kLoggers; ++t) {
        loggers.emplace_back([t] {
            for (int i = 0; i < kLinesEach; ++i) {
                auto* log = i % 2 == 0 ? DBG_Log : KIRA_log;
                log(kModules[(t + i) % (sizeof kModules / sizeof kModules[0])], DBG_LOG_ERROR, __func__, i, 0, "conc");
            }
        });
    }
    for (auto& th : loggers) th.join();
    stop.store(true);
    controller.join();
    namer.join();

    const int printed = kt::SyslogCount("[conc][");
    const uint64_t dropped = DbgRateLimitedLines();
    EXPECT_GT(dropped, 0u);
    EXPECT_EQ(static_cast<uint64_t>(printed) + dropped, static_cast<uint64_t>(kLoggers * kLinesEach));
    dup2(saved_stderr, 2);
    const std::string reports = kt::ReadFile("/proc/self/fd/" + std::to_string(capture));
    if (!reports.empty()) (void)!write(2, reports.data(), reports.size());
    EXPECT_EQ(reports.find("ThreadSanitizer"), std::string::npos);
}
