#ifndef OS_BASE_KIRA_NUMBER_H
#define OS_BASE_KIRA_NUMBER_H

// String to number conversion without sign, blank or overflow handling
// (values wrap modulo 2^64); 0x/0X selects hexadecimal.

#include <stdint.h>

#include "os/base/kira_export.h"

#ifdef __cplusplus
extern "C" {
#endif

// 0 for an unsigned number ("" and "0x" count as numbers), -1 otherwise.
KIRA_EXPORT int KIRA_IsUnsignedNumbericStr(const char* str);
KIRA_EXPORT uint64_t KIRA_StrToU64(const char* str);
KIRA_EXPORT int64_t KIRA_StrToS64(const char* str);
KIRA_EXPORT void KIRA_StrToLower(char* str);

#ifdef __cplusplus
}
#endif

#endif
