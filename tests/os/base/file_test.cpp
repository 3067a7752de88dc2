// Line reader, file copy, path length check, sleeping and threads.

#include <semaphore.h>
#include <sys/mount.h>

#include "os/base/kira_file.h"
#include "tests/os/base/base_test_util.h"

namespace {

// Read end of a pipe pre-filled with `data`.
int PipeWith(const std::string& data) {
    int fds[2];
    if (pipe(fds) != 0) return -1;
    (void)!write(fds[1], data.data(), data.size());
    close(fds[1]);
    return fds[0];
}

std::string Rest(int fd) {
    std::string out;
    char c;
    while (read(fd, &c, 1) == 1) out.push_back(c);
    close(fd);
    return out;
}

}  // namespace

TEST(KiraReadline, CarriageReturnsPiecesAndEndOfFile) {
    struct Case {
        const char* in;
        int size;
        const char* pieces;
    };
    // CRs take no room in a piece and do not count as characters.
    for (const Case& c : {Case{"ab\r\ncd", 16, "ab\n|cd|"}, Case{"abcdefgh\nxy\n", 4, "abc|def|gh\n|xy\n|"},
                          Case{"a\r\rbc\r\n", 3, "ab|c\n|"}, Case{"\r\r", 8, ""}, Case{"\r\n", 8, "\n|"}}) {
        int fd = PipeWith(c.in);
        char buf[64];
        std::string out;
        while (KIRA_readline(fd, buf, c.size) == buf) out += std::string(buf) + "|";
        EXPECT_EQ(out, c.pieces) << c.in;
        close(fd);
    }
    // Nothing past the newline is consumed: the descriptor may be shared.
    int fd = PipeWith("one\ntwo\nrest");
    char buf[32];
    ASSERT_EQ(KIRA_readline(fd, buf, sizeof buf), buf);
    EXPECT_EQ(Rest(fd), "two\nrest");

    fd = PipeWith("xyz\n");
    buf[0] = '#';
    EXPECT_EQ(KIRA_readline(fd, buf, 1), nullptr);
    EXPECT_EQ(buf[0], '\0');
    EXPECT_EQ(KIRA_readline(fd, buf, 0), nullptr);
    EXPECT_EQ(KIRA_readline(fd, nullptr, 4), nullptr);
    EXPECT_EQ(Rest(fd), "xyz\n");
}

TEST(KiraCopy, CopiesIntoPrivateTruncatedDestination) {
    TempDir dir;
    std::string src = dir / "src", dst = dir / "dst";  // dst reused: the longer copy gets truncated
    for (size_t size : {0, 44, 128, 256, 300}) {
        std::string data(size, 'x');
        for (size_t i = 0; i < size; i++) data[i] = static_cast<char>('a' + i % 26);
        base_test::WriteAll(src, data);
        ASSERT_EQ(KIRA_copy(src.c_str(), dst.c_str()), 0) << size;
        EXPECT_EQ(Rest(open(dst.c_str(), O_RDONLY)), data) << size;
    }
    struct stat st;
    ASSERT_EQ(stat(dst.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

// A FIFO opened read-write never reports end of file, so the 128-byte blocks
// show: the copy ends after the first block the write did not fill, and only
// then (a copy waiting for end of file would hang until the sandbox limit).
SANDBOX_TEST(KiraCopy, StopsAfterFirstShortBlockOnly) {
    TempDir dir;
    std::string fifo = dir / "fifo", dst = dir / "dst";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    int keep = open(fifo.c_str(), O_RDWR);
    ASSERT_EQ(write(keep, std::string(192, 'x').data(), 192), 192);  // 128 + 64
    ASSERT_EQ(KIRA_copy(fifo.c_str(), dst.c_str()), 0);
    EXPECT_EQ(FileSize(dst), 192);

    ASSERT_EQ(write(keep, std::string(128, 'y').data(), 128), 128);
    std::atomic<int> result{99};
    std::thread copier([&] { result = KIRA_copy(fifo.c_str(), dst.c_str()); });
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    EXPECT_EQ(result.load(), 99) << "copy ended on a full block";
    ASSERT_EQ(write(keep, "0123456789", 10), 10);
    copier.join();
    EXPECT_EQ(result.load(), 0);
    EXPECT_EQ(FileSize(dst), 138);
    close(keep);
}

SANDBOX_TEST(KiraCopy, FailuresAreLoggedAndReleaseDescriptors) {
    TempDir dir;
    std::string src = dir / "src", ro = dir / "ro", badDst = dir / "missing/out", memOut = dir / "mem";
    auto count = [](const std::string& text) { return kt::SyslogCount(text, 6); };
    kt::WriteFile(src, "payload");
    kt::WriteFile(ro, "read only");
    ASSERT_EQ(mount(ro.c_str(), ro.c_str(), nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, ro.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);

    kt::SyslogClear();
    // A source that can only be read is refused, though reading would do.
    EXPECT_EQ(KIRA_copy(ro.c_str(), (dir / "out").c_str()), -1);
    EXPECT_EQ(count("Open source file (" + ro + ") error,return.\n"), 1);
    EXPECT_EQ(FileSize(dir / "out"), -1);
    int fds = base_test::OpenFdCount();  // syslog's own socket is open by now

    EXPECT_EQ(KIRA_copy(src.c_str(), badDst.c_str()), -1);
    EXPECT_EQ(count("Open dest file (" + badDst + ") error,return.\n"), 1);
    EXPECT_EQ(KIRA_copy(nullptr, badDst.c_str()), -1);
    EXPECT_EQ(KIRA_copy(src.c_str(), nullptr), -1);
    EXPECT_EQ(count("Input para null.\n"), 2);
    EXPECT_EQ(KIRA_copy(src.c_str(), "/dev/full"), -1);
    EXPECT_EQ(count("Copy write data from file (" + src + ") to (/dev/full) Fail, (28).\n"), 1);
    EXPECT_EQ(KIRA_copy("/proc/self/mem", memOut.c_str()), -1);  // page 0 is never mapped: EIO
    EXPECT_EQ(count("Copy read data from file (/proc/self/mem) to (" + memOut + ") Fail, (5).\n"), 1);
    EXPECT_EQ(base_test::OpenFdCount(), fds);
    umount2(ro.c_str(), MNT_DETACH);
}

SANDBOX_TEST(KiraNameCheck, LimitsOfBasenameAndDirname) {
    kt::SyslogClear();
    const std::string base255(255, 'n'), dir4096 = "/" + std::string(4095, 'd');
    // POSIX semantics: trailing slashes are not part of the basename (the
    // GNU basename would see an empty one and accept).
    const std::pair<std::string, int> cases[] = {{"/tmp/" + base255, 0}, {"/tmp/" + base255 + "n", -1},
                                                 {dir4096 + "/f", 0},    {dir4096 + "d/f", -1},
                                                 {base255 + "//", 0},    {"/tmp/" + base255 + "n/", -1}};
    for (const auto& c : cases) EXPECT_EQ(KIRA_name_lenth_check(c.first.c_str()), c.second) << c.first.size();
    EXPECT_EQ(KIRA_name_lenth_check(nullptr), -1);
    EXPECT_EQ(kt::SyslogCount("The length of file is too long. len_basename=256, len_dirname=4.\n", 6), 2);
    EXPECT_EQ(kt::SyslogCount("The length of file is too long. len_basename=1, len_dirname=4097.\n", 6), 1);
    EXPECT_EQ(kt::SyslogCount("Param is null.\n", 6), 1);
}

TEST(KiraSleep, TicksOfTenMsMillisecondsAndSignals) {
    // Past one second, so a lost remainder or a wrong unit shows.
    for (auto sleeper : {+[] { return KIRA_sleep(101); }, +[] { return KIRA_msleep(1010); }}) {
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(sleeper(), 0);
        EXPECT_GE(SecondsSince(start), 1.005);
        EXPECT_LT(SecondsSince(start), 1.41);
    }
    // A signal ends the sleep early (-1) and it is not resumed.
    base_test::SignalPoker poker(SIGUSR1, 1, 100);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(KIRA_sleep(500), -1);
    EXPECT_LT(SecondsSince(start), 2.0);
}

SANDBOX_TEST(KiraThread, StartsDetachedThreadsAndRefusesNullRoutine) {
    static sem_t go, done;
    static pthread_t seen;
    sem_init(&go, 0, 0);
    sem_init(&done, 0, 0);
    auto probe = +[](void* detachState) -> void* {
        sem_wait(&go);  // looks only after KIRA_CreateThread returned
        seen = pthread_self();
        pthread_attr_t attr;
        pthread_getattr_np(pthread_self(), &attr);
        pthread_attr_getdetachstate(&attr, static_cast<int*>(detachState));
        pthread_attr_destroy(&attr);
        sem_post(&done);
        return nullptr;
    };
    pthread_t tid = {};
    for (pthread_t* out : {&tid, static_cast<pthread_t*>(nullptr)}) {
        int detachState = -1;
        ASSERT_EQ(KIRA_CreateThread(probe, &detachState, out), 0);
        sem_post(&go);
        sem_wait(&done);
        EXPECT_EQ(detachState, PTHREAD_CREATE_DETACHED);
        EXPECT_TRUE(out == nullptr || pthread_equal(*out, seen));
    }
    EXPECT_TRUE(pthread_equal(KIRA_GetTid(), pthread_self()));
    EXPECT_EQ(KIRA_GetPid(), getpid());

    kt::SyslogClear();
    EXPECT_EQ(KIRA_CreateThread(nullptr, nullptr, &tid), -1);
    EXPECT_EQ(kt::SyslogCount("Param pthread routine is null.\n", 6), 1);
}
