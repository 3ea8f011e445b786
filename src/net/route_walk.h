// Reads the routing messages in which Darwin's kernel lists its interfaces. Plain code over bytes, so that it
// is built and tested on every platform.
#ifndef VYX_NET_ROUTE_WALK_H
#define VYX_NET_ROUTE_WALK_H

#include <cstddef>
#include <cstdint>

#include "net/adapter_inter.h"

namespace vyx_inter {

enum class ByteOrder { Little, Big };

// Places and numbers of the records. Their fields have the same widths for 32 and 64-bit programs, and socket
// addresses are padded to 4 bytes for both.
namespace route {
constexpr uint8_t kNewAddress = 0x0C; // RTM_NEWADDR
constexpr uint8_t kInterface = 0x0E;  // RTM_IFINFO
constexpr uint32_t kUp = 0x1;         // IFF_UP
constexpr uint32_t kRunning = 0x40;   // IFF_RUNNING
constexpr uint8_t kIp = 2;            // AF_INET
constexpr uint8_t kIp6 = 30;          // AF_INET6

// The start of every message, then what if_msghdr and ifa_msghdr share.
constexpr size_t kLengthAt = 0;          // 16 bits, the whole message
constexpr size_t kTypeAt = 3;            // 8 bits
constexpr size_t kPrefix = 4;            // bytes that every message has
constexpr size_t kFlagsAt = 8;           // 32 bits
constexpr size_t kIndexAt = 12;          // 16 bits
constexpr size_t kInterfaceHeader = 112; // sizeof(if_msghdr)
constexpr size_t kAddressHeader = 20;    // sizeof(ifa_msghdr)

// sockaddr_dl: the name and behind it the hardware address begin at kLinkData.
constexpr size_t kLinkIndexAt = 2; // 16 bits
constexpr size_t kLinkTypeAt = 4;  // 8 bits, as the next two
constexpr size_t kLinkNameLengthAt = 5;
constexpr size_t kLinkAddrLengthAt = 6;
constexpr size_t kLinkData = 8;

// sockaddr_in and sockaddr_in6.
constexpr size_t kSockLengthAt = 0; // 8 bits
constexpr size_t kSockFamilyAt = 1; // 8 bits
constexpr size_t kIpBytesAt = 4;
constexpr size_t kIp6BytesAt = 8;
constexpr size_t kIpAddressAt = 12; // from the netmask to the bytes of the IPv4 address that follows it
} // namespace route

// Puts the interfaces and addresses of a whole buffer into the list. The walk ends at a message that is
// shorter than its own start or reaches beyond the buffer; a message whose contents do not fit into it is
// passed over. Reads nothing outside the buffer, which needs no alignment.
void WalkRoutingMessages(const uint8_t *pBuffer, size_t nSize, ByteOrder order, AdapterList *pList);

} // namespace vyx_inter

#endif
