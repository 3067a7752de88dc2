// Number parsing, bit maps and byte order.

#include "os/base/kira_bitmap.h"
#include "os/base/kira_byteorder.h"
#include "os/base/kira_number.h"
#include "tests/os/base/base_test_util.h"

TEST(KiraNumber, UnsignedNumberPredicateAndLowerCase) {
    for (const char* yes : {"0", "18446744073709551616999", "0x1fA", "0XDEADbeef", "", "0x", "0X"})
        EXPECT_EQ(KIRA_IsUnsignedNumbericStr(yes), 0) << '"' << yes << '"';
    for (const char* no : {"12 ", " 12", "-1", "+1", "1f", "0x1g", "0x0x1", "x1"})
        EXPECT_EQ(KIRA_IsUnsignedNumbericStr(no), -1) << '"' << no << '"';
    EXPECT_EQ(KIRA_IsUnsignedNumbericStr(nullptr), -1);

    char s[] = "MiXeD 0xAB-\xC4Z";
    KIRA_StrToLower(s);
    EXPECT_STREQ(s, "mixed 0xab-\xC4z");
    KIRA_StrToLower(nullptr);
}

SANDBOX_TEST(KiraNumber, ConversionWrapsAndReportsStrayCharacters) {
    kt::SyslogClear();
    struct U {
        const char* in;
        uint64_t out;
    };
    for (const U& c : {U{"0x1F", 31}, U{"0XaBc", 0xabc}, U{"0x", 0}, U{"", 0}, U{"18446744073709551615", UINT64_MAX},
                       U{"18446744073709551616", 0}, U{"0x10000000000000001", 1}, U{nullptr, 0}})
        EXPECT_EQ(KIRA_StrToU64(c.in), c.out) << (c.in ? c.in : "null");
    struct S {
        const char* in;
        int64_t out;
    };
    for (const S& c : {S{"-5", -5}, S{"-0x10", -16}, S{"-9223372036854775808", INT64_MIN},
                       S{"18446744073709551615", -1}, S{nullptr, 0}})
        EXPECT_EQ(KIRA_StrToS64(c.in), c.out) << (c.in ? c.in : "null");
    EXPECT_EQ(kt::SyslogLines().size(), 0u) << "clean input logged something";

    EXPECT_EQ(KIRA_StrToU64("12a"), 12u);
    EXPECT_EQ(KIRA_StrToU64("0x1fz9"), 0x1fu);
    EXPECT_EQ(KIRA_StrToS64("--5"), 0);  // one sign only; the rest is unsigned
    std::string logged;
    for (const auto& l : kt::SyslogLines()) logged += std::to_string(l.priority) + " " + l.message;
    EXPECT_EQ(logged, "6 Not a numbric str: (12a).\n6 Not a numbric str: (0x1fz9).\n6 Not a numbric str: (-5).\n");
}

TEST(KiraBitmap, LeastSignificantBitFirstAndByteOrder) {
    unsigned char map[4] = {0, 0, 0, 0xFF};
    EXPECT_EQ(KIRA_set_bit(9, map), &map[1]);
    EXPECT_EQ(KIRA_set_bit(23, map), &map[2]);
    EXPECT_EQ(KIRA_test_bit(23, map), 0x80);  // the masked byte, not a boolean
    EXPECT_EQ(KIRA_test_bit(8, map), 0);
    EXPECT_EQ(KIRA_clear_bit(27, map), &map[3]);
    EXPECT_EQ(std::vector<int>(map, map + 4), (std::vector<int>{0, 0x02, 0x80, 0xF7}));
    EXPECT_EQ(KIRA_set_bit(1, nullptr), nullptr);
    EXPECT_EQ(KIRA_clear_bit(1, nullptr), nullptr);
    EXPECT_EQ(KIRA_test_bit(1, nullptr), 0);

    // Swaps only for big endian.
    EXPECT_EQ(Swab16(0x1234), 0x3412);
    EXPECT_EQ(CpuToBigEndian32(0x11223344u), 0x44332211u);
    EXPECT_EQ(BigEndianToCpu64(0x0102030405060708ull), 0x0807060504030201ull);
    EXPECT_EQ(BigEndianToCpu16(0xA0B0), 0xB0A0);
    EXPECT_EQ(CpuToLittleEndian64(0x0102030405060708ull), 0x0102030405060708ull);
    EXPECT_EQ(LittleEndianToCpu32(0x11223344u), 0x11223344u);
}
