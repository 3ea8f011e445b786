// Address texts, read and printed, against a parser by the library's own rules and the platform's printer.
#include <arpa/inet.h>
#include <cctype>
#include <cstring>
#include <optional>
#include <regex>
#include <vector>
#include <vyx/net.h>

#include "input.h"

namespace {

using Bytes = std::vector<uint8_t>;

// Four decimal numbers of one byte each, with any number of zeros before them.
std::optional<Bytes> ReadShort(const std::string &sText) {
    static const std::regex s_quad("0*([0-9]{1,3})\\.0*([0-9]{1,3})\\.0*([0-9]{1,3})\\.0*([0-9]{1,3})");
    std::smatch found;
    if (!std::regex_match(sText, found, s_quad))
        return std::nullopt;
    Bytes bytes;
    for (size_t i = 1; i <= 4; ++i) {
        const int iNumber = std::stoi(found[i]);
        if (iNumber > 255)
            return std::nullopt;
        bytes.push_back(static_cast<uint8_t>(iNumber));
    }
    return bytes;
}

// One group after the other. Each but the last is followed by ':'; the last may be followed by any one character.
std::optional<Bytes> ReadLong(const std::string &sText) {
    Bytes bytes(16);
    int iAt = 0;
    bool bGap = false;
    if (sText[0] == ':' && sText.substr(0, 2) != "::")
        return std::nullopt;
    for (size_t n = sText[0] == ':' ? 1 : 0, nEnd = 0; n < sText.size(); n = nEnd + 1) {
        nEnd = std::min(sText.find_first_not_of("0123456789abcdefABCDEF", n), sText.size());
        const std::string sGroup = sText.substr(n, nEnd - n);
        const std::string sValue = sGroup.substr(std::min(sGroup.find_first_not_of('0'), sGroup.size()));
        if (sValue.size() > 4)
            return std::nullopt;
        if (nEnd + 1 < sText.size() && sText[nEnd] != ':') { // the end, unless it is a dotted quad
            const auto quad = ReadShort(sText.substr(n));
            if (sText[nEnd] != '.' || iAt > 12 || !quad)
                return std::nullopt;
            std::copy(quad->begin(), quad->end(), bytes.begin() + iAt);
            return bytes;
        }
        if (sGroup.empty()) {
            if (bGap)
                return std::nullopt;
            bGap = true;
            continue;
        }
        if (iAt > 14)
            return std::nullopt;
        const auto nValue = std::strtoul(sGroup.c_str(), nullptr, 16);
        bytes[static_cast<size_t>(iAt)] = static_cast<uint8_t>(nValue >> 8);
        bytes[static_cast<size_t>(iAt) + 1] = static_cast<uint8_t>(nValue);
        iAt += 2;
        if (nEnd + 1 < sText.size() && sText[nEnd + 1] == ':') // room for the groups behind the gap
            iAt = 14 - 2 * static_cast<int>(std::count(sText.begin() + static_cast<std::ptrdiff_t>(nEnd) + 2,
                                                       sText.end(), ':'));
        if (iAt < 0)
            return std::nullopt;
    }
    return bytes;
}

void Read(const std::string &sText) {
    const auto expected = sText.find(':') == std::string::npos ? ReadShort(sText) : ReadLong(sText);
    Bytes bytes(expected ? expected->size() : 16, 0xEE);
    REQUIRE(VYX_InetPton(sText.c_str(), bytes.data()) == (expected ? VYX_OK : VYX_ERROR));
    REQUIRE(bytes == (expected ? *expected : Bytes(16, 0xEE)));
    VYX_ADDR_T addr = {};
    const bool bLong = sText.empty() || ReadLong(sText);
    REQUIRE(VYX_MakeAddrByString(AF_INET6, sText.c_str(), 7, &addr) == (bLong ? VYX_OK : VYX_ERROR));
    REQUIRE(!bLong || (VYX_GetAddrPort(&addr) == 7 && VYX_GetAddrType(&addr) == AF_INET6));
}

// As the platform does, but that a dotted quad at the end has room for eight characters.
void Print(int iFamily, const uint8_t *pBytes, int32_t iSize) {
    char szTheirs[64] = "";
    const std::string sExpected = inet_ntop(iFamily, pBytes, szTheirs, sizeof szTheirs);
    const size_t nColon = sExpected.rfind(':');
    const bool bNone = nColon != std::string::npos && sExpected.find('.') != std::string::npos &&
                       sExpected.size() - nColon - 1 > 8;
    const auto nNeeded = static_cast<int32_t>(sExpected.size()) + (iFamily == AF_INET6 ? 1 : 0);
    std::string sOut(static_cast<size_t>(iSize) + 1, '#');
    const char *szText = VYX_InetNtop(iFamily, pBytes, sOut.data(), iSize);
    REQUIRE((szText != nullptr) == (!bNone && iSize > 0 && iSize >= nNeeded));
    REQUIRE(szText == nullptr || szText == sExpected);
    REQUIRE(sOut.back() == '#' || (iFamily == AF_INET && szText != nullptr && iSize == nNeeded));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    fuzz::Input input(pData, nSize);
    const auto iSize = static_cast<int32_t>(input.Pick(64));
    std::string sBytes = input.Text(16);
    sBytes.resize(16);
    Print(AF_INET, reinterpret_cast<const uint8_t *>(sBytes.data()), iSize);
    Print(AF_INET6, reinterpret_cast<const uint8_t *>(sBytes.data()), iSize);
    Read(input.Rest().c_str());
    return 0;
}
