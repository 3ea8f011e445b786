// Copies, comparisons and searches: what is odd in rows, the rest over random texts, against the C library where
// both agree on purpose and against plain loops otherwise.
//
// In place of the platform's: case tables in which some bytes fold one way only, the functions behind them, and a memmem
// that finds nothing with an empty needle, as Darwin's. The functions reach the library only if the C library's header
// has them not inline: __NO_CTYPE, which the GNU C++ library always sets, and the preset for libc++ as well.
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <strings.h>
#include <sys/mman.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "string/string_inter.h"

namespace {

size_t s_nFolded = 0;  // calls of toupper and tolower
bool s_bTables = true; // the platform has tables
int32_t s_upper[256];
int32_t s_lower[256];

void Fold(int32_t *pTable, unsigned char byFrom, int32_t iTo) {
    pTable[byFrom] = iTo;
}

const bool s_bFilled = [] {
    for (int i = 0; i < 256; ++i) {
        s_upper[i] = i >= 'a' && i <= 'z' ? i - 32 : i;
        s_lower[i] = i >= 'A' && i <= 'Z' ? i + 32 : i;
    }
    Fold(s_lower, '!', 'q'); // a third byte that is q in lower case only
    Fold(s_upper, '"', 'Z'); // a third byte that is Z in upper case only
    Fold(s_lower, '#', '$');
    Fold(s_upper, '%', '&');
    return true;
}();

int Upper(char c) {
    return s_upper[static_cast<unsigned char>(c)];
}

int Lower(char c) {
    return s_lower[static_cast<unsigned char>(c)];
}

} // namespace

extern "C" {
const int32_t *VYX_UpperTable_Inter() {
    return s_bTables ? s_upper : nullptr;
}
const int32_t *VYX_LowerTable_Inter() {
    return s_bTables ? s_lower : nullptr;
}
int toupper(int c) noexcept {
    ++s_nFolded;
    return s_upper[c];
}
int tolower(int c) noexcept {
    ++s_nFolded;
    return s_lower[c];
}
void *memmem(const void *pText, size_t nText, const void *pNeedle, size_t nNeedle) noexcept {
    if (nText == 0 || nNeedle == 0)
        return nullptr;
    const std::string text(static_cast<const char *>(pText), nText);
    const size_t nAt = text.find(static_cast<const char *>(pNeedle), 0, nNeedle);
    return nAt == std::string::npos ? nullptr : static_cast<char *>(const_cast<void *>(pText)) + nAt;
}
}

namespace {

TEST(Copies, FillCutAndLimit) {
    char szOut[8];
    std::memset(szOut, '#', sizeof szOut);
    EXPECT_EQ(VYX_Strncpy(szOut, "ab", 5), szOut);
    EXPECT_EQ(std::string(szOut, 8), std::string("ab\0\0\0###", 8));
    EXPECT_EQ(VYX_Strncpy(szOut, "abcdef", 3), szOut);
    EXPECT_EQ(std::string(szOut, 8), std::string("abc\0\0###", 8));
    for (const int32_t iCount : {0, -1, INT32_MIN})
        EXPECT_EQ(VYX_Strncpy(szOut, "xyz", iCount), szOut);
    EXPECT_STREQ(szOut, "abc");
    EXPECT_STREQ(VYX_Strcpy(szOut, "seven77"), "seven77");

    const struct {
        int32_t iLimit;
        const char *szExpected;
    } cases[] = {{0, ""}, {3, "hel"}, {INT32_MAX, "hello"}, {-1, nullptr}};
    for (const auto &c : cases) {
        char *szCopy = VYX_Strndup("hello", c.iLimit);
        EXPECT_STREQ(szCopy, c.szExpected) << c.iLimit;
        std::free(szCopy);
    }
    char *szCopy = VYX_Strdup("copy");
    EXPECT_STREQ(szCopy, "copy");
    std::free(szCopy);
}

// Texts over few letters, so that prefixes are often equal; lengths around the stretches that are compared at once.
std::string Random(std::mt19937 &random) {
    std::string text(random() % 3 == 0 ? random() % 200 : random() % 20, 'a');
    for (size_t i = text.size() < 5 ? 0 : text.size() - 5; i < text.size(); ++i)
        text[i] = "aAbB\xC4z\"%&"[random() % 9];
    return text;
}

int Byte(char c) {
    return static_cast<unsigned char>(c);
}

// The difference of the first bytes that differ, within a count.
int Difference(const std::string &a, const std::string &b, size_t nCount, int (*pfnFold)(char)) {
    for (size_t i = 0; i < nCount; ++i)
        if (pfnFold(a.c_str()[i]) != pfnFold(b.c_str()[i]) || a.c_str()[i] == '\0')
            return pfnFold(a.c_str()[i]) - pfnFold(b.c_str()[i]);
    return 0;
}

TEST(Comparisons, AreDifferencesOfBytes) {
    std::mt19937 random(1);
    for (int i = 0; i < 200000; ++i) {
        const std::string a = Random(random);
        const std::string b = Random(random);
        const size_t nCount = random() % 210;
        s_bTables = i % 2 == 0;
        ASSERT_EQ(VYX_Strcmp(a.c_str(), b.c_str()), Difference(a, b, SIZE_MAX, Byte));
        ASSERT_EQ(VYX_Strncmp(a.c_str(), b.c_str(), static_cast<uint32_t>(nCount)),
                  Difference(a, b, nCount, Byte));
        ASSERT_EQ(VYX_CompareBySign_Inter(a.c_str(), b.c_str(), nCount), Difference(a, b, nCount, Byte));
        ASSERT_EQ(VYX_Strcasecmp(a.c_str(), b.c_str()), Difference(a, b, SIZE_MAX, Upper));
        ASSERT_EQ(VYX_Strncasecmp(a.c_str(), b.c_str(), static_cast<int32_t>(nCount)),
                  Difference(a, b, nCount, Upper));
        ASSERT_EQ(VYX_Strncasecmp(a.c_str(), b.c_str(), -1 - i), Difference(a, b, 1, Upper))
            << "a negative count";
    }
    EXPECT_EQ(VYX_Strcasecmp("_", "a"), '_' - 'A') << "folded upwards: an underscore comes after the letters";
}

TEST(Searches, OddEndsAndCounts) {
    const char *szText = "hello";
    EXPECT_EQ(VYX_Strchr(szText, 0), nullptr) << "the terminator is found in an empty text only";
    EXPECT_EQ(VYX_Strchr(szText + 5, 0), szText + 5);
    EXPECT_EQ(VYX_Strchr(szText, 'l'), szText + 2);
    EXPECT_EQ(VYX_Strstr(szText, "lo"), szText + 3);
    const struct {
        int32_t iCount;
        int iAt; // -1: not found
    } counts[] = {{3, 2}, {2, -1}, {0, -1}, {-1, -1}};
    const char szBytes[] = "a\0b";
    for (const auto &c : counts)
        EXPECT_EQ(VYX_Strnchr(szBytes, 'b', c.iCount), c.iAt < 0 ? nullptr : szBytes + c.iAt) << c.iCount;
    const struct {
        const char *szText;
        const char *szNeedle;
        int32_t iLength;
        int iAt;
    } cases[] = {{"hello", "lox", 2, 3}, {"hello", "hello", 5, 0}, {"hello", "hellox", 6, -1},
                 {"hello", "x", 0, 0},   {"hello", "h", -1, -1},   {"hello", "ll", 2, 2},
                 {"", "", 0, 0}};
    for (const auto &c : cases)
        EXPECT_EQ(VYX_Strnstr(c.szText, c.szNeedle, c.iLength), c.iAt < 0 ? nullptr : c.szText + c.iAt)
            << c.szNeedle;
}

// The first byte is the same in lower case and the others in upper case.
const char *FoldedPlace(const char *p, const std::string &needle) {
    for (; *p != '\0' || needle.empty(); ++p) {
        size_t n = 0;
        while (n < needle.size() &&
               (n == 0 ? Lower(p[0]) == Lower(needle[0]) : Upper(p[n]) == Upper(needle[n])))
            ++n;
        if (n == needle.size())
            return p;
    }
    return nullptr;
}

TEST(Searches, CaseFoldedSearchFindsTheFirstPlace) {
    // Texts end where memory does.
    const auto nPage = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    auto *const pPages = static_cast<char *>(
        mmap(nullptr, 2 * nPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    char *const pEdge = pPages + nPage;
    ASSERT_EQ(mprotect(pEdge, nPage, PROT_NONE), 0);
    std::mt19937 random(2);
    int nFound = 0;
    for (int i = 0; i < 60000; ++i) {
        // Texts of many parts; few letters, so that much is compared in vain; periods.
        const std::string letters = random() % 2 == 0 ? "ab" : "abAqQ!zZ\"#$%&";
        std::string text(random() % (i % 4 == 0 ? 1200 : 40), ' ');
        for (char &c : text)
            c = letters[random() % letters.size()];
        if (random() % 4 == 0)
            text.replace(0, text.size(), text.size(), 'a');
        std::string needle = text.substr(random() % (text.size() + 1), random() % (i % 8 == 0 ? 300 : 10));
        if (random() % 4 == 0)
            needle += needle + needle;
        if (!needle.empty() && random() % 2 == 0)
            needle[random() % needle.size()] = letters[random() % letters.size()];
        if (random() % 3 == 0)
            text += needle;
        s_bTables = i % 2 == 0;
        const char *const szText = std::strcpy(pEdge - text.size() - 1, text.c_str());
        const char *pExpected = FoldedPlace(szText, needle);
        ASSERT_EQ(VYX_Strcasestr(szText, needle.c_str()), pExpected) << text << " " << needle;
        nFound += pExpected == nullptr ? 0 : 1;
    }
    EXPECT_GT(nFound, 10000);
    EXPECT_LT(nFound, 50000);
    (void)munmap(pPages, 2 * nPage);
}

TEST(Searches, CaseFoldedSearchTakesTimeInProportion) {
    s_bTables = false;
    const std::string a(20000, 'a');
    std::string ab;
    for (int i = 0; i < 10000; ++i)
        ab += "ab";
    const struct {
        std::string text;
        std::string needle;
        size_t nMost; // foldings for each 10 bytes
    } cases[] = {
        {a, a.substr(0, 5000) + "b", 60},
        {a, "A" + a.substr(0, 5000) + "b" + a.substr(0, 5000), 60},
        {a, "b" + a.substr(0, 5000), 15},
        {a + "b", "aaaaba", 20},
        // Much in vain, and then a period that the first byte does not have.
        {a.substr(0, 5000) + "c" + ab, "a" + ab.substr(0, 2000), 60},
        // Blocks in which nothing fits.
        {std::string(20000, 'x'), "end!", 1},
    };
    for (const auto &c : cases) {
        s_nFolded = 0;
        EXPECT_EQ(VYX_Strcasestr(c.text.c_str(), c.needle.c_str()), nullptr);
        EXPECT_LT(s_nFolded, c.nMost * (c.text.size() + c.needle.size()) / 10) << c.needle.substr(0, 10);
    }
    s_nFolded = 0;
    EXPECT_EQ(VYX_Strcasestr(a.c_str(), "A"), a.c_str());
    EXPECT_LT(s_nFolded, 10) << "a match at the start is found at once";
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
