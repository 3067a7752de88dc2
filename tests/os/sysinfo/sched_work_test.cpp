// The work pool under stress (several posters, handlers that post work,
// handlers that block until the 64-thread cap is reached), its FIFO order,
// counters and messages; the sub-allocator's argument rules.

#include <sys/mman.h>
#include <sys/resource.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "os/sysinfo/kira_schedwork.h"
#include "os/sysinfo/sysinfo_internal.h"
#include "tests/os/sysinfo/sysinfo_test_util.h"

using sysinfo_test::WaitUntil;

namespace {

int64_t Alive() { return atomic_read(&g_stSchedWorkAlive); }
int64_t Spare() { return atomic_read(&g_stSchedWorkSpare); }

// Handlers running at once, each on its own thread. (The alive counter
// itself may read above 64 for a moment: a top-up increments it before it
// tests the cap.)
std::atomic<int> g_running{0}, g_maxRunning{0};
struct Running {
    Running() {
        int now = ++g_running, seen = g_maxRunning.load();
        while (now > seen && !g_maxRunning.compare_exchange_weak(seen, now)) {
        }
    }
    ~Running() { g_running--; }
};

// Idle pools settle: every thread spare, 4 to 8 of them.
void ExpectSettled() {
    EXPECT_LE(g_maxRunning.load(), 64);
    EXPECT_TRUE(WaitUntil([] { return Alive() == Spare() && Spare() <= 8; }, 5000))
        << "alive " << Alive() << " spare " << Spare();
    EXPECT_GE(Spare(), 4);
}

struct Item {
    KIRA_SCHED_WORK_S work{};
    std::atomic<int> runs{0};
    KIRA_SCHED_WORK_S* previous = nullptr;  // posted just before by the same poster
    Item* child = nullptr;                  // posted by the handler
};

std::atomic<int> g_fifoViolations{0};

void RunItem(KIRA_SCHED_WORK_S* work) {
    Item* item = reinterpret_cast<Item*>(work->data);
    // Taken in posting order: the predecessor was unlinked (poisoned) before
    // this item was taken, both under the queue lock.
    if (item->previous != nullptr && item->previous->node.next != LIST_POISON1) g_fifoViolations++;
    Running running;
    item->runs++;
    if (item->child != nullptr) KIRA_SchedWork(&item->child->work);
}

}  // namespace

SANDBOX_TEST(SchedWork, StressEveryItemOnceInOrderWithinTheCap) {
    constexpr int kPosters = 4, kPerPoster = 1500, kChildEvery = 5;
    ASSERT_EQ(KIRA_SchedWorkInit(), 0);
    EXPECT_EQ(Alive(), 4);
    EXPECT_EQ(Spare(), 4);
    std::vector<Item> items(kPosters * kPerPoster);
    std::vector<Item> children(items.size() / kChildEvery);
    for (size_t i = 0; i < items.size() + children.size(); i++) {
        Item& it = i < items.size() ? items[i] : children[i - items.size()];
        it.work.data = reinterpret_cast<uint64_t>(&it);
        it.work.handler = RunItem;
        if (i < items.size() && i % kPerPoster != 0) it.previous = &items[i - 1].work;
        if (i < items.size() && i % kChildEvery == 0) it.child = &children[i / kChildEvery];
    }
    std::vector<std::thread> posters;
    for (int p = 0; p < kPosters; p++)
        posters.emplace_back([&, p] {
            for (int i = 0; i < kPerPoster; i++) ASSERT_EQ(KIRA_SchedWork(&items[p * kPerPoster + i].work), 0);
        });
    for (auto& t : posters) t.join();
    auto runs = [&] {
        int n = 0;
        for (auto* v : {&items, &children})
            for (auto& i : *v) n += i.runs.load();
        return n;
    };
    int total = static_cast<int>(items.size() + children.size());
    ASSERT_TRUE(WaitUntil([&] { return runs() >= total; }, 60000)) << runs();
    usleep(50 * 1000);
    for (auto* v : {&items, &children})
        for (auto& i : *v) EXPECT_EQ(i.runs.load(), 1);
    EXPECT_EQ(g_fifoViolations.load(), 0);
    ExpectSettled();
}

namespace {

std::mutex g_gateLock;
std::condition_variable g_gate;
bool g_open = false;
std::atomic<int> g_blocked{0}, g_finished{0};

void BlockUntilOpen(KIRA_SCHED_WORK_S*) {
    Running running;
    g_blocked++;
    std::unique_lock<std::mutex> lock(g_gateLock);
    g_gate.wait(lock, [] { return g_open; });
    g_finished++;
}

}  // namespace

SANDBOX_TEST(SchedWork, BlockedHandlersStopAtSixtyFourThreads) {
    ASSERT_EQ(KIRA_SchedWorkInit(), 0);
    std::vector<KIRA_SCHED_WORK_S> works(100);
    for (auto& w : works) {
        w.handler = BlockUntilOpen;
        ASSERT_EQ(KIRA_SchedWork(&w), 0);
    }
    ASSERT_TRUE(WaitUntil([] { return g_blocked.load() == 64 && Alive() == 64 && Spare() == 0; }, 20000))
        << g_blocked.load() << " blocked, " << Alive() << " alive, " << Spare() << " spare";
    usleep(100 * 1000);
    EXPECT_EQ(g_blocked.load(), 64);
    // At the cap, topping up starts nothing and is no failure.
    EXPECT_EQ(KIRA_CreateSchedWorkThread(), 0);
    EXPECT_EQ(Alive(), 64);
    {
        std::lock_guard<std::mutex> lock(g_gateLock);
        g_open = true;
    }
    g_gate.notify_all();
    EXPECT_TRUE(WaitUntil([] { return g_finished.load() == 100; }, 20000)) << g_finished.load();
    ExpectSettled();
    EXPECT_EQ(kt::SyslogCount("Create sched work thread fail."), 0);
}

SANDBOX_TEST(SchedWork, NullItemsNullHandlersAndFailedThreads) {
    ASSERT_EQ(KIRA_SchedWorkInit(), 0);
    EXPECT_EQ(KIRA_SchedWork(nullptr), 0);
    KIRA_SCHED_WORK_S orphan = {};
    orphan.pid = 4242;
    ASSERT_EQ(KIRA_SchedWork(&orphan), 0);
    EXPECT_TRUE(
        WaitUntil([] { return kt::SyslogCount("Null sched work data handler, PID = (4242).\n", 6) == 1; }, 2000));
    EXPECT_EQ(Spare(), 4);  // a dropped item uses no thread

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    // No address space for another stack: the thread cannot be started.
    atomic_set(&g_stSchedWorkSpare, 0);
    struct rlimit old, none;
    getrlimit(RLIMIT_AS, &old);
    none = old;
    none.rlim_cur = 0;
    setrlimit(RLIMIT_AS, &none);
    // An emulator keeps the limit to itself: nothing would fail there.
    void* probe = mmap(nullptr, 1 << 26, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    int rc = probe == MAP_FAILED ? KIRA_CreateSchedWorkThread() : 0;
    setrlimit(RLIMIT_AS, &old);
    if (probe != MAP_FAILED) {
        munmap(probe, 1 << 26);
        GTEST_SKIP() << "the address-space limit does not bind here";
    }
    EXPECT_EQ(rc, -1);
    EXPECT_EQ(Spare(), 0);
    EXPECT_EQ(Alive(), 4);
    EXPECT_EQ(kt::SyslogCount("Create sched work thread fail.\n", 6), 1);
#endif
}

TEST(SubAlloc, ArgumentRulesAndZeroedBlocks) {
    EXPECT_EQ(KIRA_MallocSubStandard(0, 16, "f", 1, 0), nullptr);
    EXPECT_EQ(KIRA_MallocSubStandard(424, 0, "f", 1, 0), nullptr);
    auto* block = static_cast<unsigned char*>(KIRA_MallocSubStandard(424, 64, nullptr, 0, 7));
    ASSERT_NE(block, nullptr);
    for (int i = 0; i < 64; i++) EXPECT_EQ(block[i], 0);
    KIRA_FreeSub(block, nullptr, 0);
    KIRA_FreeSub(nullptr, nullptr, 0);
    uint32_t type = 0;
    KIRA_FreeSub(KIRA_MallocSubProc(8, &type, "f", 2), "f", 3);
    EXPECT_EQ(type, 5u);
    KIRA_FreeSubProc(KIRA_MallocSubProc(8, &type, nullptr, 0), nullptr, 0);  // leaks show under ASan
    KIRA_FreeSubProc(nullptr, "f", 4);
}
