// Darwin: the kernel's routing messages, read by sysctl in one piece.
#include <cstddef>
#include <memory>
#include <net/if.h>
#include <net/if_dl.h>
#include <net/route.h>
#include <new>
#include <sys/socket.h>
#include <sys/sysctl.h>

#include "base/platform.h"
#include "net/adapter_inter.h"
#include "net/route_walk.h"

namespace route = vyx_inter::route;

static_assert(route::kInterface == RTM_IFINFO && route::kNewAddress == RTM_NEWADDR, "message types");
static_assert(route::kUp == IFF_UP && route::kRunning == IFF_RUNNING, "flags");
static_assert(route::kIp == AF_INET && route::kIp6 == AF_INET6, "families");
static_assert(route::kInterfaceHeader == sizeof(if_msghdr) && route::kAddressHeader == sizeof(ifa_msghdr),
              "sizes");
static_assert(route::kTypeAt == offsetof(if_msghdr, ifm_type) &&
                  route::kTypeAt == offsetof(ifa_msghdr, ifam_type),
              "type");
static_assert(route::kFlagsAt == offsetof(if_msghdr, ifm_flags), "flags");
static_assert(route::kIndexAt == offsetof(ifa_msghdr, ifam_index), "index");
static_assert(route::kLinkIndexAt == offsetof(sockaddr_dl, sdl_index) &&
                  route::kLinkTypeAt == offsetof(sockaddr_dl, sdl_type) &&
                  route::kLinkNameLengthAt == offsetof(sockaddr_dl, sdl_nlen) &&
                  route::kLinkAddrLengthAt == offsetof(sockaddr_dl, sdl_alen) &&
                  route::kLinkData == offsetof(sockaddr_dl, sdl_data),
              "link-level address");
static_assert(route::kIpBytesAt == offsetof(sockaddr_in, sin_addr) &&
                  route::kIp6BytesAt == offsetof(sockaddr_in6, sin6_addr),
              "addresses");

// The byte order of this processor.
#if defined(__BIG_ENDIAN__)
constexpr auto kOrder = vyx_inter::ByteOrder::Big;
#else
constexpr auto kOrder = vyx_inter::ByteOrder::Little;
#endif

int32_t VYX_ReadInterfaces_Inter(vyx_inter::AdapterList *pList) {
    int name[] = {CTL_NET, PF_ROUTE, 0, 0, NET_RT_IFLIST, 0}; // all families, all interfaces
    constexpr unsigned kNames = sizeof name / sizeof name[0];
    size_t nSize = 0;
    if (sysctl(name, kNames, nullptr, &nSize, nullptr, 0) != 0)
        return VYX_ERROR;
    const std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[nSize]);
    if (!buffer || sysctl(name, kNames, buffer.get(), &nSize, nullptr, 0) != 0)
        return VYX_ERROR;
    vyx_inter::WalkRoutingMessages(buffer.get(), nSize, kOrder, pList);
    return VYX_OK;
}
