// Real child processes, unique names, fake commands on PATH and the fake
// /proc/nox/ control files.

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest-spi.h>

#include <atomic>
#include <set>
#include <thread>

#include "tests/support/sandbox.h"

namespace {

std::string Proc(pid_t pid, const char* what) { return kt::ReadFile("/proc/" + std::to_string(pid) + "/" + what); }

SANDBOX_TEST(Child, ExactNameCommandLineNativeProgramAndDescriptors) {
    const std::string name = kt::UniqueName("ktc");
    kt::Child c(name, {"any text here", "", "x\ty", "\xe4\xb8\xad"});
    ASSERT_GT(c.pid(), 0);
    static const char kCmdline[] = "any text here\0\0x\ty\0\xe4\xb8\xad";
    EXPECT_EQ(Proc(c.pid(), "cmdline"), std::string(kCmdline, sizeof kCmdline));
    EXPECT_EQ(Proc(c.pid(), "comm"), name + "\n");
    EXPECT_NE(Proc(c.pid(), "status").find("Name:\t" + name + "\n"), std::string::npos);
    // Watched processes must be native whatever the test's platform, and hold no descriptor of the test.
    char exe[4096] = {};
    ASSERT_GT(readlink(("/proc/" + std::to_string(c.pid()) + "/exe").c_str(), exe, sizeof exe - 1), 0);
    EXPECT_NE(strstr(exe, "kira_sleeper"), nullptr) << exe;
    DIR* d = opendir(("/proc/" + std::to_string(c.pid()) + "/fd").c_str());
    ASSERT_NE(d, nullptr);
    while (struct dirent* e = readdir(d)) EXPECT_TRUE(e->d_name[0] == '.' || atoi(e->d_name) <= 2) << e->d_name;
    closedir(d);

    // The kernel keeps 15 characters of the name; the command line is whole.
    kt::Child longer("a_rather_long_process_name", {});
    EXPECT_EQ(Proc(longer.pid(), "comm"), "a_rather_long_p\n");
    EXPECT_EQ(Proc(longer.pid(), "cmdline"), std::string("a_rather_long_process_name\0", 27));
    EXPECT_NONFATAL_FAILURE(kt::Child("a/b", {"x"}), "kernel name must be");
    EXPECT_NONFATAL_FAILURE(kt::Child("", {"x"}), "kernel name must be");
}

SANDBOX_TEST(Child, KillMoveAndDestructorReap) {
    auto gone = [](pid_t pid) { return Proc(pid, "cmdline").empty(); };
    kt::Child a(kt::UniqueName("ktk"), {"a"});
    const pid_t pid_a = a.pid();
    a.Kill();
    EXPECT_EQ(a.pid(), -1);
    EXPECT_TRUE(gone(pid_a));
    pid_t pid_b = -1;
    {
        kt::Child b(kt::UniqueName("ktk"), {"b"});
        kt::Child moved(std::move(b));
        EXPECT_EQ(b.pid(), -1);
        pid_b = moved.pid();
        EXPECT_FALSE(gone(pid_b));
    }
    EXPECT_TRUE(gone(pid_b));
    // The sleeper keeps default dispositions, so a plain SIGTERM ends it too.
    kt::Child c(kt::UniqueName("ktk"), {"c"});
    ASSERT_EQ(kill(c.pid(), SIGTERM), 0);
    for (int i = 0; i < 500 && Proc(c.pid(), "status").find("State:\tZ") == std::string::npos; ++i) usleep(2000);
    EXPECT_NE(Proc(c.pid(), "status").find("State:\tZ"), std::string::npos);
}

TEST(UniqueName, DistinctShortAndPrefixed) {
    std::set<std::string> seen;
    for (int i = 0; i < 2000; ++i) {
        const std::string n = kt::UniqueName("hb");
        ASSERT_EQ(n.compare(0, 3, "hb_"), 0) << n;
        EXPECT_GE(n.size(), 9u);
        EXPECT_EQ(n.find_first_not_of("hb_0123456789abcdefghijklmnopqrstuvwxyz"), std::string::npos) << n;
        seen.insert(n);
    }
    EXPECT_EQ(seen.size(), 2000u);
    EXPECT_LE(kt::UniqueName("123456").size(), 15u);  // a stem of 6 fits a kernel name
}

// Output, then "|" and the exit status.
std::string Sh(const std::string& cmd) {
    FILE* p = popen(cmd.c_str(), "r");
    std::string out;
    char buf[256];
    for (size_t n; p != nullptr && (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    const int status = p != nullptr ? pclose(p) : -1;
    return out + "|" + std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1);
}

using Calls = std::vector<std::vector<std::string>>;

SANDBOX_TEST(FakeCommand, RecordsArgumentsPrintsAndExits) {
    kt::FakeCommand hwclock("hwclock", 3, "it's \"quoted\" $HOME\n");
    kt::FakeCommand ifconfig("ifconfig");
    kt::FakeCommand script("/ZUK/script/os_get_ip6.sh", 1, "fe80::1");  // platform scripts run by absolute path
    EXPECT_EQ(Sh("hwclock --systohc 'two words' ''"), "it's \"quoted\" $HOME\n|3");
    Sh("hwclock");
    Sh("hwclock -s");
    EXPECT_EQ(Sh("ifconfig eth0 up"), "|0");
    EXPECT_EQ(Sh("/ZUK/script/os_get_ip6.sh eth1"), "fe80::1|1");
    EXPECT_EQ(hwclock.Calls(), (Calls{{"--systohc", "two words", ""}, {}, {"-s"}}));
    EXPECT_EQ(ifconfig.Calls(), (Calls{{"eth0", "up"}}));
    EXPECT_EQ(script.Calls(), (Calls{{"eth1"}}));
    // The fake directory goes first on PATH once, however many fakes.
    const std::string path = getenv("PATH");
    EXPECT_EQ(path.find(path.substr(0, path.find(':')), 1), std::string::npos) << path;
}

// Target programs run in cross builds too, where the kernel cannot start them by itself.
TEST(TargetCommand, RunsTargetPrograms) {
    EXPECT_EQ(Sh(kt::TargetCommand(KIRA_BINARY_DIR "/tests/harness_tests") +
                 " --gtest_filter=UniqueName.* --gtest_brief=1 >/dev/null; echo $?"),
              "0\n|0");
}

constexpr const char* kLevelFile = "/proc/nox/log_level";
constexpr unsigned long kSetLevel = 0x4004AB01;

class NoxFake : public ::testing::Test {
protected:
    void TearDown() override { kt::NoxReset(); }
};

// errno of a failed call; 0 when it succeeded.
int Err(int rc) { return rc == -1 ? errno : 0; }

TEST_F(NoxFake, HandlerByPathAndEnoentWithoutOne) {
    EXPECT_EQ(Err(open(kLevelFile, O_RDWR)), ENOENT);
    EXPECT_EQ(Err(openat(AT_FDCWD, "/proc/nox/timezone", O_RDONLY)), ENOENT);
    EXPECT_EQ(kt::NoxOpenCount(kLevelFile), 0);

    // The handler sees the request and the argument, and writes through it.
    kt::NoxSetHandler(kLevelFile, [](unsigned long request, void* arg) {
        const int level = *static_cast<int*>(arg);
        *static_cast<int*>(arg) = 99;
        return request == kSetLevel ? level + 10 : -1;
    });
    kt::NoxSetHandler("/proc/nox/timezone", [](unsigned long, void*) { return -5; });
    int fd = open(kLevelFile, O_RDWR | O_CLOEXEC);
    const int tz = open("/proc/nox/timezone", O_RDWR);
    ASSERT_GE(fd, 0);
    ASSERT_GE(tz, 0);
    int level = 4;
    EXPECT_EQ(ioctl(fd, kSetLevel, &level), 14);
    EXPECT_EQ(level, 99);
    EXPECT_EQ(ioctl(tz, kSetLevel, &level), -5);
    EXPECT_EQ(kt::NoxOpenCount(kLevelFile), 1);
    EXPECT_EQ(close(fd) + close(tz), 0);

    // A removed handler leaves open descriptors answering ENOTTY.
    fd = open(kLevelFile, O_RDWR);
    kt::NoxRemove(kLevelFile);
    EXPECT_EQ(Err(ioctl(fd, kSetLevel, &level)), ENOTTY);
    close(fd);
    EXPECT_EQ(kt::NoxOpenCount(kLevelFile), 2);
    kt::NoxReset();
    EXPECT_EQ(kt::NoxOpenCount(kLevelFile), 0);
}

// A fake descriptor's number reused behind the fake's back (closed by a raw
// system call, or replaced by dup2) must reach the kernel again.
TEST_F(NoxFake, ReusedDescriptorNumbersAreNotFake) {
    int calls = 0;
    kt::NoxSetHandler(kLevelFile, [&](unsigned long, void*) { return ++calls; });
    int fake = open(kLevelFile, O_RDWR);
    ASSERT_GE(fake, 0);
    syscall(SYS_close, fake);
    const int real = open("/dev/null", O_RDONLY);
    ASSERT_EQ(real, fake);
    int n = 0;
    EXPECT_EQ(Err(ioctl(real, FIONREAD, &n)), ENOTTY);  // the kernel's answer for /dev/null
    close(real);
    fake = open(kLevelFile, O_RDWR);
    const int other = open("/dev/null", O_RDONLY);
    ASSERT_EQ(dup2(other, fake), fake);
    EXPECT_EQ(Err(ioctl(fake, FIONREAD, &n)), ENOTTY);
    EXPECT_EQ(calls, 0);
    close(fake);
    close(other);
}

TEST_F(NoxFake, ConcurrentUseKeepsExactCounts) {
    std::atomic<int> calls{0};
    kt::NoxSetHandler(kLevelFile, [&](unsigned long, void*) { return ++calls; });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 200; ++i) {
                const int fd = open(kLevelFile, O_RDWR);
                const int real = open("/dev/null", O_RDONLY);
                if (fd >= 0) ioctl(fd, kSetLevel, nullptr);
                close(real);
                close(fd);
            }
        });
    }
    for (std::thread& th : threads) th.join();
    EXPECT_EQ(calls.load(), 800);
    EXPECT_EQ(kt::NoxOpenCount(kLevelFile), 800);
}

// Ordinary opens pass their mode through untouched.
SANDBOX_TEST(NoxFakeSandboxed, OrdinaryOpenKeepsItsMode) {
    umask(0);
    const int dir = open("/tmp", O_RDONLY | O_DIRECTORY);
    close(open("/tmp/created", O_CREAT | O_WRONLY | O_CLOEXEC, 0640));
    close(openat(dir, "created_at", O_CREAT | O_WRONLY, 0604));
    close(dir);
    struct stat st;
    ASSERT_EQ(stat("/tmp/created", &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    ASSERT_EQ(stat("/tmp/created_at", &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0604u);
}

}  // namespace
