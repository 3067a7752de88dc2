// Running a test body in a sandboxed child and judging how it ended.
//
// Parent: fork, then wait on a pidfd (or poll) up to the time limit while
// reading the child's gtest results from a pipe; kill the child's process
// group at the end so nothing it started outlives the test.
// Child: own process group, dies with the parent, builds the sandbox, and
// forks the body, whose gtest results go to the parent instead of being
// printed; ends with a code saying how the body ended.

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "os/base/kira_raii.h"
#include "tests/support/sandbox_internal.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#define KT_LEAK_CHECK 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#include <sanitizer/lsan_interface.h>
#define KT_LEAK_CHECK 1
#endif
#endif

namespace kt {
namespace {

using internal::kExitFailed;
using internal::kExitLeaked;
using internal::kExitPassed;
using internal::kExitSetupFailed;
using internal::kExitSkipped;

int BodyExitCode() {
    if (internal::BodyFailures() > 0) return kExitFailed;
    if (internal::BodySkips() > 0) return kExitSkipped;
#ifdef KT_LEAK_CHECK
    if (__lsan_do_recoverable_leak_check() != 0) return kExitLeaked;
#endif
    return kExitPassed;
}

// Ends this process the way `status` says the body ended.
[[noreturn]] void ExitLike(int status) {
    if (WIFSIGNALED(status)) {
        const int sig = WTERMSIG(status);
        ::signal(sig, SIG_DFL);
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, sig);
        ::sigprocmask(SIG_UNBLOCK, &set, nullptr);
        ::raise(sig);
    }
    ::_exit(WIFEXITED(status) ? WEXITSTATUS(status) : kExitSetupFailed);
}

[[noreturn]] void RunBody(pid_t supervisor, const std::function<void()>& body) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != supervisor) ::_exit(kExitSetupFailed);
    body();
    int code = BodyExitCode();
    fflush(nullptr);
    ::_exit(code);
}

// The sandboxed child forks once more: the body runs alone in its own
// process, single-threaded and with no child it did not start, while this
// one drains the syslog socket and then ends as the body did.
[[noreturn]] void RunChild(pid_t parent, int result_fd, const std::function<void()>& body, const SandboxOptions& opts) {
    ::setpgid(0, 0);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(kExitSetupFailed);
    internal::InstallCrashReporter();
    // What the body prints before a crash must not die in a buffer.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    internal::ForwardResultsTo(result_fd);
    std::string error;
    if (!internal::EnterSandbox(opts, &error)) {
        fprintf(stderr, "sandbox setup failed: %s\n", error.c_str());
        fflush(nullptr);
        ::_exit(kExitSetupFailed);
    }
    const pid_t supervisor = ::getpid();
    const pid_t pid = ::fork();
    if (pid == 0) RunBody(supervisor, body);
    if (pid < 0) {
        fprintf(stderr, "sandbox setup failed: %s\n", internal::ErrnoText("fork").c_str());
        ::_exit(kExitSetupFailed);
    }
    ExitLike(internal::DrainSyslogUntilExit(pid));
}

// ---- parent side ----

void DrainPipe(int fd, std::string* buf) {
    char chunk[4096];
    for (;;) {
        ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n > 0) {
            buf->append(chunk, static_cast<size_t>(n));
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        return;
    }
}

bool ChildExited(pid_t pid) {
    siginfo_t info;
    memset(&info, 0, sizeof info);
    // WNOWAIT keeps the zombie, so its process group id cannot be reused
    // before the group is killed.
    return ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == pid;
}

// Waits for the child up to the limit, collecting its results meanwhile (a
// full pipe would otherwise block a chatty child). False on time-out.
bool WaitChild(pid_t pid, int result_fd, int limit_ms, std::string* results) {
    kira::UniqueFd pidfd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    const int64_t deadline = internal::NowMs() + limit_ms;
    for (;;) {
        if (ChildExited(pid)) break;
        int64_t left = deadline - internal::NowMs();
        if (left <= 0) return false;
        struct pollfd fds[2] = {{result_fd, POLLIN, 0}, {pidfd.get(), POLLIN, 0}};
        // Without a pidfd the exit is noticed by polling in short steps.
        int wait_ms = pidfd.valid() ? static_cast<int>(left) : static_cast<int>(left < 2 ? left : 2);
        int n = ::poll(fds, pidfd.valid() ? 2 : 1, wait_ms);
        if (n > 0 && (fds[0].revents & POLLIN) != 0) DrainPipe(result_fd, results);
    }
    DrainPipe(result_fd, results);
    return true;
}

void JudgeStatus(int status, SandboxOutcome* out) {
    using Kind = SandboxOutcome::Kind;
    if (WIFSIGNALED(status)) {
        out->kind = Kind::kCrashed;
        out->status = WTERMSIG(status);
        out->message = std::string("sandboxed test crashed: signal ") + std::to_string(out->status) + " (" +
                       strsignal(out->status) + ")";
        return;
    }
    out->status = WEXITSTATUS(status);
    switch (out->status) {
        case kExitPassed:
            out->kind = Kind::kPassed;
            return;
        case kExitFailed:
            out->kind = Kind::kFailed;
            return;
        case kExitSkipped:
            out->kind = Kind::kSkipped;
            return;
        case kExitSetupFailed:
            out->kind = Kind::kSetupFailed;
            out->message = "sandbox setup failed (the child's reason is printed above)";
            return;
        case kExitLeaked:
            out->kind = Kind::kLeaked;
            out->message = "sandboxed test leaked memory (LeakSanitizer report above)";
            return;
        default:
            out->kind = Kind::kExited;
            out->message = "sandboxed test exited with status " + std::to_string(out->status) +
                           " before its body returned (exit() in the code under test, or a sanitizer's report above)";
            return;
    }
}

int LimitMs(const SandboxOptions& opts) { return opts.timeout_ms > 0 ? opts.timeout_ms : opts.timeout_s * 1000; }

}  // namespace

SandboxOutcome RunSandboxedOutcome(const std::function<void()>& body, const SandboxOptions& opts) {
    SandboxOutcome out;
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        out.kind = SandboxOutcome::Kind::kSetupFailed;
        out.message = internal::ErrnoText("pipe2");
        return out;
    }
    kira::UniqueFd rd(fds[0]);
    kira::UniqueFd wr(fds[1]);
    fflush(nullptr);
    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid < 0) {
        out.kind = SandboxOutcome::Kind::kSetupFailed;
        out.message = internal::ErrnoText("fork");
        return out;
    }
    if (pid == 0) {
        rd.reset();
        RunChild(parent, wr.get(), body, opts);
    }
    wr.reset();
    ::setpgid(pid, pid);  // also done by the child: whichever runs first wins
    ::fcntl(rd.get(), F_SETFL, O_NONBLOCK);
    std::string results;
    bool finished = WaitChild(pid, rd.get(), LimitMs(opts), &results);
    ::kill(-pid, SIGKILL);  // the whole group: processes the body left behind
    ::kill(pid, SIGKILL);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    DrainPipe(rd.get(), &results);
    out.reports = internal::ParseReports(results);
    if (finished) {
        JudgeStatus(status, &out);
    } else {
        out.kind = SandboxOutcome::Kind::kTimedOut;
        out.message = "sandboxed test timed out after " + std::to_string(LimitMs(opts)) + " ms";
    }
    return out;
}

void RunSandboxed(const std::function<void()>& body, const SandboxOptions& opts) {
    SandboxOutcome out = RunSandboxedOutcome(body, opts);
    bool failure_reported = false;
    for (const SandboxReport& r : out.reports) {
        if (r.type != ::testing::TestPartResult::kSkip) failure_reported = true;
        ::testing::internal::AssertHelper(r.type, r.file.empty() ? nullptr : r.file.c_str(), r.line,
                                          r.message.c_str()) = ::testing::Message();
    }
    using Kind = SandboxOutcome::Kind;
    if (out.kind == Kind::kFailed && !failure_reported) {
        ADD_FAILURE() << "sandboxed test failed (its failure messages were lost)";
    } else if (out.kind != Kind::kPassed && out.kind != Kind::kFailed && out.kind != Kind::kSkipped) {
        ADD_FAILURE() << out.message;
    }
}

}  // namespace kt
