// Address records: building them and taking them apart. The record is passed to the platform as it is; its family
// alone decides which view counts. Builders write the fields they are given and leave all others alone.
#include <algorithm>
#include <arpa/inet.h>
#include <cstddef>
#include <cstring>

#include "net/net_inter.h"

// Programs in other languages, and those built with another release, rely on where the fields are.
static_assert(sizeof(VYX_ADDR_T) == 28 && alignof(VYX_ADDR_T) == 4);
static_assert(offsetof(VYX_ADDR_EXP_T, byAddr) == 4 && offsetof(VYX_ADDR_EXP_T, nPort) == 20 &&
              sizeof(VYX_ADDR_EXP_T) == 24);

static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port), "the port has one place");

// The text of VYX_GetAddrString; shared by all threads, as its callers know.
static char szDst[128];

namespace {

// As VYX_MakeAddrByString for a text that is neither null nor empty, without the port.
bool SetByText_Local(int32_t iFamily, const char *szText, VYX_ADDR_T *pAddr) {
    if (iFamily == AF_INET) {
        pAddr->in4.sin_addr.s_addr = inet_addr(szText);
        // Deliberate: the platform's answer for no address, so 255.255.255.255 cannot be given as text. Pinned
        // by Fuzz.addresses.
        return pAddr->in4.sin_addr.s_addr != INADDR_NONE;
    }
    return iFamily == AF_INET6 && VYX_InetPton6_Inter(szText, pAddr->in6.sin6_addr.s6_addr) != 0;
}

bool SetAnyAddress_Local(int32_t iFamily, VYX_ADDR_T *pAddr) {
    if (iFamily == AF_INET)
        pAddr->in4.sin_addr.s_addr = 0;
    else if (iFamily == AF_INET6)
        pAddr->in6.sin6_addr = {};
    return iFamily == AF_INET || iFamily == AF_INET6;
}

} // namespace

socklen_t VYX_AddrLength_Inter(const VYX_ADDR_T *pAddr) {
    return pAddr->sa.sa_family == AF_INET ? sizeof pAddr->in4 : sizeof pAddr->in6;
}

int32_t VYX_MakeAddr(const void *pSockAddr, int32_t iLength, VYX_ADDR_T *pAddr) {
    if (pSockAddr == nullptr || pAddr == nullptr || iLength <= 0)
        return VYX_ERROR;
    std::memcpy(pAddr, pSockAddr, std::min(static_cast<size_t>(iLength), sizeof *pAddr));
    return VYX_OK;
}

int32_t VYX_MakeAddrByString(int32_t iFamily, const char *szText, uint16_t nPort, VYX_ADDR_T *pAddr) {
    if (pAddr == nullptr)
        return VYX_ERROR;
    const bool bAny = szText == nullptr || *szText == '\0';
    if (!(bAny ? SetAnyAddress_Local(iFamily, pAddr) : SetByText_Local(iFamily, szText, pAddr)))
        return VYX_ERROR;
    pAddr->sa.sa_family = static_cast<sa_family_t>(iFamily);
    return VYX_SetAddrPort(pAddr, nPort);
}

int32_t VYX_MakeAddr4ByInt(uint32_t nAddr, uint16_t nPort, VYX_ADDR_T *pAddr) {
    if (pAddr == nullptr)
        return VYX_ERROR;
    pAddr->in4.sin_family = AF_INET;
    pAddr->in4.sin_addr.s_addr = nAddr;
    return VYX_SetAddrPort(pAddr, nPort);
}

int32_t VYX_MakeAddr6ByInt(const uint8_t *pBytes16, uint16_t nPort, VYX_ADDR_T *pAddr) {
    if (pAddr == nullptr)
        return VYX_ERROR;
    pAddr->in6.sin6_family = AF_INET6;
    std::memcpy(&pAddr->in6.sin6_addr, pBytes16, sizeof pAddr->in6.sin6_addr);
    return VYX_SetAddrPort(pAddr, nPort);
}

int32_t VYX_GetAddrType(const VYX_ADDR_T *pAddr) {
    return pAddr == nullptr ? VYX_ERROR : pAddr->sa.sa_family;
}

char *VYX_GetAddrString(const VYX_ADDR_T *pAddr) {
    std::memset(szDst, 0, sizeof szDst);
    if (VYX_GetAddrType(pAddr) == AF_INET)
        return inet_ntoa(pAddr->in4.sin_addr);
    if (VYX_GetAddrType(pAddr) == AF_INET6)
        return VYX_InetNtop(AF_INET6, &pAddr->in6.sin6_addr, szDst, sizeof szDst);
    return nullptr;
}

int32_t VYX_GetAddr4Int(const VYX_ADDR_T *pAddr, uint32_t *pOut) {
    if (VYX_GetAddrType(pAddr) != AF_INET)
        return VYX_ERROR;
    *pOut = pAddr->in4.sin_addr.s_addr;
    return VYX_OK;
}

int32_t VYX_GetAddr6Int(const VYX_ADDR_T *pAddr, uint8_t *pOut16) {
    // Deliberate: whatever is not IPv4 counts as IPv6. Pinned by Addr.RecordsTakenApart.
    if (pAddr == nullptr || pAddr->sa.sa_family == AF_INET)
        return VYX_ERROR;
    std::memcpy(pOut16, &pAddr->in6.sin6_addr, sizeof pAddr->in6.sin6_addr);
    return VYX_OK;
}

int32_t VYX_GetAddrInfo(const VYX_ADDR_T *pAddr, VYX_ADDR_EXP_T *pExp) {
    if (pAddr == nullptr || pExp == nullptr)
        return VYX_ERROR;
    pExp->nFamily = pAddr->sa.sa_family;
    pExp->nPort = VYX_GetAddrPort(pAddr);
    if (pAddr->sa.sa_family == AF_INET)
        std::memcpy(pExp->byAddr, &pAddr->in4.sin_addr, sizeof pAddr->in4.sin_addr);
    else
        std::memcpy(pExp->byAddr, &pAddr->in6.sin6_addr, sizeof pAddr->in6.sin6_addr);
    return VYX_OK;
}

int32_t VYX_GetAddrBySockFd(VYX_SOCK_T hSocket, VYX_ADDR_T *pLocal, VYX_ADDR_T *pPeer) {
    if (pLocal == nullptr && pPeer == nullptr)
        return VYX_ERROR;
    // Deliberate: one length for both calls; the first may have lowered it to that of an IPv4 address. A longer name, as
    // local-domain sockets have, raises it beyond the record. Pinned by Socket.AddressesOfBothEndsStayInsideTheRecords.
    constexpr socklen_t kRoom = sizeof(VYX_ADDR_T);
    socklen_t nLength = kRoom;
    if (pPeer != nullptr && getpeername(hSocket, &pPeer->sa, &nLength) != 0)
        return VYX_ERROR;
    nLength = std::min(nLength, kRoom);
    if (pLocal != nullptr && getsockname(hSocket, &pLocal->sa, &nLength) != 0)
        return VYX_ERROR;
    return VYX_OK;
}

int32_t VYX_SetAddrPort(VYX_ADDR_T *pAddr, uint16_t nPort) {
    if (pAddr == nullptr)
        return VYX_ERROR;
    pAddr->in4.sin_port = htons(nPort);
    return VYX_OK;
}

uint16_t VYX_GetAddrPort(const VYX_ADDR_T *pAddr) {
    return pAddr == nullptr ? uint16_t{0} : ntohs(pAddr->in4.sin_port);
}
