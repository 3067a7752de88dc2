// The CPU usage sampler: its arithmetic, the /proc/stat line it needs, the
// one-second period and the stop protocol, on bound and on real files.

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <tuple>
#include <vector>

#include "os/sysinfo/sysinfo_internal.h"
#include "tests/os/sysinfo/sysinfo_test_util.h"

namespace {

using Clock = std::chrono::steady_clock;

double MsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

bool WaitForUsage(int32_t want, int timeoutMs) {
    return sysinfo_test::WaitUntil([want] { return KIRA_GetCpuUsage() == want; }, timeoutMs);
}

}  // namespace

SANDBOX_TEST(Sampler, ArithmeticAndTheStatLine) {
    EXPECT_EQ(KIRA_GetCpuUsage(), 0);
    KIRA_UpdateCpuUsage(250, 1000);
    EXPECT_EQ(KIRA_GetCpuUsage(), 75);
    KIRA_UpdateCpuUsage(5, 0);  // no time passed: unchanged
    EXPECT_EQ(KIRA_GetCpuUsage(), 75);
    KIRA_UpdateCpuUsage(1, 3);  // truncated
    EXPECT_EQ(KIRA_GetCpuUsage(), 66);
    KIRA_UpdateCpuUsage(0, 1ULL << 62);  // the product wraps in 64 bits
    EXPECT_EQ(KIRA_GetCpuUsage(), 0);

    // The stat file; the result, the idle and the total time it gives.
    const std::tuple<const char*, int, uint64_t, uint64_t> cases[] = {
        {"cpu  1 2 3\n", 0, 0, 0},
        {"cpu  1 2 3 4\n", 1, 4, 10},
        {"cpu  1 2 3 4 5 6 7\n", 1, 4, 28},
        {"cpu  1 2 3 4 5 6 7 8 9 10\n", 1, 4, 28},  // steal and guests are not counted
        {"intr 1 2 3 4 5\n", 0, 0, 0},
        {"", 0, 0, 0},
    };
    for (const auto& [stat, rc, wantIdle, wantTotal] : cases) {
        kt::BindFileOver("/proc/stat", stat);
        uint64_t idle = 0, total = 0;
        EXPECT_EQ(KIRA_GetSystemTimes(&idle, &total), rc) << stat;
        EXPECT_EQ(idle, wantIdle) << stat;
        EXPECT_EQ(total, wantTotal) << stat;
    }
}

SANDBOX_TEST(Sampler, FollowsTheFileOnceASecondAndStopsQuickly) {
    // The first figure is the average since boot.
    kt::BindFileOver("/proc/stat", "cpu  100 0 0 900 0 0 0\n");
    ASSERT_EQ(KIRA_SysInfoInit(), 0);
    EXPECT_TRUE(WaitForUsage(10, 500));
    kt::BindFileOver("/proc/stat", "cpu  800 0 50 1150 0 0 0\n");
    auto changed = Clock::now();
    EXPECT_TRUE(WaitForUsage(75, 1500));
    EXPECT_LT(MsSince(changed), 1200);
    // Too few counters: the figure stays.
    kt::BindFileOver("/proc/stat", "cpu  1 1 1\n");
    usleep(1200 * 1000);
    EXPECT_EQ(KIRA_GetCpuUsage(), 75);

    auto stop = Clock::now();
    KIRA_SysInfoExit();
    EXPECT_LT(MsSince(stop), 200);
    EXPECT_EQ(KIRA_SysInfoExitFlag(), 0);
    EXPECT_EQ(kt::SyslogCount("Sysinfo thread exited abnormal."), 0);
    EXPECT_EQ(KIRA_GetCpuUsage(), 75);
}

SANDBOX_TEST(Sampler, BusyChildrenRaiseTheRealFigure) {
    std::vector<pid_t> spinners;
    for (int i = 0; i < KIRA_GetCpuNumber(); i++) {
        pid_t pid = fork();
        if (pid == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            for (;;) {
            }
        }
        spinners.push_back(pid);
    }
    ASSERT_EQ(KIRA_SysInfoInit(), 0);
    usleep(2300 * 1000);
    int32_t busy = KIRA_GetCpuUsage();
    KIRA_SysInfoExit();
    for (pid_t pid : spinners) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    EXPECT_GE(busy, 50);
    EXPECT_LE(busy, 100);
}

SANDBOX_TEST(Sampler, ExitWithoutSamplerGivesUpAfterThreeSeconds) {
    auto start = Clock::now();
    KIRA_SysInfoExit();
    double ms = MsSince(start);
    EXPECT_GE(ms, 2990);
    EXPECT_LT(ms, 3300);
    EXPECT_EQ(kt::SyslogCount("Sysinfo thread exited abnormal.\n", 6), 1);
    EXPECT_EQ(KIRA_SysInfoExitFlag(), 1);
}
