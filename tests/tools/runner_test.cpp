// zadi_runner as an operator meets it. The first table holds command lines,
// the exit status each ends with and patterns of what it must (after '!':
// must not) leave in its output, log file and textfile; with --json every
// line of standard output is a record. Then the signals of a run and of the
// demo, and the installed tree: programs build against it, its service serves
// /metrics, and Prometheus scrapes that and the node exporter's textfile.

#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <string>
#include <vector>

#include "tests/support/sandbox.h"

namespace {

const std::string kRunner = kt::TargetCommand(KIRA_BINARY_DIR "/tools/runner/zadi_runner");
const std::string kExamples = KIRA_BINARY_DIR "/tools/examples/";

struct Run {
    int status;
    std::string out;
};

int ExitCode(int st) { return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st); }

Run Shell(const std::string& cmd, bool with_stderr = true) {
    Run r{-1, ""};
    FILE* p = popen((cmd + (with_stderr ? " 2>&1" : " 2>/dev/null")).c_str(), "r");
    if (p == nullptr) {
        return r;
    }
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof(buf), p)) > 0;) {
        r.out.append(buf, n);
    }
    r.status = ExitCode(pclose(p));
    return r;
}

pid_t Start(const std::string& cmd) {
    pid_t pid = -1;
    const char* argv[] = {"sh", "-c", cmd.c_str(), nullptr};
    return posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ) == 0 ? pid : -1;
}

int WaitStatus(pid_t pid) {
    int st = 0;
    return waitpid(pid, &st, 0) == pid ? ExitCode(st) : -1;
}

// A line naming one of the example programs runs it; any other, the runner.
std::string Command(const std::string& args) {
    const size_t space = args.find(' ');
    const std::string example = kExamples + args.substr(0, space);
    if (access(example.c_str(), X_OK) != 0) {
        return kRunner + " " + args;
    }
    return kt::TargetCommand(example) + (space == std::string::npos ? "" : args.substr(space));
}

bool Cross() { return kt::TargetCommand("x") != "x"; }
bool Has(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }
std::string Fetch(const std::string& url) { return Shell("curl -gsS --max-time 5 '" + url + "'").out; }

void ExpectPatterns(const std::string& out, const std::vector<std::string>& patterns, const std::string& what) {
    for (const std::string& p : patterns) {
        const bool absent = p[0] == '!';
        EXPECT_NE(std::regex_search(out, std::regex(p.substr(absent))), absent) << what << ": " << p << "\n" << out;
    }
}

// A literal text as a pattern.
std::string Lit(const std::string& text) {
    return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
}

// The number in the first result of an instant query, -1 when none.
double Ask(const std::string& query) {
    const std::string answer =
        Shell("curl -sS --max-time 5 -G --data-urlencode 'query=" + query + "' http://127.0.0.1:9090/api/v1/query").out;
    const size_t at = answer.find("\"value\":[");
    const size_t quote = at == std::string::npos ? at : answer.find('"', answer.find(',', at) + 1);
    return quote == std::string::npos ? -1 : atof(answer.c_str() + quote + 1);
}

}  // namespace

SANDBOX_TEST(Runner, CommandLinesEndAsDocumented) {
    kt::BindFileOver("/dev/kmsg", "");
    setenv("TZ", "Europe/Berlin", 1);
    const std::string u = kt::UniqueName("op"), opt = "/opt/" + u, name = opt + " a\"b\\c";
    kt::Child proc("opc", {opt, "a\"b\\c"});
    const std::string pid = std::to_string(proc.pid());
    kt::Child hb("hbz", {"hbz"});
    Shell("mkdir -p /tmp/heartbeat /tmp/tf /tmp/tfd/zadi.prom");
    for (const std::string m : {"6", "7", "8", "9"}) {
        kt::WriteFile("/tmp/heartbeat/hbz___" + m + "___" + std::to_string(hb.pid()), "beat\n1001\n");
    }
    const std::string busy = "sh -c while :; do :; done " + u;
    const pid_t busy_pid = Start("exec timeout 120 sh -c 'while :; do :; done' " + u);
    const std::string once = "--config /tmp/t.conf --once", two = "--config /tmp/t.conf --rounds 2";
    const std::string miss = "item=GetProcessMemory,ProcessName=" + opt + "x\n";
    const std::string beat = "item=ProcessHeartBeat,period=1,ProcessName=hbz,ProcessMoudleId=";
    const std::string sent = R"(errrpt errCode=0xF000020F .* params=\{ProcessName="hbz", ProcessMoudleId=")";
    const std::string quoted = "process=\"/opt/" + u + " a\\\"b\\\\c\"}";
    const struct {
        std::string conf;  // written to /tmp/t.conf when not empty
        std::string args;
        int status;
        std::vector<std::string> want;
    } cases[] = {
        // clang-format off
        // Built in: items that measure since their previous call only prime.
        {"", "--once --json", 0, {R"("item":"GetSysMemory","params":\{\},"state":"ok","value":[0-9.]+,"unit":"%")",
            R"("item":"GetSysCPU","params":\{\},"state":"priming","value":null)", R"re(!"(no_match|failed)")re"}},
        {"", "--once", 0, {"round 1  ", "GetSysFreeMemory +[0-9.]+ MB  ok", "GetSysCPU +-  priming",
            "IsExistProcess +1 running  ok", "\n    first sample stored; figures start with the next call\n"}},
        // Contexts last across rounds; '#' lines and blank ones are skipped.
        {"# items\nitem=GetSysCPU,period=1\n\nitem=GetProcessCoreCPU,period=1,ProcessName=" + busy +
            "\nitem=IsExistProcessExtern,period=1,ProcessName=" + opt + "\nitem=GetNothing # off\n", two + " --json", 0,
            {R"("round":1,"item":"GetSysCPU".*"priming")", R"("round":2,"item":"GetSysCPU".*"ok")",
            R"("round":2,"item":"GetProcessCoreCPU".*"ok","value":[1-9][0-9])",
            R"("round":2,"item":"IsExistProcessExtern".*"value":1,.*"pid":)" + pid + ","}},
        // A one-shot call of a CPU item samples twice, a second apart.
        {"", "call GetProcessCoreCPU 'ProcessName=" + busy + "' --json", 0, {R"("state":"ok","value":[1-9][0-9])"}},
        // A miss is a state of its own, never a zero, for each kind of lookup;
        // the runner's own command line does not count.
        {"", "call GetProcessMemoryFuzzyMatch 'ProcessName=*" + u + "x*'", 4, {"no process's command line matches this"}},
        {miss + "item=GetProcessMemoryExtern,ProcessName=" + opt + "x\nitem=GetProcessCoreCPU,ProcessName=" + opt + "x\n",
            once, 4, {"GetProcessMemory +-  no match +-  ProcessName=", "\n    no process has exactly this command line\n",
            "no process's command line starts with this"}},
        {"", once + " --json", 4, {R"("GetProcessMemoryExtern".*"state":"no_match","value":null,.*"pid":null)"}},
        {"", once + " --exit-zero", 0, {"no match"}},
        {"item=GetProcessHandle,ProcessName=" + name + "\nitem=GetProcessCoreCPUExtern,ProcessName=" + opt +
            "\nitem=GetProcessCoreCPUFuzzyMatch,ProcessName=*" + u + " a*\nitem=GetProcessCoreCPU,ProcessName=" + name +
            "\n", once + " --json", 0, {R"(Handle".*"ok","value":0,)", R"(CPUExtern".*"ok","value":0,)",
            R"(CPUFuzzyMatch".*"ok","value":0,.*"pid":)" + pid, "!no_match"}},
        // A hang raises the heartbeat report through the agent's stand-in; a beat does not.
        {beat + "7\n" + beat + "8,ErrRptUserData=none\n" + beat + "9,ErrRptUserData=x y\n" + beat + "6,ErrRpt=off\n", two,
            0, {"1 beating  ok +-  ProcessName=hbz, ProcessMoudleId=7\n", "0 hung", sent + R"(7", UserData="[0-9]+"\}\n)",
            sent + "8\"\\}\n", sent + R"(9", UserData="x y"\}\n)", "!ProcessMoudleId=\"6\"",
            "\n    error report 0xF000020F hangFlowId=[0-9]+: sent\n", R"(!beating.*\n(errrpt.*\n)? +error report)"}},
        // The plug-in's own lines, copied where the runner's messages go.
        {beat + "7\n", two + " --plugin-log --log-file /tmp/r.log", 0,
            {"plug-in: .*Process hbz\\(7\\) heartbeat not refreshed"}},
        // The demo's worker and heartbeat file go at the end and when nobody reads.
        {"", "heartbeat_demo", 0, {"worker stopped; its heartbeat file removed",
            "plug-in: .*Process zadi_demo\\(9\\) heartbeat not refreshed", "error report 0xF000020F hangFlowId="}},
        {"", "heartbeat_demo | head -c 1", 0, {}},
        // The textfile: no figure for a failure, a miss or a priming call, and
        // no unbounded label; the reason goes to the log, once.
        {"item=GetSysMemory,period=1\nitem=GetDiskUsage,period=1,Path=/no/such\n" + miss +
            "item=GetProcessMemoryExtern,period=1,ProcessName=" + name + "\nitem=GetSysCPU,period=60\n" + beat +
            "7,ErrRpt=off\n", two + " --textfile /tmp/tf", 3,
            {Lit("{item=\"GetDiskUsage\",path=\"/no/such\"} failed: Get Disk"), "!failed: Get Disk[\\s\\S]*failed: ",
            Lit("zadi_item_ok{item=\"GetDiskUsage\",path=\"/no/such\"} 0"), Lit("zadi_item_ok{item=\"GetSysCPU\"} 1"),
            Lit("zadi_item_matched{item=\"GetProcessMemory\",process=\"/opt/" + u + "x\"} 0"),
            Lit("zadi_item_pid{item=\"GetProcessMemoryExtern\"," + quoted + " " + pid),
            Lit("# TYPE zadi_item_value_bytes gauge\nzadi_item_value_bytes{item=\"GetProcessMemoryExtern\"," + quoted),
            Lit("zadi_item_last_success_timestamp_seconds{item=\"GetSysMemory\"} 1"),
            Lit("zadi_heartbeat_hang{item=\"ProcessHeartBeat\",process=\"hbz\",module=\"7\"} 1\n"),
            Lit("zadi_item_value_beating{item=\"ProcessHeartBeat\",process=\"hbz\",module=\"7\"} 0\n"),
            Lit("# TYPE zadi_census_rss_bytes gauge\nzadi_census_rss_bytes{rank=\"1\"} "),
            Lit("!percent{item=\"GetDiskUsage\""), Lit("!timestamp_seconds{item=\"GetDiskUsage\""),
            Lit("!bytes{item=\"GetProcessMemory\""), Lit("!percent{item=\"GetSysCPU\"}")}},
        {"", "--once --textfile /tmp/tfd", 0, {"cannot write /tmp/tfd/zadi.prom: Is a directory"}},
        {"", "items --json", 0, {R"("item":"IsExistProcessPreCmd","unit":"exists")"}},
        {"", "items", 0, {"GetProcessCoreCPUFuzzyMatchCfgPeriod %core  ProcessName Period", "only primes", "MB      whole"}},
        {"", "census rss --json", 0, {R"("census":"rss","pid":[0-9]+,"name":")"}},
        {"", "census rss", 0, {R"(PID  NAME +RSS\(MB\))", "\n[0-9]+ processes\n"}},
        {"", "--help", 0, {"exit status: 0", "%core   percent of one processor", "\n  census "}},
        {"", "--version", 0, {"zadi_runner 1\\."}}, {"", "dst_probe UTC", 0, {": 0 daylight-saving periods"}},
        {"", "dst_probe Europe/Berlin 2024", 0, {"zone Europe/Berlin, year 2024: 1 daylight-saving period ",
            " 0  2024-03-31 01:00:00  2024-10-27 01:00:00  03-31 02:00:00  10-27 03:00:00  \\+02:00  60 min",
            R"(KIRA_QueryDstConfInfoForRegion \(this year, .*offset 60 min, flag 0)"}},
        {"", "dst_probe", 2, {}}, {"", "dst_probe a b c", 2, {}}, {"", "dst_probe Europe/Berlin 20x4", 2, {}},
        {"", "dst_probe UTC 1969", 1, {}},
        // The status follows the last calls, a failure before a miss.
        {"item = GetSysCPU , period = 1\n", once, 0, {"priming"}},
        {miss + "item=GetDiskUsage,Path=/no/such\n", once, 3, {"reason: Get Disk Usage Fault, Return -1.000000.",
            "!failed: "}},
        {"item=GetSysCPU\nitem=GetSysCPU,period\n", once, 1, {"line 2: malformed field"}},
        {"\nitem=GetNothing,period=1\n", once, 1, {"line 2: unknown item \"GetNothing\""}},
        {"item=GetSysCPU,period=abc\n", once, 1, {"line 1: period must be"}},
        {"item=GetSysCPU,period=1,period=2\n", once, 1, {"line 1: \"period\" given twice"}},
        {"item=GetDiskUsage,Path=/,Path=/tmp\n", once, 1, {"line 1: parameter \"Path\" given twice"}},
        {"#\nitem=GetSysCPU,Foo=1\n", once, 1, {"line 2: GetSysCPU reads no parameter \"Foo\""}},
        {"period=3\n", once, 1, {"line 1: no item= field"}}, {"# nothing\n", once, 1, {"names no item"}},
        {"item=GetProcessMemory,ProcessName=" + std::string(400, 'x') + "\n", once, 1, {"399"}},
        {"", "--config /tmp/none.conf", 1, {"/tmp/none.conf: No such file or directory"}},
        {"", "--config /tmp", 1, {"/tmp is a directory"}}, {"", "--lib /tmp/none.so --once", 1, {"/tmp/none.so"}},
        {"", "--lib " KIRA_SOURCE_DIR "/README.md call GetSysCPU", 1, {"cannot load .*README.md: .*ELF"}},
        {"", "--textfile /tmp/none.d --once", 1, {"--textfile needs a directory: /tmp/none.d"}},
        {"", "--log-file /tmp/none.d/log", 1, {"cannot open /tmp/none.d/log: No such file or directory"}},
        {"", "call GetDiskUsage", 3, {"Input parameter number error."}},
        {"", "call GetDiskUsage Path=/no,such --json", 3, {R"("state":"failed","value":null,"unit":"%","returned":null,)"
            R"("result":-1,"reason":"Get Disk Usage Fault, Return -1.000000.")"}},
        {"", "call NoSuchItem", 2, {"unknown item"}}, {"", "call GetDiskUsage Path", 2, {"not Name=Value"}},
        {"", "call GetProcessMemory ProcessName=", 2, {}}, {"", "frobnicate", 2, {"unknown subcommand"}},
        {"", "--config", 2, {"--config needs a value"}}, {"", "--rounds 0", 2, {"--rounds needs"}},
        {"", "--once --rounds 2", 2, {"contradict"}}, {"", "--bogus", 2, {"unknown option --bogus"}},
        {"", "call GetSysCPU --once", 2, {"--rounds does not apply to call"}},
        {"", "items --lib x", 2, {"--lib does not apply to items"}},
        // clang-format on
    };
    for (const auto& c : cases) {
        // Under the emulator the runner's own arguments stay visible to a pattern; exec: no shell
        // stays behind holding them on its command line.
        if (Cross() && Has(c.args, "*")) {
            continue;
        }
        if (!c.conf.empty()) {
            kt::WriteFile("/tmp/t.conf", c.conf);
        }
        const bool json = Has(c.args, "--json");
        const Run r = Shell("exec " + Command(c.args), !json);
        EXPECT_EQ(r.status, c.status) << c.args << ": " << r.out;
        if (json) {
            ExpectPatterns(r.out, {R"(!(^|\n)(?!$|\{"time":"20[^\n]*"host":[^\n]*\}\n))"}, c.args + ", records");
        }
        ExpectPatterns(r.out + kt::ReadFile("/tmp/r.log") + kt::ReadFile("/tmp/tf/zadi.prom"), c.want, c.args);
        Shell("rm -f /tmp/r.log /tmp/tf/zadi.prom");
    }
    kill(busy_pid, SIGTERM);
    EXPECT_EQ(Shell("find /tmp/tf /tmp/tfd /tmp/heartbeat -type f ! -name 'hbz*'").out, "") << "a file was left";
}

// SIGHUP reads the configuration again and a bad file keeps the running one;
// SIGTERM and SIGINT end a run after the call in progress (one that samples
// for two seconds) with a one-line summary, and end the demo without a trace.
SANDBOX_TEST(Runner, SignalsReloadAndStop) {
    for (int sig : {SIGTERM, SIGINT}) {
        kt::WriteFile("/tmp/sig.conf", "item=GetSysMemory,period=1\n");
        const pid_t run = Start("exec " + kRunner + " --config /tmp/sig.conf --json >/tmp/run.out 2>&1");
        const pid_t demo = Start("exec " + Command("heartbeat_demo") + " >/dev/null 2>/tmp/demo.err");
        for (const char* conf : {"item=GetProcessCoreCPUFuzzyMatchCfgPeriod,period=1,ProcessName=*,Period=2\n",
                                 "item=GetSysCPU\nitem=GetNothing\n"}) {
            usleep(1500000);
            kt::WriteFile("/tmp/sig.conf", conf);
            kill(run, SIGHUP);
        }
        usleep(1500000);
        kill(run, sig);
        kill(demo, sig);
        EXPECT_EQ(std::make_pair(WaitStatus(run), WaitStatus(demo)), std::make_pair(0, 1));
        ExpectPatterns(kt::ReadFile("/tmp/run.out"),
                       {"\"GetSysMemory\"", "!GetSysCPU", "configuration read again: 1 items\n",
                        "line 2: unknown item \"GetNothing\".*\n.*keeping the previous configuration\n",
                        std::string("CfgPeriod\"[^\n]*\nzadi_runner: stopped by SIG") + sigabbrev_np(sig) +
                            " after [0-9]+ rounds: [0-9]+ calls, 0 failed, 0 no match\n$"},
                       "run");
        const std::string err = kt::ReadFile("/tmp/demo.err"), worker = err.substr(err.find("worker (pid ") + 12);
        EXPECT_TRUE(Has(err, "demo stopped early")) << err;
        EXPECT_NE(kt::ReadFile("/proc/" + worker.substr(0, worker.find(')')) + "/comm"), "zadi_demo\n");
        EXPECT_EQ(Shell("ls -A /tmp/heartbeat").out, "");
    }
}

static void DeployBody() {
    if (Cross()) {
        GTEST_SKIP() << "the install is checked natively";
    }
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // else programs would need its runtime
    // Valid C and C++ (then after the plug-in's C++ header).
    static const char kProgram[] = R"(#ifdef __cplusplus
#include "plugin/linux/zadi_linux_plugin.h"
#endif
#include <stdio.h>
#include "plugin/linux/zadi_items.h"
#include "plugin/linux/allprocess.h"
int main(void) {
    FI_CONTEXT_S context = {0};
    FI_RESULT_S result = {0};
    int pid = -1;
    printf("memory %.1f%%\n", GetSysMemory(0, NULL, &context, &result));
    return result.result == 0 && GetProcessPid("/no/such", &pid) == 0 && pid == 0 ? 0 : 1;
}
)";
    kt::WriteFile("/tmp/use/prog.c", kProgram);
    kt::WriteFile("/tmp/use/CMakeLists.txt",
                  "cmake_minimum_required(VERSION 3.25)\nproject(use LANGUAGES CXX)\n"
                  "find_package(zadi_linux_plugin 1 REQUIRED)\nadd_executable(prog prog.cpp)\n"
                  "target_link_libraries(prog PRIVATE zadi_linux_plugin::zadi_agent_sub)\n");
    // Moved, so that nothing can point back at where it was installed.
    const Run moved = Shell("cd /tmp/use && cp prog.c prog.cpp && cmake --install " KIRA_BINARY_DIR R"sh( \
        --prefix /tmp/q >/dev/null && mv /tmp/q /tmp/moved && export LD_LIBRARY_PATH=/tmp/moved/lib &&
        pc="-Wall -Werror $(PKG_CONFIG_PATH=$LD_LIBRARY_PATH/pkgconfig pkg-config --cflags --libs zadi_linux_plugin \
            zadi_agent_sub)" &&
        cc -std=c11 prog.c $pc && ./a.out && c++ prog.cpp $pc && ./a.out && unset LD_LIBRARY_PATH &&
        cmake -S . -B b -G Ninja -DCMAKE_PREFIX_PATH=/tmp/moved >/dev/null && ninja -C b >/dev/null && b/prog &&
        /tmp/moved/bin/zadi_runner --config /tmp/moved/share/zadi/zadi_runner.conf --once --exit-zero &&
        test -x /tmp/moved/share/zadi/script/os_conf_backup.sh && test ! -e /ZUK/script && echo all ran)sh");
    EXPECT_TRUE(moved.status == 0 && Has(moved.out, "round 1") && Has(moved.out, "all ran")) << moved.out;
#endif
    const Run installed = Shell("cmake --install " KIRA_BINARY_DIR " --prefix /tmp/p");
    ASSERT_EQ(installed.status, 0) << installed.out;
    const std::string unit_path = "/tmp/p/lib/systemd/system/zadi_runner.service";
    kt::WriteFile("/tmp/trivial.service", "[Service]\nExecStart=/bin/true\n");
    if (Shell("systemd-analyze verify /tmp/trivial.service").status == 0) {  // not in every container
        const Run verified = Shell("systemd-analyze verify " + unit_path);
        EXPECT_TRUE(verified.status == 0 && verified.out.empty()) << verified.out;
    }
    const std::string unit = kt::ReadFile(unit_path);
    const size_t at = unit.find("ExecStart=") + 10;
    const std::string exec_start = unit.substr(at, unit.find('\n', at) - at);
    ASSERT_EQ(exec_start.rfind("/tmp/p/bin/zadi_runner ", 0), 0u) << exec_start;
    // A label to escape, and an item that starts failing: its figure goes
    // while its ok series turns 0 and its last success stays.
    const std::string name = "/opt/" + kt::UniqueName("pe");
    kt::Child quoted("peq", {name, "a\"b\\c"});
    Shell("mkdir -p /tmp/dx /tmp/tf /etc/zadi");
    const std::string conf = "item=GetProcessMemoryExtern,period=1,ProcessName=" + name + " a\"b\\c\n";
    kt::WriteFile("/etc/zadi/zadi_runner.conf",
                  conf + "item=GetSysMemory,period=1\nitem=GetDiskUsage,period=1,Path=/tmp/dx\n");
    std::vector<pid_t> pids = {Start("exec " + exec_start + " 2>/tmp/service.err")};
    const std::string labels = "{item=\"GetDiskUsage\",path=\"/tmp/dx\"}", url = "http://127.0.0.1:9731/metrics";
    std::string metrics;
    for (int i = 0; i < 50 && !Has(metrics, "percent" + labels); ++i, usleep(100000)) {
        metrics = Fetch(url);
    }
    EXPECT_TRUE(Has(metrics, "zadi_item_value_percent" + labels + " ")) << metrics;
    rmdir("/tmp/dx");
    usleep(1500000);
    metrics = Fetch(url);
    EXPECT_TRUE(!Has(metrics, "percent" + labels) && Has(metrics, "zadi_item_ok" + labels + " 0") &&
                Has(metrics, "zadi_item_last_success_timestamp_seconds" + labels + " 1"))
        << metrics;
    const bool engine =
        Shell("command -v prometheus && command -v prometheus-node-exporter && command -v promtool").status == 0;
    if (engine) {
        kt::WriteFile("/tmp/prom.yml",
                      "global: {scrape_interval: 1s}\nscrape_configs:\n"
                      "- {job_name: zadi, static_configs: [{targets: ['127.0.0.1:9731']}]}\n"
                      "- {job_name: node, static_configs: [{targets: ['127.0.0.1:9100']}]}\n");
        pids.push_back(Start("exec " + kRunner + " --config /etc/zadi/zadi_runner.conf --textfile /tmp/tf >/dev/null"));
        pids.push_back(
            Start("exec prometheus-node-exporter --web.listen-address=127.0.0.1:9100 --collector.textfile "
                  "--collector.disable-defaults --collector.textfile.directory=/tmp/tf >/tmp/node.log 2>&1"));
        pids.push_back(
            Start("exec prometheus --config.file=/tmp/prom.yml --storage.tsdb.path=/tmp/promdata "
                  "--web.listen-address=127.0.0.1:9090 >/tmp/prometheus.log 2>&1"));
        // Two scrapes of each job, within half a minute; the same figures both ways.
        for (int i = 0; i < 60 && !(Ask("min(count_over_time(up[1m]))") >= 2); ++i) {
            usleep(500000);
        }
        ASSERT_GE(Ask("min(count_over_time(up[1m]))"), 2) << kt::ReadFile("/tmp/node.log");
        const double used = Ask("zadi_item_value_percent{item=\"GetSysMemory\",job=\"zadi\"}");
        EXPECT_TRUE(used > 0 && used < 100) << used;
        for (const std::string job : {"zadi", "node"}) {
            EXPECT_NEAR(Ask("zadi_item_value_percent{item=\"GetSysMemory\",job=\"" + job + "\"}"), used, 3.0);
            EXPECT_EQ(Ask("zadi_item_pid{job=\"" + job + "\"}"), quoted.pid()) << job;
        }
        EXPECT_GE(Ask("zadi_census_rss_bytes{rank=\"1\"}"), 1);
        for (const std::string& check :
             {"curl -sS " + url + " | promtool check metrics", std::string("promtool check metrics </tmp/tf/zadi.prom"),
              std::string("promtool check rules " KIRA_SOURCE_DIR "/tools/runner/zadi_alerts.yml")}) {
            const Run r = Shell(check);
            EXPECT_EQ(r.status, 0) << check << ": " << r.out;
        }
    }
    kill(pids[0], SIGHUP);
    usleep(1000000);
    for (pid_t pid : pids) {
        kill(pid, SIGTERM);
    }
    EXPECT_EQ(WaitStatus(pids[0]), 0);
    for (pid_t pid : pids) {
        WaitStatus(pid);
    }
    const std::string err = kt::ReadFile("/tmp/service.err");
    EXPECT_TRUE(Has(err, "configuration read again") && Has(err, "stopped by SIGTERM")) << err;
    if (!engine) {
        GTEST_SKIP() << "prometheus, its node exporter or promtool is missing (.ci/install-deps.sh installs them)";
    }
}

TEST(Deploy, PrefixAloneBuildsServesAndIsScraped) { kt::RunSandboxed(&DeployBody, {true}); }
