// Calls of the C library that take a lock of its own for a moment: the generator of random numbers, the list of converters.
//
// A forked child inherits such a lock as it was at that moment. So the library makes these calls under a lock of its own,
// which a fork holds. An application that makes them itself is beyond its reach.
#ifndef VYX_SYS_C_LIBRARY_H
#define VYX_SYS_C_LIBRARY_H

#include "base/fork.h"

extern vyx_inter::Lock g_hCLibraryLock;
extern const vyx_inter::ForkRow g_struCLibraryForkRow;

#endif
