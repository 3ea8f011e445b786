// Connections over loopback, and what is measured on them, for the library and for its peers.
//
// A way of sending and receiving is a pair of functions that transfer a whole buffer within a time on a descriptor.
#ifndef VYX_BENCH_NET_BENCH_H
#define VYX_BENCH_NET_BENCH_H

#include <arpa/inet.h>
#include <atomic>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <vyx/net.h>

#include "support/bench.h"

namespace netbench {

using SendAll = ssize_t (*)(int, const void *, size_t);
using RecvAll = ssize_t (*)(int, void *, size_t);

// How many connections there have been: descriptors are used again, so a peer that keeps something for one compares
// this number as well.
inline std::atomic<int> g_nConnections{0};

// Both ends of a connection over loopback.
struct Connection {
    int client = -1;
    int server = -1;

    Connection() {
        ++g_nConnections;
        const int listener = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr = {};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t nLength = sizeof addr;
        auto *pAddr = reinterpret_cast<sockaddr *>(&addr);
        client = socket(AF_INET, SOCK_STREAM, 0);
        if (bind(listener, pAddr, nLength) == 0 && listen(listener, 1) == 0 &&
            getsockname(listener, pAddr, &nLength) == 0 && connect(client, pAddr, nLength) == 0)
            server = accept(listener, nullptr, nullptr);
        (void)close(listener);
        (void)VYX_SetNoDelay(client, 1);
        (void)VYX_SetNoDelay(server, 1);
    }
    ~Connection() {
        (void)close(client);
        (void)close(server);
    }
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;
};

// One thread sends blocks of 64 KiB, another receives them: the time of a block.
template <SendAll Send, RecvAll Recv>
void Stream(benchmark::State &state) {
    constexpr size_t kBlock = 65536;
    constexpr int kBlocks = 512;
    const Connection connection;
    std::vector<char> out(kBlock);
    std::vector<char> in(kBlock);
    for (auto _ : state) {
        const auto start = bench::Clock::now();
        std::thread sender([&] {
            for (int n = 0; n < kBlocks; ++n)
                benchmark::DoNotOptimize(Send(connection.client, out.data(), kBlock));
        });
        bool bGood = true;
        for (int n = 0; n < kBlocks && bGood; ++n)
            bGood = Recv(connection.server, in.data(), kBlock) == static_cast<ssize_t>(kBlock);
        sender.join();
        if (!bGood)
            return state.SkipWithError("the stream broke");
        state.SetIterationTime(bench::MicrosecondsSince(start) * 1e-6 / kBlocks);
    }
}

// 64 bytes there and back, between two threads: the time of a round.
template <SendAll Send, RecvAll Recv>
void PingPong(benchmark::State &state) {
    constexpr size_t kSize = 64;
    constexpr int kRounds = 500;
    const Connection connection;
    char szBytes[kSize] = {};
    for (auto _ : state) {
        std::thread echo([&] {
            char szEcho[kSize];
            for (int n = 0; n < kRounds && Recv(connection.server, szEcho, kSize) == kSize; ++n)
                (void)Send(connection.server, szEcho, kSize);
        });
        std::vector<double> samples;
        bool bGood = true;
        for (int n = 0; n < kRounds; ++n) {
            const auto start = bench::Clock::now();
            bGood = Send(connection.client, szBytes, kSize) == kSize &&
                    Recv(connection.client, szBytes, kSize) == kSize && bGood;
            samples.push_back(bench::MicrosecondsSince(start));
        }
        echo.join();
        if (!bGood)
            return state.SkipWithError("the connection broke");
        bench::TimeOfMedian(state, samples);
    }
}

// Sides of peers for the two cases above; a peer's file adds its own before main.
struct Peer {
    const char *szName;
    void (*pfnStream)(benchmark::State &);
    void (*pfnPingPong)(benchmark::State &);
};
inline std::vector<Peer> &Peers() {
    static std::vector<Peer> s_peers;
    return s_peers;
}
inline int AddPeer(const Peer &peer) {
    Peers().push_back(peer);
    return 0;
}
inline void ComparePeers() {
    for (const Peer &peer : Peers()) {
        bench::Compare("stream_64_kib", {{peer.szName, peer.pfnStream}}, bench::ByHand);
        bench::Compare("ping_pong_64", {{peer.szName, peer.pfnPingPong}}, bench::ByHand);
    }
}

} // namespace netbench

#endif
