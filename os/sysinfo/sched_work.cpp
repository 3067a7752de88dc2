// The scheduled-work pool: a spin-locked queue of caller-owned items, a
// process-private semaphore counting posted items, and two counters
// (threads alive, threads spare). Every worker tops the pool up to 4 spare
// threads before it runs a handler, so a long handler never leaves later
// items without a thread; at most 64 threads live; a worker retires when it
// finds more than 8 spare after its handler.

#include <errno.h>
#include <sched.h>
#include <semaphore.h>
#include <syslog.h>

#include "os/base/kira_file.h"
#include "os/sysinfo/kira_schedwork.h"
#include "os/sysinfo/sysinfo_internal.h"

namespace kira_sysinfo {

atomic64_t g_stSchedWorkAlive = ATOMIC64_INIT(0);
atomic64_t g_stSchedWorkSpare = ATOMIC64_INIT(0);

namespace {

constexpr int32_t kSpareTarget = 4;
constexpr int32_t kAliveLimit = 64;
constexpr int32_t kSpareLimit = 8;

// Statically valid so that an item posted before the pool is initialised
// only waits instead of crashing.
LIST_HEAD(g_stSchedWorkQueue);
int g_stSchedWorkLock = 0;

// A spin lock that yields the processor after a short spin: with more
// threads than processors a preempted holder would otherwise keep every
// waiter spinning for a whole time slice.
class QueueGuard {
public:
    QueueGuard() {
        int spins = 0;
        while (__atomic_exchange_n(&g_stSchedWorkLock, 1, __ATOMIC_ACQUIRE) != 0) {
            while (__atomic_load_n(&g_stSchedWorkLock, __ATOMIC_RELAXED) != 0) {
                if (++spins < 64) {
                    CpuRelax();
                } else {
                    spins = 0;
                    sched_yield();
                }
            }
        }
    }
    ~QueueGuard() { __atomic_store_n(&g_stSchedWorkLock, 0, __ATOMIC_RELEASE); }
    QueueGuard(const QueueGuard&) = delete;
    QueueGuard& operator=(const QueueGuard&) = delete;

private:
    static void CpuRelax() {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#elif defined(__aarch64__)
        __asm__ __volatile__("yield");
#endif
    }
};

sem_t g_stSchedWorkSem;

KIRA_SCHED_WORK_S* TakeFirst() {
    QueueGuard guard;
    if (list_empty(&g_stSchedWorkQueue)) {
        return nullptr;
    }
    struct list_head* first = g_stSchedWorkQueue.next;
    list_del(first);
    return list_entry(first, KIRA_SCHED_WORK_S, node);
}

void WaitForWork() {
    // Any failure other than a signal goes on as if woken: the queue check
    // that follows copes with nothing being there.
    while (sem_wait(&g_stSchedWorkSem) != 0 && errno == EINTR) {
    }
}

}  // namespace

}  // namespace kira_sysinfo

using namespace kira_sysinfo;

extern "C" {

KIRA_EXPORT int KIRA_SchedWorkInit(void) {
    atomic_set(&g_stSchedWorkAlive, 0);
    atomic_set(&g_stSchedWorkSpare, 0);
    (void)sem_init(&g_stSchedWorkSem, 0, 0);
    INIT_LIST_HEAD(&g_stSchedWorkQueue);
    __atomic_store_n(&g_stSchedWorkLock, 0, __ATOMIC_RELEASE);
    return KIRA_CreateSchedWorkThread();
}

KIRA_EXPORT int KIRA_CreateSchedWorkThread(void) {
    // Each increment that stays within the target stands for the thread
    // about to be started; the one that overshoots was only a test.
    while (atomic_inc_return(&g_stSchedWorkSpare) <= kSpareTarget) {
        if (atomic_inc_return(&g_stSchedWorkAlive) > kAliveLimit) {
            atomic_dec(&g_stSchedWorkAlive);
            atomic_dec(&g_stSchedWorkSpare);
            return 0;
        }
        if (KIRA_CreateThread(KIRA_SchedWorkThread, nullptr, nullptr) != 0) {
            atomic_dec(&g_stSchedWorkAlive);
            atomic_dec(&g_stSchedWorkSpare);
            syslog(LOG_INFO, "Create sched work thread fail.\n");
            return -1;
        }
    }
    atomic_dec(&g_stSchedWorkSpare);
    return 0;
}

KIRA_EXPORT int KIRA_SchedWork(KIRA_SCHED_WORK_S* work) {
    if (work == nullptr) {
        return 0;
    }
    {
        QueueGuard guard;
        list_add_tail(&work->node, &g_stSchedWorkQueue);
    }
    return sem_post(&g_stSchedWorkSem);
}

KIRA_EXPORT void* KIRA_SchedWorkThread(void* unused) {
    (void)unused;
    for (;;) {
        WaitForWork();
        KIRA_SCHED_WORK_S* work = TakeFirst();
        if (work == nullptr) {
            continue;
        }
        if (work->handler == nullptr) {
            syslog(LOG_INFO, "Null sched work data handler, PID = (%u).\n", work->pid);
            continue;
        }
        atomic_dec(&g_stSchedWorkSpare);
        (void)KIRA_CreateSchedWorkThread();
        // The handler may free or re-post the item: it is not touched after.
        work->handler(work);
        if (atomic_inc_return(&g_stSchedWorkSpare) > kSpareLimit) {
            break;
        }
    }
    atomic_dec(&g_stSchedWorkSpare);
    atomic_dec(&g_stSchedWorkAlive);
    return nullptr;
}

}  // extern "C"
