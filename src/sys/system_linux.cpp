#include <cerrno>
#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include "base/descriptor.h"
#include "base/platform.h"

namespace {

constexpr size_t kUuidSize = 16;

// A request this small comes whole; only the wait for the source at the machine's start can be interrupted.
template <class Read>
bool Whole_Local(Read read) {
    ssize_t iCount = 0;
    do
        iCount = read();
    while (iCount < 0 && errno == EINTR);
    return iCount == static_cast<ssize_t>(kUuidSize);
}

// Old kernels and the filters of sandboxes refuse the call; the device gives the same bytes.
bool Random_Local(uint8_t *pUuid16) {
    if (Whole_Local([=] { return getrandom(pUuid16, kUuidSize, 0); }))
        return true;
    const vyx_inter::Descriptor device(open("/dev/urandom", O_RDONLY | O_CLOEXEC));
    return device.Get() >= 0 && Whole_Local([&] { return read(device.Get(), pUuid16, kUuidSize); });
}

} // namespace

int32_t VYX_CountProcessors_Inter(void) {
    return static_cast<int32_t>(sysconf(_SC_NPROCESSORS_ONLN));
}

int32_t VYX_GenerateUuid_Inter(uint8_t *pUuid16) {
    if (!Random_Local(pUuid16))
        return VYX_ERROR;
    pUuid16[6] = static_cast<uint8_t>((pUuid16[6] & 0x0F) | 0x40); // version 4: random
    pUuid16[8] = static_cast<uint8_t>((pUuid16[8] & 0x3F) | 0x80); // the common variant
    return VYX_OK;
}
