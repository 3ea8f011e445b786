// From what a platform reports about its interfaces to the list that callers get.
//
// The platform's file reads the report and turns it into facts, one for each interface and one for each
// address, in the order reported. AdapterList makes the list of them; which adapters are in it and how their
// addresses are linked is decided there alone.
#ifndef VYX_NET_ADAPTER_INTER_H
#define VYX_NET_ADAPTER_INTER_H

#include <memory>
#include <vector>

#include <vyx/net.h>

namespace vyx_inter {

// One interface. The pointers are borrowed for the call that takes it, and may be null where the length is 0.
struct InterfaceFact {
    uint32_t nIndex;
    bool bUpAndRunning;
    const uint8_t *pName; // not zero-terminated
    size_t nNameLen;
    const uint8_t *pAddr; // hardware address
    size_t nAddrLen;
    uint32_t nType;
};

// One address of an interface, in network order. Of IPv4 the first four bytes count.
struct AddressFact {
    uint32_t nIndex;
    bool bIp6;
    uint8_t byAddr[16];
    uint8_t byMask[16];
};

struct AdapterListFree {
    void operator()(VYX_ADAPTER_INFO *pList) const { (void)VYX_FreeAdapterInfo(pList); }
};
using AdapterListHolder = std::unique_ptr<VYX_ADAPTER_INFO, AdapterListFree>;

// Takes the facts, in any mixture, and makes the list. For one thread.
class AdapterList {
  public:
    void AddInterface(const InterfaceFact &fact);
    void AddAddress(const AddressFact &fact);
    // Links the addresses to their adapters and hands the list over, null if there is no adapter. To be
    // called once. Result: VYX_OK; VYX_ERROR and *ppList untouched if memory was short for the addresses. If
    // it was short for an adapter: VYX_OK and null.
    int32_t Finish(VYX_ADAPTER_INFO **ppList);

  private:
    bool LinkAddresses(VYX_ADAPTER_INFO *pAdapter) const;

    AdapterListHolder m_list;
    VYX_ADAPTER_INFO *m_pLast = nullptr;
    std::vector<AddressFact> m_addresses;
    bool m_bAdapterFailed = false;
    bool m_bAddressFailed = false;
};

} // namespace vyx_inter

#endif
