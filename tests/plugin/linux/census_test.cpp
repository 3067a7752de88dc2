// The all-process census over real processes: who is in a result, the
// figures, the failure paths that leave the caller's list alone, and the
// lookups by name.

#include <memory>
#include <set>
#include <thread>

#include "plugin/linux/allprocess.h"
#include "plugin/linux/allprocess_internal.h"
#include "support/sandbox.h"
#include "tests/plugin/linux/items_test_util.h"

using itest::Unique;

namespace {

std::vector<PROCESS_INFO_S*> Entries(struct list_head* head) {
    std::vector<PROCESS_INFO_S*> out;
    PROCESS_INFO_S* e;
    list_for_each_entry(e, head, stEntry) out.push_back(e);
    return out;
}

PROCESS_INFO_S* Find(struct list_head* head, pid_t pid) {
    for (PROCESS_INFO_S* e : Entries(head)) {
        if (e->pid == pid) return e;
    }
    return nullptr;
}

// The kernel marks its own threads with PF_KTHREAD in the flags field.
bool IsKernelThread(pid_t pid) { return (strtoul(itest::StatField(pid, 9).c_str(), nullptr, 10) & 0x00200000ul) != 0; }

bool AnyKernelThread() {
    bool any = false;
    DIR* dir = opendir("/proc");
    for (struct dirent* e = dir ? readdir(dir) : nullptr; e != nullptr && !any; e = readdir(dir)) {
        any = atoi(e->d_name) > 0 && IsKernelThread(atoi(e->d_name));
    }
    if (dir) closedir(dir);
    return any;
}

char State(pid_t pid) { return itest::StatField(pid, 3).append("?")[0]; }

// The census figure against the share of one core the process really got:
// a shared machine gives a burner less than a whole core.
void ExpectNearMeasured(int corecpu, unsigned long long ticks0, unsigned long long ticks1, double seconds) {
    double measured = static_cast<double>(ticks1 - ticks0) * 100.0 / (sysconf(_SC_CLK_TCK) * seconds);
    printf("busy core: corecpu %d, measured %.1f%% of one core\n", corecpu, measured);
    EXPECT_GE(corecpu, 0.8 * measured - 5) << "measured " << measured;
    EXPECT_LE(corecpu, 1.25 * measured + 5) << "measured " << measured;
    EXPECT_LE(corecpu, 115);
}

void Scanned(struct list_head* list, pid_t pid, const char* name, uint64_t sys, uint64_t proc, int rss) {
    auto* d = static_cast<PROCESS_BASICDATA_S*>(calloc(1, sizeof(PROCESS_BASICDATA_S)));
    d->pid = pid;
    d->syscputime = sys;
    d->procputime = proc;
    d->rss = rss;
    strcpy(d->name, name);
    snprintf(d->cmdline, sizeof(d->cmdline), "/bin/%s --run", name);
    list_add_tail(&d->stEntry, list);
}

}  // namespace

TEST(CensusLists, TwoScansBecomeOneResult) {
    struct list_head first, second, result;
    INIT_LIST_HEAD(&first);
    INIT_LIST_HEAD(&second);
    INIT_LIST_HEAD(&result);
    Scanned(&first, 10, "steady", 1000, 50, 7);
    Scanned(&first, 11, "ended", 1000, 50, 1);
    Scanned(&first, 12, "reused", 1000, 50, 1);
    Scanned(&first, 13, "frozen", 1000, 50, 1);
    Scanned(&first, 14, "idle", 1000, 50, 3);
    Scanned(&second, 13, "frozen", 1000, 90, 1);    // system ticks did not advance
    Scanned(&second, 12, "newprog", 1400, 90, 1);   // same pid, another program
    Scanned(&second, 10, "steady", 1400, 150, 99);  // 100 of 400 ticks
    Scanned(&second, 15, "started", 1400, 10, 1);   // not in the first scan
    Scanned(&second, 14, "idle", 1400, 50, 3);

    CalcAllProcessCoreCPU(&first, &second, &result);
    std::vector<PROCESS_INFO_S*> got = Entries(&result);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(got[0]->pid, 10);
    EXPECT_EQ(got[0]->corecpu, static_cast<int>(25.0 * ZADI_Linux_Plugin::get_cpu_core_num()));
    EXPECT_EQ(got[0]->rss, 7) << "rss comes from the first scan";
    EXPECT_STREQ(got[0]->name, "steady");
    EXPECT_STREQ(got[0]->cmdline, "/bin/steady --run");
    EXPECT_FALSE(got[0]->used);
    EXPECT_EQ(got[1]->pid, 14);
    EXPECT_EQ(got[1]->corecpu, 0);
    FreeProcBasicData(&first);
    FreeProcBasicData(&second);
    FreeAllProcessList(&result);
    EXPECT_TRUE(list_empty(&result));
    // The head is not reset by freeing, and an empty list stays as it is.
    FreeAllProcessList(&result);
    EXPECT_EQ(result.next, &result);
    EXPECT_EQ(result.prev, &result);
    FreeAllProcessList(nullptr);

    // The record copy is terminated whatever the scan held.
    PROCESS_BASICDATA_S d;
    memset(&d, 'x', sizeof(d));
    d.corecpu = 150;
    PROCESS_INFO_S* info = ProcBasicDataToProcInfo(&d);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(strlen(info->name), 31u);
    EXPECT_EQ(strlen(info->cmdline), 1023u);
    EXPECT_EQ(info->corecpu, 150);
    EXPECT_EQ(info->stEntry.next, &info->stEntry);
    EXPECT_FALSE(info->used);
    free(info);

    // Only the first strLen characters count, so an empty name is digits.
    const struct {
        const char* str;
        int len;
        bool digits;
    } names[] = {{nullptr, 0, false}, {"", 0, true}, {"12a", 2, true}, {"12a", 3, false}, {"/1", 2, false}};
    for (const auto& n : names) EXPECT_EQ(isDigit(n.str, n.len), n.digits) << (n.str ? n.str : "null") << n.len;
}

SANDBOX_TEST(Census, RssListHoldsUserProcessesInMegabytes) {
    std::string name = Unique("rss");
    itest::Forked hog(name, [] {
        // Touched through volatile stores, so the optimizer keeps every page.
        const size_t size = 64u << 20;
        volatile char* block = static_cast<volatile char*>(malloc(size));
        for (size_t i = 0; i < size; i += 4096) block[i] = 1;
        for (;;) pause();
    });
    for (int i = 0; i < 200 && ZADI_Linux_Plugin::get_phy_mem(hog.pid()) < 64; ++i) usleep(10000);

    struct list_head head;
    head.next = head.prev = nullptr;  // whatever it held is forgotten
    ASSERT_EQ(GetAllProcessRssMem(&head), 0);
    ASSERT_TRUE(AnyKernelThread()) << "no kernel thread to leave out";
    for (PROCESS_INFO_S* e : Entries(&head)) {
        EXPECT_FALSE(IsKernelThread(e->pid)) << "kernel thread " << e->pid << " listed";
        // A process may blank its own command line (the runner does): it
        // still has one, so it is listed, with an empty text.
        EXPECT_EQ(e->corecpu, 0);
        EXPECT_FALSE(e->used);
    }
    PROCESS_INFO_S* mine = Find(&head, hog.pid());
    ASSERT_NE(mine, nullptr);
    EXPECT_STREQ(mine->name, name.c_str());
    EXPECT_GE(mine->rss, 64);
    EXPECT_LT(mine->rss, 80);
    ASSERT_NE(Find(&head, getpid()), nullptr);
    FreeAllProcessList(&head);
    EXPECT_TRUE(list_empty(&head));
    EXPECT_EQ(GetAllProcessRssMem(nullptr), -1);
}

// One burner among idle processes, one of which ends and one starts during
// the interval: the census holds only those seen in both scans.
static void BusyCoreBody(bool slow) {
    std::string name = Unique(slow ? "slow" : "cpu");
    itest::Spinner burner(name);
    kt::Child stays(name + "s", {name + "s"}), ends(name + "e", {name + "e"});
    std::unique_ptr<kt::Child> late;
    std::thread meanwhile([&] {
        usleep(300000);
        ends.Kill();
        late.reset(new kt::Child(name + "l", {name + "l"}));
    });
    struct list_head head;
    int usersys = -1;
    auto start = std::chrono::steady_clock::now();
    unsigned long long ticks0 = ZADI_Linux_Plugin::get_cpu_process_occupy(burner.pid());
    int rc = slow ? GetAllProcessCoreCPU(&head, &usersys) : GetAllProcessCoreCPUEvery(&head, &usersys, 2);
    unsigned long long ticks1 = ZADI_Linux_Plugin::get_cpu_process_occupy(burner.pid());
    double seconds = itest::SecondsSince(start);
    meanwhile.join();
    ASSERT_EQ(rc, 0);
    EXPECT_GE(seconds, slow ? 60.0 : 0.0);
    EXPECT_GE(usersys, 0);
    EXPECT_LE(usersys, 100);
    ASSERT_NE(Find(&head, stays.pid()), nullptr);
    EXPECT_EQ(Find(&head, ends.pid()), nullptr) << "ended during the interval";
    EXPECT_EQ(Find(&head, late->pid()), nullptr) << "started during the interval";
    PROCESS_INFO_S* hot = Find(&head, burner.pid());
    ASSERT_NE(hot, nullptr);
    // On an idle machine the burner holds one core: close to 100.
    ExpectNearMeasured(hot->corecpu, ticks0, ticks1, seconds);
    EXPECT_LE(Find(&head, stays.pid())->corecpu, 5);
    FreeAllProcessList(&head);
}

SANDBOX_TEST(Census, ShortIntervalFollowsProcessesAcrossScans) { BusyCoreBody(false); }

SANDBOX_TEST(Census, UserShareAndFailuresThatLeaveTheListAlone) {
    kt::BindFileOver("/proc/stat", "cpu  100 0 0 100 0 0 0 0 0 0\ncpu0 100 0 0 100 0 0 0 0 0 0\n");
    std::thread swap([] {
        usleep(300000);
        kt::BindFileOver("/proc/stat", "cpu  130 10 20 200 40 0 0 0 0 0\ncpu0 130 10 20 200 40 0 0 0 0 0\n");
    });
    struct list_head head;
    int usersys = -1;
    int rc = GetAllProcessCoreCPUEvery(&head, &usersys, 1);
    swap.join();
    ASSERT_EQ(rc, 0);
    // (130 - 100) * 100 / (400 - 200): of seven counters, system ticks are not user.
    EXPECT_EQ(usersys, 15);
    FreeAllProcessList(&head);

    struct list_head sentinel;
    head.next = head.prev = &sentinel;
    usersys = 77;
    kt::BindFileOver("/proc/stat", "cpu  5 5 5 5 5 5 5\n");  // ticks that do not move
    EXPECT_EQ(GetAllProcessCoreCPUEvery(&head, &usersys, 0), -1);
    EXPECT_EQ(head.next, &sentinel);
    EXPECT_EQ(head.prev, &sentinel);
    EXPECT_EQ(usersys, 77);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(GetAllProcessCoreCPU(nullptr, &usersys), -1);
    EXPECT_EQ(GetAllProcessCoreCPU(&head, nullptr), -1);
    EXPECT_LT(itest::SecondsSince(start), 5.0) << "bad arguments must not wait";
    EXPECT_EQ(head.next, &sentinel);
}

SANDBOX_TEST(Census, CheckAndKillCompareTheKernelName) {
    std::string name = Unique("chk");
    std::string full = name + std::string(15 - name.size(), 'k');  // exactly 15 characters
    kt::Child child(full, {full}), bystander(full + "x", {"bystander"});
    EXPECT_EQ(CheckProcessExist(full.c_str(), child.pid()), 0);
    EXPECT_EQ(CheckProcessExist((full + "longer").c_str(), child.pid()), 0) << "only the kernel's 15 are compared";
    EXPECT_EQ(CheckProcessExist(full.substr(0, 5).c_str(), child.pid()), -2);
    EXPECT_EQ(CheckProcessExist("other", child.pid()), -2);
    EXPECT_EQ(CheckProcessExist(full.c_str(), 999999999), -1);
    EXPECT_EQ(CheckProcessExist(full.c_str(), -1), -1);
    EXPECT_EQ(CheckProcessExist(nullptr, child.pid()), -1);
    EXPECT_EQ(KillProcess("other", child.pid()), -2);
    EXPECT_EQ(KillProcess(full.c_str(), 999999999), -1);
    EXPECT_EQ(KillProcess(nullptr, child.pid()), -1);
    usleep(200000);
    EXPECT_NE(State(child.pid()), 'Z');
    EXPECT_EQ(KillProcess(full.c_str(), child.pid()), 0);
    char state = '?';
    for (int i = 0; i < 500 && (state = State(child.pid())) != 'Z' && state != '?'; ++i) usleep(10000);
    EXPECT_TRUE(state == 'Z' || state == '?') << "kill -9 was not issued";
    EXPECT_NE(State(bystander.pid()), 'Z');

    // The command's status comes back as pclose gives it.
    EXPECT_EQ(ZADI_ExecuteCmd("exit 3"), 3 << 8);
    EXPECT_FALSE(IsUserProcess("/proc/999999999/cmdline"));
    EXPECT_EQ(kt::SyslogCount("Open failed(/proc/999999999/cmdline), errno(2, No such file or directory)."), 1);
}

SANDBOX_TEST(Census, PidLookupsByCommandLine) {
    std::string name = Unique("pid");
    std::vector<kt::Child> children;
    for (const char* arg : {"a", "b", "c"})
        children.emplace_back(name, std::vector<std::string>{name, "--" + std::string(arg)});
    int pid = -5;
    EXPECT_EQ(GetProcessPid((name + " --b").c_str(), &pid), 0);
    EXPECT_EQ(pid, children[1].pid());
    EXPECT_EQ(GetProcessPid((name + " --zzz").c_str(), &pid), 0);
    EXPECT_EQ(pid, 0);
    EXPECT_EQ(GetProcessPid(nullptr, &pid), -1);
    EXPECT_EQ(GetProcessPid(name.c_str(), nullptr), -1);

    std::set<int> want;
    for (auto& c : children) want.insert(c.pid());
    int buf[8], small[2] = {-1, -1};
    unsigned int used = 99;
    EXPECT_EQ(GetProcessPidExtern(name.c_str(), buf, 8, &used), 0);
    ASSERT_EQ(used, 3u);
    EXPECT_EQ(std::set<int>(buf, buf + 3), want);
    used = 99;
    EXPECT_EQ(GetProcessPidExtern(name.c_str(), small, 2, &used), 0);
    EXPECT_EQ(used, 2u);
    EXPECT_EQ(want.count(small[0]) + want.count(small[1]), 2u);
    used = 99;
    EXPECT_EQ(GetProcessPidFuzzy((name + " --?").c_str(), buf, 8, &used), 0);
    ASSERT_EQ(used, 3u);
    EXPECT_EQ(std::set<int>(buf, buf + 3), want);
    EXPECT_EQ(GetProcessPidExtern(name.c_str(), buf, 0, &used), -1);
    EXPECT_EQ(GetProcessPidFuzzy(nullptr, buf, 8, &used), -1);
    EXPECT_EQ(GetProcessPidExtern(name.c_str(), nullptr, 8, &used), -1);
    EXPECT_EQ(GetProcessPidExtern(name.c_str(), buf, 8, nullptr), -1);
}

TEST(CensusSlow, OneBusyCoreForAMinuteReadsNearHundred) {
    kt::RunSandboxed([] { BusyCoreBody(true); });
}
