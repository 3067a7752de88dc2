// Real processes with an exact kernel name and command line, and names
// unique to this test run.
//
// The child is a native program reached through a symlink named as the
// kernel name should be: the kernel takes the name from the executed file,
// and an emulated (cross-built) program would show as the emulator instead.

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>

#include "os/base/kira_raii.h"
#include "tests/support/sandbox_internal.h"

#ifndef KIRA_SLEEPER_PATH
#error "KIRA_SLEEPER_PATH must name the native sleeper program"
#endif

namespace kt {
namespace {

constexpr int kStartWaitMs = 10000;
constexpr size_t kKernelNameMax = 15;
constexpr int kReadyFd = 3;  // the sleeper closes it once loaded

std::atomic<unsigned> g_name_counter{0};

std::string CmdlineOf(const std::vector<std::string>& argv) {
    std::string out;
    for (const std::string& arg : argv) {
        out += arg;
        out += '\0';
    }
    return out;
}

// Between fork and exec only async-signal-safe calls: the test process may
// have threads (the syslog reader in a sandbox).
[[noreturn]] void ExecSleeper(const char* link, char* const* argv, int ready_fd) {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    struct sigaction dfl = {};
    dfl.sa_handler = SIG_DFL;
    for (int sig = 1; sig < 32; ++sig) {
        if (sig != SIGKILL && sig != SIGSTOP) sigaction(sig, &dfl, nullptr);
    }
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    // Only 0, 1 and 2 stay open past the sleeper's start, so tests counting
    // a child's descriptors see the same figure everywhere.
    if (ready_fd != kReadyFd && dup2(ready_fd, kReadyFd) != kReadyFd) _exit(127);
    if (ready_fd == kReadyFd) fcntl(kReadyFd, F_SETFD, 0);
    if (syscall(SYS_close_range, kReadyFd + 1, ~0U, 0) != 0) {
        for (int fd = kReadyFd + 1; fd < 4096; ++fd) close(fd);
    }
    execv(link, argv);
    _exit(127);
}

// The sleeper closing the ready pipe means it runs, loaded; the kernel then
// already shows the new name and command line.
bool WaitUntilReady(pid_t pid, int ready_rd, const std::string& cmdline, const std::string& comm, std::string* error) {
    struct pollfd p = {ready_rd, POLLIN, 0};
    char byte;
    int ready = poll(&p, 1, kStartWaitMs);
    if (ready <= 0 || read(ready_rd, &byte, 1) != 0) {
        *error = "the child did not start in time";
        return false;
    }
    const std::string proc = "/proc/" + std::to_string(pid);
    if (ReadFile(proc + "/cmdline") == cmdline && ReadFile(proc + "/comm") == comm + "\n") return true;
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid) {
        *error = "the child exited (status " + std::to_string(status) + ") instead of running the sleeper";
    } else {
        *error = "the child shows another name or command line than asked for";
    }
    return false;
}

class LinkDir {
public:
    explicit LinkDir(const std::string& kernel_name) {
        std::string tmpl = std::string(InSandbox() ? internal::kScratchDir : "/tmp") + "/kt-child-XXXXXX";
        if (mkdtemp(&tmpl[0]) == nullptr) return;
        dir_ = tmpl;
        link_ = dir_ + "/" + kernel_name;
        if (symlink(KIRA_SLEEPER_PATH, link_.c_str()) != 0) link_.clear();
    }
    ~LinkDir() {
        if (!link_.empty()) unlink(link_.c_str());
        if (!dir_.empty()) rmdir(dir_.c_str());
    }
    const std::string& link() const { return link_; }

private:
    std::string dir_;
    std::string link_;
};

std::string Base36(unsigned long v, size_t min_width) {
    static const char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    std::string out;
    do {
        out.insert(out.begin(), kDigits[v % 36]);
        v /= 36;
    } while (v != 0 || out.size() < min_width);
    return out;
}

}  // namespace

Child::Child(const std::string& kernel_name, const std::vector<std::string>& argv) {
    if (kernel_name.empty() || kernel_name.find('/') != std::string::npos) {
        ADD_FAILURE() << "Child: kernel name must be a non-empty file name, got \"" << kernel_name << "\"";
        return;
    }
    const std::vector<std::string> args = argv.empty() ? std::vector<std::string>{kernel_name} : argv;
    LinkDir links(kernel_name);
    if (links.link().empty()) {
        ADD_FAILURE() << "Child: " << internal::ErrnoText("symlink to the sleeper");
        return;
    }
    std::vector<char*> raw;
    for (const std::string& a : args) raw.push_back(const_cast<char*>(a.c_str()));
    raw.push_back(nullptr);
    int ready[2];
    if (pipe2(ready, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "Child: " << internal::ErrnoText("pipe2");
        return;
    }
    kira::UniqueFd ready_rd(ready[0]);
    kira::UniqueFd ready_wr(ready[1]);
    pid_ = fork();
    if (pid_ == 0) ExecSleeper(links.link().c_str(), raw.data(), ready_wr.get());
    ready_wr.reset();
    if (pid_ < 0) {
        ADD_FAILURE() << "Child: " << internal::ErrnoText("fork");
        return;
    }
    std::string error;
    if (!WaitUntilReady(pid_, ready_rd.get(), CmdlineOf(args), kernel_name.substr(0, kKernelNameMax), &error)) {
        ADD_FAILURE() << "Child " << kernel_name << ": " << error;
        Kill();
    }
}

Child::~Child() { Kill(); }

Child::Child(Child&& other) noexcept : pid_(other.pid_) { other.pid_ = -1; }

void Child::Kill() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
}

// The process id in five base-36 digits (enough for any pid), then a
// counter: distinct across concurrent runs and within one.
std::string UniqueName(const std::string& stem) {
    return stem + "_" + Base36(static_cast<unsigned long>(getpid()), 5) + Base36(g_name_counter.fetch_add(1), 1);
}

}  // namespace kt
