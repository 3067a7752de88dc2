// Address texts: the parsers' settled points; a differential run against the
// C library with every text read from a page end, so a read past the
// terminator faults; printing against inet_ntop; inet_addr's leniency.

#include <arpa/inet.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <random>
#include <string>

#include "os/net/kira_net.h"
#include "tests/os/net/inet_diff.h"
#include "tests/support/sandbox.h"

namespace {

// The last n bytes of a mapped page followed by an inaccessible one: a text
// put there faults on any read beyond its terminator. Mapped once, for the
// life of the process.
char* PageEnd(size_t n) {
    static char* const end = [] {
        const size_t size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        void* p = mmap(nullptr, 2 * size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (p == MAP_FAILED || mprotect(static_cast<char*>(p) + size, size, PROT_NONE) != 0) abort();
        return static_cast<char*>(p) + size;
    }();
    return end - n;
}

const char* AtPageEnd(const std::string& text) {
    return static_cast<const char*>(memcpy(PageEnd(text.size() + 1), text.c_str(), text.size() + 1));
}

struct ParseCase {
    int family;
    const char* text;
    int result;
};

// What the C library cannot settle: the kept leniency and the dispatch; the
// differential test below covers the rest, bytes included.
// clang-format off
const ParseCase kParseCases[] = {
    {2, "1.2.3.4", 1}, {2, "01.2.3.4", 0}, {2, "1.2.3", 0}, {2, "1.2.3.4.5", 0}, {2, "256.1.1.1", 0},
    {2, "1..2.3", 0}, {2, "1.2.3.4x", 0}, {10, "::", 1}, {10, "::1", 1}, {10, "1:2:3:4:5:6:7:8", 1},
    {10, "::ffff:1.2.3.4", 1}, {10, ":1::", 0}, {10, "1::2::3", 0}, {10, "12345::", 0}, {10, "00001::", 0},
    {10, "1:2:3:4::5:6:7:8", 0}, {10, "1:", 0}, {10, "1::2:", 1}, {10, "1:2:3:4:5:6:7:8:", 1}, {10, "1::2::", 0},
    {3, "1.2.3.4", 0}, {0, "::", 0},
};
// clang-format on

TEST(NetText, ParsersKeepTheSettledPoints) {
    for (const ParseCase& c : kParseCases) {
        unsigned char out[16] = {};
        EXPECT_EQ(KIRA_inet_pton(c.family, c.text, out), c.result) << c.family << " " << c.text;
        const int direct = c.family == 2 ? KIRA_inet_pton4(c.text, out) : KIRA_inet_pton6(c.text, out);
        EXPECT_EQ(direct, c.family == 2 || c.family == 10 ? c.result : direct) << c.text;
    }
    EXPECT_EQ(inet_diff::Compare("1::2:"), "");  // the leniency gives the bytes of "1::2"
}

TEST(NetText, NullArgumentsAndInetAddr) {
    unsigned char out[16] = {};
    EXPECT_EQ(KIRA_inet_pton4(nullptr, out), -1);
    EXPECT_EQ(KIRA_inet_pton4("1.2.3.4", nullptr), -1);
    EXPECT_EQ(KIRA_inet_pton6(nullptr, out), -1);
    EXPECT_EQ(KIRA_inet_pton6("::", nullptr), -1);
    EXPECT_EQ(KIRA_inet_pton(2, nullptr, out), -1);
    EXPECT_EQ(KIRA_inet_pton(3, nullptr, out), -1);  // null is checked before the family
    EXPECT_EQ(KIRA_inet_pton(10, "::", nullptr), -1);

    EXPECT_EQ(KIRA_inet_addr(nullptr), 0xFFFFFFFFu);
    EXPECT_EQ(KIRA_inet_addr("300.1.1.1"), 0xFFFFFFFFu);
    EXPECT_EQ(KIRA_inet_addr("255.255.255.255"), 0xFFFFFFFFu);
    // inet_aton's forms: fewer parts, octal and hexadecimal.
    for (const char* text : {"10.1.2.3", "127.1", "0x7f.1", "010.0.0.1", "1"}) {
        struct in_addr expected = {};
        ASSERT_NE(inet_aton(text, &expected), 0) << text;
        EXPECT_EQ(KIRA_inet_addr(text), expected.s_addr) << text;
    }
}

// Both parsers see the same texts; any difference not listed in
// inet_diff::Compare fails. The listed one must actually occur, or the
// corpus has stopped reaching it.
TEST(NetText, ParsersAgreeWithTheCLibraryExceptAsListed) {
    std::mt19937 rng(20261124);
    int valid6 = 0;
    int lenient = 0;
    for (int i = 0; i < 200000; i++) {
        const char* text = AtPageEnd(inet_diff::RandomText(rng));
        ASSERT_EQ(inet_diff::Compare(text), "") << "text \"" << text << "\"";
        unsigned char out[16];
        const int libc = inet_pton(AF_INET6, text, out);
        valid6 += libc == 1;
        lenient += libc == 0 && KIRA_inet_pton6(text, out) == 1;
    }
    EXPECT_GT(valid6, 10000);
    EXPECT_GT(lenient, 100);
}

TEST(NetText, NtoaPrintsWhatInetNtopPrints) {
    char* buf = PageEnd(16);  // the longest text and its terminator end at the guard page
    std::mt19937 rng(7);
    for (int i = 0; i < 100000; i++) {
        uint32_t addr = i < 256 ? 0x01010101u * static_cast<uint32_t>(i) : static_cast<uint32_t>(rng());
        if (i % 5 == 0) addr &= 0x00FF0F00u;  // short parts next to long ones
        char expected[INET_ADDRSTRLEN];
        ASSERT_NE(inet_ntop(AF_INET, &addr, expected, sizeof expected), nullptr);
        ASSERT_EQ(KIRA_inet_ntoa(addr, buf), buf);
        ASSERT_STREQ(buf, expected);
    }
    // Without a buffer, one static buffer serves every call.
    char* shared = KIRA_inet_ntoa(0x0100007Fu, nullptr);
    EXPECT_STREQ(shared, "127.0.0.1");
    EXPECT_EQ(KIRA_inet_ntoa(0xFFFFFFFFu, nullptr), shared);
    EXPECT_STREQ(shared, "255.255.255.255");
}

}  // namespace
