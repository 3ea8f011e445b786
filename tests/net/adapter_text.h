// Adapters as text, for comparison.
#ifndef VYX_TESTS_NET_ADAPTER_TEXT_H
#define VYX_TESTS_NET_ADAPTER_TEXT_H

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <vyx/net.h>

namespace adapter_text {

inline std::string Hex(const uint8_t *pBytes, size_t nCount) {
    std::string text;
    for (size_t i = 0; i < nCount; ++i) {
        char szByte[8];
        (void)std::snprintf(szByte, sizeof szByte, "%s%02x", i == 0 ? "" : ":", pBytes[i]);
        text += szByte;
    }
    return text;
}

// A field of an entry, whichever list it is in: text, or the bytes of an IPv6 address.
inline std::string Field(const void *pField) {
    char szPrinted[INET6_ADDRSTRLEN];
    const auto *const szText = static_cast<const char *>(pField);
    return *szText >= '0' && *szText <= '9' ? szText
                                            : inet_ntop(AF_INET6, pField, szPrinted, sizeof szPrinted);
}

// "en0 type 6 mac 02:.. 10.0.0.1/255.0.0.0 | fd00::1/ffff::": what the list holds, in its order.
inline std::string Describe(const VYX_ADAPTER_INFO &adapter) {
    std::string text = adapter.szName;
    text += " type " + std::to_string(adapter.nType) + " mac " + Hex(adapter.byAddr, adapter.nAddrLen);
    for (const auto *p = adapter.pIpAddrList; p != nullptr; p = p->pNext)
        text += " " + Field(p->szAddr) + "/" + Field(p->szMask);
    text += adapter.pIp6AddrList == nullptr ? "" : " |";
    for (const auto *p = adapter.pIp6AddrList; p != nullptr; p = p->pNext)
        text += " " + Field(p->byAddr) + "/" + Field(p->byMask);
    return text;
}

// One line for each adapter of this system; the error if there is no list.
inline std::string Adapters() {
    auto *const pUntouched = reinterpret_cast<VYX_ADAPTER_INFO *>(8);
    VYX_ADAPTER_INFO *pList = pUntouched;
    if (VYX_GetAdapterInfo(&pList) != VYX_OK)
        return pList == pUntouched ? std::strerror(errno) : "an error that leaves something";
    std::string text;
    for (const auto *p = pList; p != nullptr; p = p->pNext)
        text += std::to_string(p->nIndex) + ": " + Describe(*p) + "\n";
    (void)VYX_FreeAdapterInfo(pList);
    return text;
}

} // namespace adapter_text

#endif
