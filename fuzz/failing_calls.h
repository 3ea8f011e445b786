// The calls with which a file is copied, in place of the platform's: while an input is played, each is made whole, made short,
// interrupted or fails, as the input's next byte says. A program includes this once and wraps them all.
#ifndef VYX_FUZZ_FAILING_CALLS_H_
#define VYX_FUZZ_FAILING_CALLS_H_

#include <cerrno>
#include <unistd.h>

#include "input.h"

namespace fuzz {

static Input *s_pPlayed = nullptr; // null: the calls are the platform's
static bool s_bFailed = false;     // a call that the copy cannot do without

// A call for so many bytes; one that fails returns -1, or 0 as at an end.
template <class Call>
ssize_t Play(size_t nLen, bool bNeeded, Call fnCall) {
    const unsigned nChoice = s_pPlayed == nullptr ? 0 : s_pPlayed->Byte();
    if (nChoice < 200)
        return fnCall(nChoice < 128 || nLen == 0 ? nLen : 1 + (nLen - 1) / 3);
    s_bFailed = s_bFailed || (bNeeded && nChoice >= 248);
    errno = nChoice < 248 ? EINTR : EIO;
    return nChoice >= 248 && nChoice < 252 ? 0 : -1;
}

} // namespace fuzz

extern "C" {
ssize_t __real_pread64(int iFile, void *pBytes, size_t nLen, off_t iAt);
ssize_t __real_pwrite64(int iFile, const void *pBytes, size_t nLen, off_t iAt);
ssize_t __real_copy_file_range(int iFrom, off_t *pFrom, int iTo, off_t *pTo, size_t nLen, unsigned nFlags);
off_t __real_lseek64(int iFile, off_t iAt, int iWhence);
ssize_t __real_write(int iFile, const void *pBytes, size_t nLen);

ssize_t __wrap_pread64(int iFile, void *pBytes, size_t nLen, off_t iAt) {
    return fuzz::Play(nLen, true, [&](size_t n) { return __real_pread64(iFile, pBytes, n, iAt); });
}
ssize_t __wrap_pwrite64(int iFile, const void *pBytes, size_t nLen, off_t iAt) {
    return fuzz::Play(nLen, true, [&](size_t n) { return __real_pwrite64(iFile, pBytes, n, iAt); });
}
// The kernel may refuse this one at any time.
ssize_t __wrap_copy_file_range(int iFrom, off_t *pFrom, int iTo, off_t *pTo, size_t nLen, unsigned nFlags) {
    return fuzz::Play(nLen, false,
                      [&](size_t n) { return __real_copy_file_range(iFrom, pFrom, iTo, pTo, n, nFlags); });
}
// Nor need a file system tell where the gaps are.
off_t __wrap_lseek64(int iFile, off_t iAt, int iWhence) {
    if (fuzz::s_pPlayed == nullptr || fuzz::s_pPlayed->Byte() < 252)
        return __real_lseek64(iFile, iAt, iWhence);
    fuzz::s_bFailed = fuzz::s_bFailed || iWhence == SEEK_SET;
    errno = EIO;
    return -1;
}
ssize_t __wrap_write(int iFile, const void *pBytes, size_t nLen) {
    return fuzz::Play(nLen, true, [&](size_t n) { return __real_write(iFile, pBytes, n); });
}
}

#endif
