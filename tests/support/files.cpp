// File helpers for test bodies: whole-file write and read, mkdir -p, and
// binding a file of chosen content over an existing path.

#include <errno.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "os/base/kira_raii.h"
#include "tests/support/sandbox_internal.h"

namespace kt {
namespace internal {

bool MakeDirsQuiet(const std::string& path, std::string* error) {
    size_t slash = 0;
    do {
        slash = path.find('/', slash + 1);
        const std::string part = path.substr(0, slash);
        if (::mkdir(part.c_str(), 0755) != 0 && errno != EEXIST) {
            *error = ErrnoText(("mkdir " + part).c_str());
            return false;
        }
    } while (slash != std::string::npos);
    return true;
}

bool WriteFileQuiet(const std::string& path, const std::string& content, mode_t mode, std::string* error) {
    size_t slash = path.rfind('/');
    if (slash != std::string::npos && slash > 0 && !MakeDirsQuiet(path.substr(0, slash), error)) return false;
    kira::UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    if (!fd.valid()) {
        *error = ErrnoText(("open " + path).c_str());
        return false;
    }
    for (size_t done = 0; done < content.size();) {
        ssize_t n = ::write(fd.get(), content.data() + done, content.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) {
            *error = ErrnoText(("write " + path).c_str());
            return false;
        }
        done += static_cast<size_t>(n);
    }
    // The umask must not change what the test asked for.
    if (::fchmod(fd.get(), mode) != 0) {
        *error = ErrnoText(("chmod " + path).c_str());
        return false;
    }
    return true;
}

}  // namespace internal

void WriteFile(const std::string& path, const std::string& content, mode_t mode) {
    std::string error;
    if (!internal::WriteFileQuiet(path, content, mode, &error)) ADD_FAILURE() << "WriteFile: " << error;
}

std::string ReadFile(const std::string& path) {
    kira::UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string out;
    if (!fd.valid()) return out;
    char chunk[8192];
    for (;;) {
        ssize_t n = ::read(fd.get(), chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        out.append(chunk, static_cast<size_t>(n));
    }
    return out;
}

void MakeDirs(const std::string& path) {
    std::string error;
    if (!internal::MakeDirsQuiet(path, &error)) ADD_FAILURE() << "MakeDirs: " << error;
}

void BindFileOver(const std::string& target, const std::string& content) {
    if (!internal::RequireSandbox("BindFileOver")) return;
    const std::string source = internal::ScratchPath("bind");
    std::string error;
    if (!internal::WriteFileQuiet(source, content, 0644, &error)) {
        ADD_FAILURE() << "BindFileOver: " << error;
        return;
    }
    if (::mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) != 0)
        ADD_FAILURE() << "BindFileOver: " << internal::ErrnoText(("bind over " + target).c_str());
}

}  // namespace kt
