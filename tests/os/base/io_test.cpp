// The shared directory walk, descriptor reader and /proc path builder.

#include <string.h>
#include <sys/socket.h>

#include <algorithm>

#include "os/base/kira_io.h"
#include "tests/os/base/base_test_util.h"

TEST(KiraProcPath, FormsAndTheCallersLimit) {
    struct Case {
        long long pid;
        const char* leaf;
        size_t size;
        const char* want;
    };
    for (const Case& c : {Case{42, "cmdline", 64, "/proc/42/cmdline"}, Case{0, "stat", 64, "/proc/0/stat"},
                          Case{-1, "status", 64, "/proc/-1/status"},
                          Case{static_cast<unsigned>(-1), "status", 64, "/proc/4294967295/status"},
                          Case{-9223372036854775807LL - 1, "", 64, "/proc/-9223372036854775808"},
                          Case{7, nullptr, 64, "/proc/7"}, Case{123, "cmdline", 18, "/proc/123/cmdline"} /* tight */,
                          Case{1234, "cmdline", 18, "too long"}, Case{1, "x", 0, "too long"}}) {
        char buf[64];
        memset(buf, '#', sizeof(buf));
        errno = 0;
        const bool ok = kira::ProcPidPath(c.size == 0 ? nullptr : buf, c.size, c.pid, c.leaf);
        // A refusal says why and leaves an empty text.
        const bool refused = !ok && errno == ENAMETOOLONG && (c.size == 0 || buf[0] == '\0');
        EXPECT_EQ(ok ? std::string(buf) : refused ? "too long" : "bad refusal", c.want) << c.pid;
    }
    char buf[100];
    EXPECT_TRUE(kira::ProcPidPath(buf, sizeof(buf), "self", "fd"));
    EXPECT_STREQ(buf, "/proc/self/fd");
    EXPECT_FALSE(kira::ProcPidPath(buf, sizeof(buf), std::string(90, '1').c_str(), "cmdline"));
    EXPECT_FALSE(kira::ProcPidPath(buf, sizeof(buf), nullptr, "cmdline"));
}

TEST(KiraReadFd, EndRulesShortReadsAndSignals) {
    // A socket pair delivers exactly what was written per read, like a
    // kernel-made file; the writer stays open so a read past the data would
    // block (and the test time out) instead of returning 0.
    int sv[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sv), 0);
    char buf[16];
    ASSERT_EQ(write(sv[1], "abc", 3), 3);
    EXPECT_EQ(kira::ReadFd(sv[0], buf, sizeof(buf), kira::ReadEnd::kShortRead), 3);
    ASSERT_EQ(write(sv[1], "defg", 4), 4);
    EXPECT_EQ(kira::ReadFd(sv[0], buf, sizeof(buf), kira::ReadEnd::kOneRead), 4);
    // A full buffer ends every mode without another read.
    ASSERT_EQ(write(sv[1], "0123456789abcdefXY", 18), 18);
    EXPECT_EQ(kira::ReadFd(sv[0], buf, sizeof(buf), kira::ReadEnd::kShortRead), 16);
    EXPECT_EQ(memcmp(buf, "0123456789abcdef", 16), 0);
    // Until end of file: pieces are joined and a signal does not end it.
    ASSERT_EQ(write(sv[1], "hi", 2), 2);
    {
        base_test::SignalPoker poker(SIGUSR1, 1, 50);
        std::thread writer([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(150));
            (void)!write(sv[1], "there", 5);
            close(sv[1]);
        });
        EXPECT_EQ(kira::ReadFd(sv[0], buf, sizeof(buf), kira::ReadEnd::kUntilEof), 7);
        writer.join();
    }
    EXPECT_EQ(memcmp(buf, "hithere", 7), 0);
    EXPECT_EQ(kira::ReadFd(sv[0], buf, sizeof(buf), kira::ReadEnd::kShortRead), 0);
    close(sv[0]);
    errno = 0;
    EXPECT_EQ(kira::ReadFd(-1, buf, sizeof(buf), kira::ReadEnd::kOneRead), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(KiraDirWalk, KindsFiltersAndOwnership) {
    TempDir dir;
    for (const char* name : {"12", "a1", "345"}) mkdir((dir / name).c_str(), 0700);
    for (const char* name : {"6", "b"}) base_test::WriteAll(dir / name, "x");
    ASSERT_EQ(symlink("12", (dir / "78").c_str()), 0);
    struct Case {
        kira::DirWalk::Kind kind;
        kira::DirWalk::NameFilter filter;
        const char* want;
    };
    for (const Case& c : {Case{kira::DirWalk::kAnyEntry, nullptr, "12 345 6 78 a1 b"},
                          Case{kira::DirWalk::kDirectories, nullptr, "12 345 a1"},
                          Case{kira::DirWalk::kDirectories, kira::IsAllDigits, "12 345"},
                          Case{kira::DirWalk::kRegularFiles, nullptr, "6 b"},
                          Case{kira::DirWalk::kAnyEntry, kira::IsAllDigits, "12 345 6 78"}}) {
        const int fds = base_test::OpenFdCount();
        std::vector<std::string> names;
        {
            kira::DirWalk walk(opendir(dir.path.c_str()), c.kind, c.filter);
            ASSERT_TRUE(walk);
            while (const char* name = walk.Next()) names.push_back(name);
            EXPECT_EQ(walk.Next(), nullptr);
        }
        EXPECT_EQ(base_test::OpenFdCount(), fds);
        std::sort(names.begin(), names.end());
        std::string got;
        for (const auto& n : names) got += (got.empty() ? "" : " ") + n;
        EXPECT_EQ(got, c.want);
    }
    kira::DirWalk missing(opendir((dir / "none").c_str()));
    EXPECT_FALSE(missing);
    EXPECT_EQ(missing.Next(), nullptr);
    for (const char* name : {"0", "0123", "9"}) EXPECT_TRUE(kira::IsAllDigits(name)) << name;
    for (const char* name : {"", "1a", "a1", "-1", " 1"}) EXPECT_FALSE(kira::IsAllDigits(name)) << name;
    EXPECT_FALSE(kira::IsAllDigits(nullptr));
}

TEST(KiraLineReader, FgetsPiecesAndTheShortReadEnd) {
    // A FIFO whose writer stays open: after the data, only the short-read
    // rule can end the file without blocking.
    TempDir dir;
    const std::string fifo = dir / "f";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    int writer = open(fifo.c_str(), O_RDWR);
    ASSERT_GE(writer, 0);
    ASSERT_EQ(write(writer, "one\ntwo longer\n\nlast", 20), 20);
    kira::LineReader reader;
    ASSERT_TRUE(reader.Open(fifo.c_str(), kira::ReadEnd::kShortRead));
    char line[8];
    std::string pieces;
    EXPECT_TRUE(reader.Gets(line, 1));
    EXPECT_STREQ(line, "");
    while (reader.Gets(line, sizeof(line))) pieces += std::string(line) + "|";
    EXPECT_EQ(pieces, "one\n|two lon|ger\n|\n|last|");
    EXPECT_FALSE(reader.Gets(line, 0));
    close(writer);
    errno = 0;
    EXPECT_FALSE(reader.Open((dir / "none").c_str(), kira::ReadEnd::kUntilEof));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(reader.Gets(line, sizeof(line)));
}
