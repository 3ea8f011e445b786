#include "input.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <iterator>
#include <sys/select.h>
#include <unistd.h>

namespace logmill {

namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

// That it ran is enough: pselect then fails with EINTR.
void NoteNothing(int /*signal*/) {}

} // namespace

Input::~Input() {
    if (m_fd > STDIN_FILENO)
        (void)close(m_fd);
}

bool Input::Open(const std::string &file) {
    m_fd = file == "-" ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_CLOEXEC);
    return m_fd != -1;
}

void Input::CatchInterruptions() {
    (void)sigemptyset(&m_caught);
    for (const int signal : kSignals) {
        struct sigaction before = {};
        if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) // nohup stays in force
            (void)sigaddset(&m_caught, signal);
    }
    (void)pthread_sigmask(SIG_BLOCK, &m_caught, &m_unblocked); // before the handlers, so that none is lost
    struct sigaction action = {};
    action.sa_handler = NoteNothing;
    for (const int signal : kSignals)
        if (sigismember(&m_caught, signal) == 1)
            (void)sigaction(signal, &action, nullptr);
}

bool Input::SignalPending() const {
    sigset_t pending;
    if (sigpending(&pending) != 0)
        return false;
    return std::any_of(std::begin(kSignals), std::end(kSignals), [&](int signal) {
        return sigismember(&pending, signal) == 1 && sigismember(&m_caught, signal) == 1;
    });
}

bool Input::AwaitData() {
    // Looked at besides, since pselect lets no signal through while data is at hand, as in a file it always is.
    m_interrupted = m_interrupted || SignalPending();
    if (m_interrupted || m_fd >= FD_SETSIZE)
        return !m_interrupted;
    fd_set set;
    FD_ZERO(&set);
    FD_SET(m_fd, &set);
    // A failure other than by a signal is one of the file: read tells.
    m_interrupted = pselect(m_fd + 1, &set, nullptr, nullptr, nullptr, &m_unblocked) == -1 && errno == EINTR;
    return !m_interrupted;
}

ssize_t Input::Read(char *to, size_t size) {
    ssize_t count = 0;
    do {
        if (!AwaitData())
            return 0;
        count = read(m_fd, to, size);
    } while (count == -1 && (errno == EINTR || errno == EAGAIN));
    return count;
}

} // namespace logmill
