// The store: one thread that takes batches, worst lines first, and writes their lines through the log service.
#ifndef LOGMILL_STORE_H
#define LOGMILL_STORE_H

#include <atomic>
#include <cstdint>
#include <ctime>
#include <string>
#include <sys/types.h>
#include <vyx/msg.h>
#include <vyx/thread.h>

#include "batch.h"
#include "level_counts.h"

namespace logmill {

class Store {
  public:
    Store() = default;
    ~Store();
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    // Writes into log files of at most so many bytes in the directory, which is made if it is missing. False if
    // something is missing, and says what. A directory with log files in it is refused: they would be overwritten.
    bool Open(const std::string &directory, uint32_t fileBytes);

    // For any thread: queues a batch. Its connection hears of it through Connection::Stored.
    bool Put(const VYX_MSG_BLOCK_T &batch);

    // Writes what is queued, ends the thread, closes the files and makes all of them readable. Nobody may put any more.
    void Close();

    // Makes those files readable that will not be written any more; to be called again and again. Looks at the files only
    // if there may be such ones. For one thread at a time.
    void MakeFinishedReadable();

    // What has been stored so far; for any thread.
    uint64_t Lines() const { return m_lines; }
    uint64_t Bytes() const { return m_bytes; }

    // After Close.
    const LevelCounts &Levels() const { return m_levels; }
    int64_t Files() const;

  private:
    static void *Run(void *pStore);
    void WriteBatch(const VYX_MSG_BLOCK_T &batch);
    void MakeReadable(bool workingFile) const;

    std::string m_directory;
    mode_t m_fileMode = 0;
    time_t m_changed = 0; // when the directory had changed, as MakeFinishedReadable saw it
    time_t m_looked = 0;  // when it last looked at the files
    VYX_HANDLE_MSGQ m_queue = nullptr;
    VYX_Thread m_thread;
    bool m_open = false;
    std::atomic<uint64_t> m_lines{0};
    std::atomic<uint64_t> m_bytes{0}; // with one byte for each line's end
    LevelCounts m_levels;
};

} // namespace logmill

#endif
