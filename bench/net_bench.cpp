// Sockets and addresses, beside the platform's own calls.
#include <arpa/inet.h>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vyx/net.h>

#include "net_bench.h"

using netbench::Connection;
using netbench::PingPong;
using netbench::Stream;

namespace {

// ---- One call each

void RawOption(benchmark::State &state) {
    const Connection connection;
    const int iOn = 1;
    for (auto _ : state)
        benchmark::DoNotOptimize(setsockopt(connection.client, SOL_SOCKET, SO_REUSEADDR, &iOn, sizeof iOn));
}

void VyxOption(benchmark::State &state) {
    const Connection connection;
    for (auto _ : state)
        benchmark::DoNotOptimize(VYX_SetReuseAddr(connection.client, 1));
}

template <ssize_t (*Send)(int, const void *, size_t), ssize_t (*Recv)(int, void *, size_t)>
void SendRecv(benchmark::State &state) {
    const Connection connection;
    char szBytes[64] = {};
    for (auto _ : state) {
        benchmark::DoNotOptimize(Send(connection.client, szBytes, sizeof szBytes));
        benchmark::DoNotOptimize(Recv(connection.server, szBytes, sizeof szBytes));
    }
}

ssize_t RawSend(int fd, const void *pBytes, size_t nSize) {
    return send(fd, pBytes, nSize, 0);
}
ssize_t RawRecv(int fd, void *pBytes, size_t nSize) {
    return recv(fd, pBytes, nSize, 0);
}
ssize_t VyxSend(int fd, const void *pBytes, size_t nSize) {
    return VYX_Send(fd, pBytes, static_cast<int32_t>(nSize));
}
ssize_t VyxRecv(int fd, void *pBytes, size_t nSize) {
    return VYX_Recv(fd, pBytes, static_cast<int32_t>(nSize));
}

// ---- Whole buffers

constexpr int kTimeOut = 10000; // milliseconds

// Blocking calls, which know no limit.
ssize_t RawSendAll(int fd, const void *pBytes, size_t nSize) {
    for (size_t nDone = 0; nDone < nSize;) {
        const ssize_t n = send(fd, static_cast<const char *>(pBytes) + nDone, nSize - nDone, 0);
        if (n < 1)
            return -1;
        nDone += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(nSize);
}

ssize_t RawRecvAll(int fd, void *pBytes, size_t nSize) {
    for (size_t nDone = 0; nDone < nSize;) {
        const ssize_t n = recv(fd, static_cast<char *>(pBytes) + nDone, nSize - nDone, 0);
        if (n < 1)
            return -1;
        nDone += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(nSize);
}

// With a limit, by hand: there is room to send, and data are waited for.
ssize_t HandRecvAll(int fd, void *pBytes, size_t nSize) {
    for (size_t nDone = 0; nDone < nSize;) {
        pollfd entry = {fd, POLLIN, 0};
        if (poll(&entry, 1, kTimeOut) != 1)
            return -1;
        const ssize_t n = recv(fd, static_cast<char *>(pBytes) + nDone, nSize - nDone, MSG_DONTWAIT);
        if (n < 1)
            return -1;
        nDone += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(nSize);
}

ssize_t VyxSendAll(int fd, const void *pBytes, size_t nSize) {
    return VYX_Sendn(fd, pBytes, static_cast<int32_t>(nSize), kTimeOut);
}

ssize_t VyxRecvAll(int fd, void *pBytes, size_t nSize) {
    return VYX_Recvn(fd, pBytes, static_cast<int32_t>(nSize), kTimeOut);
}

// ---- Addresses as text

const char *const kTexts4[] = {"127.0.0.1", "192.168.100.200", "8.8.8.8", "255.1.20.3"};
const char *const kTexts6[] = {"fe80::1", "2001:db8:0:0:8:800:200c:417a",
                               "1::", "2001:db8:85a3::8a2e:370:7334"};

template <int Family>
const char *TextOf(uint32_t n) {
    return Family == AF_INET ? kTexts4[n % 4] : kTexts6[n % 4];
}

template <int Family>
void RawParse(benchmark::State &state) {
    uint8_t bytes[16];
    uint32_t n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(inet_pton(Family, TextOf<Family>(n++), bytes));
        benchmark::DoNotOptimize(bytes);
    }
}

template <int Family>
void VyxParse(benchmark::State &state) {
    uint8_t bytes[16];
    uint32_t n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(VYX_InetPton(TextOf<Family>(n++), bytes));
        benchmark::DoNotOptimize(bytes);
    }
}

template <int Family>
std::vector<uint8_t> Binary() {
    std::vector<uint8_t> bytes(64);
    for (uint32_t n = 0; n < 4; ++n)
        (void)inet_pton(Family, TextOf<Family>(n), &bytes[n * 16]);
    return bytes;
}

template <int Family>
void RawPrint(benchmark::State &state) {
    const std::vector<uint8_t> bytes = Binary<Family>();
    char szText[46];
    uint32_t n = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(inet_ntop(Family, &bytes[n++ % 4 * 16], szText, sizeof szText));
}

template <int Family>
void VyxPrint(benchmark::State &state) {
    const std::vector<uint8_t> bytes = Binary<Family>();
    char szText[46];
    uint32_t n = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(VYX_InetNtop(Family, &bytes[n++ % 4 * 16], szText, sizeof szText));
}

} // namespace

int main(int argc, char **argv) {
    bench::Compare("socket_option", {{"raw", RawOption, 1.03}, {"vyx", VyxOption}});
    bench::Compare("send_recv_64",
                   {{"raw", SendRecv<RawSend, RawRecv>, 1.03}, {"vyx", SendRecv<VyxSend, VyxRecv>}});
    bench::Compare("stream_64_kib",
                   {{"raw", Stream<RawSendAll, RawRecvAll>, 1.02}, {"vyx", Stream<VyxSendAll, VyxRecvAll>}},
                   bench::ByHand);
    bench::Compare(
        "ping_pong_64",
        {{"raw", PingPong<RawSendAll, HandRecvAll>, 1.03}, {"vyx", PingPong<VyxSendAll, VyxRecvAll>}},
        bench::ByHand);
    netbench::ComparePeers();
    bench::Compare("parse_ipv4", {{"raw", RawParse<AF_INET>, 1.0}, {"vyx", VyxParse<AF_INET>}});
    bench::Compare("parse_ipv6", {{"raw", RawParse<AF_INET6>, 1.0}, {"vyx", VyxParse<AF_INET6>}});
    bench::Compare("print_ipv4", {{"raw", RawPrint<AF_INET>, 1.0}, {"vyx", VyxPrint<AF_INET>}});
    bench::Compare("print_ipv6", {{"raw", RawPrint<AF_INET6>, 1.0}, {"vyx", VyxPrint<AF_INET6>}});
    return bench::Run(argc, argv);
}
