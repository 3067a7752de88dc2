// A crash inside a sandboxed body kills only the child; this handler makes
// the child say what happened and where before it dies.

#include <execinfo.h>
#include <signal.h>
#include <string.h>
#include <unistd.h>

#include "tests/support/sandbox_internal.h"

namespace kt {
namespace internal {
namespace {

constexpr int kCrashSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT};
constexpr int kMaxFrames = 64;
// Own stack for the handler, so a stack overflow can still be reported.
alignas(16) char g_alt_stack[64 * 1024];

void WriteText(const char* text) {
    ssize_t ignored = ::write(STDERR_FILENO, text, strlen(text));
    (void)ignored;
}

void OnCrash(int sig) {
    WriteText("\n*** sandboxed test body died of ");
    WriteText(sigabbrev_np(sig) != nullptr ? sigabbrev_np(sig) : "a signal");
    WriteText("; backtrace:\n");
    void* frames[kMaxFrames];
    backtrace_symbols_fd(frames, backtrace(frames, kMaxFrames), STDERR_FILENO);
    ::signal(sig, SIG_DFL);
    ::raise(sig);
}

}  // namespace

void InstallCrashReporter() {
    // backtrace() loads its unwinder on first use; do that now, not in the
    // handler.
    void* warm[1];
    backtrace(warm, 1);
    stack_t ss = {};
    ss.ss_sp = g_alt_stack;
    ss.ss_size = sizeof g_alt_stack;
    ::sigaltstack(&ss, nullptr);
    for (int sig : kCrashSignals) {
        struct sigaction old = {};
        // A sanitizer's handler reports better than this one: keep it.
        if (::sigaction(sig, nullptr, &old) != 0 || old.sa_handler != SIG_DFL) continue;
        struct sigaction sa = {};
        sa.sa_handler = OnCrash;
        sa.sa_flags = SA_ONSTACK | SA_RESETHAND;
        sigemptyset(&sa.sa_mask);
        ::sigaction(sig, &sa, nullptr);
    }
}

}  // namespace internal
}  // namespace kt
