#include "input.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

namespace logmill {

namespace {

volatile std::sig_atomic_t s_interrupted = 0;

void NoteInterruption(int /*signal*/) {
    s_interrupted = 1;
}

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
    sigset_t blocked;
    (void)sigemptyset(&blocked);
    struct sigaction action = {};
    action.sa_handler = NoteInterruption;
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        (void)sigaddset(&blocked, signal);
        struct sigaction before = {};
        if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) // nohup stays in force
            (void)sigaction(signal, &action, nullptr);
    }
    (void)pthread_sigmask(SIG_BLOCK, &blocked, &m_unblocked);
}

bool Input::AwaitData() {
    if (m_fd >= FD_SETSIZE)
        return true;
    while (s_interrupted == 0) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(m_fd, &set);
        if (pselect(m_fd + 1, &set, nullptr, nullptr, nullptr, &m_unblocked) != -1 || errno != EINTR)
            return s_interrupted == 0; // what is wrong with the file, if anything, read tells
    }
    return false;
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

bool Input::Interrupted() {
    return s_interrupted != 0;
}

} // namespace logmill
