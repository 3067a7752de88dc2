// System V shared memory: get (or create) a segment and attach it.

#include <sys/shm.h>

#include "os/base/kira_system.h"

namespace {

struct ShmFlags {
    int get;
    int attach;
};

// 1/2 attach an existing segment read-only/read-write; 3/4 the same but
// the segment must not exist yet.
bool ShmFlagsOf(int32_t mode, ShmFlags* flags) {
    switch (mode) {
        case 1:
            *flags = {0444, SHM_RDONLY};
            return true;
        case 2:
            *flags = {0666, 0};
            return true;
        case 3:
            *flags = {IPC_CREAT | IPC_EXCL | 0444, SHM_RDONLY};
            return true;
        case 4:
            *flags = {IPC_CREAT | IPC_EXCL | 0666, 0};
            return true;
        default:
            return false;
    }
}

}  // namespace

extern "C" KIRA_EXPORT void* KIRA_shmget(key_t key, int32_t size, int32_t mode) {
    ShmFlags flags;
    if (!ShmFlagsOf(mode, &flags)) {
        return nullptr;
    }
    int id = shmget(key, static_cast<size_t>(size), flags.get);
    if (id < 0) {
        return nullptr;
    }
    void* addr = shmat(id, nullptr, flags.attach);
    return addr == reinterpret_cast<void*>(-1) ? nullptr : addr;
}
