// The scanners, narrow and wide, from text and from streams: buffer sizes
// honoured, widths, suppression, sets, %n, integer bases and wrapping,
// floats, the EOF-versus-0 result, the stream position after a scan, and the
// formats the rest of the system parses its files with.

#include <gtest/gtest.h>
#include <limits.h>
#include <locale.h>
#include <stdio.h>
#include <string.h>

#include <sstream>
#include <string>
#include <type_traits>

#include "safec/safec.h"

namespace {

void Put(std::ostringstream& out, const wchar_t* w) {
    for (; *w != L'\0'; ++w) out << (*w < 0x80 ? static_cast<char>(*w) : '?');
}
template <typename T>
void Put(std::ostringstream& out, const T& v) {
    if constexpr (std::is_integral_v<T> && sizeof(T) == 1)
        out << +v;
    else
        out << v;
}
// "result|first value|second value..." (values by reference: read after the scan).
template <typename... T>
std::string R(int rc, const T&... values) {
    std::ostringstream out;
    out << rc;
    ((out << '|', Put(out, values)), ...);
    return out.str();
}

FILE* StreamWith(const char* text) {
    FILE* f = tmpfile();
    if (f != nullptr) fputs(text, f), rewind(f);
    return f;
}

// Each case scans into variables of its own and reports them through R.
struct Case {
    std::string (*scan)();
    const char* want;
};

TEST(Scan, FieldsSizesAndResults) {
    // clang-format off
    const Case cases[] = {
        // The size argument counts the terminator; a field one too long leaves the buffer empty and ends the scan.
        {[] { char b[4] = "zz"; return R(sscanf_s("abc", "%s", b, 4u), b); }, "1|abc"},
        {[] { char b[4] = "zz"; int n = 7; return R(sscanf_s("abcd 5", "%s %d", b, 4u, &n), b, n); }, "0||7"},
        {[] { char a[32] = "", b[8] = ""; return R(sscanf_s("abcdefgh", "%3s%s", a, 32u, b, 8u), a, b); }, "2|abc|defgh"},
        {[] { char b[32] = ""; return R(sscanf_s("Name:\tnginx: worker\n", "%*s %s", b, 32u), b); }, "1|nginx:"},
        {[] { char b[32] = ""; return R(sscanf_s("   \n", "%*s %s", b, 32u)); }, "-1"},
        {[] { char b[32] = ""; return R(sscanf_s("Name:", "%*s %s", b, 32u)); }, "0"},  // a completed skip counts
        // %c: exact count, no terminator, no skipped white space.
        {[] { char c[4] = "xxx"; return R(sscanf_s(" ab", "%c", c, 1u), c); }, "1| xx"},
        {[] { char c[4] = "xxx"; return R(sscanf_s("abc", "%2c", c, 2u), c); }, "1|abx"},
        {[] { char c[4] = "xxx"; return R(sscanf_s("abc", "%3c", c, 2u), c); }, "0|"},
        {[] { char c[4] = "xxx"; return R(sscanf_s("ab", "%3c", c, 3u)); }, "-1"},  // input ends inside
        // Sets: members, ranges, negation, a leading ']' and a trailing '-'.
        {[] { char b[16] = ""; return R(sscanf_s("abc123", "%[a-c]", b, 16u), b); }, "1|abc"},
        {[] { char b[16] = ""; return R(sscanf_s("key=value", "%[^=]", b, 16u), b); }, "1|key"},
        {[] { char b[16] = ""; return R(sscanf_s("]]x", "%[]]", b, 16u), b); }, "1|]]"},
        {[] { char b[16] = ""; return R(sscanf_s("a-b]", "%[^]]", b, 16u), b); }, "1|a-b"},
        {[] { char b[16] = ""; return R(sscanf_s("-a-z", "%[a-]", b, 16u), b); }, "1|-a-"},
        {[] { char b[16] = "q"; return R(sscanf_s("xyz", "%[a-c]", b, 16u), b); }, "0|q"},
        {[] { char b[4] = "q"; return R(sscanf_s("abcd", "%[a-d]", b, 4u), b); }, "0|"},
        {[] { char b[4] = "q"; return R(sscanf_s("abcd", "%3[a-d]", b, 4u), b); }, "1|abc"},
        {[] { char b[16] = ""; return R(sscanf_s("abc", "%[abc", b, 16u)); }, "0"},  // unterminated set
        // Integers: bases, signs, prefixes, widths and what each length stores.
        {[] { int d = 0, i = 0; unsigned u = 0, x = 0;
              return R(sscanf_s("-12 +7 0x1F 017", "%d %u %x %i", &d, &u, &x, &i), d, u, x, i); }, "4|-12|7|31|15"},
        {[] { int d = 0, i = 0; return R(sscanf_s("0X10 -0x10", "%i %i", &d, &i), d, i); }, "2|16|-16"},
        {[] { unsigned x = 9; return R(sscanf_s("0xg", "%x", &x), x); }, "1|0"},  // 0x without digits is 0
        {[] { unsigned o = 0; return R(sscanf_s("778", "%o", &o), o); }, "1|63"},
        {[] { int d = 0; return R(sscanf_s("-x", "%d", &d)); }, "0"},
        {[] { void* p = nullptr; int rc = sscanf_s("0x7f00", "%p", &p);
              return R(rc, p == reinterpret_cast<void*>(0x7f00)); }, "1|1"},
        {[] { unsigned char hh[2] = {0xEE, 0xEE}; short h = 0; long l = 0; long long ll = 0;
              unsigned long long ull = 0; size_t z = 0;
              return R(sscanf_s("300 -2 -5000000000 9223372036854775807 18446744073709551615 42",
                                "%hhu %hd %ld %lld %llu %zu", &hh[0], &h, &l, &ll, &ull, &z), hh[0], hh[1], h, l, ll, ull, z); },
         "6|44|238|-2|-5000000000|9223372036854775807|18446744073709551615|42"},
        {[] { unsigned u = 0; return R(sscanf_s("-1", "%u", &u), u); }, "1|4294967295"},
        {[] { long long a = 0, b = 0;
              int rc = sscanf_s("99999999999999999999999 -99999999999999999999999", "%lld %lld", &a, &b);
              return R(rc, a == LLONG_MAX, b == LLONG_MIN); }, "2|1|1"},
        {[] { int d = 0; unsigned u = 0; return R(sscanf_s("12345", "%2d%d", &d, &u), d, u); }, "2|12|345"},
        // Floats: decimal, hex, inf, nan, widths; a prefix of a number is not one.
        {[] { float f = 0; double g = 0; long double l = 0;
              return R(sscanf_s("1.5 -2e3 0x1p4", "%f %lf %Lg", &f, &g, &l), f, g, l); }, "3|1.5|-2000|16"},
        {[] { double g = 0, h = 0; return R(sscanf_s("inf NaN", "%lf %lf", &g, &h), g, h); }, "2|inf|nan"},
        {[] { double g = 0, h = 0; return R(sscanf_s("-Infinity nan(x1)", "%le %le", &g, &h), g, h); }, "2|-inf|nan"},
        {[] { double g = 0; return R(sscanf_s("1e+", "%lf", &g)); }, "0"},
        {[] { double g = 0; return R(sscanf_s(".", "%lf", &g)); }, "0"},
        {[] { double g = 0; return R(sscanf_s("12.75abc", "%3lf", &g), g); }, "1|12"},
        {[] { double g = 0; char t[8] = ""; return R(sscanf_s("2.5e1x", "%lf%s", &g, t, 8u), g, t); }, "2|25|x"},
        // Literals, %%, %n (not a field, not reached after a failure), EOF versus 0.
        {[] { int a = 0, b = 0, n = -1; return R(sscanf_s("a=1, b = 2;", "a=%d, b = %d%n", &a, &b, &n), a, b, n); }, "2|1|2|10"},
        {[] { int a = 0; return R(sscanf_s("50 %", "%d %%", &a), a); }, "1|50"},
        {[] { int a = 0, n = -1; return R(sscanf_s("50 x", "%d %%%n", &a, &n), n); }, "1|-1"},
        {[] { int n = -1; return R(sscanf_s("abc", "%*3c%n", &n), n); }, "0|3"},
        {[] { int a = 0; return R(sscanf_s("", "%d", &a)); }, "-1"},
        {[] { unsigned a = 0; return R(sscanf_s("", "pid=%u", &a)); }, "-1"},
        {[] { unsigned a = 0; return R(sscanf_s("x", "pid=%u", &a)); }, "0"},
        {[] { int a = 0, b = 0; return R(sscanf_s("5", "%d %d", &a, &b)); }, "1"},
        {[] { int a = 0; return R(sscanf_s(nullptr, "%d", &a)); }, "-1"},
        {[] { return R(sscanf_s("1", nullptr)); }, "-1"},
        {[] { int a = 0; return R(sscanf_s("1", "%y", &a)); }, "0"},  // an unknown conversion ends the scan
        // The module file's form: the width stops the name, the rest then fails the literal.
        {[] { unsigned p = 0, g = 0; char n[32] = "";
              return R(sscanf_s("pid=9 pid_name=0123456789012345678901234567890123456789 gid=5\n",
                                "pid=%u pid_name=%31s gid=%u\n", &p, n, 32u, &g), p, n, g); },
         "2|9|0123456789012345678901234567890|0"},
        // Wide text: %ls stores wide, %s narrow.
        {[] { wchar_t w[8] = L""; char b[8] = ""; int n = 0;
              return R(swscanf_s(L"ab cd 42", L"%ls %s %d", w, 8u, b, 8u, &n), w, b, n); }, "3|ab|cd|42"},
        {[] { wchar_t w[8] = L"q"; return R(swscanf_s(L"abcdefgh", L"%ls", w, 8u), w); }, "0|"},
        {[] { wchar_t w[8] = L""; return R(swscanf_s(L"k=v", L"%l[^=]", w, 8u), w); }, "1|k"},
        {[] { int n = 0; return R(swscanf_s(L"", L"%d", &n)); }, "-1"},
        {[] { wchar_t w[8] = L""; return R(sscanf_s("xyz", "%ls", w, 8u), w); }, "1|xyz"},
    };
    // clang-format on
    for (size_t i = 0; i < sizeof(cases) / sizeof(cases[0]); ++i) EXPECT_EQ(cases[i].scan(), cases[i].want) << i;
}

TEST(Scan, MultibyteConversionNeedsRoomForWholeCharacter) {
    ASSERT_NE(nullptr, setlocale(LC_CTYPE, "C.UTF-8"));
    char narrow[3];
    EXPECT_EQ(0, swscanf_s(L"a\u00e9", L"%s", narrow, 3u)) << "a then two bytes do not fit in 2";
    EXPECT_STREQ("", narrow);
    EXPECT_EQ(1, swscanf_s(L"\u00e9", L"%s", narrow, 3u));
    EXPECT_STREQ("\xc3\xa9", narrow);
    wchar_t wide[2];
    EXPECT_EQ(1, sscanf_s("\xc3\xa9", "%ls", wide, 2u));
    EXPECT_EQ(L'\u00e9', wide[0]);
    // Refused fields leave an empty text, not unterminated remains.
    EXPECT_EQ(0, sscanf_s("\xc3", "%ls", wide, 2u)) << "a cut multibyte character";
    EXPECT_EQ(L'\0', wide[0]);
    EXPECT_EQ(0, sscanf_s("a\xff", "%ls", wide, 2u)) << "an invalid byte";
    EXPECT_EQ(L'\0', wide[0]);
    setlocale(LC_CTYPE, "C");
}

TEST(Scan, StreamsKeepTheirPlaceAfterTheLastConsumedCharacter) {
    FILE* f = StreamWith("pid=1 level=3\npid=2 level=x\n");
    ASSERT_NE(nullptr, f);
    unsigned pid = 0, level = 0;
    EXPECT_EQ(2, fscanf_s(f, "pid=%u level=%u\n", &pid, &level));
    EXPECT_EQ(3u, level);
    EXPECT_EQ(1, fscanf_s(f, "pid=%u level=%u\n", &pid, &level));
    EXPECT_EQ(2u, pid);
    EXPECT_EQ('x', fgetc(f)) << "the mismatching character stays in the stream";
    char word[4] = "zz";
    EXPECT_EQ(-1, fscanf_s(f, "%s", word, 4u)) << "only white space left";
    EXPECT_EQ(-1, fscanf_s(nullptr, "%s", word, 4u));
    fclose(f);
    f = StreamWith("abcdef 12");
    ASSERT_NE(nullptr, f);
    int n = 0;
    EXPECT_EQ(0, fscanf_s(f, "%s %d", word, 4u, &n));
    EXPECT_STREQ("", word) << "too long a field empties the buffer";
    fclose(f);

    f = tmpfile();
    ASSERT_NE(nullptr, f);
    fputws(L"7 seven", f);
    rewind(f);
    wchar_t wide[8];
    EXPECT_EQ(2, fwscanf_s(f, L"%d %ls", &n, wide, 8u));
    EXPECT_EQ(7, n);
    EXPECT_STREQ(L"seven", wide);
    EXPECT_EQ(-1, fwscanf_s(f, L"%d", &n));
    fclose(f);
}

// A line of the time zone dump: nineteen fields in one call.
TEST(Scan, ZdumpLineNineteenFields) {
    char zone[64], uwd[4], umon[4], word[64], lwd[4], lmon[4], abbr[32];
    int uday, uh, um, us, uyear, lday, lh, lm, ls, lyear, isdst, gmtoff;
    const char* line = "Europe/Berlin  Sun Mar 31 00:59:59 2024 UT = Sun Mar 31 01:59:59 2024 CET isdst=0 gmtoff=3600";
    EXPECT_EQ(19, sscanf_s(line, "%s %s %s %d %d:%d:%d %d %s = %s %s %d %d:%d:%d %d %s isdst=%d gmtoff=%d", zone, 64u,
                           uwd, 4u, umon, 4u, &uday, &uh, &um, &us, &uyear, word, 64u, lwd, 4u, lmon, 4u, &lday, &lh,
                           &lm, &ls, &lyear, abbr, 32u, &isdst, &gmtoff));
    EXPECT_EQ(R(0, zone, lmon, ls, abbr, gmtoff), "0|Europe/Berlin|Mar|59|CET|3600");
}

}  // namespace
