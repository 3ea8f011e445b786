// SQLite's mutexes.
#include <new>
#include <sqlite3.h>
#include <vyx/sync.h>

#include "vyx_sqlite.h"

struct sqlite3_mutex { // SQLite's name for ours
    VYX_MUTEX_T mutex;
};

namespace sqlite_vyx {

namespace {

// SQLITE_MUTEX_STATIC_MAIN and those after it: made once, given to whoever asks, never freed.
constexpr int kFirstStatic = SQLITE_MUTEX_STATIC_MASTER;
constexpr int kStatics = SQLITE_MUTEX_STATIC_VFS3 - kFirstStatic + 1;
sqlite3_mutex g_statics[kStatics];

int Init() {
    for (sqlite3_mutex &mutex : g_statics)
        if (VYX_MutexCreate(&mutex.mutex, VYX_MUTEX_NORMAL) != VYX_OK)
            return SQLITE_NOMEM;
    return SQLITE_OK;
}

int End() {
    for (sqlite3_mutex &mutex : g_statics)
        (void)VYX_MutexDestroy(&mutex.mutex);
    return SQLITE_OK;
}

sqlite3_mutex *Alloc(int type) {
    if (type >= kFirstStatic)
        return type < kFirstStatic + kStatics ? &g_statics[type - kFirstStatic] : nullptr;
    auto *mutex = new (std::nothrow) sqlite3_mutex;
    if (mutex != nullptr)
        (void)VYX_MutexCreate(&mutex->mutex,
                              type == SQLITE_MUTEX_RECURSIVE ? VYX_MUTEX_RECURSIVE : VYX_MUTEX_NORMAL);
    return mutex;
}

void Free(sqlite3_mutex *mutex) {
    (void)VYX_MutexDestroy(&mutex->mutex);
    delete mutex;
}

void Enter(sqlite3_mutex *mutex) {
    (void)VYX_MutexLock(&mutex->mutex);
}
int Try(sqlite3_mutex *mutex) {
    return VYX_MutexTryLock(&mutex->mutex) == VYX_OK ? SQLITE_OK : SQLITE_BUSY;
}
void Leave(sqlite3_mutex *mutex) {
    (void)VYX_MutexUnlock(&mutex->mutex);
}

} // namespace

int UseMutexes() {
    static const sqlite3_mutex_methods methods{Init, End, Alloc, Free, Enter, Try, Leave, nullptr, nullptr};
    return sqlite3_config(SQLITE_CONFIG_MUTEX, &methods);
}

} // namespace sqlite_vyx
