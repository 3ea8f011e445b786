#include "file_locks.h"

#include <map>
#include <sqlite3.h>
#include <vyx/sync.h>

namespace sqlite_vyx {

struct FileState {
    std::string path;
    int users = 0;                      // locks of this file, of whatever level
    int shared = 0;                     // of them, those with "shared" or more
    const FileLock *reserved = nullptr; // the one with "reserved"
    const FileLock *pending = nullptr;  // the one with "pending" or "exclusive"
};

namespace {

// Guards the table and all that is in it. Every section is a few instructions long.
VYX_Mutex &TableLock() {
    static VYX_Mutex lock;
    return lock;
}
std::map<std::string, FileState> &Table() {
    static std::map<std::string, FileState> table;
    return table;
}

class TableHolder {
  public:
    TableHolder() { (void)TableLock().Lock(); }
    ~TableHolder() { (void)TableLock().Unlock(); }
    TableHolder(const TableHolder &) = delete;
    TableHolder &operator=(const TableHolder &) = delete;
};

} // namespace

FileLock::FileLock(const std::string &path) : m_level(SQLITE_LOCK_NONE) {
    const TableHolder held;
    m_state = &Table()[path];
    m_state->path = path;
    m_state->users++;
}

FileLock::~FileLock() {
    const TableHolder held;
    LowerLocked(SQLITE_LOCK_NONE);
    if (--m_state->users == 0)
        Table().erase(Table().find(m_state->path));
}

bool FileLock::Raise(int level) {
    const TableHolder held;
    if (level <= m_level)
        return true;
    if (m_state->pending != nullptr && m_state->pending != this)
        return false;
    if (level == SQLITE_LOCK_SHARED) {
        m_state->shared++;
        m_level = SQLITE_LOCK_SHARED;
        return true;
    }
    if (m_state->reserved != nullptr && m_state->reserved != this)
        return false;
    if (level == SQLITE_LOCK_RESERVED) {
        m_state->reserved = this;
        m_level = SQLITE_LOCK_RESERVED;
        return true;
    }
    m_state->pending = this;
    m_level = SQLITE_LOCK_PENDING;
    if (level == SQLITE_LOCK_EXCLUSIVE && m_state->shared > 1)
        return false;
    m_level = level;
    return true;
}

void FileLock::Lower(int level) {
    const TableHolder held;
    LowerLocked(level);
}

void FileLock::LowerLocked(int level) {
    if (level >= m_level)
        return;
    if (m_state->reserved == this)
        m_state->reserved = nullptr;
    if (m_state->pending == this)
        m_state->pending = nullptr;
    if (level == SQLITE_LOCK_NONE)
        m_state->shared--;
    m_level = level;
}

bool FileLock::Reserved() const {
    const TableHolder held;
    return m_state->reserved != nullptr || m_state->pending != nullptr;
}

} // namespace sqlite_vyx
