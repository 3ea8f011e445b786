// Membership in multicast groups.
#include "net/net_inter.h"

namespace {

int32_t Membership_Local(VYX_SOCK_T hSocket, const VYX_ADDR_T *pLocal, const VYX_ADDR_T *pGroup, int iOption4,
                         int iOption6) {
    if (pLocal == nullptr || pGroup == nullptr)
        return VYX_ERROR;
    if (pGroup->sa.sa_family == AF_INET) {
        struct ip_mreq request = {};
        request.imr_multiaddr = pGroup->in4.sin_addr;
        request.imr_interface = pLocal->in4.sin_addr;
        return setsockopt(hSocket, IPPROTO_IP, iOption4, &request, sizeof request);
    }
    if (pGroup->sa.sa_family == AF_INET6) {
        struct ipv6_mreq request = {};
        request.ipv6mr_multiaddr = pGroup->in6.sin6_addr;
        request.ipv6mr_interface = pGroup->in6.sin6_flowinfo; // where callers put the interface index
        return setsockopt(hSocket, IPPROTO_IPV6, iOption6, &request, sizeof request);
    }
    return VYX_ERROR;
}

} // namespace

int32_t VYX_JoinMultiCastGroup(VYX_SOCK_T hSocket, const VYX_ADDR_T *pLocal, const VYX_ADDR_T *pGroup) {
    return Membership_Local(hSocket, pLocal, pGroup, IP_ADD_MEMBERSHIP, IPV6_JOIN_GROUP);
}

int32_t VYX_LeaveMultiCastGroup(VYX_SOCK_T hSocket, const VYX_ADDR_T *pLocal, const VYX_ADDR_T *pGroup) {
    return Membership_Local(hSocket, pLocal, pGroup, IP_DROP_MEMBERSHIP, IPV6_LEAVE_GROUP);
}
