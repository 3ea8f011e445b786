// Copies, comparisons and searches. Where they agree with the C library on purpose they are compared with it
// over a generated set; where they differ on purpose a case of its own says so.
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <strings.h>

#include <gtest/gtest.h>

#include "string/string_inter.h"

namespace {

TEST(Copies, FillCutAndLimit) {
    char szOut[8];
    std::memset(szOut, '#', sizeof szOut);
    EXPECT_EQ(VYX_Strncpy(szOut, "ab", 5), szOut);
    EXPECT_EQ(std::string(szOut, 8), std::string("ab\0\0\0###", 8));
    EXPECT_EQ(VYX_Strncpy(szOut, "abcdef", 3), szOut);
    EXPECT_EQ(std::string(szOut, 8), std::string("abc\0\0###", 8));
    for (int32_t iCount : {0, -1, INT32_MIN})
        EXPECT_EQ(VYX_Strncpy(szOut, "xyz", iCount), szOut);
    EXPECT_STREQ(szOut, "abc");
    EXPECT_STREQ(VYX_Strcpy(szOut, "seven77"), "seven77");

    const struct {
        int32_t iLimit;
        const char *szExpected;
    } cases[] = {{0, ""},       {3, "hel"},          {5, "hello"}, {INT32_MAX, "hello"},
                 {-1, nullptr}, {INT32_MIN, nullptr}};
    for (const auto &c : cases) {
        char *szCopy = VYX_Strndup("hello", c.iLimit);
        EXPECT_STREQ(szCopy, c.szExpected) << c.iLimit;
        std::free(szCopy);
    }
    char *szCopy = VYX_Strdup("");
    EXPECT_STREQ(szCopy, "");
    std::free(szCopy);
}

int Sign(int i) {
    return (i > 0) - (i < 0);
}

// Texts over few letters, so that prefixes are often equal; lengths around the stretches that are compared at once.
std::string Random(std::mt19937 &random) {
    std::string text(random() % 3 == 0 ? random() % 200 : random() % 20, 'a');
    for (size_t i = text.size() < 5 ? 0 : text.size() - 5; i < text.size(); ++i)
        text[i] = "aAbB\xC4z"[random() % 6];
    return text;
}

TEST(Comparisons, AgreeWithTheCLibraryInSignAndAreByteDifferences) {
    std::mt19937 random(1);
    for (int i = 0; i < 300000; ++i) {
        const std::string a = Random(random);
        const std::string b = Random(random);
        const size_t nCount = random() % 210;
        size_t nSame = 0;
        while (nSame < a.size() && a[nSame] == b.c_str()[nSame])
            ++nSame;
        const int iDifference =
            static_cast<unsigned char>(a.c_str()[nSame]) - static_cast<unsigned char>(b.c_str()[nSame]);
        ASSERT_EQ(VYX_Strcmp(a.c_str(), b.c_str()), iDifference);
        ASSERT_EQ(VYX_Strncmp(a.c_str(), b.c_str(), static_cast<uint32_t>(nCount)),
                  nSame < nCount ? iDifference : 0);
        ASSERT_EQ(VYX_CompareBySign_Inter(a.c_str(), b.c_str(), nCount), nSame < nCount ? iDifference : 0);
        ASSERT_EQ(Sign(VYX_Strcasecmp(a.c_str(), b.c_str())), Sign(strcasecmp(a.c_str(), b.c_str())));
        size_t nFolded = nSame; // as far as the texts are the same but for case
        const auto fold = [&](const std::string &text) {
            return std::toupper(static_cast<unsigned char>(text.c_str()[nFolded]));
        };
        while (nFolded < a.size() && fold(a) == fold(b))
            ++nFolded;
        ASSERT_EQ(VYX_Strcasecmp(a.c_str(), b.c_str()), fold(a) - fold(b));
        ASSERT_EQ(VYX_Strncasecmp(a.c_str(), b.c_str(), static_cast<int32_t>(nCount)),
                  nFolded < nCount ? fold(a) - fold(b) : 0);
        ASSERT_EQ(Sign(VYX_Strncasecmp(a.c_str(), b.c_str(), static_cast<int32_t>(nCount))),
                  Sign(strncasecmp(a.c_str(), b.c_str(), nCount)));
    }
    EXPECT_GT(strcasecmp("a", "_"), 0) << "the C library folds downwards, where an underscore comes first";
    EXPECT_EQ(VYX_Strcasecmp("_", "a"), '_' - 'A') << "folded upwards: an underscore comes after the letters";
}

TEST(Comparisons, NegativeCountComparesOneByte) {
    EXPECT_EQ(VYX_Strncasecmp("Abc", "aBD", 2), 0);
    EXPECT_EQ(VYX_Strncasecmp("Abc", "aBD", -1), 0);
    EXPECT_EQ(VYX_Strncasecmp("x", "y", -5), -1);
    EXPECT_EQ(VYX_Strncasecmp("x", "y", 0), 0);
}

TEST(Searches, TheTerminatorIsFoundInAnEmptyTextOnly) {
    const char *szText = "abc";
    EXPECT_EQ(VYX_Strchr(szText, 0), nullptr);
    EXPECT_EQ(VYX_Strchr(szText + 3, 0), szText + 3);
    EXPECT_EQ(VYX_Strchr(szText, 'c'), szText + 2);
    EXPECT_EQ(VYX_Strchr(szText, 'd'), nullptr);
}

TEST(Searches, CountsOfBytes) {
    const char szBytes[] = "a\0b";
    EXPECT_EQ(VYX_Strnchr(szBytes, 'b', 3), szBytes + 2);
    EXPECT_EQ(VYX_Strnchr(szBytes, 'b', 2), nullptr);
    EXPECT_EQ(VYX_Strnchr(szBytes, 'a', 0), nullptr);
    EXPECT_EQ(VYX_Strnchr(szBytes, 'a', -1), nullptr);
    const char *szText = "hello";
    const struct {
        const char *szNeedle;
        int32_t iLength;
        int iAt; // -1: not found
    } cases[] = {{"lox", 2, 3}, {"hello", 5, 0}, {"hellox", 6, -1}, {"x", 0, 0},
                 {"h", -1, -1}, {"o", 1, 4},     {"ll", 2, 2}};
    for (const auto &c : cases)
        EXPECT_EQ(VYX_Strnstr(szText, c.szNeedle, c.iLength), c.iAt < 0 ? nullptr : szText + c.iAt)
            << c.szNeedle;
}

TEST(Searches, CaseFoldedSearchAgreesWithTheCLibrary) {
    std::mt19937 random(2);
    for (int i = 0; i < 200000; ++i) {
        const std::string text = Random(random);
        std::string needle = Random(random).substr(0, random() % 4);
        ASSERT_EQ(VYX_Strcasestr(text.c_str(), needle.c_str()), strcasestr(text.c_str(), needle.c_str()))
            << text << needle;
        ASSERT_EQ(VYX_Strstr(text.c_str(), needle.c_str()), std::strstr(text.c_str(), needle.c_str()));
    }
}

TEST(StringClass, ForwardsToTheCLibrary) {
    char szOut[16] = "";
    EXPECT_STREQ(vyx::vyx_string::strcat(vyx::vyx_string::strcpy(szOut, "ab"), szOut + 3), "ab");
    EXPECT_STREQ(vyx::vyx_string::itoa(szOut, -7, 10), "-7");
    EXPECT_EQ(vyx::vyx_string::itoa(szOut, 7, 1), nullptr);
    EXPECT_EQ(vyx::vyx_string::atoi(" 12x"), 12);
    EXPECT_EQ(vyx::vyx_string::strlen("abc"), 3U);
    EXPECT_EQ(vyx::vyx_string::strchr(szOut, 0), szOut + 2) << "the C library's own rule";
    EXPECT_EQ(vyx::vyx_string::strrchr("xax", 'x')[1], '\0');
    EXPECT_STREQ(vyx::vyx_string::strstr("hello", "ll"), "llo");
    EXPECT_EQ(vyx::vyx_string::strncasecmp("AB", "ac", 1), 0);
    EXPECT_LT(vyx::vyx_string::strcasecmp("AB", "ac"), 0);
    EXPECT_LT(vyx::vyx_string::strcmp("AB", "ab"), 0);
    EXPECT_EQ(std::string(vyx::vyx_string::strncpy(szOut, "q", 3), 3), std::string("q\0\0", 3));
}

} // namespace
