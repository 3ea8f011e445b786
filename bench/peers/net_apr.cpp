// Its sockets with a time-out, which poll only when a call would block.
#include <apr_general.h>
#include <apr_network_io.h>
#include <apr_portable.h>

#include "net_bench.h"

namespace {

// A descriptor's socket of the peer; each thread makes its own, and they live as long as the process.
apr_socket_t *SocketOf(int fd) {
    static thread_local apr_pool_t *s_pPool = nullptr;
    static thread_local int s_fd = -1;
    static thread_local int s_nConnection = 0;
    static thread_local apr_socket_t *s_pSocket = nullptr;
    static const apr_status_t s_started = apr_initialize(); // once: it cannot stand two threads
    if (s_started == APR_SUCCESS && s_pPool == nullptr)
        (void)apr_pool_create(&s_pPool, nullptr);
    if (s_fd != fd || s_nConnection != netbench::g_nConnections) {
        s_fd = fd;
        s_nConnection = netbench::g_nConnections;
        s_pSocket = nullptr;
        (void)apr_os_sock_put(&s_pSocket, &s_fd, s_pPool);
        (void)apr_socket_timeout_set(s_pSocket, apr_time_from_sec(10));
    }
    return s_pSocket;
}

ssize_t Send(int fd, const void *pBytes, size_t nSize) {
    apr_socket_t *pSocket = SocketOf(fd);
    for (size_t nDone = 0; nDone < nSize;) {
        apr_size_t n = nSize - nDone;
        if (apr_socket_send(pSocket, static_cast<const char *>(pBytes) + nDone, &n) != APR_SUCCESS)
            return -1;
        nDone += n;
    }
    return static_cast<ssize_t>(nSize);
}

ssize_t Recv(int fd, void *pBytes, size_t nSize) {
    apr_socket_t *pSocket = SocketOf(fd);
    for (size_t nDone = 0; nDone < nSize;) {
        apr_size_t n = nSize - nDone;
        if (apr_socket_recv(pSocket, static_cast<char *>(pBytes) + nDone, &n) != APR_SUCCESS)
            return -1;
        nDone += n;
    }
    return static_cast<ssize_t>(nSize);
}

const int kAdded = netbench::AddPeer({"apr", netbench::Stream<Send, Recv>, netbench::PingPong<Send, Recv>});

} // namespace
