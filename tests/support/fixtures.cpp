// What test bodies set up around the code under test: whole files, files
// bound over system paths, recording stand-ins for commands, names unique to
// the run, and the command line of a program built for the target.

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include "os/base/kira_raii.h"
#include "tests/support/sandbox_internal.h"

#ifndef KIRA_TARGET_EMULATOR
#define KIRA_TARGET_EMULATOR ""
#endif

namespace kt {
namespace {

const std::string kArgSeparator = "\x1f";

std::string ShellQuote(const std::string& s) {
    std::string out = "'";
    for (char ch : s) {
        out += ch == '\'' ? std::string("'\\''") : std::string(1, ch);
    }
    return out + "'";
}

std::vector<std::string> SplitOn(const std::string& text, char sep) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (size_t at = text.find(sep); at != std::string::npos; at = text.find(sep, start)) {
        parts.push_back(text.substr(start, at - start));
        start = at + 1;
    }
    parts.push_back(text.substr(start));
    return parts;
}

}  // namespace

bool MakeDirs(const std::string& path) {
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        const std::string part = path.substr(0, slash);
        if (!internal::Done(mkdir(part.c_str(), 0755) == 0 || errno == EEXIST, "mkdir " + part)) {
            return false;
        }
        if (slash == std::string::npos) {
            return true;
        }
    }
}

bool WriteFile(const std::string& path, const std::string& content, mode_t mode) {
    const size_t slash = path.rfind('/');
    if (slash != std::string::npos && slash > 0 && !MakeDirs(path.substr(0, slash))) {
        return false;
    }
    kira::UniqueFd fd(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
    // The umask must not change what the test asked for.
    return internal::Done(fd.valid() &&
                              write(fd.get(), content.data(), content.size()) == static_cast<ssize_t>(content.size()) &&
                              fchmod(fd.get(), mode) == 0,
                          "write " + path);
}

std::string ReadFile(const std::string& path) {
    kira::UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string out;
    char chunk[8192];
    ssize_t n;
    while (fd.valid() && ((n = read(fd.get(), chunk, sizeof chunk)) > 0 || (n < 0 && errno == EINTR))) {
        out.append(chunk, n > 0 ? static_cast<size_t>(n) : 0);
    }
    return out;
}

void BindFileOver(const std::string& target, const std::string& content) {
    const std::string source = internal::ScratchPath("bind");
    if (internal::RequireSandbox("BindFileOver") && WriteFile(source, content)) {
        internal::Done(mount(source.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) == 0, "bind over " + target);
    }
}

FakeCommand::FakeCommand(const std::string& name, int exit_status, const std::string& stdout_text,
                         const std::string& fail_on) {
    if (!internal::RequireSandbox("FakeCommand")) {
        return;
    }
    const std::string binDir = std::string(internal::kScratchDir) + "/bin";
    const bool onPath = name.find('/') == std::string::npos;
    record_ = internal::ScratchPath("calls");
    WriteFile(record_, "");
    std::string script = "#!/bin/sh\nsep=''\nline=''\nfor a in \"$@\"; do line=\"$line$sep$a\"; sep='" + kArgSeparator +
                         "'; done\nprintf '%s\\n' \"$line\" >> " + ShellQuote(record_) + "\n";
    script += "printf '%s' " + ShellQuote(stdout_text) + "\n";
    if (!fail_on.empty()) {
        script += "for a in \"$@\"; do [ \"$a\" = " + ShellQuote(fail_on) + " ] && exit 1; done\n";
    }
    WriteFile(onPath ? binDir + "/" + name : name, script + "exit " + std::to_string(exit_status) + "\n", 0755);
    const std::string path = getenv("PATH") != nullptr ? getenv("PATH") : "/usr/sbin:/usr/bin:/sbin:/bin";
    if (onPath && path.compare(0, binDir.size() + 1, binDir + ":") != 0) {
        setenv("PATH", (binDir + ":" + path).c_str(), 1);
    }
}

std::vector<std::vector<std::string>> FakeCommand::Calls() const {
    std::vector<std::vector<std::string>> calls;
    std::vector<std::string> lines = SplitOn(ReadFile(record_), '\n');
    lines.pop_back();  // after the last newline: empty, or a call still being written
    for (const std::string& line : lines) {
        calls.push_back(line.empty() ? std::vector<std::string>() : SplitOn(line, kArgSeparator[0]));
    }
    return calls;
}

// The process id in base 36 (five digits hold any pid), then a counter:
// distinct across concurrent runs and within one.
std::string UniqueName(const std::string& stem) {
    static std::atomic<unsigned> counter{0};
    static const char kDigits[] = "0123456789abcdefghijklmnopqrstuvwxyz";
    std::string out;
    for (unsigned long v = static_cast<unsigned long>(getpid()), width = 0; width < 5 || v != 0; v /= 36, ++width) {
        out.insert(out.begin(), kDigits[v % 36]);
    }
    for (unsigned v = counter.fetch_add(1), first = 1; first != 0 || v != 0; v /= 36, first = 0) {
        out.insert(out.begin() + 5, kDigits[v % 36]);
    }
    return stem + "_" + out;
}

std::string TargetCommand(const std::string& program) {
    const std::string emulator = KIRA_TARGET_EMULATOR;
    return emulator.empty() ? program : emulator + " " + program;
}

}  // namespace kt
