// The installed tree works from its prefix alone: a C and a C++ program
// compile, link and run against it through pkg-config and through the CMake
// package, the installed runner runs, and the tree can be moved.

#include <string>

#include "tests/support/sandbox.h"
#include "tests/tools/runner_exec.h"

namespace {

using namespace rt;

// The C program reaches the records and the census through the C headers;
// the C++ one uses the plug-in's C++ header.
const char kCProgram[] = R"(#include <stdio.h>
#include "plugin/linux/zadi_items.h"
#include "plugin/linux/allprocess.h"
int main(void) {
    FI_CONTEXT_S context = {0};
    FI_RESULT_S result = {0};
    const float used = GetSysMemory(0, NULL, &context, &result);
    int pid = -1;
    if (GetProcessPid("/no/such/process", &pid) != 0 || pid != 0) return 2;
    printf("c memory %.1f%%\n", used);
    return result.result == 0 && used > 0.0f ? 0 : 1;
}
)";
const char kCxxProgram[] = R"(#include <cstdio>
#include "plugin/linux/zadi_linux_plugin.h"
int main() {
    FI_CONTEXT_S context = {};
    FI_RESULT_S result = {};
    const float free_mb = GetSysFreeMemory(0, nullptr, &context, &result);
    std::printf("c++ free %.0f MB\n", free_mb);
    return result.result == 0 && free_mb > 0.0f ? 0 : 1;
}
)";
const char kCMakeLists[] = R"(cmake_minimum_required(VERSION 3.25)
project(consumer LANGUAGES C CXX)
find_package(zadi_linux_plugin 1 REQUIRED)
add_executable(prog_c prog.c)
add_executable(prog_cxx prog.cpp)
target_link_libraries(prog_c PRIVATE zadi_linux_plugin::zadi_agent_sub)
target_link_libraries(prog_cxx PRIVATE zadi_linux_plugin::zadi_agent_sub)
)";

// Why the installed tree cannot be checked in this build, or nullptr.
const char* InstallUncheckable() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return "programs linked against a sanitizer build need its runtime";
#endif
    return Cross() ? "the install is checked natively" : nullptr;
}

}  // namespace

SANDBOX_TEST(Install, PrefixAloneBuildsLinksAndRuns) {
    if (const char* why = InstallUncheckable()) GTEST_SKIP() << why;
    // Moved after installing: nothing may point back at /tmp/p or the build.
    const Run installed = Shell("cmake --install " KIRA_BINARY_DIR " --prefix /tmp/p && mv /tmp/p /tmp/moved");
    ASSERT_EQ(installed.status, 0) << installed.out;
    kt::MakeDirs("/tmp/use");
    kt::WriteFile("/tmp/use/prog.c", kCProgram);
    kt::WriteFile("/tmp/use/prog.cpp", kCxxProgram);
    kt::WriteFile("/tmp/use/CMakeLists.txt", kCMakeLists);
    const std::string pc = "PKG_CONFIG_PATH=/tmp/moved/lib/pkgconfig pkg-config ";
    const std::string libs = "$(" + pc + "--cflags --libs zadi_agent_sub)";
    const std::string run = "LD_LIBRARY_PATH=/tmp/moved/lib ";
    const struct {
        const char* what;
        std::string cmd;
        const char* expect;
    } steps[] = {
        {"pkg-config prefix", pc + "--variable=libdir zadi_linux_plugin", "/tmp/moved/lib"},
        {"C via pkg-config",
         "cd /tmp/use && cc -std=c11 -Wall -Werror prog.c -o c_pc " + libs + " && " + run + "./c_pc", "c memory"},
        {"C++ via pkg-config",
         "cd /tmp/use && c++ -std=c++17 -Wall -Werror prog.cpp -o cxx_pc " + libs + " && " + run + "./cxx_pc",
         "c++ free"},
        {"CMake package",
         "cmake -S /tmp/use -B /tmp/use/b -G Ninja -DCMAKE_PREFIX_PATH=/tmp/moved && ninja -C /tmp/use/b && "
         "/tmp/use/b/prog_c && /tmp/use/b/prog_cxx",
         "c++ free"},
        {"installed runner", "/tmp/moved/bin/zadi_runner --help",
         "default: /tmp/moved/bin/../lib/libzadi_linux_plugin.so"},
        {"installed runner call", "/tmp/moved/bin/zadi_runner call GetSysMemory --json", "\"state\":\"ok\""},
        {"sample configuration",
         "/tmp/moved/bin/zadi_runner --config /tmp/moved/share/zadi/zadi_runner.conf --once --exit-zero", "round 1"},
        // Nothing lands outside the prefix, the platform scripts included.
        {"scripts under the prefix",
         "test -x /tmp/moved/share/zadi/script/os_conf_backup.sh && test ! -e /ZUK/script && echo inside", "inside"},
    };
    for (const auto& s : steps) {
        const Run r = Shell(s.cmd);
        EXPECT_TRUE(r.status == 0 && Has(r.out, s.expect)) << s.what << ": " << r.out;
    }
}

// The installed unit passes systemd's own check, and its command line, run
// as systemd would, serves metrics, re-reads its configuration on the reload
// signal and stops cleanly.
static void ServiceBody() {
    if (const char* why = InstallUncheckable()) GTEST_SKIP() << why;
    const Run installed = Shell("cmake --install " KIRA_BINARY_DIR " --prefix /tmp/p");
    ASSERT_EQ(installed.status, 0) << installed.out;
    const std::string unit_path = "/tmp/p/lib/systemd/system/zadi_runner.service";
    kt::WriteFile("/tmp/trivial.service", "[Service]\nExecStart=/bin/true\n");
    const Run trivial = Shell("systemd-analyze verify /tmp/trivial.service");
    if (trivial.status != 0) GTEST_SKIP() << "systemd-analyze cannot run in this container: " << trivial.out;
    const Run verified = Shell("systemd-analyze verify " + unit_path);
    EXPECT_TRUE(verified.status == 0 && verified.out.empty()) << verified.out;
    const std::string unit = kt::ReadFile(unit_path);
    const size_t at = unit.find("ExecStart=") + 10;
    const std::string exec_start = unit.substr(at, unit.find('\n', at) - at);
    EXPECT_EQ(exec_start.rfind("/tmp/p/bin/zadi_runner ", 0), 0u) << exec_start;
    kt::MakeDirs("/etc/zadi");
    kt::WriteFile("/etc/zadi/zadi_runner.conf", kt::ReadFile("/tmp/p/share/zadi/zadi_runner.conf"));
    const pid_t pid = Start("exec " + exec_start + " 2>/tmp/service.err");
    const std::string ok = "zadi_item_ok{item=\"GetSysCPU\"} 1";
    std::string metrics;
    for (int i = 0; i < 50 && !Has(metrics, ok); ++i, SleepMs(100)) {
        metrics = Shell("curl -sS --max-time 5 http://127.0.0.1:9731/metrics").out;
    }
    EXPECT_TRUE(Has(metrics, ok)) << metrics;
    kill(pid, SIGHUP);
    SleepMs(1000);
    kill(pid, SIGTERM);
    EXPECT_EQ(WaitStatus(pid), 0);
    const std::string err = kt::ReadFile("/tmp/service.err");
    EXPECT_TRUE(Has(err, "configuration read again") && Has(err, "stopped by SIGTERM")) << err;
}

TEST(Install, ServiceUnitVerifiesAndRunsAsSystemdWould) { RunIsolated(&ServiceBody, 60, true); }
