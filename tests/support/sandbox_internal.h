#ifndef TESTS_SUPPORT_SANDBOX_INTERNAL_H
#define TESTS_SUPPORT_SANDBOX_INTERNAL_H

// Pieces of the harness shared between its own files; tests use sandbox.h.

#include <string>

#include "tests/support/sandbox.h"

namespace kt {
namespace internal {

// Private scratch directory inside the sandbox root, out of the way of the
// paths tests look at.
constexpr const char* kScratchDir = "/.kt-sandbox";

// A fresh path under the scratch directory, made of stem and a counter.
std::string ScratchPath(const std::string& stem);
std::string ErrnoText(const std::string& what);
// Fails the current test outside the sandbox, where what would touch the host.
bool RequireSandbox(const char* what);
// Binds /dev/log and starts draining it (EnterSandbox does).
bool StartSyslogCapture(std::string* error);
// mkdir -p and whole-file write, reporting instead of failing the test.
bool MakeDirsQuiet(const std::string& path, std::string* error);
bool WriteFileQuiet(const std::string& path, const std::string& content, mode_t mode, std::string* error);

}  // namespace internal
}  // namespace kt

#endif
