// String copy, append and tokenising, narrow and wide: refusal codes, the
// empty destination left by a refusal, and the exact-fit boundaries.

#include <gtest/gtest.h>

#include <errno.h>
#include <string.h>

#include "safec/safec.h"

namespace {

TEST(StrCopy, FitsExactlyOrRefusesWithEmptyDestination) {
    char dest[4] = "old";
    EXPECT_EQ(0, strcpy_s(dest, 4, "abc"));
    EXPECT_STREQ("abc", dest);
    EXPECT_EQ(ERANGE, strcpy_s(dest, 4, "abcd"));
    EXPECT_STREQ("", dest);

    strcpy(dest, "old");
    EXPECT_EQ(EINVAL, strcpy_s(dest, 4, nullptr));
    EXPECT_STREQ("", dest);
    EXPECT_EQ(EINVAL, strcpy_s(nullptr, 4, "a"));

    strcpy(dest, "old");
    EXPECT_EQ(ERANGE, strcpy_s(dest, 0, "a"));
    EXPECT_EQ(ERANGE, strcpy_s(dest, SAFEC_STRING_MAX + 1, "a"));
    EXPECT_STREQ("old", dest) << "an unusable size must not be written through";
}

TEST(StrCopy, OverlapIsRefused) {
    char buf[16] = "abcdef";
    EXPECT_EQ(EINVAL, strcpy_s(buf + 2, 8, buf));
    EXPECT_EQ('\0', buf[2]);
    char same[8] = "abc";
    EXPECT_EQ(EINVAL, strcpy_s(same, 8, same));
    EXPECT_STREQ("", same);
}

TEST(StrNCopy, CopiesAtMostCountAndTerminates) {
    char dest[8];
    memset(dest, 'z', sizeof(dest));
    EXPECT_EQ(0, strncpy_s(dest, sizeof(dest), "abcdefghijk", 3));
    EXPECT_STREQ("abc", dest);
    EXPECT_EQ(0, strncpy_s(dest, sizeof(dest), "abcdefghijk", 7));
    EXPECT_STREQ("abcdefg", dest);
    EXPECT_EQ(ERANGE, strncpy_s(dest, sizeof(dest), "abcdefghijk", 8));
    EXPECT_STREQ("", dest);
    EXPECT_EQ(0, strncpy_s(dest, sizeof(dest), "ab", 100));
    EXPECT_STREQ("ab", dest);
    EXPECT_EQ(0, strncpy_s(dest, sizeof(dest), "ab", 0));
    EXPECT_STREQ("", dest);
    EXPECT_EQ(ERANGE, strncpy_s(dest, sizeof(dest), "ab", SAFEC_STRING_MAX + 1));

    // A count that cuts the source short must not read the source's
    // unterminated remainder.
    const char unterminated[3] = {'x', 'y', 'z'};
    EXPECT_EQ(0, strncpy_s(dest, sizeof(dest), unterminated, 3));
    EXPECT_STREQ("xyz", dest);
    char buf[8] = "abcdef";
    EXPECT_EQ(0, strncpy_s(buf + 3, 4, buf, 3)) << "source ends where the copy starts";
    EXPECT_STREQ("abcabc", buf);
}

TEST(StrCat, AppendsWithinSizeOrEmpties) {
    char dest[8] = "abc";
    EXPECT_EQ(0, strcat_s(dest, sizeof(dest), "defg"));
    EXPECT_STREQ("abcdefg", dest);
    EXPECT_EQ(ERANGE, strcat_s(dest, sizeof(dest), "h"));
    EXPECT_STREQ("", dest);

    strcpy(dest, "abc");
    EXPECT_EQ(0, strncat_s(dest, sizeof(dest), "defghij", 2));
    EXPECT_STREQ("abcde", dest);
    EXPECT_EQ(ERANGE, strncat_s(dest, sizeof(dest), "xyz", 3));
    EXPECT_STREQ("", dest);

    char unterminated[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ(EINVAL, strcat_s(unterminated, sizeof(unterminated), "x"));
    EXPECT_EQ('\0', unterminated[0]);

    char self[16] = "abc";
    EXPECT_EQ(EINVAL, strcat_s(self, sizeof(self), self + 1));
    EXPECT_STREQ("", self);
    EXPECT_EQ(EINVAL, strcat_s(dest, sizeof(dest), nullptr));
    EXPECT_EQ(ERANGE, strcat_s(dest, 0, "x"));
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
    EXPECT_EQ(nullptr, strtok_s(other, nullptr, &ctx));
    EXPECT_EQ(nullptr, strtok_s(other, " ", nullptr));
    char* none = nullptr;
    EXPECT_EQ(nullptr, strtok_s(nullptr, " ", &none));
    EXPECT_STREQ("x y", other) << "refused calls leave the text alone";
}

TEST(WideStr, SameRulesCountedInElements) {
    wchar_t dest[4];
    EXPECT_EQ(0, wcsncpy_s(dest, 4, L"abcdef", 2));
    EXPECT_EQ(0, wcscat_s(dest, 4, L"c"));
    EXPECT_STREQ(L"abc", dest);
    EXPECT_EQ(ERANGE, wcsncat_s(dest, 4, L"de", 1));
    EXPECT_STREQ(L"", dest);
    EXPECT_EQ(ERANGE, wcscpy_s(dest, SAFEC_WCHAR_STRING_MAX + 1, L"a"));

    wchar_t text[] = L"k=v";
    wchar_t* ctx = nullptr;
    EXPECT_STREQ(L"k", wcstok_s(text, L"=", &ctx));
    EXPECT_STREQ(L"v", wcstok_s(nullptr, L"=", &ctx));
}

}  // namespace
