// Sleeping, detached threads and the identity queries.

#include <sys/select.h>
#include <syslog.h>
#include <unistd.h>

#include "os/base/kira_file.h"

namespace {

int SelectSleep(unsigned int sec, unsigned int usec) {
    struct timeval tv;
    tv.tv_sec = sec;
    tv.tv_usec = usec;
    // A signal ends the wait early and it is not resumed: callers poll.
    return select(0, nullptr, nullptr, nullptr, &tv);
}

}  // namespace

extern "C" {

// The unit is a 10 ms tick, as everywhere in this layer.
KIRA_EXPORT int KIRA_sleep(unsigned int ticks) { return SelectSleep(ticks / 100, (ticks % 100) * 10000); }

KIRA_EXPORT int KIRA_msleep(unsigned int ms) { return SelectSleep(ms / 1000, (ms % 1000) * 1000); }

KIRA_EXPORT int KIRA_CreateThread(void* (*routine)(void*), void* arg, pthread_t* tid) {
    if (routine == nullptr) {
        syslog(LOG_INFO, "Param pthread routine is null.\n");
        return -1;
    }
    pthread_t thread;
    if (pthread_create(&thread, nullptr, routine, arg) != 0) {
        return -1;
    }
    if (tid != nullptr) {
        *tid = thread;
    }
    // Nobody joins threads of this layer.
    (void)pthread_detach(thread);
    return 0;
}

KIRA_EXPORT void KIRA_SetCurThrdPriority(int priority) { (void)priority; }

KIRA_EXPORT pthread_t KIRA_GetTid(void) { return pthread_self(); }

KIRA_EXPORT pid_t KIRA_GetPid(void) { return getpid(); }

}  // extern "C"
