// String to number conversion. No sign, blank or overflow handling: values
// wrap modulo 2^64, as callers of this layer have always relied on.

#include <ctype.h>
#include <syslog.h>

#include "os/base/kira_number.h"

namespace {

bool HasHexPrefix(const char* str) { return str[0] == '0' && (str[1] == 'x' || str[1] == 'X'); }

// Value of c as a digit of the base, or -1.
int DigitValue(char c, bool hex) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (hex && c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (hex && c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}

}  // namespace

extern "C" {

// "" and a bare "0x" count as numbers on purpose.
KIRA_EXPORT int KIRA_IsUnsignedNumbericStr(const char* str) {
    if (str == nullptr) {
        return -1;
    }
    bool hex = HasHexPrefix(str);
    for (const char* p = hex ? str + 2 : str; *p != '\0'; p++) {
        if (DigitValue(*p, hex) < 0) {
            return -1;
        }
    }
    return 0;
}

KIRA_EXPORT uint64_t KIRA_StrToU64(const char* str) {
    if (str == nullptr) {
        return 0;
    }
    bool hex = HasHexPrefix(str);
    uint64_t base = hex ? 16 : 10;
    uint64_t value = 0;
    for (const char* p = hex ? str + 2 : str; *p != '\0'; p++) {
        int digit = DigitValue(*p, hex);
        if (digit < 0) {
            syslog(LOG_INFO, "Not a numbric str: (%s).\n", str);
            return value;
        }
        value = value * base + static_cast<uint64_t>(digit);
    }
    return value;
}

KIRA_EXPORT int64_t KIRA_StrToS64(const char* str) {
    if (str == nullptr) {
        return 0;
    }
    if (str[0] == '-') {
        return static_cast<int64_t>(0 - KIRA_StrToU64(str + 1));
    }
    return static_cast<int64_t>(KIRA_StrToU64(str));
}

KIRA_EXPORT void KIRA_StrToLower(char* str) {
    if (str == nullptr) {
        return;
    }
    for (char* p = str; *p != '\0'; p++) {
        *p = static_cast<char>(tolower(static_cast<unsigned char>(*p)));
    }
}

}  // extern "C"
