// VYX_CopyFile where the input makes its calls fall short, be interrupted or fail. What has to hold: 1 means that the content is
// the same; -1 that a call failed, or that the arguments forbid it; the source is as it was; no descriptor is left.
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <vyx/sys.h>

#include "folder.h"
#include "input.h"

namespace {

fuzz::Input *s_pInput = nullptr; // while calls are played
bool s_bFailed = false;

enum class Fate : uint8_t { Whole, Short, Interrupted, Ended, Failed };

Fate Next() {
    const unsigned nChoice = s_pInput == nullptr || s_pInput->AtEnd() ? 0 : s_pInput->Byte();
    const Fate eFate = nChoice < 128   ? Fate::Whole
                       : nChoice < 200 ? Fate::Short
                       : nChoice < 248 ? Fate::Interrupted
                       : nChoice < 252 ? Fate::Ended
                                       : Fate::Failed;
    errno = eFate == Fate::Interrupted ? EINTR : eFate == Fate::Failed ? EIO : errno;
    return eFate;
}

// What a call for so many bytes becomes.
template <class Call>
ssize_t Play(size_t nLen, bool bMayFail, Call fnCall) {
    const Fate eFate = Next();
    if (eFate >= Fate::Interrupted) {
        s_bFailed = s_bFailed || (eFate != Fate::Interrupted && !bMayFail);
        return eFate == Fate::Ended ? 0 : -1;
    }
    return fnCall(eFate == Fate::Short && nLen > 1 ? 1 + (nLen - 1) / 3 : nLen);
}

} // namespace

extern "C" {
ssize_t __real_pread64(int iFile, void *pBytes, size_t nLen, off_t iAt);
ssize_t __real_pwrite64(int iFile, const void *pBytes, size_t nLen, off_t iAt);
ssize_t __real_copy_file_range(int iFrom, off_t *pFrom, int iTo, off_t *pTo, size_t nLen, unsigned nFlags);
off_t __real_lseek64(int iFile, off_t iAt, int iWhence);
ssize_t __real_write(int iFile, const void *pBytes, size_t nLen);

ssize_t __wrap_pread64(int iFile, void *pBytes, size_t nLen, off_t iAt) {
    return Play(nLen, false, [&](size_t n) { return __real_pread64(iFile, pBytes, n, iAt); });
}
ssize_t __wrap_pwrite64(int iFile, const void *pBytes, size_t nLen, off_t iAt) {
    return Play(nLen, false, [&](size_t n) { return __real_pwrite64(iFile, pBytes, n, iAt); });
}
// The kernel may refuse this one at any time.
ssize_t __wrap_copy_file_range(int iFrom, off_t *pFrom, int iTo, off_t *pTo, size_t nLen, unsigned nFlags) {
    return Play(nLen, true,
                [&](size_t n) { return __real_copy_file_range(iFrom, pFrom, iTo, pTo, n, nFlags); });
}
// Nor need a file system tell where the gaps are.
off_t __wrap_lseek64(int iFile, off_t iAt, int iWhence) {
    if (s_pInput != nullptr && Next() == Fate::Failed) {
        s_bFailed = s_bFailed || iWhence == SEEK_SET;
        return -1;
    }
    return __real_lseek64(iFile, iAt, iWhence);
}
ssize_t __wrap_write(int iFile, const void *pBytes, size_t nLen) {
    if (s_pInput == nullptr)
        return __real_write(iFile, pBytes, nLen);
    return Play(nLen, false, [&](size_t n) { return __real_write(iFile, pBytes, n); });
}
}

namespace {

// A file with gaps: pieces of text at places of the input's choice.
void Make(const std::string &sPath, fuzz::Input *pInput) {
    const int iFile = open(sPath.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    for (unsigned nPieces = pInput->Pick(4); nPieces > 0; --nPieces) {
        std::string sText(pInput->Byte(), static_cast<char>(pInput->Byte()));
        sText += sText.empty() ? "" : "end";
        REQUIRE(pwrite(iFile, sText.data(), sText.size(), pInput->Pick(100) * 4096) ==
                static_cast<ssize_t>(sText.size()));
    }
    (void)close(iFile);
}

int LowestFree() {
    const int iFile = open("/dev/null", O_RDONLY | O_CLOEXEC);
    (void)close(iFile);
    return iFile;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    static const fuzz::Folder s_folder;
    fuzz::Input input(pData, nSize);
    const std::string sSource = s_folder / "source";
    const std::string sTarget = s_folder / "target";
    (void)unlink(sTarget.c_str());
    Make(sSource, &input);
    const unsigned nKind = input.Pick(8); // of the target: a file, the source itself, or nothing
    const int32_t iKeep = nKind % 2;
    if (nKind < 2)
        Make(sTarget, &input);
    else if (nKind < 4)
        REQUIRE(link(sSource.c_str(), sTarget.c_str()) == 0);
    const std::string sBefore = fuzz::ReadFile(sSource);
    const std::string sOld = fuzz::ReadFile(sTarget);
    const int iFree = LowestFree();
    s_bFailed = false;
    s_pInput = &input;
    const int32_t iResult = VYX_CopyFile(sSource.c_str(), sTarget.c_str(), iKeep);
    s_pInput = nullptr;
    REQUIRE(LowestFree() == iFree);
    REQUIRE(fuzz::ReadFile(sSource) == sBefore);
    const bool bForbidden = nKind < 4 && (iKeep != 0 || nKind >= 2);
    REQUIRE(iResult == 1 || iResult == -1);
    REQUIRE(iResult == -1 || (!bForbidden && fuzz::ReadFile(sTarget) == sBefore));
    REQUIRE(iResult == 1 || bForbidden || s_bFailed || sBefore.empty());
    REQUIRE(!bForbidden || fuzz::ReadFile(sTarget) == sOld);
    return 0;
}
