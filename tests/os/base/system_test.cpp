// The shell runner, the kernel gate, System V shared memory and 64-bit division.

#include <sched.h>
#include <sys/shm.h>

#include "os/base/kira_system.h"
#include "tests/os/base/base_test_util.h"

TEST(KiraSystem, RawWaitStatusAndRetriedWaits) {
    EXPECT_EQ(KIRA_system("true"), 0);
    EXPECT_EQ(KIRA_system("exit 3"), 0x300);
    EXPECT_EQ(KIRA_system("kill -9 $$"), SIGKILL);
    EXPECT_EQ(KIRA_Execute("exit 2"), 0x200);
    EXPECT_EQ(KIRA_Execute(nullptr), -1);
    EXPECT_EQ(KIRA_system(nullptr), -1);
    // Signals while waiting do not end the wait.
    base_test::SignalPoker poker(SIGUSR2, 5, 60);
    EXPECT_EQ(KIRA_system("sleep 0.5 && exit 4"), 0x400);
}

TEST(KiraSystem, RefusesChainsExceptAtTheLastCharacter) {
    TempDir dir;
    std::string mark = dir / "mark", touch = "touch " + mark;
    for (const std::string& cmd : {touch + ";true", touch + "||true", touch + " ||", ";" + touch})
        EXPECT_EQ(KIRA_system(cmd.c_str()), -1) << cmd;
    EXPECT_EQ(FileSize(mark), -1) << "a refused command ran";
    // Allowed: a single bar, a double ampersand, a trailing semicolon.
    for (const std::string& cmd : {std::string("echo x | cat >/dev/null"), std::string("true && true"),
                                   std::string("ls >/dev/null;"), touch + ";"})
        EXPECT_EQ(KIRA_system(cmd.c_str()), 0) << cmd;
    EXPECT_EQ(FileSize(mark), 0);
}

SANDBOX_TEST(KiraSysCall, PassesRequestThroughTheControlFile) {
    // No kernel module: the open fails.
    int dummy = 0;
    EXPECT_EQ(KIRA_SysCall(0x1234, &dummy), -1);

    unsigned long seenRequest = 0;
    void* seenArg = nullptr;
    int answer = 0;
    kt::NoxSetHandler("/proc/nox/syscall", [&](unsigned long request, void* arg) {
        seenRequest = request;
        seenArg = arg;
        return answer;
    });
    int fds = base_test::OpenFdCount();
    EXPECT_EQ(KIRA_SysCall(0x40086b01, &dummy), 0);
    EXPECT_EQ(seenRequest, 0x40086b01ul);
    EXPECT_EQ(seenArg, &dummy);
    answer = 7;  // any non-zero answer fails
    EXPECT_EQ(KIRA_SysCall(3, nullptr), -1);
    EXPECT_EQ(seenRequest, 3ul);
    EXPECT_EQ(kt::NoxOpenCount("/proc/nox/syscall"), 2);
    EXPECT_EQ(base_test::OpenFdCount(), fds) << "control file left open";
}

namespace {

// Permissions of the mapping holding addr, e.g. "rw-s".
std::string MappingPerms(const void* addr) {
    std::ifstream maps("/proc/self/maps");
    auto a = reinterpret_cast<unsigned long>(addr);
    for (std::string line; std::getline(maps, line);) {
        unsigned long lo = 0, hi = 0;
        char perms[5] = {};
        if (sscanf(line.c_str(), "%lx-%lx %4s", &lo, &hi, perms) == 3 && a >= lo && a < hi) return perms;
    }
    return "";
}

int ShmMode(key_t key) {
    struct shmid_ds ds;
    int id = shmget(key, 0, 0);
    return id >= 0 && shmctl(id, IPC_STAT, &ds) == 0 ? static_cast<int>(ds.shm_perm.mode & 0777) : -1;
}

}  // namespace

SANDBOX_TEST(KiraShm, ModesSelectCreationAndAccess) {
    // Segments live in the IPC namespace, not the mount namespace.
    ASSERT_EQ(unshare(CLONE_NEWIPC), 0);
    const key_t rw = 0x4b1a0001, ro = 0x4b1a0002;
    EXPECT_EQ(KIRA_shmget(rw, 4096, 2), nullptr) << "mode 2 must not create";
    auto* created = static_cast<char*>(KIRA_shmget(rw, 4096, 4));
    ASSERT_NE(created, nullptr);
    EXPECT_EQ(ShmMode(rw), 0666);
    EXPECT_EQ(MappingPerms(created), "rw-s");
    EXPECT_EQ(KIRA_shmget(rw, 4096, 4), nullptr) << "mode 4 must create exclusively";
    created[0] = 'k';
    auto* again = static_cast<char*>(KIRA_shmget(rw, 4096, 2));
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again[0], 'k');
    auto* readOnly = static_cast<char*>(KIRA_shmget(rw, 4096, 1));
    ASSERT_NE(readOnly, nullptr);
    EXPECT_EQ(MappingPerms(readOnly), "r--s");

    void* ro3 = KIRA_shmget(ro, 4096, 3);
    ASSERT_NE(ro3, nullptr);
    EXPECT_EQ(ShmMode(ro), 0444);
    EXPECT_EQ(MappingPerms(ro3), "r--s");
    EXPECT_EQ(KIRA_shmget(ro, 4096, 3), nullptr);
    EXPECT_EQ(KIRA_shmget(rw, 4096, 0), nullptr);
    EXPECT_EQ(KIRA_shmget(rw, 4096, 5), nullptr);
}

TEST(KiraDiv64, QuotientAndRemainder) {
    uint32_t rem = 99;
    EXPECT_EQ(KIRA_div64(10, 3, &rem), 3u);
    EXPECT_EQ(rem, 1u);
    EXPECT_EQ(KIRA_div64(0xFFFFFFFFFFFFFFFFull, 0xFFFFFFFFu, &rem), 0x100000001ull);
    EXPECT_EQ(rem, 0u);
    // Division by zero: quotient 0, remainder the dividend's low 32 bits.
    EXPECT_EQ(KIRA_div64(0x700000005ull, 0, &rem), 0u);
    EXPECT_EQ(rem, 5u);
    EXPECT_EQ(KIRA_div64(7, 2, nullptr), 3u);
}
