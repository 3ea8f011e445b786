// The parts that write the transcript, and what they share.
#include "transcript.h"

#include <cstdarg>
#include <cstdio>

namespace transcript {

namespace {

uint64_t s_nState;
std::string s_transcript;

} // namespace

void Section(const std::string &name) {
    s_nState = 0x243F6A8885A308D3u;
    for (const char c : name)
        s_nState = (s_nState ^ static_cast<unsigned char>(c)) * 6364136223846793005u;
    Line("== %s", name.c_str());
}

void Line(const char *szFormat, ...) {
    char szLine[1024];
    va_list args;
    va_start(args, szFormat);
    (void)std::vsnprintf(szLine, sizeof szLine, szFormat, args);
    va_end(args);
    s_transcript += szLine;
    s_transcript += '\n';
}

uint32_t Random() {
    s_nState = s_nState * 6364136223846793005u + 1442695040888963407u;
    return static_cast<uint32_t>(s_nState >> 33);
}

uint32_t Random(uint32_t nBelow) {
    return Random() % nBelow;
}

int64_t Random64() {
    const uint64_t nHigh = Random();
    const uint64_t nLow = Random();
    return static_cast<int64_t>((nHigh << 33 ^ nLow) << 1 ^ Random(2));
}

std::string Quoted(const char *szText) {
    if (szText == nullptr)
        return "null";
    std::string out = "\"";
    for (const char *p = szText; *p != '\0'; ++p) {
        char szByte[4];
        const auto by = static_cast<unsigned char>(*p);
        (void)std::snprintf(szByte, sizeof szByte, by < ' ' || by > '~' || by == '\\' ? "\\%02x" : "%c", by);
        out += szByte;
    }
    return out + "\"";
}

std::string Hex(const void *pBytes, size_t nCount) {
    std::string out;
    for (size_t n = 0; n < nCount; ++n) {
        char szByte[3];
        (void)std::snprintf(szByte, sizeof szByte, "%02x", static_cast<const unsigned char *>(pBytes)[n]);
        out += szByte;
    }
    return out;
}

std::string Take() {
    s_transcript.clear();
    Times();
    Files();
    Refusals();
    return s_transcript;
}

} // namespace transcript
