// Child processes with exact names and command lines, and unique names.

#include <dirent.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include <gtest/gtest-spi.h>

#include <set>

#include "tests/support/sandbox.h"

namespace {

std::string Proc(pid_t pid, const char* what) { return kt::ReadFile("/proc/" + std::to_string(pid) + "/" + what); }

bool Gone(pid_t pid) { return Proc(pid, "cmdline").empty(); }

SANDBOX_TEST(Child, ExactNameAndCommandLine) {
    const std::string name = kt::UniqueName("ktc");
    kt::Child c(name, {"any text here", "", "x\ty", "\xe4\xb8\xad"});
    ASSERT_GT(c.pid(), 0);
    static const char kCmdline[] = "any text here\0\0x\ty\0\xe4\xb8\xad";
    EXPECT_EQ(Proc(c.pid(), "cmdline"), std::string(kCmdline, sizeof kCmdline));
    EXPECT_EQ(Proc(c.pid(), "comm"), name + "\n");
    EXPECT_NE(Proc(c.pid(), "status").find("Name:\t" + name + "\n"), std::string::npos);

    // The kernel keeps 15 characters of the name; the command line is whole.
    kt::Child longer("a_rather_long_process_name", {});
    EXPECT_EQ(Proc(longer.pid(), "comm"), "a_rather_long_p\n");
    EXPECT_EQ(Proc(longer.pid(), "cmdline"), std::string("a_rather_long_process_name\0", 27));
}

// Watched processes must be native, whatever the test binary's platform,
// and hold no descriptor of the test.
SANDBOX_TEST(Child, IsTheNativeSleeperWithStandardDescriptorsOnly) {
    kt::Child c(kt::UniqueName("ktn"), {"x"});
    char exe[4096] = {};
    ASSERT_GT(readlink(("/proc/" + std::to_string(c.pid()) + "/exe").c_str(), exe, sizeof exe - 1), 0);
    EXPECT_NE(strstr(exe, "kira_sleeper"), nullptr) << exe;
    DIR* d = opendir(("/proc/" + std::to_string(c.pid()) + "/fd").c_str());
    ASSERT_NE(d, nullptr);
    while (struct dirent* e = readdir(d)) {
        if (e->d_name[0] != '.') {
            EXPECT_LE(atoi(e->d_name), 2) << e->d_name;
        }
    }
    closedir(d);
}

SANDBOX_TEST(Child, KillMoveAndDestructorReap) {
    kt::Child a(kt::UniqueName("ktk"), {"a"});
    const pid_t pid_a = a.pid();
    a.Kill();
    EXPECT_EQ(a.pid(), -1);
    EXPECT_TRUE(Gone(pid_a));

    pid_t pid_b = -1;
    {
        kt::Child b(kt::UniqueName("ktk"), {"b"});
        kt::Child moved(std::move(b));
        EXPECT_EQ(b.pid(), -1);
        pid_b = moved.pid();
        EXPECT_FALSE(Gone(pid_b));
    }
    EXPECT_TRUE(Gone(pid_b));

    // A plain SIGTERM ends it too: the sleeper keeps default dispositions.
    kt::Child c(kt::UniqueName("ktk"), {"c"});
    ASSERT_EQ(kill(c.pid(), SIGTERM), 0);
    for (int i = 0; i < 500 && Proc(c.pid(), "status").find("State:\tZ") == std::string::npos; ++i) usleep(2000);
    EXPECT_NE(Proc(c.pid(), "status").find("State:\tZ"), std::string::npos);
}

SANDBOX_TEST(Child, BadKernelNameIsRefused) {
    EXPECT_NONFATAL_FAILURE(kt::Child("a/b", {"x"}), "kernel name must be");
    EXPECT_NONFATAL_FAILURE(kt::Child("", {"x"}), "kernel name must be");
}

TEST(UniqueName, DistinctShortAndPrefixed) {
    std::set<std::string> seen;
    for (int i = 0; i < 2000; ++i) {
        std::string n = kt::UniqueName("hb");
        ASSERT_EQ(n.compare(0, 3, "hb_"), 0) << n;
        EXPECT_GE(n.size(), 9u);
        EXPECT_EQ(n.find_first_not_of("hb_0123456789abcdefghijklmnopqrstuvwxyz"), std::string::npos) << n;
        seen.insert(n);
    }
    EXPECT_EQ(seen.size(), 2000u);
    EXPECT_LE(kt::UniqueName("123456").size(), 15u);  // a stem of 6 fits a kernel name
}

}  // namespace
