// Whether two interface addresses (IPv4 with masks, IPv6 with prefix
// lengths) fall into the same subnet.

#include <errno.h>
#include <string.h>

#include "os/net/kira_net.h"

namespace {

constexpr uint32_t kInvalid = 0xFFFFFFFFu;
constexpr char kAllOnes[] = "255.255.255.255";
constexpr uint32_t kIp6Bits = 128;
constexpr int32_t kFamilyIp6 = 10;

// An unparsable mask reads as all ones; only a real all-ones text may be.
bool MaskUnusable(uint32_t mask, const char* text) {
    return mask == kInvalid && strncmp(text, kAllOnes, sizeof kAllOnes - 1) != 0;
}

}  // namespace

extern "C" {

KIRA_EXPORT int32_t KIRA_IfIpConflict(const char* addr1, const char* mask1, const char* addr2, const char* mask2) {
    if (addr1 == nullptr || mask1 == nullptr || addr2 == nullptr || mask2 == nullptr) {
        return -EINVAL;
    }
    uint32_t a1 = KIRA_inet_addr(addr1);
    uint32_t m1 = KIRA_inet_addr(mask1);
    uint32_t a2 = KIRA_inet_addr(addr2);
    uint32_t m2 = KIRA_inet_addr(mask2);
    if (a1 == kInvalid || a2 == kInvalid) {
        return 1;
    }
    if (MaskUnusable(m1, mask1) || MaskUnusable(m2, mask2)) {
        return 1;
    }
    // The stored values are compared as they are: for contiguous masks the
    // smaller one is the shorter mask on either byte order.
    uint32_t mask = m1 < m2 ? m1 : m2;
    return (a1 == a2 || (a1 & mask) == (a2 & mask)) ? 1 : 0;
}

KIRA_EXPORT int32_t KIRA_IfIpV6Conflict(const char* addr1, uint32_t prefix1, const char* addr2, uint32_t prefix2) {
    uint8_t b1[16];
    uint8_t b2[16];
    if (KIRA_inet_pton(kFamilyIp6, addr1, b1) != 1 || KIRA_inet_pton(kFamilyIp6, addr2, b2) != 1) {
        return 1;
    }
    uint32_t bits = prefix1 < prefix2 ? prefix1 : prefix2;
    if (bits > kIp6Bits) {
        bits = kIp6Bits;  // a longer prefix compares the whole address
    }
    uint32_t whole = bits / 8;
    if (memcmp(b1, b2, whole) != 0) {
        return 0;
    }
    uint8_t partial = static_cast<uint8_t>(~(0xFFu >> (bits % 8)));
    if (partial != 0 && ((b1[whole] ^ b2[whole]) & partial) != 0) {
        return 0;
    }
    return 1;
}

}  // extern "C"
