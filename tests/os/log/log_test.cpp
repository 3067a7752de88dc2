// The logging layer end to end: syslog lines, the shared default-level block, configuration files as
// designed, damaged or hostile, the set-up under injected failures, the limiter, control calls, threads.

#include <malloc.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

#include <atomic>
#include <regex>
#include <thread>

#include "os/log/log_internal.h"
#include "tests/support/fake_log_level.h"
#include "tests/support/fault_inject.h"
#include "tests/support/sandbox.h"

// The limiter's periods last months: CLOCK_MONOTONIC of this thread only can be frozen and moved on.
static thread_local int64_t t_frozenAt = -1;
extern "C" int clock_gettime(clockid_t clock, struct timespec* ts) {
    const int rc = static_cast<int>(syscall(SYS_clock_gettime, clock, ts));
    if (rc == 0 && clock == CLOCK_MONOTONIC && t_frozenAt >= 0) {
        *ts = {static_cast<time_t>(t_frozenAt), 0};
    }
    return rc;
}

namespace {

const char kBlock[] = "/dev/shm/dbglog.cfg", kProduct[] = "/ZUK/conf/gid_print_limit.conf",
           kModules[] = "/ZUK/conf/gid_of_pid.conf";
const std::string kLocal = "/startup_disk/conf/conf_local/gid_log_ratelimit.conf";
const std::string kLevels = "/startup_disk/conf/conf_local/pid_log_level.conf";

std::string Block(uint32_t magic, uint8_t level, char fill, size_t size = 16) {
    const std::string head(reinterpret_cast<const char*>(&magic), 4);
    return (head + static_cast<char>(level) + std::string(11, fill)).substr(0, size);
}

// How many captured lines hold each needle (at that priority, unless -1), as "n,n,...".
std::string Seen(int priority, std::initializer_list<std::string> needles) {
    std::string out;
    for (const std::string& n : needles) {
        out += (out.empty() ? "" : ",") + std::to_string(kt::SyslogCount(n, priority));
    }
    return out;
}

// Every captured message of that priority, in order.
std::string Logged(int priority) {
    std::string out;
    for (const auto& l : kt::SyslogLines()) {
        out += l.priority == priority ? l.message : "";
    }
    return out;
}

// Lines printed so far with this tag, after logging n more for the module.
int LogN(uint32_t pid, int n, const std::string& tag) {
    for (int i = 0; i < n; ++i) {
        DBG_Log(pid, DBG_LOG_ERROR, "f", 1, 0, "%s", tag.c_str());
    }
    return kt::SyslogCount("[" + tag + "][");
}

// "name:group:level" of each module's record, "-" for none; "num/interval" of each group, or the error.
std::string Tables(std::initializer_list<uint32_t> pids, std::initializer_list<uint32_t> gids = {}) {
    std::string out;
    for (uint32_t pid : pids) {
        const DBG_PID_CONF_S* c = search_pid_conf(pid);
        const uint32_t gid = c && c->group ? c->group->gid : 0;
        out += c ? c->pid_name + (":" + std::to_string(gid)) + ":" + std::to_string(c->level) + " " : "- ";
    }
    for (uint32_t gid : gids) {
        uint32_t num = 0, interval = 0;
        const int32_t rc = KIRA_get_log_num_interval(gid, &num, &interval);
        out += (rc != 0 ? std::to_string(rc) : std::to_string(num) + "/" + std::to_string(interval)) + " ";
    }
    return out;
}

}  // namespace

// A module's own level, held by the kernel side, decides; without one the shared default does.
SANDBOX_TEST(LogOutput, LineFormatCutsAndLevels) {
    kt::FakeLogLevel kernel;
    kernel.SetLevel(426, 1);
    kt::WriteFile(kModules, "pid=424,pid_name=monitor,gid=3\n");
    kt::WriteFile(kBlock, Block(DBG_CFG_MAGIC, DBG_LOG_DEBUG, 0));
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    DBG_Log(424, DBG_LOG_ERROR, "f", 7, 0, "x");
    // Monotonic seconds padded to five, then six digits of microseconds.
    const std::string x = Logged(3);
    EXPECT_TRUE(std::regex_match(x, std::regex(R"(\[[ \d]{4}\d+\.\d{6}\]\[1500001a80000\]\[ERR\]\[x\].*\n)"))) << x;
    EXPECT_LE(std::abs(std::stol(x.substr(1)) - now.tv_sec), 2) << x;
    // The identity is worked out once: a forked child still prints the parent's process id.
    KIRA_log(424, DBG_LOG_ERROR, "f", 7, 0, "y%d", 5);
    kt::RunInChild([] { KIRA_log(424, DBG_LOG_ERROR, "g", 1, 0, "z"); });
    // Level 4 goes out as LOG_NOTICE, levels outside 1..5 not at all; messages are cut at 159 characters, function
    // names of 33 or more to 29, "..", the last; the line id takes 16 bits of the module and of the code.
    for (int level = -1; level <= 6; ++level) {
        DBG_Log(425, level, "f", 1, 0, "lv%d", level);
    }
    DBG_Log(426, DBG_LOG_ERROR, "f", 1, 0, "quiet");
    const std::string a32(32, 'a'), id = "[os_log_tests]\n", pid = "[os_log_tests," + std::to_string(getpid()) + "]\n";
    DBG_Log(0x123401A8u, DBG_LOG_ERROR, a32.c_str(), 1, 0xABCD0005u, "%s", std::string(200, 'm').c_str());
    DBG_Log(424, DBG_LOG_ERROR, (std::string(32, 'b') + "Z").c_str(), 2, 0, "short");
    std::string got, lv = "[<425>][f,1]" + id;
    for (auto& l : kt::SyslogLines()) {
        got += std::to_string(l.priority) + l.message.substr(l.message.find("][") + 1);
    }
    EXPECT_EQ(got, "3[1500001a80000][ERR][x][monitor][f,7]" + id + "3[1500001a80000][ERR][y5][monitor][f,7]" + pid +
                       "3[1500001a80000][ERR][z][monitor][g,1]" + pid + "0[1500001a90000][CRI][lv1]" + lv +
                       "3[1500001a90000][ERR][lv2]" + lv + "4[1500001a90000][WARN][lv3]" + lv +
                       "5[1500001a90000][INFO][lv4]" + lv + "7[1500001a90000][DBG][lv5]" + lv +
                       "3[1500001a80005][ERR][" + std::string(159, 'm') + "][<305398184>][" + a32 + ",1]" + id +
                       "3[1500001a80000][ERR][short][monitor][" + std::string(29, 'b') + "..Z,2]" + id);
    for (int level = 0; level <= 6; ++level) {
        lv += std::string(",") + DBG_GetLevelName(level);
    }
    EXPECT_EQ(lv.substr(lv.find(",D")), ",Default,CRI,ERR,WARN,INFO,DBG,Default");
}

// The root group repairs a bad magic (bytes 8..15 are someone else's), rebuilds a block cut short ("> file"
// used to end the process with SIGBUS), and reads another process's change from the file within seconds.
SANDBOX_TEST(SharedBlock, RootGroupRepairsRebuildsAndFollows) {
    kt::WriteFile(kBlock, Block(0x12345678u, 2, '\xAA'));
    DBG_Log(424, DBG_LOG_DEBUG, "f", 1, 0, "dbg-dropped");
    DBG_Log(424, DBG_LOG_INFO, "f", 1, 0, "info-kept");
    EXPECT_EQ(kt::ReadFile(kBlock).substr(0, 16), Block(DBG_CFG_MAGIC, 4, '\xAA').replace(5, 3, 3, '\0'));
    EXPECT_EQ(DBG_SetPidLevel(424, 5) + DBG_SetDefLogLevel(6) + DBG_SetDefLogLevel(0), -1);
    EXPECT_EQ(DBG_SetDefLogLevel(5), 1);
    DBG_Log(424, DBG_LOG_DEBUG, "f", 1, 0, "dbg-kept");
    ASSERT_EQ(truncate(kBlock, 0), 0);
    DBG_Log(424, DBG_LOG_INFO, "f", 1, 0, "cut");
    EXPECT_EQ(DBG_SetDefLogLevel(2), 1);
    EXPECT_EQ(kt::ReadFile(kBlock), Block(DBG_CFG_MAGIC, 2, 0));
    kt::WriteFile(kBlock, Block(DBG_CFG_MAGIC, DBG_LOG_DEBUG, 0));
    for (int i = 0; i < 300 && kt::SyslogCount("[later]") == 0; ++i) {
        usleep(10000);
        DBG_Log(424, DBG_LOG_DEBUG, "f", 1, 0, "later");
    }
    EXPECT_EQ(Seen(-1, {"dbg-dropped", "info-kept", "dbg-kept", "[cut]", "[later]"}), "0,1,1,1,1");
    EXPECT_EQ(Logged(6),
              "open /proc/nox/log_level fail\nDBG_SetLogLevel error,v_iLogLevel (6) gid (0).\n"
              "DBG_SetLogLevel error,v_iLogLevel (0) gid (0).\n");
}

// A block missing, not a plain file of its own, or too short is neither waited for nor written through, and
// logging goes on at level 4; other groups use a whole block as found. Set-up is once per process: a child each.
SANDBOX_TEST(SharedBlock, OnlyAPlainFileOfItsOwnIsUsed) {
    int (*const plants[])() = {
        [] { return 0; },  // only the root group creates the block
        [] { return mkfifo(kBlock, 0666); },
        [] { return mkdir(kBlock, 0777); },
        [] { return symlink("/tmp/victim", kBlock); },
        [] { return symlink("/tmp/absent", kBlock); },
        [] { return link("/dev/shm/victim", kBlock); },
        [] { return kt::WriteFile(kBlock, Block(DBG_CFG_MAGIC, 5, 0, 5), 0666), 0; },
        [] { return kt::WriteFile(kBlock, Block(0x12345678u, 5, 0), 0666), 0; },
    };
    for (int i = 1; i < 16; ++i) {
        const int gid = i < 8 ? 0 : 1234, plant = i % 8;
        if (gid == 0 && plant > 5) {
            continue;
        }
        SCOPED_TRACE("gid " + std::to_string(gid) + ", plant " + std::to_string(plant));
        kt::SyslogClear();
        kt::RunInChild([gid, plant, &plants] {
            kt::WriteFile("/tmp/victim", "precious", 0666);
            kt::WriteFile("/dev/shm/victim", "precious", 0666);
            ASSERT_EQ(plants[plant]() + setgid(gid), 0);
            DBG_Log(424, DBG_LOG_INFO, "f", 1, 0, "info");
            DBG_Log(424, DBG_LOG_DEBUG, "f", 1, 0, "debug");
            EXPECT_EQ(DBG_SetDefLogLevel(3), 0);
            const std::string stars = std::string(32, ' ') + std::string(62, '*') + "\n";
            const std::string banner =
                stars + std::string(32, ' ') +
                "Can not open print level config file, log will not write/read to log file,gid=" + std::to_string(gid) +
                "\n" + stars;
            const std::string refusal =
                gid == 0 ? "Log Cfg file not opened.\n" : "DBG_SetLogLevel error,v_iLogLevel (3) gid (1234).\n";
            EXPECT_EQ(Seen(-1, {"[info]", "[debug]"}) + Logged(6) + (DBG_GetLogConfig() ? "mapped" : ""),
                      plant == 7 ? "1,1open /proc/nox/log_level fail\n" + refusal + "mapped"
                                 : "1,0" + (plant == 6 ? "" : banner) + refusal);
            EXPECT_EQ(kt::ReadFile("/tmp/victim") + kt::ReadFile("/dev/shm/victim"), "preciousprecious");
        });
        (void)remove(kBlock);
        (void)remove("/dev/shm/victim");
    }
}

// The first file to name a module fixes the name, a later line moves it; only the product's files set the
// count scaling starts from. FIFOs or links to an endless device used to hang every process that logs; long
// lines are read in 255-byte pieces, carriage returns vanish, and a file is read up to 100000 lines.
SANDBOX_TEST(ConfigFiles, LoadedAsDesigned) {
    kt::WriteFile(kProduct,
                  "gid=0,num=1,interval=1\ngid=13,num=10\n# gid=5,num=1,interval=1\n\n"
                  "gid=4294967295,num=1,interval=1\ngid=6,num=1,interval=1,burst=2\ngid=7,num=10,interval=2\n"
                  "gid=9,num=1,interval=1,burst=2,resume=3\n");
    kt::WriteFile("/etc/nox/pid/log_a", "gid=7,num=20,interval=3,burst=5,resume=6\npid=18,pid_name=notmine,gid=3\n");
    kt::WriteFile(kLocal, "gid=7,num=30,interval=4\ngid=11,num=5,interval=1\n");
    kt::WriteFile("/ZUK/conf/pid_obsolete.conf",
                  "pid=424 pid_name=old gid=3\n" + std::string(100000, '\n') + "pid=90,pid_name=late\n");
    kt::WriteFile(kModules,
                  "pid=424,pid_name=new,gid=4\npid=10,pid_name=comma,gid=3\npid=11 pid_name=blank gid=3\n"
                  "pid=12,pid_name=nogroup,gid=0\npid=13,pid_name=nogid\npid=14,gid=4\npid=0,gid=4\n"
                  "#pid=16,gid=3\npid=5,pid_name=five,gid=3\npid=7\r9,pid_name=cr,gid=3\npid=15,pid_name=" +
                      std::string(40, 'n') + ",gid=3\n" + std::string(255, 'x') + "pid=77,gid=3\n");
    kt::WriteFile("/etc/nox/pid/pid_b", "pid=17,pid_name=dir,gid=3\ngid=9,num=99,interval=9\n");
    for (const char* f : {"/etc/nox/pid/pid_fifo", "/etc/nox/pid/log_fifo"}) {
        ASSERT_EQ(mkfifo(f, 0666), 0);
    }
    ASSERT_EQ(symlink("/dev/zero", "/etc/nox/pid/pid_zero") + symlink("/dev/zero", "/etc/nox/pid/log_zero"), 0);
    kt::WriteFile(kLevels, "pid=5,level=261\npid=7 level=3\npid=8\n");  // only known modules keep a level
    // A group first met in a module line starts unlimited; a name cut at 31 comes without its group.
    EXPECT_EQ(KIRA_save_log_ratelimit(), 0);
    EXPECT_EQ(kt::ReadFile(kLocal),
              "gid=3,num=4294967295,interval=1,burst=0,resume=0\ngid=4,num=4294967295,interval=1,burst=0,resume=0\n"
              "gid=7,num=30,interval=4,burst=0,resume=86400\ngid=9,num=1,interval=1,burst=2,resume=3\n"
              "gid=11,num=5,interval=1,burst=0,resume=86400\n");
    EXPECT_EQ(Tables({424, 10, 11, 12, 13, 14, 15, 16, 17, 18, 5, 7, 8, 79, 77, 90}),
              "old:4:0 comma:3:0 blank:3:0 - nogid:0:0 :4:0 " + std::string(31, 'n') +
                  ":0:0 - dir:3:0 - five:3:5 :0:0 - cr:3:0 :3:0 - ");
    // A module added twice is refused without keeping the copy.
    DBG_PID_CONF_S rec = {};
    rec.pid = 424;
    const long before = static_cast<long>(mallinfo2().uordblks);
    for (int i = 0; i < 1000; ++i) {
        ASSERT_EQ(add_pid_conf(&rec), -22);
    }
    EXPECT_LT(static_cast<long>(mallinfo2().uordblks) - before, 8000);
    EXPECT_EQ(KIRA_set_log_ratelimit(7, 2) + KIRA_set_log_ratelimit(11, 3), 0);
    EXPECT_EQ(Tables({}, {7, 11}), "40/4 0/1 ") << "a group known only locally has no default";
    EXPECT_EQ(
        Seen(6, {"read_gid_conf: /ZUK/conf/gid_print_limit.conf read_gid_conf_line fail, (gid=0,num=1,interval=1\n)\n",
                 "read_log_level_conf: " + kLevels + " read_pid_conf_line fail, (pid=8\n)\n",
                 "(pid=12 pid_name=nogroup gid=0\n)\n", "(" + std::string(255, 'x') + ")\n",
                 "read_pid_conf: /ZUK/conf/pid_obsolete.conf has more than 100000 lines, the rest is ignored\n",
                 "read_gid_conf_line fail", "read_pid_conf_line fail"}),
        "1,1,1,1,1,5,5");
}

// The set-up with one call failing ends, keeps no descriptor but the mapped block's, and logging goes on. It
// runs once per process and keeps its tables, descriptor and mapping, so each step needs a fresh process.
SANDBOX_TEST(ConfigFiles, SetUpUnderInjectedFailures) {
    kt::WriteFile(kProduct, "gid=3,num=5,interval=1\n");
    kt::WriteFile(kModules, "pid=424,pid_name=monitor,gid=3\n");
    kt::WriteFile("/etc/nox/pid/pid_a", "pid=425,pid_name=other,gid=3\n");
    kt::WriteFile("/etc/nox/pid/log_a", "gid=4,num=5,interval=1\n");
    kt::WriteFile(kLevels, "pid=424,level=4\n");
    for (kt::Fault kind : {kt::Fault::kOpen, kt::Fault::kRead, kt::Fault::kMmap, kt::Fault::kDir, kt::Fault::kAlloc}) {
        for (int n = 1; n < 400 && unlink("/tmp/walked") != 0; ++n) {
            kt::SyslogClear();
            ASSERT_TRUE(kt::RunInChild([kind, n] {
                syslog(LOG_DEBUG, "the log socket is not the set-up's");
                const int fds = kt::OpenFdCount();
                kt::FaultArm({kind, n});
                KIRA_DebugModuleInit();
                if (!kt::FaultDisarm()) {
                    kt::WriteFile("/tmp/walked", "");
                    return;
                }
                EXPECT_EQ(kt::OpenFdCount(), fds + (DBG_GetLogConfig() != nullptr));
                EXPECT_EQ(kt::SyslogCount("gid tree error"), kt::SyslogCount("read_gid_conf_line fail"));
                EXPECT_EQ(LogN(424, 1, "after"), 1);
            })) << kt::FaultName(kind)
                << " call " << n;
        }
    }
}

SANDBOX_TEST(RateLimit, PeriodsDropsAndReports) {
    kt::WriteFile(kModules, "pid=424,pid_name=mon,gid=7\npid=425,pid_name=free,gid=8\npid=426,pid_name=none,gid=9\n");
    kt::WriteFile(kProduct, "gid=7,num=3,interval=2\ngid=8,num=0,interval=0\ngid=9,num=0,interval=1\n");
    t_frozenAt = 1000;
    constexpr int64_t kUnit = 21600000;  // seconds of one period unit
    EXPECT_EQ(LogN(424, 5, "a"), 3);
    EXPECT_EQ(LogN(425, 3, "b"), 3) << "no interval, no limit";
    EXPECT_EQ(LogN(426, 3, "c"), 0) << "a count of 0 drops everything";
    // A report at the first drop, then at most once per unit (the report restarts it), still in the period.
    t_frozenAt += kUnit - 1;
    LogN(426, 1, "c");
    t_frozenAt += 1;
    LogN(426, 2, "c");
    // The line after the period ends reports the period and passes; the next period starts with it counted.
    t_frozenAt += kUnit + 1;
    EXPECT_EQ(LogN(424, 4, "d"), 3);
    EXPECT_EQ(
        Seen(4, {"mon: 1 callbacks suppressed[___ratelimit3].\n", "none: 1 callbacks suppressed[___ratelimit3].\n",
                 "none: 4 callbacks", "none: 5 callbacks suppressed[___ratelimit3].\n", "none: 6 callbacks",
                 "mon: 2 callbacks suppressed in 2 days[___ratelimit3].\n", "callbacks suppressed"}),
        "2,1,0,1,0,1,5");
}

// Direct set and get; scaling from the reloaded product values, overflow capped; a reset to the product's
// values and module file; kernel-side levels; saving both tables in key order.
SANDBOX_TEST(RateLimit, ControlCalls) {
    umask(0);
    kt::FakeLogLevel kernel;
    kt::WriteFile(kModules, "pid=424,pid_name=mon,gid=7\n");
    kt::WriteFile(kProduct, "gid=7,num=3,interval=2\ngid=3000000000,num=2147483648,interval=1\n");
    kt::WriteFile(kLocal, "gid=7,num=50,interval=1\ngid=11,num=5,interval=1\n");
    EXPECT_EQ(KIRA_set_log_num_interval(7, 1, 1), 0);
    EXPECT_EQ(Tables({424}, {7}), "mon:7:0 1/1 ");
    EXPECT_EQ(KIRA_set_log_ratelimit(7, 0) + KIRA_set_log_ratelimit(99, 2) + KIRA_set_log_ratelimit(3000000000u, 2),
              -44);
    EXPECT_EQ(LogN(424, 3, "a"), 1);
    // Of the module files the reset re-reads the current one, not the obsolete one; it opens a new period.
    kt::WriteFile(kModules, "pid=426,pid_name=late,gid=7\n");
    kt::WriteFile("/ZUK/conf/pid_obsolete.conf", "pid=427,pid_name=old,gid=7\n");
    EXPECT_EQ(KIRA_reset_log_ratelimit(), 0);
    EXPECT_EQ(Tables({426, 427}, {7, 11}), "late:7:0 - 3/2 4294967295/1 ");
    EXPECT_EQ(LogN(424, 4, "b"), 3);
    EXPECT_EQ(KIRA_set_log_num_interval(7, 100, 1), 0);
    EXPECT_EQ(KIRA_set_log_ratelimit(0xFFFFFFFFu, 3) + KIRA_set_log_num_interval(0, 1, 1), -22);
    uint32_t interval = 9;  // either output of the getter may be left out
    EXPECT_EQ(KIRA_set_log_num_interval(5, 7, 0) + KIRA_get_log_num_interval(7, nullptr, &interval), 0);
    EXPECT_EQ(std::to_string(interval) + " " + Tables({}, {7, 0xFFFFFFFFu, 6}), "2 9/2 -22 -22 ");
    kernel.SetLevel(424, 3);
    EXPECT_EQ(DBG_SetPidLevel(40, 5) + KIRA_save_log_level(), 0);
    kt::FakePidLevel all[4] = {};
    EXPECT_EQ(LogN(424, 1, "c") + DBG_GetPidLevel(40) * 10 + KIRA_get_num_of_pid() * 100 + DBG_GetAllPidLevel(all, 4),
              251u);
    EXPECT_TRUE(all[0].pid == 40 && all[0].level == 5 && kernel.LastCapacity() == 4 &&
                kernel.Calls(kt::FakeLogLevel::kSave) == 1);
    EXPECT_EQ(KIRA_save_log_ratelimit() + save_pid_log_level(), 0);
    EXPECT_EQ(kt::ReadFile(kLocal) + kt::ReadFile(kLevels),
              "gid=5,num=7,interval=0,burst=0,resume=0\ngid=7,num=9,interval=2,burst=0,resume=86400\ngid=11,num="
              "4294967295,interval=1,burst=0,resume=86400\ngid=3000000000,num=4294967295,interval=1,burst=0,resume="
              "86400\npid=40,level=5\npid=424,level=3\npid=426,level=0\n");
    struct stat st;
    EXPECT_TRUE(stat((kLocal + ".new").c_str(), &st) != 0 && stat(kLocal.c_str(), &st) == 0 && st.st_mode == 0100777 &&
                stat(kBlock, &st) == 0 && st.st_mode == 0100664);  // the block is for every process to read
    EXPECT_EQ(
        Seen(6, {"<3>The input param multiple is zero[KIRA_set_log_ratelimit].\n",
                 "<4>The number of logs of gid=3000000000 after you have increased is more than 4294967295, it will "
                 "only be set to 4294967295 [KIRA_set_log_ratelimit].\n",
                 "<4>Reset log rate setting to the default values[KIRA_reset_log_ratelimit].\n",
                 "<4>Set the number of logs to 3 times for every gid[KIRA_set_log_ratelimit].\n",
                 "<3>KIRA_set_log_ratelimit: gid=99 is inval\n", "<3>KIRA_set_log_num_interval: gid is inval\n",
                 "<3>KIRA_get_log_num_interval: gid is inval\n", "gid=-1294967296 after", "gid 6 is not exist\n",
                 "<6>mv -f " + kLocal + ".new " + kLocal + " 2>/dev/kmsg\n"}),
        "1,1,2,1,1,1,1,1,1,1");
    EXPECT_EQ(kt::SyslogCount("mon: 1 callbacks suppressed[___ratelimit3].\n", 4), 2) << "the reset cleared the drops";
}

// Threads logging while the tables are reset, scaled, saved, renamed and grown (for ThreadSanitizer): each
// line is printed or counted as dropped. Group 1 is shared, 2 is one module's, 3 lets nothing through.
SANDBOX_TEST(LogConcurrency, PrintedPlusDroppedEqualsLogged) {
    kt::FakeLogLevel kernel;
    kt::WriteFile(kModules,
                  "pid=100,pid_name=a,gid=1\npid=101,pid_name=b,gid=1\npid=200,pid_name=c,gid=2\n"
                  "pid=300,pid_name=d\npid=400,gid=3\n");
    kt::WriteFile(kProduct, "gid=1,num=5,interval=1\ngid=2,num=25,interval=1\ngid=3,num=0,interval=1\n");
    kt::MakeDirs("/startup_disk/conf/conf_local");
    EXPECT_EQ(DBG_SetPidLevel(100, 4), 0);  // the first call of the process sets up by itself
    std::atomic<bool> stop{false};
    std::thread controller([&stop] {
        for (unsigned r = 0; !stop.load(); ++r) {
            DBG_SetPidName(100, r % 2 ? "a" : "a-longer-name");
            DBG_SetPidName(1000 + r, "new");  // rebalances the module tree under the loggers' lookups
            EXPECT_EQ(1, KIRA_reset_log_ratelimit() + KIRA_set_log_ratelimit(1, 2) + KIRA_set_log_ratelimit(~0u, 3) +
                             KIRA_save_log_ratelimit() + save_pid_log_level() + DBG_SetPidLevel(100, 4 + r % 2) +
                             DBG_SetDefLogLevel(4 + r % 2) + KIRA_set_log_num_interval(2, 20 + r % 5, 1))
                << "round " << r;
        }
    });
    std::thread loggers[4];
    for (int t = 0; t < 4; ++t) {
        loggers[t] = std::thread([t] {
            const uint32_t modules[] = {100, 101, 200, 300, 400};
            for (int i = 0; i < 300; ++i) {
                (i % 2 ? KIRA_log : DBG_Log)(modules[(t + i) % 5], 2, "f", i, 0, "conc");
            }
        });
    }
    for (auto& th : loggers) {
        th.join();
    }
    stop.store(true);
    controller.join();
    EXPECT_GT(kira_log::RateLimitedLines(), 0u);
    EXPECT_EQ(kt::SyslogCount("[conc][") + kira_log::RateLimitedLines(), 1200u);
}
