// What a sandboxed body sees and what it leaves behind: a private root whose
// writes vanish, fresh fixed directories, the build trees, /proc overrides
// and an optional network namespace.

#include <dirent.h>
#include <errno.h>
#include <net/if.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <gtest/gtest-spi.h>

#include "tests/support/sandbox.h"

namespace {

bool Exists(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

std::vector<std::string> Entries(const std::string& dir) {
    std::vector<std::string> names;
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) return names;
    while (struct dirent* e = readdir(d)) {
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) names.push_back(e->d_name);
    }
    closedir(d);
    return names;
}

TEST(SandboxIsolation, WritesVanishWithTheChild) {
    if (!kt::SandboxAvailable()) GTEST_SKIP() << "needs root and mount namespaces";
    static std::string name;
    name = kt::UniqueName("kt");
    const bool host_has_log = Exists("/dev/log");
    kt::RunSandboxed([] {
        for (const char* dir : {"/etc/", "/ZUK/", "/tmp/", "/dev/shm/", "/var/run/", "/usr/"}) {
            kt::WriteFile(dir + name, "x");
            EXPECT_EQ(kt::ReadFile(dir + name), "x") << dir;
        }
        kt::WriteFile("/etc/new_dir_" + name + "/f", "x");
    });
    for (const char* dir : {"/etc/", "/ZUK/", "/tmp/", "/dev/shm/", "/var/run/", "/usr/"}) {
        EXPECT_FALSE(Exists(dir + name)) << dir;
    }
    EXPECT_FALSE(Exists("/etc/new_dir_" + name));
    EXPECT_EQ(Exists("/dev/log"), host_has_log);
}

SANDBOX_TEST(SandboxIsolation, FixedDirectoriesAreFreshAndEmpty) {
    for (const char* dir : {"/ZUK", "/etc/nox", "/startup_disk", "/tmp", "/dev/shm"}) {
        struct stat st;
        ASSERT_EQ(stat(dir, &st), 0) << dir;
        EXPECT_TRUE(S_ISDIR(st.st_mode)) << dir;
        // A build tree under /tmp is bound back in, so it shows there.
        if (strcmp(dir, "/tmp") != 0 || (strncmp(KIRA_BINARY_DIR, "/tmp/", 5) != 0 &&
                                           strncmp(KIRA_SOURCE_DIR, "/tmp/", 5) != 0)) {
            EXPECT_TRUE(Entries(dir).empty()) << dir;
        }
    }
    EXPECT_EQ(getuid(), 0u);
    // The trees the tests read from stay reachable, and ordinary host files too.
    EXPECT_FALSE(kt::ReadFile(KIRA_SOURCE_DIR "/CMakeLists.txt").empty());
    EXPECT_FALSE(kt::ReadFile(KIRA_BINARY_DIR "/CMakeCache.txt").empty());
    EXPECT_FALSE(kt::ReadFile("/etc/passwd").empty());
    EXPECT_FALSE(kt::ReadFile("/proc/self/status").empty());
    // /dev is private but its devices work.
    kt::WriteFile("/dev/null", "discarded");
    EXPECT_EQ(kt::ReadFile("/dev/null"), "");
}

std::string ThreadsLine() {
    const std::string status = kt::ReadFile("/proc/self/status");
    size_t at = status.find("\nThreads:");
    return at == std::string::npos ? "" : status.substr(at, status.find('\n', at + 1) - at);
}

// Code under test may count its threads or wait for any child: the harness
// adds neither to the body's process. (An emulator may have threads of its
// own, as in the test process.)
TEST(SandboxIsolation, BodyHasNoHarnessThreadOrChild) {
    if (!kt::SandboxAvailable()) GTEST_SKIP() << "needs root and mount namespaces";
    const std::string threads_outside = ThreadsLine();
    kt::RunSandboxed([threads_outside] {
#if !defined(__SANITIZE_THREAD__)  // its runtime starts a thread of its own at will
        EXPECT_EQ(ThreadsLine(), threads_outside);
#endif
        errno = 0;
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
        EXPECT_EQ(errno, ECHILD);
        syslog(LOG_INFO, "still captured");
        EXPECT_EQ(kt::SyslogCount("still captured"), 1);
    });
}

TEST(SandboxIsolation, ProcFilesCanBeReplaced) {
    if (!kt::SandboxAvailable()) GTEST_SKIP() << "needs root and mount namespaces";
    kt::RunSandboxed([] {
        kt::BindFileOver("/proc/stat", "cpu  1 2 3 4 5 6 7 0 0 0\n");
        kt::BindFileOver("/proc/meminfo", "MemTotal: 100 kB\n");
        EXPECT_EQ(kt::ReadFile("/proc/stat"), "cpu  1 2 3 4 5 6 7 0 0 0\n");
        EXPECT_EQ(kt::ReadFile("/proc/meminfo"), "MemTotal: 100 kB\n");
        kt::BindFileOver("/proc/stat", "second\n");
        EXPECT_EQ(kt::ReadFile("/proc/stat"), "second\n");
    });
    EXPECT_EQ(kt::ReadFile("/proc/stat").compare(0, 4, "cpu "), 0);
    EXPECT_EQ(kt::ReadFile("/proc/meminfo").compare(0, 9, "MemTotal:"), 0);
}

TEST(SandboxIsolation, NewNetworkNamespaceHasOnlyLoopbackUp) {
    if (!kt::SandboxAvailable()) GTEST_SKIP() << "needs root and mount namespaces";
    kt::SandboxOptions opts;
    opts.new_net = true;
    kt::RunSandboxed(
        [] {
            EXPECT_EQ(Entries("/sys/class/net"), std::vector<std::string>{"lo"});
            unsigned flags = std::stoul(kt::ReadFile("/sys/class/net/lo/flags"), nullptr, 16);
            EXPECT_NE(flags & IFF_UP, 0u);
        },
        opts);
}

TEST(SandboxIsolation, SandboxOnlyHelpersRefuseOutside) {
    EXPECT_FALSE(kt::InSandbox());
    EXPECT_NONFATAL_FAILURE(kt::BindFileOver("/proc/stat", "x"), "inside a sandboxed body only");
    EXPECT_NONFATAL_FAILURE(kt::FakeCommand("hwclock"), "inside a sandboxed body only");
    EXPECT_NONFATAL_FAILURE(kt::SyslogLines(), "inside a sandboxed body only");
}

}  // namespace
