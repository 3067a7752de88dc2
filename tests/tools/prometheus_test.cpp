// The runner's Prometheus side: the textfile and the /metrics endpoint carry
// valid exposition with bounded labels, failures and stale values never show
// as fresh figures, and the real engine scrapes both the runner and the node
// exporter's textfile collector.

#include <math.h>
#include <stdlib.h>

#include <fstream>
#include <string>

#include "tests/support/sandbox.h"
#include "tests/tools/runner_exec.h"

namespace {

using namespace rt;

bool Installed(const char* program) { return Shell(std::string("command -v ") + program).status == 0; }

// promtool's verdict on an exposition text: "" when it is clean, or when
// promtool is missing (the real engine's test requires it).
std::string PromtoolProblems(const std::string& text) {
    if (!Installed("promtool")) return "";
    kt::WriteFile("/tmp/check.prom", text);
    const Run r = Shell("promtool check metrics </tmp/check.prom");
    return r.status == 0 ? "" : r.out + "\n" + text;
}

std::string Fetch(const std::string& url) { return Shell("curl -gsS --max-time 5 '" + url + "'").out; }

// The engine's answer to an instant query.
std::string Ask(const std::string& query) {
    return Shell("curl -sS --max-time 5 -G --data-urlencode 'query=" + query + "' http://127.0.0.1:9090/api/v1/query")
        .out;
}

// The port serve reported on standard error, 0 until it has.
int ServePort(const std::string& err_file) {
    const std::string err = kt::ReadFile(err_file);
    const size_t at = err.find("serving http://127.0.0.1:");
    return at == std::string::npos ? 0 : atoi(err.c_str() + at + 25);
}

// Used memory in percent as GetSysMemory defines it, from /proc/meminfo.
double MemoryUsedPercent() {
    std::ifstream in("/proc/meminfo");
    std::string label;
    double total = 0, free = 0;
    in >> label >> total >> label >> label >> free;
    return (total - free) * 100.0 / total;
}

// The number in the first result of a query API answer, NAN when none.
double FirstValue(const std::string& answer) {
    const size_t at = answer.find("\"value\":[");
    const size_t quote = at == std::string::npos ? at : answer.find('"', answer.find(',', at) + 1);
    return quote == std::string::npos ? NAN : atof(answer.c_str() + quote + 1);
}

}  // namespace

SANDBOX_TEST(Prometheus, TextfileIsValidAndNeverShowsAFailureAsAFigure) {
    const std::string u = kt::UniqueName("pm");
    kt::Child quoted("pmq", {"/opt/" + u, "a\"b\\c"});
    kt::MakeDirs("/tmp/tf");
    kt::WriteFile("/tmp/pm.conf",
                  "item=GetSysMemory,period=1\n"
                  "item=GetDiskUsage,period=1,Path=/no/such\n"
                  "item=GetProcessMemory,period=1,ProcessName=/opt/" +
                      u + "x\nitem=GetProcessMemoryExtern,period=1,ProcessName=/opt/" + u +
                      " a\"b\\c\nitem=GetSysCPU,period=1\n");
    const Run r = Exec("--config /tmp/pm.conf --once --textfile /tmp/tf");
    EXPECT_EQ(r.status, 3) << r.out;
    // The reason goes to the log, not into a label.
    EXPECT_TRUE(Has(r.out, "{item=\"GetDiskUsage\",path=\"/no/such\"} failed: Get Disk Usage Fault")) << r.out;
    const std::string prom = kt::ReadFile("/tmp/tf/zadi.prom");
    const std::string pid = std::to_string(quoted.pid());
    const std::string quoted_labels = "{item=\"GetProcessMemoryExtern\",process=\"/opt/" + u + " a\\\"b\\\\c\"}";
    for (const std::string& line : std::vector<std::string>{
             "zadi_item_ok{item=\"GetDiskUsage\",path=\"/no/such\"} 0",
             "zadi_item_matched{item=\"GetProcessMemory\",process=\"/opt/" + u + "x\"} 0",
             "zadi_item_ok{item=\"GetSysCPU\"} 1",
             "zadi_item_pid" + quoted_labels + " " + pid,
             "# TYPE zadi_item_value_bytes gauge\nzadi_item_value_bytes" + quoted_labels,
             "# TYPE zadi_census_rss_bytes gauge\nzadi_census_rss_bytes{rank=\"1\"} ",
         }) {
        EXPECT_TRUE(Has(prom, line)) << line << "\n" << prom;
    }
    // No figure for the failure, the miss or the priming call; no pid label.
    for (const char* absent : {"percent{item=\"GetDiskUsage\",path=\"/no/such\"}", "bytes{item=\"GetProcessMemory\"",
                               "percent{item=\"GetSysCPU\"}", "pid=\"", "reason=\""}) {
        EXPECT_FALSE(Has(prom, absent)) << absent << "\n" << prom;
    }
    EXPECT_EQ(Capture("ls -A /tmp/tf").out, "zadi.prom\n") << "a temporary file was left behind";
    EXPECT_EQ(PromtoolProblems(prom), "");
}

// A heartbeat file that stops changing shows as a hang.
SANDBOX_TEST(Prometheus, HeartbeatHangIsAGauge) {
    kt::Child worker("hbz", {"hbz"});
    kt::MakeDirs("/tmp/heartbeat");
    kt::WriteFile("/tmp/heartbeat/hbz___7___" + std::to_string(worker.pid()), "beat\n1001\n");
    kt::MakeDirs("/tmp/tf");
    kt::WriteFile("/tmp/hb.conf", "item=ProcessHeartBeat,period=1,ProcessName=hbz,ProcessMoudleId=7,ErrRpt=off\n");
    const Run r = Exec("--config /tmp/hb.conf --rounds 2 --textfile /tmp/tf");
    EXPECT_EQ(r.status, 0) << r.out;
    const std::string prom = kt::ReadFile("/tmp/tf/zadi.prom");
    const std::string labels = "{item=\"ProcessHeartBeat\",process=\"hbz\",module=\"7\"}";
    EXPECT_TRUE(Has(prom, "zadi_heartbeat_hang" + labels + " 1\n") &&
                Has(prom, "zadi_item_value_beating" + labels + " 0\n"))
        << prom;
}

// serve: the figure of an item that starts failing disappears while its ok
// series turns 0 and its last success stays; SIGTERM stops it.
SANDBOX_TEST(Prometheus, ServeDropsAFigureOnceItFails) {
    if (Cross()) GTEST_SKIP() << "serve is built natively only";
    if (!Installed("curl")) GTEST_SKIP() << "curl is not installed (.ci/install-deps.sh installs it)";
    kt::MakeDirs("/tmp/dx");
    kt::WriteFile("/tmp/sv.conf", "item=GetDiskUsage,period=1,Path=/tmp/dx\n");
    const pid_t pid = Spawn("serve --listen 127.0.0.1:0 --config /tmp/sv.conf", "/dev/null", "/tmp/sv.err");
    for (int i = 0; i < 50 && ServePort("/tmp/sv.err") == 0; ++i) SleepMs(100);
    const std::string url = "http://127.0.0.1:" + std::to_string(ServePort("/tmp/sv.err")) + "/metrics";
    const std::string figure = "zadi_item_value_percent{item=\"GetDiskUsage\",path=\"/tmp/dx\"} ";
    std::string before;
    for (int i = 0; i < 50 && !Has(before, figure); ++i, SleepMs(100)) before = Fetch(url);
    EXPECT_TRUE(Has(before, figure)) << before;
    rmdir("/tmp/dx");
    SleepMs(1500);
    const std::string after = Fetch(url);
    const std::string labels = "{item=\"GetDiskUsage\",path=\"/tmp/dx\"}";
    EXPECT_TRUE(!Has(after, "zadi_item_value_percent") && Has(after, "zadi_item_ok" + labels + " 0") &&
                Has(after, "zadi_item_last_success_timestamp_seconds" + labels + " 1"))
        << after;
    EXPECT_EQ(PromtoolProblems(after), "");
    kill(pid, SIGTERM);
    EXPECT_EQ(WaitStatus(pid), 0);
    EXPECT_TRUE(Has(kt::ReadFile("/tmp/sv.err"), "stopped by SIGTERM")) << kt::ReadFile("/tmp/sv.err");
}

// The real engine, in a private network namespace: Prometheus scrapes
// zadi_runner serve and the node exporter, whose textfile collector reads
// what zadi_runner --textfile writes.
static void RealEngineBody() {
    if (Cross()) GTEST_SKIP() << "the engine scrapes a native runner only";
    for (const char* p : {"prometheus", "prometheus-node-exporter", "promtool", "curl"}) {
        if (!Installed(p)) GTEST_SKIP() << p << " is not installed (.ci/install-deps.sh installs it from Debian)";
    }
    kt::MakeDirs("/tmp/tf");
    kt::MakeDirs("/tmp/promdata");
    kt::WriteFile("/tmp/pr.conf",
                  "item=GetSysMemory,period=1\nitem=GetProcessMemoryFuzzyMatch,period=1,ProcessName=*\n");
    kt::WriteFile("/tmp/prom.yml",
                  "global:\n  scrape_interval: 1s\n"
                  "scrape_configs:\n"
                  "  - job_name: zadi\n    static_configs:\n      - targets: ['127.0.0.1:9731']\n"
                  "  - job_name: node\n    static_configs:\n      - targets: ['127.0.0.1:9100']\n");
    const std::vector<pid_t> pids = {
        Spawn("serve --config /tmp/pr.conf", "/dev/null", "/tmp/serve.err"),
        Spawn("--config /tmp/pr.conf --textfile /tmp/tf --exit-zero", "/dev/null", "/tmp/textfile.err"),
        Start("exec prometheus-node-exporter --web.listen-address=127.0.0.1:9100 --collector.disable-defaults "
              "--collector.textfile --collector.textfile.directory=/tmp/tf >/tmp/node.log 2>&1"),
        Start("exec prometheus --config.file=/tmp/prom.yml --storage.tsdb.path=/tmp/promdata "
              "--web.listen-address=127.0.0.1:9090 >/tmp/prometheus.log 2>&1"),
    };
    // Two scrapes of each job, within half a minute.
    double scrapes = 0;
    for (int i = 0; i < 60 && !(scrapes >= 2); ++i) {
        SleepMs(500);
        scrapes = FirstValue(Ask("min(count_over_time(up[1m]))"));
    }
    ASSERT_GE(scrapes, 2) << Ask("up") << kt::ReadFile("/tmp/node.log");
    const double expected = MemoryUsedPercent();
    for (const std::string job : {"zadi", "node"}) {
        const std::string used = Ask("zadi_item_value_percent{item=\"GetSysMemory\",job=\"" + job + "\"}");
        EXPECT_NEAR(FirstValue(used), expected, 3.0) << job << ": " << used;
        const std::string pid = Ask("zadi_item_pid{job=\"" + job + "\"}");
        EXPECT_GT(FirstValue(pid), 0) << job << ": " << pid;
    }
    EXPECT_GE(FirstValue(Ask("zadi_census_rss_bytes{rank=\"1\"}")), 1);
    EXPECT_EQ(FirstValue(Ask("up{job=\"node\"}")), 1);
    EXPECT_EQ(PromtoolProblems(Fetch("http://127.0.0.1:9731/metrics")), "");
    EXPECT_EQ(PromtoolProblems(kt::ReadFile("/tmp/tf/zadi.prom")), "");
    const Run rules = Shell("promtool check rules " KIRA_SOURCE_DIR "/tools/runner/zadi_alerts.yml");
    EXPECT_EQ(rules.status, 0) << rules.out;
    for (pid_t pid : pids) kill(pid, SIGTERM);
    for (pid_t pid : pids) WaitStatus(pid);
}

TEST(Prometheus, RealEngineScrapesRunnerAndNodeExporter) { RunIsolated(&RealEngineBody, 90, true); }
