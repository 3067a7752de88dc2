// Record locks against ranges held by another process.

#include <errno.h>
#include <sys/wait.h>

#include "os/base/kira_file.h"
#include "tests/os/base/base_test_util.h"

static_assert(sizeof(KIRA_LOCK_S) == 24 && offsetof(KIRA_LOCK_S, start) == 8 && offsetof(KIRA_LOCK_S, len) == 16,
              "lockMode, start, len: 64 bits each, in this order");

namespace {

void Release(pid_t pid) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}

// A child process holding a lock of `type` on [0, 10) until Release();
// -1 when it could not get the lock.
pid_t HoldLock(const std::string& path, short type) {
    int ready[2];
    if (pipe(ready) != 0) return -1;
    fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        struct flock fl = {};
        fl.l_type = type;
        fl.l_len = 10;
        char ok = fcntl(open(path.c_str(), O_RDWR), F_SETLK, &fl) == 0 ? 'y' : 'n';
        (void)!write(ready[1], &ok, 1);
        pause();
        _exit(0);
    }
    close(ready[1]);
    char ok = 'n';
    (void)!read(ready[0], &ok, 1);
    close(ready[0]);
    if (ok == 'y') return pid;
    Release(pid);
    return -1;
}

int LockNow(int fd, uint64_t mode, int64_t start, int64_t len) {
    KIRA_LOCK_S lock = {mode, start, len};
    return KIRA_LockFile(fd, &lock);
}

}  // namespace

// Sandboxed for the time limit: a request that waits by mistake would hang.
SANDBOX_TEST(KiraLock, ModesAgainstAnotherProcess) {
    TempDir dir;
    std::string path = dir / "f";
    base_test::WriteAll(path, "0123456789abcdefghij");
    int fd = open(path.c_str(), O_RDWR);
    pid_t writer = HoldLock(path, F_WRLCK);
    ASSERT_GT(writer, 0);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(LockNow(fd, 3, 5, 10), -1);
    EXPECT_EQ(LockNow(fd, 2, 9, 1), -1);
    EXPECT_LT(SecondsSince(start), 1.0) << "a no-wait mode waited";
    // Ranges count from the start of the file, whatever the file offset.
    lseek(fd, 15, SEEK_SET);
    EXPECT_EQ(LockNow(fd, 3, 0, 5), -1);
    EXPECT_EQ(LockNow(fd, 3, 10, 5), 0);

    // Mode 1 waits for the holder.
    std::atomic<int> result{99};
    std::thread waiter([&] { result = LockNow(fd, 1, 0, 10); });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(result.load(), 99) << "mode 1 did not wait";
    Release(writer);  // also what bounds the wait
    waiter.join();
    EXPECT_EQ(result.load(), 0);
    EXPECT_EQ(HoldLock(path, F_WRLCK), -1) << "our lock did not hold";
    KIRA_LOCK_S lock = {1, 0, 10};
    EXPECT_EQ(KIRA_UnLockFile(fd, &lock), 0);

    // Against a reader: 0, 2 and any other mode are shared (an exclusive
    // waiting request would hang here), 3 is exclusive.
    pid_t reader = HoldLock(path, F_RDLCK);
    ASSERT_GT(reader, 0) << "unlock did not release";
    for (uint64_t mode : {2, 0, 7}) EXPECT_EQ(LockNow(fd, mode, 0, 10), 0) << mode;
    EXPECT_EQ(LockNow(fd, 3, 0, 10), -1);
    Release(reader);
    close(fd);
}

SANDBOX_TEST(KiraLock, OnlyMinusOneAndNullAreRefused) {
    kt::SyslogClear();
    KIRA_LOCK_S lock = {0, 0, 0};
    EXPECT_EQ(KIRA_LockFile(3, nullptr), -1);
    EXPECT_EQ(KIRA_UnLockFile(5, nullptr), -1);
    EXPECT_EQ(kt::SyslogCount("Input param error, vfd = (3), vlock= ((nil)).\n", 6), 1);
    EXPECT_EQ(kt::SyslogCount("Input param error, vfd = (5), vlock= ((nil)).\n", 6), 1);
    EXPECT_EQ(KIRA_LockFile(-1, &lock), -1);
    EXPECT_EQ(kt::SyslogCount("Input param error, vfd = (-1), vlock= (0x", 6), 1);
    errno = 0;
    EXPECT_EQ(KIRA_LockFile(-2, &lock), -1);  // reaches the system
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(kt::SyslogCount("Input param error", 6), 3);
}
