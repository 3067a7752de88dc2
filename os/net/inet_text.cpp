// IPv4 and IPv6 text conversions. The parsers follow the classic BSD
// resolver algorithm but classify each byte through one table and keep the
// groups in registers, so each text is read once, left to right, never past
// its terminator.

#include <arpa/inet.h>
#include <string.h>

#include "os/net/kira_net.h"

namespace {

constexpr int kFamilyIp4 = 2;
constexpr int kFamilyIp6 = 10;
constexpr int kIp6Bytes = 16;

// Byte classes: 0..15 hexadecimal digit values, then separators, then the rest.
constexpr uint8_t kColon = 16;
constexpr uint8_t kDot = 17;
constexpr uint8_t kEnd = 18;
constexpr uint8_t kOther = 19;

struct ClassTable {
    uint8_t of[256] = {};
    constexpr ClassTable() {
        for (int c = 0; c < 256; c++) {
            of[c] = kOther;
        }
        for (int c = 0; c < 10; c++) {
            of['0' + c] = static_cast<uint8_t>(c);
        }
        for (int c = 0; c < 6; c++) {
            of['a' + c] = static_cast<uint8_t>(10 + c);
            of['A' + c] = static_cast<uint8_t>(10 + c);
        }
        of[int{':'}] = kColon;
        of[int{'.'}] = kDot;
        of[0] = kEnd;
    }
};
constexpr ClassTable kClass;

// Up to three decimal digits, no leading zero before another digit, at most
// 255; src is left on the first byte after the part.
inline bool Ip4Part(const unsigned char*& src, uint8_t* part) {
    unsigned value = static_cast<unsigned>(*src - '0');
    if (value > 9) {
        return false;
    }
    unsigned digit = static_cast<unsigned>(*++src - '0');
    if (digit <= 9) {
        if (value == 0) {
            return false;
        }
        value = value * 10 + digit;
        digit = static_cast<unsigned>(*++src - '0');
        if (digit <= 9) {
            value = value * 10 + digit;
            if (value > 255) {
                return false;
            }
            ++src;
        }
    }
    *part = static_cast<uint8_t>(value);
    return true;
}

int32_t ParseIp4(const unsigned char* src, uint8_t* dst) {
    uint8_t parts[4];
    for (int i = 0; i < 4; i++) {
        if (!Ip4Part(src, &parts[i])) {
            return 0;
        }
        if (*src != (i < 3 ? '.' : '\0')) {
            return 0;
        }
        ++src;
    }
    memcpy(dst, parts, sizeof parts);
    return 1;
}

inline void PutGroup(uint8_t* at, unsigned value) {
    at[0] = static_cast<uint8_t>(value >> 8);
    at[1] = static_cast<uint8_t>(value);
}

int32_t ParseIp6(const unsigned char* src, uint8_t* dst) {
    uint8_t bytes[kIp6Bytes];  // every byte is written before it is copied out
    int filled = 0;
    int gap = -1;  // where "::" stands, in bytes
    // A leading ':' is only allowed as the first half of "::".
    if (*src == ':' && *++src != ':') {
        return 0;
    }
    const unsigned char* token = src;
    for (;;) {
        uint8_t cls = kClass.of[*src];
        if (cls < kColon) {
            // A whole group at once; its separator decides what follows.
            const unsigned char* start = src;
            unsigned value = cls;
            while ((cls = kClass.of[*++src]) < kColon) {
                value = (value << 4) | cls;
            }
            if (src - start > 4) {
                return 0;
            }
            if (cls == kDot) {
                if (filled + 4 > kIp6Bytes || ParseIp4(token, bytes + filled) <= 0) {
                    return 0;
                }
                filled += 4;
                break;
            }
            if (filled + 2 > kIp6Bytes) {
                return 0;
            }
            PutGroup(bytes + filled, value);
            filled += 2;
            if (cls == kEnd) {
                break;
            }
            if (cls != kColon) {
                return 0;
            }
            // A colon right before the end is not refused: "1::2:" reads as
            // "1::2", as callers have always had it.
            token = ++src;
            continue;
        }
        if (cls == kColon) {
            if (gap >= 0) {
                return 0;
            }
            gap = filled;
            token = ++src;
            continue;
        }
        if (cls == kEnd) {
            break;
        }
        return 0;
    }
    if (gap >= 0) {
        if (filled == kIp6Bytes) {
            return 0;
        }
        int tail = filled - gap;
        memmove(bytes + kIp6Bytes - tail, bytes + gap, static_cast<size_t>(tail));
        memset(bytes + gap, 0, static_cast<size_t>(kIp6Bytes - tail - gap));
        filled = kIp6Bytes;
    }
    if (filled != kIp6Bytes) {
        return 0;
    }
    memcpy(dst, bytes, sizeof bytes);
    return 1;
}

// Decimal text of every byte value, so an address is four copies.
struct ByteTexts {
    char text[256][4] = {};
    uint8_t length[256] = {};
    constexpr ByteTexts() {
        for (int v = 0; v < 256; v++) {
            int n = 0;
            if (v >= 100) {
                text[v][n++] = static_cast<char>('0' + v / 100);
            }
            if (v >= 10) {
                text[v][n++] = static_cast<char>('0' + v / 10 % 10);
            }
            text[v][n++] = static_cast<char>('0' + v % 10);
            length[v] = static_cast<uint8_t>(n);
        }
    }
};
constexpr ByteTexts kByteText;

char g_sharedText[16];

}  // namespace

extern "C" {

// The same text "%u.%u.%u.%u" gives, at most 15 characters, so it always
// fits the 16 bytes.
KIRA_EXPORT char* KIRA_inet_ntoa(uint32_t addr, char* buf) {
    char* out = buf != nullptr ? buf : g_sharedText;
    uint8_t bytes[4];
    memcpy(bytes, &addr, sizeof bytes);
    char* at = out;
    for (int i = 0; i < 4; i++) {
        memcpy(at, kByteText.text[bytes[i]], 4);
        at += kByteText.length[bytes[i]];
        *at++ = '.';
    }
    at[-1] = '\0';
    return out;
}

KIRA_EXPORT int32_t KIRA_inet_pton4(const char* src, uint8_t* dst) {
    if (src == nullptr || dst == nullptr) {
        return -1;
    }
    return ParseIp4(reinterpret_cast<const unsigned char*>(src), dst);
}

KIRA_EXPORT int32_t KIRA_inet_pton6(const char* src, uint8_t* dst) {
    if (src == nullptr || dst == nullptr) {
        return -1;
    }
    return ParseIp6(reinterpret_cast<const unsigned char*>(src), dst);
}

KIRA_EXPORT int32_t KIRA_inet_pton(int32_t family, const char* src, void* dst) {
    if (src == nullptr || dst == nullptr) {
        return -1;
    }
    if (family == kFamilyIp4) {
        return KIRA_inet_pton4(src, static_cast<uint8_t*>(dst));
    }
    if (family == kFamilyIp6) {
        return KIRA_inet_pton6(src, static_cast<uint8_t*>(dst));
    }
    return 0;
}

KIRA_EXPORT uint32_t KIRA_inet_addr(const char* text) {
    struct in_addr addr = {};
    if (text == nullptr || inet_aton(text, &addr) == 0) {
        return 0xFFFFFFFFu;
    }
    return addr.s_addr;
}

}  // extern "C"
