/*
 * The network: addresses, sockets, waiting for readiness, names and adapters.
 *
 * Nothing here needs the started library, but VYX_Init makes SIGPIPE ignored, without which writing to a closed
 * connection ends the process. Results and errno are the platform's unless a function says otherwise. Every
 * function may be called from any thread, with the platform's own rules for the use of one socket by several.
 * Time-outs are milliseconds; VYX_INFINITE means no limit, and signals do not end a wait. They are measured by
 * VYX_GetTimeTick, so setting the clock lengthens or shortens a wait that signals interrupt, and those of VYX_Sendn,
 * VYX_Recvn and VYX_RecvWithTimeOut, which share their time among several waits. From 0x80000000 on they wait without
 * limit, too, but until the first signal only, and VYX_Sendn and VYX_Recvn then transfer once only. VYX_INVALID_SOCKET
 * is never ready: a wait for it takes all its time.
 */
#ifndef VYX_NET_H
#define VYX_NET_H

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/types.h>
#include <vyx/types.h>

/*
 * An address of either family, laid out as the platform's socket address, so that a pointer to it may be passed
 * on as one. 28 bytes. Zero it before building: the functions below write only the fields that they are given,
 * so the length byte that some platforms have, the flow information and the scope stay as they are.
 */
typedef union VYX_ADDR_T {
    struct sockaddr sa;
    struct sockaddr_in in4;
    struct sockaddr_in6 in6;
} VYX_ADDR_T;

/* An address taken apart. */
typedef struct VYX_ADDR_EXP_T {
    uint32_t nFamily;   /* AF_INET or AF_INET6 */
    uint8_t byAddr[16]; /* network order; of IPv4 the first four are set */
    uint16_t nPort;     /* host order */
} VYX_ADDR_EXP_T;

/* One result of VYX_GetAddressInfo, and the form of its hints. The first four are the platform's numbers. */
typedef struct VYX_ADDRESS_INFO_T {
    int32_t iFlags;
    int32_t iFamily;
    int32_t iSockType;
    int32_t iProtocol;
    VYX_ADDR_T struAddr;              /* set for IPv4 and IPv6 only */
    char *pCanonName;                 /* owned by the node, or null */
    struct VYX_ADDRESS_INFO_T *pNext; /* null at the end */
} VYX_ADDRESS_INFO_T;

/* One IPv4 address of an adapter, as dotted quads. */
typedef struct VYX_IPADDR_STRING {
    struct VYX_IPADDR_STRING *pNext;
    char szAddr[16];
    char szMask[16];
} VYX_IPADDR_STRING;

/* One IPv6 address of an adapter. */
typedef struct VYX_IP6ADDR_ENTRY {
    struct VYX_IP6ADDR_ENTRY *pNext;
    uint8_t byAddr[16];
    uint8_t byMask[16];
} VYX_IP6ADDR_ENTRY;

/* One network adapter. */
typedef struct VYX_ADAPTER_INFO {
    struct VYX_ADAPTER_INFO *pNext;
    uint32_t nIndex;   /* the platform's interface index */
    char szName[392];  /* zero-terminated */
    uint32_t nAddrLen; /* valid bytes of byAddr */
    uint8_t byAddr[8]; /* hardware address */
    uint32_t nType;    /* the platform's interface type */
    VYX_IPADDR_STRING *pIpAddrList;
    VYX_IPADDR_STRING *pReservedList1; /* null */
    VYX_IPADDR_STRING *pReservedList2; /* null */
    VYX_IP6ADDR_ENTRY *pIp6AddrList;
} VYX_ADAPTER_INFO;

VYX_BEGIN_DECLS

/* ---- Addresses: integers are in network order, ports in host order ------------------------------------------ */

/*
 * Takes over a platform's socket address.
 *   pSockAddr  borrowed for the call
 *   iLength    bytes at pSockAddr. Of more than 28 the first 28 are copied, so a sockaddr_storage may be passed whole
 *   pAddr      receives them; what lies behind iLength bytes of it stays
 *
 * Result:  VYX_OK; VYX_ERROR if a pointer is null or iLength is 0 or less.
 * Threads: any.
 */
VYX_API int32_t VYX_MakeAddr(const void *pSockAddr, int32_t iLength, VYX_ADDR_T *pAddr);

/*
 * Builds an address from text.
 *   iFamily  AF_INET, read by the platform's inet_addr, or AF_INET6, read as VYX_InetPton does
 *   szText   null or empty stands for the any-address
 *   nPort    in host order
 *   pAddr    receives family, address and port
 *
 * Result:  VYX_OK; VYX_ERROR if pAddr is null, the family is another, or the text is refused (for IPv4 the address in
 *          pAddr is then all ones). 255.255.255.255 is refused.
 * Threads: any.
 */
VYX_API int32_t VYX_MakeAddrByString(int32_t iFamily, const char *szText, uint16_t nPort, VYX_ADDR_T *pAddr);

/*
 * Builds an IPv4 address.
 *   nAddr  in network order
 *   nPort  in host order
 *
 * Result:  VYX_OK; VYX_ERROR for a null pAddr.
 * Threads: any.
 */
VYX_API int32_t VYX_MakeAddr4ByInt(uint32_t nAddr, uint16_t nPort, VYX_ADDR_T *pAddr);

/*
 * Builds an IPv6 address.
 *   pBytes16  16 bytes in network order; not checked for null
 *   nPort     in host order
 *
 * Result:  VYX_OK; VYX_ERROR for a null pAddr.
 * Threads: any.
 */
VYX_API int32_t VYX_MakeAddr6ByInt(const uint8_t *pBytes16, uint16_t nPort, VYX_ADDR_T *pAddr);

/* Tells the family of an address. Result: AF_INET, AF_INET6 or whatever is in it; VYX_ERROR for null. Threads: any. */
VYX_API int32_t VYX_GetAddrType(const VYX_ADDR_T *pAddr);

/*
 * The address as text, without its port.
 *
 * Result:  a static buffer; null for a null pAddr, another family, or an IPv6 address that VYX_InetNtop cannot show.
 * Threads: one at a time. The text is valid until the next call from any thread, so this is not for programs with
 *          several threads that print addresses: VYX_InetNtop is.
 */
VYX_API char *VYX_GetAddrString(const VYX_ADDR_T *pAddr);

/*
 * The address of an IPv4 record, in network order.
 *   pOut  receives it; not checked for null, untouched on failure
 *
 * Result:  VYX_OK; VYX_ERROR for a null pAddr and any other family.
 * Threads: any.
 */
VYX_API int32_t VYX_GetAddr4Int(const VYX_ADDR_T *pAddr, uint32_t *pOut);

/*
 * The 16 address bytes of a record of any family but IPv4.
 *   pOut16  receives them; not checked for null, untouched on failure
 *
 * Result:  VYX_OK; VYX_ERROR for a null pAddr and IPv4.
 * Threads: any.
 */
VYX_API int32_t VYX_GetAddr6Int(const VYX_ADDR_T *pAddr, uint8_t *pOut16);

/*
 * Takes an address apart; every family but IPv4 is read as IPv6.
 *
 * Result:  VYX_OK; VYX_ERROR for a null pointer, with nothing written.
 * Threads: any.
 */
VYX_API int32_t VYX_GetAddrInfo(const VYX_ADDR_T *pAddr, VYX_ADDR_EXP_T *pExp);

/*
 * The socket's own address and its peer's (getsockname, getpeername).
 *   pLocal, pPeer  either may be null, not both. When both are asked for, an IPv4 peer limits the own address to 16
 *                  bytes, which suffices. Of a longer name, as sockets of the local domain have, each gets the first 28
 *                  bytes
 *
 * Result:  VYX_OK; VYX_ERROR with the platform's errno, or for two null pointers. The peer is asked first.
 * Threads: any.
 */
VYX_API int32_t VYX_GetAddrBySockFd(VYX_SOCK_T hSocket, VYX_ADDR_T *pLocal, VYX_ADDR_T *pPeer);

/*
 * Reads an address text by the library's own rules, the same on every platform.
 *   pOut  16 bytes if szText holds a ':', else 4; written on success only
 *
 * IPv4 is four decimal numbers, leading zeros allowed. IPv6 differs from inet_pton: too few groups are filled up
 * with zeros ("1:2"), a single ':' or any one character at the end is passed over, a :: at the very start makes no
 * room ("::1" is group 1 first), and a dotted quad behind :: is refused.
 *
 * Result:  VYX_OK; VYX_ERROR for a malformed text or a null pointer.
 * Threads: any.
 */
VYX_API int32_t VYX_InetPton(const char *szText, void *pOut);

/*
 * Prints an address.
 *   pBytes  4 or 16 address bytes
 *   iSize   bytes at szOut. For AF_INET the text's length is enough, though its zero is then written one byte
 *           behind: give 16. For AF_INET6 the zero counts: 46 always suffice
 *
 * Result:  szOut; null if a pointer is null, iSize is 0 or too small, or the family is another. An IPv6 address that
 *          ends in a dotted quad (after six zero groups, or five and ffff) has no text, and gives null, if that quad
 *          is longer than 8 characters.
 * Threads: any.
 */
VYX_API char *VYX_InetNtop(int32_t iFamily, const void *pBytes, char *szOut, int32_t iSize);

/* Sets the port of an address, given in host order. Result: VYX_OK; VYX_ERROR for null. Threads: any. */
VYX_API int32_t VYX_SetAddrPort(VYX_ADDR_T *pAddr, uint16_t nPort);

/* Tells the port of an address. Result: the port in host order; 0 for null. Threads: any. */
VYX_API uint16_t VYX_GetAddrPort(const VYX_ADDR_T *pAddr);

/* ---- Sockets: the platform calls, with their results (a count or 0, and -1 with errno) ---------------------- */

/*
 * socket: makes a socket, with the platform's numbers for its family, type and protocol.
 *
 * Result:  the socket, to which the caller owes VYX_CloseSocket; VYX_INVALID_SOCKET with errno.
 * Threads: any.
 */
VYX_API VYX_SOCK_T VYX_CreateSocket(int32_t iFamily, int32_t iType, int32_t iProtocol);

/* shutdown: ends one or both directions (SHUT_RD, SHUT_WR, SHUT_RDWR). Result: 0; -1 with errno. Threads: any. */
VYX_API int32_t VYX_ShutDown(VYX_SOCK_T hSocket, int32_t iHow);

/*
 * close.
 *   bShutDown  not 0: a shutdown of both directions first, whose result does not matter. It also ends the connection
 *              for other descriptors of it
 *
 * Result:  0; -1 with errno.
 * Threads: one; nobody may use the number afterwards. A thread that is cancelled closes it first.
 */
VYX_API int32_t VYX_CloseSocket(VYX_SOCK_T hSocket, int32_t bShutDown);

/* bind: gives the socket its own address. Result: 0; -1 with errno, and for a null address. Threads: any. */
VYX_API int32_t VYX_Bind(VYX_SOCK_T hSocket, const VYX_ADDR_T *pAddr);

/* listen: at most iBacklog connections wait for VYX_Accept. Result: 0; -1 with errno. Threads: any. */
VYX_API int32_t VYX_Listen(VYX_SOCK_T hSocket, int32_t iBacklog);

/*
 * send, without flags: one attempt, which blocks on a blocking socket without room.
 *   iLen  bytes at pBuf; a negative one is refused with EINVAL
 *
 * Result:  the bytes taken, perhaps fewer; -1 with errno.
 * Threads: any; the bytes of several senders mix on a stream.
 */
VYX_API int32_t VYX_Send(VYX_SOCK_T hSocket, const void *pBuf, int32_t iLen);

/*
 * recv, without flags: one attempt, which blocks on a blocking socket without data.
 *   iLen  room at pBuf; a negative one is refused with EINVAL
 *
 * Result:  the bytes received; 0 at the end of a stream; -1 with errno.
 * Threads: any; each byte goes to one receiver.
 */
VYX_API int32_t VYX_Recv(VYX_SOCK_T hSocket, void *pBuf, int32_t iLen);

/*
 * sendto: as VYX_Send, to an address.
 *   iLen  bytes at pBuf; a negative one is refused with EINVAL
 *   pTo   the receiver's address; must not be null
 *
 * Result:  the bytes taken; -1 with errno.
 * Threads: any.
 */
VYX_API int32_t VYX_SendTo(VYX_SOCK_T hSocket, const void *pBuf, int32_t iLen, const VYX_ADDR_T *pTo);

/*
 * recvfrom: as VYX_Recv, with the sender.
 *   iLen   room at pBuf; a negative one is refused with EINVAL
 *   pFrom  receives the sender's address; may be null
 *
 * Result:  the bytes received, 0 for an empty datagram; -1 with errno.
 * Threads: any; each datagram goes to one receiver.
 */
VYX_API int32_t VYX_RecvFrom(VYX_SOCK_T hSocket, void *pBuf, int32_t iLen, VYX_ADDR_T *pFrom);

/* ioctl, for requests with a pointer (FIONREAD). Result: ioctl's; -1 with errno. Threads: any. */
VYX_API int32_t VYX_Ioctl(VYX_SOCK_T hSocket, int32_t iRequest, void *pArg);

/*
 * Makes a socket non-blocking (bOn not 0) or blocking, for all descriptors of it.
 *
 * Result:  0; -1 with errno.
 * Threads: any, but not at once with one that changes the flags of the same socket.
 */
VYX_API int32_t VYX_SetNonBlock(VYX_SOCK_T hSocket, int32_t bOn);

/* ---- Options ------------------------------------------------------------------------------------------------- */

/* Sets IP_TTL, the hops that what an IPv4 socket sends may take. Result: 0; -1 with errno. Threads: any. */
VYX_API int32_t VYX_SetTTL(VYX_SOCK_T hSocket, int32_t iTTL);

/* Sets IPV6_UNICAST_HOPS, the hops that what an IPv6 socket sends may take. Result: 0; -1 with errno. Threads: any. */
VYX_API int32_t VYX_SetTTL_V6(VYX_SOCK_T hSocket, int32_t iHops);

/* Sets IP_MULTICAST_TTL, the hops to groups of IPv4. Result: 0; -1 with errno. Threads: any. */
VYX_API int32_t VYX_SetMultiCastTTL(VYX_SOCK_T hSocket, int32_t iTTL);

/* Sets IPV6_MULTICAST_HOPS, the hops to groups of IPv6. Result: 0; -1 with errno. Threads: any. */
VYX_API int32_t VYX_SetMultiCastTTL_V6(VYX_SOCK_T hSocket, int32_t iHops);

/* Reads IP_TTL into *pTTL. Result: 0; -1 with errno. Threads: any. */
VYX_API int32_t VYX_GetTTL(VYX_SOCK_T hSocket, int32_t *pTTL);

/* Reads IPV6_UNICAST_HOPS into *pHops. Result: 0; -1 with errno. Threads: any. */
VYX_API int32_t VYX_GetTTL_V6(VYX_SOCK_T hSocket, int32_t *pHops);

/* Sets IP_TOS, the type of service of what an IPv4 socket sends. Result: 0; -1 with errno. Threads: any. */
VYX_API int32_t VYX_SetTOS(VYX_SOCK_T hSocket, int32_t iTOS);

/* Reads IP_TOS into *pTOS. Result: 0; -1 with errno. Threads: any. */
VYX_API int32_t VYX_GetTOS(VYX_SOCK_T hSocket, int32_t *pTOS);

/* Sets SO_REUSEADDR: an address in use may be bound, as the platform allows. Result: 0; -1 with errno. Threads: any. */
VYX_API int32_t VYX_SetReuseAddr(VYX_SOCK_T hSocket, int32_t bOn);

/* Sets TCP_NODELAY: small segments go at once (bOn not 0) or are collected. Result: 0; -1 with errno. Threads: any. */
VYX_API int32_t VYX_SetNoDelay(VYX_SOCK_T hSocket, int32_t bOn);

/* Switches SO_BROADCAST on; there is no way to switch it off. Result: 0; -1 with errno. Threads: any. */
VYX_API int32_t VYX_BroadCast(VYX_SOCK_T hSocket);

/* Switches SO_LINGER off: a close does not wait for unsent data, which still go out. Result: 0; -1 with errno. Threads:
 * any. */
VYX_API int32_t VYX_LingerOff(VYX_SOCK_T hSocket);

/*
 * Switches SO_LINGER on: a close waits for unsent data.
 *   iSeconds  the low 16 bits count; 0 drops the data and resets the connection
 *
 * Result:  0; -1 with errno.
 * Threads: any.
 */
VYX_API int32_t VYX_LingerOn(VYX_SOCK_T hSocket, int32_t iSeconds);

/*
 * Time-outs of the socket itself (SO_RCVTIMEO, then SO_SNDTIMEO), for the calls that block in it.
 *   iSendMs, iRecvMs  milliseconds; 0 leaves that one alone. What is beyond whole seconds is stored as that many
 *                     microseconds: 1500 is one second and 500 microseconds
 *
 * Result:  0; -1 with errno if any that was asked for failed.
 * Threads: any.
 */
VYX_API int32_t VYX_SetTimeOut(VYX_SOCK_T hSocket, int32_t iSendMs, int32_t iRecvMs);

/*
 * Sizes of the socket's buffers in bytes (SO_RCVBUF, then SO_SNDBUF); 0 leaves that one alone.
 *
 * Result:  0; -1 with errno if any that was asked for failed.
 * Threads: any.
 */
VYX_API int32_t VYX_SetBuffSize(VYX_SOCK_T hSocket, int32_t iSendSize, int32_t iRecvSize);

/*
 * The sizes of the socket's buffers in bytes, which may be others than were set.
 *   pSendSize, pRecvSize  receive them; null leaves that one out
 *
 * Result:  0; -1 with errno if any that was asked for failed.
 * Threads: any.
 */
VYX_API int32_t VYX_GetBuffSize(VYX_SOCK_T hSocket, int32_t *pSendSize, int32_t *pRecvSize);

/* ---- Connections, whole buffers and groups ------------------------------------------------------------------- */

/*
 * Waits for a connection and accepts it.
 *   pAddr     receives the peer's address; may be null
 *   nTimeOut  VYX_INFINITE waits in accept itself, which a signal handler may interrupt. Otherwise accept is called
 *             once a connection is there
 *
 * Result:  the new socket, to which the caller owes VYX_CloseSocket; -1 on time-out and failure.
 * Threads: any. If several threads or processes accept from one socket, make it non-blocking, or one whose connection
 *          another took waits in accept for the next. A thread that is cancelled with a limit on a non-blocking
 *          socket loses no connection.
 */
VYX_API VYX_SOCK_T VYX_Accept(VYX_SOCK_T hSocket, VYX_ADDR_T *pAddr, uint32_t nTimeOut);

/*
 * Connects. With a limit the socket is made non-blocking meanwhile and is always blocking afterwards, whatever it was.
 *   nTimeOut  milliseconds. With VYX_INFINITE it is a plain connect with an address length of 16, which IPv6 needs more
 *             than: give a limit
 *
 * Result:  0; -1 for a null address, on time-out (no message) and on failure. A failure to wait or to connect prints a
 *          line on standard error, with errno, not the socket's error. With a limit an attempt that the platform
 *          refuses at once (no route, an address of another family) may give 0, where a socket without a peer
 *          counts as writable: VYX_GetAddrBySockFd then has no peer to tell of.
 * Threads: one for a socket; its mode changes during the call. The socket of a thread that is cancelled is blocking, too,
 *          and its attempt may go on.
 */
VYX_API int32_t VYX_ConnectWithTimeOut(VYX_SOCK_T hSocket, const VYX_ADDR_T *pAddr, uint32_t nTimeOut);

/*
 * Joins a multicast group, whose family decides.
 *   pLocal  IPv4: the address of the interface to use. IPv6: not read, but not null
 *   pGroup  IPv6: its flow information field (in6.sin6_flowinfo) holds the interface index
 *
 * Result:  0; -1 with errno, for a null pointer and for any other family.
 * Threads: any.
 */
VYX_API int32_t VYX_JoinMultiCastGroup(VYX_SOCK_T hSocket, const VYX_ADDR_T *pLocal,
                                       const VYX_ADDR_T *pGroup);

/*
 * Leaves a multicast group, whose family decides.
 *   pLocal  IPv4: the address of the interface. IPv6: not read, but not null
 *   pGroup  as it was joined: VYX_JoinMultiCastGroup
 *
 * Result:  0; -1 with errno, for a null pointer and for any other family.
 * Threads: any.
 */
VYX_API int32_t VYX_LeaveMultiCastGroup(VYX_SOCK_T hSocket, const VYX_ADDR_T *pLocal,
                                        const VYX_ADDR_T *pGroup);

/*
 * Sends all of a buffer within a total time, at least one attempt, at once. With a limit it does not block longer than
 * that on a blocking socket either (Darwin: by making the socket non-blocking for the length of each send).
 *   iLen      bytes at pBuf
 *   nTimeOut  milliseconds, from the first wait on, whatever they are spent with
 *
 * Result:  the bytes sent, fewer than iLen when time ran out or the connection failed, 0 for a negative iLen. Never -1.
 * Threads: any; the bytes of several senders mix.
 */
VYX_API int32_t VYX_Sendn(VYX_SOCK_T hSocket, const void *pBuf, int32_t iLen, uint32_t nTimeOut);

/*
 * Waits for data, then receives once, as much as there is up to iLen. The receiving itself does not block: if another
 * thread was quicker, the wait goes on. Where the platform reports an end or an error instead of data, its answer
 * decides.
 *   nTimeOut  milliseconds
 *
 * Result:  the count; -1 on time-out, failure, end of the connection, and for an iLen of 0 or less.
 * Threads: any; each byte goes to one receiver.
 */
VYX_API int32_t VYX_RecvWithTimeOut(VYX_SOCK_T hSocket, void *pBuf, int32_t iLen, uint32_t nTimeOut);

/*
 * Receives exactly iLen bytes within a total time. With a limit the receiving itself does not block, so that no peer
 * can hold the call for longer.
 *   nTimeOut  milliseconds, as in VYX_Sendn
 *
 * Result:  iLen; fewer, possibly 0, when time ran out; -1 on failure, if a signal used up the last of the time, for a
 *          negative iLen, or if the peer ended the connection before (the bytes received until then are in pBuf, but
 *          not counted).
 * Threads: any; each byte goes to one receiver.
 */
VYX_API int32_t VYX_Recvn(VYX_SOCK_T hSocket, void *pBuf, int32_t iLen, uint32_t nTimeOut);

/* ---- Waiting for readiness ---------------------------------------------------------------------------------- */

/*
 * The bit of a descriptor in a set.
 *   iFd   within the set: this is not checked. A negative number is in no set
 *   pSet  an fd_set, or an array of 32-bit words
 *
 * Result:  0, or the bit itself within its word, such as 8 for descriptor 3 (negative for the highest).
 * Threads: any.
 */
VYX_API int32_t VYX_FdIsSet(int32_t iFd, const void *pSet);

/*
 * select, which leaves the caller's time-out as it is; null waits without limit.
 *
 * Result:  select's; -1 with errno, also when a signal handler interrupted it.
 * Threads: any.
 */
VYX_API int32_t VYX_Select(int32_t n, fd_set *pRead, fd_set *pWrite, fd_set *pExcept,
                           const struct timeval *pTimeOut);

/*
 * select, which may store the time that is left in *pTimeOut (Linux does); null waits without limit.
 *
 * Result:  select's; -1 with errno, also when a signal handler interrupted it.
 * Threads: any.
 */
VYX_API int32_t VYX_SelectEx(int32_t n, fd_set *pRead, fd_set *pWrite, fd_set *pExcept,
                             struct timeval *pTimeOut);

/*
 * poll, once.
 *   iTimeOut  milliseconds; negative waits without limit
 *
 * Result:  poll's; -1 with errno, also when a signal handler interrupted it.
 * Threads: any.
 */
VYX_API int32_t VYX_Poll(struct pollfd *pFds, uint32_t nCount, int32_t iTimeOut);

/*
 * poll for a total time, repeated when a signal handler interrupts it.
 *   pTimeOut  milliseconds, lowered to the time that is left (never below 0), so that several calls can share one
 *             budget. Null or VYX_INFINITE in it waits without limit and changes nothing
 *
 * Result:  poll's; -1 with EINTR if the time ran out during interruptions.
 * Threads: any.
 */
VYX_API int32_t VYX_PollEx(struct pollfd *pFds, uint32_t nCount, uint32_t *pTimeOut);

/* ---- Names and adapters: nothing here sets the library's last error ------------------------------------------ */

/*
 * The host's own name (gethostname), zero-terminated.
 *   iLen  bytes at szBuf. If the name and its zero do not fit, the platform decides between -1 and a cut name
 *
 * Result:  0; -1 with errno, also for a null szBuf (EINVAL), a negative iLen (EINVAL) and 0 (ENAMETOOLONG).
 * Threads: any.
 */
VYX_API int32_t VYX_GetHostName(char *szBuf, int32_t iLen);

/*
 * gethostbyname: looks up the IPv4 addresses of a name. It may ask name servers, hence block.
 *
 * Result:  the platform's static record; null if there is no answer or szName is null.
 * Threads: one at a time. The record is valid until the next such call from any thread, so this is not for programs
 *          with several threads that look up names: VYX_GetAddressInfo is. Cancellation and forks: as there.
 */
VYX_API struct hostent *VYX_GetAddressByName(const char *szName);

/* Turns a 16-bit number from host to network order. Result: its bytes swapped on little-endian processors, the number
 * itself on big-endian ones. Threads: any. */
VYX_API uint16_t VYX_Htons(uint16_t nValue);

/* Turns a 16-bit number from network to host order. Result: its bytes swapped on little-endian processors, the number
 * itself on big-endian ones. Threads: any. */
VYX_API uint16_t VYX_Ntohs(uint16_t nValue);

/* Turns a 32-bit number from host to network order. Result: its bytes reversed on little-endian processors, the number
 * itself on big-endian ones. Threads: any. */
VYX_API uint32_t VYX_Htonl(uint32_t nValue);

/* Turns a 32-bit number from network to host order. Result: its bytes reversed on little-endian processors, the number
 * itself on big-endian ones. Threads: any. */
VYX_API uint32_t VYX_Ntohl(uint32_t nValue);

/*
 * getaddrinfo: turns a host and a service into addresses. It may ask name servers, hence block.
 *   szNode, szService  name or number; either may be null, not both
 *   pHints             null, or a node whose numbers restrict the result. Its address, if it is IPv4 or IPv6, and its
 *                      canonical name are passed on too; platforms may ignore or refuse them, so leave them zero. It
 *                      stays the caller's
 *   ppList             receives the results in the platform's order; untouched on failure. The caller owes them one
 *                      VYX_FreeAddressInfo
 *
 * The canonical name, asked for by AI_CANONNAME, is in the first node. The ports are in network order, in struAddr.
 *
 * Result:  0; -1 if there is no answer, memory is short or ppList is null. The platform's code is not passed on.
 * Threads: any number at once. The platform may keep a descriptor if a thread is cancelled while it looks up a name. A
 *          child that is forked meanwhile by another thread must not look up names; addresses in digits it may.
 */
VYX_API int32_t VYX_GetAddressInfo(const char *szNode, const char *szService,
                                   const VYX_ADDRESS_INFO_T *pHints, VYX_ADDRESS_INFO_T **ppList);

/* Frees a whole list of VYX_GetAddressInfo; null is fine. Result: always 0. Threads: one for a list. */
VYX_API int32_t VYX_FreeAddressInfo(VYX_ADDRESS_INFO_T *pList);

/*
 * Lists the adapters that are up and running, in the platform's order, with their addresses (Linux: a netlink socket
 * for the length of the call; Darwin: sysctl).
 *   ppList  receives the list, null if there is none; untouched on failure. The caller owes it one VYX_FreeAdapterInfo
 *
 * nType is the platform's number: IFT_ETHER on Darwin, ARPHRD_ETHER on Linux and so on. Of a hardware address longer
 * than 8 bytes, as InfiniBand has, the first 8 are kept and nAddrLen is 8. Names and addresses are the kernel's own.
 *
 * The first IPv4 address of an adapter begins pIpAddrList, the first IPv6 address pIp6AddrList. Every other one is
 * linked behind the address before it, whichever list that is in: where the platform reports IPv4, IPv6, IPv4, the
 * third is in the IPv6 list, the 16 characters of its texts in byAddr and byMask; and an IPv6 address may come into
 * the IPv4 list likewise, its 16 bytes, without a zero behind them, in szAddr and szMask. The head of a list is always
 * of its family. Linux reports all IPv4 addresses first, so that the lists are pure there.
 *
 * Result:  0; -1 if the platform's list cannot be read, memory is short, or ppList is null. If memory is short for an
 *          adapter rather than its addresses, the result is 0 and the list null.
 * Threads: any number at once.
 */
VYX_API int32_t VYX_GetAdapterInfo(VYX_ADAPTER_INFO **ppList);

/* Frees a whole list of VYX_GetAdapterInfo, the reserved lists of its adapters included; null is fine. Result: always
 * 0. Threads: one for a list. */
VYX_API int32_t VYX_FreeAdapterInfo(VYX_ADAPTER_INFO *pList);

/*
 * The hardware address of the adapter that has a given IPv6 address.
 *   szText  the address's bytes themselves up to the first zero byte or the sixteenth, not a printed address: the
 *           text "\xfe\x80" finds the first adapter whose first IPv6 address begins with fe80:00
 *   pAddr   receives the hardware address: room for 8 bytes, whatever *pLen says
 *   pLen    must not hold 0; receives the bytes written, and 6 on failure. Untouched if an argument is refused
 *
 * Only the first IPv6 address of each adapter counts, and adapters without one are passed over.
 *
 * Result:  0; -1 if no adapter matches or the list cannot be read, and, with a line on standard error, if a pointer is
 *          null or *pLen is 0.
 * Threads: any number at once.
 */
VYX_API int32_t VYX_GetMacAddr(const char *szText, uint8_t *pAddr, uint32_t *pLen);

VYX_END_DECLS

#endif
