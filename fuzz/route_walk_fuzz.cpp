// Routing messages from anywhere: the first byte chooses the byte order, the rest is the buffer.
#include <cstdlib>
#include <cstring>

#include "net/route_walk.h"

namespace {

void Require(bool bHolds) {
    if (!bHolds)
        std::abort();
}

// An adapter takes its header and a link-level address at least.
constexpr size_t kLeastInterface = vyx_inter::route::kInterfaceHeader + vyx_inter::route::kLinkData;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    if (nSize == 0)
        return 0;
    vyx_inter::AdapterList list;
    const auto order = pData[0] % 2 == 0 ? vyx_inter::ByteOrder::Little : vyx_inter::ByteOrder::Big;
    vyx_inter::WalkRoutingMessages(pData + 1, nSize - 1, order, &list);
    VYX_ADAPTER_INFO *pList = nullptr;
    Require(list.Finish(&pList) == VYX_OK);
    const vyx_inter::AdapterListHolder holder(pList);
    size_t nCount = 0;
    for (const auto *p = pList; p != nullptr; p = p->pNext, ++nCount) {
        Require(std::memchr(p->szName, 0, sizeof p->szName) != nullptr);
        Require(p->nAddrLen <= sizeof p->byAddr);
        Require(p->pReservedList1 == nullptr && p->pReservedList2 == nullptr);
    }
    Require(nCount * kLeastInterface <= nSize);
    return 0;
}
