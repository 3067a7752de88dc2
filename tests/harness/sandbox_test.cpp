// The sandbox: what a body sees and leaves behind, how the parent judges it,
// and the syslog capture behind /dev/log.

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <net/if.h>
#include <signal.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "os/base/kira_raii.h"
#include <gtest/gtest-spi.h>

#include "tests/support/sandbox.h"
#include "tests/support/sandbox_internal.h"

namespace {

using Kind = kt::SandboxOutcome::Kind;
using Result = ::testing::TestPartResult;

#define REQUIRE_SANDBOX() \
    if (!kt::SandboxAvailable()) GTEST_SKIP() << "needs root and mount namespaces"

bool Exists(const std::string& path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

std::vector<std::string> Entries(const std::string& dir) {
    std::vector<std::string> names;
    DIR* d = opendir(dir.c_str());
    while (struct dirent* e = d ? readdir(d) : nullptr) {
        if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) names.push_back(e->d_name);
    }
    if (d) closedir(d);
    return names;
}

std::string ThreadsLine() {
    const std::string status = kt::ReadFile("/proc/self/status");
    const size_t at = status.find("\nThreads:");
    return at == std::string::npos ? "" : status.substr(at, status.find('\n', at + 1) - at);
}

// Code under test counts its threads, waits for any child and writes where it
// likes: the harness must add no thread or child, and every write must vanish.
TEST(SandboxIsolation, PrivateRootFreshDirectoriesNoHarnessThreadOrChild) {
    REQUIRE_SANDBOX();
    const std::string name = kt::UniqueName("kt");
    static const char* const kWritable[] = {"/etc/", "/ZUK/", "/tmp/", "/dev/shm/", "/var/run/", "/usr/"};
    const bool host_has_log = Exists("/dev/log");
    const std::string threads_outside = ThreadsLine();
    kt::RunSandboxed([threads_outside, name] {
        for (const char* dir : {"/ZUK", "/etc/nox", "/startup_disk", "/tmp", "/dev/shm"}) {
            EXPECT_TRUE(Exists(dir + std::string("/."))) << dir;
            // A build tree under /tmp is bound back in, so it shows there.
            if (strcmp(dir, "/tmp") != 0 ||
                (strncmp(KIRA_BINARY_DIR, "/tmp/", 5) != 0 && strncmp(KIRA_SOURCE_DIR, "/tmp/", 5) != 0)) {
                EXPECT_TRUE(Entries(dir).empty()) << dir;
            }
        }
        EXPECT_EQ(getuid(), 0u);
        for (const char* f : {KIRA_SOURCE_DIR "/CMakeLists.txt", KIRA_BINARY_DIR "/CMakeCache.txt", "/etc/passwd",
                              "/proc/self/status"}) {
            EXPECT_FALSE(kt::ReadFile(f).empty()) << f;
        }
        kt::WriteFile("/dev/null", "discarded");  // /dev is private but its devices work
        EXPECT_EQ(kt::ReadFile("/dev/null"), "");
#if !defined(__SANITIZE_THREAD__)  // its runtime starts a thread of its own at will
        EXPECT_EQ(ThreadsLine(), threads_outside);
#endif
        errno = 0;
        EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
        EXPECT_EQ(errno, ECHILD);
        syslog(LOG_INFO, "still captured");
        EXPECT_EQ(kt::SyslogCount("still captured"), 1);
        for (const char* dir : kWritable) {
            kt::WriteFile(dir + name, "x");
            EXPECT_EQ(kt::ReadFile(dir + name), "x") << dir;
        }
        kt::WriteFile("/etc/new_dir_" + name + "/f", "x");
        kt::BindFileOver("/proc/stat", "cpu  1 2 3 4 5 6 7 0 0 0\n");
        kt::BindFileOver("/proc/meminfo", "MemTotal: 100 kB\n");
        EXPECT_EQ(kt::ReadFile("/proc/stat"), "cpu  1 2 3 4 5 6 7 0 0 0\n");
        EXPECT_EQ(kt::ReadFile("/proc/meminfo"), "MemTotal: 100 kB\n");
        kt::BindFileOver("/proc/stat", "second\n");
        EXPECT_EQ(kt::ReadFile("/proc/stat"), "second\n");
    });
    for (const char* dir : kWritable) EXPECT_FALSE(Exists(dir + name)) << dir;
    EXPECT_FALSE(Exists("/etc/new_dir_" + name));
    EXPECT_EQ(Exists("/dev/log"), host_has_log);
    EXPECT_EQ(kt::ReadFile("/proc/stat").compare(0, 4, "cpu "), 0);
    EXPECT_EQ(kt::ReadFile("/proc/meminfo").compare(0, 9, "MemTotal:"), 0);
}

TEST(SandboxIsolation, NewNetworkNamespaceHasOnlyLoopbackUp) {
    REQUIRE_SANDBOX();
    kt::SandboxOptions opts;
    opts.new_net = true;
    kt::RunSandboxed(
        [] {
            EXPECT_EQ(Entries("/sys/class/net"), std::vector<std::string>{"lo"});
            EXPECT_NE(std::stoul(kt::ReadFile("/sys/class/net/lo/flags"), nullptr, 16) & IFF_UP, 0u);
        },
        opts);
}

TEST(SandboxIsolation, SandboxOnlyHelpersRefuseOutside) {
    EXPECT_FALSE(kt::InSandbox());
    EXPECT_NONFATAL_FAILURE(kt::BindFileOver("/proc/stat", "x"), "inside a sandboxed body only");
    EXPECT_NONFATAL_FAILURE(kt::FakeCommand("hwclock"), "inside a sandboxed body only");
    EXPECT_NONFATAL_FAILURE(kt::SyslogLines(), "inside a sandboxed body only");
}

// Results come back with their place, directly and re-reported by RunSandboxed
// as the calling test's own (nested in an outcome run to look at them).
TEST(SandboxOutcome, ResultsComeBackWithKindPlaceAndText) {
    REQUIRE_SANDBOX();
    EXPECT_EQ(kt::RunSandboxedOutcome([] {}).kind, Kind::kPassed);
    struct Case {
        void (*body)();
        int line;
        Kind kind;
        Result::Type type;
        size_t count;
        const char* first;
        const char* last;
    };
    // Each body stays on its case's line: the reported line is compared with __LINE__.
    // clang-format off
    const Case cases[] = {
        {[] { ADD_FAILURE() << "first"; EXPECT_EQ(1, 2) << "second"; }, __LINE__, Kind::kFailed, Result::kNonFatalFailure, 2, "first", "second"},
        {[] { ASSERT_TRUE(false) << "stop here"; }, __LINE__, Kind::kFailed, Result::kFatalFailure, 1, "stop here", ""},
        {[] { GTEST_SKIP() << "not here"; }, __LINE__, Kind::kSkipped, Result::kSkip, 1, "not here", ""},
        // A crash is the parent's own message, re-reported as a plain failure.
        {[] { abort(); }, 0, Kind::kCrashed, Result::kNonFatalFailure, 0, "sandboxed test crashed: signal 6", ""},
    };
    // clang-format on
    for (const Case& c : cases) {
        const kt::SandboxOutcome direct = kt::RunSandboxedOutcome(c.body);
        const auto nested = kt::RunSandboxedOutcome([&c] { kt::RunSandboxed(c.body); }).reports;
        EXPECT_EQ(direct.kind, c.kind) << c.first;
        ASSERT_EQ(direct.reports.size(), c.count) << c.first;
        ASSERT_EQ(nested.size(), std::max<size_t>(c.count, 1)) << c.first;
        if (c.count == 0) {
            EXPECT_EQ(direct.status, SIGABRT);
            EXPECT_NE(direct.message.find(c.first), std::string::npos) << direct.message;
        }
        for (const auto* reports : {&direct.reports, &nested}) {
            if (reports->empty()) continue;
            EXPECT_EQ(reports->front().type, c.type) << c.first;
            EXPECT_NE(reports->front().message.find(c.first), std::string::npos) << reports->front().message;
            EXPECT_NE(reports->back().message.find(c.last), std::string::npos) << reports->back().message;
            if (c.line == 0) continue;
            EXPECT_EQ(reports->front().file, __FILE__);
            EXPECT_EQ(reports->front().line, c.line);
        }
    }
}

// A child killed while writing leaves a cut-off record whose lengths are not to be trusted.
TEST(SandboxOutcome, CutOffResultRecordsAreDropped) {
    EXPECT_TRUE(kt::internal::ParseReports(std::string(40, '\xff')).empty());
    EXPECT_TRUE(kt::internal::ParseReports(std::string(11, '\0')).empty());
    const std::string one_empty(16, '\0');  // type 0, line 0, empty file, empty message
    EXPECT_EQ(kt::internal::ParseReports(one_empty).size(), 1u);
    EXPECT_EQ(kt::internal::ParseReports(one_empty + one_empty.substr(0, 15)).size(), 1u);
}

// More failure text than a pipe holds: unless the parent reads while the child runs, both wait forever.
TEST(SandboxOutcome, ManyLongFailuresDoNotStallTheChild) {
    REQUIRE_SANDBOX();
    kt::SandboxOptions opts;
    opts.timeout_s = 20;
    kt::SandboxOutcome out = kt::RunSandboxedOutcome(
        [] {
            for (int i = 0; i < 100; ++i) ADD_FAILURE() << i << std::string(2000, 'x');
        },
        opts);
    EXPECT_EQ(out.kind, Kind::kFailed);
    ASSERT_EQ(out.reports.size(), 100u);
    EXPECT_NE(out.reports[99].message.find("\n99xxx"), std::string::npos);
}

TEST(SandboxOutcome, CrashPrintsBacktraceHangIsKilledEarlyExitFails) {
    REQUIRE_SANDBOX();
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC | O_NONBLOCK), 0);
    kira::UniqueFd rd(fds[0]), wr(fds[1]);
    const int err_fd = wr.get();
    EXPECT_EQ(kt::RunSandboxedOutcome([err_fd] {
                  dup2(err_fd, STDERR_FILENO);
                  abort();
              }).kind,
              Kind::kCrashed);
    wr.reset();
    char buf[4096] = {};
    ASSERT_GT(read(rd.get(), buf, sizeof buf - 1), 0);
    EXPECT_NE(std::string(buf).find("died of ABRT; backtrace:"), std::string::npos) << buf;

    kt::SandboxOptions opts;
    opts.timeout_ms = 300;
    const auto start = std::chrono::steady_clock::now();
    kt::SandboxOutcome hung = kt::RunSandboxedOutcome(
        [] {
            for (;;) pause();
        },
        opts);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(hung.kind, Kind::kTimedOut);
    EXPECT_EQ(hung.message.rfind("sandboxed test timed out", 0), 0u) << hung.message;
    EXPECT_GE(took, std::chrono::milliseconds(300));
    EXPECT_LT(took, std::chrono::seconds(10));

    kt::SandboxOutcome zero = kt::RunSandboxedOutcome([] { exit(0); });
    EXPECT_EQ(zero.kind, Kind::kExited);
    EXPECT_EQ(zero.status, 0);
    EXPECT_EQ(kt::RunSandboxedOutcome([] { _exit(3); }).status, 3);
}

// Whatever the body started dies with it, so no test leaves processes.
TEST(SandboxOutcome, ProcessesLeftBehindAreKilled) {
    REQUIRE_SANDBOX();
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
    kira::UniqueFd rd(fds[0]), wr(fds[1]);
    const int out_fd = wr.get();
    EXPECT_EQ(kt::RunSandboxedOutcome([out_fd] {
                  pid_t pid = fork();
                  while (pid == 0) pause();
                  ASSERT_EQ(write(out_fd, &pid, sizeof pid), static_cast<ssize_t>(sizeof pid));
              }).kind,
              Kind::kPassed);
    wr.reset();
    pid_t left = 0;
    ASSERT_EQ(read(rd.get(), &left, sizeof left), static_cast<ssize_t>(sizeof left));
    const std::string status_path = "/proc/" + std::to_string(left) + "/status";
    std::string status = kt::ReadFile(status_path);
    for (int i = 0; i < 200 && !status.empty() && status.find("State:\tZ") == std::string::npos; ++i) {
        usleep(10000);
        status = kt::ReadFile(status_path);
    }
    EXPECT_TRUE(status.empty() || status.find("State:\tZ") != std::string::npos) << status;
}

#if defined(__SANITIZE_ADDRESS__)
TEST(SandboxOutcome, LeakInTheBodyIsReported) {
    REQUIRE_SANDBOX();
    // Leaked from a finished thread, so no stale copy of the pointer stays on a scanned stack.
    EXPECT_EQ(kt::RunSandboxedOutcome([] {
                  std::thread([] {
                      void* volatile block = malloc(64);
                      (void)block;
                  }).join();
              }).kind,
              Kind::kLeaked);
}
#endif

std::string Str(const kt::SyslogLine& l) { return std::to_string(l.priority) + "|" + l.ident + "|" + l.message; }

TEST(SyslogParse, GlibcDatagramForms) {
    const std::pair<std::string, std::string> cases[] = {
        // Only the first ": " ends the ident.
        {"<11>Nov  1 05:06:07 prog[123]: Open failed(x): y\n", "3|prog|Open failed(x): y\n"},
        {"<190>Dec 31 23:59:59 tag: text", "6|tag|text"},                        // facility local7, info
        {"<8>Jan 10 00:00:00 x[y]: <3>kernel-style", "0|x[y]|<3>kernel-style"},  // not a pid: kept
        {"no header at all", "-1||no header at all"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(Str(kt::internal::ParseSyslogDatagram(c.first.data(), c.first.size())), c.second);
    }
}

SANDBOX_TEST(SyslogCapture, PrioritiesIdentsTextsInOrderBurstsAndShells) {
    syslog(LOG_INFO, "%s: first %d", "KIRA_Func", 1);
    syslog(LOG_EMERG, "timer fault");
    syslog(LOG_WARNING | LOG_DAEMON, "suppressed 5 lines\n");
    openlog("kt-ident", LOG_PID, LOG_USER);
    syslog(LOG_ERR, "with pid");
    closelog();
    std::vector<std::string> lines;
    for (const auto& l : kt::SyslogLines()) lines.push_back(Str(l));
    const std::string me = program_invocation_short_name;
    EXPECT_EQ(lines, (std::vector<std::string>{"6|" + me + "|KIRA_Func: first 1", "0|" + me + "|timer fault",
                                               "4|" + me + "|suppressed 5 lines\n", "3|kt-ident|with pid"}));
    EXPECT_EQ((std::vector<int>{kt::SyslogCount("first"), kt::SyslogCount("first", 6), kt::SyslogCount("first", 3)}),
              (std::vector<int>{1, 1, 0}));
    kt::SyslogClear();
    EXPECT_TRUE(kt::SyslogLines().empty());
    // Only 10 datagrams may wait unread; glibc's syslog() blocks on the 11th.
    for (int i = 0; i < 40; ++i) syslog(LOG_INFO, "burst %d", i);
    std::vector<kt::SyslogLine> burst = kt::SyslogLines();
    ASSERT_EQ(burst.size(), 40u);
    for (int i = 0; i < 40; ++i) EXPECT_EQ(burst[i].message, "burst " + std::to_string(i));
    if (system("command -v logger >/dev/null 2>&1") != 0) GTEST_SKIP() << "logger is not installed";
    ASSERT_EQ(system("sh -c 'logger -p user.err kt-from-shell'"), 0);  // child shells are captured too
    EXPECT_EQ(kt::SyslogCount("kt-from-shell", 3), 1);
}

}  // namespace
