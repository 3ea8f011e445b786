// The lock of the library's start and stop.
#ifndef VYX_BASE_START_STOP_H
#define VYX_BASE_START_STOP_H

#include "base/lock.h"

// Held through every start and stop, and so by the thread that calls a stage's functions.
extern vyx_inter::Lock s_vyxmutex;

#endif
