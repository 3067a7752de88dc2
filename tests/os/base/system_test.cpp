// The shell runner, the command wrappers over it, System V shared memory and threads.

#include <fcntl.h>
#include <sched.h>
#include <sys/shm.h>
#include <unistd.h>

#include <future>
#include <tuple>

#include "os/base/kira_file.h"
#include "os/base/kira_system.h"
#include "tests/support/sandbox.h"

// The raw wait status, not the exit code, whatever signals come meanwhile. A
// ';' or "||" before the last character is refused; '|', "&&" and a final ';' pass.
SANDBOX_TEST(KiraSystem, RawWaitStatusAndChainRefusals) {
    const std::string touch = "touch /tmp/mark";
    // clang-format off
    for (auto [cmd, want] : std::initializer_list<std::pair<std::string, int>>{
             {"exit 3", 0x300}, {"kill -9 $$", SIGKILL}, {touch + ";true", -1}, {touch + "||true", -1},
             {touch + " ||", -1}, {";" + touch, -1}, {"echo x | cat >/dev/null", 0}, {"true && exit 2", 0x200}})
        EXPECT_EQ(KIRA_system(cmd.c_str()), want) << cmd;
    // clang-format on
    EXPECT_TRUE(access("/tmp/mark", 0) && !KIRA_Execute((touch + ";").c_str()) && !access("/tmp/mark", 0));
    EXPECT_TRUE(KIRA_Execute(nullptr) == -1 && KIRA_system(nullptr) == -1);
    struct sigaction sa = {};  // no SA_RESTART: the wait sees EINTR
    sa.sa_handler = +[](int) {};
    sigaction(SIGUSR1, &sa, nullptr);
    auto poke = std::async(std::launch::async, [me = pthread_self()] { usleep(100000), pthread_kill(me, SIGUSR1); });
    EXPECT_EQ(KIRA_system("sleep 0.3 && exit 4"), 0x400);
}

// Each wrapper's command line as the command sees it: paths unquoted (only mkdir quotes), an existing directory
// made without a shell, failures logged with the raw status; null and too long paths refused, the source first.
SANDBOX_TEST(KiraCmd, CommandLinesRefusalsAndMessages) {
    using Calls = std::vector<std::vector<std::string>>;
    kt::FakeCommand cp("cp"), rm("rm"), tar("tar"), touch("touch"), mv("mv", 3), mkdirCmd("mkdir", 1);
    kt::WriteFile("/tmp/dir/plain", "x");
    const std::string longPath = "/tmp/" + std::string(256, 'q');
    const char* big = longPath.c_str();
    // clang-format off
    EXPECT_EQ((std::vector<int>{
                  KIRA_CmdCp("/a/two words", "/b", 0), KIRA_CmdRm("/a/old", 0), KIRA_CmdTar("a.tgz", "/x", 0),
                  KIRA_CmdTar("b.tgz", "/y", -7), KIRA_CmdTouch("/n", 0), KIRA_CmdMkdir("/tmp/dir"),
                  KIRA_CmdMkdir("/tmp/dir/plain"), KIRA_CmdMv("/s", "/d", 0), KIRA_CmdRm("/a;reboot", 0),
                  KIRA_CmdCp(nullptr, "/d", 0), KIRA_CmdMv("/s", nullptr, 0), KIRA_CmdTar(nullptr, "/d", 0),
                  KIRA_CmdRm(nullptr, 0), KIRA_CmdTouch(nullptr, 0), KIRA_CmdMkdir(nullptr), KIRA_CmdCp(big, big, 0),
                  KIRA_CmdMv("/s", big, 0), KIRA_CmdTar(big, "/d", 1), KIRA_CmdTar("/a", big, 0), KIRA_CmdRm(big, 0),
                  KIRA_CmdTouch(big, 0), KIRA_CmdMkdir(big)}),
              (std::vector<int>{0, 0, 0, 0, 0, 0, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1}));
    EXPECT_EQ(std::make_tuple(cp.Calls(), tar.Calls(), rm.Calls(), touch.Calls(), mkdirCmd.Calls(), mv.Calls()),
              std::make_tuple(Calls{{"-af", "/a/two", "words", "/b"}}, Calls{{"-czvf", "a.tgz", "/x"},
                              {"-xzvf", "b.tgz", "-C", "/y"}}, Calls{{"-rf", "/a/old"}}, Calls{{"/n"}},
                              Calls{{"-p", "/tmp/dir/plain"}}, Calls{{"/s", "/d"}}));
    for (auto [text, times] : std::initializer_list<std::pair<std::string, int>>{
             {"Execute cmd(mv /s /d) Fail(768).\n", 1}, {"Execute cmd(mkdir -p \"/tmp/dir/plain\") Fail(256).\n", 1},
             {"Execute cmd(rm -rf /a;reboot) Fail(-1).\n", 1}, {"Param is null.\n", 6},
             {"The length of source file is not correct.\n", 1}, {"The length of dest file is not correct.\n", 1},
             {"The length of file is not correct.\n", 5}})
        EXPECT_EQ(kt::SyslogCount(text, 6), times) << text;
    // clang-format on
}

// Modes 1/2 attach an existing segment read-only/read-write; 3/4 create one (exclusively, 0444/0666), then attach it.
SANDBOX_TEST(KiraShm, ModesSelectCreationAndAccess) {
    ASSERT_EQ(unshare(CLONE_NEWIPC), 0);  // segments live in the IPC namespace
    EXPECT_EQ(KIRA_shmget(1, 4096, 2), nullptr) << "mode 2 must not create";
    auto* rw = static_cast<char*>(KIRA_shmget(1, 4096, 4));
    ASSERT_TRUE(rw != nullptr && KIRA_shmget(2, 4096, 3) != nullptr);
    rw[0] = 'k';
    const int zero = open("/dev/zero", O_RDONLY);  // the kernel will not write where we may not
    struct shmid_ds ro, all;
    EXPECT_TRUE(static_cast<char*>(KIRA_shmget(1, 4096, 2))[0] == 'k' && read(zero, rw, 1) == 1 &&
                read(zero, KIRA_shmget(1, 4096, 1), 1) == -1 && !shmctl(shmget(2, 0, 0), IPC_STAT, &ro) &&
                !shmctl(shmget(1, 0, 0), IPC_STAT, &all) && (ro.shm_perm.mode & 0777) == 0444 &&
                (all.shm_perm.mode & 0777) == 0666);
    for (int again : {4, 3, 0, 5}) {
        EXPECT_EQ(KIRA_shmget(again == 3 ? 2 : 1, 4096, again), nullptr) << again;
    }
}

// Threads start detached; a null routine is refused with a log line.
SANDBOX_TEST(KiraThread, DetachedThreadsAndTheNullRoutine) {
    int go[2], state = -1;
    pthread_t tid = {};
    pthread_attr_t attr;  // read while the thread waits, so that its id is valid
    auto wait = +[](void* fd) -> void* { return (void)!read(*static_cast<int*>(fd), &fd, 1), nullptr; };
    ASSERT_TRUE(!pipe(go) && KIRA_CreateThread(wait, &go[0], &tid) == 0 && pthread_getattr_np(tid, &attr) == 0);
    EXPECT_TRUE(!pthread_attr_getdetachstate(&attr, &state) && !pthread_attr_destroy(&attr) &&
                state == PTHREAD_CREATE_DETACHED && write(go[1], "x", 1));
    EXPECT_EQ(KIRA_CreateThread(nullptr, nullptr, &tid), -1);
    EXPECT_EQ(kt::SyslogCount("Param pthread routine is null.\n", 6), 1);
}
