// zadi_runner end to end: the real binary loading the real library, on the
// built-in configuration, on a configuration file aimed at processes of the
// test, ad-hoc calls, and every way its input can be wrong.

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
    for (const char* item : {"GetSysCPU", "GetSysUsrCPU", "GetSysMemory", "GetSysFreeMemory", "GetDiskUsage"}) {
        const std::string* l = LineWith(lines, std::string("\"item\":\"") + item + "\"");
        ASSERT_NE(l, nullptr) << item << "\n" << r.out;
        EXPECT_NE(l->find("\"result\":0"), std::string::npos) << *l;
        EXPECT_EQ(l->find("\"value\":null"), std::string::npos) << *l;
    }
    // The runner finds itself, and init exists.
    const std::string* self = LineWith(lines, "\"item\":\"GetProcessMemory\"", "zadi_runner");
    ASSERT_NE(self, nullptr) << r.out;
    EXPECT_NE(self->find("\"result\":0"), std::string::npos);
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
                  "item=IsExistProcess,period=1,ProcessName=/opt/" + u + " serve\n"
                  "\n"
                  "item=GetSysCPU,period=1\n"
                  "item=IsExistProcessExtern,period=1,ProcessName=/opt/" + u + "\n"
                  "item=GetProcessMemoryFuzzyMatch,period=1,ProcessName=/opt/" + u + " s*\n"
                  "item=GetDiskUsage,period=1,Path=/no/such/dir\n"
                  "item=IsExistProcess,period=1,ProcessName=/opt/" + u + " # commented out\n");
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
    r = Exec("call GetDiskUsage Path=/no,such");
    EXPECT_EQ(r.status, 3) << r.out;
    EXPECT_NE(r.out.find("Get Disk Usage Fault, Return -1.000000."), std::string::npos) << r.out;
    r = Exec("call GetDiskUsage");
    EXPECT_EQ(r.status, 3) << r.out;
    EXPECT_NE(r.out.find("Input parameter number error."), std::string::npos) << r.out;
}

SANDBOX_TEST(Runner, BadInputGivesAClearMessageAndNonZeroExit) {
    kt::WriteFile("/tmp/bad1.conf", "item=GetSysCPU\nitem=GetSysCPU,period\n");
    Run r = Exec("--config /tmp/bad1.conf --once");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.out.find("line 2"), std::string::npos) << r.out;

    kt::WriteFile("/tmp/bad2.conf", "item=GetSysCPU\n\nitem=GetNothing,period=1\n");
    r = Exec("--config /tmp/bad2.conf --once");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.out.find("line 3"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("unknown item \"GetNothing\""), std::string::npos) << r.out;

    kt::WriteFile("/tmp/bad3.conf", "item=GetSysCPU,period=abc\n");
    r = Exec("--config /tmp/bad3.conf --once");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.out.find("line 1"), std::string::npos) << r.out;

    kt::WriteFile("/tmp/bad4.conf", "period=3\n");
    r = Exec("--config /tmp/bad4.conf --once");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.out.find("no item"), std::string::npos) << r.out;

    kt::WriteFile("/tmp/bad5.conf", "item=GetProcessMemory,ProcessName=" + std::string(400, 'x') + "\n");
    r = Exec("--config /tmp/bad5.conf --once");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.out.find("399"), std::string::npos) << r.out;

    r = Exec("--config /tmp/none.conf --once");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.out.find("/tmp/none.conf"), std::string::npos) << r.out;

    r = Exec("--lib /tmp/no-such-lib.so --once");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.out.find("/tmp/no-such-lib.so"), std::string::npos) << r.out;

    kt::WriteFile("/tmp/notalib.so", "garbage");
    r = Exec("--lib /tmp/notalib.so call GetSysCPU");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.out.find("cannot load"), std::string::npos) << r.out;

    r = Exec("call NoSuchItem");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.out.find("unknown item"), std::string::npos) << r.out;
    r = Exec("call GetDiskUsage Path");
    EXPECT_NE(r.status, 0);
    r = Exec("frobnicate");
    EXPECT_NE(r.status, 0);
    EXPECT_NE(r.out.find("unknown subcommand"), std::string::npos) << r.out;
    r = Exec("--rounds 0");
    EXPECT_NE(r.status, 0);
    r = Exec("--bogus");
    EXPECT_NE(r.status, 0);
}
