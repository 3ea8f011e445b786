// Routing messages from anywhere. The first byte chooses the byte order and whether the rest is the buffer as
// it is, or pieces, each a type, a length, flags, an index and what follows the header, of which messages
// with true lengths are made: few inputs would have those otherwise.
#include <cstring>
#include <vector>

#include "input.h"
#include "net/route_walk.h"

namespace {

// An adapter takes its header and a link-level address at least.
constexpr size_t kLeastInterface = vyx_inter::route::kInterfaceHeader + vyx_inter::route::kLinkData;

using Buffer = std::vector<uint8_t>;

Buffer Messages(const uint8_t *p, size_t nSize, bool bBigEndian) {
    using namespace vyx_inter::route;
    constexpr size_t kPiece = 4;
    Buffer buffer;
    while (nSize >= kPiece) {
        const bool bInterface = p[0] % 2 == 0;
        const size_t nContents = std::min<size_t>(p[1], nSize - kPiece);
        Buffer message(bInterface ? kInterfaceHeader : kAddressHeader);
        message[kTypeAt] = bInterface ? kInterface : kNewAddress;
        message[kFlagsAt + (bBigEndian ? 3 : 0)] = p[2];
        message[kIndexAt + (bBigEndian ? 1 : 0)] = p[3];
        message.insert(message.end(), p + kPiece, p + kPiece + nContents);
        message[kLengthAt + (bBigEndian ? 0 : 1)] = static_cast<uint8_t>(message.size() >> 8);
        message[kLengthAt + (bBigEndian ? 1 : 0)] = static_cast<uint8_t>(message.size());
        buffer.insert(buffer.end(), message.begin(), message.end());
        p += kPiece + nContents;
        nSize -= kPiece + nContents;
    }
    return buffer;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    if (nSize == 0)
        return 0;
    const bool bBigEndian = (pData[0] & 1) != 0;
    const bool bAsItIs = (pData[0] & 2) != 0;
    Buffer buffer = bAsItIs ? Buffer(pData + 1, pData + nSize) : Messages(pData + 1, nSize - 1, bBigEndian);
    buffer.shrink_to_fit(); // so that the sanitizer sees its end
    vyx_inter::AdapterList list;
    const auto order = bBigEndian ? vyx_inter::ByteOrder::Big : vyx_inter::ByteOrder::Little;
    vyx_inter::WalkRoutingMessages(buffer.data(), buffer.size(), order, &list);
    VYX_ADAPTER_INFO *pList = nullptr;
    REQUIRE(list.Finish(&pList) == VYX_OK);
    const vyx_inter::AdapterListHolder holder(pList);
    size_t nCount = 0;
    for (const auto *p = pList; p != nullptr; p = p->pNext, ++nCount) {
        REQUIRE(std::memchr(p->szName, 0, sizeof p->szName) != nullptr);
        REQUIRE(p->nAddrLen <= sizeof p->byAddr);
        REQUIRE(p->pReservedList1 == nullptr && p->pReservedList2 == nullptr);
    }
    REQUIRE(nCount * kLeastInterface <= buffer.size());
    return 0;
}
