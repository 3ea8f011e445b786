#include "thread/service_thread.h"

// The platform names the calling thread only.
void VYX_NameThread_Inter(const char *szName) {
    (void)pthread_setname_np(szName);
}
