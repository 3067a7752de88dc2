// Recording fake commands: arguments kept exactly, output and exit status as
// chosen, platform scripts at absolute paths.

#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>

#include "tests/support/sandbox.h"

namespace {

using Calls = std::vector<std::vector<std::string>>;

std::string RunAndRead(const std::string& cmd, int* exit_status) {
    FILE* p = popen(cmd.c_str(), "r");
    std::string out;
    if (p == nullptr) return out;
    char buf[256];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    int status = pclose(p);
    *exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return out;
}

SANDBOX_TEST(FakeCommand, RecordsArgumentsPrintsAndExits) {
    kt::FakeCommand hwclock("hwclock", 3, "it's \"quoted\" $HOME\n");
    int status = 0;
    EXPECT_EQ(RunAndRead("hwclock --systohc 'two words' ''", &status), "it's \"quoted\" $HOME\n");
    EXPECT_EQ(status, 3);
    RunAndRead("hwclock", &status);
    RunAndRead("hwclock -s", &status);
    EXPECT_EQ(hwclock.Calls(), (Calls{{"--systohc", "two words", ""}, {}, {"-s"}}));

    kt::FakeCommand ifconfig("ifconfig");
    EXPECT_EQ(system("ifconfig eth0 up"), 0);
    EXPECT_EQ(ifconfig.Calls(), (Calls{{"eth0", "up"}}));
    EXPECT_EQ(hwclock.Calls().size(), 3u);  // records are kept apart

    // The fake directory is put first on PATH once, however many fakes.
    const std::string path = getenv("PATH");
    const std::string dir = path.substr(0, path.find(':'));
    EXPECT_EQ(path.find(dir, 1), std::string::npos) << path;
}

SANDBOX_TEST(FakeCommand, PlatformScriptAtAbsolutePath) {
    kt::FakeCommand script("/ZUK/script/os_get_ip6.sh", 1, "fe80::1");
    int status = 0;
    EXPECT_EQ(RunAndRead("/ZUK/script/os_get_ip6.sh eth1", &status), "fe80::1");
    EXPECT_EQ(status, 1);
    EXPECT_EQ(script.Calls(), (Calls{{"eth1"}}));
}

// Target programs run in cross builds too, where the kernel cannot start
// them by itself.
TEST(TargetCommand, RunsTargetPrograms) {
    int status = -1;
    EXPECT_EQ(RunAndRead(kt::TargetCommand(KIRA_BINARY_DIR "/tests/harness_tests") +
                             " --gtest_filter=UniqueName.* --gtest_brief=1 >/dev/null; echo $?",
                         &status),
              "0\n");
}

}  // namespace
