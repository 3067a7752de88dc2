// Shared file mappings remembered in the registry, so that unmapping needs
// only the address.

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include "os/base/kira_mmap.h"

namespace {

// Reads the byte at offset + length and, on a read-write descriptor, writes
// it back at the following position. Existing callers depend on the effect:
// a file shorter than the area is extended past its end so the whole area
// is backed; the file grows by one byte on every such mapping.
void TouchAreaEnd(int fd, int64_t offset, uint64_t length) {
    char byte = 0;
    // Summed unsigned: absurd arguments must not overflow a signed sum.
    (void)lseek(fd, static_cast<off_t>(static_cast<uint64_t>(offset) + length), SEEK_SET);
    (void)read(fd, &byte, 1);
    int flags = fcntl(fd, F_GETFL);
    if (flags != -1 && (flags & O_RDWR) != 0) {
        (void)write(fd, &byte, 1);
    }
}

}  // namespace

extern "C" {

// A failed mmap() yields MAP_FAILED, which is registered and returned like
// any address: callers compare against it.
KIRA_EXPORT void* KIRA_mmap(int32_t fd, int32_t prot, int64_t offset, uint64_t length) {
    InitMmap();
    TouchAreaEnd(fd, offset, length);
    void* addr = mmap(nullptr, length, prot, MAP_SHARED, fd, static_cast<off_t>(offset));
    if (addr == nullptr) {
        return nullptr;
    }
    KIRA_MAP_DATA_S entry = {addr, length};
    if (AddMapData(&entry) == 0) {
        (void)munmap(addr, length);
        return nullptr;
    }
    return addr;
}

KIRA_EXPORT int KIRA_munmap(void* addr) {
    InitMmap();
    KIRA_MAP_DATA_S entry = {addr, 0};
    if (FetchMapData(&entry) == 0) {
        return -1;
    }
    (void)munmap(addr, entry.length);
    return 0;
}

}  // extern "C"
