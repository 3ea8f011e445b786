// The short way of formatting says what the C library says, byte for byte.
#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <wchar.h>

#include <gtest/gtest.h>

#include "log/log_text.h"

namespace {

// Both ways for every size around the text's length; the format is no constant, so that odd ones compile.
void Compare(const char *szFormat, ...) {
    va_list args;
    va_start(args, szFormat);
    va_list first;
    va_copy(first, args);
    const int iLength = std::vsnprintf(nullptr, 0, szFormat, first);
    va_end(first);
    for (const size_t nSize : {size_t{0}, size_t{1}, size_t{2}, size_t{5}, static_cast<size_t>(iLength),
                               static_cast<size_t>(iLength) + 1, size_t{300}}) {
        SCOPED_TRACE(testing::Message() << szFormat << " into " << nSize);
        char expected[400];
        char actual[400];
        std::memset(expected, '#', sizeof expected);
        std::memset(actual, '#', sizeof actual);
        va_list one;
        va_copy(one, args);
        const int iExpected = std::vsnprintf(expected, nSize, szFormat, one);
        va_end(one);
        va_copy(one, args);
        const int iActual = VYX_LogText_Inter(actual, nSize, szFormat, one);
        va_end(one);
        EXPECT_EQ(iActual, iExpected);
        const size_t nStored =
            std::min(nSize, static_cast<size_t>(iExpected) + 1); // behind that, scratch is allowed
        EXPECT_EQ(std::string(actual, nStored), std::string(expected, nStored));
        EXPECT_EQ(std::string(actual + nSize, 50), std::string(50, '#'));
    }
    va_end(args);
}

TEST(LogText, IsThatOfTheCLibrary) {
    Compare("");
    Compare("100%%");
    Compare("%d%d", INT_MIN, INT_MAX);
    Compare("<%i|%u|%x>", -1, UINT_MAX, 0xABCDEFU);
    Compare("%ld %lu %lx", LONG_MIN, ULONG_MAX, ULONG_MAX);
    Compare("%lld %llu %llx", LLONG_MIN, ULLONG_MAX, ULLONG_MAX);
    Compare("%zu %zd %zx", SIZE_MAX, static_cast<ptrdiff_t>(-5), SIZE_MAX);
    Compare("%s and %s", "", "text");
    Compare("%c%c%c", 'a', '\0', 'b');
    Compare("%d before a null %s and %d", 1, static_cast<const char *>(nullptr), 2);
    Compare("%5d", 1);
    // From here on each has something that the short way does not know, after something that it does.
    Compare("%d %5d|%-5d|%05d|%+d|% d", 1, 2, 3, 4, 5, 6);
    Compare("%s %.2s %*d", "a", "bcd", 6, 7);
    Compare("%d %f %g %e %a", 1, 2.5, 3.5, 4.5, 5.5);
    Compare("%d %Lf", 1, static_cast<long double>(2));
    Compare("%d %hd %hhd %jd %td", 1, 70000, 300, static_cast<intmax_t>(-1), static_cast<ptrdiff_t>(-2));
    Compare("%d %o %X %#x", 1, 8U, 0xABU, 0xABU);
    Compare("%d %p", 1, static_cast<const void *>("x"));
    Compare("%d %ls %lc", 1, L"wide", static_cast<wint_t>(L'w'));
    Compare("%2$s %1$s", "first", "second");
}

} // namespace
