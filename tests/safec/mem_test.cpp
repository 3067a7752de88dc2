// Block copy and fill: refusal codes, order of checks, and what a refused
// call leaves in the destination.

#include <gtest/gtest.h>

#include <errno.h>
#include <string.h>

#include "safec/safec.h"

namespace {

TEST(MemCopy, RefusesBadSizeBeforeLookingAtPointers) {
    char dest[8] = "keep";
    EXPECT_EQ(ERANGE, memcpy_s(dest, 0, "x", 1));
    EXPECT_EQ(ERANGE, memcpy_s(nullptr, 0, nullptr, 1));
    EXPECT_EQ(ERANGE, memcpy_s(dest, SAFEC_MEM_MAX + 1, "x", 1));
    EXPECT_EQ(ERANGE, memmove_s(dest, static_cast<size_t>(-1), "x", 1));
    EXPECT_STREQ("keep", dest);
    EXPECT_EQ(EINVAL, memcpy_s(nullptr, 8, "x", 1));
}

TEST(MemCopy, RefusedCopyZeroesWholeDestination) {
    char dest[8];
    memset(dest, 'z', sizeof(dest));
    EXPECT_EQ(EINVAL, memcpy_s(dest, sizeof(dest), nullptr, 1));
    EXPECT_EQ(0, memcmp(dest, "\0\0\0\0\0\0\0\0", 8));

    memset(dest, 'z', sizeof(dest));
    char big[9] = "12345678";
    EXPECT_EQ(ERANGE, memcpy_s(dest, sizeof(dest), big, 9));
    EXPECT_EQ(0, memcmp(dest, "\0\0\0\0\0\0\0\0", 8));

    memset(dest, 'z', sizeof(dest));
    EXPECT_EQ(ERANGE, memmove_s(dest, 4, big, 5));
    EXPECT_EQ(0, memcmp(dest, "\0\0\0\0zzzz", 8)) << "only destsz bytes may be touched";
}

TEST(MemCopy, OverlapRefusedByCopyButMoved) {
    char buf[16] = "abcdefgh";
    EXPECT_EQ(EINVAL, memcpy_s(buf + 2, 6, buf, 4));
    EXPECT_EQ(0, memcmp(buf, "ab\0\0\0\0\0\0", 8));

    char adjacent[8] = "abcdefg";
    EXPECT_EQ(0, memcpy_s(adjacent + 4, 4, adjacent, 4)) << "touching ranges do not overlap";
    EXPECT_EQ(0, memcmp(adjacent, "abcdabcd", 8));

    char move[16] = "abcdefgh";
    EXPECT_EQ(0, memmove_s(move + 2, 6, move, 4));
    EXPECT_STREQ("ababcdgh", move);
    EXPECT_EQ(0, memcpy_s(move, 4, "zz", 0));
    EXPECT_STREQ("ababcdgh", move);
}

TEST(MemSet, ExcessCountFillsDestinationThenRefuses) {
    char buf[8] = "1234567";
    EXPECT_EQ(ERANGE, memset_s(buf, 4, 'a', 6));
    EXPECT_STREQ("aaaa567", buf);
    EXPECT_EQ(0, memset_s(buf, 8, 0, 8));
    EXPECT_EQ(0, memcmp(buf, "\0\0\0\0\0\0\0\0", 8));
    EXPECT_EQ(EINVAL, memset_s(nullptr, 8, 0, 1));
    EXPECT_EQ(ERANGE, memset_s(buf, 0, 0, 0));
    EXPECT_EQ(ERANGE, memset_s(buf, SAFEC_MEM_MAX + 1, 0, 1));
}

TEST(WideMemCopy, CountsElementsNotBytes) {
    wchar_t dest[4] = {L'q', L'q', L'q', L'q'};
    const wchar_t src[4] = {L'a', L'b', L'c', L'd'};
    EXPECT_EQ(0, wmemcpy_s(dest, 4, src, 4));
    EXPECT_EQ(0, wmemcmp(dest, src, 4));
    EXPECT_EQ(ERANGE, wmemcpy_s(dest, 3, src, 4));
    EXPECT_EQ(L'\0', dest[2]);
    EXPECT_EQ(L'd', dest[3]);
    EXPECT_EQ(ERANGE, wmemmove_s(dest, SAFEC_WCHAR_MEM_MAX + 1, src, 1));
}

}  // namespace
