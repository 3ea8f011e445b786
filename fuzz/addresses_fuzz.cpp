// Address texts, read and printed, against a parser by the library's own rules and the platform's printer.
#include <cstring>
#include <vyx/net.h>

#include "address_model.h"
#include "input.h"

namespace {

using fuzz::Bytes;

// A text, or null for none, becomes a record of a family; without a text, it is the address of all zeros.
void MakeRecord(int iFamily, const char *szText, const std::optional<Bytes> &expected) {
    VYX_ADDR_T addr;
    std::memset(&addr, 0xEE, sizeof addr);
    REQUIRE(VYX_MakeAddrByString(iFamily, szText, 0x1234, &addr) == (expected ? VYX_OK : VYX_ERROR));
    if (!expected)
        return;
    REQUIRE(VYX_GetAddrType(&addr) == iFamily && VYX_GetAddrPort(&addr) == 0x1234);
    REQUIRE(addr.in4.sin_port == htons(0x1234));
    const void *const pBytes =
        iFamily == AF_INET ? static_cast<const void *>(&addr.in4.sin_addr) : &addr.in6.sin6_addr;
    REQUIRE(std::memcmp(pBytes, expected->data(), expected->size()) == 0);
    const std::string sExpected = fuzz::Printed(iFamily, pBytes);
    const char *szPrinted = VYX_GetAddrString(&addr);
    REQUIRE(fuzz::HasRoom(sExpected) ? szPrinted != nullptr && szPrinted == sExpected : szPrinted == nullptr);
}

void Read(const std::string &sText) {
    const auto longForm = fuzz::ReadLong(sText);
    const auto expected = sText.find(':') == std::string::npos ? fuzz::ReadShort(sText) : longForm;
    Bytes bytes(expected ? expected->size() : 16, 0xEE);
    REQUIRE(VYX_InetPton(sText.c_str(), bytes.data()) == (expected ? VYX_OK : VYX_ERROR));
    REQUIRE(bytes == expected.value_or(Bytes(16, 0xEE)));
    MakeRecord(AF_INET6, sText.empty() ? nullptr : sText.c_str(), longForm);
    MakeRecord(AF_UNIX, sText.c_str(), std::nullopt);
    // Of IPv4 as the platform reads it; 255.255.255.255 looks like no address to it.
    const in_addr_t nTheirs = sText.empty() ? 0 : inet_addr(sText.c_str());
    const auto *const pTheirs = reinterpret_cast<const uint8_t *>(&nTheirs);
    MakeRecord(AF_INET, sText.c_str(),
               nTheirs == INADDR_NONE ? std::nullopt : std::optional<Bytes>(Bytes(pTheirs, pTheirs + 4)));
}

void Print(int iFamily, const uint8_t *pBytes) {
    const std::string sExpected = fuzz::Printed(iFamily, pBytes);
    const auto iNeeded = static_cast<int32_t>(sExpected.size()) + (iFamily == AF_INET6 ? 1 : 0);
    for (int32_t iSize = iNeeded - 1; iSize <= iNeeded + 1; ++iSize) {
        std::string sOut(static_cast<size_t>(iSize) + 1, '#');
        const char *szText = VYX_InetNtop(iFamily, pBytes, sOut.data(), iSize);
        REQUIRE((szText != nullptr) == (fuzz::HasRoom(sExpected) && iSize >= iNeeded));
        REQUIRE(szText == nullptr || szText == sExpected);
        // On purpose: an IPv4 text of just the size has its zero behind that.
        REQUIRE((sOut.back() == '\0') == (iFamily == AF_INET && iSize == iNeeded));
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
