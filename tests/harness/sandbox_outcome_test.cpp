// How the parent judges a sandboxed body: results come back with their
// place, and crashes, hangs, early exits and leaks fail the test instead of
// the runner.

#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include "os/base/kira_raii.h"
#include <gtest/gtest-spi.h>

#include "tests/support/sandbox.h"
#include "tests/support/sandbox_internal.h"

namespace {

using Kind = kt::SandboxOutcome::Kind;

#define REQUIRE_SANDBOX() \
    if (!kt::SandboxAvailable()) GTEST_SKIP() << "needs root and mount namespaces"

TEST(SandboxOutcome, ResultsComeBackWithFileLineAndText) {
    REQUIRE_SANDBOX();
    EXPECT_EQ(kt::RunSandboxedOutcome([] {}).kind, Kind::kPassed);

    auto body = [] { ADD_FAILURE() << "first problem"; EXPECT_EQ(1, 2) << "second problem"; };
    const int expected_line = __LINE__ - 1;
    kt::SandboxOutcome failed = kt::RunSandboxedOutcome(body);
    EXPECT_EQ(failed.kind, Kind::kFailed);
    ASSERT_EQ(failed.reports.size(), 2u);
    EXPECT_EQ(failed.reports[0].type, ::testing::TestPartResult::kNonFatalFailure);
    EXPECT_EQ(failed.reports[0].file, __FILE__);
    EXPECT_EQ(failed.reports[0].line, expected_line);
    EXPECT_NE(failed.reports[0].message.find("first problem"), std::string::npos);
    EXPECT_NE(failed.reports[1].message.find("second problem"), std::string::npos);

    kt::SandboxOutcome fatal = kt::RunSandboxedOutcome([] { ASSERT_TRUE(false) << "stop here"; });
    EXPECT_EQ(fatal.kind, Kind::kFailed);
    ASSERT_EQ(fatal.reports.size(), 1u);
    EXPECT_EQ(fatal.reports[0].type, ::testing::TestPartResult::kFatalFailure);

    kt::SandboxOutcome skipped = kt::RunSandboxedOutcome([] { GTEST_SKIP() << "not here"; });
    EXPECT_EQ(skipped.kind, Kind::kSkipped);
    ASSERT_EQ(skipped.reports.size(), 1u);
    EXPECT_EQ(skipped.reports[0].type, ::testing::TestPartResult::kSkip);
}

// A child killed while writing leaves a cut-off record; lengths in it must
// not be trusted.
TEST(SandboxOutcome, CutOffResultRecordsAreDropped) {
    const std::string huge_lengths(40, '\xff');
    EXPECT_TRUE(kt::internal::ParseReports(huge_lengths).empty());
    EXPECT_TRUE(kt::internal::ParseReports(std::string(11, '\0')).empty());
    std::string one_empty(16, '\0');  // type 0, line 0, empty file, empty message
    EXPECT_EQ(kt::internal::ParseReports(one_empty).size(), 1u);
    EXPECT_EQ(kt::internal::ParseReports(one_empty + one_empty.substr(0, 15)).size(), 1u);
}

// More failure text than a pipe holds: the parent must read while the child
// is still running, or both wait forever.
TEST(SandboxOutcome, ManyLongFailuresDoNotStallTheChild) {
    REQUIRE_SANDBOX();
    kt::SandboxOptions opts;
    opts.timeout_s = 20;
    kt::SandboxOutcome out = kt::RunSandboxedOutcome(
        [] {
            const std::string filler(2000, 'x');
            for (int i = 0; i < 100; ++i) ADD_FAILURE() << i << filler;
        },
        opts);
    EXPECT_EQ(out.kind, Kind::kFailed);
    ASSERT_EQ(out.reports.size(), 100u);
    EXPECT_NE(out.reports[99].message.find("\n99xxx"), std::string::npos);
}

TEST(SandboxOutcome, CrashIsReportedWithSignalAndBacktrace) {
    REQUIRE_SANDBOX();
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC | O_NONBLOCK), 0);
    kira::UniqueFd rd(fds[0]);
    kira::UniqueFd wr(fds[1]);
    const int err_fd = wr.get();
    kt::SandboxOutcome out = kt::RunSandboxedOutcome([err_fd] {
        dup2(err_fd, STDERR_FILENO);
        abort();
    });
    wr.reset();
    EXPECT_EQ(out.kind, Kind::kCrashed);
    EXPECT_EQ(out.status, SIGABRT);
    EXPECT_NE(out.message.find("sandboxed test crashed: signal 6"), std::string::npos) << out.message;
    char buf[4096] = {};
    ssize_t n = read(rd.get(), buf, sizeof buf - 1);
    ASSERT_GT(n, 0);
    EXPECT_NE(std::string(buf).find("died of ABRT; backtrace:"), std::string::npos) << buf;
}

TEST(SandboxOutcome, HangIsKilledAtTheLimit) {
    REQUIRE_SANDBOX();
    kt::SandboxOptions opts;
    opts.timeout_ms = 300;
    const auto start = std::chrono::steady_clock::now();
    kt::SandboxOutcome out = kt::RunSandboxedOutcome(
        [] {
            for (;;) pause();
        },
        opts);
    const auto took = std::chrono::steady_clock::now() - start;
    EXPECT_EQ(out.kind, Kind::kTimedOut);
    EXPECT_EQ(out.message.rfind("sandboxed test timed out", 0), 0u) << out.message;
    EXPECT_GE(took, std::chrono::milliseconds(300));
    EXPECT_LT(took, std::chrono::seconds(10));
}

TEST(SandboxOutcome, ExitBeforeTheBodyReturnsIsAFailure) {
    REQUIRE_SANDBOX();
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
    kira::UniqueFd rd(fds[0]);
    kira::UniqueFd wr(fds[1]);
    const int out_fd = wr.get();
    EXPECT_EQ(kt::RunSandboxedOutcome([out_fd] {
                  pid_t pid = fork();
                  if (pid == 0) {
                      for (;;) pause();
                  }
                  ASSERT_EQ(write(out_fd, &pid, sizeof pid), static_cast<ssize_t>(sizeof pid));
              }).kind,
              Kind::kPassed);
    wr.reset();
    pid_t left = 0;
    ASSERT_EQ(read(rd.get(), &left, sizeof left), static_cast<ssize_t>(sizeof left));
    const std::string status_path = "/proc/" + std::to_string(left) + "/status";
    for (int i = 0; i < 200 && kt::ReadFile(status_path).find("State:\tZ") == std::string::npos &&
                    !kt::ReadFile(status_path).empty();
         ++i) {
        usleep(10000);
    }
    const std::string status = kt::ReadFile(status_path);
    EXPECT_TRUE(status.empty() || status.find("State:\tZ") != std::string::npos) << status;
}

#if defined(__SANITIZE_ADDRESS__)
TEST(SandboxOutcome, LeakInTheBodyIsReported) {
    REQUIRE_SANDBOX();
    kt::SandboxOutcome out = kt::RunSandboxedOutcome([] {
        // In a thread that is gone afterwards, so no stale copy of the
        // pointer stays on a stack the leak check scans.
        std::thread([] {
            void* volatile block = malloc(64);
            EXPECT_NE(block, nullptr);
        }).join();
    });
    EXPECT_EQ(out.kind, Kind::kLeaked);
}
#endif

// RunSandboxed re-reports what happened in its child as failures of the
// calling test; run it in a sandbox of its own to look at them.
TEST(SandboxOutcome, RunSandboxedFailsTheCallingTest) {
    REQUIRE_SANDBOX();
    int line = 0;
    auto reports_of = [&line](void (*inner)()) {
        return kt::RunSandboxedOutcome([inner] { kt::RunSandboxed(inner); }).reports;
    };
    std::vector<kt::SandboxReport> r = reports_of([] { ADD_FAILURE() << "reported from the child"; });
    line = __LINE__ - 1;
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(r[0].type, ::testing::TestPartResult::kNonFatalFailure);
    EXPECT_EQ(r[0].line, line);
    EXPECT_NE(r[0].message.find("reported from the child"), std::string::npos);

    r = reports_of([] { FAIL() << "fatal in the child"; });
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(r[0].type, ::testing::TestPartResult::kFatalFailure);

    r = reports_of([] { GTEST_SKIP() << "skipped in the child"; });
    ASSERT_EQ(r.size(), 1u);
    EXPECT_EQ(r[0].type, ::testing::TestPartResult::kSkip);

    r = reports_of([] { abort(); });
    ASSERT_EQ(r.size(), 1u);
    EXPECT_NE(r[0].message.find("sandboxed test crashed: signal 6"), std::string::npos);
}

}  // namespace
