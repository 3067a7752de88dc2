#ifndef OS_BASE_KIRA_MMAP_H
#define OS_BASE_KIRA_MMAP_H

// Shared file mappings with a process-wide registry (at most 32 live
// mappings) so that KIRA_munmap needs only the address.

#include <stdint.h>

#include "os/base/kira_export.h"

#ifdef __cplusplus
extern "C" {
#endif

#define KIRA_MAP_DATA_MAX 32

typedef struct tagKIRA_MAP_DATA_S {
    void* addr;
    uint64_t length;
} KIRA_MAP_DATA_S;

// MAP_FAILED when mmap fails (registered like an address: test for it),
// null when 32 mappings are already live. A read-write descriptor's file
// grows by one byte past offset + length (the end of the area is touched
// before mapping).
KIRA_EXPORT void* KIRA_mmap(int32_t fd, int32_t prot, int64_t offset, uint64_t length);
// -1 when the address was not mapped by KIRA_mmap.
KIRA_EXPORT int KIRA_munmap(void* addr);

// 1 when stored, 0 when the registry is full.
KIRA_EXPORT int AddMapData(const KIRA_MAP_DATA_S* entry);
// Looks up entry->addr: 1 with entry->length filled in and the entry
// removed, or 0 when absent.
KIRA_EXPORT int FetchMapData(KIRA_MAP_DATA_S* entry);
KIRA_EXPORT void InitMmap(void);
// The registry's one-time set-up that InitMmap runs through pthread_once.
KIRA_EXPORT void init_mmap_once(void);

#ifdef __cplusplus
}
#endif

#endif
