#ifndef TESTS_SUPPORT_SYSCALL_COUNT_H
#define TESTS_SUPPORT_SYSCALL_COUNT_H

// System calls made by a piece of code, counted rather than timed: a forked
// copy of the caller (so whatever the caller warmed up is warm) runs body
// under ptrace between two marker calls. -1 where tracing is unavailable
// (an emulator, no permission).

#include <functional>

namespace kt {

long CountSyscalls(const std::function<void()>& body);

}  // namespace kt

#endif
