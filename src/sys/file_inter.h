// What files and directories share: the file information record.
#ifndef VYX_SYS_FILE_INTER_H
#define VYX_SYS_FILE_INTER_H

#include <sys/stat.h>
#include <sys/types.h>
#include <vyx/sys.h>

VYX_BEGIN_DECLS

// Fills the whole record. iTimeUnits is the number of units a second has in its three times.
void VYX_FileInfoFromStat_Inter(const struct stat *pStat, int64_t iTimeUnits, VYX_FINFO_T *pInfo);

VYX_END_DECLS

#endif
