// What the tests of sockets share: sockets that close themselves, connections over loopback, a storm of signals, and
// peers written against another library.
#ifndef VYX_TESTS_NET_SUPPORT_H
#define VYX_TESTS_NET_SUPPORT_H

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <vyx/net.h>

#include "support/support.h"

namespace nettest {

inline uint32_t LongTime() {
    return 20000U *
           static_cast<uint32_t>(support::TimeScale()); // milliseconds; only a failure takes that long
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
    VYX_SOCK_T Release() {
        const VYX_SOCK_T hSocket = m_hSocket;
        m_hSocket = VYX_INVALID_SOCKET;
        return hSocket;
    }

  private:
    VYX_SOCK_T m_hSocket;
};

inline VYX_ADDR_T Loopback(int32_t iFamily, uint16_t nPort = 0) {
    VYX_ADDR_T addr;
    std::memset(&addr, 0, sizeof addr);
    if (iFamily == AF_INET) {
        (void)VYX_MakeAddr4ByInt(htonl(INADDR_LOOPBACK), nPort, &addr);
    } else {
        (void)VYX_MakeAddr6ByInt(in6addr_loopback.s6_addr, nPort, &addr);
    }
    return addr;
}

inline VYX_ADDR_T LocalOf(VYX_SOCK_T hSocket) {
    VYX_ADDR_T addr;
    std::memset(&addr, 0, sizeof addr);
    EXPECT_EQ(VYX_GetAddrBySockFd(hSocket, &addr, nullptr), VYX_OK);
    return addr;
}

// A listening socket on a free port; without one where the family is missing.
inline Socket Listener(int32_t iFamily, int32_t iBacklog = 16) {
    Socket listener(iFamily, SOCK_STREAM);
    const VYX_ADDR_T addr = Loopback(iFamily);
    if (listener == VYX_INVALID_SOCKET || VYX_Bind(listener, &addr) != 0 ||
        VYX_Listen(listener, iBacklog) != 0)
        listener.Close();
    return listener;
}

struct Pair {
    explicit Pair(int32_t iFamily = AF_INET) : client(iFamily, SOCK_STREAM), server(Connect(iFamily)) {}
    Socket client;
    Socket server;

  private:
    VYX_SOCK_T Connect(int32_t iFamily) {
        const Socket listener = Listener(iFamily);
        const VYX_ADDR_T addr = LocalOf(listener);
        EXPECT_EQ(VYX_ConnectWithTimeOut(client, &addr, LongTime()), 0);
        return VYX_Accept(listener, nullptr, LongTime());
    }
};

// Interrupts the calling thread again and again while it lives.
class SignalStorm {
  public:
    SignalStorm() : m_target(pthread_self()) {
        struct sigaction action = {};
        action.sa_handler = [](int) {};
        (void)sigaction(SIGUSR1, &action, nullptr);
        m_thread = std::thread([this] {
            while (!m_bEnd) {
                (void)pthread_kill(m_target, SIGUSR1);
                usleep(700); // the storm's rhythm
            }
        });
    }
    ~SignalStorm() {
        m_bEnd = true;
        m_thread.join();
    }
    SignalStorm(const SignalStorm &) = delete;
    SignalStorm &operator=(const SignalStorm &) = delete;

  private:
    pthread_t m_target;
    std::atomic<bool> m_bEnd{false};
    std::thread m_thread;
};

// A program for the platform's own interpreter. What it prints can be read; its end is awaited.
class Python {
  public:
    explicit Python(const std::string &program)
        : m_pOutput(popen(("python3 -c '" + program + "'").c_str(), "r")) {}
    ~Python() { (void)Wait(); }
    Python(const Python &) = delete;
    Python &operator=(const Python &) = delete;

    static bool Available() { return std::system("python3 -c '' 2>/dev/null") == 0; }

    std::string Line() {
        char szLine[256] = "";
        if (m_pOutput == nullptr || std::fgets(szLine, sizeof szLine, m_pOutput) == nullptr)
            return "";
        return std::string(szLine).substr(0, std::strcspn(szLine, "\n"));
    }
    // Its exit status.
    int Wait() {
        const int iStatus = m_pOutput == nullptr ? -1 : pclose(m_pOutput);
        m_pOutput = nullptr;
        return WIFEXITED(iStatus) ? WEXITSTATUS(iStatus) : -1;
    }

  private:
    FILE *m_pOutput;
};

// What a call writes to standard error.
template <class Call>
std::string ErrorsOf(Call call) {
    testing::internal::CaptureStderr();
    call();
    return testing::internal::GetCapturedStderr();
}

// Sets this process's limit of descriptors for its own lifetime; failed if the system does not allow it.
class DescriptorLimit {
  public:
    explicit DescriptorLimit(rlim_t nLimit) {
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &m_before), 0);
        const rlimit wanted = {nLimit, m_before.rlim_max};
        m_bSet = setrlimit(RLIMIT_NOFILE, &wanted) == 0;
    }
    ~DescriptorLimit() { EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &m_before), 0); }
    DescriptorLimit(const DescriptorLimit &) = delete;
    DescriptorLimit &operator=(const DescriptorLimit &) = delete;
    bool IsSet() const { return m_bSet; }

  private:
    rlimit m_before = {};
    bool m_bSet = false;
};

// How many of 200 calls, 50 in each of four threads at once, are true.
template <class Call>
int CountInThreads(Call call) {
    std::atomic<int> iTrue{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            for (int j = 0; j < 50; ++j)
                iTrue += call() ? 1 : 0;
        });
    for (std::thread &thread : threads)
        thread.join();
    return iTrue;
}

} // namespace nettest

#endif
