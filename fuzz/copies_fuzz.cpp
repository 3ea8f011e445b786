// VYX_CopyFile where the input makes its calls fall short, be interrupted or fail. What has to hold: 1 means that the content is
// the same; -1 that a call failed, or that the arguments forbid it; the source is as it was; no descriptor is left.
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <vyx/sys.h>

#include "input.h"
#include "support/temp_dir.h"

namespace {

fuzz::Input *s_pInput = nullptr; // while calls are played
bool s_bFailed = false;          // a call that the copy cannot do without

// A call for so many bytes is made whole, made short, interrupted, answered with an end, or fails.
template <class Call>
ssize_t Play(size_t nLen, bool bNeeded, Call fnCall) {
    const unsigned nChoice = s_pInput == nullptr ? 0 : s_pInput->Byte();
    if (nChoice < 200)
        return fnCall(nChoice < 128 || nLen == 0 ? nLen : 1 + (nLen - 1) / 3);
    s_bFailed = s_bFailed || (bNeeded && nChoice >= 248);
    errno = nChoice < 248 ? EINTR : EIO;
    return nChoice >= 248 && nChoice < 252 ? 0 : -1;
}

} // namespace

extern "C" {
ssize_t __real_pread64(int iFile, void *pBytes, size_t nLen, off_t iAt);
ssize_t __real_pwrite64(int iFile, const void *pBytes, size_t nLen, off_t iAt);
ssize_t __real_copy_file_range(int iFrom, off_t *pFrom, int iTo, off_t *pTo, size_t nLen, unsigned nFlags);
off_t __real_lseek64(int iFile, off_t iAt, int iWhence);
ssize_t __real_write(int iFile, const void *pBytes, size_t nLen);

ssize_t __wrap_pread64(int iFile, void *pBytes, size_t nLen, off_t iAt) {
    return Play(nLen, true, [&](size_t n) { return __real_pread64(iFile, pBytes, n, iAt); });
}
ssize_t __wrap_pwrite64(int iFile, const void *pBytes, size_t nLen, off_t iAt) {
    return Play(nLen, true, [&](size_t n) { return __real_pwrite64(iFile, pBytes, n, iAt); });
}
// The kernel may refuse this one at any time.
ssize_t __wrap_copy_file_range(int iFrom, off_t *pFrom, int iTo, off_t *pTo, size_t nLen, unsigned nFlags) {
    return Play(nLen, false,
                [&](size_t n) { return __real_copy_file_range(iFrom, pFrom, iTo, pTo, n, nFlags); });
}
// Nor need a file system tell where the gaps are.
off_t __wrap_lseek64(int iFile, off_t iAt, int iWhence) {
    if (s_pInput == nullptr || s_pInput->Byte() < 252)
        return __real_lseek64(iFile, iAt, iWhence);
    s_bFailed = s_bFailed || iWhence == SEEK_SET;
    errno = EIO;
    return -1;
}
ssize_t __wrap_write(int iFile, const void *pBytes, size_t nLen) {
    return Play(nLen, true, [&](size_t n) { return __real_write(iFile, pBytes, n); });
}
}

namespace {

// Makes a file with gaps, pieces of text at places of the input's choice, and returns what it holds.
std::string Make(const std::string &sPath, fuzz::Input *pInput) {
    std::string sContent;
    const int iFile = open(sPath.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    for (unsigned nPieces = pInput->Pick(4); nPieces > 0; --nPieces) {
        const size_t nLen = pInput->Byte();
        std::string sText(nLen, static_cast<char>(pInput->Byte()));
        const size_t nAt = pInput->Pick(100) * size_t{4096};
        if (sText.empty())
            continue;
        sText += "end";
        sContent.resize(std::max(sContent.size(), nAt + sText.size()));
        sContent.replace(nAt, sText.size(), sText);
        REQUIRE(pwrite(iFile, sText.data(), sText.size(), static_cast<off_t>(nAt)) ==
                static_cast<ssize_t>(sText.size()));
    }
    (void)close(iFile);
    return sContent;
}

bool Holds(const std::string &sPath, const std::string &sContent) {
    std::string sFound(sContent.size() + 1, '\0');
    const int iFile = open(sPath.c_str(), O_RDONLY | O_CLOEXEC);
    const ssize_t iLen = read(iFile, sFound.data(), sFound.size());
    (void)close(iFile);
    return iLen >= 0 && sFound.compare(0, static_cast<size_t>(iLen), sContent) == 0;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    static const support::TempDir s_folder("/dev/shm");
    fuzz::Input input(pData, nSize);
    const std::string sSource = s_folder / "source";
    const std::string sTarget = s_folder / "target";
    (void)unlink(sTarget.c_str());
    const std::string sBefore = Make(sSource, &input);
    std::string sOld = sBefore;
    const unsigned nKind = input.Pick(8); // of the target: a file, the source itself, or nothing
    const int32_t iKeep = nKind % 2;
    if (nKind < 2)
        sOld = Make(sTarget, &input);
    else if (nKind < 4)
        REQUIRE(link(sSource.c_str(), sTarget.c_str()) == 0);
    const bool bForbidden = nKind < 4 && (iKeep != 0 || nKind >= 2);
    const int iFree = dup(STDERR_FILENO);
    (void)close(iFree);
    s_bFailed = false;
    s_pInput = &input;
    const int32_t iResult = VYX_CopyFile(sSource.c_str(), sTarget.c_str(), iKeep);
    s_pInput = nullptr;
    const int iFreeNow = dup(STDERR_FILENO);
    (void)close(iFreeNow);
    REQUIRE(iFreeNow == iFree);
    REQUIRE(Holds(sSource, sBefore));
    REQUIRE(iResult == 1 || iResult == -1);
    REQUIRE(iResult == -1 || (!bForbidden && Holds(sTarget, sBefore)));
    REQUIRE(iResult == 1 || bForbidden || s_bFailed || sBefore.empty());
    REQUIRE(!bForbidden || Holds(sTarget, sOld));
    return 0;
}
