// The stand-in for the kernel module's /proc/nox/ control files: handlers by
// path, ENOENT without one, and ordinary descriptors never mistaken for fake
// ones.

#include <errno.h>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "tests/support/sandbox.h"

namespace {

constexpr const char* kLevelFile = "/proc/nox/log_level";
constexpr unsigned long kSetLevel = 0x4004AB01;

class NoxFake : public ::testing::Test {
protected:
    void TearDown() override { kt::NoxReset(); }
};

TEST_F(NoxFake, NoHandlerMeansTheModuleIsAbsent) {
    errno = 0;
    EXPECT_EQ(open(kLevelFile, O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
    errno = 0;
    EXPECT_EQ(openat(AT_FDCWD, "/proc/nox/timezone", O_RDONLY), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(kt::NoxOpenCount(kLevelFile), 0);
}

TEST_F(NoxFake, IoctlReachesTheHandlerOfItsPath) {
    int seen_level = -1;
    unsigned long seen_request = 0;
    kt::NoxSetHandler(kLevelFile, [&](unsigned long request, void* arg) {
        seen_request = request;
        seen_level = *static_cast<int*>(arg);
        *static_cast<int*>(arg) = 99;
        return 7;
    });
    kt::NoxSetHandler("/proc/nox/timezone", [](unsigned long, void*) { return -5; });
    int fd = open(kLevelFile, O_RDWR | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    int tz = open("/proc/nox/timezone", O_RDWR);
    ASSERT_GE(tz, 0);
    int level = 4;
    EXPECT_EQ(ioctl(fd, kSetLevel, &level), 7);
    EXPECT_EQ(seen_request, kSetLevel);
    EXPECT_EQ(seen_level, 4);
    EXPECT_EQ(level, 99);
    EXPECT_EQ(ioctl(tz, kSetLevel, &level), -5);
    EXPECT_EQ(kt::NoxOpenCount(kLevelFile), 1);
    EXPECT_EQ(close(fd), 0);
    EXPECT_EQ(close(tz), 0);

    // A removed handler leaves open descriptors answering ENOTTY.
    fd = open(kLevelFile, O_RDWR);
    kt::NoxRemove(kLevelFile);
    errno = 0;
    EXPECT_EQ(ioctl(fd, kSetLevel, &level), -1);
    EXPECT_EQ(errno, ENOTTY);
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
    int real = open("/dev/null", O_RDONLY);
    ASSERT_EQ(real, fake);
    int n = 0;
    EXPECT_EQ(ioctl(real, FIONREAD, &n), -1);  // the kernel's answer for /dev/null
    close(real);

    fake = open(kLevelFile, O_RDWR);
    int other = open("/dev/null", O_RDONLY);
    ASSERT_EQ(dup2(other, fake), fake);
    EXPECT_EQ(ioctl(fake, FIONREAD, &n), -1);
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
                int fd = open(kLevelFile, O_RDWR);
                int real = open("/dev/null", O_RDONLY);
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
    int fd = open("/tmp/created", O_CREAT | O_WRONLY | O_CLOEXEC, 0640);
    ASSERT_GE(fd, 0);
    close(fd);
    int dir = open("/tmp", O_RDONLY | O_DIRECTORY);
    fd = openat(dir, "created_at", O_CREAT | O_WRONLY, 0604);
    ASSERT_GE(fd, 0);
    close(fd);
    close(dir);
    struct stat st;
    ASSERT_EQ(stat("/tmp/created", &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    ASSERT_EQ(stat("/tmp/created_at", &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0604u);
}

}  // namespace
