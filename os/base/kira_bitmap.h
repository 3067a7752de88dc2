#ifndef OS_BASE_KIRA_BITMAP_H
#define OS_BASE_KIRA_BITMAP_H

// Bit maps over a caller byte array: bit n is in byte n/8, bit n%8
// (least significant first). Not atomic: callers serialise.

#include <stdint.h>

#include "os/base/kira_export.h"

#ifdef __cplusplus
extern "C" {
#endif

// Return the address of the byte changed, or null for a null map.
KIRA_EXPORT unsigned char* KIRA_set_bit(uint32_t nr, unsigned char* addr);
KIRA_EXPORT unsigned char* KIRA_clear_bit(uint32_t nr, unsigned char* addr);
// The byte masked with the bit: non-zero when set; 0 for a null map.
KIRA_EXPORT int32_t KIRA_test_bit(uint32_t nr, const unsigned char* addr);

#ifdef __cplusplus
}
#endif

#endif
