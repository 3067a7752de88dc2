#ifndef TESTS_SUPPORT_SANDBOX_H
#define TESTS_SUPPORT_SANDBOX_H

// Test harness shared by every test executable.
//
// RunSandboxed forks a child, which enters a private mount namespace whose
// root is an overlay of the host's "/" (every write is copy-on-write and
// vanishes with the child), with fresh tmpfs at /dev/shm, /tmp, /ZUK,
// /etc/nox and /startup_disk, a private /dev/log socket drained into the
// syslog capture, and the build and source trees bound back in. The body runs
// in the child; gtest failures there fail the test in the parent, as do a
// crash, a non-zero exit or running past the time limit.

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace kt {

struct SandboxOptions {
    int timeout_s = 60;    // the child is killed (SIGKILL) after this
    bool new_net = false;  // also unshare the network namespace (loopback is brought up)
    int timeout_ms = 0;    // when non-zero, replaces timeout_s (for short limits)
};

// False when namespaces cannot be created (not root, seccomp, ...).
bool SandboxAvailable();
// Failures, skips and crashes of the body are reported in the calling test
// with the file and line where they happened inside the child.
void RunSandboxed(const std::function<void()>& body, const SandboxOptions& opts = {});

// A gtest result (failure or skip) that happened inside the sandboxed child.
struct SandboxReport {
    ::testing::TestPartResult::Type type;
    std::string file;
    int line;
    std::string message;
};

// How a sandboxed run ended, for callers that judge it themselves instead of
// failing the current test (RunSandboxed reports it).
struct SandboxOutcome {
    enum class Kind {
        kPassed,
        kFailed,       // a gtest failure inside the body
        kSkipped,      // GTEST_SKIP inside the body
        kCrashed,      // killed by a signal
        kTimedOut,     // still running at the time limit; killed
        kExited,       // exit() or _exit() before the body returned (sanitizer reports too)
        kSetupFailed,  // the sandbox could not be built
        kLeaked,       // LeakSanitizer found leaks after the body (sanitizer builds)
    };
    Kind kind = Kind::kPassed;
    int status = 0;                      // exit status, or the signal for kCrashed
    std::string message;                 // what the parent reports; empty for kPassed
    std::vector<SandboxReport> reports;  // in the order they happened
};
SandboxOutcome RunSandboxedOutcome(const std::function<void()>& body, const SandboxOptions& opts = {});

// True inside a sandboxed body (and its threads).
bool InSandbox();

// ---- syslog capture (valid inside the sandbox only) ----
struct SyslogLine {
    int priority;         // PRI & 7
    std::string ident;    // text before "[pid]:" or ":"
    std::string message;  // text after "ident[pid]: " exactly as sent (trailing newline kept)
};
// Lines received so far, in order. Waits until the socket is quiet for a
// short moment first so lines just logged are not missed.
std::vector<SyslogLine> SyslogLines();
void SyslogClear();
// Number of captured lines whose message contains `needle` (and, when
// priority >= 0, has that priority).
int SyslogCount(const std::string& needle, int priority = -1);

// ---- files (any path; inside the sandbox) ----
void WriteFile(const std::string& path, const std::string& content, mode_t mode = 0644);
std::string ReadFile(const std::string& path);  // "" when unreadable
void MakeDirs(const std::string& path);
// Bind-mounts a file holding `content` over an existing path (e.g. /proc/stat).
// Sandbox only; calling it again on the same target replaces what is seen.
void BindFileOver(const std::string& target, const std::string& content);

// ---- fake commands on PATH (sandbox only) ----
// Creates an executable `name` in a directory put first on PATH. Each run
// appends its arguments (argv[1..], one call per line, arguments separated
// by '\x1f') to a record and exits with `exit_status`; `stdout_text` is printed.
// A `name` holding '/' is created at exactly that path instead (platform
// scripts run by absolute path). A call without arguments and a call with one
// empty argument both read back as an empty argument list.
class FakeCommand {
public:
    explicit FakeCommand(const std::string& name, int exit_status = 0, const std::string& stdout_text = "");
    std::vector<std::vector<std::string>> Calls() const;
    const std::string& name() const { return name_; }

private:
    std::string name_;
    std::string record_;
};

// ---- real child processes ----
// A child whose kernel name ("Name:" in status, the comm) is `kernel_name`
// (cut to 15 characters by the kernel) and whose /proc/PID/cmdline is exactly
// `argv` joined by NULs (an empty `argv` means {kernel_name}). It sleeps until
// killed (any terminating signal, default dispositions); the destructor kills
// and reaps it. It is a native program even in cross builds, holds only
// descriptors 0, 1 and 2, and dies with the thread that started it. The
// constructor returns once it runs, its name and command line in place.
class Child {
public:
    Child(const std::string& kernel_name, const std::vector<std::string>& argv);
    ~Child();
    Child(Child&& other) noexcept;
    Child& operator=(Child&&) = delete;
    Child(const Child&) = delete;
    pid_t pid() const { return pid_; }
    void Kill();  // SIGKILL and reap now
private:
    pid_t pid_ = -1;
};
// A shell command line that runs `program`, a program built for the target:
// the program itself, or in a cross build the emulator followed by it.
std::string TargetCommand(const std::string& program);

// A name unique to this test run, for process names and command lines:
// `stem`, "_" and six more characters (seven from the 37th name on, eight
// from the 1297th). The kernel keeps 15 characters of a process name: keep
// stems used for process names within 6 characters.
std::string UniqueName(const std::string& stem);

// ---- fake of the kernel module's control files (/proc/nox/...) ----
// open/openat/ioctl/close of the test executable are intercepted: a path under
// /proc/nox/ with a registered handler opens as a memfd, and ioctl on it calls
// the handler; without a handler such an open fails with ENOENT. Everything
// else goes straight to the kernel.
using NoxHandler = std::function<int(unsigned long request, void* arg)>;
void NoxSetHandler(const std::string& path, NoxHandler handler);
void NoxRemove(const std::string& path);
void NoxReset();
int NoxOpenCount(const std::string& path);  // successful opens so far

}  // namespace kt

// TEST whose body runs inside the sandbox; skipped with a message where
// namespaces are not available.
#define SANDBOX_TEST(suite, name)                                                       \
    static void suite##_##name##_SandboxBody();                                         \
    TEST(suite, name) {                                                                 \
        if (!kt::SandboxAvailable()) GTEST_SKIP() << "needs root and mount namespaces"; \
        kt::RunSandboxed(&suite##_##name##_SandboxBody);                                \
    }                                                                                   \
    static void suite##_##name##_SandboxBody()

#endif
