// Sandbox state and small helpers shared by the harness files.

#include <errno.h>
#include <sched.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "tests/support/sandbox_internal.h"

namespace kt {
namespace {

std::atomic<bool> g_in_sandbox{false};
std::atomic<unsigned> g_scratch_counter{0};

constexpr unsigned kCapSysAdmin = 21;

// Hexadecimal field of /proc/self/status, e.g. "CapEff:"; 0 when missing.
unsigned long long StatusField(const std::string& status, const char* name) {
    size_t at = status.find(std::string("\n") + name);
    return at == std::string::npos ? 0 : strtoull(status.c_str() + at + strlen(name) + 1, nullptr, 16);
}

bool UnshareWorksInChild() {
    pid_t pid = ::fork();
    if (pid < 0) return false;
    if (pid == 0) ::_exit(::unshare(CLONE_NEWNS) == 0 ? 0 : 1);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// Namespaces need CAP_SYS_ADMIN. A seccomp filter (a locked-down container)
// may refuse them even so: only then is it worth a throw-away child to try.
bool ProbeNamespaces() {
    if (::geteuid() != 0) return false;
    const std::string status = ReadFile("/proc/self/status");
    if ((StatusField(status, "CapEff:") & (1ULL << kCapSysAdmin)) == 0) return false;
    return StatusField(status, "Seccomp:") == 0 || UnshareWorksInChild();
}

}  // namespace

bool SandboxAvailable() {
    static const bool available = ProbeNamespaces();
    return available;
}

bool InSandbox() { return g_in_sandbox.load(std::memory_order_relaxed); }

namespace internal {

void MarkInSandbox() { g_in_sandbox.store(true, std::memory_order_relaxed); }

bool RequireSandbox(const char* what) {
    if (InSandbox()) return true;
    ADD_FAILURE() << what << " works inside a sandboxed body only (SANDBOX_TEST or kt::RunSandboxed)";
    return false;
}

std::string ErrnoText(const char* what) {
    const int err = errno;
    return std::string(what) + ": " + strerror(err) + " (errno " + std::to_string(err) + ")";
}

int64_t NowMs() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

std::string ScratchPath(const std::string& stem) {
    return std::string(kScratchDir) + "/" + stem + "." + std::to_string(g_scratch_counter.fetch_add(1));
}

}  // namespace internal
}  // namespace kt
