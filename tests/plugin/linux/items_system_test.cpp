// Whole-system items against deterministic /proc/stat and /proc/meminfo and
// real file systems: delta arithmetic, which counters count, line positions,
// and the disk figure's double rounding; failures that read as zero successes,
// with their log lines; what one item call costs, counted exactly.

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <atomic>
#include <functional>

#include "plugin/linux/proc_read_internal.h"
#include "tests/plugin/linux/items_test_util.h"
#include "tests/support/fault_inject.h"
#include "tests/support/sandbox.h"
#include "tests/support/syscall_count.h"

using itest::Args;
using itest::Bits;
using itest::kMarkerBits;

namespace {

// Heap blocks taken by this thread during body (allocations are counted,
// none fails); -1 where the sanitizer runtime owns the allocator.
long AllocationsDuring(const std::function<void()>& body) {
    kt::FaultArm({kt::Fault::kAlloc, 0, kt::FaultMode::kFail, false});
    body();
    const long seen = kt::FaultSeen();
    kt::FaultDisarm();
    return seen;
}

// user nice system idle iowait irq softirq steal, then guest and guest_nice 0.
std::string StatLine(std::initializer_list<unsigned long long> ticks) {
    std::string line = "cpu ";
    for (unsigned long long t : ticks) line += " " + std::to_string(t);
    for (size_t i = ticks.size(); i < 10; ++i) line += " 0";
    return line + "\ncpu0 1 2 3 4 5 6 7 8 0 0\nintr 1\n";
}

}  // namespace

SANDBOX_TEST(SysCpu, DeltaOfSevenCountersWithIdleOnlyAsIdle) {
    kt::BindFileOver("/proc/stat", StatLine({100, 20, 30, 800, 10, 5, 35, 999}));
    Args a;
    // Zeroed context: the average since boot; steal is not counted.
    float v = a.Ok(GetSysCPU);
    EXPECT_FLOAT_EQ(v, static_cast<float>(100.0 - 800.0 * 100.0 / 1000.0));
    auto ctx = a.Ctx<sys_cpu_context_t>();
    EXPECT_EQ(ctx.totaltime, 1000u);
    EXPECT_EQ(ctx.idletime, 800u);

    // Same tick: 0.0 and the stored sample stays.
    a.ResetResult();
    EXPECT_EQ(a.Ok(GetSysCPU), 0.0f);
    EXPECT_EQ(a.reason(), "untouched");
    EXPECT_EQ(a.Ctx<sys_cpu_context_t>().totaltime, 1000u);

    // +400 ticks, of which idle +100 and iowait/irq/softirq +150: busy 75 %.
    kt::BindFileOver("/proc/stat", StatLine({200, 20, 80, 900, 60, 55, 85, 5000}));
    EXPECT_FLOAT_EQ(a.Call(GetSysCPU), 75.0f);
    EXPECT_EQ(a.Ctx<sys_cpu_context_t>().totaltime, 1400u);

    // The context is required, argc and argv are not looked at.
    Args b;
    EXPECT_EQ(Bits(GetSysCPU(1, nullptr, nullptr, &b.result)), kMarkerBits);
    EXPECT_EQ(b.result.result, 77);
    EXPECT_EQ(b.reason(), "untouched");
    EXPECT_EQ(Bits(GetSysCPU(0, nullptr, &b.context, nullptr)), kMarkerBits);
    GetSysCPU(-4, nullptr, &b.context, &b.result);
    EXPECT_EQ(b.result.result, 0);
}

SANDBOX_TEST(SysCpu, UserShareLeavesNiceOut) {
    kt::BindFileOver("/proc/stat", StatLine({250, 250, 0, 500}));
    Args a;
    EXPECT_FLOAT_EQ(a.Call(GetSysUsrCPU), 25.0f);
    EXPECT_EQ(a.Ctx<sys_usr_cpu_context_t>().uesrtime, 250u);
    kt::BindFileOver("/proc/stat", StatLine({260, 280, 0, 560}));
    EXPECT_FLOAT_EQ(a.Call(GetSysUsrCPU), 10.0f);
    EXPECT_EQ(a.Ctx<sys_usr_cpu_context_t>().totaltime, 1100u);
    kt::BindFileOver("/proc/stat", StatLine({1, 2, 3, 4, 100, 200, 300, 400}));
    unsigned long long t[7];
    ASSERT_EQ(ZADI_Linux_Plugin::get_sys_cpu_tick(t[0], t[1], t[2], t[3], t[4], t[5], t[6]), 0);
    EXPECT_EQ(t[4], 100u);
    EXPECT_EQ(t[6], 300u);
    // Counters that do not parse stay 0.
    kt::BindFileOver("/proc/stat", "cpu 7 8\n");
    ASSERT_EQ(ZADI_Linux_Plugin::get_sys_cpu_tick(t[0], t[1], t[2], t[3], t[4], t[5], t[6]), 0);
    EXPECT_EQ(t[0], 7u);
    EXPECT_EQ(t[2], 0u);
    EXPECT_EQ(t[6], 0u);
}

SANDBOX_TEST(SysMemory, LinesByPositionAndPlainFree) {
    // Line 2 is taken as free whatever its label says.
    kt::BindFileOver("/proc/meminfo", "MemTotal:        8000000 kB\nMemAvailable:    2000000 kB\nMemFree:    100 kB\n");
    Args a;
    EXPECT_FLOAT_EQ(GetSysMemory(0, nullptr, nullptr, &a.result), 75.0f);  // no context needed
    EXPECT_EQ(a.result.result, 0);
    EXPECT_EQ(GetSysFreeMemory(0, nullptr, nullptr, &a.result), 1953.0f);  // 2000000 >> 10
    kt::BindFileOver("/proc/meminfo", "MemTotal: 0 kB\nMemFree: 0 kB\n");
    EXPECT_EQ(GetSysMemory(0, nullptr, nullptr, &a.result), 0.0f);
    kt::BindFileOver("/proc/meminfo", "MemTotal: 3 kB\n");
    EXPECT_FLOAT_EQ(GetSysMemory(0, nullptr, nullptr, &a.result), 100.0f);  // a missing line reads 0
    EXPECT_EQ(Bits(GetSysMemory(0, nullptr, nullptr, nullptr)), kMarkerBits);
    EXPECT_EQ(Bits(GetSysFreeMemory(0, nullptr, nullptr, nullptr)), kMarkerBits);
}

SANDBOX_TEST(DiskUsage, HalfIsAddedTwice) {
    // A tmpfs of ten 4 KiB blocks: its figures are exact.
    ASSERT_EQ(mkdir("/tmp/disk", 0755), 0);
    ASSERT_EQ(mount("tmpfs", "/tmp/disk", "tmpfs", 0, "size=40k"), 0) << strerror(errno);
    Args a({{"Path", "/tmp/disk"}});
    EXPECT_EQ(a.Ok(GetDiskUsage), 1.0f);  // 0 used of 10 gives 1
    kt::WriteFile("/tmp/disk/f", std::string(4096, 'x'));
    EXPECT_EQ(a.Call(GetDiskUsage), 11.0f);  // 1 of 10 gives 11
    kt::WriteFile("/tmp/disk/g", std::string(4096 * 4, 'x'));
    EXPECT_EQ(a.Call(GetDiskUsage), 51.0f);

    // A pseudo file system has no blocks: 0.0, a success.
    Args p({{"Path", "/proc"}});
    EXPECT_EQ(p.Ok(GetDiskUsage), 0.0f);

    Args missing({{"Path", "/no/such/dir"}});
    itest::ExpectRefused(missing.Call(GetDiskUsage), missing.result, "Get Disk Usage Fault, Return -1.000000.");
}

SANDBOX_TEST(SysFailures, MissingProcFilesAreZeroSuccessesWithALogLine) {
    // An empty /proc: every reader fails to open its file. It is taken away
    // again before the body ends (leak checking reads /proc at exit).
    ASSERT_EQ(mount("tmpfs", "/proc", "tmpfs", 0, nullptr), 0) << strerror(errno);
    struct Unmount {
        ~Unmount() { umount("/proc"); }
    } unmount;
    Args a;
    for (FI_ITEM_FN fn : {GetSysCPU, GetSysUsrCPU, GetSysMemory, GetSysFreeMemory}) {
        a.ResetResult();
        EXPECT_EQ(a.Ok(fn), 0.0f);
    }
    EXPECT_EQ(ZADI_Linux_Plugin::get_cpu_total_occupy(), 0u);
    EXPECT_EQ(ZADI_Linux_Plugin::get_cpu_process_occupy(1), 0u);
    EXPECT_EQ(ZADI_Linux_Plugin::get_phy_mem(1), 0u);
    ZADI_Linux_Plugin p;
    EXPECT_EQ(p.get_handle_max(1), 0u);
    Args proc({{"ProcessName", "/sbin/init"}});
    EXPECT_EQ(proc.Ok(GetProcessMemory), 0.0f);

    // The texts, spelling included, with errno and its text.
    for (const char* text : {"Open failed(/proc/stat), ", "Open failed(/proc/meminfo), ", "Openfile failed, ",
                             "Open file failed, ", "Open failed(/proc/1/status), ", "Open failed(/proc/1/limits), "}) {
        EXPECT_GE(kt::SyslogCount(std::string(text) + "errno(2, No such file or directory)."), 1) << text;
    }
}

// The tick readers take no heap block at all (counted below).
SANDBOX_TEST(SysFailures, AllocationFailuresAreLoggedUnderTheMeasurement) {
    using P = ZADI_Linux_Plugin;
    P p;
    int pid = -7;
    const struct {
        const char* func;
        const char* text;
        std::function<bool()> call;  // true when the failure reads as a plain miss
    } cases[] = {
        {"check_with_cmdline", "Malloc failed", [] { return !P::check_with_cmdline("/proc/self/cmdline", "", 0); }},
        {"get_process_cpu_extern", "Fork failed", [&] { return p.get_process_cpu_extern("", &pid) == 0.0f; }},
        {"get_process_cpu", "Fork failed", [&] { return p.get_process_cpu("*", 500000) == 0.0f; }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.func);
        kt::SyslogClear();
        kt::FaultArm({kt::Fault::kAlloc, 1});
        EXPECT_TRUE(c.call());
        EXPECT_TRUE(kt::FaultDisarm());
        const std::string text = std::string("[") + c.text + ", errno(12, Cannot allocate memory).]";
        const std::string where = std::string("[") + c.func + ",";
        int hits = 0;
        for (const auto& line : kt::SyslogLines()) {
            hits += line.message.find(text) != std::string::npos && line.message.find(where) != std::string::npos;
        }
        EXPECT_EQ(hits, 1);
    }
    EXPECT_EQ(pid, -7);
}

SANDBOX_TEST(ItemCost, StoredPidItemsMakeTheFloorsCallsAndNoAllocation) {
    const std::string cmd = itest::Unique("cost");
    kt::Child child(cmd, {cmd, "x"});
    // Per item: open/read/close of the command line, then of each file read:
    // status for memory, /proc/stat and the process's stat for CPU.
    const struct {
        const char* name;
        FI_ITEM_FN item;
        long calls;
    } cases[] = {{"IsExistProcess", IsExistProcess, 3},
                 {"GetProcessMemory", GetProcessMemory, 6},
                 {"GetProcessCoreCPU", GetProcessCoreCPU, 9}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Args a({{"ProcessName", cmd + " x"}});
        a.Call(c.item);  // finds and stores the pid
        ASSERT_EQ(a.Ctx<pid_t>(), child.pid());
        const kt::SyscallCount count = kt::CountSyscalls([&] { a.Call(c.item); });
        if (count.traced) {
            EXPECT_EQ(count.total, c.calls);
            EXPECT_EQ(count.by_number.count(SYS_openat) ? count.by_number.at(SYS_openat) : 0, c.calls / 3);
        }
        const long blocks = AllocationsDuring([&] { a.Call(c.item); });
        if (blocks >= 0) {
            EXPECT_EQ(blocks, 0);
        }
        EXPECT_EQ(a.Ctx<pid_t>(), child.pid());
        EXPECT_EQ(a.result.result, 0);
    }
}

SANDBOX_TEST(ItemCost, LookupWalkReadsEachCommandLineOnce) {
    const std::string cmd = itest::Unique("walk");
    kt::Child child(cmd, {cmd});
    const kt::SyscallCount count = kt::CountSyscalls([&] {
        int pid = 0;
        (void)ZADI_Linux_Plugin::get_pid_byname((cmd + " missing").c_str(), pid);
    });
    if (!count.traced) {
        GTEST_SKIP() << "system calls cannot be traced here";
    }
    auto calls = [&](long nr) { return count.by_number.count(nr) ? count.by_number.at(nr) : 0; };
    // One openat is /proc itself, every other one a command line, read once
    // (a process that ended meanwhile fails its open and is not read).
    const long cmdlines = calls(SYS_openat) - 1;
    EXPECT_GT(cmdlines, 1);
    EXPECT_LE(calls(SYS_read), cmdlines);
    EXPECT_LE(calls(SYS_close), cmdlines + 1);
}
