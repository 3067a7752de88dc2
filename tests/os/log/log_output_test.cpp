// Line format, level filter and the shared default-level block, checked on
// the lines that really reach syslog.

#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "os/log/dbg_log.h"
#include "tests/os/log/log_test_util.h"
#include "tests/support/fake_log_level.h"
#include "tests/support/sandbox.h"

using logtest::Lines;
using logtest::Seen;

SANDBOX_TEST(LogOutput, LineFormatPriorityAndIdentity) {
    logtest::WriteConf("/ZUK/conf/gid_of_pid.conf", "pid=424,pid_name=monitor,gid=3\n");
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    DBG_Log(424, DBG_LOG_ERROR, "f", 7, 0, "x");
    KIRA_log(424, DBG_LOG_ERROR, "f", 7, 0, "y%d", 5);
    DBG_Log(425, DBG_LOG_ERROR, "f", 1, 0, "unnamed");
    auto lines = Lines("[monitor]");
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].priority, 3);
    // "[sssss.uuuuuu]": seconds of the monotonic clock padded to five or more, six digits of microseconds.
    const std::string& m = lines[0].message;
    const size_t dot = m.find('.'), close = m.find(']');
    ASSERT_TRUE(m[0] == '[' && dot >= 6 && close == dot + 7) << m;
    EXPECT_EQ(m.find_first_not_of(" 0123456789", 1), dot) << m;
    EXPECT_EQ(m.find_first_not_of("0123456789", dot + 1), close) << m;
    EXPECT_LE(std::abs(std::stol(m.substr(1)) - now.tv_sec), 2) << m;
    EXPECT_EQ(m.substr(close + 1), "[1500001a80000][ERR][x][monitor][f,7][" + logtest::ProcessName() + "]\n");
    const std::string tail = "[y5][monitor][f,7][" + logtest::ProcessName() + "," + std::to_string(getpid()) + "]\n";
    EXPECT_NE(lines[1].message.find(tail), std::string::npos) << lines[1].message;
    EXPECT_EQ(Seen({"[unnamed][<425>][f,1]"}), "1");

    // The identity is worked out once: a forked child still prints the parent's process id.
    pid_t child = fork();
    if (child == 0) {
        KIRA_log(9, DBG_LOG_ERROR, "g", 1, 0, "from child");
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    EXPECT_EQ(Seen({"[from child][<9>][g,1][" + logtest::ProcessName() + "," + std::to_string(getpid()) + "]"}), "1");
}

SANDBOX_TEST(LogOutput, LevelsMapToNamesAndPriorities) {
    logtest::WriteSharedBlock(DBG_CFG_MAGIC, DBG_LOG_DEBUG, 0);
    const char* names[] = {"", "CRI", "ERR", "WARN", "INFO", "DBG"};
    const int priorities[] = {-1, 0, 3, 4, 5, 7};
    for (int level = -1; level <= 6; ++level) DBG_Log(424, level, "f", 1, 0, "lv%d", level);
    for (int level = 1; level <= 5; ++level) {
        auto l = Lines("[lv" + std::to_string(level) + "]");
        ASSERT_EQ(l.size(), 1u) << level;
        EXPECT_EQ(l[0].priority, priorities[level]);
        EXPECT_NE(l[0].message.find(std::string("][") + names[level] + "][lv"), std::string::npos);
    }
    EXPECT_EQ(Seen({"[lv-1]", "[lv0]", "[lv6]"}), "0,0,0");
    EXPECT_STREQ(DBG_GetLevelName(0), "Default");
    EXPECT_STREQ(DBG_GetLevelName(6), "Default");
    EXPECT_STREQ(DBG_GetLevelName(3), "WARN");
}

SANDBOX_TEST(LogOutput, CutsMessageAndFunctionNameAndBuildsLineId) {
    const std::string func32(32, 'a');
    DBG_Log(0x123401A8u, DBG_LOG_ERROR, func32.c_str(), 1, 0xABCD0005u, "%s", std::string(200, 'm').c_str());
    DBG_Log(424, DBG_LOG_ERROR, (std::string(32, 'b') + "Z").c_str(), 2, 0, "short");
    auto cut = Lines("[" + std::string(159, 'm') + "]");
    ASSERT_EQ(cut.size(), 1u);
    EXPECT_NE(cut[0].message.find("][1500001a80005][ERR]"), std::string::npos) << cut[0].message;
    EXPECT_NE(cut[0].message.find("[" + func32 + ",1]"), std::string::npos);
    EXPECT_EQ(Seen({"[short][<424>][" + std::string(29, 'b') + "..Z,2]"}), "1");
    char buf[33];
    EXPECT_EQ(DBG_GetTruncFuncName(func32.c_str(), buf, 33), func32.c_str());
    EXPECT_STREQ(DBG_GetTruncFuncName("abcdefgh", buf, 8), "abcd..h");
}

// Without the kernel side the shared default decides, and only levels 1..5 may become the default.
SANDBOX_TEST(LogOutput, LevelFilterWithoutKernelSide) {
    umask(0);
    DBG_Log(424, DBG_LOG_DEBUG, "f", 1, 0, "dbg-dropped");
    DBG_Log(424, DBG_LOG_INFO, "f", 1, 0, "info-kept");
    EXPECT_EQ(DBG_SetPidLevel(424, 5), -1);
    EXPECT_EQ(DBG_GetPidLevel(424), 4u);
    EXPECT_EQ(DBG_SetDefLogLevel(5), 1);
    DBG_Log(424, DBG_LOG_DEBUG, "f", 1, 0, "dbg-kept");
    EXPECT_EQ(Seen({"dbg-dropped", "info-kept", "dbg-kept"}), "0,1,1");
    EXPECT_EQ(DBG_SetDefLogLevel(6), 0);
    EXPECT_EQ(DBG_SetDefLogLevel(0), 0);
    EXPECT_EQ(Seen({"open /proc/nox/log_level fail\n", "DBG_SetLogLevel error,v_iLogLevel (6) gid (0).\n",
                    "DBG_SetLogLevel error,v_iLogLevel (0) gid (0).\n"},
                   6),
              "1,1,1");
    EXPECT_EQ(DBG_SetDefLogLevel(2), 1);
    EXPECT_EQ(kt::ReadFile("/dev/shm/dbglog.cfg")[4], 2);
    struct stat st;
    ASSERT_EQ(stat("/dev/shm/dbglog.cfg", &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0664u) << "created by the root group for every process to read";
}

// With the kernel side the module's own level decides; an unknown module (level 0) falls back to the default.
SANDBOX_TEST(LogOutput, LevelFilterWithKernelSide) {
    kt::FakeLogLevel kernel;
    kernel.SetLevel(424, 5);
    kernel.SetLevel(426, 1);
    DBG_Log(424, DBG_LOG_DEBUG, "f", 1, 0, "mod-dbg");
    DBG_Log(425, DBG_LOG_DEBUG, "f", 1, 0, "unknown-dbg");
    DBG_Log(425, DBG_LOG_INFO, "f", 1, 0, "unknown-info");
    DBG_Log(426, DBG_LOG_ERROR, "f", 1, 0, "quiet-err");
    EXPECT_EQ(Seen({"mod-dbg", "unknown-dbg", "unknown-info", "quiet-err"}), "1,0,1,0");
    EXPECT_EQ(kt::SyslogCount("open /proc/nox/log_level fail"), 0);
    kernel.Fail(kt::FakeLogLevel::kGetLevel);
    DBG_Log(424, DBG_LOG_DEBUG, "f", 1, 0, "after-failure");
    EXPECT_EQ(Seen({"after-failure"}), "0");
    EXPECT_EQ(kt::SyslogCount("execute ioctl get log level fail\n", 6), 1);
}

// Bytes 8..15 belong to someone else and survive the repair of a bad magic.
SANDBOX_TEST(LogOutput, RootGroupRepairsSharedBlock) {
    logtest::WriteSharedBlock(0x12345678u, 2, 0xAA);
    EXPECT_EQ(DBG_GetLogConfig(), nullptr);
    DBG_Log(424, DBG_LOG_INFO, "f", 1, 0, "info");
    ASSERT_NE(DBG_GetLogConfig(), nullptr);
    const std::string block = kt::ReadFile("/dev/shm/dbglog.cfg");
    const unsigned char expect[16] = {0x01, 0xC0, 0xAB, 0x78, 4,    0,    0,    0,
                                      0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA, 0xAA};
    EXPECT_EQ(block.substr(0, 16), std::string(reinterpret_cast<const char*>(expect), 16));
    EXPECT_EQ(Seen({"[info]"}), "1");
}

SANDBOX_TEST(LogOutput, OtherGroupUsesBlockAsFound) {
    logtest::WriteSharedBlock(0x12345678u, 5, 0);
    ASSERT_EQ(setgid(1234), 0);
    DBG_Log(424, DBG_LOG_DEBUG, "f", 1, 0, "dbg");
    EXPECT_EQ(Seen({"[dbg]"}), "1");
    EXPECT_EQ(kt::ReadFile("/dev/shm/dbglog.cfg")[4], 5);
    EXPECT_EQ(DBG_SetDefLogLevel(3), 0);
    EXPECT_EQ(kt::SyslogCount("DBG_SetLogLevel error,v_iLogLevel (3) gid (1234).\n", 6), 1);
}
