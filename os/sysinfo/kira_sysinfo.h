#ifndef OS_SYSINFO_KIRA_SYSINFO_H
#define OS_SYSINFO_KIRA_SYSINFO_H

// Node measurements for other components: the whole-node CPU usage kept
// current by a background sampler, memory usage, the processor count, and
// readers of /proc/cpuinfo, /proc/stat, /proc/net/dev and /proc/diskstats.
// Readers return 0, -1 (file, memory, or item not found) or -22 (null or
// empty argument); their output record is zeroed before any file is read,
// so a failed call leaves zeros. Faults go to syslog at priority 6.

#include <stdint.h>

#include "os/base/kira_export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct {
    uint32_t addressBits;     // 64 when the flags hold "lm", else 32
    uint32_t stepping;        // last value seen
    uint32_t frequencyKHz;    // "cpu MHz" times 1000, taken through a float
    uint32_t cpuCount;        // highest processor number + 1
    uint32_t socketCount;     // highest physical id, + 1 only when coresPerSocket != 0
    uint32_t coresPerSocket;  // last value seen
    uint32_t threadsPerCore;  // siblings / coresPerSocket, or raw siblings when no cores
} lscpu_t;

typedef struct {
    uint32_t addressSizes;  // first number of "address sizes"
    char modelName[100];    // as written, trailing blanks and new line removed
} cpuinfo_t;

// The aggregate "cpu" line of /proc/stat, in clock ticks.
typedef struct {
    uint64_t user;
    uint64_t nice;
    uint64_t system;
    uint64_t idle;
    uint64_t iowait;
    uint64_t irq;
    uint64_t softirq;
    uint64_t steal;
    uint64_t guest;
    uint64_t guest_nice;
} processor_stat_t;

typedef struct {
    uint64_t rxBytes;
    uint64_t txBytes;
    uint64_t speed;  // Mb/s, the 16-bit field of the link settings query; 0 when unknown
} netdev_info_t;

typedef struct {
    uint64_t ioBusyMs;  // milliseconds spent doing I/O (see KIRA_get_disk_stats)
} disk_stats_t;

// Starts the sampler thread (detached); the result of KIRA_CreateThread.
// One sampler a process: a second one would share the same state.
KIRA_EXPORT int KIRA_SysInfoInit(void);
// Asks the sampler to stop and waits up to 3 s for it; logs
// "Sysinfo thread exited abnormal." when it did not stop in time.
KIRA_EXPORT void KIRA_SysInfoExit(void);
// Whole-node CPU usage in percent over the last second; 0 before the first
// sample, the last figure after the sampler stopped.
KIRA_EXPORT int32_t KIRA_GetCpuUsage(void);
// Percent of RAM not free (buffers and cache count as used); 0 on failure.
KIRA_EXPORT int32_t KIRA_GetMemUsage(void);
KIRA_EXPORT int32_t KIRA_GetCpuNumber(void);

KIRA_EXPORT int KIRA_lscpu(lscpu_t* info);
// Fills the description of one processor; -1 when that processor has no
// line other than its model name and address sizes.
KIRA_EXPORT int KIRA_get_cpuinfo(cpuinfo_t* desc, uint32_t processor);
KIRA_EXPORT int KIRA_get_all_processor_stats(processor_stat_t* counters);
// Byte counters of the first /proc/net/dev line holding "name:" (the name
// may be the tail of a longer device name). Scanning starts two characters
// after the colon, so a receive counter printed right after the colon
// loses its first digit.
KIRA_EXPORT int KIRA_get_netdev_info(const char* name, netdev_info_t* stat);
// The tenth value read from two characters after "name " on the first
// /proc/diskstats line holding it: the I/O milliseconds when the first
// counter has three or more digits, the next field when it is shorter.
KIRA_EXPORT int KIRA_get_disk_stats(const char* name, disk_stats_t* stat);

#ifdef __cplusplus
}
#endif

#endif
