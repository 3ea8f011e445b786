// The file that is read, and the end that an interruption makes of it.
#ifndef LOGMILL_INPUT_H
#define LOGMILL_INPUT_H

#include <csignal>
#include <string>
#include <sys/types.h>

namespace logmill {

// Opened and closed by the main thread, read by the reader.
class Input {
  public:
    Input() = default;
    ~Input();
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;

    // "-" is standard input. False with errno set if it cannot be opened.
    bool Open(const std::string &file);

    // From now on SIGINT, SIGTERM and SIGHUP end the file instead of the process: a process that is killed
    // leaves the names of its semaphores behind. To be called before any thread is started, since threads
    // inherit the blocked signals.
    void CatchInterruptions();

    // For the reader. Bytes read; 0 at the end of the file and after an interruption; -1 with errno set.
    ssize_t Read(char *to, size_t size);

    // After the reader has ended.
    bool Interrupted() const { return m_interrupted; }

  private:
    bool SignalPending() const;
    // Waits for data with the signals let through. False if one has come.
    bool AwaitData();

    int m_fd = -1;
    bool m_interrupted = false;
    sigset_t m_caught{};    // the signals that end the file
    sigset_t m_unblocked{}; // the mask with which the program was started
};

} // namespace logmill

#endif
