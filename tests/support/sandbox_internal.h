#ifndef TESTS_SUPPORT_SANDBOX_INTERNAL_H
#define TESTS_SUPPORT_SANDBOX_INTERNAL_H

// Pieces of the harness shared between its own files; tests use sandbox.h.

#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

#include <string>
#include <vector>

#include "tests/support/sandbox.h"

namespace kt {
namespace internal {

// Child exit codes; anything else means the body never returned normally.
constexpr int kExitPassed = 0xA0;
constexpr int kExitFailed = 0xA1;
constexpr int kExitSkipped = 0xA2;
constexpr int kExitSetupFailed = 0xA3;
constexpr int kExitLeaked = 0xA4;

// Private scratch directory inside the sandbox root, out of the way of the
// paths tests look at (/tmp, /dev/shm, ...).
constexpr const char* kScratchDir = "/.kt-sandbox";

// Builds the sandbox in the freshly forked child. On failure returns false
// with what went wrong in *error.
bool EnterSandbox(const SandboxOptions& opts, std::string* error);
void MarkInSandbox();

// Binds /dev/log and sets up the capture (EnterSandbox does).
bool StartSyslogCapture(std::string* error);
// In the body's parent: drains /dev/log until the body ends; returns its
// wait status.
int DrainSyslogUntilExit(pid_t body);
// One datagram in glibc's "<PRI>Mmm dd hh:mm:ss ident[pid]: text" form.
SyslogLine ParseSyslogDatagram(const char* data, size_t len);

// Child side: sends the body's gtest failures and skips through `fd`
// instead of printing them, and counts them.
void ForwardResultsTo(int fd);
int BodyFailures();
int BodySkips();
// Parent side: the reports in what the child sent (a cut-off record at the
// end is dropped).
std::vector<SandboxReport> ParseReports(const std::string& records);

// Installs a handler that prints the signal and a backtrace before the
// default action, where no other handler (a sanitizer's) is installed.
void InstallCrashReporter();

// Fails the current test when called outside the sandbox; true inside.
bool RequireSandbox(const char* what);
std::string ErrnoText(const char* what);
// mkdir -p and whole-file write, reporting instead of failing the test.
bool MakeDirsQuiet(const std::string& path, std::string* error);
bool WriteFileQuiet(const std::string& path, const std::string& content, mode_t mode, std::string* error);
int64_t NowMs();  // monotonic
// A fresh path under the scratch directory, made of `stem` and a counter.
std::string ScratchPath(const std::string& stem);

}  // namespace internal
}  // namespace kt

#endif
