// Byte order conversion; the host is little-endian.

#include "os/base/kira_byteorder.h"

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the layer assumes a little-endian host");

extern "C" {

KIRA_EXPORT uint16_t Swab16(uint16_t x) { return __builtin_bswap16(x); }
KIRA_EXPORT uint32_t Swab32(uint32_t x) { return __builtin_bswap32(x); }
KIRA_EXPORT uint64_t Swab64(uint64_t x) { return __builtin_bswap64(x); }

KIRA_EXPORT uint16_t CpuToLittleEndian16(uint16_t x) { return x; }
KIRA_EXPORT uint32_t CpuToLittleEndian32(uint32_t x) { return x; }
KIRA_EXPORT uint64_t CpuToLittleEndian64(uint64_t x) { return x; }
KIRA_EXPORT uint16_t LittleEndianToCpu16(uint16_t x) { return x; }
KIRA_EXPORT uint32_t LittleEndianToCpu32(uint32_t x) { return x; }
KIRA_EXPORT uint64_t LittleEndianToCpu64(uint64_t x) { return x; }

KIRA_EXPORT uint16_t CpuToBigEndian16(uint16_t x) { return Swab16(x); }
KIRA_EXPORT uint32_t CpuToBigEndian32(uint32_t x) { return Swab32(x); }
KIRA_EXPORT uint64_t CpuToBigEndian64(uint64_t x) { return Swab64(x); }
KIRA_EXPORT uint16_t BigEndianToCpu16(uint16_t x) { return Swab16(x); }
KIRA_EXPORT uint32_t BigEndianToCpu32(uint32_t x) { return Swab32(x); }
KIRA_EXPORT uint64_t BigEndianToCpu64(uint64_t x) { return Swab64(x); }

}  // extern "C"
