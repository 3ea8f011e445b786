#include "net/net_inter.h"

#include <csignal>

int32_t VYX_InitNetwork_Inter(void) {
    struct sigaction action = {};
    action.sa_handler = SIG_IGN;
    (void)sigaction(SIGPIPE, &action, nullptr); // cannot fail for a valid signal
    return VYX_OK;
}

int32_t VYX_FiniNetwork_Inter(void) {
    return VYX_OK;
}
