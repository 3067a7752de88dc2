// Bit maps over caller byte arrays, least significant bit first.

#include "os/base/kira_bitmap.h"

namespace {

inline unsigned char MaskOf(uint32_t nr) { return static_cast<unsigned char>(1U << (nr % 8)); }

}  // namespace

extern "C" {

KIRA_EXPORT unsigned char* KIRA_set_bit(uint32_t nr, unsigned char* addr) {
    if (addr == nullptr) {
        return nullptr;
    }
    unsigned char* byte = addr + nr / 8;
    *byte = static_cast<unsigned char>(*byte | MaskOf(nr));
    return byte;
}

KIRA_EXPORT unsigned char* KIRA_clear_bit(uint32_t nr, unsigned char* addr) {
    if (addr == nullptr) {
        return nullptr;
    }
    unsigned char* byte = addr + nr / 8;
    *byte = static_cast<unsigned char>(*byte & ~MaskOf(nr));
    return byte;
}

KIRA_EXPORT int32_t KIRA_test_bit(uint32_t nr, const unsigned char* addr) {
    if (addr == nullptr) {
        return 0;
    }
    return addr[nr / 8] & MaskOf(nr);
}

}  // extern "C"
