// Line reader, file copy, path length check, sleeping and threads.

#include <fcntl.h>
#include <pthread.h>
#include <semaphore.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

#include "os/base/kira_file.h"
#include "tests/os/base/base_test_util.h"
#include "tests/support/sandbox.h"

using base_test::FileSize;
using base_test::SecondsSince;
using base_test::TempDir;

namespace {

// Read end of a pipe pre-filled with `data`.
int PipeWith(const std::string& data)
{
    int fds[2];
    if (pipe(fds) != 0) return -1;
    (void)!write(fds[1], data.data(), data.size());
    close(fds[1]);
    return fds[0];
}

std::string Rest(int fd)
{
    std::string out;
    char c;
    while (read(fd, &c, 1) == 1) out.push_back(c);
    close(fd);
    return out;
}

// Pieces returned until null, joined by '|'.
std::string Pieces(int fd, int size)
{
    std::string out;
    char buf[64];
    while (KIRA_readline(fd, buf, size) == buf) out += std::string(buf) + "|";
    return out;
}

}  // namespace

TEST(KiraReadline, CarriageReturnsPiecesAndEndOfFile)
{
    EXPECT_EQ(Pieces(PipeWith("ab\r\ncd"), 16), "ab\n|cd|");
    EXPECT_EQ(Pieces(PipeWith("abcdefgh\nxy\n"), 4), "abc|def|gh\n|xy\n|");
    // CRs take no room in a piece and do not count as characters.
    EXPECT_EQ(Pieces(PipeWith("a\r\rbc\r\n"), 3), "ab|c\n|");
    EXPECT_EQ(Pieces(PipeWith("\r\r"), 8), "");
    EXPECT_EQ(Pieces(PipeWith("\r\n"), 8), "\n|");

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

TEST(KiraCopy, CopiesIntoPrivateTruncatedDestination)
{
    TempDir dir;
    for (size_t size : {0, 44, 128, 256, 300}) {
        std::string data(size, 'x');
        for (size_t i = 0; i < size; i++) data[i] = static_cast<char>('a' + i % 26);
        std::string src = dir / "src";
        std::string dst = dir / "dst";  // reused: the longer copy gets truncated
        base_test::WriteAll(src, data);
        ASSERT_EQ(KIRA_copy(src.c_str(), dst.c_str()), 0) << size;
        EXPECT_EQ(Rest(open(dst.c_str(), O_RDONLY)), data) << size;
    }
    struct stat st;
    ASSERT_EQ(stat((dir / "dst").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

// A FIFO opened read-write as the source never reports end of file, so the
// 128-byte blocks show: the copy ends after the first block the write did
// not fill, and only then. (A copy waiting for end of file would hang; the
// sandbox time limit ends it.)
SANDBOX_TEST(KiraCopy, StopsAfterFirstShortBlockOnly)
{
    TempDir dir;
    std::string fifo = dir / "fifo";
    std::string dst = dir / "dst";
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

SANDBOX_TEST(KiraCopy, FailuresAreLoggedAndReleaseDescriptors)
{
    TempDir dir;
    std::string src = dir / "src";
    kt::WriteFile(src, "payload");
    std::string ro = dir / "ro";
    kt::WriteFile(ro, "read only");
    ASSERT_EQ(mount(ro.c_str(), ro.c_str(), nullptr, MS_BIND, nullptr), 0);
    ASSERT_EQ(mount(nullptr, ro.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0);

    kt::SyslogClear();
    // A source that can only be read is refused, though reading would do.
    EXPECT_EQ(KIRA_copy(ro.c_str(), (dir / "out").c_str()), -1);
    EXPECT_EQ(kt::SyslogCount("Open source file (" + ro + ") error,return.\n", 6), 1);
    EXPECT_EQ(FileSize(dir / "out"), -1);
    int fds = base_test::OpenFdCount();  // syslog's own socket is open by now

    std::string badDst = dir / "missing/out";
    EXPECT_EQ(KIRA_copy(src.c_str(), badDst.c_str()), -1);
    EXPECT_EQ(kt::SyslogCount("Open dest file (" + badDst + ") error,return.\n", 6), 1);
    EXPECT_EQ(KIRA_copy(nullptr, badDst.c_str()), -1);
    EXPECT_EQ(KIRA_copy(src.c_str(), nullptr), -1);
    EXPECT_EQ(kt::SyslogCount("Input para null.\n", 6), 2);

    EXPECT_EQ(KIRA_copy(src.c_str(), "/dev/full"), -1);
    EXPECT_EQ(kt::SyslogCount("Copy write data from file (" + src + ") to (/dev/full) Fail, (28).\n", 6), 1);
    std::string memOut = dir / "mem";
    EXPECT_EQ(KIRA_copy("/proc/self/mem", memOut.c_str()), -1);  // page 0 is never mapped: EIO
    EXPECT_EQ(kt::SyslogCount("Copy read data from file (/proc/self/mem) to (" + memOut + ") Fail, (5).\n", 6), 1);
    EXPECT_EQ(base_test::OpenFdCount(), fds);
    umount2(ro.c_str(), MNT_DETACH);
}

SANDBOX_TEST(KiraNameCheck, LimitsOfBasenameAndDirname)
{
    kt::SyslogClear();
    std::string base255(255, 'n');
    EXPECT_EQ(KIRA_name_lenth_check(("/tmp/" + base255).c_str()), 0);
    EXPECT_EQ(KIRA_name_lenth_check(("/tmp/" + base255 + "n").c_str()), -1);
    EXPECT_EQ(kt::SyslogCount("The length of file is too long. len_basename=256, len_dirname=4.\n", 6), 1);
    std::string dir4096 = "/" + std::string(4095, 'd');
    EXPECT_EQ(KIRA_name_lenth_check((dir4096 + "/f").c_str()), 0);
    EXPECT_EQ(KIRA_name_lenth_check((dir4096 + "d/f").c_str()), -1);
    EXPECT_EQ(kt::SyslogCount("len_basename=1, len_dirname=4097.\n", 6), 1);
    // POSIX semantics: trailing slashes are not part of the basename.
    EXPECT_EQ(KIRA_name_lenth_check((base255 + "//").c_str()), 0);
    EXPECT_EQ(KIRA_name_lenth_check(nullptr), -1);
    EXPECT_EQ(kt::SyslogCount("Param is null.\n", 6), 1);
}

TEST(KiraSleep, TicksOfTenMsMillisecondsAndSignals)
{
    struct Case {
        int (*fn)(unsigned int);
        unsigned int arg;
        double seconds;
    };
    for (const Case& c : {Case{KIRA_sleep, 25, 0.25}, Case{KIRA_sleep, 101, 1.01}, Case{KIRA_msleep, 250, 0.25},
                          Case{KIRA_msleep, 1010, 1.01}}) {
        auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(c.fn(c.arg), 0);
        double t = SecondsSince(start);
        EXPECT_GE(t, c.seconds - 0.005) << c.arg;
        EXPECT_LT(t, c.seconds + 0.4) << c.arg;
    }
    // A signal ends the sleep early (-1) and it is not resumed.
    base_test::SignalPoker poker(SIGUSR1, 1, 100);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(KIRA_sleep(500), -1);
    EXPECT_LT(SecondsSince(start), 2.0);
}

namespace {

struct ThreadProbe {
    sem_t go;
    sem_t done;
    pthread_t self;
    int detachState;
};

void* ProbeThread(void* arg)
{
    auto* p = static_cast<ThreadProbe*>(arg);
    sem_wait(&p->go);  // looks only after KIRA_CreateThread returned
    p->self = pthread_self();
    pthread_attr_t attr;
    pthread_getattr_np(pthread_self(), &attr);
    pthread_attr_getdetachstate(&attr, &p->detachState);
    pthread_attr_destroy(&attr);
    sem_post(&p->done);
    return nullptr;
}

}  // namespace

SANDBOX_TEST(KiraThread, StartsDetachedThreadsAndRefusesNullRoutine)
{
    ThreadProbe probe = {};
    sem_init(&probe.go, 0, 0);
    sem_init(&probe.done, 0, 0);
    pthread_t tid = {};
    for (pthread_t* out : {&tid, static_cast<pthread_t*>(nullptr)}) {
        probe.detachState = -1;
        ASSERT_EQ(KIRA_CreateThread(ProbeThread, &probe, out), 0);
        sem_post(&probe.go);
        sem_wait(&probe.done);
        EXPECT_EQ(probe.detachState, PTHREAD_CREATE_DETACHED);
        EXPECT_TRUE(out == nullptr || pthread_equal(*out, probe.self));
    }
    EXPECT_TRUE(pthread_equal(KIRA_GetTid(), pthread_self()));
    EXPECT_EQ(KIRA_GetPid(), getpid());

    kt::SyslogClear();
    EXPECT_EQ(KIRA_CreateThread(nullptr, nullptr, &tid), -1);
    EXPECT_EQ(kt::SyslogCount("Param pthread routine is null.\n", 6), 1);
}
