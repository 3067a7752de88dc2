// Subnet conflicts of two interface addresses, IPv4 with masks and IPv6
// with prefix lengths.

#include <gtest/gtest.h>

#include "os/net/kira_net.h"

namespace {

struct Ip4Case {
    const char *addr1, *mask1, *addr2, *mask2;
    int result;
};

// clang-format off
const Ip4Case kIp4Cases[] = {
    {"10.0.0.1", "255.255.255.0", "10.0.0.200", "255.255.0.0", 1},
    {"10.0.1.1", "255.255.255.0", "10.0.2.1", "255.255.255.0", 0},
    {"10.0.1.1", "255.255.255.0", "10.0.2.1", "255.255.0.0", 1},      // the shorter mask decides
    {"10.0.1.1", "255.255.0.0", "10.0.2.1", "255.255.255.0", 1},
    {"10.0.0.1", "300.1.1.1", "10.9.9.9", "255.255.255.0", 1},        // unparsable mask
    {"10.0.0.1", "255.255.255.0", "10.9.9.9", "mask", 1},
    {"300.1.1.1", "255.0.0.0", "10.9.9.9", "255.0.0.0", 1},          // unparsable address
    {"10.9.9.9", "255.0.0.0", "255.255.255.255", "255.0.0.0", 1},    // broadcast reads as invalid
    {"10.0.0.1", "255.255.255.255", "10.0.0.2", "255.255.255.255", 0},  // a true all-ones mask
    {"10.0.0.1", "255.255.255.255", "10.0.0.1", "255.255.255.255", 1},
    {"10.0.0.1", "255.255.255.255 x", "10.0.0.2", "255.255.255.255", 0},  // inet_aton takes the text up to the blank
    {"10.0.0.1", "255.255.255.2550", "10.0.0.2", "255.255.255.255", 0},   // refused, but begins like all ones
    {"10.0.0.1", "0.0.0.0", "192.168.0.1", "255.255.255.0", 1},
    // Masks compare as stored values; on these little-endian targets 255.255.0.0 is below 255.0.255.0.
    {"10.1.0.1", "255.0.255.0", "10.2.0.1", "255.255.0.0", 0},
};
// clang-format on

struct Ip6Case {
    const char* addr1;
    uint32_t prefix1;
    const char* addr2;
    uint32_t prefix2;
    int result;
};

// clang-format off
const Ip6Case kIp6Cases[] = {
    {"2001:db8:1:1::", 64, "2001:db8:1:2::", 48, 1},   // 48 bits compared
    {"2001:db8:2::", 64, "2001:db8:1::", 48, 0},
    {"2001:db8::", 0, "fe80::1", 64, 1},
    {"2001:db8:1:1000::", 52, "2001:db8:1:1fff::", 64, 1},  // top four bits of the seventh byte
    {"2001:db8:1:1000::", 52, "2001:db8:1:2000::", 64, 0},
    {"::1", 128, "::1", 128, 1},
    {"::1", 128, "::", 128, 0},
    {"::1", 200, "::", 300, 0},   // beyond 128: the whole address
    {"::1", 200, "::1", 300, 1},
    {"zz::", 64, "::1", 64, 1},   // unparsable
    {"::1", 64, nullptr, 64, 1},
};
// clang-format on

TEST(NetConflict, Ip4SubnetsAndUnparsableTexts) {
    for (const Ip4Case& c : kIp4Cases) {
        EXPECT_EQ(KIRA_IfIpConflict(c.addr1, c.mask1, c.addr2, c.mask2), c.result)
            << c.addr1 << "/" << c.mask1 << " " << c.addr2 << "/" << c.mask2;
    }
    const char* args[] = {"10.0.0.1", "255.0.0.0", "10.0.0.2", "255.0.0.0"};
    for (int i = 0; i < 4; i++) {
        const char* a[4] = {args[0], args[1], args[2], args[3]};
        a[i] = nullptr;
        EXPECT_EQ(KIRA_IfIpConflict(a[0], a[1], a[2], a[3]), -22) << i;
    }
}

TEST(NetConflict, Ip6PrefixesAndUnparsableTexts) {
    for (const Ip6Case& c : kIp6Cases) {
        EXPECT_EQ(KIRA_IfIpV6Conflict(c.addr1, c.prefix1, c.addr2, c.prefix2), c.result)
            << c.addr1 << "/" << c.prefix1 << " " << (c.addr2 ? c.addr2 : "null") << "/" << c.prefix2;
    }
}

}  // namespace
