#ifndef OS_BASE_KIRA_BYTEORDER_H
#define OS_BASE_KIRA_BYTEORDER_H

// Byte order conversion for a little-endian host.

#include <stdint.h>

#include "os/base/kira_export.h"

#ifdef __cplusplus
extern "C" {
#endif

KIRA_EXPORT uint16_t Swab16(uint16_t x);
KIRA_EXPORT uint32_t Swab32(uint32_t x);
KIRA_EXPORT uint64_t Swab64(uint64_t x);

KIRA_EXPORT uint16_t CpuToLittleEndian16(uint16_t x);
KIRA_EXPORT uint32_t CpuToLittleEndian32(uint32_t x);
KIRA_EXPORT uint64_t CpuToLittleEndian64(uint64_t x);
KIRA_EXPORT uint16_t LittleEndianToCpu16(uint16_t x);
KIRA_EXPORT uint32_t LittleEndianToCpu32(uint32_t x);
KIRA_EXPORT uint64_t LittleEndianToCpu64(uint64_t x);

KIRA_EXPORT uint16_t CpuToBigEndian16(uint16_t x);
KIRA_EXPORT uint32_t CpuToBigEndian32(uint32_t x);
KIRA_EXPORT uint64_t CpuToBigEndian64(uint64_t x);
KIRA_EXPORT uint16_t BigEndianToCpu16(uint16_t x);
KIRA_EXPORT uint32_t BigEndianToCpu32(uint32_t x);
KIRA_EXPORT uint64_t BigEndianToCpu64(uint64_t x);

#ifdef __cplusplus
}
#endif

#endif
