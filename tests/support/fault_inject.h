#ifndef TESTS_SUPPORT_FAULT_INJECT_H
#define TESTS_SUPPORT_FAULT_INJECT_H

// Injected system-call and allocation failures, armed on one thread around
// one call under test.
//
// open/openat (through the /proc/nox fake), fopen, popen, read, mmap,
// opendir, fdopendir, readdir, readdir_r, malloc, calloc, realloc, and sleep
// and usleep are defined in every test executable, so the library code linked
// into it comes through them; shared libraries (libc's own internals, the
// sanitizer runtimes) do not. Unarmed, and on every other thread, each goes
// straight on to the real call.
//
//     kt::FaultArm({kt::Fault::kRead, 3});   // this thread's third read fails
//     call();
//     bool fired = kt::FaultDisarm();
//
// FaultWalk runs a call with its 1st, 2nd, ... call of one kind failing
// until a run in which that call never came, so every failure path of the
// call is taken once.

#include <functional>
#include <string>

namespace kt {

enum class Fault {
    kOpen,   // open, openat, fopen, popen: ENOENT
    kRead,   // read: EIO
    kMmap,   // mmap: ENOMEM
    kDir,    // opendir, fdopendir: EMFILE; readdir, readdir_r: EBADF
    kAlloc,  // malloc, calloc, realloc: ENOMEM
};

enum class FaultMode {
    kFail,       // the call fails with the kind's errno
    kInterrupt,  // reads only: -1 with EINTR, as if a signal came first
    kShort,      // reads only: at most one byte
};

struct FaultPlan {
    Fault kind;
    int nth;  // 1-based count of this thread's calls of the kind; 0 fails none
    FaultMode mode = FaultMode::kFail;
    bool skip_sleeps = true;  // sleep/usleep return at once while armed
};

const char* FaultName(Fault kind);

void FaultArm(const FaultPlan& plan);
// Disarms this thread; true when the planned call came and was failed.
bool FaultDisarm();
// Calls of the armed kind this thread made since FaultArm (nth 0 counts
// without failing any).
int FaultSeen();

// Descriptors this process holds.
int OpenFdCount();

// Runs call() with the nth call of `kind` failing, n = 1, 2, ..., up to
// max_steps, and stops after the first run in which it never came. After
// each failing run, check(n) judges the outcome; the descriptor count must
// be unchanged. Returns the number of failing runs (0: `kind` is never used).
int FaultWalk(Fault kind, FaultMode mode, const std::function<void()>& call, const std::function<void(int n)>& check,
              int max_steps = 400);

}  // namespace kt

// Called by the open replacements of nox_interpose.cpp and the allocator's of
// fault_alloc.cpp: true when this call must fail (errno set).
bool KtFaultOpen();
bool KtFaultAlloc();

#endif
