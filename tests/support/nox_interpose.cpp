// Stand-in for the kernel module's control files under /proc/nox/, which no
// test machine has and nothing can create under /proc.
//
// open/openat (and their 64-bit and fortified forms), ioctl and close are
// defined here, so every call the test executable makes, the statically
// linked library code included, comes through. A /proc/nox/ path with a
// registered handler opens as a memfd recorded in a table; ioctl on such a
// descriptor calls the handler. Everything else goes straight to the kernel
// by raw system call: looking up libc's own functions could recurse.

#undef _FORTIFY_SOURCE

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <mutex>

#include "tests/support/fault_inject.h"
#include "tests/support/sandbox.h"

namespace kt {
namespace {

constexpr char kNoxPrefix[] = "/proc/nox/";

struct FakeFd {
    int fd;
    dev_t dev;
    ino_t ino;
    std::string path;
};

struct Registry {
    std::mutex mu;
    std::map<std::string, NoxHandler> handlers;
    std::map<std::string, int> open_counts;
    std::vector<FakeFd> fds;
};

// Calls can come before or after static construction and destruction:
// created on first use, never destroyed.
Registry& TheRegistry() {
    static Registry* registry = new Registry;
    return *registry;
}

// Lets calls on ordinary descriptors skip the lock.
std::atomic<int> g_fake_fds{0};

bool IsNoxPath(const char* path) { return path != nullptr && strncmp(path, kNoxPrefix, sizeof kNoxPrefix - 1) == 0; }

// Caller holds the lock.
std::vector<FakeFd>::iterator FindFd(Registry& r, int fd) {
    for (auto it = r.fds.begin(); it != r.fds.end(); ++it) {
        if (it->fd == fd) return it;
    }
    return r.fds.end();
}

// Caller holds the lock.
void ForgetFd(Registry& r, int fd) {
    auto it = FindFd(r, fd);
    if (it == r.fds.end()) return;
    r.fds.erase(it);
    g_fake_fds.fetch_sub(1);
}

// A descriptor number of ours reused behind our back (closed through libc's
// internal close, dup2 onto it) is no longer fake.
void ForgetReusedFd(int fd) {
    if (fd < 0 || g_fake_fds.load() == 0) return;
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> lock(r.mu);
    ForgetFd(r, fd);
}

int OpenFake(const char* path, int flags) {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> lock(r.mu);
    if (r.handlers.find(path) == r.handlers.end()) {
        errno = ENOENT;
        return -1;
    }
    int fd = static_cast<int>(
        syscall(SYS_memfd_create, path + sizeof kNoxPrefix - 1, (flags & O_CLOEXEC) != 0 ? MFD_CLOEXEC : 0U));
    struct stat st;
    if (fd < 0 || fstat(fd, &st) != 0) return -1;
    ForgetFd(r, fd);
    r.fds.push_back(FakeFd{fd, st.st_dev, st.st_ino, path});
    g_fake_fds.fetch_add(1);
    ++r.open_counts[path];
    return fd;
}

int OpenAt(int dirfd, const char* path, int flags, mode_t mode) {
    if (KtFaultOpen()) return -1;
    if (IsNoxPath(path)) return OpenFake(path, flags);
    int fd = static_cast<int>(syscall(SYS_openat, dirfd, path, flags, mode));
    ForgetReusedFd(fd);
    return fd;
}

// The mode argument exists only when the flags ask for a file to be created.
bool TakesMode(int flags) { return (flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE; }

// Finds the handler for a fake descriptor; false for an ordinary one.
bool HandlerFor(int fd, NoxHandler* handler) {
    if (g_fake_fds.load() == 0) return false;
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> lock(r.mu);
    auto it = FindFd(r, fd);
    if (it == r.fds.end()) return false;
    struct stat st;
    if (fstat(fd, &st) != 0 || st.st_dev != it->dev || st.st_ino != it->ino) {
        ForgetFd(r, fd);
        return false;
    }
    auto h = r.handlers.find(it->path);
    if (h != r.handlers.end()) *handler = h->second;
    return true;
}

}  // namespace

void NoxSetHandler(const std::string& path, NoxHandler handler) {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> lock(r.mu);
    r.handlers[path] = std::move(handler);
}

void NoxRemove(const std::string& path) {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> lock(r.mu);
    r.handlers.erase(path);
}

int NoxOpenCount(const std::string& path) {
    Registry& r = TheRegistry();
    std::lock_guard<std::mutex> lock(r.mu);
    auto it = r.open_counts.find(path);
    return it == r.open_counts.end() ? 0 : it->second;
}

}  // namespace kt

#define KT_MODE_ARG(flags, last)                              \
    mode_t mode = 0;                                          \
    if (kt::TakesMode(flags)) {                               \
        va_list ap;                                           \
        va_start(ap, last);                                   \
        mode = static_cast<mode_t>(va_arg(ap, unsigned int)); \
        va_end(ap);                                           \
    }

// Hidden: the replacements serve this executable's own code; exporting them
// would also reroute the shared libraries it loads, sanitizer runtimes
// included.
#define KT_INTERPOSED __attribute__((visibility("hidden")))

extern "C" {

KT_INTERPOSED int open(const char* path, int flags, ...) {
    KT_MODE_ARG(flags, flags)
    return kt::OpenAt(AT_FDCWD, path, flags, mode);
}

KT_INTERPOSED int open64(const char* path, int flags, ...) {
    KT_MODE_ARG(flags, flags)
    return kt::OpenAt(AT_FDCWD, path, flags, mode);
}

KT_INTERPOSED int openat(int dirfd, const char* path, int flags, ...) {
    KT_MODE_ARG(flags, flags)
    return kt::OpenAt(dirfd, path, flags, mode);
}

KT_INTERPOSED int openat64(int dirfd, const char* path, int flags, ...) {
    KT_MODE_ARG(flags, flags)
    return kt::OpenAt(dirfd, path, flags, mode);
}

// Fortified builds call these when the flags are known to need no mode.
KT_INTERPOSED int __open_2(const char* path, int flags) { return kt::OpenAt(AT_FDCWD, path, flags, 0); }
KT_INTERPOSED int __open64_2(const char* path, int flags) { return kt::OpenAt(AT_FDCWD, path, flags, 0); }
KT_INTERPOSED int __openat_2(int dirfd, const char* path, int flags) { return kt::OpenAt(dirfd, path, flags, 0); }
KT_INTERPOSED int __openat64_2(int dirfd, const char* path, int flags) { return kt::OpenAt(dirfd, path, flags, 0); }

KT_INTERPOSED int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list ap;
    va_start(ap, request);
    void* arg = va_arg(ap, void*);
    va_end(ap);
    kt::NoxHandler handler;
    if (!kt::HandlerFor(fd, &handler)) return static_cast<int>(syscall(SYS_ioctl, fd, request, arg));
    if (!handler) {
        errno = ENOTTY;  // the file's handler was removed while it was open
        return -1;
    }
    return handler(request, arg);
}

KT_INTERPOSED int close(int fd) {
    kt::ForgetReusedFd(fd);
    return static_cast<int>(syscall(SYS_close, fd));
}

}  // extern "C"
