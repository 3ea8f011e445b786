// Conversion between EUC-CN and UTF-8.
#include <cerrno>
#include <dlfcn.h>
#include <iconv.h>
#include <string>

#include <gtest/gtest.h>
#include <vyx/sys.h>

#include "support/support.h"

// Takes the place of the platform's in this program: with VYX_TESTS_ICONV_REPLACES it does as that of Darwin 14, which puts a
// question mark for what it cannot convert and goes on.
extern "C" size_t iconv(iconv_t hConverter, char **ppIn, size_t *pnIn, char **ppOut, size_t *pnOut) {
    static const auto fnReal = reinterpret_cast<decltype(&iconv)>(dlsym(RTLD_NEXT, "iconv"));
    size_t nResult = fnReal(hConverter, ppIn, pnIn, ppOut, pnOut);
    while (VYX_TESTS_ICONV_REPLACES && nResult == static_cast<size_t>(-1) && errno == EILSEQ && *pnOut > 0) {
        *(*ppOut)++ = '?';
        --*pnOut;
        do {
            ++*ppIn;
            --*pnIn;
        } while (*pnIn > 0 && (**ppIn & 0xC0) == 0x80);
        nResult = fnReal(hConverter, ppIn, pnIn, ppOut, pnOut);
    }
    return nResult;
}

namespace {

class Charset : public testing::Test {
  protected:
    void SetUp() override {
        const iconv_t hConverter = iconv_open("UTF-8", "EUC-CN");
        if (hConverter != reinterpret_cast<iconv_t>(-1))
            (void)iconv_close(hConverter);
        else if (support::kEmulated)
            GTEST_SKIP() << "this C library came without its conversion tables";
    }
};

TEST_F(Charset, TextBothWays) {
    const struct {
        const char *szEuc;
        const char *szUtf8;
    } kTable[] = {
        {"", ""},
        {"plain ASCII 0..9\t\r\n~\x7F", "plain ASCII 0..9\t\r\n~\x7F"},
        {"\xD6\xD0\xCE\xC4", "\xE4\xB8\xAD\xE6\x96\x87"}, // "Chinese text"
        {"a\xB0\xA1"
         "b\xF7\xFE",
         "a\xE5\x95\x8A"
         "b\xE9\xBD\x84"},                                // the first and the last ideograph
        {"\xA1\xA1\xA3\xB0", "\xE3\x80\x80\xEF\xBC\x90"}, // ideographic blank, full-width zero
        {"\xA6\xC1", "\xCE\xB1"},                         // alpha: two bytes both ways
    };
    for (const auto &row : kTable) {
        EXPECT_EQ(VYX_A2UTF8(row.szEuc), row.szUtf8);
        EXPECT_EQ(VYX_UTF82A(row.szUtf8), row.szEuc);
    }
    EXPECT_EQ(VYX_A2UTF8(nullptr), "");
    EXPECT_EQ(VYX_UTF82A(nullptr), "");
}

TEST_F(Charset, InvalidOrIncompleteInputGivesAnEmptyText) {
    for (const char *szEuc :
         {"abc\xD6", "\xD6", "\xFF\xFF", "ok \x80 ok", "\xD6 ", "\xFE\xFE", "\x81\x40" /* in larger sets */})
        EXPECT_EQ(VYX_A2UTF8(szEuc), "") << szEuc;
    for (const char *szUtf8 : {"abc\xE4\xB8", "\xE4", "\xB8\xAD", "\xC0\x80", "\xED\xA0\x80", "\xFF",
                               "\xF0\x9F\x98\x80" /* an emoji: not in the set */,
                               "\xE4\xB8\xAD\xE2\x82\xAC" /* the euro sign: not in the set */})
        EXPECT_EQ(VYX_UTF82A(szUtf8), "") << szUtf8;
}

} // namespace
