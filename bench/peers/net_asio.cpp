// Its blocking sockets: whole buffers, without a limit of time.
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <memory>

#include "net_bench.h"

namespace {

using boost::asio::ip::tcp;

// A descriptor's socket of the peer; each thread makes its own, of a copy, since it closes what it has.
tcp::socket &SocketOf(int fd) {
    static thread_local boost::asio::io_context s_context;
    static thread_local std::unique_ptr<tcp::socket> s_pSocket;
    static thread_local int s_fd = -1;
    static thread_local int s_nConnection = 0;
    if (s_fd != fd || s_nConnection != netbench::g_nConnections) {
        s_fd = fd;
        s_nConnection = netbench::g_nConnections;
        s_pSocket = std::make_unique<tcp::socket>(s_context, tcp::v4(), dup(fd));
    }
    return *s_pSocket;
}

ssize_t Send(int fd, const void *pBytes, size_t nSize) {
    boost::system::error_code error;
    return static_cast<ssize_t>(boost::asio::write(SocketOf(fd), boost::asio::buffer(pBytes, nSize), error));
}

ssize_t Recv(int fd, void *pBytes, size_t nSize) {
    boost::system::error_code error;
    return static_cast<ssize_t>(boost::asio::read(SocketOf(fd), boost::asio::buffer(pBytes, nSize), error));
}

const int kAdded =
    netbench::AddPeer({"boost_asio", netbench::Stream<Send, Recv>, netbench::PingPong<Send, Recv>});

} // namespace
