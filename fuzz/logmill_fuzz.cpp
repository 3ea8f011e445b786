// What a sender may say to logmill's collector, in pieces of any size, ended or torn off. A greeting that is none stores nothing
// and gets no answer; otherwise each line is stored once, in order, under its number and name, and the answer counts them.
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <ctime>
#include <poll.h>
#include <regex>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>
#include <vyx/frame.h>
#include <vyx/log.h>

#include "collector.h"
#include "connection.h"
#include "input.h"
#include "support/temp_dir.h"

namespace {

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
Sender s_sender;

// Greeting, name and line feed are taken off the text. False if it is no sender's.
bool Greet(std::string *pText, std::string *pName) {
    static const std::regex s_greeting("LOGMILL 1 ([A-Za-z0-9._-]{1,64})");
    const size_t nEnd = pText->find('\n');
    const std::string sLine = pText->substr(0, nEnd);
    std::smatch found;
    if (nEnd == std::string::npos || !std::regex_match(sLine, found, s_greeting))
        return false;
    *pName = found[1];
    pText->erase(0, nEnd + 1);
    return true;
}

// The lines in the pieces in which they are stored. Of a line that was torn off, what is sure not to end it.
std::vector<Stored> Expected(std::string sText, bool bTorn, int32_t *pLines) {
    std::vector<Stored> stored;
    std::replace(sText.begin(), sText.end(), '\0', '?');
    std::istringstream lines(sText);
    for (std::string sLine; std::getline(lines, sLine);) {
        for (; sLine.size() > logmill::kPieceBytes; sLine.erase(0, logmill::kPieceBytes))
            stored.push_back({*pLines + 1, sLine.substr(0, logmill::kPieceBytes)});
        if (!lines.eof() || !bTorn)
            stored.push_back({++*pLines, sLine});
    }
    return stored;
}

// Signals at 10,000 a second interrupt its waits.
bool Interrupt() {
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

} // namespace

extern "C" {
ssize_t __wrap_recv(int /*iSocket*/, void *pBytes, size_t nLen, int /*iFlags*/) {
    const size_t nCount =
        s_sender.sBytes.copy(static_cast<char *>(pBytes), std::min(nLen, s_sender.nPiece), s_sender.nAt);
    s_sender.nAt += nCount;
    if (nCount > 0 || !s_sender.bTorn)
        return static_cast<ssize_t>(nCount);
    errno = ECONNRESET;
    return -1;
}
ssize_t __wrap_send(int /*iSocket*/, const void *pBytes, size_t nLen, int /*iFlags*/) {
    s_sender.sAnswer.append(static_cast<const char *>(pBytes), nLen);
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
    s_sender.sName = szFile;
    s_sender.stored.push_back({iLine, sText});
    return 0;
}
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    static const support::TempDir s_folder("/dev/shm");
    static const bool s_bStarted = VYX_Init() == VYX_OK && Interrupt();
    REQUIRE(s_bStarted);
    fuzz::Input input(pData, nSize);
    s_sender = {"", 1 + size_t{input.Byte()} * input.Byte(), input.Pick(2) != 0};
    for (const char c : input.Rest()) // long lines of short inputs
        s_sender.sBytes.append(c == '\x01' ? 950 : 1, c == '\x01' ? 'x' : c);
    int sockets[2] = {-1, -1};
    REQUIRE(socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) == 0);
    {
        const logmill::Options options;
        logmill::Collector collector(options);
        REQUIRE(collector.GetStore().Open(s_folder / "", 0));
        logmill::Connection connection(collector, sockets[0]);
        REQUIRE(connection.Usable());
        connection.Serve();
        collector.GetStore().Close();
    }
    (void)close(sockets[1]);
    std::string sText = s_sender.sBytes;
    std::string sName;
    int32_t iLines = 0;
    const bool bSender = Greet(&sText, &sName);
    REQUIRE(s_sender.stored == (bSender ? Expected(sText, s_sender.bTorn, &iLines) : std::vector<Stored>()));
    REQUIRE(s_sender.sAnswer == (bSender ? "STORED " + std::to_string(iLines) + "\n" : ""));
    REQUIRE(s_sender.stored.empty() || s_sender.sName == sName);
    return 0;
}
