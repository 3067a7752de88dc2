// The work pool under stress (several posters, handlers that post work,
// handlers that block until the 64-thread cap is reached), its FIFO order,
// counters and messages; the sub-allocator's argument rules.

#include <errno.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "os/sysinfo/kira_schedwork.h"
#include "os/sysinfo/sysinfo_internal.h"
#include "tests/support/sandbox.h"

namespace {

using Clock = std::chrono::steady_clock;

int64_t Alive() { return atomic_read(&g_stSchedWorkAlive); }
int64_t Spare() { return atomic_read(&g_stSchedWorkSpare); }

bool WaitUntil(const std::function<bool()>& done, int timeoutMs) {
    auto end = Clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!done()) {
        if (Clock::now() > end) return false;
        usleep(5 * 1000);
    }
    return true;
}

// Samples the alive counter until stopped; keeps the maximum.
struct AliveWatch {
    std::atomic<bool> stop{false};
    std::atomic<int64_t> max{0};
    std::thread thread{[this] {
        while (!stop.load()) {
            int64_t a = Alive();
            if (a > max.load()) max.store(a);
            usleep(200);
        }
    }};
    ~AliveWatch() {
        stop.store(true);
        thread.join();
    }
};

// Idle pools settle: every thread spare, at most 8 of them.
void ExpectSettled() {
    EXPECT_TRUE(WaitUntil([] { return Alive() == Spare() && Spare() <= 8; }, 5000))
        << "alive " << Alive() << " spare " << Spare();
    EXPECT_GE(Spare(), 4);
}

constexpr int kPosters = 4;
constexpr int kPerPoster = 1500;
constexpr int kChildEvery = 5;

struct Item {
    KIRA_SCHED_WORK_S work;
    std::atomic<int> runs{0};
    KIRA_SCHED_WORK_S* previous = nullptr;  // posted just before by the same poster
    Item* child = nullptr;                  // posted by the handler
};

std::atomic<int> g_fifoViolations{0};

void RunItem(KIRA_SCHED_WORK_S* work) {
    Item* item = reinterpret_cast<Item*>(work->data);
    // Taken in posting order: the predecessor was unlinked (poisoned) before
    // this item was taken. Both happened under the queue lock.
    if (item->previous != nullptr && item->previous->node.next != LIST_POISON1) g_fifoViolations++;
    item->runs++;
    if (item->child != nullptr) KIRA_SchedWork(&item->child->work);
}

void Prepare(Item* item, Item* previous) {
    item->work.pid = 424;
    item->work.data = reinterpret_cast<uint64_t>(item);
    item->work.handler = RunItem;
    item->previous = previous != nullptr ? &previous->work : nullptr;
}

}  // namespace

SANDBOX_TEST(SchedWork, StressEveryItemOnceInOrderWithinTheCap) {
    ASSERT_EQ(KIRA_SchedWorkInit(), 0);
    EXPECT_EQ(Alive(), 4);
    EXPECT_EQ(Spare(), 4);
    std::vector<std::vector<Item>> items(kPosters);
    std::vector<Item> children(kPosters * kPerPoster / kChildEvery);
    for (int p = 0; p < kPosters; p++) {
        items[p] = std::vector<Item>(kPerPoster);
        for (int i = 0; i < kPerPoster; i++) {
            Prepare(&items[p][i], i > 0 ? &items[p][i - 1] : nullptr);
            if (i % kChildEvery == 0) {
                Item* child = &children[(p * kPerPoster + i) / kChildEvery];
                Prepare(child, nullptr);
                items[p][i].child = child;
            }
        }
    }
    AliveWatch watch;
    std::vector<std::thread> posters;
    for (int p = 0; p < kPosters; p++)
        posters.emplace_back([&, p] {
            for (auto& item : items[p]) ASSERT_EQ(KIRA_SchedWork(&item.work), 0);
        });
    for (auto& t : posters) t.join();
    auto allRun = [&] {
        for (auto& v : items)
            for (auto& i : v)
                if (i.runs.load() == 0) return false;
        for (auto& c : children)
            if (c.runs.load() == 0) return false;
        return true;
    };
    ASSERT_TRUE(WaitUntil(allRun, 60000));
    usleep(50 * 1000);
    for (auto& v : items)
        for (auto& i : v) EXPECT_EQ(i.runs.load(), 1);
    for (auto& c : children) EXPECT_EQ(c.runs.load(), 1);
    EXPECT_EQ(g_fifoViolations.load(), 0);
    EXPECT_LE(watch.max.load(), 64);
    ExpectSettled();
}

namespace {

std::mutex g_gateLock;
std::condition_variable g_gate;
bool g_open = false;
std::atomic<int> g_blocked{0};
std::atomic<int> g_finished{0};

void BlockUntilOpen(KIRA_SCHED_WORK_S*) {
    g_blocked++;
    std::unique_lock<std::mutex> lock(g_gateLock);
    g_gate.wait(lock, [] { return g_open; });
    g_finished++;
}

}  // namespace

SANDBOX_TEST(SchedWork, BlockedHandlersStopAtSixtyFourThreads) {
    ASSERT_EQ(KIRA_SchedWorkInit(), 0);
    AliveWatch watch;
    std::vector<KIRA_SCHED_WORK_S> works(100);
    for (auto& w : works) {
        w = KIRA_SCHED_WORK_S{};
        w.handler = BlockUntilOpen;
        ASSERT_EQ(KIRA_SchedWork(&w), 0);
    }
    ASSERT_TRUE(WaitUntil([] { return g_blocked.load() == 64; }, 20000)) << g_blocked.load();
    usleep(100 * 1000);
    EXPECT_EQ(g_blocked.load(), 64);
    EXPECT_EQ(Alive(), 64);
    EXPECT_EQ(Spare(), 0);
    // At the cap, topping up starts nothing and is no failure.
    EXPECT_EQ(KIRA_CreateSchedWorkThread(), 0);
    EXPECT_EQ(Alive(), 64);
    {
        std::lock_guard<std::mutex> lock(g_gateLock);
        g_open = true;
    }
    g_gate.notify_all();
    EXPECT_TRUE(WaitUntil([] { return g_finished.load() == 100; }, 20000)) << g_finished.load();
    EXPECT_LE(watch.max.load(), 64);
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
    struct rlimit old, tight;
    getrlimit(RLIMIT_AS, &old);
    tight = old;
    tight.rlim_cur = 0;
    setrlimit(RLIMIT_AS, &tight);
    int rc = KIRA_CreateSchedWorkThread();
    setrlimit(RLIMIT_AS, &old);
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
    void* p = KIRA_MallocSubProc(8, &type, "f", 2);
    EXPECT_EQ(type, 5u);
    KIRA_FreeSub(p, "f", 3);
}
