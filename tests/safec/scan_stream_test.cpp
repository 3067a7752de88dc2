// fscanf_s and the wide scanners: the stream keeps its position after the
// last consumed character, and wide text converts to and from narrow.

#include <gtest/gtest.h>

#include <locale.h>
#include <stdio.h>
#include <string.h>

#include "safec/safec.h"

namespace {

FILE* StreamWith(const char* text) {
    FILE* f = tmpfile();
    if (f == nullptr) return nullptr;
    fputs(text, f);
    rewind(f);
    return f;
}

TEST(ScanStream, ReadsRecordsAndPushesBackOneCharacter) {
    FILE* f = StreamWith("pid=1 level=3\npid=2 level=x\n");
    ASSERT_NE(nullptr, f);
    unsigned pid = 0, level = 0;
    EXPECT_EQ(2, fscanf_s(f, "pid=%u level=%u\n", &pid, &level));
    EXPECT_EQ(3u, level);
    EXPECT_EQ(1, fscanf_s(f, "pid=%u level=%u\n", &pid, &level));
    EXPECT_EQ(2u, pid);
    EXPECT_EQ('x', fgetc(f)) << "the mismatching character stays in the stream";
    char word[4];
    EXPECT_EQ(-1, fscanf_s(f, "%s", word, 4u)) << "only white space left";
    EXPECT_EQ(-1, fscanf_s(nullptr, "%s", word, 4u));
    fclose(f);
}

TEST(ScanStream, TooLongFieldEmptiesBuffer) {
    FILE* f = StreamWith("abcdef 12");
    ASSERT_NE(nullptr, f);
    char word[4] = "zz";
    int n = 0;
    EXPECT_EQ(0, fscanf_s(f, "%s %d", word, 4u, &n));
    EXPECT_STREQ("", word);
    fclose(f);
}

TEST(WideScan, StringsStoreWideOrNarrowByLength) {
    wchar_t wide[8];
    char narrow[8];
    int n = 0;
    EXPECT_EQ(3, swscanf_s(L"ab cd 42", L"%ls %s %d", wide, 8u, narrow, 8u, &n));
    EXPECT_STREQ(L"ab", wide);
    EXPECT_STREQ("cd", narrow);
    EXPECT_EQ(42, n);
    EXPECT_EQ(0, swscanf_s(L"abcdefgh", L"%ls", wide, 8u));
    EXPECT_STREQ(L"", wide);
    EXPECT_EQ(1, swscanf_s(L"k=v", L"%l[^=]", wide, 8u));
    EXPECT_STREQ(L"k", wide);
    EXPECT_EQ(-1, swscanf_s(L"", L"%d", &n));

    EXPECT_EQ(1, sscanf_s("xyz", "%ls", wide, 8u));
    EXPECT_STREQ(L"xyz", wide);
}

TEST(WideScan, MultibyteConversionNeedsRoomForWholeCharacter) {
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

TEST(WideScan, StreamForm) {
    FILE* f = tmpfile();
    ASSERT_NE(nullptr, f);
    fputws(L"7 seven", f);
    rewind(f);
    int n = 0;
    wchar_t word[8];
    EXPECT_EQ(2, fwscanf_s(f, L"%d %ls", &n, word, 8u));
    EXPECT_EQ(7, n);
    EXPECT_STREQ(L"seven", word);
    EXPECT_EQ(-1, fwscanf_s(f, L"%d", &n));
    fclose(f);
}

}  // namespace
