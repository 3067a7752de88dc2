// Module table and levels: module files, the local level file, names, the
// kernel side's requests and saving the cached levels.

#include "os/log/dbg_log.h"
#include "tests/os/log/log_test_util.h"
#include "tests/support/fake_log_level.h"
#include "tests/support/sandbox.h"

using logtest::WriteConf;

namespace {

const char kLevelFile[] = "/startup_disk/conf/conf_local/pid_log_level.conf";

// Saves the table and returns the saved text.
std::string SavedLevels() {
    kt::MakeDirs("/startup_disk/conf/conf_local");
    EXPECT_EQ(save_pid_log_level(), 0);
    return kt::ReadFile(kLevelFile);
}

// The group a module landed in, seen through the line the limiter allows:
// the group's count is set to zero, so only a grouped module is dropped.
bool DroppedByGroup(uint32_t pid, uint32_t gid) {
    EXPECT_EQ(KIRA_set_log_num_interval(gid, 0, 1), 0);
    const std::string tag = "probe" + std::to_string(pid);
    DBG_Log(pid, DBG_LOG_ERROR, "f", 1, 0, "%s", tag.c_str());
    return kt::SyslogCount("[" + tag + "]") == 0;
}

}  // namespace

SANDBOX_TEST(ModuleTable, LinesAcceptedAndRejectedAsDesigned) {
    WriteConf("/ZUK/conf/pid_obsolete.conf", "pid=424 pid_name=old gid=3\n");
    WriteConf("/ZUK/conf/gid_of_pid.conf",
              "pid=424,pid_name=new,gid=4\n"  // name stays "old", group moves to 4
              "pid=10,pid_name=comma,gid=3\n"
              "pid=11 pid_name=blank gid=3\n"
              "pid=12,pid_name=nogroup,gid=0\n"
              "pid=13,pid_name=nogid\n"
              "pid=14,gid=5\n"
              "pid=0,gid=5\n"
              "pid=15,pid_name=" +
                  std::string(40, 'n') +
                  ",gid=3\n"
                  "#pid=16,gid=3\n");
    WriteConf("/etc/nox/pid/pid_extra", "pid=17,pid_name=dir,gid=3\n");
    WriteConf("/etc/nox/pid/log_extra", "pid=18,pid_name=notmine,gid=3\n");
    // A cut name (15) is kept without its group.
    const std::pair<uint32_t, std::string> names[] = {{424, "old"}, {10, "comma"}, {11, "blank"},
                                                      {12, "<12>"}, {13, "nogid"}, {15, std::string(31, 'n')},
                                                      {17, "dir"},  {18, "<18>"}};
    for (const auto& n : names) EXPECT_STREQ(DBG_GetPidName(n.first), n.second.c_str()) << n.first;
    const std::string head = "read_pid_conf: /ZUK/conf/gid_of_pid.conf read_pid_conf_line fail, (";
    EXPECT_EQ(kt::SyslogCount(head + "pid=12 pid_name=nogroup gid=0\n)\n", 6), 1) << "logged after the comma rule";
    EXPECT_EQ(kt::SyslogCount(head + "pid=0 gid=5\n)\n", 6), 1);
    EXPECT_EQ(kt::SyslogCount("read_pid_conf_line fail"), 2);
    uint32_t num = 0, interval = 0;  // a group first met in a module line starts unlimited
    EXPECT_EQ(KIRA_get_log_num_interval(5, &num, &interval), 0);
    EXPECT_EQ(std::make_pair(num, interval), std::make_pair(0xFFFFFFFFu, 1u));
    EXPECT_EQ(std::vector<bool>({DroppedByGroup(424, 4), DroppedByGroup(14, 5), DroppedByGroup(13, 3),
                                 DroppedByGroup(15, 3), DroppedByGroup(10, 3)}),
              std::vector<bool>({true, true, false, false, true}));
}

SANDBOX_TEST(ModuleTable, LevelFileKeepsLevelsOfKnownModulesOnly) {
    WriteConf("/ZUK/conf/gid_of_pid.conf", "pid=5,pid_name=five,gid=3\n");
    kt::MakeDirs("/etc/nox/pid");
    WriteConf(kLevelFile, "pid=5,level=261\npid=7 level=3\npid=8\n");
    EXPECT_EQ(SavedLevels(), "pid=5,level=5\npid=7,level=0\n");
    EXPECT_STREQ(DBG_GetPidName(7), "<7>");
    EXPECT_EQ(
        kt::SyslogCount("read_log_level_conf: " + std::string(kLevelFile) + " read_pid_conf_line fail, (pid=8\n)\n", 6),
        1);
}

SANDBOX_TEST(ModuleTable, NamesAreChecked) {
    DBG_SetPidName(0, "x");
    DBG_SetPidName(30, "");
    DBG_SetPidName(30, nullptr);
    DBG_SetPidName(30, std::string(32, 'a').c_str());
    EXPECT_EQ(logtest::Seen({"DBG_SetPidName: pid is inval\n", "DBG_SetPidName: pid_name is inval\n"}, 6), "1,3");
    EXPECT_STREQ(DBG_GetPidName(30), "<30>");
    DBG_SetPidName(30, std::string(31, 'a').c_str());
    EXPECT_STREQ(DBG_GetPidName(30), std::string(31, 'a').c_str());
    DBG_SetPidName(30, "b");
    EXPECT_STREQ(DBG_GetPidName(30), "b");
    DBG_Log(30, DBG_LOG_ERROR, "f", 1, 0, "hello");
    EXPECT_EQ(kt::SyslogCount("[hello][b][f,1]"), 1);
}

SANDBOX_TEST(ModuleTable, RequestsReachTheKernelSide) {
    kt::FakeLogLevel kernel;
    kernel.SetLevel(1, 2);
    EXPECT_EQ(DBG_SetPidLevel(40, 5), 0);
    EXPECT_EQ(kernel.Level(40), 5);
    EXPECT_EQ(DBG_GetPidLevel(40), 5u);
    EXPECT_EQ(DBG_GetPidLevel(1), 2u);
    EXPECT_EQ(KIRA_get_num_of_pid(), 2u);
    kt::FakePidLevel all[4] = {};
    EXPECT_EQ(DBG_GetAllPidLevel(all, 4), 0);
    EXPECT_EQ(kernel.LastCapacity(), 4u);
    EXPECT_EQ(all[1].pid, 40u);
    EXPECT_EQ(all[1].level, 5);
    EXPECT_EQ(DBG_GetAllPidLevel(nullptr, 4), -1);
    EXPECT_EQ(kt::SyslogCount("<3>param array is NULL\n", 6), 1);
    EXPECT_EQ(KIRA_save_log_level(), 0);
    EXPECT_EQ(kernel.Calls(kt::FakeLogLevel::kSave), 1);
    EXPECT_EQ(kt::NoxOpenCount("/proc/nox/log_level"), 3) << "counting and listing open their own descriptor";
    DBG_Log(41, DBG_LOG_ERROR, "f", 1, 0, "caches level");
    EXPECT_EQ(SavedLevels(), "pid=40,level=5\n") << "an unknown module that logs gets no record";

    using F = kt::FakeLogLevel;
    for (unsigned long r : {F::kSetLevel, F::kGetNum, F::kGetAll, F::kSave}) kernel.Fail(r);
    EXPECT_EQ(DBG_SetPidLevel(40, 1), -1);
    EXPECT_EQ(KIRA_get_num_of_pid(), 0u);
    EXPECT_EQ(DBG_GetAllPidLevel(all, 4), -1);
    EXPECT_EQ(KIRA_save_log_level(), -1);
    EXPECT_EQ(logtest::Seen({"execute ioctl set log level fail\n", "execute ioctl get pid num fail\n",
                             "execute ioctl get all pid log level fail\n", "execute ioctl get log level fail\n"},
                            6),
              "1,1,1,1");
}

// Without the configuration directory the level file is not even read.
SANDBOX_TEST(ModuleTable, RequestsWithoutKernelSide) {
    WriteConf(kLevelFile, "pid=7,level=3\n");
    EXPECT_EQ(DBG_SetPidLevel(40, 5), -1);
    EXPECT_EQ(KIRA_save_log_level(), -1);
    EXPECT_EQ(KIRA_get_num_of_pid(), 0u);
    kt::FakePidLevel all[1];
    EXPECT_EQ(DBG_GetAllPidLevel(all, 1), -1);
    EXPECT_EQ(kt::SyslogCount("open /proc/nox/log_level fail\n", 6), 3);
    EXPECT_EQ(SavedLevels(), "");
}

SANDBOX_TEST(ModuleTable, SaveWritesCachedLevelsInOrder) {
    kt::FakeLogLevel kernel;
    kernel.SetLevel(9, 3);
    WriteConf("/ZUK/conf/gid_of_pid.conf", "pid=9,pid_name=nine\npid=3,pid_name=three\n");
    DBG_Log(9, DBG_LOG_ERROR, "f", 1, 0, "x");
    EXPECT_EQ(SavedLevels(), "pid=3,level=0\npid=9,level=3\n");
    EXPECT_EQ(kt::SyslogCount(std::string("<6>mv -f ") + kLevelFile + ".new " + kLevelFile + " 2>/dev/kmsg\n", 6), 1);
}
