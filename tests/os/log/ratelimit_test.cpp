// Group rate limits: loading, the limiter's periods and reports, reset,
// scaling, direct set/get and saving; also home of the clock fake.

#include <errno.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include "os/log/dbg_log.h"
#include "tests/os/log/log_test_util.h"
#include "tests/support/sandbox.h"

// Per thread, so that the harness's own threads keep the real clock.
namespace {
thread_local int64_t t_frozenAt = -1;
thread_local int t_clockFailures = 0;
}  // namespace

// Replaces libc's for the whole test executable; unarmed it is the real clock.
extern "C" int clock_gettime(clockid_t clock, struct timespec* ts) {
    if (clock == CLOCK_MONOTONIC && t_clockFailures > 0) {
        --t_clockFailures;
        errno = EINVAL;
        return -1;
    }
    const int rc = static_cast<int>(syscall(SYS_clock_gettime, clock, ts));
    if (rc != 0 || clock != CLOCK_MONOTONIC) return rc;
    if (t_frozenAt >= 0) *ts = {static_cast<time_t>(t_frozenAt), 0};
    return rc;
}

void logtest::FreezeClock() {
    struct timespec ts;
    syscall(SYS_clock_gettime, CLOCK_MONOTONIC, &ts);
    t_frozenAt = ts.tv_sec;
}
void logtest::AdvanceClock(int64_t seconds) { t_frozenAt += seconds; }
void logtest::FailClockReads(int n) { t_clockFailures = n; }

using logtest::Seen;
using logtest::WriteConf;

namespace {

const char kProduct[] = "/ZUK/conf/gid_print_limit.conf";
const char kLocal[] = "/startup_disk/conf/conf_local/gid_log_ratelimit.conf";

const char kModule424InGroup7[] = "pid=424,pid_name=mon,gid=7\n";

int Printed(const std::string& tag) { return kt::SyslogCount("[" + tag + "][mon]"); }

void LogN(int n, const std::string& tag) {
    for (int i = 0; i < n; ++i) DBG_Log(424, DBG_LOG_ERROR, "f", 1, 0, "%s", tag.c_str());
}

// "num/interval" of a group, or the error returned.
std::string NumInterval(uint32_t gid) {
    uint32_t num = 0, interval = 0;
    const int32_t rc = KIRA_get_log_num_interval(gid, &num, &interval);
    return rc != 0 ? std::to_string(rc) : std::to_string(num) + "/" + std::to_string(interval);
}

}  // namespace

SANDBOX_TEST(RateLimit, FourthLineOfPeriodIsDroppedAndReported) {
    logtest::FreezeClock();
    WriteConf("/ZUK/conf/gid_of_pid.conf", kModule424InGroup7);
    WriteConf(kProduct, "gid=7,num=3,interval=2\n");
    LogN(5, "a");
    EXPECT_EQ(Printed("a"), 3);
    EXPECT_EQ(kt::SyslogCount("mon: 1 callbacks suppressed[___ratelimit3].\n", 4), 1);
    EXPECT_EQ(kt::SyslogCount("callbacks suppressed"), 1) << "the second drop stays silent";
    // The line after the period ends reports the period and passes; the next period starts with it counted.
    logtest::AdvanceClock(2 * logtest::kUnit + 1);
    LogN(4, "b");
    EXPECT_EQ(kt::SyslogCount("mon: 2 callbacks suppressed in 2 days[___ratelimit3].\n", 4), 1);
    EXPECT_EQ(Printed("b"), 3);
}

SANDBOX_TEST(RateLimit, ZeroIntervalNeverDropsZeroNumDropsAll) {
    WriteConf("/ZUK/conf/gid_of_pid.conf", "pid=424,pid_name=mon,gid=7\npid=425,pid_name=off,gid=8\n");
    WriteConf(kProduct, "gid=7,num=0,interval=1\ngid=8,num=0,interval=0\n");
    logtest::FreezeClock();
    LogN(3, "a");
    for (int i = 0; i < 3; ++i) DBG_Log(425, DBG_LOG_ERROR, "f", 1, 0, "free");
    EXPECT_EQ(Printed("a"), 0);
    EXPECT_EQ(kt::SyslogCount("[free][off]"), 3);
    EXPECT_EQ(kt::SyslogCount("mon: 1 callbacks suppressed[___ratelimit3].\n", 4), 1);
    EXPECT_EQ(kt::SyslogCount("callbacks suppressed"), 1);
    // A report at most once per unit, still inside the one-unit period.
    logtest::AdvanceClock(logtest::kUnit - 1);
    LogN(1, "a");
    EXPECT_EQ(kt::SyslogCount("mon: 4 callbacks suppressed[___ratelimit3].\n", 4), 0);
    logtest::AdvanceClock(1);
    LogN(1, "a");
    EXPECT_EQ(kt::SyslogCount("mon: 5 callbacks suppressed[___ratelimit3].\n", 4), 1);
    LogN(1, "a");
    EXPECT_EQ(kt::SyslogCount("mon: 6 callbacks suppressed"), 0) << "the report restarts the unit";
}

// A clock failure lets the line through; level 0 passes the filter and spends the budget before output drops it.
SANDBOX_TEST(RateLimit, ClockFailurePassesLevelZeroSpends) {
    WriteConf("/ZUK/conf/gid_of_pid.conf", "pid=424,pid_name=mon,gid=7\npid=425,pid_name=mon,gid=8\n");
    WriteConf(kProduct, "gid=7,num=0,interval=1\ngid=8,num=1,interval=1\n");
    DBG_Log(1, DBG_LOG_ERROR, "f", 1, 0, "init");  // loads the tables first
    logtest::FailClockReads(1);
    LogN(1, "a");
    EXPECT_EQ(Printed("a"), 1);
    EXPECT_EQ(kt::SyslogCount(
                  "Execute clock_gettime failed, errno is 22.Print limit can not take effect.[___ratelimit3].\n", 3),
              1);
    DBG_Log(425, 0, "f", 1, 0, "zero");
    DBG_Log(425, DBG_LOG_ERROR, "f", 1, 0, "b");
    EXPECT_EQ(Seen({"zero", "[b][mon]"}), "0,0");
}

SANDBOX_TEST(RateLimit, FilesLoadInOrderAndOnlyProductFilesSetDefault) {
    WriteConf(kProduct, "gid=7,num=10,interval=2\ngid=9,num=1,interval=1\n");
    WriteConf("/etc/nox/pid/log_a", "gid=7,num=20,interval=3,burst=5,resume=6\n");
    WriteConf("/etc/nox/pid/pid_b", "gid=9,num=99,interval=9\n");
    WriteConf("/etc/nox/pid/log", "gid=9,num=98,interval=9\n");
    WriteConf(kLocal, "gid=7,num=30,interval=4\ngid=11,num=5,interval=1\n");
    EXPECT_EQ(NumInterval(7), "30/4");
    EXPECT_EQ(NumInterval(9), "1/1") << "only files named log_* are read from the directory";
    EXPECT_EQ(KIRA_set_log_ratelimit(7, 2), 0);
    EXPECT_EQ(NumInterval(7), "40/4") << "scaling starts from the directory file's count";
    EXPECT_EQ(KIRA_set_log_ratelimit(11, 3), 0);
    EXPECT_EQ(NumInterval(11), "0/1") << "a group known only locally has no default count";
}

SANDBOX_TEST(RateLimit, MalformedLinesAreSkippedOneByOne) {
    const std::string longLine = "gid=12,num=1,interval=1" + std::string(300, '7') + "\n";
    WriteConf(kProduct,
              "gid=0,num=1,interval=1\ngid=7,num=10\n# gid=8,num=1,interval=1\n\n"
              "gid=4294967295,num=1,interval=1\ngid=6,num=1,interval=1,burst=2\n" +
                  longLine + "gid=7,num=10,interval=2\n");
    EXPECT_EQ(NumInterval(8), "-22");
    EXPECT_EQ(NumInterval(7), "10/2");
    const std::string head = "read_gid_conf: /ZUK/conf/gid_print_limit.conf read_gid_conf_line fail, (";
    // The 256-byte line buffer hands the long line over in two pieces.
    EXPECT_EQ(Seen({head + "gid=0,num=1,interval=1\n)\n", head + "gid=7,num=10\n)\n",
                    head + "gid=4294967295,num=1,interval=1\n)\n", head + "gid=6,num=1,interval=1,burst=2\n)\n",
                    head + std::string(68, '7') + "\n)\n", "<3>KIRA_get_log_num_interval: gid 8 is not exist\n"},
                   6),
              "1,1,1,1,1,1");
    EXPECT_EQ(kt::SyslogCount(head + "gid=8"), 0);
}

SANDBOX_TEST(RateLimit, ResetRestoresProductValuesButNotLocalOnes) {
    WriteConf("/ZUK/conf/gid_of_pid.conf", kModule424InGroup7);
    WriteConf(kProduct, "gid=7,num=3,interval=2\n");
    WriteConf(kLocal, "gid=7,num=50,interval=1\ngid=11,num=5,interval=1\n");
    EXPECT_EQ(NumInterval(7), "50/1");
    EXPECT_EQ(KIRA_set_log_num_interval(7, 1, 1), 0);
    LogN(3, "a");
    // Of the module files the reset re-reads the current one, not the obsolete one.
    WriteConf("/ZUK/conf/gid_of_pid.conf", "pid=426,pid_name=late,gid=7\n");
    WriteConf("/ZUK/conf/pid_obsolete.conf", "pid=427,pid_name=old,gid=7\n");
    EXPECT_EQ(KIRA_reset_log_ratelimit(), 0);
    EXPECT_EQ(std::string(DBG_GetPidName(426)) + DBG_GetPidName(427), "late<427>");
    EXPECT_EQ(kt::SyslogCount("<4>Reset log rate setting to the default values[KIRA_reset_log_ratelimit].\n", 6), 1);
    EXPECT_EQ(NumInterval(7), "3/2");
    EXPECT_EQ(NumInterval(11), "4294967295/1");
    LogN(4, "b");
    EXPECT_EQ(Printed("b"), 3) << "the reset opened a new period";
    EXPECT_EQ(kt::SyslogCount("mon: 1 callbacks suppressed[___ratelimit3].\n", 4), 2) << "and cleared the drops";
}

SANDBOX_TEST(RateLimit, ScalingChecksAndCapsOverflow) {
    WriteConf(kProduct,
              "gid=7,num=2147483648,interval=1\ngid=8,num=3,interval=1\n"
              "gid=3000000000,num=2147483648,interval=1\n");
    EXPECT_EQ(KIRA_set_log_ratelimit(7, 0), -22);
    EXPECT_EQ(KIRA_set_log_ratelimit(99, 2), -22);
    EXPECT_EQ(KIRA_set_log_ratelimit(7, 2), 0);
    EXPECT_EQ(NumInterval(7), "4294967295/1");
    EXPECT_EQ(KIRA_set_log_num_interval(8, 100, 1), 0);
    EXPECT_EQ(KIRA_set_log_ratelimit(0xFFFFFFFFu, 3), 0);
    EXPECT_EQ(NumInterval(8), "9/1") << "every group is scaled from its reloaded count";
    const std::string over = "<4>The number of logs of gid=";
    EXPECT_EQ(Seen({"<3>The input param multiple is zero[KIRA_set_log_ratelimit].\n",
                    "<3>KIRA_set_log_ratelimit: gid=99 is inval\n",
                    over + "7 after you have increased is more than 4294967295, it will only be set to 4294967295 "
                           "[KIRA_set_log_ratelimit].\n",
                    "<4>Set the number of logs to 3 times for every gid[KIRA_set_log_ratelimit].\n"},
                   6),
              "1,1,2,1");
    EXPECT_EQ(kt::SyslogCount(over + "-1294967296 after"), 1) << "signed when scaling all";
}

SANDBOX_TEST(RateLimit, DirectSetAndGetCheckTheGroup) {
    for (uint32_t bad : {0u, 0xFFFFFFFFu}) {
        EXPECT_EQ(KIRA_set_log_num_interval(bad, 1, 1), -22);
        EXPECT_EQ(NumInterval(bad), "-22");
    }
    EXPECT_EQ(Seen({"<3>KIRA_set_log_num_interval: gid is inval\n", "<3>KIRA_get_log_num_interval: gid is inval\n"}, 6),
              "2,2");
    EXPECT_EQ(KIRA_set_log_num_interval(5, 7, 0), 0);
    uint32_t interval = 9;
    EXPECT_EQ(KIRA_get_log_num_interval(5, nullptr, &interval), 0);  // either output may be left out
    EXPECT_EQ(interval, 0u);
    EXPECT_EQ(NumInterval(5), "7/0");
}

SANDBOX_TEST(RateLimit, SaveWritesAscendingLinesAndRenames) {
    umask(0);
    WriteConf(kProduct, "gid=9,num=4,interval=2,burst=1,resume=2\ngid=7,num=10,interval=2\n");
    EXPECT_EQ(KIRA_save_log_ratelimit(), -1) << "no local directory yet";
    kt::MakeDirs("/startup_disk/conf/conf_local");
    EXPECT_EQ(KIRA_save_log_ratelimit(), 0);
    EXPECT_EQ(kt::ReadFile(kLocal),
              "gid=7,num=10,interval=2,burst=0,resume=86400\n"
              "gid=9,num=4,interval=2,burst=1,resume=2\n");
    EXPECT_EQ(kt::ReadFile(std::string(kLocal) + ".new"), "");
    struct stat st;
    ASSERT_EQ(stat(kLocal, &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0777u);
    EXPECT_EQ(Seen({"KIRA_save_log_ratelimit: KIRA_open fail, -1.\n",
                    std::string("<6>mv -f ") + kLocal + ".new " + kLocal + " 2>/dev/kmsg\n"},
                   6),
              "1,1");
}

SANDBOX_TEST(RateLimit, ShortWriteStopsTheSave) {
    kt::MakeDirs("/startup_disk/conf/conf_local");
    ASSERT_EQ(mount("tmpfs", "/startup_disk/conf/conf_local", "tmpfs", 0, "size=4k"), 0);
    for (uint32_t gid = 1; gid <= 200; ++gid) ASSERT_EQ(KIRA_set_log_num_interval(gid, 4000000000u, 1), 0);
    const int32_t rc = KIRA_save_log_ratelimit();
    EXPECT_LT(rc, 4096);
    EXPECT_EQ(kt::SyslogCount("KIRA_save_log_ratelimit: KIRA_write fail, " + std::to_string(rc) + ".\n", 6), 1);
    EXPECT_EQ(kt::SyslogCount("<6>mv -f"), 0);
    EXPECT_EQ(kt::ReadFile(kLocal), "");
}
