// errno across calls that may change it.
#ifndef VYX_BASE_ERRNO_KEEPER_H
#define VYX_BASE_ERRNO_KEEPER_H

#include <cerrno>

namespace vyx_inter {

// Puts errno back at the end of a block, so that messages and cleaning up do not change what callers see.
class ErrnoKeeper {
  public:
    ErrnoKeeper() : m_iError(errno) {}
    ~ErrnoKeeper() { errno = m_iError; }
    ErrnoKeeper(const ErrnoKeeper &) = delete;
    ErrnoKeeper &operator=(const ErrnoKeeper &) = delete;
    // Puts it back now as well.
    void Restore() const { errno = m_iError; }
    [[nodiscard]] int Get() const { return m_iError; }

  private:
    int m_iError;
};

} // namespace vyx_inter

#endif
