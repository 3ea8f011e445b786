// A descriptor that is held for the length of a block.
#ifndef VYX_BASE_DESCRIPTOR_H
#define VYX_BASE_DESCRIPTOR_H

#include <unistd.h>

#include "base/errno_keeper.h"
#include "base/uncancelled.h"

namespace vyx_inter {

// Closes its descriptor and keeps errno as it was. A thread that is cancelled meanwhile goes on to the next
// point where it can be cancelled: no destructor may be left half-way.
class Descriptor {
  public:
    explicit Descriptor(int iFd) : m_iFd(iFd) {}
    ~Descriptor() {
        if (m_iFd < 0)
            return;
        const ErrnoKeeper keeper;
        const Uncancelled uncancelled;
        (void)close(m_iFd); // a failure is of no use to anybody
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    [[nodiscard]] int Get() const { return m_iFd; }

  private:
    const int m_iFd;
};

} // namespace vyx_inter

#endif
