#include "sender.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <vector>
#include <vyx/net.h>
#include <vyx/string.h>
#include <vyx/sys.h>

#include "address.h"
#include "connection.h"

namespace logmill {

namespace {

constexpr size_t kBlockBytes = 65536;
constexpr uint32_t kConnectTimeOut = 5000; // milliseconds
constexpr uint32_t kStallTimeOut = 60000;  // without a byte taken, or for the answer

// Closes what is open at the end.
struct Sender {
    VYX_FILE_T file = VYX_INVALID_FILE;
    VYX_SOCK_T socket = -1;
    uint64_t lines = 0;
    bool inLine = false; // the last byte sent was no line feed

    Sender() = default;
    Sender(const Sender &) = delete;
    Sender &operator=(const Sender &) = delete;
    ~Sender() {
        if (file > 0) // standard input stays
            (void)VYX_CloseFile(file);
        if (socket != -1)
            (void)VYX_CloseSocket(socket, 0);
    }
};

bool Fail(const char *what, const std::string &about) {
    VYX_OutputDebug("logmill: %s%s", what, about.c_str());
    return false;
}

bool Open(Sender &sender, const Options &options) {
    VYX_ADDR_T address;
    if (!MakeAddress(options.address, options.port, address))
        return Fail("this is no address: ", options.address);
    sender.file = options.file == "-" ? 0 : VYX_OpenFile(options.file.c_str(), VYX_OPEN_READ, 0);
    VYX_FINFO_T info;
    if (sender.file == VYX_INVALID_FILE ||
        VYX_FileStat(sender.file, &info) != 0) // standard input may be closed
        return Fail("cannot read ", options.file + ": " + std::strerror(errno));
    sender.socket = VYX_CreateSocket(address.sa.sa_family, SOCK_STREAM, 0);
    if (sender.socket == -1 || VYX_ConnectWithTimeOut(sender.socket, &address, kConnectTimeOut) != VYX_OK)
        return Fail("no collector at ", options.address + " port " + std::to_string(options.port));
    return true;
}

bool SendAll(const Sender &sender, const char *data, size_t size) {
    return VYX_Sendn(sender.socket, data, static_cast<int32_t>(size), kStallTimeOut) ==
           static_cast<int32_t>(size);
}

// A collector that answers before it has heard the end is about to end itself.
bool AnswerIsThere(const Sender &sender) {
    struct pollfd look = {sender.socket, POLLIN, 0};
    return VYX_Poll(&look, 1, 0) > 0;
}

// Sends the file until its end, or until the collector takes no more.
bool SendFile(Sender &sender, const Options &options) {
    std::vector<char> block(kBlockBytes);
    for (;;) {
        int32_t count = 0;
        if (VYX_ReadFile(sender.file, block.data(), kBlockBytes, &count) != 0 || count < 0)
            return Fail("cannot read ", options.file + ": " + std::strerror(errno));
        if (count == 0 || AnswerIsThere(sender))
            break;
        if (!SendAll(sender, block.data(), static_cast<size_t>(count)))
            return Fail("the collector takes no more", "");
        sender.lines += static_cast<uint64_t>(std::count(block.begin(), block.begin() + count, '\n'));
        sender.inLine = block[static_cast<size_t>(count) - 1] != '\n';
    }
    sender.lines += sender.inLine ? 1 : 0;
    (void)VYX_ShutDown(sender.socket, SHUT_WR);
    return true;
}

// The lines that the collector has stored, -1 if it does not say.
int64_t ReadAnswer(const Sender &sender) {
    std::string answer;
    char bytes[64];
    for (int32_t count; answer.find('\n') == std::string::npos && answer.size() < sizeof bytes &&
                        (count = VYX_RecvWithTimeOut(sender.socket, bytes, sizeof bytes, kStallTimeOut)) > 0;)
        answer.append(bytes, static_cast<size_t>(count));
    if (answer.compare(0, sizeof kAnswer - 1, kAnswer) != 0 || answer.back() != '\n')
        return -1;
    return VYX_StrToi64(answer.c_str() + sizeof kAnswer - 1, nullptr, 10);
}

} // namespace

int Send(const Options &options) {
    Sender sender;
    if (!Open(sender, options))
        return 1;
    const std::string greeting = kGreeting + options.name + "\n";
    if (!SendAll(sender, greeting.data(), greeting.size()))
        return Fail("the collector takes nothing", "") ? 0 : 1;
    if (!SendFile(sender, options))
        return 1;
    const int64_t stored = ReadAnswer(sender);
    if (stored < 0)
        return Fail("the collector does not confirm the lines of ", options.name) ? 0 : 1;
    std::printf("%s: %" PRIu64 " lines sent, %" PRId64 " stored\n", options.name.c_str(), sender.lines,
                stored);
    if (std::fflush(stdout) != 0)
        return Fail("cannot write the result", "") ? 0 : 1;
    if (static_cast<uint64_t>(stored) == sender.lines)
        return 0;
    return Fail("not all lines are stored of ", options.name) ? 0 : 1;
}

} // namespace logmill
