// Stand-in for the kernel module's control files under /proc/nox/, which no
// test machine has and nothing can create under /proc.
//
// open/openat (their 64-bit and fortified forms too), ioctl and close are
// defined here, so every call of the test executable, the statically linked
// library code included, comes through. A /proc/nox/ path with a handler
// opens as a memfd; ioctl on it calls the handler. Everything else goes to
// the kernel by raw system call: looking up libc's own functions could
// recurse. A descriptor number reused behind our back (closed by libc's
// internal close, dup2 onto it) is told apart by its inode.

#undef _FORTIFY_SOURCE

#include <errno.h>
#include <fcntl.h>
#include <stdarg.h>
#include <string.h>
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
    ino_t ino;
    std::string path;
};

// Calls come before and after static construction: made on first use,
// never destroyed.
struct Registry {
    std::mutex mu;
    std::map<std::string, NoxHandler> handlers;
    std::map<std::string, int> openCounts;
    std::map<int, FakeFd> fds;
};
Registry& TheRegistry() {
    static Registry* registry = new Registry;
    return *registry;
}
// Lets calls on ordinary descriptors skip the lock (a child forked from a
// threaded test closes descriptors before exec).
std::atomic<int> g_fakeCount{0};

ino_t InodeOf(int fd) {
    struct stat st;
    return fstat(fd, &st) == 0 ? st.st_ino : 0;
}

int OpenAt(int dirfd, const char* path, int flags, mode_t mode) {
    if (KtFaultOpen()) {
        return -1;
    }
    Registry& r = TheRegistry();
    if (path == nullptr || strncmp(path, kNoxPrefix, sizeof kNoxPrefix - 1) != 0) {
        return static_cast<int>(syscall(SYS_openat, dirfd, path, flags, mode));
    }
    std::lock_guard<std::mutex> hold(r.mu);
    if (r.handlers.count(path) == 0) {
        errno = ENOENT;
        return -1;
    }
    const int fd = static_cast<int>(
        syscall(SYS_memfd_create, path + sizeof kNoxPrefix - 1, (flags & O_CLOEXEC) != 0 ? MFD_CLOEXEC : 0U));
    if (fd >= 0) {
        g_fakeCount += r.fds.count(fd) == 0 ? 1 : 0;
        r.fds[fd] = FakeFd{InodeOf(fd), path};
        ++r.openCounts[path];
    }
    return fd;
}

}  // namespace

void NoxSetHandler(const std::string& path, NoxHandler handler) {
    std::lock_guard<std::mutex> hold(TheRegistry().mu);
    TheRegistry().handlers[path] = std::move(handler);
}

void NoxRemove(const std::string& path) {
    std::lock_guard<std::mutex> hold(TheRegistry().mu);
    TheRegistry().handlers.erase(path);
}

int NoxOpenCount(const std::string& path) {
    std::lock_guard<std::mutex> hold(TheRegistry().mu);
    return TheRegistry().openCounts[path];
}

}  // namespace kt

// The mode argument exists only when the flags ask for a file to be created.
#define KT_MODE_ARG(flags)                                            \
    mode_t mode = 0;                                                  \
    if ((flags & O_CREAT) != 0 || (flags & O_TMPFILE) == O_TMPFILE) { \
        va_list ap;                                                   \
        va_start(ap, flags);                                          \
        mode = static_cast<mode_t>(va_arg(ap, unsigned int));         \
        va_end(ap);                                                   \
    }

// Hidden: the replacements serve this executable's own code; exported, they
// would reroute the shared libraries it loads too, sanitizer runtimes
// included.
#define KT_INTERPOSED __attribute__((visibility("hidden")))

extern "C" {

KT_INTERPOSED int open(const char* path, int flags, ...) {
    KT_MODE_ARG(flags)
    return kt::OpenAt(AT_FDCWD, path, flags, mode);
}
KT_INTERPOSED int open64(const char* path, int flags, ...) __attribute__((alias("open")));
KT_INTERPOSED int openat(int dirfd, const char* path, int flags, ...) {
    KT_MODE_ARG(flags)
    return kt::OpenAt(dirfd, path, flags, mode);
}
KT_INTERPOSED int openat64(int dirfd, const char* path, int flags, ...) __attribute__((alias("openat")));
// Fortified builds call these when the flags need no mode.
KT_INTERPOSED int __open_2(const char* path, int flags) { return kt::OpenAt(AT_FDCWD, path, flags, 0); }
KT_INTERPOSED int __open64_2(const char* path, int flags) { return kt::OpenAt(AT_FDCWD, path, flags, 0); }
KT_INTERPOSED int __openat_2(int dirfd, const char* path, int flags) { return kt::OpenAt(dirfd, path, flags, 0); }
KT_INTERPOSED int __openat64_2(int dirfd, const char* path, int flags) { return kt::OpenAt(dirfd, path, flags, 0); }

KT_INTERPOSED int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list ap;
    va_start(ap, request);
    void* arg = va_arg(ap, void*);
    va_end(ap);
    if (kt::g_fakeCount == 0) {
        return static_cast<int>(syscall(SYS_ioctl, fd, request, arg));
    }
    kt::Registry& r = kt::TheRegistry();
    std::unique_lock<std::mutex> hold(r.mu);
    const auto it = r.fds.find(fd);
    if (it == r.fds.end() || it->second.ino != kt::InodeOf(fd)) {
        return static_cast<int>(syscall(SYS_ioctl, fd, request, arg));
    }
    const kt::NoxHandler handler = r.handlers.count(it->second.path) != 0 ? r.handlers[it->second.path] : nullptr;
    hold.unlock();  // a handler may open, log or take its own locks
    if (!handler) {
        errno = ENOTTY;  // the handler was removed while the file was open
        return -1;
    }
    return handler(request, arg);
}

KT_INTERPOSED int close(int fd) {
    if (kt::g_fakeCount != 0) {
        std::lock_guard<std::mutex> hold(kt::TheRegistry().mu);
        kt::g_fakeCount -= static_cast<int>(kt::TheRegistry().fds.erase(fd));
    }
    return static_cast<int>(syscall(SYS_close, fd));
}

}  // extern "C"
