// Turning the test's own process into the sandbox, and running a body in a
// forked copy of it, or counting the system calls it makes there under ptrace.

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <net/if.h>
#include <sched.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>

#include "os/base/kira_raii.h"
#include "tests/support/sandbox_internal.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#define KT_LEAK_CHECK 1
#endif

namespace kt {
namespace {

// The scratch tmpfs hides the old root's /tmp only; the new root gets a
// fresh /tmp of its own.
constexpr const char* kScratch = "/tmp";
constexpr const char* kRoot = "/tmp/root";

std::atomic<bool> g_entered{false};
std::atomic<unsigned> g_scratchCounter{0};

bool Mount(const char* source, const std::string& target, const char* type, unsigned long flags,
           const char* data = nullptr) {
    return internal::Done(mount(source, target.c_str(), type, flags, data) == 0,
                          std::string("mount ") + (type != nullptr ? type : "bind") + " at " + target);
}

bool MountOverlay(const std::string& lower, const std::string& name, const std::string& target) {
    const std::string base = std::string(kScratch) + "/" + name, upper = base + ".upper", work = base + ".work";
    return MakeDirs(upper) && MakeDirs(work) && MakeDirs(target) &&
           Mount("overlay", target, "overlay", 0,
                 ("lowerdir=" + lower + ",upperdir=" + upper + ",workdir=" + work).c_str());
}

bool MountTmpfs(const std::string& target, const char* mode) {
    return MakeDirs(target) && Mount("tmpfs", target, "tmpfs", 0, (std::string("mode=") + mode).c_str());
}

// An overlay of "/" shows the root file system without what is mounted on
// it: the trees the tests read are held open now and bound back later (a
// tree inside another comes along with it).
std::vector<std::pair<std::string, kira::UniqueFd>> OpenBindBacks() {
    std::vector<std::string> paths;
    char exe[PATH_MAX] = {};
    if (readlink("/proc/self/exe", exe, sizeof exe - 1) > 0) {
        *strrchr(exe, '/') = '\0';
    }
    for (const char* dir : {KIRA_SOURCE_DIR, KIRA_BINARY_DIR, static_cast<const char*>(exe)}) {
        char real[PATH_MAX];
        if (dir[0] != '\0' && realpath(dir, real) != nullptr && strcmp(real, "/") != 0) {
            paths.push_back(real);
        }
    }
    std::sort(paths.begin(), paths.end());
    std::vector<std::pair<std::string, kira::UniqueFd>> out;
    for (const std::string& p : paths) {
        if (!out.empty() && (p + "/").compare(0, out.back().first.size() + 1, out.back().first + "/") == 0) {
            continue;
        }
        out.emplace_back(p, kira::UniqueFd(open(p.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)));
    }
    return out;
}

// A sysfs mounted now shows the new network namespace's interfaces; /dev is
// an overlay too, so the socket bound at /dev/log never shows on the host.
bool BuildRoot(const std::string& root, bool newNet) {
    return (newNet ? Mount("sysfs", root + "/sys", "sysfs", 0)
                   : Mount("/sys", root + "/sys", nullptr, MS_BIND | MS_REC)) &&
           Mount("/proc", root + "/proc", nullptr, MS_BIND | MS_REC) && MountOverlay("/dev", "dev", root + "/dev") &&
           MountTmpfs(root + "/dev/shm", "1777") && MountTmpfs(root + "/tmp", "1777") &&
           MountTmpfs(root + "/ZUK", "755") && MountTmpfs(root + "/etc/nox", "755") &&
           MountTmpfs(root + "/startup_disk", "755");
}

bool BringLoopbackUp() {
    kira::UniqueFd s(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    struct ifreq ifr = {};
    memcpy(ifr.ifr_name, "lo", 3);
    const bool read = s.valid() && ioctl(s.get(), SIOCGIFFLAGS, &ifr) == 0;
    ifr.ifr_flags = static_cast<short>(ifr.ifr_flags | IFF_UP);
    return internal::Done(read && ioctl(s.get(), SIOCSIFFLAGS, &ifr) == 0, "bring loopback up");
}

bool Build(const SandboxOptions& opts) {
    if (!internal::Done(unshare(CLONE_NEWNS | (opts.new_net ? CLONE_NEWNET : 0)) == 0, "unshare")) {
        return false;
    }
    auto bindBacks = OpenBindBacks();
    const std::string root = kRoot;
    if (!Mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE) || !Mount("tmpfs", kScratch, "tmpfs", 0, "mode=700") ||
        !MountOverlay("/", "root", root) || !BuildRoot(root, opts.new_net)) {
        return false;
    }
    for (const auto& [path, fd] : bindBacks) {
        if (!MakeDirs(root + path) ||
            !Mount(("/proc/self/fd/" + std::to_string(fd.get())).c_str(), root + path, nullptr, MS_BIND | MS_REC)) {
            return false;
        }
    }
    return internal::Done(chdir(root.c_str()) == 0 && chroot(".") == 0 && chdir("/") == 0, "chroot") &&
           MakeDirs(internal::kScratchDir) && internal::StartSyslogCapture() && (!opts.new_net || BringLoopbackUp());
}

bool ProbeNamespaces() {
    const pid_t pid = geteuid() == 0 ? fork() : -1;
    if (pid == 0) {
        _exit(unshare(CLONE_NEWNS) == 0 ? 0 : 1);
    }
    int status = 1;
    while (pid > 0 && waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return pid > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// getppid is never made by the code under test, so it can bracket it.
constexpr long kMarker = SYS_getppid;

bool UnderEmulator() {
    char exe[256] = {0};
    const ssize_t n = readlink("/proc/self/exe", exe, sizeof(exe) - 1);
    return n > 0 && strstr(exe, "qemu") != nullptr;
}

[[noreturn]] void RunTraced(const std::function<void()>& body) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        _exit(3);
    }
    raise(SIGSTOP);
    syscall(kMarker);
    body();
    syscall(kMarker);
    _exit(0);
}

// Number of the system call the child is entering, -1 at an exit stop.
long EnteredSyscall(pid_t child) {
    struct __ptrace_syscall_info info = {};
    const bool entry =
        ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof(info), &info) > 0 && info.op == PTRACE_SYSCALL_INFO_ENTRY;
    return entry ? static_cast<long>(info.entry.nr) : -1;
}

}  // namespace

bool SandboxAvailable() {
    static const bool available = ProbeNamespaces();
    return available;
}

bool InSandbox() { return g_entered.load(); }

bool EnterSandbox(const SandboxOptions& opts) {
    if (g_entered.exchange(true)) {
        ADD_FAILURE() << "one sandbox per process: run tests through ctest, or one at a time with --gtest_filter";
        return false;
    }
    return Build(opts);
}

void RunSandboxed(const std::function<void()>& body, const SandboxOptions& opts) {
    if (!SandboxAvailable()) {
        GTEST_SKIP() << "needs root and mount namespaces";
    } else if (EnterSandbox(opts)) {
        body();
    }
}

bool RunInChild(const std::function<void()>& body, int timeout_s) {
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        alarm(static_cast<unsigned>(timeout_s));
        body();
        bool failed = ::testing::Test::HasFailure();
#ifdef KT_LEAK_CHECK
        failed = __lsan_do_recoverable_leak_check() != 0 || failed;
#endif
        fflush(nullptr);
        _exit(failed ? 1 : 0);
    }
    int status = -1;
    while (pid > 0 && waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0) {
        return true;
    }
    ADD_FAILURE() << "the body run in a child failed (" << (WIFSIGNALED(status) ? "signal " : "status ")
                  << (WIFSIGNALED(status) ? WTERMSIG(status) : WEXITSTATUS(status)) << ")";
    return false;
}

long CountSyscalls(const std::function<void()>& body) {
    fflush(nullptr);
    const pid_t child = UnderEmulator() ? -1 : fork();
    if (child == 0) {
        RunTraced(body);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || !WIFSTOPPED(status)) {
        return -1;
    }
    (void)ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
    int markers = 0, deliver = 0;
    long total = 0;
    while (ptrace(PTRACE_SYSCALL, child, nullptr, deliver) == 0 && waitpid(child, &status, 0) == child) {
        if (WIFEXITED(status) || WIFSIGNALED(status)) {
            return markers == 2 && WIFEXITED(status) && WEXITSTATUS(status) == 0 ? total : -1;
        }
        // An ordinary signal goes on to the child; only system-call stops are counted.
        deliver = WSTOPSIG(status) == (SIGTRAP | 0x80) ? 0 : WSTOPSIG(status);
        const long nr = deliver == 0 ? EnteredSyscall(child) : -1;
        if (nr == kMarker) {
            ++markers;
        } else if (nr >= 0 && markers == 1) {
            ++total;
        }
    }
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    return -1;
}

namespace internal {

std::string ScratchPath(const std::string& stem) {
    return std::string(kScratchDir) + "/" + stem + "." + std::to_string(getpid()) + "." +
           std::to_string(g_scratchCounter.fetch_add(1));
}

bool Done(bool done, const std::string& what) {
    const int err = errno;
    if (!done) {
        ADD_FAILURE() << "test set-up: " << what << ": " << strerror(err) << " (errno " << err << ")";
    }
    return done;
}

bool RequireSandbox(const char* what) {
    if (!InSandbox()) {
        ADD_FAILURE() << what << " works inside a sandboxed test only";
    }
    return InSandbox();
}

}  // namespace internal
}  // namespace kt
