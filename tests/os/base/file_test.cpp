// Line readers, the descriptor read loop, file copy, path checks and builders, record locks, mappings, their registry.

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <future>
#include <regex>
#include <tuple>

#include "os/base/kira_file.h"
#include "os/base/kira_io.h"
#include "os/base/kira_mmap.h"
#include "tests/support/fault_inject.h"
#include "tests/support/sandbox.h"

using Ints = std::vector<int>;

// KIRA_readline, LineReader::ReadLine: a line with its newline, carriage returns dropped without taking room, a
// longer line in pieces of size - 1; nothing past the newline consumed (the descriptor may be shared). Gets is fgets.
SANDBOX_TEST(KiraReadline, PiecesCarriageReturnsAndWhatIsLeft) {
    char buf[32];
    kira::LineReader reader;
    // clang-format off
    for (auto [in, size, pieces] : std::initializer_list<std::tuple<const char*, int, std::string>>{
             {"ab\r\ncd", 16, "ab\n|cd|"}, {"abcdefgh\nxy\n", 4, "abc|def|gh\n|xy\n|"}, {"a\r\rbc\r\n", 3, "ab|c\n|"},
             {"\r\r", 8, ""}, {"\r\n", 8, "\n|"}}) {
        // clang-format on
        kt::WriteFile("/tmp/in", in);
        std::string got = "|", buffered = "|";
        const int fd = open("/tmp/in", O_RDONLY);
        while (KIRA_readline(fd, buf, size) == buf) {
            got += std::string(buf) + "|";
        }
        ASSERT_TRUE(reader.OpenPlain("/tmp/in") && close(fd) == 0);
        while (reader.ReadLine(buf, size)) {
            buffered += std::string(buf) + "|";
        }
        EXPECT_EQ(got + buffered, "|" + pieces + "|" + pieces) << in;
    }
    kt::WriteFile("/tmp/in", "one\ntwo longer\n\nlast");
    const int fd = open("/tmp/in", O_RDONLY);
    EXPECT_TRUE(KIRA_readline(fd, buf, 32) == buf && !KIRA_readline(fd, buf, 1) && !buf[0] &&
                !KIRA_readline(fd, buf, 0) && !KIRA_readline(fd, nullptr, 4) && read(fd, buf, 32) == 16);
    std::string pieces;
    ASSERT_TRUE(reader.Open("/tmp/in", kira::ReadEnd::kShortRead) && reader.Gets(buf, 1) && !buf[0] &&
                !reader.Gets(buf, 0));
    while (reader.Gets(buf, 8)) {
        pieces += std::string(buf) + "|";
    }
    EXPECT_EQ(pieces, "one\n|two lon|ger\n|\n|last|");
    EXPECT_TRUE(!reader.OpenPlain("/dev/null") && errno == EINVAL && !reader.Open("/none", kira::ReadEnd::kOneRead) &&
                errno == ENOENT && !reader.Gets(buf, 8));
}

// "abcdef" in a pipe, writer closed; the nth read (0: none) is cut to one byte, interrupted or failed; reads counted.
TEST(KiraReadFd, EndRulesRetriesAndFailures) {
    using E = kira::ReadEnd;
    using M = kt::FaultMode;
    const auto [Short, Until, One] = std::make_tuple(E::kShortRead, E::kUntilEof, E::kOneRead);
    const auto [Fail, Cut, Intr] = std::make_tuple(M::kFail, M::kShort, M::kInterrupt);
    int fds[2];
    char buf[16];
    // clang-format off
    for (auto [end, mode, nth, size, want, reads] : std::initializer_list<std::tuple<E, M, int, size_t, ssize_t, int>>{
             {Short, Fail, 0, 16, 6, 1}, {Until, Fail, 0, 16, 6, 2}, {Until, Fail, 0, 6, 6, 1}, {One, Cut, 1, 16, 1, 1},
             {Short, Cut, 1, 16, 1, 1}, {Until, Cut, 1, 16, 6, 3}, {Short, Intr, 1, 16, 6, 2},
             {Until, Fail, 1, 16, -1, 1}, {Until, Fail, 2, 16, 6, 2}}) {
        // clang-format on
        ASSERT_TRUE(pipe(fds) == 0 && write(fds[1], "abcdef", 6) == 6 && close(fds[1]) == 0);
        kt::FaultArm({kt::Fault::kRead, nth, mode});
        const ssize_t got = kira::ReadFd(fds[0], buf, size, end);
        EXPECT_EQ(std::make_pair(got, kt::FaultSeen()), std::make_pair(want, reads)) << nth;
        kt::FaultDisarm();
        close(fds[0]);
    }
    EXPECT_TRUE(!pipe(fds) && !close(fds[1]) && kira::ReadFd(fds[0], buf, 16, One) == 0) << "end of file at once";
}

// 128-byte blocks until the first block the write did not fill, into a private truncated destination. The
// source is opened read-write, so one that can only be read is refused.
SANDBOX_TEST(KiraCopy, BlocksTruncationAndFailures) {
    const std::string data = std::string(128, 'a') + std::string(128, 'b') + std::string(44, 'c');
    for (size_t size : {0, 128, 300}) {
        kt::WriteFile("/tmp/src", data.substr(0, size));
        EXPECT_TRUE(KIRA_copy("/tmp/src", "/tmp/dst") == 0 && kt::ReadFile("/tmp/dst") == data.substr(0, size)) << size;
    }
    struct stat st;  // a short block ends the copy; what was there before is gone
    kt::FaultArm({kt::Fault::kRead, 1, kt::FaultMode::kShort});
    EXPECT_EQ(KIRA_copy("/tmp/src", "/tmp/dst"), 0);
    kt::FaultDisarm();
    EXPECT_TRUE(!stat("/tmp/dst", &st) && st.st_size == 1 && (st.st_mode & 0777) == 0600);
    EXPECT_EQ(KIRA_copy("/tmp", "/tmp/out"), -1);
    const int fds = kt::OpenFdCount();  // syslog's own socket is open by now
    EXPECT_EQ((Ints{KIRA_copy("/tmp/src", "/tmp/no/out"), KIRA_copy(nullptr, "/tmp/out"),
                    KIRA_copy("/tmp/src", nullptr), KIRA_copy("/tmp/src", "/dev/full"), access("/tmp/out", 0),
                    (kt::FaultArm({kt::Fault::kRead, 1}), KIRA_copy("/tmp/src", "/tmp/out"))}),
              Ints(6, -1));
    kt::FaultDisarm();
    EXPECT_EQ(kt::OpenFdCount(), fds);
    std::string logged;
    for (const auto& l : kt::SyslogLines()) {
        logged += std::to_string(l.priority) + " " + l.message;
    }
    EXPECT_EQ(logged,
              "6 Open source file (/tmp) error,return.\n6 Open dest file (/tmp/no/out) error,return.\n"
              "6 Input para null.\n6 Input para null.\n6 Copy write data from file (/tmp/src) to (/dev/full) Fail, "
              "(28).\n6 Copy read data from file (/tmp/src) to (/tmp/out) Fail, (5).\n");
}

// Basename below 256 characters, dirname at most 4096; trailing slashes are not part of the basename.
SANDBOX_TEST(KiraNameCheck, LimitsOfBasenameAndDirname) {
    const std::string base255(255, 'n'), dir4096 = "/" + std::string(4095, 'd');
    // clang-format off
    for (auto [path, want] : std::initializer_list<std::pair<std::string, int>>{
             {"/t/" + base255, 0}, {"/t/n" + base255, -1}, {dir4096 + "/f", 0}, {dir4096 + "d/f", -1},
             {base255 + "//", 0}, {"/t/n" + base255 + "/", -1}})
        EXPECT_EQ(KIRA_name_lenth_check(path.c_str()), want) << path.size();
    // clang-format on
    EXPECT_EQ(KIRA_name_lenth_check(nullptr), -1);
    EXPECT_EQ(kt::SyslogCount("The length of file is too long. len_basename=256, len_dirname=2.\n", 6), 2);
    EXPECT_EQ(kt::SyslogCount("The length of file is too long. len_basename=1, len_dirname=4097.\n", 6), 1);
    EXPECT_EQ(kt::SyslogCount("Param is null.\n", 6), 1);
}

// /proc paths in the caller's buffer (a refusal says why and leaves an empty text); the /proc walks' name filter.
TEST(KiraProcPath, FormsLimitsAndPidNames) {
    // clang-format off
    for (auto [pid, leaf, size, want] : std::initializer_list<std::tuple<long long, const char*, size_t, std::string>>{
             {0, "stat", 64, "/proc/0/stat"}, {INT64_MIN, "", 64, "/proc/-9223372036854775808"},
             {7, nullptr, 64, "/proc/7"}, {4294967295, "status", 64, "/proc/4294967295/status"},
             {123, "cmdline", 18, "/proc/123/cmdline"}, {1234, "cmdline", 18, "refused"}, {1, "x", 0, "refused"}}) {
        // clang-format on
        char buf[64] = "#";
        errno = 0;
        const bool ok = kira::ProcPidPath(size == 0 ? nullptr : buf, size, pid, leaf);
        EXPECT_EQ(ok ? buf : errno == ENAMETOOLONG && (size == 0 || buf[0] == '\0') ? "refused" : "?", want) << pid;
    }
    char buf[100];
    EXPECT_TRUE(kira::ProcPidPath(buf, sizeof(buf), "self", "fd") && std::string(buf) == "/proc/self/fd");
    EXPECT_TRUE(!kira::ProcPidPath(buf, 100, std::string(94, '1').c_str(), "") &&
                !kira::ProcPidPath(buf, 100, nullptr, ""));

    EXPECT_TRUE(kira::IsAllDigits("0123456789") && !kira::IsAllDigits(nullptr));
    for (const char* name : {"", "/", ":", "1a"}) {
        EXPECT_FALSE(kira::IsAllDigits(name)) << name;
    }
}

// Mode 1 waits for a write lock, 2 tries for a read lock, 3 tries for a write
// lock and any other waits for a read lock; ranges count from the file's start.
SANDBOX_TEST(KiraLock, ModesAgainstAnotherHolder) {
    kt::WriteFile("/tmp/f", "0123456789abcdefghij");
    const int fd = open("/tmp/f", O_RDWR), other = open("/tmp/f", O_RDWR);
    struct flock held = {};  // another open file description's lock conflicts with our record locks
    auto hold = [&](short type) { return held.l_type = type, held.l_len = 10, fcntl(other, F_OFD_SETLK, &held); };
    auto lock = [fd, l = KIRA_LOCK_S{}](uint64_t m, int64_t at, int64_t n) mutable {
        return l = {m, at, n}, KIRA_LockFile(fd, &l);
    };
    ASSERT_EQ(hold(F_WRLCK), 0);
    lseek(fd, 15, SEEK_SET);
    EXPECT_EQ((Ints{lock(3, 5, 10), lock(2, 9, 1), lock(3, 0, 5), lock(3, 10, 5)}), (Ints{-1, -1, -1, 0}));
    auto waited = std::async(std::launch::async, [&] { return lock(1, 0, 10); });
    usleep(200000);
    hold(F_UNLCK);
    EXPECT_TRUE(waited.get() == 0 && hold(F_RDLCK) == -1) << "mode 1 did not wait, or its lock did not hold";
    KIRA_LOCK_S all = {1, 0, 10};
    EXPECT_TRUE(KIRA_UnLockFile(fd, &all) == 0 && hold(F_RDLCK) == 0) << "unlock did not release";
    EXPECT_EQ((Ints{lock(2, 0, 10), lock(0, 0, 10), lock(7, 0, 10), lock(3, 0, 10)}),
              (Ints{0, 0, 0, -1}));  // an exclusive waiting request would hang here
    errno = 0;
    EXPECT_EQ((Ints{KIRA_LockFile(3, nullptr), KIRA_UnLockFile(5, nullptr), KIRA_LockFile(-1, &all),
                    KIRA_LockFile(-2, &all), errno, kt::SyslogCount("Input param error")}),
              (Ints{-1, -1, -1, -1, EBADF, 3}));  // only -1 is refused before the system call
    EXPECT_EQ(kt::SyslogCount("Input param error, vfd = (5), vlock= ((nil)).\n", 6), 1);
}

// The byte at offset + length is read and, on a read-write descriptor, written one further: a short file grows past the
// area, a byte per mapping. At most 32 live mappings; a failed mmap's MAP_FAILED takes a slot like any address.
SANDBOX_TEST(KiraMmap, EndOfAreaTouchedAndRegistryLimits) {
    kt::WriteFile("/tmp/m", std::string(3 * 4096, 'a') + "bcd");
    int fd = open("/tmp/m", O_RDWR);
    auto* p = static_cast<char*>(KIRA_mmap(fd, PROT_READ | PROT_WRITE, 4096, 2 * 4096));
    ASSERT_TRUE(p != MAP_FAILED && kt::ReadFile("/tmp/m").substr(3 * 4096) == "bbd") << "the offset is honoured";
    void* q = KIRA_mmap(fd, PROT_READ, 0, 5 * 4096);
    p[2 * 4096 - 1] = 'z';  // backed: no SIGBUS
    EXPECT_TRUE(kt::ReadFile("/tmp/m").size() == 5 * 4096 + 1 && !KIRA_munmap(q) && !KIRA_munmap(p) &&
                KIRA_munmap(p) == -1);
    fd = (close(fd), open("/tmp/m", O_RDONLY));
    EXPECT_TRUE(!KIRA_munmap(KIRA_mmap(fd, PROT_READ, 0, 8 * 4096)) && kt::ReadFile("/tmp/m").size() == 5 * 4096 + 1)
        << "read-only descriptors leave the file alone";
    auto mapped = [maps = std::string(), area = std::regex("/tmp/m\n")]() mutable {
        maps = kt::ReadFile("/proc/self/maps");
        return std::distance(std::sregex_iterator(maps.begin(), maps.end(), area), std::sregex_iterator());
    };
    std::vector<void*> maps = {KIRA_mmap(-1, PROT_READ, INT64_MAX, 4096)};
    while (maps.size() < 32) {
        maps.push_back(KIRA_mmap(fd, PROT_READ, 0, 4096));
    }
    KIRA_MAP_DATA_S extra = {&extra, 1};
    EXPECT_TRUE(!KIRA_mmap(fd, PROT_READ, 0, 4096) && maps[0] == MAP_FAILED && mapped() == 31 && !AddMapData(&extra));
    for (void* m : maps) {
        EXPECT_EQ(KIRA_munmap(m), 0);  // from the front: each gap takes the last entry
    }
    EXPECT_TRUE(AddMapData(&extra) && FetchMapData(&extra) && extra.length == 1 && !FetchMapData(&extra) && !mapped());
}
