// Running a test body in a sandboxed child and judging how it ended.
//
// Parent: fork, then wait on a pidfd (or poll) up to the time limit while
// reading the child's gtest results from a pipe; kill the child's process
// group at the end so nothing it started outlives the test.
// Child: own process group, dies with the parent, builds the sandbox, runs
// the body with gtest results streamed to the parent instead of printed, and
// exits with a code saying how the body ended.

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

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

// ---- child side: gtest results travel to the parent through a pipe ----

void WriteAll(int fd, const std::string& data) {
    size_t done = 0;
    while (done < data.size()) {
        ssize_t n = ::write(fd, data.data() + done, data.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        done += static_cast<size_t>(n);
    }
}

void AppendU32(std::string* out, uint32_t v) { out->append(reinterpret_cast<const char*>(&v), sizeof v); }

// Record: type, line, file length, file, message length, message (host order:
// both ends are the same process image).
// The counts judge the body alone: the child inherits whatever the test
// recorded before the fork.
class ResultForwarder : public ::testing::EmptyTestEventListener {
public:
    explicit ResultForwarder(int fd) : fd_(fd) {}
    void OnTestPartResult(const ::testing::TestPartResult& r) override {
        if (r.type() == ::testing::TestPartResult::kSuccess) return;
        if (r.type() == ::testing::TestPartResult::kSkip) {
            skips_.fetch_add(1);
        } else {
            failures_.fetch_add(1);
        }
        const char* file = r.file_name() != nullptr ? r.file_name() : "";
        std::string rec;
        AppendU32(&rec, static_cast<uint32_t>(r.type()));
        AppendU32(&rec, static_cast<uint32_t>(r.line_number()));
        AppendU32(&rec, static_cast<uint32_t>(strlen(file)));
        rec += file;
        AppendU32(&rec, static_cast<uint32_t>(strlen(r.message())));
        rec += r.message();
        std::lock_guard<std::mutex> lock(mu_);
        WriteAll(fd_, rec);
    }

    int failures() const { return failures_.load(); }
    int skips() const { return skips_.load(); }

private:
    int fd_;
    std::mutex mu_;
    std::atomic<int> failures_{0};
    std::atomic<int> skips_{0};
};

// Owned by gtest's listener list; in a sandbox run from a sandboxed body,
// the enclosing run's forwarder is replaced, or results would reach both.
ResultForwarder* g_forwarder = nullptr;

ResultForwarder* ForwardResultsTo(int fd) {
    ::testing::TestEventListeners& listeners = ::testing::UnitTest::GetInstance()->listeners();
    // The parent prints what it receives; printing here too would show every
    // failure twice.
    delete listeners.Release(listeners.default_result_printer());
    if (g_forwarder != nullptr) delete listeners.Release(g_forwarder);
    g_forwarder = new ResultForwarder(fd);
    listeners.Append(g_forwarder);
    return g_forwarder;
}

int BodyExitCode(const ResultForwarder& results) {
    if (results.failures() > 0) return kExitFailed;
    if (results.skips() > 0) return kExitSkipped;
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

[[noreturn]] void RunBody(pid_t supervisor, const ResultForwarder& results, const std::function<void()>& body) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != supervisor) ::_exit(kExitSetupFailed);
    body();
    int code = BodyExitCode(results);
    fflush(nullptr);
    ::_exit(code);
}

// The sandboxed child forks once more: the body runs alone in its own
// process, single-threaded and with no child it did not start, while this
// one drains the syslog socket and then ends as the body did.
[[noreturn]] void RunChild(pid_t parent, int result_fd, const std::function<void()>& body,
                           const SandboxOptions& opts) {
    ::setpgid(0, 0);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(kExitSetupFailed);
    internal::InstallCrashReporter();
    // What the body prints before a crash must not die in a buffer.
    setvbuf(stdout, nullptr, _IOLBF, 0);
    const ResultForwarder* results = ForwardResultsTo(result_fd);
    std::string error;
    if (!internal::EnterSandbox(opts, &error)) {
        fprintf(stderr, "sandbox setup failed: %s\n", error.c_str());
        fflush(nullptr);
        ::_exit(kExitSetupFailed);
    }
    const pid_t supervisor = ::getpid();
    const pid_t pid = ::fork();
    if (pid == 0) RunBody(supervisor, *results, body);
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
    return ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == pid;
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

uint32_t TakeU32(const std::string& buf, size_t* pos) {
    uint32_t v = 0;
    memcpy(&v, buf.data() + *pos, sizeof v);
    *pos += sizeof v;
    return v;
}

std::vector<SandboxReport> ParseReports(const std::string& buf) {
    std::vector<SandboxReport> out;
    size_t pos = 0;
    while (buf.size() - pos >= 3 * sizeof(uint32_t)) {
        SandboxReport r;
        r.type = static_cast<::testing::TestPartResult::Type>(TakeU32(buf, &pos));
        r.line = static_cast<int>(TakeU32(buf, &pos));
        uint32_t flen = TakeU32(buf, &pos);
        if (buf.size() - pos < flen + sizeof(uint32_t)) break;
        r.file.assign(buf, pos, flen);
        pos += flen;
        uint32_t mlen = TakeU32(buf, &pos);
        if (buf.size() - pos < mlen) break;
        r.message.assign(buf, pos, mlen);
        pos += mlen;
        out.push_back(std::move(r));
    }
    return out;
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
        case kExitPassed: out->kind = Kind::kPassed; return;
        case kExitFailed: out->kind = Kind::kFailed; return;
        case kExitSkipped: out->kind = Kind::kSkipped; return;
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
    out.reports = ParseReports(results);
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
