// Sockets, transfers, waits, names and adapters.
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vyx/vyx.h>

#include "scenario.h"

namespace {

using torture::Act;
namespace may = torture::may;

// A socket of the outside world.
struct Socket {
    const int iFd;
    Socket(int iFamily, int iType) : iFd(socket(iFamily, iType, 0)) {}
    ~Socket() { (void)close(iFd); }
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;
};

VYX_ADDR_T Loopback(uint16_t nPort) {
    VYX_ADDR_T addr = {};
    MUST(VYX_MakeAddr4ByInt(htonl(INADDR_LOOPBACK), nPort, &addr) == VYX_OK);
    return addr;
}

// Bound to a free port of the loopback.
VYX_ADDR_T BindToLoopback(int iFd) {
    VYX_ADDR_T addr = Loopback(0);
    socklen_t nLength = sizeof addr.in4;
    MUST(bind(iFd, &addr.sa, nLength) == 0 && getsockname(iFd, &addr.sa, &nLength) == 0);
    return addr;
}

bool Ok(int32_t iResult, int iLine) {
    return torture::JudgeResult(iResult, may::errors, iLine);
}
#define SOCKET_OK(result) ((void)Ok((result), __LINE__))

void Options() {
    const Socket four(AF_INET, SOCK_STREAM);
    const Socket group(AF_INET, SOCK_DGRAM);
    const Socket six(AF_INET6, SOCK_DGRAM); // which the machine may not have
    const VYX_ADDR_T local = Loopback(0);
    VYX_ADDR_T address = {};
    MUST(VYX_MakeAddr4ByInt(htonl(0xe00000fbU), 0, &address) == VYX_OK); // 224.0.0.251
    Act([&] {
        const int iFd = four.iFd;
        int32_t iValue = 0;
        int32_t iOther = 0;
        SOCKET_OK(CALL(VYX_SetTTL)(iFd, 9));
        SOCKET_OK(CALL(VYX_GetTTL)(iFd, &iValue));
        SOCKET_OK(CALL(VYX_SetTOS)(iFd, 8));
        SOCKET_OK(CALL(VYX_GetTOS)(iFd, &iValue));
        SOCKET_OK(CALL(VYX_SetMultiCastTTL)(group.iFd, 3));
        SOCKET_OK(CALL(VYX_SetReuseAddr)(iFd, 1));
        SOCKET_OK(CALL(VYX_SetNoDelay)(iFd, 1));
        SOCKET_OK(CALL(VYX_BroadCast)(iFd));
        SOCKET_OK(CALL(VYX_LingerOn)(iFd, 1));
        SOCKET_OK(CALL(VYX_LingerOff)(iFd));
        SOCKET_OK(CALL(VYX_SetTimeOut)(iFd, 1000, 1000));
        SOCKET_OK(CALL(VYX_SetBuffSize)(iFd, 10000, 10000));
        SOCKET_OK(CALL(VYX_GetBuffSize)(iFd, &iValue, &iOther));
        OK(CALL(VYX_SetNonBlock)(iFd, 1), may::descriptors); // flags that cannot be read are not noticed
        if (Ok(CALL(VYX_JoinMultiCastGroup)(group.iFd, &local, &address), __LINE__))
            SOCKET_OK(CALL(VYX_LeaveMultiCastGroup)(group.iFd, &local, &address));
        SOCKET_OK(CALL(VYX_Listen)(iFd, 3));
        MUST(CALL(VYX_Accept)(iFd, nullptr, 1) == VYX_INVALID_SOCKET);
        const auto IfSix = [&](int32_t iResult, int iLine) { return six.iFd < 0 || Ok(iResult, iLine); };
        (void)IfSix(CALL(VYX_SetTTL_V6)(six.iFd, 9), __LINE__);
        (void)IfSix(CALL(VYX_GetTTL_V6)(six.iFd, &iValue), __LINE__);
        (void)IfSix(CALL(VYX_SetMultiCastTTL_V6)(six.iFd, 9), __LINE__);
    });
}

// Result: how many bytes went; 0 if the call was refused.
int32_t Went(int32_t iCount, int32_t iRefused, int32_t iMost, uint32_t nMay, int iLine) {
    return torture::Judge(iCount > 0 && iCount <= iMost, iCount == iRefused, nMay, iLine) ? iCount : 0;
}

// Bytes there and back on a connection, as long as all goes well.
void Transfer(VYX_SOCK_T hNear, VYX_SOCK_T hFar) {
    char szBytes[64] = {};
    constexpr int32_t kMost = sizeof szBytes;
    constexpr uint32_t kTriesAgain = may::interrupts | may::polls | may::clocks;
    int32_t nSent = Went(CALL(VYX_Send)(hNear, szBytes, kMost), -1, kMost, may::errors, __LINE__);
    if (nSent == 0 || Went(CALL(VYX_Recv)(hFar, szBytes, nSent), -1, nSent, may::errors, __LINE__) != nSent)
        return;
    nSent = CALL(VYX_Sendn)(hNear, szBytes, kMost, 1000);
    if (!DONE(nSent == kMost, nSent >= 0 && nSent < kMost, kTriesAgain))
        return;
    const int32_t iGot = CALL(VYX_Recvn)(hFar, szBytes, kMost, 1000);
    if (!DONE(iGot == kMost, iGot == -1, kTriesAgain))
        return;
    nSent = CALL(VYX_Sendn)(hFar, szBytes, kMost, VYX_INFINITE);
    if (DONE(nSent == kMost, nSent >= 0 && nSent < kMost, kTriesAgain))
        (void)Went(CALL(VYX_RecvWithTimeOut)(hNear, szBytes, kMost, 1000), -1, kMost, kTriesAgain, __LINE__);
}

void Connection() {
    const Socket listener(AF_INET, SOCK_STREAM);
    const VYX_ADDR_T address = BindToLoopback(listener.iFd);
    MUST(listen(listener.iFd, 10) == 0);
    (void)fcntl(listener.iFd, F_SETFL,
                O_NONBLOCK); // a connection that failed does not come
    Act([&] {
        const VYX_SOCK_T hNear = CALL(VYX_CreateSocket)(AF_INET, SOCK_STREAM, 0);
        if (!DONE(hNear >= 0, hNear == VYX_INVALID_SOCKET, may::errors))
            return;
        // With a limit it does not show that the mode cannot be set or SO_ERROR not be read.
        const bool bConnected = OK(CALL(VYX_ConnectWithTimeOut)(hNear, &address, 1000),
                                   may::interrupts | may::descriptors | may::sockets | may::clocks);
        VYX_ADDR_T peer = {};
        const VYX_SOCK_T hFar = bConnected ? CALL(VYX_Accept)(listener.iFd, &peer, 1000) : VYX_INVALID_SOCKET;
        // Whether the listener blocks decides only where a thread can be cancelled.
        constexpr uint32_t kMay = may::interrupts | may::or_not | may::clocks | may::descriptors;
        if (bConnected && DONE(hFar >= 0, hFar == VYX_INVALID_SOCKET, kMay)) {
            VYX_ADDR_T local = {};
            SOCKET_OK(CALL(VYX_GetAddrBySockFd)(hNear, &local, &peer));
            Transfer(hNear, hFar);
            int iPending = 0;
            SOCKET_OK(CALL(VYX_Ioctl)(hNear, FIONREAD, &iPending));
            SOCKET_OK(CALL(VYX_ShutDown)(hNear, SHUT_WR));
        }
        if (hFar >= 0) // that it cannot be shut down does not show
            OK(CALL(VYX_CloseSocket)(hFar, 1), may::errors | may::sockets);
        SOCKET_OK(CALL(VYX_CloseSocket)(hNear, 0));
    });
    for (int iFd = accept(listener.iFd, nullptr, nullptr); iFd >= 0;
         iFd = accept(listener.iFd, nullptr, nullptr))
        (void)close(iFd);
}

void Datagram() {
    Act([] {
        const VYX_SOCK_T hSocket = CALL(VYX_CreateSocket)(AF_INET, SOCK_DGRAM, 0);
        if (!DONE(hSocket >= 0, hSocket == VYX_INVALID_SOCKET, may::errors))
            return;
        VYX_ADDR_T address = Loopback(0);
        if (Ok(CALL(VYX_Bind)(hSocket, &address), __LINE__) &&
            Ok(CALL(VYX_GetAddrBySockFd)(hSocket, &address, nullptr), __LINE__)) {
            char szByte[1] = {};
            VYX_ADDR_T from = {};
            if (Went(CALL(VYX_SendTo)(hSocket, szByte, 1, &address), -1, 1, may::errors, __LINE__) == 1)
                (void)Went(CALL(VYX_RecvFrom)(hSocket, szByte, 1, &from), -1, 1, may::errors, __LINE__);
        }
        SOCKET_OK(CALL(VYX_CloseSocket)(hSocket, 0));
    });
}

void Readiness() {
    int iEnds[2];
    MUST(pipe(iEnds) == 0 && write(iEnds[1], "x", 1) == 1);
    Act([&] {
        const auto One = [](int32_t iReady, uint32_t nMay, int iLine) {
            (void)torture::Judge(iReady == 1, iReady == -1, nMay | may::errors, iLine);
        };
        struct pollfd entry = {iEnds[0], POLLIN, 0};
        One(CALL(VYX_Poll)(&entry, 1, 1000), 0, __LINE__);
        uint32_t nTimeOut = 1000;
        One(CALL(VYX_PollEx)(&entry, 1, &nTimeOut), may::interrupts | may::clocks, __LINE__);
        fd_set read;
        FD_ZERO(&read);
        FD_SET(iEnds[0], &read);
        struct timeval limit = {1, 0};
        One(CALL(VYX_Select)(iEnds[0] + 1, &read, nullptr, nullptr, &limit), 0, __LINE__);
        FD_SET(iEnds[0], &read);
        One(CALL(VYX_SelectEx)(iEnds[0] + 1, &read, nullptr, nullptr, &limit), 0, __LINE__);
    });
    (void)close(iEnds[0]);
    (void)close(iEnds[1]);
}

// What the C library sets up for its first look-up is not tried again where memory was short for it, and one of its
// locks stays taken then.
void Names() {
    VYX_ADDRESS_INFO_T *pFirst = nullptr;
    MUST(VYX_GetAddressByName("127.0.0.1") != nullptr);
    MUST(VYX_GetAddressInfo("127.0.0.1", "80", nullptr, &pFirst) == VYX_OK);
    (void)VYX_FreeAddressInfo(pFirst);
    Act([] {
        char szName[300];
        SOCKET_OK(CALL(VYX_GetHostName)(szName, sizeof szName));
        const struct hostent *const pHost = CALL(VYX_GetAddressByName)("127.0.0.1");
        (void)DONE(pHost != nullptr, pHost == nullptr, may::memory | may::descriptors);
        VYX_ADDRESS_INFO_T hints = {};
        hints.iFlags = AI_NUMERICHOST | AI_CANONNAME;
        auto *const pUntouched = reinterpret_cast<VYX_ADDRESS_INFO_T *>(szName);
        VYX_ADDRESS_INFO_T *pList = pUntouched;
        if (OK(CALL(VYX_GetAddressInfo)("127.0.0.1", "80", &hints, &pList), may::memory | may::descriptors))
            (void)VYX_FreeAddressInfo(pList);
        else
            MUST(pList == pUntouched);
    });
}

void Adapters() {
    Act([] {
        VYX_ADAPTER_INFO *pList = nullptr;
        OK(CALL(VYX_GetAdapterInfo)(&pList),
           may::memory | may::interrupts | may::or_not | may::descriptors | may::errors);
        (void)VYX_FreeAdapterInfo(pList);
        uint8_t byAddr[8];
        uint32_t nLength = 8;
        MUST(CALL(VYX_GetMacAddr)("\xff\xff", byAddr, &nLength) == VYX_ERROR &&
             nLength == 6); // nobody has it
    });
}

} // namespace

const std::vector<torture::Scenario> torture::kNetScenarios = {
    {"socket options", Options}, {"connection", Connection}, {"datagram", Datagram},
    {"readiness", Readiness},    {"names", Names},           {"adapters", Adapters},
};
