// Debug output to standard error.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <vyx/sys.h>

namespace {

constexpr size_t kBufferSize = 5120;
constexpr size_t kTextLimit = 5118; // text and its zero, leaving room for the line feed

} // namespace

void VYX_Debug(const char * /*szFormat*/, ...) {}

int32_t VYX_OutputDebug(const char *szFormat, ...) {
    char szText[kBufferSize];
    szText[0] = '\0';
    va_list args;
    va_start(args, szFormat);
    (void)std::vsnprintf(szText, kTextLimit, szFormat, args); // a text cut short or refused is shown as it is
    va_end(args);
    const size_t nLength = std::strlen(szText);
    szText[nLength] = '\n';
    szText[nLength + 1] = '\0';
    return std::fputs(szText, stderr);
}

void VYX_OutputDebugString(const char *szText) {
    (void)std::fputs(szText, stderr);
}
