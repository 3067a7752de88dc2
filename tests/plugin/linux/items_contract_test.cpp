// The item contract, and one walk over every item with the arguments it refuses, in the order it checks them, with
// the exact texts; the system items against files bound over /proc/stat and /proc/meminfo and a sized tmpfs.

#include <stddef.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <regex>
#include <set>
#include <sstream>

#include "plugin/linux/plugin_internal.h"
#include "tests/plugin/linux/items_test_util.h"
#include "tools/agent_sub/zadi_agent_sub.h"

using itest::Args;
using itest::Bits;

static_assert(sizeof(FI_PARAM_S) == 500 && offsetof(FI_PARAM_S, value) == 100 && sizeof(FI_CONTEXT_S) == 1028 &&
                  offsetof(FI_RESULT_S, pid) == 1028 && sizeof(process_cpu_context_t) == 24 &&
                  sizeof(ZADI_Linux_Plugin) == sizeof(int),
              "the agent's records; a class without virtual operations");

namespace {

const char kNumber[] = "Input parameter number error.", kNames[] = "Input parameter error.",
           kNoCode[] = "Get para 'ErrCode' failed.", kNoName[] = "Get para 'ProcessName' failed.",
           kNoModule[] = "Get para 'ProcessMoudleId' failed.";
constexpr int kChecked = -1, kOwn = Args::kOwn;  // kChecked: every item that checks count, argv, names, context

// clang-format off
// reason "": accepted; null: the marker, the result untouched. Empty params: the item's own.
struct Refusal { int shape, argc; bool argv, context; const char* reason; itest::Params params; };
const Refusal kRefusals[] = {
    {kChecked, 0, false, false, kNumber, {}}, {kChecked, kOwn + 1, true, true, kNumber, {}},
    {kChecked, kOwn, false, false, "Input parameter argv is NULL.", {}},
    {kChecked, kOwn, true, false, "Input parameter context is NULL.", {}},
    // Names are compared whole, in order, before the context is looked at.
    {itest::kPeriod, kOwn, true, false, kNames, {{"Period", "1"}, {"ProcessName", "x"}}},
    {itest::kPeriod, kOwn, true, true, kNames, {{"ProcessName", "x"}, {"period", "1"}}},
    {itest::kPreCmd, kOwn, true, false, kNames, {{"PreCmd", "c"}, {"ProcessName", "x"}, {"RetKeyWords", "k"}}},
    {itest::kPreCmd, kOwn, true, true, kNames, {{"ProcessName", "x"}, {"PreCmd", "c"}, {"RetKeyWord", "k"}}},
    {itest::kPreCmd, kOwn, true, true, kNames, {{"ProcessNameX", "x"}, {"PreCmd", "c"}, {"RetKeyWords", "k"}}},
    {itest::kDisk, kOwn, true, true, "Get Disk Usage Fault, Return -1.000000.", {{"Path", "/no/such"}}},
    {itest::kSysCtx, kOwn, true, false, nullptr, {}}, {itest::kSysCtx, -4, false, true, "", {}},
    {itest::kSys, -4, false, false, "", {}}, {itest::kClear, -4, false, false, "", {}},
    {itest::kHeartbeat, -1, true, false, kNumber, {}}, {itest::kHeartbeat, kOwn, false, true, kNumber, {}},
    {itest::kHeartbeat, kOwn, true, false, "Input parameter context error.", {}},
    {itest::kHeartbeat, kOwn, true, true, kNoName, {{"ProcessMoudleId", "7"}}},
    {itest::kHeartbeat, kOwn, true, true, kNoModule, {{"ProcessName", "w"}}},
    {itest::kReport, -1, true, false, kNumber, {}}, {itest::kReport, kOwn, false, false, kNumber, {}},
    {itest::kReport, kOwn, true, false, kNoCode, {{"ProcessMoudleId", "1"}}},
    {itest::kReport, kOwn, true, false, kNoCode, {{"ErrCode", "0xFFFFFFFF"}}},
    {itest::kReport, kOwn, true, false, "ErrCode 0xF000020E is not supported.", {{"ErrCode", "0xf000020e"}}},
    // Converted up to the first bad character: the CPU code.
    {itest::kReport, kOwn, true, false, kNoModule, {{"ErrCode", "0xF0000203zz"}, {"ResId", "r"}}},
    {itest::kReport, kOwn, true, false, "Get para 'ResId' failed.", {{"ErrCode", "0xF0000204"}, {"ProcessMoudleId", "1"}}},
    {itest::kReport, kOwn, true, false, kNoName, {{"ErrCode", "0xF000020F"}, {"ProcessMoudleId", "1"}}},
    {itest::kReport, kOwn, true, false, kNoModule, {{"ErrCode", "0xF000020F"}, {"ProcessName", "w"}}},
};
// clang-format on

}  // namespace

SANDBOX_TEST(ItemArguments, EveryItemRefusesInItsOrderWithExactTexts) {
    ZADI_AgentSubReset();
    for (const itest::ItemCase& item : itest::kItems) {
        SCOPED_TRACE(item.name);
        const bool checked = item.shape >= itest::kByCmd && item.shape <= itest::kPreCmd;
        // A null result is looked at before anything else, and never written.
        const float none = item.fn(-1, nullptr, nullptr, nullptr);
        EXPECT_EQ(Bits(none), item.shape == itest::kClear ? Bits(1.0f) : itest::kMarkerBits);
        for (const Refusal& bad : kRefusals) {
            if (bad.shape != item.shape && !(bad.shape == kChecked && checked)) {
                continue;
            }
            Args a(bad.params.empty() ? itest::ParamsFor(item.shape, "x") : bad.params);
            const float v = a.Call(item.fn, bad.argc, bad.argv, bad.context);
            SCOPED_TRACE(std::to_string(bad.argc) + (bad.params.empty() ? "" : " " + bad.params[0].second));
            const int code = bad.reason == nullptr ? 77 : *bad.reason != '\0' ? -1 : 0;
            EXPECT_EQ(a.Written(), std::make_tuple(code, std::string(code < 0 ? bad.reason : "untouched"), -5, 99u));
            EXPECT_EQ(Bits(v) == itest::kMarkerBits, code != 0) << v;
            EXPECT_TRUE(code == 0 || std::string(a.context.contextbuff, 1024) == std::string(1024, '\0'));
        }
    }
    EXPECT_EQ(ZADI_AgentSubCallCount(ZADI_SUB_CALL_CREATE) + kt::SyslogCount("DiagCode"), 0);
}

TEST(ItemList, HeaderExportsAndListAgree) {
    std::set<std::string> listed, exported;
#define ITEST_NAME(name, ...) listed.insert(#name);
    ZADI_ITEM_LIST(ITEST_NAME)
#undef ITEST_NAME
    const std::string header = kt::ReadFile(KIRA_SOURCE_DIR "/plugin/linux/zadi_items.h");
    const std::regex declaration(R"(KIRA_EXPORT float (\w+)\(int argc)");
    const std::set<std::string> declared(std::sregex_token_iterator(header.begin(), header.end(), declaration, 1), {});
    std::istringstream lines(kt::ReadFile(KIRA_SOURCE_DIR "/exports/plugin_items.txt") + "\n" +
                             kt::ReadFile(KIRA_SOURCE_DIR "/exports/plugin_census.txt"));
    for (std::string line; std::getline(lines, line);) {
        if (listed.count(line) != 0) {
            exported.insert(line);
        }
    }
    EXPECT_EQ(listed.size(), 25u);
    EXPECT_EQ(std::make_pair(declared, exported), std::make_pair(listed, listed));
}

SANDBOX_TEST(SystemItems, ReasonsPeriodsCountersLinesByPositionAndTheDiskFiguresDoubleRounding) {
    // A reason is cut to 1023 characters before the fields after it.
    FI_RESULT_S r;
    memset(&r, 'Z', sizeof(r));
    zadi::SetFault(&r, "%s", std::string(3000, 'r').c_str());
    EXPECT_EQ(std::make_tuple(r.result, strlen(r.reason), r.pid), std::make_tuple(-1, size_t{1023}, 0x5A5A5A5A));
    // Seconds to microseconds wrap at 32 bits, then are held to [0.5 s, 240 s].
    // clang-format off
    const std::pair<const char*, int> periods[] = {{"1", 1000000}, {"240", 240000000}, {"2147", 240000000},
        {"2148", 500000}, {"0", 500000}, {"-5", 500000}, {"abc", 500000}, {"7s", 7000000}, {"4296", 1032704}};
    // clang-format on
    for (const auto& p : periods) {
        EXPECT_EQ(ConvertStr2PeriodUS(p.first), p.second) << p.first;
    }

    // user nice system idle iowait irq softirq steal: steal not counted, only idle is idle, the user share omits nice.
    kt::BindFileOver("/proc/stat", "cpu  100 20 30 800 10 5 35 999 0 0\ncpu0 1 2 3 4 5 6 7 8 0 0\n");
    Args cpu, usr, mem;
    EXPECT_EQ(std::make_pair(cpu.Call(GetSysCPU), usr.Call(GetSysUsrCPU)), std::make_pair(20.0f, 10.0f));
    EXPECT_EQ(cpu.Call(GetSysCPU), 0.0f);  // the same total: the sample stays
    EXPECT_EQ(cpu.Written(), std::make_tuple(0, std::string("untouched"), -5, 99u));
    kt::BindFileOver("/proc/stat", "cpu  200 70 30 900 60 55 85 5000 0 0\n");  // +400, idle +100
    EXPECT_EQ(std::make_pair(cpu.Call(GetSysCPU), usr.Call(GetSysUsrCPU)), std::make_pair(75.0f, 25.0f));
    // Line 2 is free memory whatever its label says; a missing line reads 0.
    kt::BindFileOver("/proc/meminfo", "MemTotal:  8000000 kB\nMemAvailable:  2000000 kB\nMemFree:  100 kB\n");
    EXPECT_EQ(std::make_pair(mem.Call(GetSysMemory), mem.Call(GetSysFreeMemory)), std::make_pair(75.0f, 1953.0f));
    kt::BindFileOver("/proc/meminfo", "MemTotal: 0 kB\n");
    EXPECT_EQ(mem.Call(GetSysMemory), 0.0f);

    // Ten 4 KiB blocks with 0, 1, 5 used give 1, 11, 51: the half is added twice.
    ASSERT_EQ(mkdir("/tmp/disk", 0755), 0);
    ASSERT_EQ(mount("tmpfs", "/tmp/disk", "tmpfs", 0, "size=40k"), 0) << strerror(errno);
    Args disk{{"Path", "/tmp/disk"}}, proc{{"Path", "/proc"}};
    for (const auto& step : {std::make_pair(0, 1.0f), std::make_pair(1, 11.0f), std::make_pair(4, 51.0f)}) {
        kt::WriteFile("/tmp/disk/f" + std::to_string(step.first), std::string(4096 * step.first, 'x'));
        EXPECT_EQ(std::make_pair(disk.Call(GetDiskUsage), disk.result.result), std::make_pair(step.second, 0));
    }
    EXPECT_EQ(std::make_pair(proc.Call(GetDiskUsage), proc.result.result), std::make_pair(0.0f, 0));  // no blocks

    // An empty /proc (gone before leak checking reads it at exit): zero successes, each logged, spelling included.
    ASSERT_EQ(mount("tmpfs", "/proc", "tmpfs", 0, nullptr), 0) << strerror(errno);
    for (FI_ITEM_FN fn : {GetSysCPU, GetSysUsrCPU, GetSysMemory, GetSysFreeMemory}) {
        EXPECT_EQ(std::make_pair(mem.Call(fn), mem.result.result), std::make_pair(0.0f, 0));
    }
    const auto zero = ZADI_Linux_Plugin::get_cpu_total_occupy() + ZADI_Linux_Plugin::get_cpu_process_occupy(1) +
                      ZADI_Linux_Plugin().get_handle_max(1);
    umount("/proc");
    EXPECT_EQ(zero, 0u);
    for (const char* text :
         {"Open failed(/proc/meminfo), ", "Openfile failed, ", "Open file failed, ", "Open failed(/proc/1/limits), "}) {
        EXPECT_GE(kt::SyslogCount(std::string(text) + "errno(2, No such file or directory)."), 1) << text;
    }
}
