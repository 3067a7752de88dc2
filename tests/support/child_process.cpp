// Real processes with an exact kernel name and command line.
//
// The child is the native sleeper reached through a symlink named as the
// kernel name should be: the kernel takes the name from the executed file,
// and an emulated (cross-built) program would show as the emulator.

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "os/base/kira_raii.h"
#include "tests/support/sandbox_internal.h"

#ifndef KIRA_SLEEPER_PATH
#error "KIRA_SLEEPER_PATH must name the native sleeper program"
#endif

namespace kt {
namespace {

constexpr int kReadyFd = 3;  // the sleeper closes it once loaded

// Between fork and exec only async-signal-safe calls: the test process has
// threads (the syslog reader in a sandbox).
[[noreturn]] void ExecSleeper(const char* link, char* const* argv, int readyFd) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    struct sigaction dfl = {};  // SIG_DFL
    for (int sig = 1; sig < 32; ++sig) {
        sigaction(sig, &dfl, nullptr);  // refused for SIGKILL and SIGSTOP alone
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // Only 0, 1 and 2 stay open past the sleeper's start, so tests counting
    // a child's descriptors see the same figure everywhere.
    if (readyFd != kReadyFd && dup2(readyFd, kReadyFd) != kReadyFd) {
        _exit(127);
    }
    fcntl(kReadyFd, F_SETFD, 0);
    if (syscall(SYS_close_range, kReadyFd + 1, ~0U, 0) != 0) {
        for (int fd = kReadyFd + 1; fd < 4096; ++fd) {
            close(fd);
        }
    }
    execv(link, argv);
    _exit(127);
}

}  // namespace

Child::Child(const std::string& kernel_name, const std::vector<std::string>& argv) {
    const std::vector<std::string> args = argv.empty() ? std::vector<std::string>{kernel_name} : argv;
    std::string dir = std::string(InSandbox() ? internal::kScratchDir : "/tmp") + "/kt-child-XXXXXX";
    if (kernel_name.empty() || kernel_name.find('/') != std::string::npos || mkdtemp(&dir[0]) == nullptr) {
        ADD_FAILURE() << "Child: cannot start \"" << kernel_name << "\"";
        return;
    }
    const std::string link = dir + "/" + kernel_name;
    std::vector<char*> raw;
    std::string cmdline;
    for (const std::string& a : args) {
        raw.push_back(const_cast<char*>(a.c_str()));
        cmdline += a + '\0';
    }
    raw.push_back(nullptr);
    int ready[2] = {-1, -1};
    if (symlink(KIRA_SLEEPER_PATH, link.c_str()) == 0 && pipe2(ready, O_CLOEXEC) == 0) {
        kira::UniqueFd readyRd(ready[0]), readyWr(ready[1]);
        pid_ = fork();
        if (pid_ == 0) {
            ExecSleeper(link.c_str(), raw.data(), readyWr.get());
        }
        readyWr.reset();
        // The pipe ends when the sleeper, loaded, closes it (or dies): the
        // kernel then shows the new name and command line.
        char byte;
        const std::string proc = "/proc/" + std::to_string(pid_);
        if (pid_ < 0 || read(readyRd.get(), &byte, 1) != 0 || ReadFile(proc + "/cmdline") != cmdline ||
            ReadFile(proc + "/comm") != kernel_name.substr(0, 15) + "\n") {
            ADD_FAILURE() << "Child " << kernel_name << " did not start as asked";
            Kill();
        }
    } else {
        internal::Done(false, "Child: symlink or pipe");
    }
    unlink(link.c_str());
    rmdir(dir.c_str());
}

void Child::Kill() {
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    pid_ = -1;
}

}  // namespace kt
