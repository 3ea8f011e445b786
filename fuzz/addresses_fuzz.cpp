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

// A text, or null for none, becomes a record of a family; without a text, it is the address of all zeros.
void MakeRecord(int iFamily, const char *szText, const std::optional<Bytes> &expected) {
    VYX_ADDR_T addr = {};
    REQUIRE(VYX_MakeAddrByString(iFamily, szText, 0x1234, &addr) == (expected ? VYX_OK : VYX_ERROR));
    if (!expected)
        return;
    REQUIRE(VYX_GetAddrType(&addr) == iFamily && VYX_GetAddrPort(&addr) == 0x1234);
    REQUIRE(addr.in4.sin_port == htons(0x1234));
    const void *const pBytes =
        iFamily == AF_INET ? static_cast<const void *>(&addr.in4.sin_addr) : &addr.in6.sin6_addr;
    REQUIRE(std::memcmp(pBytes, expected->data(), expected->size()) == 0);
    char szPrinted[64];
    const char *szExpected = VYX_InetNtop(iFamily, pBytes, szPrinted, sizeof szPrinted);
    const char *szOwn = VYX_GetAddrString(&addr);
    REQUIRE(szExpected == nullptr ? szOwn == nullptr : std::strcmp(szOwn, szExpected) == 0);
}

void Read(const std::string &sText) {
    const auto quad = ReadShort(sText);
    const auto longForm = ReadLong(sText);
    const auto &expected = sText.find(':') == std::string::npos ? quad : longForm;
    Bytes bytes(expected ? expected->size() : 16, 0xEE);
    REQUIRE(VYX_InetPton(sText.c_str(), bytes.data()) == (expected ? VYX_OK : VYX_ERROR));
    REQUIRE(bytes == (expected ? *expected : Bytes(16, 0xEE)));
    MakeRecord(AF_INET6, sText.empty() ? nullptr : sText.c_str(), longForm);
    MakeRecord(AF_UNIX, sText.c_str(), std::nullopt);
    // Of IPv4 as the platform reads it; 255.255.255.255 looks like no address to it.
    const in_addr_t nTheirs = sText.empty() ? 0 : inet_addr(sText.c_str());
    const auto *const pTheirs = reinterpret_cast<const uint8_t *>(&nTheirs);
    MakeRecord(AF_INET, sText.c_str(),
               nTheirs == INADDR_NONE ? std::nullopt : std::optional<Bytes>(Bytes(pTheirs, pTheirs + 4)));
}

// As the platform does, but that a dotted quad at the end has room for eight characters.
void Print(int iFamily, const uint8_t *pBytes) {
    char szTheirs[64] = "";
    const std::string sExpected = inet_ntop(iFamily, pBytes, szTheirs, sizeof szTheirs);
    const size_t nColon = sExpected.rfind(':');
    const bool bNone = nColon != std::string::npos && sExpected.find('.') != std::string::npos &&
                       sExpected.size() - nColon - 1 > 8;
    const auto nNeeded = static_cast<int32_t>(sExpected.size()) + (iFamily == AF_INET6 ? 1 : 0);
    for (int32_t iSize = nNeeded - 1; iSize <= nNeeded + 1; ++iSize) {
        std::string sOut(static_cast<size_t>(iSize) + 1, '#');
        const char *szText = VYX_InetNtop(iFamily, pBytes, sOut.data(), iSize);
        REQUIRE((szText != nullptr) == (!bNone && iSize >= nNeeded));
        REQUIRE(szText == nullptr || szText == sExpected);
        // On purpose: an IPv4 text of just the size has its zero behind that.
        REQUIRE((sOut.back() == '\0') == (iFamily == AF_INET && iSize == nNeeded));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    fuzz::Input input(pData, nSize);
    const unsigned nZeros = input.Byte(); // of the eight words
    std::string sBytes = input.Text(16);
    sBytes.resize(16);
    for (size_t i = 0; i < 16; ++i)
        sBytes[i] = (nZeros >> i / 2 & 1) != 0 ? '\0' : sBytes[i];
    const auto *const pBytes = reinterpret_cast<const uint8_t *>(sBytes.data());
    Print(AF_INET, pBytes);
    Print(AF_INET6, pBytes);
    char szText[64];
    REQUIRE(VYX_InetNtop(AF_UNIX, pBytes, szText, sizeof szText) == nullptr);
    Read(input.Rest().c_str());
    return 0;
}
