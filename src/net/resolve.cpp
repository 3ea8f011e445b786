// Host names and name resolution: the platform's resolver, with results that belong to the library.
#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <unistd.h>

#include "net/net_inter.h"

// Programs in other languages, and those built with another release, rely on where the fields are.
static_assert(offsetof(VYX_ADDRESS_INFO_T, iFamily) == 4 && offsetof(VYX_ADDRESS_INFO_T, iSockType) == 8 &&
              offsetof(VYX_ADDRESS_INFO_T, iProtocol) == 12 && offsetof(VYX_ADDRESS_INFO_T, struAddr) == 16 &&
              offsetof(VYX_ADDRESS_INFO_T, pCanonName) == (sizeof(void *) == 8 ? 48 : 44) &&
              offsetof(VYX_ADDRESS_INFO_T, pNext) ==
                  offsetof(VYX_ADDRESS_INFO_T, pCanonName) + sizeof(void *) &&
              sizeof(VYX_ADDRESS_INFO_T) == offsetof(VYX_ADDRESS_INFO_T, pNext) + sizeof(void *));

namespace {

struct PlatformListFree {
    void operator()(addrinfo *pList) const { freeaddrinfo(pList); }
};
using PlatformList = std::unique_ptr<addrinfo, PlatformListFree>;

struct ListFree {
    void operator()(VYX_ADDRESS_INFO_T *pList) const { (void)VYX_FreeAddressInfo(pList); }
};
using List = std::unique_ptr<VYX_ADDRESS_INFO_T, ListFree>;

bool IsKnownFamily_Local(int iFamily) {
    return iFamily == AF_INET || iFamily == AF_INET6;
}

// The platform's form of the hints, which must outlive it. getaddrinfo declares its hints constant, so the
// pointers without const are not written through.
addrinfo PlatformHints_Local(const VYX_ADDRESS_INFO_T &hints) {
    addrinfo result = {};
    result.ai_flags = hints.iFlags;
    result.ai_family = hints.iFamily;
    result.ai_socktype = hints.iSockType;
    result.ai_protocol = hints.iProtocol;
    if (IsKnownFamily_Local(VYX_GetAddrType(&hints.struAddr))) {
        result.ai_addr = const_cast<sockaddr *>(&hints.struAddr.sa);
        result.ai_addrlen = VYX_AddrLength_Inter(&hints.struAddr);
    }
    result.ai_canonname = hints.pCanonName;
    return result;
}

// A copy of one result, owned by the caller; null if memory is short.
List CopyNode_Local(const addrinfo &from) {
    List node(new (std::nothrow) VYX_ADDRESS_INFO_T());
    if (!node)
        return nullptr;
    node->iFlags = from.ai_flags;
    node->iFamily = from.ai_family;
    node->iSockType = from.ai_socktype;
    node->iProtocol = from.ai_protocol;
    if (IsKnownFamily_Local(from.ai_family) && from.ai_addr != nullptr)
        std::memcpy(&node->struAddr, from.ai_addr,
                    std::min(static_cast<size_t>(from.ai_addrlen), sizeof node->struAddr));
    if (from.ai_canonname == nullptr)
        return node;
    const size_t nLength = std::strlen(from.ai_canonname) + 1;
    node->pCanonName = new (std::nothrow) char[nLength];
    if (node->pCanonName == nullptr)
        return nullptr;
    std::memcpy(node->pCanonName, from.ai_canonname, nLength);
    return node;
}

} // namespace

int32_t VYX_GetHostName(char *szBuf, int32_t iLen) {
    if (szBuf == nullptr || iLen < 0) {
        errno = EINVAL;
        return VYX_ERROR;
    }
    if (iLen == 0) { // for which some platforms write in front of the buffer
        errno = ENAMETOOLONG;
        return VYX_ERROR;
    }
    return gethostname(szBuf, static_cast<size_t>(iLen));
}

struct hostent *VYX_GetAddressByName(const char *szName) {
    return szName == nullptr ? nullptr : gethostbyname(szName);
}

uint16_t VYX_Htons(uint16_t nValue) {
    return htons(nValue);
}

uint16_t VYX_Ntohs(uint16_t nValue) {
    return htons(nValue);
}

uint32_t VYX_Htonl(uint32_t nValue) {
    return htonl(nValue);
}

uint32_t VYX_Ntohl(uint32_t nValue) {
    return htonl(nValue);
}

int32_t VYX_GetAddressInfo(const char *szNode, const char *szService, const VYX_ADDRESS_INFO_T *pHints,
                           VYX_ADDRESS_INFO_T **ppList) {
    if (ppList == nullptr)
        return VYX_ERROR;
    const addrinfo hints = pHints == nullptr ? addrinfo{} : PlatformHints_Local(*pHints);
    addrinfo *pResults = nullptr;
    if (getaddrinfo(szNode, szService, &hints, &pResults) != 0)
        return VYX_ERROR;
    const PlatformList results(pResults);
    List list;
    VYX_ADDRESS_INFO_T *pLast = nullptr;
    for (const addrinfo *pResult = results.get(); pResult != nullptr; pResult = pResult->ai_next) {
        List node = CopyNode_Local(*pResult);
        if (!node)
            return VYX_ERROR;
        VYX_ADDRESS_INFO_T *const pNode = node.release();
        if (pLast == nullptr)
            list.reset(pNode);
        else
            pLast->pNext = pNode;
        pLast = pNode;
    }
    *ppList = list.release();
    return VYX_OK;
}

int32_t VYX_FreeAddressInfo(VYX_ADDRESS_INFO_T *pList) {
    while (pList != nullptr) {
        VYX_ADDRESS_INFO_T *const pNode = pList;
        pList = pNode->pNext;
        delete[] pNode->pCanonName;
        delete pNode;
    }
    return VYX_OK;
}
