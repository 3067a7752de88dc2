// The whole-node CPU usage sampler (one a process) and the two figures read
// straight from the C library: memory usage and the processor count.
//
// The stop protocol is a plain flag: 0 running, 1 stop asked; the sampler
// sets it back to 0 when it has left. Stores and loads are relaxed atomics:
// only the value matters, not what it publishes.

#include <fcntl.h>
#include <sys/sysinfo.h>
#include <syslog.h>
#include <unistd.h>

#include "os/base/kira_file.h"
#include "os/sysinfo/sysinfo_internal.h"
#include "os/time/kira_time.h"
#include "safec/safec.h"

namespace kira_sysinfo {
namespace {

constexpr int kStatLineSize = 160;
constexpr unsigned int kWakeTicks = 10;  // KIRA_sleep counts 10 ms ticks
constexpr int kWakesPerSample = 10;      // one sample a second
constexpr uint64_t kExitWaitMs = 3000;
constexpr unsigned int kExitPollTicks = 1;

int32_t g_iCpuUsage = 0;
int32_t iExitFlag = 0;
// 0 at load, so the first figure is the average since boot.
uint64_t g_ullPrevIdle = 0;
uint64_t g_ullPrevTotal = 0;

int32_t Load(const int32_t* v) { return __atomic_load_n(v, __ATOMIC_RELAXED); }
void Store(int32_t* v, int32_t value) { __atomic_store_n(v, value, __ATOMIC_RELAXED); }

}  // namespace

int32_t KIRA_SysInfoExitFlag(void) { return Load(&iExitFlag); }

int KIRA_GetSystemTimes(uint64_t* idle, uint64_t* total) {
    int fd = KIRA_open("/proc/stat", O_RDONLY, 0);
    if (fd < 0) {
        return 0;
    }
    char line[kStatLineSize] = {};
    const char* got = KIRA_readline(fd, line, sizeof(line));
    (void)KIRA_close(fd);
    if (got == nullptr) {
        return 0;
    }
    unsigned long long v[7] = {};
    int fields =
        sscanf_s(line, "cpu %llu %llu %llu %llu %llu %llu %llu", &v[0], &v[1], &v[2], &v[3], &v[4], &v[5], &v[6]);
    if (fields <= 3) {
        return 0;
    }
    *idle = v[3];
    *total = v[0] + v[1] + v[2] + v[3] + v[4] + v[5] + v[6];
    return 1;
}

void KIRA_UpdateCpuUsage(uint64_t idleDelta, uint64_t totalDelta) {
    if (totalDelta == 0) {
        return;
    }
    Store(&g_iCpuUsage, static_cast<int32_t>((totalDelta - idleDelta) * 100 / totalDelta));
}

void* KIRA_CalcCpuUsageThread(void* unused) {
    (void)unused;
    while (Load(&iExitFlag) != 1) {
        uint64_t idle = 0;
        uint64_t total = 0;
        if (KIRA_GetSystemTimes(&idle, &total) == 1) {
            KIRA_UpdateCpuUsage(idle - g_ullPrevIdle, total - g_ullPrevTotal);
            g_ullPrevIdle = idle;
            g_ullPrevTotal = total;
        }
        // Short naps keep a stop request answered within about 100 ms.
        for (int i = 0; i < kWakesPerSample && Load(&iExitFlag) == 0; i++) {
            (void)KIRA_sleep(kWakeTicks);
        }
    }
    Store(&iExitFlag, 0);
    return nullptr;
}

}  // namespace kira_sysinfo

using namespace kira_sysinfo;

extern "C" {

KIRA_EXPORT int KIRA_SysInfoInit(void) { return KIRA_CreateThread(KIRA_CalcCpuUsageThread, nullptr, nullptr); }

KIRA_EXPORT void KIRA_SysInfoExit(void) {
    uint64_t start = KIRA_GetMilliSecond();
    Store(&iExitFlag, 1);
    while (Load(&iExitFlag) == 1 && KIRA_GetMilliSecond() - start < kExitWaitMs) {
        (void)KIRA_sleep(kExitPollTicks);
    }
    // The thread is detached: nothing to join, only the flag tells.
    if (Load(&iExitFlag) == 1) {
        syslog(LOG_INFO, "Sysinfo thread exited abnormal.\n");
    }
}

KIRA_EXPORT int32_t KIRA_GetCpuUsage(void) { return Load(&g_iCpuUsage); }

KIRA_EXPORT int32_t KIRA_GetMemUsage(void) {
    struct sysinfo info = {};
    if (sysinfo(&info) != 0 || info.totalram == 0) {
        return 0;
    }
    uint64_t total = info.totalram;
    return static_cast<int32_t>((total - info.freeram) * 100 / total);
}

KIRA_EXPORT int32_t KIRA_GetCpuNumber(void) { return static_cast<int32_t>(sysconf(_SC_NPROCESSORS_ONLN)); }

}  // extern "C"
