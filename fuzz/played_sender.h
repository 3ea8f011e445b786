// A connection of logmill's collector with all around it played: a sender whose bytes arrive in pieces, and a log that keeps what
// it is given. A program includes this once and wraps the calls.
#ifndef VYX_FUZZ_PLAYED_SENDER_H_
#define VYX_FUZZ_PLAYED_SENDER_H_

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <ctime>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>
#include <vyx/log.h>

#include "collector.h"
#include "connection.h"
#include "input.h"

namespace fuzz {

using Stored = std::pair<int32_t, std::string>; // a line's number and text

struct Sender {
    std::string sBytes;
    size_t nPiece; // bytes that arrive at once
    bool bTorn;    // not ended
    size_t nAt = 0;
    std::string sAnswer = {};
    std::string sName = {}; // under which the log was told the lines
    std::vector<Stored> stored = {};
};
static Sender s_sender;

// Signals at 10,000 a second interrupt its waits.
inline bool Interrupt() {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    sigevent event = {};
    event.sigev_notify = SIGEV_SIGNAL;
    event.sigev_signo = SIGUSR2;
    const itimerspec interval = {{0, 100000}, {0, 100000}};
    timer_t timer;
    return sigaction(SIGUSR2, &action, nullptr) == 0 && timer_create(CLOCK_MONOTONIC, &event, &timer) == 0 &&
           timer_settime(timer, 0, &interval, nullptr) == 0;
}

// The sender's connection, from its beginning to its end.
inline void Serve(const std::string &sFolder) {
    int sockets[2] = {-1, -1};
    REQUIRE(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) == 0);
    {
        const logmill::Options options;
        logmill::Collector collector(options);
        REQUIRE(collector.GetStore().Open(sFolder, 0));
        logmill::Connection connection(collector, sockets[0]);
        REQUIRE(connection.Usable());
        connection.Serve();
        collector.GetStore().Close();
    }
    (void)close(sockets[1]);
}

} // namespace fuzz

extern "C" {
ssize_t __wrap_recv(int /*iSocket*/, void *pBytes, size_t nLen, int /*iFlags*/) {
    fuzz::Sender &sender = fuzz::s_sender;
    const size_t nCount =
        sender.sBytes.copy(static_cast<char *>(pBytes), std::min(nLen, sender.nPiece), sender.nAt);
    sender.nAt += nCount;
    if (nCount > 0 || !sender.bTorn)
        return static_cast<ssize_t>(nCount);
    errno = ECONNRESET;
    return -1;
}
ssize_t __wrap_send(int /*iSocket*/, const void *pBytes, size_t nLen, int /*iFlags*/) {
    fuzz::s_sender.sAnswer.append(static_cast<const char *>(pBytes), nLen);
    return static_cast<ssize_t>(nLen);
}
int __wrap_poll(struct pollfd *pFds, nfds_t /*nFds*/, int /*iTimeOut*/) {
    pFds->revents = pFds->events;
    return 1;
}
uint32_t __wrap_VYX_WaitForMultipleObjects(uint32_t /*nCount*/, const VYX_EVENT * /*pEvents*/,
                                           int32_t /*bAll*/, uint32_t /*nTimeOut*/) {
    return VYX_WAIT_OBJECT_0 + 1; // something has arrived
}
int32_t __wrap_VYX_OutputDebug(const char * /*szFormat*/, ...) {
    return 0;
}
int32_t __wrap_WriteLog(log_level eLevel, const char *szFile, int32_t iLine, const char *szFormat, ...) {
    REQUIRE(eLevel >= VYX_LOG_LEVEL_ERR && eLevel <= VYX_LOG_LEVEL_INF);
    std::string sText(3000, '\0');
    va_list args;
    va_start(args, szFormat);
    sText.resize(static_cast<size_t>(std::vsnprintf(sText.data(), sText.size(), szFormat, args)));
    va_end(args);
    fuzz::s_sender.sName = szFile;
    fuzz::s_sender.stored.push_back({iLine, sText});
    return 0;
}
}

#endif
