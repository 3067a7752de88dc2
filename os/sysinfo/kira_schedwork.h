#ifndef OS_SYSINFO_KIRA_SCHEDWORK_H
#define OS_SYSINFO_KIRA_SCHEDWORK_H

// Scheduled work: a process-wide pool of detached worker threads that runs
// posted work items in posting order (taken first in, first out; several
// run at once when several are queued). Before each handler runs, the pool
// tops itself up to 4 spare threads, never exceeding 64 threads alive; a
// thread retires when more than 8 are spare. The pool is never torn down.
//
// Also the zeroing allocator that reports failures with a module number.

#include <stdint.h>

#include "os/base/kira_export.h"
#include "os/base/kira_list.h"

#ifdef __cplusplus
extern "C" {
#endif

// Owned by the caller, who keeps it alive until its handler has been
// called; the handler may free or re-post it. After it is taken from the
// queue its node is poisoned (see list_del).
typedef struct tagKIRA_SCHED_WORK_S {
    uint32_t pid;  // module number of the poster, for the null-handler message
    struct list_head node;
    uint64_t data;  // the caller's own
    void (*handler)(struct tagKIRA_SCHED_WORK_S* work);
} KIRA_SCHED_WORK_S;

// Resets the queue, the semaphore and the counters and starts the spare
// threads: 0, or -1 when a thread could not be started.
KIRA_EXPORT int KIRA_SchedWorkInit(void);
// Starts threads until 4 are spare (none past 64 alive): 0, or -1 after
// "Create sched work thread fail." when one could not be started.
KIRA_EXPORT int KIRA_CreateSchedWorkThread(void);
// Queues the item: 0 for a null item (nothing queued), else sem_post's result.
KIRA_EXPORT int KIRA_SchedWork(KIRA_SCHED_WORK_S* work);
// A worker's body; started by the pool itself.
KIRA_EXPORT void* KIRA_SchedWorkThread(void* unused);

// Zeroed memory, or null: a module number or size of 0 gives null quietly;
// an allocation failure is logged with the module number. The file name
// and line are passed through to KIRA_MallocSubProc; the last argument is
// not used.
KIRA_EXPORT void* KIRA_MallocSubStandard(uint32_t pid, uint32_t size, const char* file, uint32_t line, uint32_t flags);
// Zeroed memory or null; *type is set to 5 either way.
KIRA_EXPORT void* KIRA_MallocSubProc(uint32_t size, uint32_t* type, const char* file, uint32_t line);
// Frees memory of the two allocators above; null is ignored. The file name
// and line are passed through to KIRA_FreeSubProc, which ignores them.
KIRA_EXPORT void KIRA_FreeSub(void* ptr, const char* file, uint32_t line);
// The counterpart of KIRA_MallocSubProc.
KIRA_EXPORT void KIRA_FreeSubProc(void* ptr, const char* file, uint32_t line);

#ifdef __cplusplus
}
#endif

#endif
