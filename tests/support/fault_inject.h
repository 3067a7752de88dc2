#ifndef TESTS_SUPPORT_FAULT_INJECT_H
#define TESTS_SUPPORT_FAULT_INJECT_H

// Injected system-call and allocation failures, armed on one thread around
// one call under test. open/openat (through the /proc/nox fake), fopen,
// popen, read, mmap, the directory calls, malloc, calloc, realloc, sleep and
// usleep are defined in every test executable, so the library code linked
// into it comes through them (libc's internals and the sanitizer runtimes do
// not). Unarmed, and on every other thread, each goes on to the real call.
//
//     kt::FaultArm({kt::Fault::kRead, 3});   // this thread's third read fails
//     call();
//     bool fired = kt::FaultDisarm();

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

// Runs call() with its nth call of `kind` failing, n = 1, 2, ..., until a run
// in which that call never came, so every failure path is taken once; after
// each run check(n) judges the outcome and the descriptor count must be
// unchanged. Returns the number of failing runs.
int FaultWalk(Fault kind, FaultMode mode, const std::function<void()>& call, const std::function<void(int n)>& check,
              int max_steps = 400);

}  // namespace kt

// Called by the open replacements of nox_interpose.cpp and the allocator's of
// fault_alloc.cpp: true when this call must fail (errno set).
bool KtFaultOpen();
bool KtFaultAlloc();

#endif
