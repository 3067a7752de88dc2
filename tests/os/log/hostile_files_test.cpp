// The logging set-up facing files planted by other users or left behind by a
// careless administrator: a shared block that shrinks, is a FIFO or a link;
// configuration files that are FIFOs, devices, endless or too long. Each body
// runs under a short limit: a hang is the fault being looked for.

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "os/log/dbg_log.h"
#include "tests/os/log/log_test_util.h"
#include "tests/support/fake_log_level.h"
#include "tests/support/fault_inject.h"
#include "tests/support/sandbox.h"

using logtest::Seen;

namespace {

const char kBlock[] = "/dev/shm/dbglog.cfg";

// The block missing, or planted as something other than a file of its own:
// set-up must neither hang on it nor write through it, skips the control
// file, and logging goes on at level 4.
void CheckRefusedBlock(int gid) {
    kt::FakeLogLevel kernel;
    kernel.SetLevel(424, 5);
    if (gid != 0) {
        ASSERT_EQ(setgid(gid), 0);
    }
    DBG_Log(424, DBG_LOG_INFO, "f", 1, 0, "info");
    DBG_Log(424, DBG_LOG_DEBUG, "f", 1, 0, "debug");
    EXPECT_EQ(DBG_GetLogConfig(), nullptr);
    EXPECT_EQ(Seen({"[info]", "[debug]"}), "1,0");
    EXPECT_EQ(kt::SyslogCount(logtest::Banner(gid), 6), 1);
    EXPECT_EQ(kt::NoxOpenCount("/proc/nox/log_level"), 0);
    EXPECT_EQ(DBG_SetDefLogLevel(3), 0);
    EXPECT_EQ(kt::SyslogCount(gid == 0 ? "Log Cfg file not opened.\n"
                                       : "DBG_SetLogLevel error,v_iLogLevel (3) gid (" + std::to_string(gid) + ").\n",
                              6),
              1);
    EXPECT_EQ(kt::ReadFile("/tmp/victim") + kt::ReadFile("/dev/shm/victim"), "preciousprecious");
}

}  // namespace

SANDBOX_TEST(HostileLogFiles, SharedBlockMissingOrNotAFileOfItsOwn) {
    using Plant = void (*)();
    const Plant plants[] = {
        [] {},  // nothing: only the root group creates the block
        [] { ASSERT_EQ(mkfifo(kBlock, 0666), 0); },
        [] { ASSERT_EQ(mkdir(kBlock, 0777), 0); },
        [] { ASSERT_EQ(symlink("/tmp/victim", kBlock), 0); },
        [] { ASSERT_EQ(symlink("/tmp/absent", kBlock), 0); },
        [] { ASSERT_EQ(link("/dev/shm/victim", kBlock), 0); },
    };
    for (int gid : {0, 1234}) {
        for (size_t i = gid == 0 ? 1 : 0; i < sizeof(plants) / sizeof(plants[0]); ++i) {
            SCOPED_TRACE("gid " + std::to_string(gid) + ", plant " + std::to_string(i));
            (void)remove(kBlock);
            (void)remove("/dev/shm/victim");
            kt::SyslogClear();
            kt::RunInChild([gid, plant = plants[i]] {
                kt::WriteFile("/tmp/victim", "precious", 0666);
                kt::WriteFile("/dev/shm/victim", "precious", 0666);
                plant();
                CheckRefusedBlock(gid);
            });
        }
    }
}

// "> /dev/shm/dbglog.cfg" between two lines used to end the process with
// SIGBUS at its next line.
SANDBOX_TEST(HostileLogFiles, SharedBlockShrunkAfterMapping) {
    DBG_Log(424, DBG_LOG_INFO, "f", 1, 0, "before");
    ASSERT_EQ(truncate(kBlock, 0), 0);
    DBG_Log(424, DBG_LOG_INFO, "f", 1, 0, "after");
    EXPECT_EQ(DBG_SetDefLogLevel(5), 1);
    DBG_Log(424, DBG_LOG_DEBUG, "f", 1, 0, "debug");
    EXPECT_EQ(Seen({"[before]", "[after]", "[debug]"}), "1,1,1");
    // The setter rebuilt the block it found cut short.
    const std::string block = kt::ReadFile(kBlock);
    ASSERT_GE(block.size(), 16u);
    EXPECT_EQ(block.substr(0, 8), std::string("\x01\xC0\xAB\x78\x05\0\0\0", 8));
}

// A process outside the root group only reads: a block too short to hold a
// level is not mapped, and one cut short later reads as absent.
SANDBOX_TEST(HostileLogFiles, ShortBlockForOtherGroups) {
    kt::WriteFile(kBlock, std::string("\x01\xC0\xAB\x78\x05", 5), 0666);
    ASSERT_EQ(setgid(1234), 0);
    DBG_Log(424, DBG_LOG_DEBUG, "f", 1, 0, "debug");
    EXPECT_EQ(DBG_GetLogConfig(), nullptr);
    EXPECT_EQ(Seen({"[debug]"}), "0");
}

// Another process's change of the default level reaches this one within a
// second or two, read from the file rather than through the mapping.
SANDBOX_TEST(HostileLogFiles, DefaultLevelChangedElsewhereIsSeen) {
    DBG_Log(424, DBG_LOG_DEBUG, "f", 1, 0, "debug");
    logtest::WriteSharedBlock(DBG_CFG_MAGIC, DBG_LOG_DEBUG, 0);
    int seen = 0;
    for (int i = 0; i < 300 && seen == 0; ++i) {
        usleep(10000);
        DBG_Log(424, DBG_LOG_DEBUG, "f", 1, 0, "later");
        seen = kt::SyslogCount("[later]");
    }
    EXPECT_EQ(Seen({"[debug]"}), "0");
    EXPECT_GE(seen, 1);
}

// A FIFO or a link to an endless device among the configuration files used
// to hang the set-up of every process that logs.
TEST(HostileLogFiles, ConfigurationFilesThatAreNotPlainFiles) {
    kt::RunSandboxed([] {
        kt::MakeDirs("/etc/nox/pid");
        kt::MakeDirs("/ZUK/conf");
        for (const char* fifo : {"/etc/nox/pid/pid_fifo", "/etc/nox/pid/log_fifo", "/ZUK/conf/gid_of_pid.conf"}) {
            ASSERT_EQ(mkfifo(fifo, 0666), 0);
        }
        ASSERT_EQ(symlink("/dev/zero", "/etc/nox/pid/pid_zero"), 0);
        ASSERT_EQ(symlink("/dev/zero", "/etc/nox/pid/log_zero"), 0);
        logtest::WriteConf("/etc/nox/pid/pid_good", "pid=77,pid_name=good,gid=3\n");
        DBG_Log(77, DBG_LOG_ERROR, "f", 1, 0, "x");
        EXPECT_EQ(Seen({"[x][good]"}), "1");
    });
}

// A line longer than the 256-byte buffer is read in pieces, carriage returns
// vanish, and a file stops being read after 100000 lines.
SANDBOX_TEST(HostileLogFiles, LongLinesCarriageReturnsAndLineCap) {
    logtest::WriteConf("/ZUK/conf/gid_of_pid.conf",
                       std::string(255, 'x') + "pid=77,gid=3\npid=7\r9,pid_name=cr,gid=3\n");
    std::string many;
    for (int i = 0; i < 100000; ++i) many += "#\n";
    logtest::WriteConf("/ZUK/conf/pid_obsolete.conf", many + "pid=90,pid_name=late,gid=3\n");
    EXPECT_STREQ(DBG_GetPidName(79), "cr");
    EXPECT_STREQ(DBG_GetPidName(77), "<77>");
    EXPECT_STREQ(DBG_GetPidName(90), "<90>");
    EXPECT_EQ(
        Seen({"read_pid_conf: /ZUK/conf/gid_of_pid.conf read_pid_conf_line fail, (" + std::string(255, 'x') + ")\n",
              "read_pid_conf: /ZUK/conf/pid_obsolete.conf has more than 100000 lines, the rest is ignored\n"},
             6),
        "1,1");
}

// The set-up with its 1st, 2nd, ... open, read, mapping, directory call or
// allocation failing (each in a fresh process, as the set-up runs once): it
// ends, keeps no descriptor but the block's and the control file's, and
// logging goes on.
SANDBOX_TEST(HostileLogFiles, SetUpUnderInjectedFailures) {
    const kt::Fault kinds[] = {kt::Fault::kOpen, kt::Fault::kRead, kt::Fault::kMmap, kt::Fault::kDir,
                               kt::Fault::kAlloc};
    logtest::WriteConf("/ZUK/conf/gid_print_limit.conf", "gid=3,num=5,interval=1\n");
    logtest::WriteConf("/ZUK/conf/gid_of_pid.conf", "pid=424,pid_name=monitor,gid=3\n");
    logtest::WriteConf("/etc/nox/pid/pid_a", "pid=425,pid_name=other,gid=3\n");
    logtest::WriteConf("/etc/nox/pid/log_a", "gid=4,num=5,interval=1\n");
    logtest::WriteConf("/startup_disk/conf/conf_local/pid_log_level.conf", "pid=424,level=4\n");
    const char kEnd[] = "/tmp/walked-to-the-end";
    for (kt::Fault kind : kinds) {
        for (int n = 1; n < 200 && access(kEnd, F_OK) != 0; ++n) {
            SCOPED_TRACE(std::string(kt::FaultName(kind)) + " call " + std::to_string(n) + " fails");
            unlink(kBlock);
            kt::SyslogClear();
            const bool passed = kt::RunInChild([kind, n, kEnd] {
                syslog(LOG_DEBUG, "the log socket is not the set-up's");
                const int fds = kt::OpenFdCount();
                kt::FaultArm({kind, n});
                KIRA_DebugModuleInit();
                if (!kt::FaultDisarm()) {
                    kt::WriteFile(kEnd, "");
                    return;
                }
                EXPECT_LE(kt::OpenFdCount(), fds + 1) << "the block's descriptor at most";
                DBG_Log(424, DBG_LOG_ERROR, "f", 1, 0, "after");
                EXPECT_EQ(Seen({"[after]"}), "1");
            });
            if (!passed) return;
        }
        unlink(kEnd);
    }
}
