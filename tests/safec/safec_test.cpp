// The bounded routines, a table for copies and formats, one for scans, with
// tokens and streams beside them: codes, check order, exact fits, overlap.

#include <gtest/gtest.h>
#include <locale.h>
#include <string.h>

#include <memory>
#include <sstream>
#include <string>
#include <tuple>

#include "safec/safec.h"

namespace {

std::ostream& operator<<(std::ostream& o, const wchar_t* w) {
    for (; *w != 0; ++w) {
        *w < 0x80 ? o << static_cast<char>(*w) : o << "U+" << std::hex << +*w << std::dec;
    }
    return o;
}
// "result|value|value...", the values read after the call.
template <typename... T>
std::string R(int rc, const T&... values) {
    std::ostringstream o;
    o << rc;
    ((o << '|' << values), ...);
    return o.str();
}

// One call on a buffer holding "abcd", a zero and "fgh", cut to the size the
// expected bytes show so that the address sanitizer sees a write past it.
#define CALL(...) #__VA_ARGS__, [](char* d [[maybe_unused]]) -> int { return __VA_ARGS__; }

void Check(std::initializer_list<std::tuple<const char*, int (*)(char*), const char*>> cases) {
    for (auto [call, run, want] : cases) {
        const size_t size = strlen(strchr(want, ':') + 1);
        std::unique_ptr<char[]> d(new char[size]);
        memcpy(d.get(), "abcd\0fgh", size);
        const int rc = run(d.get());
        std::string got = rc == EINVAL ? "EINVAL:" : rc == ERANGE ? "ERANGE:" : std::to_string(rc) + ":";
        for (size_t i = 0; i < size; i++) {
            got += d[i] == '\0' ? '_' : d[i];
        }
        EXPECT_EQ(got, want) << call;
    }
}

const char* const kNoFormat = nullptr;

TEST(SafeC, CopiesAndFormats) {
    // clang-format off
    Check({
        {CALL(memcpy_s(nullptr, 0, "z", 1)), "ERANGE:abcd_fgh"},  // checks: destsz, dest, src, count
        {CALL(memcpy_s(nullptr, 8, nullptr, 1)), "EINVAL:abcd_fgh"},
        {CALL(memcpy_s(d, 8, nullptr, 9)), "EINVAL:________"},
        {CALL(memmove_s(d, 4, "12345", 5)), "ERANGE:_____fgh"},  // only destsz bytes are zeroed
        {CALL(memcpy_s(d, SAFEC_MEM_MAX + 1, "z", 1)), "ERANGE:abcd_fgh"},
        {CALL(memcpy_s(d, SAFEC_MEM_MAX, "z", 1)), "0:zbcd_fgh"}, {CALL(memcpy_s(d, 8, "12345678", 8)), "0:12345678"},
        {CALL(memcpy_s(d + 2, 6, d, 4)), "EINVAL:ab______"},
        {CALL(memcpy_s(d + 4, 4, d, 4)), "0:abcdabcd"},  // touching ranges do not overlap
        {CALL(memcpy_s(d, 4, d + 4, 4)), "0:_fgh_fgh"}, {CALL(memmove_s(d + 2, 6, d, 4)), "0:ababcdgh"},
        {CALL(memset_s(nullptr, 0, 'x', 0)), "ERANGE:abcd_fgh"},
        {CALL(memset_s(nullptr, 8, 'x', 1)), "EINVAL:abcd_fgh"},
        {CALL(memset_s(d, SAFEC_MEM_MAX, 'x', 1)), "0:xbcd_fgh"}, {CALL(memset_s(d, 8, 'x', 8)), "0:xxxxxxxx"},
        {CALL(memset_s(d, 4, 'x', 6)), "ERANGE:xxxx_fgh"},  // fills destsz, then refuses the excess
        {CALL(strcpy_s(nullptr, 0, nullptr)), "ERANGE:abcd_fgh"},
        {CALL(strcpy_s(nullptr, 4, nullptr)), "EINVAL:abcd_fgh"},
        {CALL(strncpy_s(d, 8, nullptr, SAFEC_MEM_MAX + 1)), "EINVAL:_bcd_fgh"},
        {CALL(strncpy_s(d, 8, "zy", SAFEC_MEM_MAX + 1)), "ERANGE:_bcd_fgh"}, {CALL(strcpy_s(d, 4, "xyz")), "0:xyz_"},
        {CALL(strcpy_s(d, 4, "wxyz")), "ERANGE:_bcd"}, {CALL(strncpy_s(d, SAFEC_MEM_MAX, "zyxwvuts", 3)), "0:zyx__fgh"},
        {CALL(strncpy_s(d, 4, d + 5, 3)), "0:fgh__fgh"},  // nothing read past count: "fgh" ends the buffer
        {CALL(strcpy_s(d + 2, 6, d)), "EINVAL:ab_d_fgh"},
        {CALL(strncpy_s(d + 3, 4, d, 3)), "0:abcabc_h"},  // the source ends where the copy starts
        {CALL(strcat_s(d, 8, "efg")), "0:abcdefg_"}, {CALL(strncat_s(d, 8, "efghij", 4)), "ERANGE:_bcd_fgh"},
        {CALL(strcat_s(d, 8, d + 5)), "EINVAL:_bcd_fgh_"},
        {CALL(strcat_s(d, 4, "x")), "EINVAL:_bcd"},  // no terminator within destsz

        {CALL(snprintf_s(d, SAFEC_MEM_MAX, 3, "%d", 1234)), "-1:123__fgh"},
        {CALL(snprintf_s(d, 8, 8, "%s", "ABCDEFGH")), "-1:ABCDEFG_"},
        {CALL(snprintf_s(d, 8, 0, "%s", "")), "0:_bcd_fgh"}, {CALL(snprintf_s(d, 0, 0, "x")), "-1:abcd_fgh"},
        {CALL(snprintf_s(nullptr, 8, 7, "x")), "-1:abcd_fgh"}, {CALL(snprintf_s(d, 8, 7, kNoFormat)), "-1:_bcd_fgh"},
        {CALL(snprintf_s(d, 8, 7, "%lc", static_cast<wint_t>(0xe9))), "-1:_bcd_fgh"},  // not encodable here
        {CALL(sprintf_s(d, 6, "%s", "ABCDEF")), "-1:_BCDE_"},
    });
    // clang-format on
    wchar_t w[4] = {L'q', L'q', L'q', L'q'};
    EXPECT_EQ(ERANGE, wmemcpy_s(w, 3, L"abcd", 4));  // counted in elements, not bytes
    EXPECT_EQ(std::wstring(w, 4), std::wstring(L"\0\0\0q", 4));
    EXPECT_EQ(R(swprintf_s(w, 4, L"%d", 123), w), "3|123");
    char text[] = ",,a,,bc;d,", other[] = "x y", *ctx = nullptr, *none = nullptr;
    std::string got = strtok_s(text, ",;", &ctx);
    while (char* t = strtok_s(nullptr, ",;", &ctx)) {
        got += std::string("|") + t;
    }
    EXPECT_EQ(R(strtok_s(nullptr, ",;", &ctx) == nullptr, got), "1|a|bc|d");  // and stays finished
    // No delimiters, no context or no text to resume: nothing, and the text left alone.
    EXPECT_TRUE(!strtok_s(other, nullptr, &ctx) && !strtok_s(other, " ", nullptr) && !strtok_s(nullptr, " ", &none));
    EXPECT_STREQ("x y", other);
}

// A scan into fresh variables: texts "qqq", numbers 7.
#define SCAN(...)                                              \
    [] {                                                       \
        [[maybe_unused]] char a[8] = "qqq", b[8] = "qqq";      \
        [[maybe_unused]] wchar_t v[8] = L"qqq", w[8] = L"qqq"; \
        [[maybe_unused]] short h = 7;                          \
        [[maybe_unused]] int i = 7, j = 7, n = 7;              \
        [[maybe_unused]] unsigned u = 7, x = 7;                \
        [[maybe_unused]] long long ll = 7, lm = 7;             \
        [[maybe_unused]] float f = 7;                          \
        [[maybe_unused]] double d = 7, e = 7, g = 7;           \
        [[maybe_unused]] long double l = 7;                    \
        [[maybe_unused]] void* p = nullptr;                    \
        return R(__VA_ARGS__);                                 \
    }

TEST(SafeC, Scans) {
    ASSERT_NE(nullptr, setlocale(LC_CTYPE, "C.UTF-8"));
    const std::pair<std::string (*)(), const char*> cases[] = {
        // A size counts the terminator; a field one too long empties its buffer and ends the scan.
        {SCAN(sscanf_s("abc", "%s", a, 4u), sscanf_s("abcd 5", "%s %d", b, 4u, &i), a, b, i), "1|0|abc||7"},
        {SCAN(sscanf_s(" abc", "%c%2c", a, 1u, b, 2u), a, b), "2| qq|abq"},  // %c: exact, unterminated, no skip
        // Sets: ranges, negation, a leading ']', a trailing '-'.
        {SCAN(sscanf_s("abc=1", "%[a-c]%[^1]", a, 8u, b, 8u), a, b), "2|abc|="},
        {SCAN(sscanf_s("]]a-b]", "%[]]%[^]]", a, 8u, b, 8u), a, b), "2|]]|a-b"},
        {SCAN(sscanf_s("-a-z", "%[a-]", a, 8u), sscanf_s("xyz", "%[a-c]", b, 8u), a, b), "1|0|-a-|qqq"},
        // Integers: bases, signs, prefixes ("0x" without digits is 0, consumed), lengths, saturation.
        {SCAN(sscanf_s("-12 -1 0x1F", "%d %u %x", &i, &u, &x), i, u, x), "3|-12|4294967295|31"},
        {SCAN(sscanf_s("+017 -0X10 778", "%i %i %o", &i, &j, &u), i, j, u), "3|15|-16|63"},
        {SCAN(sscanf_s("0xg 0x7f00", "%x%c %p", &x, a, 1u, &p), x, a, p), "3|0|gqq|0x7f00"},
        {SCAN(sscanf_s("321 -2 -5000000000", "%hhu %hd %lld", a, &h, &ll), a, h, ll), "3|Aqq|-2|-5000000000"},
        {SCAN(sscanf_s("99999999999999999999 -99999999999999999999", "%lld %lld", &ll, &lm), ll, lm),
         "2|9223372036854775807|-9223372036854775808"},
        // Floats: decimal, hex, inf, nan, widths; a prefix of a number ("1e+") is not one.
        {SCAN(sscanf_s("1.5 -2e3 0x1p4 12.75", "%f %lf %Lg %3lf%lf", &f, &d, &l, &e, &g), f, d, l, e, g),
         "5|1.5|-2000|16|12|75"},
        {SCAN(sscanf_s("NaN(0a9zAZ_) inf -Infinity", "%lg %lf %le", &d, &e, &g), d, e, g), "3|nan|inf|-inf"},
        // Literals, %%, %n (not a field); the count so far, EOF when nothing converted yet, else 0.
        {SCAN(sscanf_s("a=1, b = 2 %", "a=%d, b = %d %%%n", &i, &j, &n), i, j, n), "2|1|2|12"},
        {SCAN(sscanf_s("abc", "%*3c%n", &n), n, sscanf_s("5", "%d %d", &i, &j)), "0|3|1"},
        {SCAN(sscanf_s("", "%d", &i), sscanf_s("", "p=%d", &i), sscanf_s(" \n", "%*s%d", &i),
              sscanf_s("ab", "%3c", a, 3u), sscanf_s(nullptr, "%d", &i), sscanf_s("1", nullptr)),
         "-1|-1|-1|-1|-1|-1"},
        {SCAN(sscanf_s("x", "p=%d", &i), sscanf_s("a", "%*s %d", &i), sscanf_s("1e+", "%lf", &d),
              sscanf_s("1", "%y", &i), sscanf_s("abc", "%[abc", a, 8u), sscanf_s("-x", "%d", &i)),
         "0|0|0|0|0|0"},
        // Wide and multibyte text through the locale; a character is stored whole or not at all.
        {SCAN(swscanf_s(L"ab cd k=v", L"%ls %s %l[^=]", v, 8u, a, 8u, w, 8u), v, a, w), "3|ab|cd|k"},
        {SCAN(swscanf_s(L"a\u00e9", L"%s", a, 3u), swscanf_s(L"\u00e9", L"%s", b, 3u), a, b), "0|1||\xc3\xa9"},
        {SCAN(sscanf_s("xyz \xc3\xa9", "%ls %ls", v, 8u, w, 2u), v, w), "2|xyz|U+e9"},
        {SCAN(sscanf_s("\xc3", "%ls", v, 2u), sscanf_s("a\xff", "%ls", w, 2u), v, w), "0|0||"},  // cut, invalid
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.first(), c.second);
    }
    FILE* f = fmemopen(const_cast<char*>("pid=2 level=x"), 13, "r");
    unsigned pid = 0, level = 0;
    EXPECT_EQ(R(fscanf_s(f, "pid=%u level=%u", &pid, &level), pid), "1|2");
    EXPECT_EQ('x', fgetc(f)) << "a stream keeps its place after the last character consumed";
    EXPECT_EQ(R(fscanf_s(f, "%u", &pid), fscanf_s(nullptr, "%u", &pid)), "-1|-1");
    fclose(f);
    wchar_t wide[8];
    f = tmpfile();  // memory streams and pipes have no wide orientation
    fputws(L"pid=7 seven", f);
    rewind(f);
    EXPECT_EQ(R(fwscanf_s(f, L"pid=%u %ls", &pid, wide, 8u), pid, wide), "2|7|seven");
    fclose(f);

    setlocale(LC_CTYPE, "C");
}

}  // namespace
