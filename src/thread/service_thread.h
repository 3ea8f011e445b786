// The library's own long-lived threads.
#ifndef VYX_THREAD_SERVICE_THREAD_H
#define VYX_THREAD_SERVICE_THREAD_H

#include <vyx/thread.h>

VYX_BEGIN_DECLS

// As VYX_Thread_Create, with every signal blocked from the thread's first instruction on: an application's
// handlers never run on the library's threads, and no call of theirs is interrupted. nStackSize is what the thread
// has for itself, whatever the program's thread-local variables take.
VYX_THREAD_T VYX_StartServiceThread_Inter(VYX_THREAD_PROC fnStart, void *pParam, uint32_t nStackSize);

VYX_END_DECLS

#endif
