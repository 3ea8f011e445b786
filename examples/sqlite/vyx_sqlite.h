// SQLite over the library: a VFS of its name "vyx" with files, locks, sleep and clock, and SQLite's mutexes.
//
// For one process at a time. The locks that keep connections apart are in this process; a second process that opens the
// same database, through this VFS or another, is not noticed, and damages it.
//
// Without shared memory between processes there is no write-ahead log, but in the locking mode "exclusive".
#ifndef SQLITE_VYX_SQLITE_H
#define SQLITE_VYX_SQLITE_H

namespace sqlite_vyx {

// Has SQLite take its mutexes from the library. To be called before anything else of SQLite. Result: an SQLite code.
int UseMutexes();

// Registers the VFS and makes it the default one. Result: an SQLite code.
int UseFiles();

} // namespace sqlite_vyx

#endif
