// Network addresses as text and as records.
#include <array>
#include <cstring>
#include <vyx/net.h>

#include "transcript.h"

namespace transcript {

namespace {

const char *FamilyName(int32_t iFamily) {
    return iFamily == AF_INET    ? "4"
           : iFamily == AF_INET6 ? "6"
           : iFamily == 0        ? "none"
           : iFamily == -1       ? "-1"
                                 : "?";
}

std::string AddressText() {
    static const char *const kPieces[] = {"1",    "12",   "255",   "256", "0", "00",
                                          "fe80", "ffff", "12345", "a",   "g"};
    static const char *const kSeparators[] = {".", ":", "::", ".", ":", ""};
    std::string text = Random(5) == 0 ? "::" : "";
    const bool bDots = Random(2) == 0;
    for (uint32_t n = bDots ? 4 : 1 + Random(9); n > 0; --n) {
        text += kPieces[Random(bDots && Random(4) != 0 ? 3 : 11)];
        if (n > 1)
            text += Random(8) == 0 ? kSeparators[Random(6)] : bDots ? "." : Random(6) == 0 ? "::" : ":";
    }
    return text + (Random(8) == 0 ? kSeparators[Random(6)] : "");
}

void Parse(const char *szText) {
    std::array<uint8_t, 16> bytes;
    bytes.fill(0xEE);
    const int32_t iResult = VYX_InetPton(szText, bytes.data());
    std::string made;
    for (const int32_t iFamily : {AF_INET, AF_INET6}) {
        VYX_ADDR_T addr;
        std::memset(&addr, 0, sizeof addr);
        if (iFamily == AF_INET && std::strchr(szText, ':') == nullptr &&
            std::strspn(szText, "0123456789.") != 0)
            continue; // the platform's own parser reads shorter forms
        const int32_t iMade = VYX_MakeAddrByString(iFamily, szText, 0x1234, &addr);
        made += std::string("; make ") + FamilyName(iFamily) + ": " + std::to_string(iMade) + " family " +
                FamilyName(VYX_GetAddrType(&addr)) + " port " + std::to_string(VYX_GetAddrPort(&addr));
    }
    Line("parse %s: %d %s%s", Quoted(szText).c_str(), iResult, Hex(bytes.data(), bytes.size()).c_str(),
         made.c_str());
}

void Print(const std::array<uint8_t, 16> &bytes) {
    std::string texts;
    for (const int32_t iSize : {8, 15, 24, 46}) {
        char szOut[64];
        std::memset(szOut, '#', sizeof szOut);
        const char *szText = VYX_InetNtop(AF_INET6, bytes.data(), szOut, iSize);
        const std::string text6 = Quoted(szText);
        std::memset(szOut, '#', sizeof szOut);
        szText = VYX_InetNtop(AF_INET, bytes.data(), szOut, iSize);
        texts += " " + std::to_string(iSize) + ": " + text6 + " " + Quoted(szText);
    }
    Line("print %s in%s", Hex(bytes.data(), 16).c_str(), texts.c_str());
}

void Records(const std::array<uint8_t, 16> &bytes) {
    VYX_ADDR_T addr;
    std::memset(&addr, 0, sizeof addr);
    (void)VYX_MakeAddr6ByInt(bytes.data(), static_cast<uint16_t>(Random()), &addr);
    VYX_ADDR_EXP_T exp;
    std::memset(&exp, 0, sizeof exp);
    (void)VYX_GetAddrInfo(&addr, &exp);
    Line("record 6: family %s port %u %s", FamilyName(static_cast<int32_t>(exp.nFamily)), exp.nPort,
         Hex(exp.byAddr, 16).c_str());
    std::memset(&addr, 0, sizeof addr);
    uint32_t nAddr = 0;
    std::memcpy(&nAddr, bytes.data(), sizeof nAddr);
    (void)VYX_MakeAddr4ByInt(nAddr, static_cast<uint16_t>(Random()), &addr);
    uint32_t nBack = 0;
    (void)VYX_GetAddr4Int(&addr, &nBack);
    Line("record 4: family %s port %u %s %s", FamilyName(VYX_GetAddrType(&addr)), VYX_GetAddrPort(&addr),
         Quoted(VYX_GetAddrString(&addr)).c_str(), Hex(&nBack, sizeof nBack).c_str());
}

} // namespace

void Addresses() {
    Section("addresses from text");
    for (const char *szText : {"1.2.3.4",
                               "1.2.3",
                               "1.2.3.4.5",
                               "1..2.3",
                               "001.002.003.004",
                               "::",
                               "::1",
                               "1::",
                               "1:2",
                               "1:::2",
                               "fe80::1",
                               "1:2:3:4:5:6:7:8",
                               "1:2:3:4:5:6:7:8:9",
                               "::1.2.3.4",
                               "1:2:3:4:5:6:1.2.3.4",
                               "1:2:",
                               "1:2g",
                               "12345::",
                               ":1:2",
                               ""})
        Parse(szText);
    for (int i = 0; i < 160; ++i)
        Parse(AddressText().c_str());
    VYX_ADDR_T addr;
    std::memset(&addr, 0, sizeof addr);
    (void)VYX_MakeAddrByString(AF_INET, "1.2.3.4", 80, &addr);
    uint32_t nAddr = 0;
    (void)VYX_GetAddr4Int(&addr, &nAddr);
    Line("1.2.3.4 as an integer: bytes %s", Hex(&nAddr, sizeof nAddr).c_str());
    Section("addresses as text");
    for (int i = 0; i < 60; ++i) {
        std::array<uint8_t, 16> bytes{};
        for (size_t n = 0; n < 16; n += 2)
            if (Random(2) == 0) {
                bytes[n] = static_cast<uint8_t>(Random(3) == 0 ? 0 : Random());
                bytes[n + 1] = static_cast<uint8_t>(Random());
            }
        if (i % 8 == 0)
            bytes = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF, 1, 2, static_cast<uint8_t>(Random(12)), 4};
        Print(bytes);
        if (i % 4 == 0)
            Records(bytes);
    }
}

} // namespace transcript
