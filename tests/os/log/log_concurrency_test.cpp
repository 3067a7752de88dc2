// Many threads logging while the tables are reset, scaled, saved and the
// levels changed. Meant for the ThreadSanitizer build (suite LogConcurrency);
// in every build each line must be either printed or counted as dropped.

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "os/log/dbg_log.h"
#include "os/log/log_internal.h"
#include "tests/os/log/log_test_util.h"
#include "tests/support/fake_log_level.h"
#include "tests/support/sandbox.h"

namespace {

// The sandboxed child ends with _exit, which skips the sanitizer's own exit
// status; its reports are therefore read back from stderr and counted.
class StderrCapture {
public:
    StderrCapture() : saved_(dup(2)), file_(memfd_create("stderr", 0)) { dup2(file_, 2); }
    ~StderrCapture() {
        close(saved_);
        close(file_);
    }
    // Restores stderr, echoes what was written and returns it.
    std::string Finish() {
        dup2(saved_, 2);
        std::string text;
        char buf[4096];
        lseek(file_, 0, SEEK_SET);
        for (ssize_t n; (n = read(file_, buf, sizeof(buf))) > 0;) text.append(buf, static_cast<size_t>(n));
        if (!text.empty()) (void)!write(2, text.data(), text.size());
        return text;
    }

private:
    int saved_;
    int file_;
};

constexpr int kLoggers = 4;
constexpr int kLinesEach = 300;
// Two modules share group 1, one has group 2 of its own, one has none, and
// group 3 lets nothing through whatever the controller does.
const uint32_t kModules[] = {100, 101, 200, 300, 400};
constexpr int kModuleCount = 5;

// Everything that changes the tables at run time, round after round:
// resets, scaling, saving, level changes and renaming.
void Control(std::atomic<bool>& stop) {
    for (unsigned round = 0; !stop.load(); ++round) {
        switch (round % 9) {
            case 0: EXPECT_EQ(KIRA_reset_log_ratelimit(), 0); break;
            case 1: EXPECT_EQ(KIRA_set_log_ratelimit(1, 2), 0); break;
            case 2: EXPECT_EQ(KIRA_set_log_ratelimit(0xFFFFFFFFu, 3), 0); break;
            case 3: EXPECT_EQ(KIRA_save_log_ratelimit(), 0); break;
            case 4: EXPECT_EQ(save_pid_log_level(), 0); break;
            case 5: EXPECT_EQ(DBG_SetPidLevel(100, 4 + round % 2), 0); break;
            case 6: EXPECT_EQ(DBG_SetDefLogLevel(4 + round % 2), 1); break;
            case 7: EXPECT_EQ(KIRA_set_log_num_interval(2, 20 + round % 5, 1), 0); break;
            default: DBG_SetPidName(100, round % 2 ? "a" : "a-longer-name"); break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

// New modules keep rebalancing the module tree under the loggers' lookups.
void AddModules(std::atomic<bool>& stop) {
    for (uint32_t pid = 1000; !stop.load(); ++pid) DBG_SetPidName(pid, "new");
}

}  // namespace

SANDBOX_TEST(LogConcurrency, PrintedPlusDroppedEqualsLogged) {
    kt::FakeLogLevel kernel;
    for (uint32_t m : kModules) kernel.SetLevel(m, 4);
    logtest::WriteConf("/ZUK/conf/gid_of_pid.conf", "pid=100,pid_name=a,gid=1\npid=101,pid_name=b,gid=1\n"
                                                    "pid=200,pid_name=c,gid=2\npid=300,pid_name=d\n"
                                                    "pid=400,pid_name=e,gid=3\n");
    logtest::WriteConf("/ZUK/conf/gid_print_limit.conf", "gid=1,num=5,interval=1\ngid=2,num=25,interval=1\n"
                                                         "gid=3,num=0,interval=1\n");
    kt::MakeDirs("/startup_disk/conf/conf_local");

    StderrCapture sanitizerReports;
    std::atomic<bool> stop{false};
    std::thread controller(Control, std::ref(stop));
    std::thread namer(AddModules, std::ref(stop));
    std::vector<std::thread> loggers;
    for (int t = 0; t < kLoggers; ++t) {
        loggers.emplace_back([t] {
            for (int i = 0; i < kLinesEach; ++i) {
                const uint32_t module = kModules[(t + i) % kModuleCount];
                if (i % 2 == 0) {
                    DBG_Log(module, DBG_LOG_ERROR, __func__, i, 0, "conc");
                } else {
                    KIRA_log(module, DBG_LOG_ERROR, __func__, i, 0, "conc");
                }
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
    EXPECT_EQ(sanitizerReports.Finish().find("ThreadSanitizer"), std::string::npos);
}
