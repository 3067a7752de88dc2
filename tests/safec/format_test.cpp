// Bounded formatting: the count/destsz limit, -1 on truncation with the
// cut text kept (snprintf_s) or dropped (sprintf_s), and bad arguments.

#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include "safec/safec.h"

namespace {

TEST(Snprintf, CutsAtCountAndKeepsTerminatedText) {
    const std::string text(2000, 'r');
    char reason[1024];
    EXPECT_EQ(-1, snprintf_s(reason, sizeof(reason), sizeof(reason) - 1, "%s", text.c_str()));
    EXPECT_EQ(1023u, strlen(reason));
    EXPECT_EQ(std::string(1023, 'r'), reason);

    char small[8];
    EXPECT_EQ(3, snprintf_s(small, sizeof(small), 3, "%d", 123));
    EXPECT_STREQ("123", small);
    EXPECT_EQ(-1, snprintf_s(small, sizeof(small), 3, "%d", 1234));
    EXPECT_STREQ("123", small);
    EXPECT_EQ(7, snprintf_s(small, sizeof(small), 100, "%s", "abcdefg")) << "count above destsz-1 is capped";
    EXPECT_EQ(-1, snprintf_s(small, sizeof(small), 100, "%s", "abcdefgh"));
    EXPECT_STREQ("abcdefg", small);
    EXPECT_EQ(-1, snprintf_s(small, sizeof(small), 0, "x"));
    EXPECT_STREQ("", small);
    EXPECT_EQ(0, snprintf_s(small, sizeof(small), 0, "%s", ""));
}

TEST(Snprintf, BadArgumentsEmptyUsableDestination) {
    char dest[8] = "old";
    EXPECT_EQ(-1, snprintf_s(dest, 0, 0, "x"));
    EXPECT_STREQ("old", dest);
    EXPECT_EQ(-1, snprintf_s(dest, SAFEC_STRING_MAX + 1, 3, "x"));
    EXPECT_STREQ("old", dest);
    EXPECT_EQ(-1, snprintf_s(nullptr, 8, 7, "x"));
    const char* noFormat = nullptr;
    EXPECT_EQ(-1, snprintf_s(dest, sizeof(dest), 7, noFormat));
    EXPECT_STREQ("", dest);
}

TEST(Sprintf, TruncationEmptiesDestination) {
    char dest[6];
    EXPECT_EQ(5, sprintf_s(dest, sizeof(dest), "%05u", 42u));
    EXPECT_STREQ("00042", dest);
    EXPECT_EQ(-1, sprintf_s(dest, sizeof(dest), "%s", "abcdef"));
    EXPECT_STREQ("", dest);
    EXPECT_EQ(-1, sprintf_s(dest, 0, "x"));
}

TEST(Swprintf, WideFollowsSprintfRules) {
    wchar_t dest[6];
    EXPECT_EQ(5, swprintf_s(dest, 6, L"%ls%d", L"ab", 123));
    EXPECT_STREQ(L"ab123", dest);
    EXPECT_EQ(-1, swprintf_s(dest, 6, L"%ls", L"abcdef"));
    EXPECT_STREQ(L"", dest);
    EXPECT_EQ(-1, swprintf_s(nullptr, 6, L"x"));
    EXPECT_EQ(-1, swprintf_s(dest, 0, L"x"));
}

}  // namespace
