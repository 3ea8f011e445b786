// What the tests of sockets share: sockets that close themselves, connections over loopback.
#ifndef VYX_TESTS_NET_SUPPORT_H
#define VYX_TESTS_NET_SUPPORT_H

#include <cstring>
#include <string>
#include <utility>

#include <gtest/gtest.h>
#include <vyx/net.h>

#include "support/support.h"

namespace nettest {

inline uint32_t LongTime() {
    return 20000U * static_cast<uint32_t>(support::TimeScale()); // only a failure takes that long
}

class Socket {
  public:
    explicit Socket(VYX_SOCK_T hSocket = VYX_INVALID_SOCKET) : m_hSocket(hSocket) {}
    Socket(int32_t iFamily, int32_t iType) : m_hSocket(VYX_CreateSocket(iFamily, iType, 0)) {}
    Socket(Socket &&other) noexcept : m_hSocket(other.Release()) {}
    ~Socket() { Close(); }
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;

    operator VYX_SOCK_T() const { return m_hSocket; }
    void Close() {
        if (m_hSocket != VYX_INVALID_SOCKET)
            (void)VYX_CloseSocket(Release(), 0);
    }
    VYX_SOCK_T Release() { return std::exchange(m_hSocket, VYX_INVALID_SOCKET); }

  private:
    VYX_SOCK_T m_hSocket;
};

inline VYX_ADDR_T Loopback(int32_t iFamily, uint16_t nPort = 0) {
    VYX_ADDR_T addr = {};
    if (iFamily == AF_INET)
        (void)VYX_MakeAddr4ByInt(htonl(INADDR_LOOPBACK), nPort, &addr);
    else
        (void)VYX_MakeAddr6ByInt(in6addr_loopback.s6_addr, nPort, &addr);
    return addr;
}

inline VYX_ADDR_T LocalOf(VYX_SOCK_T hSocket) {
    VYX_ADDR_T addr = {};
    EXPECT_EQ(VYX_GetAddrBySockFd(hSocket, &addr, nullptr), VYX_OK);
    return addr;
}

// A socket on a free port of loopback, listening if it is a stream; none where the family is missing.
inline Socket Bound(int32_t iFamily, int32_t iType = SOCK_STREAM) {
    Socket socket(iFamily, iType);
    const VYX_ADDR_T addr = Loopback(iFamily);
    if (socket == VYX_INVALID_SOCKET || VYX_Bind(socket, &addr) != 0 ||
        (iType == SOCK_STREAM && VYX_Listen(socket, 16) != 0))
        socket.Close();
    return socket;
}

struct Pair {
    explicit Pair(int32_t iFamily = AF_INET) : client(iFamily, SOCK_STREAM), server(Connect(iFamily)) {}
    Socket client;
    Socket server;

  private:
    VYX_SOCK_T Connect(int32_t iFamily) {
        const Socket listener = Bound(iFamily);
        const VYX_ADDR_T addr = LocalOf(listener);
        EXPECT_EQ(VYX_ConnectWithTimeOut(client, &addr, LongTime()), 0);
        return VYX_Accept(listener, nullptr, LongTime());
    }
};

} // namespace nettest

#endif
