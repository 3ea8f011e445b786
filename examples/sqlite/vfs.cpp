// SQLite's files.
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <new>
#include <sqlite3.h>
#include <string>
#include <unistd.h>
#include <vyx/sys.h>
#include <vyx/time.h>

#include "file_locks.h"
#include "vyx_sqlite.h"

namespace sqlite_vyx {

namespace {

constexpr int kLongestPath = 1023;
constexpr int kSectorBytes = 4096;
constexpr int kUuidBytes = 16;
constexpr uint32_t kPermissions = VYX_UREAD | VYX_UWRITE | VYX_GREAD | VYX_WREAD;

struct OpenFile {
    VYX_FILE_T handle;
    FileLock lock;
    std::string newIn; // the folder that it was made in, to be flushed with it; empty: flushed already
};

// SQLite allocates it, as long as the VFS says.
struct File {
    sqlite3_file base;
    OpenFile *open;
};
OpenFile &Of(sqlite3_file *file) {
    return *reinterpret_cast<File *>(file)->open;
}

bool Interrupted() {
    return errno == EINTR;
}

int Close(sqlite3_file *file) {
    const std::unique_ptr<OpenFile> open(&Of(file));
    return VYX_CloseFile(open->handle) == 0 ? SQLITE_OK : SQLITE_IOERR_CLOSE;
}

int Read(sqlite3_file *file, void *buffer, int length, sqlite3_int64 offset) {
    const VYX_FILE_T handle = Of(file).handle;
    auto *bytes = static_cast<char *>(buffer);
    if (VYX_FileSeek(handle, offset, SEEK_SET, nullptr) != 0)
        return SQLITE_IOERR_SEEK;
    for (int done = 0; done < length;) {
        int32_t count = 0;
        if (VYX_ReadFile(handle, bytes + done, static_cast<uint32_t>(length - done), &count) != 0) {
            if (Interrupted())
                continue;
            return SQLITE_IOERR_READ;
        }
        if (count == 0) { // SQLite relies on zeros behind the end
            std::memset(bytes + done, 0, static_cast<size_t>(length - done));
            return SQLITE_IOERR_SHORT_READ;
        }
        done += count;
    }
    return SQLITE_OK;
}

int Write(sqlite3_file *file, const void *buffer, int length, sqlite3_int64 offset) {
    const VYX_FILE_T handle = Of(file).handle;
    const auto *bytes = static_cast<const char *>(buffer);
    if (VYX_FileSeek(handle, offset, SEEK_SET, nullptr) != 0)
        return SQLITE_IOERR_SEEK;
    for (int done = 0; done < length;) {
        int32_t count = 0;
        if (VYX_WriteFile(handle, bytes + done, static_cast<uint32_t>(length - done), &count) == 0)
            done += count;
        else if (!Interrupted())
            return errno == ENOSPC ? SQLITE_FULL : SQLITE_IOERR_WRITE;
    }
    return SQLITE_OK;
}

// The library does not shorten files; its handle is the platform's descriptor.
int Truncate(sqlite3_file *file, sqlite3_int64 size) {
    while (ftruncate(Of(file).handle, size) != 0)
        if (!Interrupted())
            return SQLITE_IOERR_TRUNCATE;
    return SQLITE_OK;
}

bool FlushFolder(const std::string &folder) {
    const VYX_FILE_T handle = VYX_OpenFile(folder.c_str(), VYX_OPEN_READ, 0);
    const bool flushed = handle != VYX_INVALID_FILE && VYX_FileFlush(handle) == 0;
    (void)VYX_CloseFile(handle);
    return flushed;
}

int Sync(sqlite3_file *file, int /* flags: as fully as it goes */) {
    OpenFile &open = Of(file);
    if (VYX_FileFlush(open.handle) != 0)
        return SQLITE_IOERR_FSYNC;
    if (!open.newIn.empty() && !FlushFolder(open.newIn))
        return SQLITE_IOERR_DIR_FSYNC;
    open.newIn.clear();
    return SQLITE_OK;
}

int FileSize(sqlite3_file *file, sqlite3_int64 *size) {
    VYX_FINFO_T info;
    if (VYX_FileStat(Of(file).handle, &info) != 0)
        return SQLITE_IOERR_FSTAT;
    *size = info.size;
    return SQLITE_OK;
}

int Lock(sqlite3_file *file, int level) {
    return Of(file).lock.Raise(level) ? SQLITE_OK : SQLITE_BUSY;
}
int Unlock(sqlite3_file *file, int level) {
    Of(file).lock.Lower(level);
    return SQLITE_OK;
}
int CheckReservedLock(sqlite3_file *file, int *reserved) {
    *reserved = Of(file).lock.Reserved() ? 1 : 0;
    return SQLITE_OK;
}

int FileControl(sqlite3_file * /* file */, int /* operation */, void * /* argument */) {
    return SQLITE_NOTFOUND;
}
int SectorSize(sqlite3_file * /* file */) {
    return kSectorBytes;
}
int DeviceCharacteristics(sqlite3_file * /* file */) {
    return 0;
}

const sqlite3_io_methods kMethods = {1, // no shared memory, no mapping
                                     Close,       Read,       Write,
                                     Truncate,    Sync,       FileSize,
                                     Lock,        Unlock,     CheckReservedLock,
                                     FileControl, SectorSize, DeviceCharacteristics,
                                     nullptr,     nullptr,    nullptr,
                                     nullptr,     nullptr,    nullptr};

std::string TemporaryName() {
    uint8_t uuid[kUuidBytes];
    char text[64];
    if (VYX_GetUUID(uuid) != 0 || VYX_StringFromUUID(uuid, text, sizeof text) != 0)
        return {};
    return std::filesystem::temp_directory_path() / (std::string("sqlite_vyx_") + text);
}

uint32_t OpenFlags(int flags) {
    uint32_t result = VYX_OPEN_READ;
    result |= (flags & SQLITE_OPEN_READWRITE) != 0 ? VYX_OPEN_WRITE : 0;
    result |= (flags & SQLITE_OPEN_CREATE) != 0 ? VYX_OPEN_CREATE : 0;
    result |= (flags & SQLITE_OPEN_EXCLUSIVE) != 0 ? VYX_OPEN_EXCL : 0;
    return result;
}

int OpenNamed(const std::string &path, File *file, int flags, int *outFlags) {
    const bool lasts = (flags & SQLITE_OPEN_DELETEONCLOSE) == 0;
    const bool isNew = lasts && VYX_AccessFile(path.c_str(), F_OK) != 0;
    auto open = std::unique_ptr<OpenFile>(
        new OpenFile{VYX_INVALID_FILE, FileLock(path),
                     isNew ? std::filesystem::path(path).parent_path().string() : std::string()});
    open->handle = VYX_OpenFile(path.c_str(), OpenFlags(flags), kPermissions);
    if (open->handle == VYX_INVALID_FILE && (flags & SQLITE_OPEN_READWRITE) != 0 && errno != EISDIR) {
        flags = (flags & ~(SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE)) | SQLITE_OPEN_READONLY;
        open->handle = VYX_OpenFile(path.c_str(), OpenFlags(flags), kPermissions);
    }
    if (open->handle == VYX_INVALID_FILE)
        return SQLITE_CANTOPEN;
    if (!lasts)
        (void)VYX_DeleteFile(path.c_str()); // it lives on until it is closed
    file->open = open.release();
    file->base.pMethods = &kMethods;
    if (outFlags != nullptr)
        *outFlags = flags;
    return SQLITE_OK;
}

int Open(sqlite3_vfs * /* vfs */, sqlite3_filename name, sqlite3_file *base, int flags, int *outFlags) {
    base->pMethods = nullptr; // nothing to close
    try {
        const std::string path = name != nullptr ? name : TemporaryName();
        return path.empty() ? SQLITE_IOERR : OpenNamed(path, reinterpret_cast<File *>(base), flags, outFlags);
    } catch (const std::exception &) {
        return SQLITE_NOMEM;
    }
}

int Delete(sqlite3_vfs * /* vfs */, const char *name, int flushFolder) {
    if (VYX_DeleteFile(name) != 0)
        return errno == ENOENT ? SQLITE_IOERR_DELETE_NOENT : SQLITE_IOERR_DELETE;
    if (flushFolder != 0 && !FlushFolder(std::filesystem::path(name).parent_path()))
        return SQLITE_IOERR_DIR_FSYNC;
    return SQLITE_OK;
}

int Access(sqlite3_vfs * /* vfs */, const char *name, int what, int *answer) {
    *answer = VYX_AccessFile(name, what == SQLITE_ACCESS_READWRITE ? R_OK | W_OK : F_OK) == 0 ? 1 : 0;
    return SQLITE_OK;
}

// The one name of the file, links resolved, since the locks go by it.
int FullPathname(sqlite3_vfs * /* vfs */, const char *name, int room, char *full) {
    try {
        std::error_code error;
        const std::string path = std::filesystem::weakly_canonical(std::filesystem::absolute(name), error);
        if (error || path.size() + 1 > static_cast<size_t>(room))
            return SQLITE_CANTOPEN;
        std::memcpy(full, path.c_str(), path.size() + 1);
        return SQLITE_OK;
    } catch (const std::exception &) {
        return SQLITE_NOMEM;
    }
}

void *DlOpen(sqlite3_vfs * /* vfs */, const char *name) {
    return VYX_LoadDSo(name);
}
void DlError(sqlite3_vfs * /* vfs */, int room, char *text) {
    (void)std::snprintf(text, static_cast<size_t>(room), "the module cannot be loaded");
}
using Symbol = void (*)();
Symbol DlSym(sqlite3_vfs * /* vfs */, void *module, const char *name) {
    return reinterpret_cast<Symbol>(VYX_GetDsoSym(module, name));
}
void DlClose(sqlite3_vfs * /* vfs */, void *module) {
    (void)VYX_UnloadDSo(module);
}

int Randomness(sqlite3_vfs * /* vfs */, int length, char *out) {
    int done = 0;
    uint8_t uuid[kUuidBytes];
    while (done < length && VYX_GetUUID(uuid) == 0) {
        const int count = std::min(length - done, kUuidBytes);
        std::memcpy(out + done, uuid, static_cast<size_t>(count));
        done += count;
    }
    return done;
}

int Sleep(sqlite3_vfs * /* vfs */, int microseconds) {
    (void)VYX_USleep(static_cast<uint32_t>(microseconds));
    return microseconds;
}

// Milliseconds of the Julian day, which began at noon 24,405,875 tenths of days before 1970.
int CurrentTime64(sqlite3_vfs * /* vfs */, sqlite3_int64 *now) {
    *now = 24405875LL * 8640000 + VYX_TimeNow() / 1000;
    return SQLITE_OK;
}
int CurrentTime(sqlite3_vfs *vfs, double *now) {
    sqlite3_int64 milliseconds = 0;
    (void)CurrentTime64(vfs, &milliseconds);
    *now = static_cast<double>(milliseconds) / 86400000.0;
    return SQLITE_OK;
}
int GetLastError(sqlite3_vfs * /* vfs */, int /* room */, char * /* text */) {
    return errno;
}

} // namespace

int UseFiles() {
    static sqlite3_vfs vfs = {
        2,           sizeof(File), kLongestPath,  nullptr, "vyx",   nullptr, Open,       Delete,
        Access,      FullPathname, DlOpen,        DlError, DlSym,   DlClose, Randomness, Sleep,
        CurrentTime, GetLastError, CurrentTime64, nullptr, nullptr, nullptr};
    return sqlite3_vfs_register(&vfs, 1);
}

} // namespace sqlite_vyx
