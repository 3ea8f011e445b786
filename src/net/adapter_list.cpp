#include <algorithm>
#include <cstring>
#include <new>

#include "net/adapter_inter.h"
#include "net/net_inter.h"

// Programs in other languages, and those built with another release, rely on where the fields are.
constexpr size_t kPointer = sizeof(void *);
static_assert(offsetof(VYX_IPADDR_STRING, szAddr) == kPointer &&
              offsetof(VYX_IPADDR_STRING, szMask) == kPointer + 16 &&
              sizeof(VYX_IPADDR_STRING) == kPointer + 32);
static_assert(offsetof(VYX_IP6ADDR_ENTRY, byAddr) == kPointer &&
              offsetof(VYX_IP6ADDR_ENTRY, byMask) == kPointer + 16 &&
              sizeof(VYX_IP6ADDR_ENTRY) == kPointer + 32);
static_assert(offsetof(VYX_ADAPTER_INFO, nIndex) == kPointer &&
              offsetof(VYX_ADAPTER_INFO, szName) == kPointer + 4 &&
              offsetof(VYX_ADAPTER_INFO, nAddrLen) == kPointer + 396 &&
              offsetof(VYX_ADAPTER_INFO, byAddr) == kPointer + 400 &&
              offsetof(VYX_ADAPTER_INFO, nType) == kPointer + 408 &&
              offsetof(VYX_ADAPTER_INFO, pIpAddrList) == (kPointer == 8 ? 424 : 416) &&
              offsetof(VYX_ADAPTER_INFO, pIp6AddrList) ==
                  offsetof(VYX_ADAPTER_INFO, pIpAddrList) + 3 * kPointer &&
              sizeof(VYX_ADAPTER_INFO) == offsetof(VYX_ADAPTER_INFO, pIpAddrList) + 4 * kPointer);

namespace {

using vyx_inter::AddressFact;

// Where an entry is linked: a head or the end of an entry, in one of the lists. One of the two is null.
struct Place {
    VYX_IPADDR_STRING **ppIp;
    VYX_IP6ADDR_ENTRY **ppIp6;
};

// The 16 bytes of both fields of an entry: two texts, or two addresses.
struct EntryBytes {
    uint8_t first[16] = {};
    uint8_t second[16] = {};
};
static_assert(sizeof(VYX_IPADDR_STRING::szAddr) == sizeof EntryBytes::first &&
                  sizeof(VYX_IP6ADDR_ENTRY::byAddr) == sizeof EntryBytes::first &&
                  sizeof(VYX_IPADDR_STRING) == sizeof(VYX_IP6ADDR_ENTRY),
              "an entry of either list can hold an address of either family");

EntryBytes BytesOf_Local(const AddressFact &fact) {
    EntryBytes bytes;
    if (fact.bIp6) {
        std::memcpy(bytes.first, fact.byAddr, sizeof bytes.first);
        std::memcpy(bytes.second, fact.byMask, sizeof bytes.second);
        return bytes;
    }
    char szText[16] = {};
    (void)VYX_InetNtop4(fact.byAddr, szText, sizeof szText); // 16 always suffice
    std::memcpy(bytes.first, szText, sizeof bytes.first);
    std::memset(szText, 0, sizeof szText);
    (void)VYX_InetNtop4(fact.byMask, szText, sizeof szText);
    std::memcpy(bytes.second, szText, sizeof bytes.second);
    return bytes;
}

VYX_IPADDR_STRING *NewIpEntry_Local(const EntryBytes &bytes) {
    auto *pEntry = new (std::nothrow) VYX_IPADDR_STRING();
    if (pEntry == nullptr)
        return nullptr;
    std::memcpy(pEntry->szAddr, bytes.first, sizeof bytes.first);
    std::memcpy(pEntry->szMask, bytes.second, sizeof bytes.second);
    return pEntry;
}

VYX_IP6ADDR_ENTRY *NewIp6Entry_Local(const EntryBytes &bytes) {
    auto *pEntry = new (std::nothrow) VYX_IP6ADDR_ENTRY();
    if (pEntry == nullptr)
        return nullptr;
    std::memcpy(pEntry->byAddr, bytes.first, sizeof bytes.first);
    std::memcpy(pEntry->byMask, bytes.second, sizeof bytes.second);
    return pEntry;
}

// Links a new entry and leaves the place behind it in *pBehindLast; false if memory is short.
bool LinkAddress_Local(VYX_ADAPTER_INFO *pAdapter, const AddressFact &fact, Place *pBehindLast) {
    // Deliberate: only the first address of a family begins the list of its family. Every other one is linked
    // behind the last address of either, so that it may come into the other family's list, whose callers read
    // it as one of theirs. It is made as an entry of that list. Pinned by
    // Adapters.AddressesAreLinkedBehindTheLastOfEitherFamily.
    Place place = *pBehindLast;
    if (fact.bIp6 && pAdapter->pIp6AddrList == nullptr)
        place = {nullptr, &pAdapter->pIp6AddrList};
    else if (!fact.bIp6 && pAdapter->pIpAddrList == nullptr)
        place = {&pAdapter->pIpAddrList, nullptr};
    const EntryBytes bytes = BytesOf_Local(fact);
    if (place.ppIp6 != nullptr) {
        VYX_IP6ADDR_ENTRY *const pEntry = NewIp6Entry_Local(bytes);
        if (pEntry == nullptr)
            return false;
        *place.ppIp6 = pEntry;
        *pBehindLast = {nullptr, &pEntry->pNext};
        return true;
    }
    VYX_IPADDR_STRING *const pEntry = NewIpEntry_Local(bytes);
    if (pEntry == nullptr)
        return false;
    *place.ppIp = pEntry;
    *pBehindLast = {&pEntry->pNext, nullptr};
    return true;
}

template <class Entry>
void FreeEntries_Local(Entry *pEntry) {
    while (pEntry != nullptr) {
        Entry *const pNext = pEntry->pNext;
        delete pEntry;
        pEntry = pNext;
    }
}

struct ByIndex {
    bool operator()(const AddressFact &a, const AddressFact &b) const { return a.nIndex < b.nIndex; }
};

} // namespace

namespace vyx_inter {

void AdapterList::AddInterface(const InterfaceFact &fact) {
    if (!fact.bUpAndRunning || m_bAdapterFailed)
        return;
    auto *const pAdapter = new (std::nothrow) VYX_ADAPTER_INFO();
    if (pAdapter == nullptr) {
        m_bAdapterFailed = true;
        return;
    }
    pAdapter->nIndex = fact.nIndex;
    std::copy_n(fact.pName, std::min(fact.nNameLen, sizeof pAdapter->szName - 1), pAdapter->szName);
    pAdapter->nAddrLen = static_cast<uint32_t>(std::min(fact.nAddrLen, sizeof pAdapter->byAddr));
    std::copy_n(fact.pAddr, pAdapter->nAddrLen, pAdapter->byAddr);
    pAdapter->nType = fact.nType;
    if (m_pLast == nullptr)
        m_list.reset(pAdapter);
    else
        m_pLast->pNext = pAdapter;
    m_pLast = pAdapter;
}

void AdapterList::AddAddress(const AddressFact &fact) {
    try {
        m_addresses.push_back(fact);
    } catch (...) {
        m_bAddressFailed = true;
    }
}

bool AdapterList::LinkAddresses(VYX_ADAPTER_INFO *pAdapter) const {
    AddressFact wanted = {};
    wanted.nIndex = pAdapter->nIndex;
    Place behindLast = {&pAdapter->pIpAddrList, nullptr}; // unused until one of the lists begins
    const auto range = std::equal_range(m_addresses.begin(), m_addresses.end(), wanted, ByIndex());
    for (auto i = range.first; i != range.second; ++i) {
        if (!LinkAddress_Local(pAdapter, *i, &behindLast))
            return false;
    }
    return true;
}

int32_t AdapterList::Finish(VYX_ADAPTER_INFO **ppList) {
    // Deliberate: without memory for an adapter the list is empty, which callers cannot tell from a system
    // without adapters. Pinned by Adapters.ShortOfMemory.
    if (m_bAdapterFailed)
        m_list.reset();
    if (m_list != nullptr && m_bAddressFailed)
        return VYX_ERROR;
    std::stable_sort(m_addresses.begin(), m_addresses.end(), ByIndex());
    for (VYX_ADAPTER_INFO *pAdapter = m_list.get(); pAdapter != nullptr; pAdapter = pAdapter->pNext) {
        if (!LinkAddresses(pAdapter))
            return VYX_ERROR;
    }
    *ppList = m_list.release();
    return VYX_OK;
}

} // namespace vyx_inter

int32_t VYX_FreeAdapterInfo(VYX_ADAPTER_INFO *pList) {
    while (pList != nullptr) {
        VYX_ADAPTER_INFO *const pAdapter = pList;
        pList = pAdapter->pNext;
        FreeEntries_Local(pAdapter->pIpAddrList);
        FreeEntries_Local(pAdapter->pReservedList1);
        FreeEntries_Local(pAdapter->pReservedList2);
        FreeEntries_Local(pAdapter->pIp6AddrList);
        delete pAdapter;
    }
    return VYX_OK;
}
