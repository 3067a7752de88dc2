#ifndef OS_BASE_KIRA_SYSTEM_H
#define OS_BASE_KIRA_SYSTEM_H

// Guarded shell runner, the kernel control gate, System V shared memory and
// 64-bit division.

#include <stdint.h>
#include <sys/ipc.h>
#include <sys/types.h>

#include "os/base/kira_export.h"

#ifdef __cplusplus
extern "C" {
#endif

// Runs "/bin/sh -c command"; returns the raw wait status (exit 3 gives
// 0x300), or -1. Refuses a ';' or "||" anywhere but at the last character.
KIRA_EXPORT int KIRA_system(const char* command);
KIRA_EXPORT int KIRA_Execute(const char* command);

// ioctl on the kernel module's control file; 0 or -1.
KIRA_EXPORT int KIRA_SysCall(int32_t request, void* arg);

// mode 1: read-only, 2: read-write, 3/4: the same but the segment must be
// created. Returns the attached address or null.
KIRA_EXPORT void* KIRA_shmget(key_t key, int32_t size, int32_t mode);

// A zero divisor gives 0 with the dividend's low 32 bits as remainder.
KIRA_EXPORT uint64_t KIRA_div64(uint64_t dividend, uint32_t divisor, uint32_t* remainder);

#ifdef __cplusplus
}
#endif

#endif
