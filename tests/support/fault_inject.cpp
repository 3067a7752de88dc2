// Failure injection for the library code linked into a test executable: the
// replacements of the calls named in fault_inject.h (the allocator's are in
// fault_alloc.cpp), the per-thread plan they consult, and the walk over a
// call's failure paths.
//
// Each goes on to the next definition found after this executable, which
// under a sanitizer is the sanitizer's own, so its bookkeeping (shadow
// memory, descriptor synchronisation) stays whole.

#undef _FORTIFY_SOURCE

#include "tests/support/fault_inject.h"

#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <stdio.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace kt {
namespace {

struct ThreadPlan {
    bool armed = false;
    bool fired = false;
    FaultPlan plan{Fault::kOpen, 0};
    int seen = 0;
};

thread_local ThreadPlan t_plan;

// What the armed thread's next call of `kind` must do: 0 go on, 1 fail,
// 2 read short.
int Decide(Fault kind) {
    if (!t_plan.armed || t_plan.plan.kind != kind || ++t_plan.seen != t_plan.plan.nth) {
        return 0;
    }
    t_plan.fired = true;
    return t_plan.plan.mode == FaultMode::kShort ? 2 : 1;
}

// True, with errno set to error, when the armed thread's call of kind must fail.
bool Fail(Fault kind, int error) {
    const bool fail = Decide(kind) != 0;
    if (fail) {
        errno = error;
    }
    return fail;
}

bool SkipSleeps() { return t_plan.armed && t_plan.plan.skip_sleeps; }

template <typename Fn>
Fn Next(const char* name) {
    return reinterpret_cast<Fn>(dlsym(RTLD_NEXT, name));
}

}  // namespace

const char* FaultName(Fault kind) {
    static const char* const kNames[] = {"open", "read", "mmap", "dir", "alloc"};
    return kNames[static_cast<int>(kind)];
}

void FaultArm(const FaultPlan& plan) { t_plan = ThreadPlan{true, false, plan, 0}; }

bool FaultDisarm() {
    t_plan.armed = false;
    return t_plan.fired;
}

int FaultSeen() { return t_plan.seen; }

int OpenFdCount() {
    DIR* dir = opendir("/proc/self/fd");
    if (dir == nullptr) {
        return -1;
    }
    int n = 0;
    while (readdir(dir) != nullptr) {
        ++n;
    }
    closedir(dir);
    return n - 3;  // ".", ".." and the walk's own descriptor
}

int FaultWalk(Fault kind, FaultMode mode, const std::function<void()>& call, const std::function<void(int n)>& check,
              int max_steps) {
    for (int n = 1; n <= max_steps; ++n) {
        SCOPED_TRACE(std::string(FaultName(kind)) + " call " + std::to_string(n) + " fails");
        const int fds = OpenFdCount();
        FaultArm({kind, n, mode});
        call();
        if (!FaultDisarm()) {
            return n - 1;
        }
        EXPECT_EQ(OpenFdCount(), fds) << "descriptor leaked";
        check(n);
        if (::testing::Test::HasFatalFailure()) {
            return n;
        }
    }
    ADD_FAILURE() << FaultName(kind) << ": still failing after " << max_steps << " steps";
    return max_steps;
}

}  // namespace kt

bool KtFaultOpen() { return kt::Fail(kt::Fault::kOpen, ENOENT); }
bool KtFaultAlloc() { return kt::Fail(kt::Fault::kAlloc, ENOMEM); }

#define KT_INTERPOSED __attribute__((visibility("hidden")))

extern "C" {

// The real call, found after this executable: a sanitizer's own when there is one.
#define KT_NEXT(name) static auto real = kt::Next<decltype(&name)>(#name)

KT_INTERPOSED ssize_t read(int fd, void* buf, size_t count) {
    const int decided = kt::Decide(kt::Fault::kRead);
    if (decided == 1) {
        errno = kt::t_plan.plan.mode == kt::FaultMode::kInterrupt ? EINTR : EIO;
        return -1;
    }
    KT_NEXT(read);
    return real(fd, buf, decided == 2 && count > 1 ? 1 : count);
}

#define KT_FAIL_OR_NEXT(kind, error, failed, name, ...) \
    if (kt::Fail(kt::Fault::kind, error)) {             \
        return failed;                                  \
    }                                                   \
    KT_NEXT(name);                                      \
    return real(__VA_ARGS__)

KT_INTERPOSED FILE* fopen(const char* path, const char* mode) {
    KT_FAIL_OR_NEXT(kOpen, ENOENT, nullptr, fopen, path, mode);
}
KT_INTERPOSED FILE* popen(const char* cmd, const char* mode) {
    KT_FAIL_OR_NEXT(kOpen, ENOENT, nullptr, popen, cmd, mode);
}
KT_INTERPOSED DIR* opendir(const char* path) { KT_FAIL_OR_NEXT(kDir, EMFILE, nullptr, opendir, path); }
KT_INTERPOSED DIR* fdopendir(int fd) { KT_FAIL_OR_NEXT(kDir, EMFILE, nullptr, fdopendir, fd); }
KT_INTERPOSED struct dirent* readdir(DIR* dir) { KT_FAIL_OR_NEXT(kDir, EBADF, nullptr, readdir, dir); }
KT_INTERPOSED void* mmap(void* addr, size_t length, int prot, int flags, int fd, off_t offset) {
    KT_FAIL_OR_NEXT(kMmap, ENOMEM, MAP_FAILED, mmap, addr, length, prot, flags, fd, offset);
}
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
KT_INTERPOSED int readdir_r(DIR* dir, struct dirent* entry, struct dirent** result) {
    if (kt::Decide(kt::Fault::kDir) != 0) {
        *result = nullptr;
        return EBADF;
    }
    KT_NEXT(readdir_r);
    return real(dir, entry, result);
}
#pragma GCC diagnostic pop

KT_INTERPOSED unsigned int sleep(unsigned int seconds) {
    struct timespec ts = {static_cast<time_t>(seconds), 0};
    return kt::SkipSleeps() || nanosleep(&ts, &ts) == 0 ? 0 : static_cast<unsigned int>(ts.tv_sec);
}

KT_INTERPOSED int usleep(useconds_t us) {
    struct timespec ts = {static_cast<time_t>(us / 1000000), static_cast<long>(us % 1000000) * 1000};
    return kt::SkipSleeps() ? 0 : nanosleep(&ts, nullptr);
}

}  // extern "C"
