// ptrace-based system-call counter (see syscall_count.h).

#include "tests/support/syscall_count.h"

#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kt {
namespace {

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

}  // namespace kt
