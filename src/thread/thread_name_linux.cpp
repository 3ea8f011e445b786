#include "thread/service_thread.h"

void VYX_NameThread_Inter(const char *szName) {
    (void)pthread_setname_np(pthread_self(), szName);
}
