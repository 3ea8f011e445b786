#include "sys/c_library.h"

#include "base/describe.h"

vyx_inter::Lock g_hCLibraryLock{vyx_inter::Rank::CLibrary};

static vyx_inter::ForkHold s_forkHold(g_hCLibraryLock);

const vyx_inter::ForkRow g_struCLibraryForkRow = {
    [] { s_forkHold.Before(); },
    [] { s_forkHold.InParent(); },
    [] { (void)s_forkHold.InChild(); },
};

/* ---- Description */

static constexpr vyx_inter::DescriptionRow kRows[] = {VYX_LOCK("CLibrary", g_hCLibraryLock)};
VYX_DESCRIBE(c_library, kRows)
