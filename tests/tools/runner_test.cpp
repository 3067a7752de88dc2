// zadi_runner end to end: the real binary loading the real library. What it
// prints must never hide a fault: misses, priming calls and failures are
// states of their own, bad input names the problem, and the exit status
// tells the last calls apart.

#include <pty.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mount.h>
#include <time.h>

#include <string>
#include <vector>

#include "tests/support/sandbox.h"
#include "tests/tools/runner_exec.h"

namespace {

using namespace rt;

// A process keeping one processor busy, under a command line of its own.
struct Busy {
    explicit Busy(const std::string& tag)
        : pid(Start("exec sh -c 'while :; do :; done' " + tag)), cmdline("sh -c while :; do :; done " + tag) {
        SleepMs(100);
    }
    ~Busy() {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    pid_t pid;
    std::string cmdline;
};

}  // namespace

SANDBOX_TEST(Runner, DefaultConfigurationAnswersEveryItem) {
    const Run r = Exec("--once --json", false);
    ASSERT_EQ(r.status, 0) << r.out;
    ExpectJsonRecords(r.out, "--once --json");
    const auto lines = Lines(r.out);
    EXPECT_EQ(lines.size(), 11u) << r.out;
    // The items that measure since their previous call only prime; every
    // other one answers with a figure.
    for (const std::string& l : lines) {
        const bool primes = Has(l, "\"GetSysCPU\"") || Has(l, "\"GetSysUsrCPU\"") || Has(l, "\"GetProcessCoreCPU\"");
        EXPECT_TRUE(Has(l, primes ? "\"state\":\"priming\",\"value\":null" : "\"state\":\"ok\",\"value\":")) << l;
    }
    // The sample configuration: its processes may be missing, nothing fails.
    const Run sample = Exec("--config " KIRA_SOURCE_DIR "/tools/runner/zadi_runner.conf --once --json", false);
    EXPECT_TRUE((sample.status == 0 || sample.status == 4) && Lines(sample.out).size() == 8u) << sample.out;
    const Run t = Exec("--once");
    ASSERT_EQ(t.status, 0) << t.out;
    EXPECT_TRUE(Has(t.out, "round 1")) << t.out;
    const auto table = Lines(t.out);
    EXPECT_TRUE(LineWith(table, "GetSysFreeMemory", " MB  ok") && LineWith(table, "GetSysCPU", "priming") &&
                LineWith(table, "IsExistProcess ", "1 running"))
        << t.out;
    // Parameters are shown whole, however long.
    std::string init = kt::ReadFile("/proc/1/cmdline");
    while (!init.empty() && init.back() == '\0') init.pop_back();
    for (char& c : init) c = c == '\0' ? ' ' : c;
    if (init.size() < 400) {
        EXPECT_TRUE(Has(t.out, "ProcessName=" + init + "\n")) << t.out;
    }
}

// Every flavour of process lookup: a miss is "no_match" (exit 4), never a
// figure; once the process runs the same call answers. The wildcard stands on
// the runner's own command line and still does not find the runner.
SANDBOX_TEST(Runner, NoProcessMatchedIsAStateNotAZero) {
    const std::string u = kt::UniqueName("nm");
    const struct {
        const char* item;
        std::string name;
        const char* note;
    } cases[] = {
        {"GetProcessMemory", "/opt/" + u + " serve", "no process has exactly this command line"},
        {"GetProcessHandleExtern", "/opt/" + u, "no process's command line starts with this"},
        {"GetProcessMemoryFuzzyMatch", "*" + u + "*", "no process's command line matches this pattern"},
        {"GetProcessCoreCPU", "/opt/" + u + " serve", "no process has exactly this command line"},
    };
    for (const auto& c : cases) {
        if (Cross() && Has(c.name, "*")) continue;  // under the emulator the runner's arguments stay visible
        const std::string args = std::string("call ") + c.item + " 'ProcessName=" + c.name + "'";
        Run r = Exec(args + " --json", false);
        EXPECT_EQ(r.status, 4) << args << r.out;
        EXPECT_TRUE(Has(r.out, "\"state\":\"no_match\",\"value\":null") && Has(r.out, "\"pid\":null")) << r.out;
        r = Exec(args);
        EXPECT_TRUE(Has(r.out, "no match") && Has(r.out, c.note)) << r.out;
    }
    kt::Child child("nmc", {"/opt/" + u, "serve"});
    for (const auto& c : cases) {
        const Run r = Exec(std::string("call ") + c.item + " 'ProcessName=" + c.name + "' --json", false);
        EXPECT_EQ(r.status, 0) << c.item << r.out;
        EXPECT_TRUE(Has(r.out, "\"state\":\"ok\"")) << r.out;
    }
}

SANDBOX_TEST(Runner, CpuItemsPrimeBeforeTheyMeasure) {
    Busy busy(kt::UniqueName("cpu"));
    kt::WriteFile("/tmp/cpu.conf",
                  "item=GetSysCPU,period=1\nitem=GetProcessCoreCPU,period=1,ProcessName=" + busy.cmdline + "\n");
    const Run r = Exec("--config /tmp/cpu.conf --rounds 2 --json", false);
    ASSERT_EQ(r.status, 0) << r.out;
    const auto lines = Lines(r.out);
    ASSERT_EQ(lines.size(), 4u) << r.out;
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(Has(lines[i], i < 2 ? "\"state\":\"priming\",\"value\":null" : "\"state\":\"ok\",\"value\":"))
            << lines[i];
    }
    // A one-shot call samples twice, a second apart: a busy process reads
    // busy, not as its tiny average since boot.
    const time_t start = time(nullptr);
    const Run c = Exec("call GetProcessCoreCPU 'ProcessName=" + busy.cmdline + "' --json", false);
    EXPECT_GE(time(nullptr) - start, 1);
    ASSERT_EQ(c.status, 0) << c.out;
    const size_t at = c.out.find("\"value\":");
    ASSERT_NE(at, std::string::npos) << c.out;
    EXPECT_GT(atof(c.out.c_str() + at + 8), 10.0) << c.out;
}

// --json is honoured everywhere (run mode and demo are checked with their own
// tests).
SANDBOX_TEST(Runner, EverySubcommandHonoursJson) {
    for (const char* args : {"items --json", "call GetSysMemory --json", "census rss --json"}) {
        const Run r = Exec(args, false);
        EXPECT_EQ(r.status, 0) << args;
        ExpectJsonRecords(r.out, args);
    }
    EXPECT_EQ(Lines(Exec("items --json", false).out).size(), 25u);
}

// Help, items, version and the periods of a real zone explain themselves; bad
// input names the problem.
SANDBOX_TEST(Runner, OutputIsExplainedAndBadInputNamed) {
    kt::BindFileOver("/dev/kmsg", "");
    setenv("TZ", "Europe/Berlin", 1);
    kt::WriteFile("/tmp/notalib.so", "garbage");
    kt::MakeDirs("/tmp/conf.d");
    const std::string bad = "--config /tmp/bad.conf";
    const std::string missing = "item=GetProcessMemory,ProcessName=/opt/" + kt::UniqueName("nm") + "\n";
    const struct {
        std::string conf;  // written to /tmp/bad.conf when not empty
        std::string args;
        int status;
        std::vector<std::string> parts;
    } cases[] = {
        // clang-format off
        {"", "--help", 0, {"exit status", "no_match", "priming", "%core   percent of one processor", "census"}},
        {"", "--help", 0, {"items", "demo", "call", "--exit-zero"}},
        {"", "--version", 0, {"zadi_runner 1."}},
        {"", "items", 0, {"GetProcessCoreCPUFuzzyMatchCfgPeriod %core  ProcessName Period", "IsExistProcessPreCmd"}},
        {"", "items", 0, {"the first call only primes", "MB      whole megabytes"}},
        {"", "dst Europe/Berlin 2024", 0, {"zone Europe/Berlin, year 2024: 1 daylight-saving period",
            " 0  2024-03-31 01:00:00  2024-10-27 01:00:00  03-31 02:00:00  10-27 03:00:00  +02:00  60 min",
            "KIRA_QueryDstConfInfoForRegion (this year, ", "offset 60 min, flag 0"}},
        {"", "dst UTC", 0, {": 0 daylight-saving periods"}},
        {"", "dst", 2, {}},
        {"", "dst Europe/Berlin 20x4", 2, {}},
        {"", "dst a b c", 2, {}},
        {"", "dst Europe/Berlin 1969", 1, {}},
        {"", "dst Nowhere/Land", 1, {}},
        {"", "dst 'Europe/Berlin;id'", 1, {}},
        {"item = GetSysCPU , period = 1\n", bad + " --once", 0, {"priming"}},
        // Run mode's status follows the last calls; --exit-zero keeps 0.
        {missing, bad + " --once", 4, {"no match"}},
        {missing, bad + " --once --exit-zero", 0, {"no match"}},
        {"item=GetDiskUsage,Path=/no/such\n" + missing, bad + " --once", 3,
            {"reason: Get Disk Usage Fault, Return -1.000000."}},
        {"item=GetSysCPU\nitem=GetSysCPU,period\n", bad + " --once", 1, {"line 2: malformed field"}},
        {"\nitem=GetNothing,period=1\n", bad, 1, {"line 2: unknown item \"GetNothing\""}},
        {"item=GetSysCPU,period=abc\n", bad, 1, {"line 1: period must be"}},
        {"item=GetSysCPU,period=1,period=2\n", bad, 1, {"line 1: \"period\" given twice"}},
        {"item=GetDiskUsage,Path=/,Path=/tmp\n", bad, 1, {"line 1: parameter \"Path\" given twice"}},
        {"#\nitem=GetSysCPU,Foo=1\n", bad, 1, {"line 2: GetSysCPU reads no parameter \"Foo\""}},
        {"period=3\n", bad, 1, {"line 1: no item= field"}},
        {"# nothing\n", bad, 1, {"names no item"}},
        {"item=GetProcessMemory,ProcessName=" + std::string(400, 'x') + "\n", bad + " --once", 1, {"399"}},
        {"", "--config /tmp/none.conf", 1, {"/tmp/none.conf: No such file or directory"}},
        {"", "--config /tmp/conf.d", 1, {"/tmp/conf.d is a directory"}},
        {"", "--config", 2, {"--config needs a value"}},
        {"", "--lib /tmp/no-such-lib.so --once", 1, {"/tmp/no-such-lib.so"}},
        {"", "--lib /tmp/notalib.so call GetSysCPU", 1, {"cannot load"}},
        {"", "call NoSuchItem", 2, {"unknown item"}},
        {"", "call GetDiskUsage Path", 2, {"not Name=Value"}},
        {"", "call GetProcessMemory ProcessName=", 2, {}},
        {"", "call GetDiskUsage", 3, {"Input parameter number error."}},
        {"", "call GetDiskUsage Path=/no,such", 3, {"Get Disk Usage Fault, Return -1.000000."}},
        {"", "frobnicate", 2, {"unknown subcommand"}},
        {"", "--rounds 0", 2, {"--rounds needs"}},
        {"", "--once --rounds 2", 2, {"contradict"}},
        {"", "call GetSysCPU --once", 2, {"--rounds does not apply to call"}},
        {"", "items --lib x", 2, {"--lib does not apply to items"}},
        {"", "--bogus", 2, {"unknown option --bogus"}},
        {"", "--textfile /tmp/none.d --once", 1, {"--textfile needs a directory: /tmp/none.d"}},
        {"", "--log-file /tmp/none.d/log", 1, {"cannot open /tmp/none.d/log: No such file or directory"}},
        // clang-format on
    };
    for (const auto& c : cases) {
        if (!c.conf.empty()) kt::WriteFile("/tmp/bad.conf", c.conf);
        const Run r = Exec(c.args);
        EXPECT_EQ(r.status, c.status) << c.args << ": " << r.out;
        for (const std::string& part : c.parts)
            EXPECT_TRUE(Has(r.out, part)) << c.args << ": " << part << "\n" << r.out;
    }
}

SANDBOX_TEST(Runner, ContextsLastAcrossRoundsAndPidsAreReported) {
    const std::string u = kt::UniqueName("rn");
    kt::Child c("rnc", {"/opt/" + u, "serve"});
    kt::WriteFile("/tmp/items.conf", "# items for the test\nitem=IsExistProcess,period=1,ProcessName=/opt/" + u +
                                         " serve\n\nitem=IsExistProcessExtern,period=1,ProcessName=/opt/" + u +
                                         "\nitem=GetProcessMemoryFuzzyMatch,period=1,ProcessName=/opt/" + u +
                                         " s*\nitem=IsExistProcess,ProcessName=/opt/" + u + " # commented out\n");
    const Run r = Exec("--config /tmp/items.conf --rounds 2 --json", false);
    ASSERT_EQ(r.status, 0) << r.out;
    const auto lines = Lines(r.out);
    ASSERT_EQ(lines.size(), 6u) << r.out;
    const std::string pid = "\"pid\":" + std::to_string(c.pid());
    EXPECT_TRUE(LineWith(lines, "\"round\":2,\"item\":\"IsExistProcess\"", "\"value\":1,") &&
                LineWith(lines, "IsExistProcessExtern", pid) && LineWith(lines, "GetProcessMemoryFuzzyMatch", pid))
        << r.out;
}

// SIGHUP reads the configuration again; SIGTERM and SIGINT end the run after
// the call in progress with a one-line summary.
SANDBOX_TEST(Runner, SignalsReloadAndStopCleanly) {
    for (int sig : {SIGTERM, SIGINT}) {
        kt::WriteFile("/tmp/sig.conf", "item=GetSysMemory,period=1\n");
        const pid_t pid = Spawn("--config /tmp/sig.conf --json", "/tmp/sig.out", "/tmp/sig.err");
        SleepMs(1500);
        kt::WriteFile("/tmp/sig.conf", "item=GetSysFreeMemory,period=1\n");
        kill(pid, SIGHUP);
        SleepMs(1500);
        kill(pid, sig);
        EXPECT_EQ(WaitStatus(pid), 0);
        const std::string out = kt::ReadFile("/tmp/sig.out");
        const std::string err = kt::ReadFile("/tmp/sig.err");
        EXPECT_TRUE(Has(out, "\"GetSysMemory\"") && Has(out, "\"GetSysFreeMemory\"")) << out;
        EXPECT_TRUE(Has(err, "configuration read again: 1 items") &&
                    Has(err, std::string("stopped by SIG") + sigabbrev_np(sig) + " after "))
            << err;
    }
}

// The demo's worker and heartbeat file go on every way out; --plugin-log
// shows the plug-in's own diagnostic lines.
SANDBOX_TEST(Runner, DemoLeavesNothingBehind) {
    for (const std::string how : {"TERM", "INT", "pipe", "end"}) {
        // The first run writes JSON; the last sends the plug-in's diagnostic
        // lines to a log file.
        const std::string opts = how == "TERM"  ? " --json"
                                 : how == "end" ? " --plugin-log --log-file /tmp/demo.log"
                                                : "";
        const std::string cmd = kRunner + " demo" + opts + " 2>/tmp/demo.err";
        unlink("/tmp/demo.out");
        const pid_t sh = Start(how == "pipe" ? cmd + " | head -c 1 >/dev/null" : "exec " + cmd + " >/tmp/demo.out");
        SleepMs(2500);
        if (how == "TERM" || how == "INT") kill(sh, how == "TERM" ? SIGTERM : SIGINT);
        const int status = WaitStatus(sh);
        EXPECT_TRUE(how != "end" || status == 0) << status;
        SleepMs(200);
        if (how == "TERM") ExpectJsonRecords(kt::ReadFile("/tmp/demo.out"), "demo --json");
        const std::string out = kt::ReadFile("/tmp/demo.err") + kt::ReadFile("/tmp/demo.out");
        EXPECT_TRUE(Has(out, "removed")) << how << ": " << out;
        EXPECT_EQ(system("ls /tmp/heartbeat | grep -q zadi_demo"), 256) << how;
        const std::string worker = out.substr(out.find("(pid ") + 5);
        EXPECT_NE(kt::ReadFile("/proc/" + worker.substr(0, worker.find(')')) + "/comm"), "zadi_demo\n") << how;
    }
    const std::string log = kt::ReadFile("/tmp/demo.log");
    EXPECT_TRUE(Has(log, "plug-in <3> ") && Has(log, "Process zadi_demo(9) heartbeat not refreshed")) << log;
}

// run.sh shows why a build failed and installs only what a run needs.
SANDBOX_TEST(Runner, RunScriptShowsBuildErrors) {
    kt::MakeDirs("/tmp/rs/.ci");
    kt::WriteFile("/tmp/rs/run.sh", kt::ReadFile(KIRA_SOURCE_DIR "/run.sh"), 0755);
    kt::WriteFile("/tmp/rs/.ci/install-deps.sh", kt::ReadFile(KIRA_SOURCE_DIR "/.ci/install-deps.sh"), 0755);
    kt::FakeCommand cmake("cmake");
    kt::FakeCommand ninja("ninja", 1, "plugin.cpp:12:3: error: 'frob' was not declared in this scope\n");
    const Run r = Shell("/tmp/rs/run.sh --once");
    EXPECT_NE(r.status, 0);
    EXPECT_TRUE(Has(r.out, "error: 'frob' was not declared") && Has(r.out, "build failed")) << r.out;
    const std::string run_list = Capture("bash /tmp/rs/.ci/install-deps.sh --print --run").out;
    EXPECT_TRUE(Has(run_list, "cmake") && !Has(run_list, "qemu") && !Has(run_list, "aarch64")) << run_list;
}

// The minute of the CPU census is counted on a terminal, and only there.
static void CensusProgressBody() {
    // The sandbox's /dev carries no terminals: a private devpts instance.
    ASSERT_EQ(mount("devpts", "/dev/pts", "devpts", 0, "newinstance,ptmxmode=0666"), 0) << strerror(errno);
    ASSERT_EQ(mount("/dev/pts/ptmx", "/dev/ptmx", nullptr, MS_BIND, nullptr), 0) << strerror(errno);
    int master = -1;
    const std::string cmd = kRunner + " census cpu >/tmp/plain.out & " + kRunner + " census cpu; wait";
    fflush(nullptr);
    const pid_t pid = forkpty(&master, nullptr, nullptr, nullptr);
    if (pid == 0) {
        execl("/bin/sh", "sh", "-c", cmd.c_str(), nullptr);
        _exit(127);
    }
    ASSERT_GT(pid, 0);
    std::string tty;
    char buf[512];
    for (ssize_t n; (n = read(master, buf, sizeof(buf))) > 0;) tty.append(buf, static_cast<size_t>(n));
    EXPECT_EQ(WaitStatus(pid), 0);
    close(master);
    EXPECT_TRUE(Has(tty, "\rsampling every process:  1 of 60 s") && Has(tty, "59 of 60 s") &&
                Has(tty, "user share of all processors"))
        << tty;
    const std::string plain = kt::ReadFile("/tmp/plain.out");
    EXPECT_TRUE(plain.rfind("user share of all processors", 0) == 0 && !Has(plain, "sampling")) << plain;
}

TEST(Runner, SlowCensusCpuShowsProgressOnlyOnATerminal) { RunIsolated(&CensusProgressBody, 150, false); }
