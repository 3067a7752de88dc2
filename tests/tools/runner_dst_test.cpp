// zadi_runner dst: the periods of a real zone, and its refusals.

#include <stdio.h>
#include <sys/wait.h>

#include <string>

#include "tests/support/sandbox.h"

namespace {

struct Run {
    int status;
    std::string out;
};

Run Dst(const std::string& args) {
    Run r{-1, ""};
    const std::string cmd = kt::TargetCommand(KIRA_BINARY_DIR "/tools/runner/zadi_runner") + " dst " + args + " 2>&1";
    FILE* p = popen(cmd.c_str(), "r");
    if (p == nullptr) return r;
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof(buf), p)) > 0;) r.out.append(buf, n);
    const int st = pclose(p);
    r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
    return r;
}

}  // namespace

SANDBOX_TEST(RunnerDst, ShowsPeriodsAndTheQuery) {
    kt::BindFileOver("/dev/kmsg", "");
    setenv("TZ", "Europe/Berlin", 1);
    const Run r = Dst("Europe/Berlin 2024");
    ASSERT_EQ(r.status, 0) << r.out;
    for (const char* text :
         {"zone Europe/Berlin, year 2024: 1 daylight-saving period",
          " 0  2024-03-31 01:00:00  2024-10-27 01:00:00  03-31 02:00:00  10-27 03:00:00  +02:00  60 min",
          "KIRA_QueryDstConfInfoForRegion (this year, ", "offset 60 min, flag 0"}) {
        EXPECT_NE(r.out.find(text), std::string::npos) << text << "\n" << r.out;
    }
    EXPECT_NE(Dst("UTC").out.find(": 0 daylight-saving periods"), std::string::npos);
    for (const char* bad : {"", "Europe/Berlin 20x4", "a b c"}) EXPECT_EQ(Dst(bad).status, 2) << bad;
    for (const char* bad : {"Europe/Berlin 1969", "Nowhere/Land", "'Europe/Berlin;id'"}) {
        EXPECT_EQ(Dst(bad).status, 1) << bad;
    }
}
