#include "net/route_walk.h"

#include <cstring>

namespace {

using vyx_inter::AdapterList;
using vyx_inter::AddressFact;
using vyx_inter::ByteOrder;
using vyx_inter::InterfaceFact;
namespace route = vyx_inter::route;

// A piece of the buffer. Reading needs Holds beforehand.
struct Bytes {
    const uint8_t *p;
    size_t nSize;
    ByteOrder order;

    bool Holds(size_t nAt, size_t nCount) const { return nAt <= nSize && nCount <= nSize - nAt; }
    Bytes From(size_t nAt) const { return {p + nAt, nSize - nAt, order}; }
    uint16_t Read16(size_t nAt) const {
        const unsigned nFirst = p[nAt];
        const unsigned nSecond = p[nAt + 1];
        return static_cast<uint16_t>(order == ByteOrder::Big ? nFirst << 8 | nSecond : nSecond << 8 | nFirst);
    }
    uint32_t Read32(size_t nAt) const {
        const uint32_t nFirst = Read16(nAt);
        const uint32_t nSecond = Read16(nAt + 2);
        return order == ByteOrder::Big ? nFirst << 16 | nSecond : nSecond << 16 | nFirst;
    }
};

void TakeInterface_Local(const Bytes &message, AdapterList *pList) {
    if (!message.Holds(route::kInterfaceHeader, route::kLinkData))
        return;
    const Bytes link = message.From(route::kInterfaceHeader);
    const size_t nNameLen = link.p[route::kLinkNameLengthAt];
    const size_t nAddrLen = link.p[route::kLinkAddrLengthAt];
    if (!link.Holds(route::kLinkData, nNameLen + nAddrLen))
        return;
    constexpr uint32_t kWanted = route::kUp | route::kRunning;
    InterfaceFact fact = {};
    fact.nIndex = link.Read16(route::kLinkIndexAt);
    fact.bUpAndRunning = (message.Read32(route::kFlagsAt) & kWanted) == kWanted;
    fact.pName = link.p + route::kLinkData;
    fact.nNameLen = nNameLen;
    fact.pAddr = fact.pName + nNameLen;
    fact.nAddrLen = nAddrLen;
    fact.nType = link.p[route::kLinkTypeAt];
    pList->AddInterface(fact);
}

// The mask's record is first, and takes 8 bytes for IPv4: the kernel cuts its trailing zeros and pads it. The
// address follows it.
bool TakeIp_Local(const Bytes &mask, AddressFact *pFact) {
    constexpr size_t kCount = 4;
    if (!mask.Holds(route::kIpAddressAt, kCount))
        return false;
    std::memcpy(pFact->byMask, mask.p + route::kIpBytesAt, kCount);
    std::memcpy(pFact->byAddr, mask.p + route::kIpAddressAt, kCount);
    return true;
}

bool TakeIp6_Local(const Bytes &mask, AddressFact *pFact) {
    constexpr size_t kCount = 16;
    // Deliberate: the mask's own length leads to the address, without the padding that a length which is no
    // multiple of 4 would have. Pinned by RouteWalk.SkipsAnIp6MaskByItsOwnLength.
    const size_t nAddressAt = mask.p[route::kSockLengthAt];
    if (!mask.Holds(route::kIp6BytesAt, kCount) || !mask.Holds(nAddressAt + route::kIp6BytesAt, kCount))
        return false;
    std::memcpy(pFact->byMask, mask.p + route::kIp6BytesAt, kCount);
    std::memcpy(pFact->byAddr, mask.p + nAddressAt + route::kIp6BytesAt, kCount);
    return true;
}

void TakeAddress_Local(const Bytes &message, AdapterList *pList) {
    if (!message.Holds(route::kAddressHeader, route::kSockFamilyAt + 1))
        return;
    const Bytes mask = message.From(route::kAddressHeader);
    const uint8_t nFamily = mask.p[route::kSockFamilyAt];
    AddressFact fact = {};
    fact.nIndex = message.Read16(route::kIndexAt);
    fact.bIp6 = nFamily == route::kIp6;
    const bool bTaken =
        fact.bIp6 ? TakeIp6_Local(mask, &fact) : nFamily == route::kIp && TakeIp_Local(mask, &fact);
    if (bTaken)
        pList->AddAddress(fact);
}

} // namespace

void vyx_inter::WalkRoutingMessages(const uint8_t *pBuffer, size_t nSize, ByteOrder order,
                                    AdapterList *pList) {
    Bytes rest = {pBuffer, nSize, order};
    while (rest.Holds(0, route::kPrefix)) {
        const size_t nLength = rest.Read16(route::kLengthAt);
        if (nLength < route::kPrefix || nLength > rest.nSize)
            return;
        const Bytes message = {rest.p, nLength, order};
        if (message.p[route::kTypeAt] == route::kInterface)
            TakeInterface_Local(message, pList);
        else if (message.p[route::kTypeAt] == route::kNewAddress)
            TakeAddress_Local(message, pList);
        rest = rest.From(nLength);
    }
}
