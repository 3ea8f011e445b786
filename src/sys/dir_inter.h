// The record behind a directory handle.
#ifndef VYX_SYS_DIR_INTER_H
#define VYX_SYS_DIR_INTER_H

#include <dirent.h>
#include <vyx/sys.h>

struct _DIR_INFO_T {
    DIR *pDir;
    char *szPath;            // as given, and ending in one '/'; owned, its length plus 3 bytes were reserved
    struct dirent struEntry; // the entry read last, kept while its information is asked for
};

#endif
