// What one item call costs, counted exactly: system calls of the stored-pid
// items and of a lookup walk, and heap blocks of the stored-pid items.

#include <sys/syscall.h>

#include "plugin/linux/zadi_linux_plugin.h"
#include "tests/plugin/linux/items_test_util.h"
#include "tests/support/sandbox.h"
#include "tests/support/syscall_count.h"

using itest::Args;

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
        const long blocks = itest::AllocationsDuring([&] { a.Call(c.item); });
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
