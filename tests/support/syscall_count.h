#ifndef TESTS_SUPPORT_SYSCALL_COUNT_H
#define TESTS_SUPPORT_SYSCALL_COUNT_H

// System calls made by a piece of code, counted exactly rather than timed.
//
// CountSyscalls forks; the child runs `body` under ptrace between two marker
// calls, and the parent counts every system-call entry in between, by
// number. The child is a copy of the caller, so whatever the caller warmed up
// (a stored pid, cached figures) is warm in the child too.

#include <functional>
#include <map>

namespace kt {

struct SyscallCount {
    bool traced = false;             // false: tracing unavailable here (emulator, no permission)
    long total = 0;                  // entries between the markers
    std::map<long, long> by_number;  // system-call number -> entries
};

SyscallCount CountSyscalls(const std::function<void()>& body);

}  // namespace kt

#endif
