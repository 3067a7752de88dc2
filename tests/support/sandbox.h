#ifndef TESTS_SUPPORT_SANDBOX_H
#define TESTS_SUPPORT_SANDBOX_H

// Test harness shared by every test executable. ctest runs each test as a
// process of its own under a time limit; a sandboxed test first turns that
// process into a small machine of its own: a private mount namespace whose
// root is an overlay of the host's "/" (writes vanish with the process),
// fresh tmpfs at /dev/shm, /tmp, /ZUK, /etc/nox and /startup_disk, the build
// and source trees bound back, a private /dev/log whose lines are captured,
// and on request a network namespace with loopback up. One sandbox per
// process: run sandboxed tests through ctest, or one at a time.

#include <gtest/gtest.h>
#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

namespace kt {

struct SandboxOptions {
    bool new_net = false;  // also a network namespace of its own (loopback up)
};

// False when namespaces cannot be created (not root, seccomp, ...).
bool SandboxAvailable();
// Enters the sandbox; false (after failing the test) when it cannot be built.
bool EnterSandbox(const SandboxOptions& opts = {});
// Enters the sandbox and runs body in it; skips where namespaces are missing.
void RunSandboxed(const std::function<void()>& body, const SandboxOptions& opts = {});
bool InSandbox();

// Runs body in a forked copy of this process (for set-up done once per
// process); false, its failures printed, when it failed, crashed, left early
// or ran past timeout_s.
bool RunInChild(const std::function<void()>& body, int timeout_s = 60);
// System calls body makes, counted rather than timed: a forked copy of this
// process (so whatever the caller warmed up is warm) runs it under ptrace
// between two marker calls. -1 where tracing is unavailable (an emulator, no
// permission).
long CountSyscalls(const std::function<void()>& body);

// ---- syslog capture (inside the sandbox) ----
struct SyslogLine {
    int priority;         // PRI & 7
    std::string message;  // text after "ident[pid]: " exactly as sent (trailing newline kept)
};
// Lines so far, in order, once the socket has been quiet for a moment.
std::vector<SyslogLine> SyslogLines();
void SyslogClear();
// Lines whose message contains needle (and, when priority >= 0, have it).
int SyslogCount(const std::string& needle, int priority = -1);

// ---- files ----
// mkdir -p of the directory first; false after failing the test.
bool WriteFile(const std::string& path, const std::string& content, mode_t mode = 0644);
std::string ReadFile(const std::string& path);  // "" when unreadable
bool MakeDirs(const std::string& path);
// Binds a file holding content over an existing path (/proc/stat, say);
// again on the same target replaces what is seen. Sandbox only.
void BindFileOver(const std::string& target, const std::string& content);

// ---- recording stand-ins for commands (sandbox only) ----
// An executable `name` first on PATH (or, for a name holding '/', at that
// path) that appends its arguments to a record, prints stdout_text and exits
// with exit_status, or with 1 for a call holding the argument fail_on. No
// arguments and one empty argument both read back as {}.
class FakeCommand {
public:
    explicit FakeCommand(const std::string& name, int exit_status = 0, const std::string& stdout_text = "",
                         const std::string& fail_on = "");
    std::vector<std::vector<std::string>> Calls() const;

private:
    std::string record_;
};

// ---- real processes ----
// A native process named kernel_name (the kernel keeps 15 characters) whose
// command line is argv ({kernel_name} when empty), in place when the
// constructor returns. It sleeps, holds only descriptors 0, 1 and 2, dies
// with the thread that started it and is reaped by the destructor.
class Child {
public:
    Child(const std::string& kernel_name, const std::vector<std::string>& argv);
    ~Child() { Kill(); }
    Child(Child&& other) noexcept : pid_(other.pid_) { other.pid_ = -1; }  // and neither copied nor assigned
    pid_t pid() const { return pid_; }
    void Kill();  // SIGKILL and reap now

private:
    pid_t pid_ = -1;
};

// A shell command running a program built for the target (through the
// emulator in a cross build).
std::string TargetCommand(const std::string& program);
// stem, "_" and six or more characters unique to this run; keep stems used
// as process names within 6 characters (the kernel keeps 15).
std::string UniqueName(const std::string& stem);

// ---- the kernel module's control files (/proc/nox/...) ----
// open/openat/ioctl/close of the test executable are intercepted: a
// /proc/nox/ path with a handler opens as a memfd whose ioctls call it;
// without one such an open fails with ENOENT.
using NoxHandler = std::function<int(unsigned long request, void* arg)>;
void NoxSetHandler(const std::string& path, NoxHandler handler);
void NoxRemove(const std::string& path);
int NoxOpenCount(const std::string& path);  // successful opens so far

}  // namespace kt

// A TEST whose body runs inside the sandbox; skipped where namespaces are
// not available.
#define SANDBOX_TEST(suite, name)                                          \
    static void suite##_##name##_SandboxBody();                            \
    TEST(suite, name) { kt::RunSandboxed(&suite##_##name##_SandboxBody); } \
    static void suite##_##name##_SandboxBody()

#endif
