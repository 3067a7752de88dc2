// Recording stand-ins for system commands and platform scripts: a shell
// script that appends its arguments to a record, prints a fixed text and
// exits with a fixed status.

#include <stdlib.h>

#include "tests/support/sandbox_internal.h"

namespace kt {
namespace {

constexpr char kArgSeparator = '\x1f';

std::string BinDir() { return std::string(internal::kScratchDir) + "/bin"; }

std::string ShellQuote(const std::string& s) {
    std::string out = "'";
    for (char ch : s) {
        if (ch == '\'') {
            out += "'\\''";
        } else {
            out += ch;
        }
    }
    return out + "'";
}

std::string ScriptText(const std::string& record, int exit_status, const std::string& stdout_text) {
    std::string s = "#!/bin/sh\nsep=''\nline=''\nfor a in \"$@\"; do line=\"$line$sep$a\"; sep='";
    s += kArgSeparator;
    s += "'; done\nprintf '%s\\n' \"$line\" >> " + ShellQuote(record) + "\n";
    if (!stdout_text.empty()) s += "printf '%s' " + ShellQuote(stdout_text) + "\n";
    return s + "exit " + std::to_string(exit_status) + "\n";
}

void PutBinDirFirstOnPath() {
    const std::string dir = BinDir();
    const char* old = getenv("PATH");
    const std::string path = old != nullptr ? old : "/usr/sbin:/usr/bin:/sbin:/bin";
    if (path.compare(0, dir.size() + 1, dir + ":") != 0) setenv("PATH", (dir + ":" + path).c_str(), 1);
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

FakeCommand::FakeCommand(const std::string& name, int exit_status, const std::string& stdout_text) : name_(name) {
    if (!internal::RequireSandbox("FakeCommand")) return;
    const bool on_path = name.find('/') == std::string::npos;
    const std::string script = on_path ? BinDir() + "/" + name : name;
    record_ = internal::ScratchPath("calls");
    std::string error;
    if (!internal::WriteFileQuiet(record_, "", 0644, &error) ||
        !internal::WriteFileQuiet(script, ScriptText(record_, exit_status, stdout_text), 0755, &error)) {
        ADD_FAILURE() << "FakeCommand " << name << ": " << error;
        return;
    }
    if (on_path) PutBinDirFirstOnPath();
}

std::vector<std::vector<std::string>> FakeCommand::Calls() const {
    std::vector<std::vector<std::string>> calls;
    if (record_.empty()) return calls;
    std::vector<std::string> lines = SplitOn(ReadFile(record_), '\n');
    lines.pop_back();  // after the last newline: empty, or a call still being written
    for (const std::string& line : lines) {
        calls.push_back(line.empty() ? std::vector<std::string>() : SplitOn(line, kArgSeparator));
    }
    return calls;
}

}  // namespace kt
