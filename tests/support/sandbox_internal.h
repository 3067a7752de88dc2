#ifndef TESTS_SUPPORT_SANDBOX_INTERNAL_H
#define TESTS_SUPPORT_SANDBOX_INTERNAL_H

// Pieces of the harness shared between its own files; tests use sandbox.h.

#include <string>

#include "tests/support/sandbox.h"

namespace kt {
namespace internal {

// The sandbox's private scratch directory, and a fresh path in it.
constexpr const char* kScratchDir = "/.kt-sandbox";
std::string ScratchPath(const std::string& stem);
// False, after failing the test with errno's text, when `done` is.
bool Done(bool done, const std::string& what);
// Fails the current test outside the sandbox, where what would touch the host.
bool RequireSandbox(const char* what);
// Binds /dev/log and starts draining it (EnterSandbox does).
bool StartSyslogCapture();

}  // namespace internal
}  // namespace kt

#endif
