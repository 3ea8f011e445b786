// Debug output to standard error.
#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vyx/sys.h>

namespace {

constexpr size_t kBufferSize = 5120;
constexpr size_t kTextLimit = 5118; // text and its zero, leaving room for the line feed

// Where the line feed goes: after the text, as far as it fitted. A text that the formatter refused ends at its
// first zero.
size_t EndOfText_Local(const char *szText, int iFormatted) {
    return iFormatted < 0 ? std::strlen(szText) : std::min(static_cast<size_t>(iFormatted), kTextLimit - 1);
}

} // namespace

void VYX_Debug(const char * /*szFormat*/, ...) {}

int32_t VYX_OutputDebug(const char *szFormat, ...) {
    char szText[kBufferSize] = {};
    va_list args;
    va_start(args, szFormat);
    const int iFormatted = std::vsnprintf(szText, kTextLimit, szFormat, args);
    va_end(args);
    const size_t nEnd = EndOfText_Local(szText, iFormatted);
    szText[nEnd] = '\n';
    szText[nEnd + 1] = '\0';
    return std::fputs(szText, stderr);
}

void VYX_OutputDebugString(const char *szText) {
    (void)std::fputs(szText, stderr);
}
