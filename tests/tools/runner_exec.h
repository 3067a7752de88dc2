#ifndef TESTS_TOOLS_RUNNER_EXEC_H
#define TESTS_TOOLS_RUNNER_EXEC_H

// Running the built zadi_runner (through the emulator in a cross build) and
// other commands from a test, and reading what they printed.

#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/sandbox.h"

namespace rt {

// The command line that starts the runner.
inline const std::string kRunner = kt::TargetCommand(KIRA_BINARY_DIR "/tools/runner/zadi_runner");

struct Run {
    int status;
    std::string out;
};

inline int ExitCode(int st) { return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st); }

// Exit status and standard output of a shell command.
inline Run Capture(const std::string& cmd) {
    Run r{-1, ""};
    FILE* p = popen(cmd.c_str(), "r");
    if (p == nullptr) return r;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof(buf), p)) > 0;) r.out.append(buf, n);
    r.status = ExitCode(pclose(p));
    return r;
}

// Both streams of a shell command.
inline Run Shell(const std::string& cmd) { return Capture(cmd + " 2>&1"); }

// The runner with `args`; its standard error too unless left out. exec: no
// shell stays behind holding the arguments on its command line.
inline Run Exec(const std::string& args, bool with_stderr = true) {
    return Capture("exec " + kRunner + " " + args + (with_stderr ? " 2>&1" : " 2>/dev/null"));
}

// A shell command started in the background.
inline pid_t Start(const std::string& cmd) {
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        execl("/bin/sh", "sh", "-c", cmd.c_str(), nullptr);
        _exit(127);
    }
    return pid;
}

// The runner started in the background with its output in files.
inline pid_t Spawn(const std::string& args, const std::string& out, const std::string& err) {
    return Start("exec " + kRunner + " " + args + " >" + out + " 2>" + err);
}

inline int WaitStatus(pid_t pid) {
    int st = 0;
    waitpid(pid, &st, 0);
    return ExitCode(st);
}

inline void SleepMs(long ms) { usleep(static_cast<useconds_t>(ms) * 1000); }

// A sandboxed body with its own time limit and, when asked, its own network.
inline void RunIsolated(void (*body)(), int timeout_s, bool new_net) {
    (void)timeout_s;
    kt::SandboxOptions opts;
    opts.new_net = new_net;
    kt::RunSandboxed(body, opts);
}

inline bool Cross() { return kt::TargetCommand("x") != "x"; }

inline std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1) {
        lines.push_back(text.substr(start, nl - start));
    }
    return lines;
}

inline bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// The first line holding both `a` and `b`.
inline const std::string* LineWith(const std::vector<std::string>& lines, const std::string& a,
                                   const std::string& b = "") {
    for (const std::string& l : lines) {
        if (Has(l, a) && Has(l, b)) return &l;
    }
    return nullptr;
}

// Every line a JSON object carrying the time and the host.
inline void ExpectJsonRecords(const std::string& out, const std::string& what) {
    const auto lines = Lines(out);
    EXPECT_FALSE(lines.empty()) << what;
    for (const std::string& l : lines) {
        EXPECT_TRUE(l.rfind("{\"time\":\"20", 0) == 0 && Has(l, "\"host\":") && l.back() == '}') << what << ": " << l;
    }
}

}  // namespace rt

#endif
