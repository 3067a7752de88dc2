// Building the sandbox inside the forked child.
//
// Order: private mount namespace; scratch tmpfs (overlay upper layers);
// overlay of "/" as the new root; /proc, /sys and a private overlay /dev in
// it; fresh tmpfs at /dev/shm, /tmp, /ZUK, /etc/nox, /startup_disk; the
// source, build and executable directories bound back; chroot; syslog socket.
// Every write lands in the scratch tmpfs and vanishes with the child.

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <net/if.h>
#include <sched.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "os/base/kira_raii.h"
#include "tests/support/sandbox_internal.h"

#ifndef KIRA_SOURCE_DIR
#define KIRA_SOURCE_DIR ""
#endif
#ifndef KIRA_BINARY_DIR
#define KIRA_BINARY_DIR ""
#endif

namespace kt {
namespace internal {
namespace {

// The scratch tmpfs covers /tmp of the child's old root only; the new root
// gets a fresh /tmp of its own.
constexpr const char* kScratch = "/tmp";
constexpr const char* kNewRoot = "/tmp/root";

bool Failed(const std::string& what, std::string* error) {
    *error = ErrnoText(what.c_str());
    return false;
}

bool Mount(const char* source, const std::string& target, const char* type, unsigned long flags, const char* data,
           std::string* error) {
    if (::mount(source, target.c_str(), type, flags, data) == 0) return true;
    return Failed(std::string("mount ") + (type != nullptr ? type : "bind") + " at " + target, error);
}

std::string DirOfExecutable() {
    char buf[4096];
    ssize_t n = ::readlink("/proc/self/exe", buf, sizeof buf - 1);
    if (n <= 0) return "";
    std::string exe(buf, static_cast<size_t>(n));
    size_t slash = exe.rfind('/');
    return slash == std::string::npos || slash == 0 ? "" : exe.substr(0, slash);
}

// A directory of the host to show again in the new root, held open so it can
// be bound even when the scratch tmpfs hides its path.
struct BindBack {
    std::string path;
    kira::UniqueFd fd;
};

// An overlay of "/" shows the root file system alone, without what is
// mounted on it; the trees the tests read from are bound back. A tree inside
// another one comes along with it.
std::vector<BindBack> OpenBindBacks() {
    std::vector<std::string> paths;
    for (const std::string& dir : {std::string(KIRA_SOURCE_DIR), std::string(KIRA_BINARY_DIR), DirOfExecutable()}) {
        char real[PATH_MAX];
        if (!dir.empty() && ::realpath(dir.c_str(), real) != nullptr && strcmp(real, "/") != 0) paths.push_back(real);
    }
    std::sort(paths.begin(), paths.end());
    std::vector<BindBack> out;
    for (const std::string& p : paths) {
        if (!out.empty() &&
            (p == out.back().path || p.compare(0, out.back().path.size() + 1, out.back().path + "/") == 0))
            continue;
        out.push_back(BindBack{p, kira::UniqueFd(::open(p.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC))});
    }
    return out;
}

bool MountOverlay(const std::string& lower, const std::string& name, const std::string& target, std::string* error) {
    const std::string upper = std::string(kScratch) + "/" + name + ".upper";
    const std::string work = std::string(kScratch) + "/" + name + ".work";
    if (!MakeDirsQuiet(upper, error) || !MakeDirsQuiet(work, error) || !MakeDirsQuiet(target, error)) return false;
    const std::string opts = "lowerdir=" + lower + ",upperdir=" + upper + ",workdir=" + work;
    return Mount("overlay", target, "overlay", 0, opts.c_str(), error);
}

bool MountFreshTmpfs(const std::string& target, const char* mode, std::string* error) {
    const std::string data = std::string("mode=") + mode;
    return MakeDirsQuiet(target, error) && Mount("tmpfs", target, "tmpfs", 0, data.c_str(), error);
}

bool MountSystemTrees(const std::string& root, bool new_net, std::string* error) {
    if (!Mount("/proc", root + "/proc", nullptr, MS_BIND | MS_REC, nullptr, error)) return false;
    // A sysfs mounted now shows the new network namespace's interfaces; the
    // host's tree would show the host's.
    if (new_net) {
        if (!Mount("sysfs", root + "/sys", "sysfs", 0, nullptr, error)) return false;
    } else if (!Mount("/sys", root + "/sys", nullptr, MS_BIND | MS_REC, nullptr, error)) {
        return false;
    }
    // /dev is an overlay too: binding a socket at /dev/log must not create
    // anything in the host's /dev.
    return MountOverlay("/dev", "dev", root + "/dev", error) && MountFreshTmpfs(root + "/dev/shm", "1777", error);
}

bool MountFixedDirs(const std::string& root, std::string* error) {
    return MountFreshTmpfs(root + "/tmp", "1777", error) && MountFreshTmpfs(root + "/ZUK", "755", error) &&
           MountFreshTmpfs(root + "/etc/nox", "755", error) && MountFreshTmpfs(root + "/startup_disk", "755", error);
}

bool MountBindBacks(const std::string& root, const std::vector<BindBack>& dirs, std::string* error) {
    for (const BindBack& d : dirs) {
        if (!d.fd.valid()) return Failed("open " + d.path, error);
        const std::string source = "/proc/self/fd/" + std::to_string(d.fd.get());
        if (!MakeDirsQuiet(root + d.path, error) ||
            !Mount(source.c_str(), root + d.path, nullptr, MS_BIND | MS_REC, nullptr, error))
            return false;
    }
    return true;
}

bool EnterRoot(const std::string& root, std::string* error) {
    if (::chdir(root.c_str()) != 0) return Failed("chdir " + root, error);
    if (::chroot(".") != 0) return Failed("chroot", error);
    if (::chdir("/") != 0) return Failed("chdir /", error);
    return MakeDirsQuiet(kScratchDir, error);
}

bool BringLoopbackUp(std::string* error) {
    kira::UniqueFd s(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    struct ifreq ifr;
    memset(&ifr, 0, sizeof ifr);
    memcpy(ifr.ifr_name, "lo", 3);
    if (!s.valid() || ::ioctl(s.get(), SIOCGIFFLAGS, &ifr) != 0) return Failed("SIOCGIFFLAGS lo", error);
    ifr.ifr_flags = static_cast<short>(ifr.ifr_flags | IFF_UP);
    if (::ioctl(s.get(), SIOCSIFFLAGS, &ifr) != 0) return Failed("SIOCSIFFLAGS lo", error);
    return true;
}

}  // namespace

bool EnterSandbox(const SandboxOptions& opts, std::string* error) {
    if (::unshare(CLONE_NEWNS | (opts.new_net ? CLONE_NEWNET : 0)) != 0) return Failed("unshare", error);
    if (!Mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr, error)) return false;
    std::vector<BindBack> bind_backs = OpenBindBacks();
    const std::string root = kNewRoot;
    bool built = Mount("tmpfs", kScratch, "tmpfs", 0, "mode=700", error) && MountOverlay("/", "root", root, error) &&
                 MountSystemTrees(root, opts.new_net, error) && MountFixedDirs(root, error) &&
                 MountBindBacks(root, bind_backs, error) && EnterRoot(root, error) && StartSyslogCapture(error) &&
                 (!opts.new_net || BringLoopbackUp(error));
    if (!built) return false;
    // A connection to the host's log socket inherited from the parent would
    // bypass the capture; the next syslog() reconnects to our /dev/log.
    ::closelog();
    MarkInSandbox();
    return true;
}

}  // namespace internal
}  // namespace kt
