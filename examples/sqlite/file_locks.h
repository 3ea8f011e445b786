// SQLite's locks on a database file, kept in this process alone: another process sees nothing of them.
#ifndef SQLITE_FILE_LOCKS_H
#define SQLITE_FILE_LOCKS_H

#include <string>

namespace sqlite_vyx {

struct FileState;

// One connection's part of the locks on one file. The levels are SQLite's: SQLITE_LOCK_NONE to SQLITE_LOCK_EXCLUSIVE.
class FileLock {
  public:
    // The path has to be the one name of the file: absolute, without links. May throw for want of memory.
    explicit FileLock(const std::string &path);
    ~FileLock();
    FileLock(const FileLock &) = delete;
    FileLock &operator=(const FileLock &) = delete;

    // False where another connection stands against it. A lock that is refused on the way to "exclusive" stays at
    // "pending", which lets no new reader in.
    bool Raise(int level);
    void Lower(int level);
    // Whether any connection has "reserved" or more.
    bool Reserved() const;

  private:
    void LowerLocked(int level);

    FileState *m_state; // shared by the connections of the file
    int m_level;
};

} // namespace sqlite_vyx

#endif
