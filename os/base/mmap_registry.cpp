// Process-wide registry of live mappings: address -> length, at most
// KIRA_MAP_DATA_MAX entries, unordered (a removed entry's slot takes the
// last one). Guarded by a spin lock initialised once per process.

#include <pthread.h>

#include "os/base/kira_mmap.h"
#include "os/base/kira_raii.h"

namespace {

struct MapRegistry {
    KIRA_MAP_DATA_S entries[KIRA_MAP_DATA_MAX];
    unsigned int count;
    pthread_spinlock_t lock;
};

MapRegistry g_maps;
pthread_once_t g_mapsOnce = PTHREAD_ONCE_INIT;

}  // namespace

extern "C" {

KIRA_EXPORT void init_mmap_once(void) { (void)pthread_spin_init(&g_maps.lock, PTHREAD_PROCESS_PRIVATE); }

KIRA_EXPORT void InitMmap(void) { (void)pthread_once(&g_mapsOnce, init_mmap_once); }

KIRA_EXPORT int AddMapData(const KIRA_MAP_DATA_S* entry) {
    InitMmap();
    kira::SpinGuard guard(&g_maps.lock);
    if (g_maps.count >= KIRA_MAP_DATA_MAX) {
        return 0;
    }
    g_maps.entries[g_maps.count++] = *entry;
    return 1;
}

KIRA_EXPORT int FetchMapData(KIRA_MAP_DATA_S* entry) {
    InitMmap();
    kira::SpinGuard guard(&g_maps.lock);
    for (unsigned int i = 0; i < g_maps.count; i++) {
        if (g_maps.entries[i].addr == entry->addr) {
            entry->length = g_maps.entries[i].length;
            g_maps.entries[i] = g_maps.entries[--g_maps.count];
            return 1;
        }
    }
    return 0;
}

}  // extern "C"
