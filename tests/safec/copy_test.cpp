// Bounded copy, fill, append, tokenising and formatting, narrow and wide:
// result codes, the order of the checks, the exact-fit boundaries and what a
// refused call leaves in the destination.

#include <errno.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <memory>
#include <string>

#include "safec/safec.h"

namespace {

std::string Code(int rc) { return rc == EINVAL ? "EINVAL" : rc == ERANGE ? "ERANGE" : std::to_string(rc); }

// One call on a buffer of `size` bytes prepared by the test, `d` in the text
// of the call; the buffer is no larger than the call may use, so a write past
// it shows under the address sanitizer.
struct Case {
    const char* call;
    int (*run)(char* d);
    const char* want;
    size_t size = 16;
};
#define CALL(...) #__VA_ARGS__, [](char* d [[maybe_unused]]) -> int { return __VA_ARGS__; }

// The buffer holds "abcdefgh" before each call; the result is the code and
// the eight bytes after it, a zero byte shown as '_'.
TEST(MemCopy, CodesCheckOrderOverlapAndWhatARefusalZeroes) {
    // clang-format off
    const Case cases[] = {
        {CALL(memcpy_s(d, 0, "x", 1)), "ERANGE:abcdefgh"},
        {CALL(memcpy_s(nullptr, 0, nullptr, 1)), "ERANGE:abcdefgh"},  // the size is looked at first
        {CALL(memcpy_s(d, SAFEC_MEM_MAX + 1, "x", 1)), "ERANGE:abcdefgh"},
        {CALL(memmove_s(d, SIZE_MAX, "x", 1)), "ERANGE:abcdefgh"},
        {CALL(memcpy_s(nullptr, 8, "x", 1)), "EINVAL:abcdefgh"},
        {CALL(memcpy_s(d, 8, nullptr, 1)), "EINVAL:________"},
        {CALL(memcpy_s(d, 8, "123456789", 9)), "ERANGE:________"},
        {CALL(memmove_s(d, 4, "12345", 5)), "ERANGE:____efgh"},  // only destsz bytes are touched
        {CALL(memcpy_s(d + 2, 6, d, 4)), "EINVAL:ab______"},
        {CALL(memcpy_s(d + 4, 4, d, 4)), "0:abcdabcd"},  // touching ranges do not overlap
        {CALL(memmove_s(d + 2, 6, d, 4)), "0:ababcdgh"},
        {CALL(memcpy_s(d, 4, "zz", 0)), "0:abcdefgh"},
        {CALL(memset_s(d, 4, 'x', 6)), "ERANGE:xxxxefgh"},  // fills destsz, then refuses the excess
        {CALL(memset_s(d, 8, 0, 8)), "0:________"},
        {CALL(memset_s(nullptr, 8, 0, 1)), "EINVAL:abcdefgh"},
        {CALL(memset_s(d, 0, 0, 0)), "ERANGE:abcdefgh"},
        {CALL(memset_s(d, SAFEC_MEM_MAX + 1, 0, 1)), "ERANGE:abcdefgh"},
    };
    // clang-format on
    for (const Case& c : cases) {
        char d[8];
        memcpy(d, "abcdefgh", 8);
        std::string got = Code(c.run(d)) + ":";
        got.append(d, 8);
        for (char& ch : got) ch = ch == '\0' ? '_' : ch;
        EXPECT_EQ(got, c.want) << c.call;
    }

    wchar_t dest[4] = {L'q', L'q', L'q', L'q'};
    const wchar_t src[4] = {L'a', L'b', L'c', L'd'};
    EXPECT_EQ(0, wmemcpy_s(dest, 4, src, 4));
    EXPECT_EQ(0, wmemcmp(dest, src, 4));
    EXPECT_EQ(ERANGE, wmemcpy_s(dest, 3, src, 4));  // counted in elements, not bytes
    EXPECT_EQ(0, wmemcmp(dest, L"\0\0\0d", 4));
    EXPECT_EQ(ERANGE, wmemmove_s(dest, SAFEC_WCHAR_MEM_MAX + 1, src, 1));
}

// The buffer holds "abcdef" (cut to fit) before each call; the result is the
// code and the text the buffer then holds.
TEST(StrCopy, CodesBoundariesOverlapAndTheEmptiedDestination) {
    static const char unterminated[3] = {'x', 'y', 'z'};
    static const char* const noFormat = nullptr;
    // clang-format off
    const Case cases[] = {
        {CALL(strcpy_s(d, 4, "xyz")), "0:xyz", 4},
        {CALL(strcpy_s(d, 4, "wxyz")), "ERANGE:", 4},
        {CALL(strcpy_s(d, 4, nullptr)), "EINVAL:", 4},
        {CALL(strcpy_s(nullptr, 4, "a")), "EINVAL:abcdef"},
        {CALL(strcpy_s(d, 0, "a")), "ERANGE:abcdef"},  // an unusable size is not written through
        {CALL(strcpy_s(d, SAFEC_STRING_MAX + 1, "a")), "ERANGE:abcdef"},
        {CALL(strcpy_s(d + 2, 8, d)), "EINVAL:ab"},
        {CALL(strcpy_s(d, 8, d)), "EINVAL:", 8},
        {CALL(strncpy_s(d, 8, "zyxwvutsrq", 3)), "0:zyx", 8},
        {CALL(strncpy_s(d, 8, "zyxwvutsrq", 7)), "0:zyxwvut", 8},
        {CALL(strncpy_s(d, 8, "zyxwvutsrq", 8)), "ERANGE:", 8},
        {CALL(strncpy_s(d, 8, "zy", 100)), "0:zy", 8},
        {CALL(strncpy_s(d, 8, "zy", 0)), "0:", 8},
        {CALL(strncpy_s(d, 8, "zy", SAFEC_STRING_MAX + 1)), "ERANGE:", 8},
        {CALL(strncpy_s(d, 8, unterminated, 3)), "0:xyz", 8},  // nothing read past count
        {CALL(strncpy_s(d + 3, 4, d, 3)), "0:abcabc"},      // the source ends where the copy starts
        {CALL(strcat_s(d, 8, "g")), "0:abcdefg", 8},
        {CALL(strcat_s(d, 8, "gh")), "ERANGE:", 8},
        {CALL(strncat_s(d, 8, "ghij", 1)), "0:abcdefg", 8},
        {CALL(strncat_s(d, 8, "xyz", 2)), "ERANGE:", 8},
        {CALL(strcat_s(d, 16, d + 1)), "EINVAL:"},
        {CALL(strcat_s(d, 8, nullptr)), "EINVAL:", 8},
        {CALL(strcat_s(d, 0, "x")), "ERANGE:abcdef"},
        // Formatting: at most min(count, destsz - 1) characters; a cut keeps
        // its text with snprintf_s and empties the destination with sprintf_s.
        {CALL(snprintf_s(d, 8, 3, "%d", 123)), "3:123", 8},
        {CALL(snprintf_s(d, 8, 3, "%d", 1234)), "-1:123", 8},
        {CALL(snprintf_s(d, 8, 100, "%s", "ABCDEFG")), "7:ABCDEFG", 8},
        {CALL(snprintf_s(d, 8, 100, "%s", "ABCDEFGH")), "-1:ABCDEFG", 8},
        {CALL(snprintf_s(d, 8, 0, "x")), "-1:", 8},
        {CALL(snprintf_s(d, 8, 0, "%s", "")), "0:", 8},
        {CALL(snprintf_s(d, 0, 0, "x")), "-1:abcdef", 8},
        {CALL(snprintf_s(d, SAFEC_STRING_MAX + 1, 3, "x")), "-1:abcdef"},
        {CALL(snprintf_s(nullptr, 8, 7, "x")), "-1:abcdef"},
        {CALL(snprintf_s(d, 8, 7, noFormat)), "-1:", 8},
        {CALL(sprintf_s(d, 6, "%05u", 42u)), "5:00042", 6},
        {CALL(sprintf_s(d, 6, "%s", "ABCDEF")), "-1:", 6},
        {CALL(sprintf_s(d, 0, "x")), "-1:abcde", 6},
    };
    // clang-format on
    for (const Case& c : cases) {
        std::unique_ptr<char[]> d(new char[c.size]);
        snprintf(d.get(), c.size, "abcdef");
        EXPECT_EQ(Code(c.run(d.get())) + ":" + d.get(), c.want) << c.call;
    }
    char full[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(EINVAL, strcat_s(full, sizeof(full), "x")) << "no terminator within destsz";
    EXPECT_EQ('\0', full[0]);
    const std::string text(2000, 'r');
    char reason[1024];
    EXPECT_EQ(-1, snprintf_s(reason, sizeof(reason), sizeof(reason) - 1, "%s", text.c_str()));
    EXPECT_EQ(std::string(1023, 'r'), reason);
}

TEST(WideStr, SameRulesCountedInElements) {
    wchar_t dest[6];
    EXPECT_EQ(0, wcsncpy_s(dest, 4, L"abcdef", 2));
    EXPECT_EQ(0, wcscat_s(dest, 4, L"c"));
    EXPECT_STREQ(L"abc", dest);
    EXPECT_EQ(ERANGE, wcsncat_s(dest, 4, L"de", 1));
    EXPECT_STREQ(L"", dest);
    EXPECT_EQ(ERANGE, wcscpy_s(dest, SAFEC_WCHAR_STRING_MAX + 1, L"a"));
    EXPECT_EQ(5, swprintf_s(dest, 6, L"%ls%d", L"ab", 123));
    EXPECT_STREQ(L"ab123", dest);
    EXPECT_EQ(-1, swprintf_s(dest, 6, L"%ls", L"abcdef"));
    EXPECT_STREQ(L"", dest);
    EXPECT_EQ(-1, swprintf_s(nullptr, 6, L"x"));
    EXPECT_EQ(-1, swprintf_s(dest, 0, L"x"));

    wchar_t text[] = L"k=v";
    wchar_t* ctx = nullptr;
    EXPECT_STREQ(L"k", wcstok_s(text, L"=", &ctx));
    EXPECT_STREQ(L"v", wcstok_s(nullptr, L"=", &ctx));
}

TEST(StrTok, SplitsLikeStrtokR) {
    char text[] = ",,a,,bc;d,";
    char* ctx = nullptr;
    EXPECT_STREQ("a", strtok_s(text, ",;", &ctx));
    EXPECT_STREQ("bc", strtok_s(nullptr, ",;", &ctx));
    EXPECT_STREQ("d", strtok_s(nullptr, ",;", &ctx));
    EXPECT_EQ(nullptr, strtok_s(nullptr, ",;", &ctx));
    EXPECT_EQ(nullptr, strtok_s(nullptr, ",;", &ctx)) << "stays finished";

    char other[] = "x y";
    char* none = nullptr;
    EXPECT_EQ(nullptr, strtok_s(other, nullptr, &ctx));
    EXPECT_EQ(nullptr, strtok_s(other, " ", nullptr));
    EXPECT_EQ(nullptr, strtok_s(nullptr, " ", &none));
    EXPECT_STREQ("x y", other) << "refused calls leave the text alone";
}

}  // namespace
