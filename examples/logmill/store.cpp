#include "store.h"

#include <climits>
#include <cstring>
#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vyx/log.h>
#include <vyx/sys.h>

#include "connection.h"

namespace logmill {

namespace {

constexpr int32_t kEndMessage = 1;
constexpr int32_t kRingFull = -4; // of WriteLog

log_level LogLevel(Level level) {
    if (level <= Level::Error)
        return VYX_LOG_LEVEL_ERR;
    return level == Level::Debug ? VYX_LOG_LEVEL_DBG : VYX_LOG_LEVEL_INF;
}

// The log service takes the line or, when more comes than the disk can take, says so; then it is given time.
bool WriteLine(const char *sender, const Piece &piece) {
    int32_t result = 0;
    while ((result = WriteLog(LogLevel(piece.level), sender, static_cast<int32_t>(piece.line), "%.*s",
                              static_cast<int>(piece.text.size()), piece.text.data())) == kRingFull)
        (void)VYX_Sleep(1);
    return result == 0;
}

// Calls visit with the name of each log file in the directory. Their number, or -1 if the directory cannot be read.
// With the platform's own call: VYX_FindFileInDir looks at each file, and prints a line into standard output where one
// has been renamed meanwhile, as the log service does.
template <class Visit>
int64_t ForEachLogFile(const std::string &directory, Visit visit) {
    DIR *handle = opendir(directory.c_str());
    if (handle == nullptr)
        return -1;
    int64_t count = 0;
    while (const dirent *entry = readdir(handle)) {
        if (std::strncmp(entry->d_name, "vyx_log_", 8) != 0)
            continue;
        ++count;
        visit(entry->d_name);
    }
    (void)closedir(handle);
    return count;
}

int64_t CountLogFiles(const std::string &directory) {
    return ForEachLogFile(directory, [](const char *) {});
}

// The file that is being written has a name of its own.
bool IsWorkingFile(const char *name) {
    return std::strstr(name, "_w.log") != nullptr;
}

// The rights of a new file of this process: those of a text file, less the file-creation mask.
mode_t NewFileMode() {
    const mode_t mask = umask(022);
    (void)umask(mask);
    return (0644 & ~mask) | S_IRUSR;
}

bool Complain(const char *what, const std::string &directory) {
    VYX_OutputDebug("logmill: %s%s", what, directory.c_str());
    return false;
}

} // namespace

Store::~Store() {
    Close();
}

bool Store::Open(const std::string &directory, uint32_t fileBytes) {
    (void)VYX_MakeDir(directory.c_str()); // may exist
    const int64_t files = CountLogFiles(directory);
    if (files < 0 || VYX_AccessFile(directory.c_str(), W_OK) != 0)
        return Complain("cannot write into ", directory);
    if (files > 0)
        return Complain("there are log files already in ", directory);
    if (!m_levels.Usable() || VYX_MsgQCreateEx(&m_queue) != VYX_OK)
        return Complain("memory is short", "");
    m_directory = directory;
    m_fileMode = NewFileMode();
    (void)EnableTarget(VYX_LOG_TARGET_FILE, directory.c_str(), fileBytes, 0);
    m_open = m_thread.Create(Run, this, 0, 0, 0, 0) == VYX_OK;
    return m_open || Complain("cannot start a thread", "");
}

bool Store::Put(const VYX_MSG_BLOCK_T &batch) {
    return VYX_MsgQSendEx(m_queue, &batch) == VYX_OK;
}

void Store::Close() {
    if (m_open) {
        VYX_MSG_BLOCK_T end;
        end.iMsgType = kEndMessage;
        end.iPriority = INT_MIN; // behind everything else
        end.iDataLen = 0;
        while (!Put(end)) // memory is short at the moment
            (void)VYX_Sleep(10);
        (void)m_thread.Wait();
        (void)DisableTarget(VYX_LOG_TARGET_FILE); // writes what the log service still has
        MakeReadable(true);
    }
    m_open = false;
    if (m_queue != nullptr)
        (void)VYX_MsgQDestroyEx(m_queue);
    m_queue = nullptr;
}

// A file is renamed when it is finished, which changes the directory. The lines do not tell when: the log service writes
// them after they have been counted, on a slow disk seconds later. Times are whole seconds, so one that is not older
// than the last look may hide another change.
void Store::MakeFinishedReadable() {
    const time_t now = std::time(nullptr);
    struct stat directory;
    if (stat(m_directory.c_str(), &directory) == 0) {
        if (directory.st_mtime == m_changed && m_changed + 1 < m_looked)
            return;
        m_changed = directory.st_mtime;
    }
    m_looked = now;
    MakeReadable(false);
}

// The log service makes files that can only be written.
void Store::MakeReadable(bool workingFile) const {
    (void)ForEachLogFile(m_directory, [&](const char *name) {
        if (IsWorkingFile(name) && !workingFile)
            return;
        const std::string path = m_directory + "/" + name;
        struct stat file;
        if ((stat(path.c_str(), &file) != 0 || (file.st_mode & S_IRUSR) == 0) &&
            chmod(path.c_str(), m_fileMode) != 0)
            (void)Complain("cannot make readable: ", path);
    });
}

int64_t Store::Files() const {
    return CountLogFiles(m_directory);
}

void *Store::Run(void *pStore) {
    auto *store = static_cast<Store *>(pStore);
    VYX_MSG_BLOCK_T message;
    for (;;) {
        message.iDataLen = sizeof message.szData;
        if (VYX_MsgQReceiveEx(store->m_queue, &message, -1) != VYX_OK)
            continue;
        if (message.iMsgType == kEndMessage)
            return nullptr;
        store->WriteBatch(message);
    }
}

void Store::WriteBatch(const VYX_MSG_BLOCK_T &batch) {
    BatchReader reader(batch);
    Connection *connection = reader.From();
    uint64_t lines = 0;
    for (Piece piece; reader.Next(piece);) {
        if (!WriteLine(connection->Name().c_str(), piece))
            continue; // not counted, so the sender hears of it
        m_bytes += piece.text.size() + (piece.last ? 1 : 0);
        if (!piece.last)
            continue;
        ++lines;
        m_levels.Count(piece.level);
    }
    m_lines += lines;
    connection->Stored(lines);
}

} // namespace logmill
