#include <cerrno>
#include <sys/random.h>
#include <unistd.h>

#include "sys/sys_inter.h"

int32_t VYX_CountProcessors_Inter(void) {
    return static_cast<int32_t>(sysconf(_SC_NPROCESSORS_ONLN));
}

void VYX_GenerateUuid_Inter(uint8_t *pUuid16) {
    // A request this small comes whole; only the wait for the source at the machine's start can be interrupted.
    while (getrandom(pUuid16, 16, 0) != 16 && errno == EINTR) {
    }
    pUuid16[6] = static_cast<uint8_t>((pUuid16[6] & 0x0F) | 0x40); // version 4: random
    pUuid16[8] = static_cast<uint8_t>((pUuid16[8] & 0x3F) | 0x80); // the common variant
}
