// sscanf_s: buffer sizes honoured, widths, suppression, sets, %n, integer
// bases and wrapping, floats, the EOF-versus-0 result, and the formats the
// rest of the system parses its files with.

#include <gtest/gtest.h>

#include <limits.h>
#include <string.h>

#include "safec/safec.h"

namespace {

TEST(ScanString, SizeArgumentCountsTheTerminator) {
    char buf[4];
    EXPECT_EQ(1, sscanf_s("abc", "%s", buf, 4u));
    EXPECT_STREQ("abc", buf);

    int after = 7;
    memcpy(buf, "zzz", 4);
    EXPECT_EQ(0, sscanf_s("abcd 5", "%s %d", buf, 4u, &after));
    EXPECT_STREQ("", buf) << "a field one too long leaves the buffer empty";
    EXPECT_EQ(7, after) << "and ends the scan";
}

TEST(ScanString, WidthAndSuppression) {
    char name[32];
    char rest[8];
    EXPECT_EQ(2, sscanf_s("abcdefgh", "%3s%s", name, 32u, rest, 8u));
    EXPECT_STREQ("abc", name);
    EXPECT_STREQ("defgh", rest);

    EXPECT_EQ(1, sscanf_s("Name:\tnginx: worker\n", "%*s %s", name, 32u));
    EXPECT_STREQ("nginx:", name);
    EXPECT_EQ(-1, sscanf_s("   \n", "%*s %s", name, 32u));
    EXPECT_EQ(0, sscanf_s("Name:", "%*s %s", name, 32u)) << "a completed skip is a conversion";
}

TEST(ScanChars, ExactCountNoTerminator) {
    char c[3] = {'x', 'x', 'x'};
    EXPECT_EQ(1, sscanf_s(" ab", "%c", c, 1u));
    EXPECT_EQ(' ', c[0]) << "%c does not skip white space";
    EXPECT_EQ(1, sscanf_s("abc", "%2c", c, 2u));
    EXPECT_EQ(0, memcmp(c, "abx", 3));
    EXPECT_EQ(0, sscanf_s("abc", "%3c", c, 2u));
    EXPECT_EQ('\0', c[0]);
    EXPECT_EQ(-1, sscanf_s("ab", "%3c", c, 3u)) << "input ends inside the field";
}

TEST(ScanSet, MembersRangesNegationAndLeadingBracket) {
    char buf[16];
    EXPECT_EQ(1, sscanf_s("abc123", "%[a-c]", buf, 16u));
    EXPECT_STREQ("abc", buf);
    EXPECT_EQ(1, sscanf_s("key=value", "%[^=]", buf, 16u));
    EXPECT_STREQ("key", buf);
    EXPECT_EQ(1, sscanf_s("]]x", "%[]]", buf, 16u));
    EXPECT_STREQ("]]", buf);
    EXPECT_EQ(1, sscanf_s("a-b]", "%[^]]", buf, 16u));
    EXPECT_STREQ("a-b", buf);
    EXPECT_EQ(1, sscanf_s("-a-z", "%[a-]", buf, 16u)) << "a trailing '-' is a member";
    EXPECT_STREQ("-a-", buf);
    EXPECT_EQ(0, sscanf_s("xyz", "%[a-c]", buf, 16u));
    EXPECT_EQ(0, sscanf_s("abcd", "%[a-d]", buf, 4u));
    EXPECT_STREQ("", buf);
    EXPECT_EQ(1, sscanf_s("abcd", "%3[a-d]", buf, 4u));
    EXPECT_STREQ("abc", buf);
    EXPECT_EQ(0, sscanf_s("abc", "%[abc", buf, 16u)) << "an unterminated set ends the scan";
}

TEST(ScanInteger, BasesSignsAndPrefixes) {
    int d = 0, i = 0;
    unsigned u = 0, x = 0;
    EXPECT_EQ(4, sscanf_s("-12 +7 0x1F 017", "%d %u %x %i", &d, &u, &x, &i));
    EXPECT_EQ(-12, d);
    EXPECT_EQ(7u, u);
    EXPECT_EQ(0x1Fu, x);
    EXPECT_EQ(017, i);
    EXPECT_EQ(2, sscanf_s("0X10 -0x10", "%i %i", &d, &i));
    EXPECT_EQ(16, d);
    EXPECT_EQ(-16, i);
    EXPECT_EQ(1, sscanf_s("0xg", "%x", &x)) << "0x without digits reads as 0";
    EXPECT_EQ(0u, x);
    unsigned o = 0;
    EXPECT_EQ(1, sscanf_s("778", "%o", &o));
    EXPECT_EQ(077u, o);
    EXPECT_EQ(0, sscanf_s("-x", "%d", &d));
    void* p = nullptr;
    EXPECT_EQ(1, sscanf_s("0x7f00", "%p", &p));
    EXPECT_EQ(reinterpret_cast<void*>(0x7f00), p);
}

TEST(ScanInteger, LengthsStoreOnlyTheirWidthAndWrapLikeStrtoul) {
    unsigned char hh[2] = {0xEE, 0xEE};
    short h = 0;
    long l = 0;
    long long ll = 0;
    unsigned long long ull = 0;
    size_t z = 0;
    EXPECT_EQ(6, sscanf_s("300 -2 -5000000000 9223372036854775807 18446744073709551615 42",
                          "%hhu %hd %ld %lld %llu %zu", &hh[0], &h, &l, &ll, &ull, &z));
    EXPECT_EQ(300 % 256, hh[0]);
    EXPECT_EQ(0xEE, hh[1]) << "hh writes one byte";
    EXPECT_EQ(-2, h);
    EXPECT_EQ(-5000000000L, l);
    EXPECT_EQ(LLONG_MAX, ll);
    EXPECT_EQ(ULLONG_MAX, ull);
    EXPECT_EQ(42u, z);

    unsigned u = 0;
    EXPECT_EQ(1, sscanf_s("-1", "%u", &u));
    EXPECT_EQ(0xFFFFFFFFu, u);
    EXPECT_EQ(1, sscanf_s("99999999999999999999999", "%lld", &ll));
    EXPECT_EQ(LLONG_MAX, ll);
    EXPECT_EQ(1, sscanf_s("-99999999999999999999999", "%lld", &ll));
    EXPECT_EQ(LLONG_MIN, ll);
    int d = 0;
    EXPECT_EQ(2, sscanf_s("12345", "%2d%d", &d, &u));
    EXPECT_EQ(12, d);
    EXPECT_EQ(345u, u);
}

TEST(ScanFloat, DecimalHexInfNanAndBadPrefixes) {
    float f = 0;
    double g = 0;
    long double ld = 0;
    EXPECT_EQ(3, sscanf_s("1.5 -2e3 0x1p4", "%f %lf %Lg", &f, &g, &ld));
    EXPECT_FLOAT_EQ(1.5f, f);
    EXPECT_DOUBLE_EQ(-2000.0, g);
    EXPECT_EQ(16.0L, ld);
    EXPECT_EQ(2, sscanf_s("inf NaN", "%lf %lf", &g, &ld));
    EXPECT_TRUE(__builtin_isinf(g));
    EXPECT_EQ(2, sscanf_s("-Infinity nan(x1)", "%le %le", &g, &g));
    EXPECT_TRUE(__builtin_isnan(g));
    EXPECT_EQ(0, sscanf_s("1e+", "%lf", &g)) << "a prefix of a number is not a number";
    EXPECT_EQ(0, sscanf_s(".", "%lf", &g));
    EXPECT_EQ(1, sscanf_s("12.75abc", "%3lf", &g));
    EXPECT_DOUBLE_EQ(12.0, g);
    char tail[8];
    EXPECT_EQ(2, sscanf_s("2.5e1x", "%lf%s", &g, tail, 8u));
    EXPECT_DOUBLE_EQ(25.0, g);
    EXPECT_STREQ("x", tail);
}

TEST(ScanDirectives, LiteralsPercentCountAndEofVersusZero) {
    int a = 0;
    int b = 0;
    int n = -1;
    EXPECT_EQ(2, sscanf_s("a=1, b = 2;", "a=%d, b = %d%n", &a, &b, &n));
    EXPECT_EQ(1, a);
    EXPECT_EQ(2, b);
    EXPECT_EQ(10, n) << "%n counts characters consumed";
    EXPECT_EQ(1, sscanf_s("50 %", "%d %%", &a));
    EXPECT_EQ(1, sscanf_s("50 x", "%d %%%n", &a, &n)) << "%n after a failed %% is not reached";
    EXPECT_EQ(10, n);
    EXPECT_EQ(0, sscanf_s("abc", "%*3c%n", &n)) << "%n is not counted as a field";
    EXPECT_EQ(3, n);

    EXPECT_EQ(-1, sscanf_s("", "%d", &a));
    EXPECT_EQ(-1, sscanf_s("", "pid=%u", &a));
    EXPECT_EQ(0, sscanf_s("x", "pid=%u", &a));
    EXPECT_EQ(1, sscanf_s("5", "%d %d", &a, &b));
    EXPECT_EQ(-1, sscanf_s(nullptr, "%d", &a));
    EXPECT_EQ(-1, sscanf_s("1", nullptr));
    EXPECT_EQ(0, sscanf_s("1", "%y", &a)) << "an unknown conversion ends the scan";
}

// The formats used for /proc and the configuration files.
TEST(ScanSystemFormats, ProcAndConfigLines) {
    unsigned long long t[7] = {};
    EXPECT_EQ(7, sscanf_s("cpu  10 20 30 40 50 60 70 80 90 0\n", "%*s %llu %llu %llu %llu %llu %llu %llu", &t[0], &t[1],
                          &t[2], &t[3], &t[4], &t[5], &t[6]));
    EXPECT_EQ(10u, t[0]);
    EXPECT_EQ(70u, t[6]);

    int fdLimit = 0;
    EXPECT_EQ(1, sscanf_s("Max open files            1024                 4096                 files\n",
                          "%*s %*s %*s %d", &fdLimit));
    EXPECT_EQ(1024, fdLimit);

    unsigned gid = 0, num = 0, interval = 0, burst = 0, resume = 86400;
    const char* five = "gid=%u,num=%u,interval=%u,burst=%u,resume=%u\n";
    EXPECT_EQ(5, sscanf_s("gid=3,num=10,interval=2,burst=4,resume=60\n", five, &gid, &num, &interval, &burst, &resume));
    EXPECT_EQ(60u, resume);
    resume = 86400;
    EXPECT_EQ(3, sscanf_s("gid=7,num=1,interval=9\n", five, &gid, &num, &interval, &burst, &resume));
    EXPECT_EQ(9u, interval);
    EXPECT_EQ(86400u, resume);

    unsigned pid = 0;
    char name[32];
    const char* module = "pid=%u pid_name=%31s gid=%u\n";
    EXPECT_EQ(3, sscanf_s("pid=424 pid_name=ZADIMONITOR gid=5\n", module, &pid, name, 32u, &gid));
    EXPECT_STREQ("ZADIMONITOR", name);
    EXPECT_EQ(1, sscanf_s("pid=9 gid=5\n", module, &pid, name, 32u, &gid));
    EXPECT_EQ(
        2, sscanf_s("pid=9 pid_name=0123456789012345678901234567890123456789 gid=5\n", module, &pid, name, 32u, &gid))
        << "the width stops the name, the rest then fails the literal";
    EXPECT_EQ(31u, strlen(name));
}

TEST(ScanSystemFormats, ZdumpLineNineteenFields) {
    char zone[64], uwd[4], umon[4], word[64], lwd[4], lmon[4], abbr[32];
    int uday, uh, um, us, uyear, lday, lh, lm, ls, lyear, isdst, gmtoff;
    const char* line = "Europe/Berlin  Sun Mar 31 00:59:59 2024 UT = Sun Mar 31 01:59:59 2024 CET isdst=0 gmtoff=3600";
    EXPECT_EQ(19, sscanf_s(line, "%s %s %s %d %d:%d:%d %d %s = %s %s %d %d:%d:%d %d %s isdst=%d gmtoff=%d", zone, 64u,
                           uwd, 4u, umon, 4u, &uday, &uh, &um, &us, &uyear, word, 64u, lwd, 4u, lmon, 4u, &lday, &lh,
                           &lm, &ls, &lyear, abbr, 32u, &isdst, &gmtoff));
    EXPECT_STREQ("Europe/Berlin", zone);
    EXPECT_STREQ("Mar", lmon);
    EXPECT_EQ(59, ls);
    EXPECT_STREQ("CET", abbr);
    EXPECT_EQ(3600, gmtoff);
}

}  // namespace
