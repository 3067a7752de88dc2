// The zeroing allocator with a module number for its failure report.

#include <stdlib.h>
#include <syslog.h>

#include "os/sysinfo/kira_schedwork.h"

namespace {

constexpr uint32_t kHeapBlockType = 5;

}  // namespace

extern "C" {

KIRA_EXPORT void KIRA_FreeSubProc(void* ptr, const char* file, uint32_t line) {
    (void)file;
    (void)line;
    free(ptr);
}

KIRA_EXPORT void* KIRA_MallocSubProc(uint32_t size, uint32_t* type, const char* file, uint32_t line) {
    (void)file;
    (void)line;
    if (type != nullptr) {
        *type = kHeapBlockType;
    }
    return calloc(1, size);
}

KIRA_EXPORT void* KIRA_MallocSubStandard(uint32_t pid, uint32_t size, const char* file, uint32_t line, uint32_t flags) {
    (void)flags;
    if (size == 0 || pid == 0) {
        return nullptr;
    }
    uint32_t type = 0;
    void* block = KIRA_MallocSubProc(size, &type, file, line);
    if (block == nullptr) {
        syslog(LOG_INFO, "Malloc memory fails. PID: (%d), size: (%d), type: (%d).\n", static_cast<int>(pid),
               static_cast<int>(size), static_cast<int>(type));
    }
    return block;
}

KIRA_EXPORT void KIRA_FreeSub(void* ptr, const char* file, uint32_t line) {
    if (ptr != nullptr) {
        KIRA_FreeSubProc(ptr, file, line);
    }
}

}  // extern "C"
