// logmill, the example with a pool, a queue, events, sockets, a timer and the log: what a line costs from the sender's socket
// until the collector confirms that it is stored, for as many senders at once as the size says. A collector serves 256
// at a time; the others wait for their turn.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/bench.h"

namespace {

constexpr size_t kLines = 50000; // in all
constexpr char kLine[] = "2026-01-01 00:00:00 host service[4711]: a request took 1234 microseconds\n";

// The collector, a process of its own.
class Collector {
  public:
    explicit Collector(const std::string &directory) {
        int iEnds[2];
        if (pipe(iEnds) != 0)
            std::abort();
        m_hProcess = fork();
        if (m_hProcess == 0) {
            (void)dup2(iEnds[1], STDOUT_FILENO);
            (void)execl(VYX_LOGMILL, "logmill", "collect", "--connections", "256", "--directory",
                        directory.c_str(), nullptr);
            _exit(127);
        }
        (void)close(iEnds[1]);
        m_pSays = fdopen(iEnds[0], "r");
        char szLine[512];
        if (std::fgets(szLine, sizeof szLine, m_pSays) != nullptr)
            (void)std::sscanf(szLine, "collecting at %*s port %hu", &m_nPort);
    }
    ~Collector() {
        (void)kill(m_hProcess, SIGINT);
        (void)waitpid(m_hProcess, nullptr, 0);
        (void)std::fclose(m_pSays);
    }
    Collector(const Collector &) = delete;
    Collector &operator=(const Collector &) = delete;

    uint16_t Port() const { return m_nPort; } // 0 if it does not run

  private:
    pid_t m_hProcess;
    FILE *m_pSays;
    uint16_t m_nPort = 0;
};

// One connection. It gives up for good at the first call that fails.
class Sender {
  public:
    Sender(uint16_t nPort, size_t nNumber, size_t nLines)
        : m_iSocket(socket(AF_INET, SOCK_STREAM, 0)), m_nLines(nLines) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(nPort);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        m_bGood = connect(m_iSocket, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
        Write("LOGMILL 1 sender" + std::to_string(nNumber) + "\n");
    }
    ~Sender() { (void)close(m_iSocket); }
    Sender(const Sender &) = delete;
    Sender &operator=(const Sender &) = delete;

    // Sends the next lines, at most as many as that. False when all have been sent.
    bool Send(size_t nLines) {
        std::string text;
        for (; nLines != 0 && m_nSent != m_nLines; --nLines, ++m_nSent)
            text += kLine;
        Write(text);
        if (text.empty())
            (void)shutdown(m_iSocket, SHUT_WR);
        return !text.empty();
    }
    bool Confirmed() {
        char szAnswer[64] = {};
        size_t nLength = 0;
        while (nLength < sizeof szAnswer - 1) {
            const ssize_t nRead = recv(m_iSocket, szAnswer + nLength, sizeof szAnswer - 1 - nLength, 0);
            if (nRead <= 0)
                break;
            nLength += static_cast<size_t>(nRead);
        }
        return m_bGood && szAnswer == "STORED " + std::to_string(m_nLines) + "\n";
    }

  private:
    void Write(const std::string &text) {
        for (size_t nAt = 0; m_bGood && nAt < text.size();) {
            const ssize_t nWritten = send(m_iSocket, text.data() + nAt, text.size() - nAt, MSG_NOSIGNAL);
            m_bGood = nWritten > 0;
            nAt += m_bGood ? static_cast<size_t>(nWritten) : 0;
        }
    }
    int m_iSocket;
    size_t m_nLines;
    size_t m_nSent = 0;
    bool m_bGood = true;
};

// Seconds until all lines are confirmed; negative if they are not.
double SendAll(uint16_t nPort, size_t nSenders) {
    constexpr size_t kAtOnce = 500; // lines
    const auto start = bench::Clock::now();
    std::vector<std::unique_ptr<Sender>> senders;
    for (size_t n = 0; n < nSenders; ++n)
        senders.push_back(std::make_unique<Sender>(nPort, n, kLines / nSenders));
    std::vector<Sender *> sending;
    for (const auto &pSender : senders)
        sending.push_back(pSender.get());
    while (!sending.empty())
        sending.erase(
            std::remove_if(sending.begin(), sending.end(), [](Sender *pOne) { return !pOne->Send(kAtOnce); }),
            sending.end());
    bool bStored = true;
    for (const auto &pSender : senders)
        bStored = pSender->Confirmed() && bStored;
    return bStored ? bench::MicrosecondsSince(start) * 1e-6 : -1;
}

void MillLine(benchmark::State &state) {
    std::string folder = (std::filesystem::temp_directory_path() / "vyx_bench_XXXXXX").string();
    if (mkdtemp(folder.data()) == nullptr)
        return state.SkipWithError("no folder");
    double fSeconds = -1;
    {
        const Collector collector(folder);
        for (auto _ : state)
            fSeconds =
                collector.Port() == 0 ? -1 : SendAll(collector.Port(), static_cast<size_t>(state.range(0)));
    }
    (void)std::filesystem::remove_all(folder);
    if (fSeconds < 0)
        return state.SkipWithError("not all lines were stored");
    bench::Observed(state, fSeconds * 1e9 / kLines, "ns");
}

} // namespace

int main(int argc, char **argv) {
    bench::Figure("mill_line", {{"vyx", MillLine}}, "connections", {1, 3, 10, 30, 100, 300, 1000});
    return bench::Run(argc, argv);
}
