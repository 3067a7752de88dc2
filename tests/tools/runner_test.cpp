// zadi_runner end to end: the real binary loading the real library, on the
// built-in configuration, a configuration file, ad-hoc calls and bad input.

#include <stdio.h>
#include <sys/wait.h>

#include <string>
#include <vector>

#include "tests/support/sandbox.h"

namespace {

const std::string kRunner = KIRA_BINARY_DIR "/tools/runner/zadi_runner";

struct Run {
    int status;
    std::string out;  // stdout and stderr together
};

Run Exec(const std::string& args) {
    Run r{-1, ""};
    FILE* p = popen((kt::TargetCommand(kRunner) + " " + args + " 2>&1").c_str(), "r");
    if (p == nullptr) return r;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof(buf), p)) > 0) r.out.append(buf, n);
    const int st = pclose(p);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    return r;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    size_t start = 0;
    for (size_t nl; (nl = text.find('\n', start)) != std::string::npos; start = nl + 1) {
        lines.push_back(text.substr(start, nl - start));
    }
    return lines;
}

const std::string* LineWith(const std::vector<std::string>& lines, const std::string& a, const std::string& b = "") {
    for (const std::string& l : lines) {
        if (l.find(a) != std::string::npos && l.find(b) != std::string::npos) return &l;
    }
    return nullptr;
}

}  // namespace

SANDBOX_TEST(Runner, DefaultConfigurationShowsRealFiguresOfThisMachine) {
    const Run r = Exec("--once --json");
    ASSERT_EQ(r.status, 0) << r.out;
    const auto lines = Lines(r.out);
    // Every system item succeeds, and the runner finds itself.
    for (const char* item :
         {"GetSysCPU", "GetSysUsrCPU", "GetSysMemory", "GetSysFreeMemory", "GetDiskUsage", "GetProcessMemory"}) {
        const std::string* l =
            LineWith(lines, std::string("\"item\":\"") + item + "\"", item[3] == 'P' ? "zadi_runner" : "");
        ASSERT_NE(l, nullptr) << item << "\n" << r.out;
        EXPECT_NE(l->find("\"result\":0"), std::string::npos) << *l;
        EXPECT_EQ(l->find("\"value\":null"), std::string::npos) << *l;
    }
    const std::string* init = LineWith(lines, "\"item\":\"IsExistProcess\"");
    ASSERT_NE(init, nullptr);
    EXPECT_NE(init->find("\"value\":1,"), std::string::npos) << *init;
    for (const std::string& l : lines) {
        EXPECT_EQ(l.front(), '{');
        EXPECT_EQ(l.back(), '}');
    }
    // The table form prints a header and one row per item.
    const Run t = Exec("--once");
    ASSERT_EQ(t.status, 0) << t.out;
    EXPECT_NE(t.out.find("round 1"), std::string::npos);
    EXPECT_NE(t.out.find("ITEM"), std::string::npos);
    EXPECT_NE(LineWith(Lines(t.out), "GetSysFreeMemory", " MB "), nullptr) << t.out;
}

SANDBOX_TEST(Runner, ConfigurationFileKeepsContextsAcrossRounds) {
    const std::string u = kt::UniqueName("rn");
    kt::Child c("rnc", {"/opt/" + u, "serve"});
    kt::WriteFile("/tmp/items.conf",
                  "# items for the test\n"
                  "item=IsExistProcess,period=1,ProcessName=/opt/" +
                      u +
                      " serve\n"
                      "\n"
                      "item=GetSysCPU,period=1\n"
                      "item=IsExistProcessExtern,period=1,ProcessName=/opt/" +
                      u +
                      "\n"
                      "item=GetProcessMemoryFuzzyMatch,period=1,ProcessName=/opt/" +
                      u +
                      " s*\n"
                      "item=GetDiskUsage,period=1,Path=/no/such/dir\n"
                      "item=IsExistProcess,period=1,ProcessName=/opt/" +
                      u + " # commented out\n");
    const Run r = Exec("--config /tmp/items.conf --rounds 2 --json");
    ASSERT_EQ(r.status, 0) << r.out;
    const auto lines = Lines(r.out);
    ASSERT_EQ(lines.size(), 10u) << r.out;  // 5 items, 2 rounds
    const std::string pid = std::to_string(c.pid());
    EXPECT_NE(LineWith(lines, "\"round\":2,\"item\":\"IsExistProcess\"", "\"value\":1,"), nullptr) << r.out;
    EXPECT_NE(LineWith(lines, "IsExistProcessExtern", "\"pid\":" + pid), nullptr) << r.out;
    EXPECT_NE(LineWith(lines, "GetProcessMemoryFuzzyMatch", "\"pid\":" + pid), nullptr) << r.out;
    // A failed call: no value, its reason, result -1.
    EXPECT_NE(LineWith(lines, "\"value\":null", "\"reason\":\"Get Disk Usage Fault, Return -1.000000.\""), nullptr)
        << r.out;
    // Second round of GetSysCPU measures since the first (context kept).
    EXPECT_NE(LineWith(lines, "\"round\":2,\"item\":\"GetSysCPU\"", "\"result\":0"), nullptr);
}

SANDBOX_TEST(Runner, AdHocCall) {
    const std::string u = kt::UniqueName("ah");
    kt::Child c("ahc", {"/opt/" + u});
    Run r = Exec("call IsExistProcessExtern ProcessName=/opt/" + u + " --json");
    ASSERT_EQ(r.status, 0) << r.out;
    EXPECT_NE(r.out.find("\"value\":1,"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("\"pid\":" + std::to_string(c.pid())), std::string::npos) << r.out;
    // Commas are fine on the command line; a failing item exits 3.
    for (const auto& c : {std::make_pair("call GetDiskUsage Path=/no,such", "Get Disk Usage Fault, Return -1.000000."),
                          std::make_pair("call GetDiskUsage", "Input parameter number error.")}) {
        r = Exec(c.first);
        EXPECT_EQ(r.status, 3) << r.out;
        EXPECT_NE(r.out.find(c.second), std::string::npos) << r.out;
    }
}

SANDBOX_TEST(Runner, BadInputGivesAClearMessageAndNonZeroExit) {
    kt::WriteFile("/tmp/notalib.so", "garbage");
    const struct {
        const char* conf;  // written to /tmp/bad.conf when not null
        std::string args;
        const char* message;  // "" when only the exit status is checked
    } cases[] = {
        {"item=GetSysCPU\nitem=GetSysCPU,period\n", "--config /tmp/bad.conf --once", "line 2"},
        {"item=GetSysCPU\n\nitem=GetNothing,period=1\n", "--config /tmp/bad.conf --once",
         "line 3: unknown item \"GetNothing\""},
        {"item=GetSysCPU,period=abc\n", "--config /tmp/bad.conf --once", "line 1"},
        {"period=3\n", "--config /tmp/bad.conf --once", "no item"},
        {nullptr, "--config /tmp/none.conf --once", "/tmp/none.conf"},
        {nullptr, "--lib /tmp/no-such-lib.so --once", "/tmp/no-such-lib.so"},
        {nullptr, "--lib /tmp/notalib.so call GetSysCPU", "cannot load"},
        {nullptr, "call NoSuchItem", "unknown item"},
        {nullptr, "call GetDiskUsage Path", ""},
        {nullptr, "frobnicate", "unknown subcommand"},
        {nullptr, "--rounds 0", ""},
        {nullptr, "--bogus", ""},
    };
    for (const auto& c : cases) {
        if (c.conf != nullptr) kt::WriteFile("/tmp/bad.conf", c.conf);
        const Run r = Exec(c.args);
        EXPECT_NE(r.status, 0) << c.args;
        EXPECT_NE(r.out.find(c.message), std::string::npos) << c.args << ": " << r.out;
    }
    // A value past 399 characters names the limit.
    kt::WriteFile("/tmp/bad.conf", "item=GetProcessMemory,ProcessName=" + std::string(400, 'x') + "\n");
    const Run r = Exec("--config /tmp/bad.conf --once");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.out.find("399"), std::string::npos) << r.out;
}
