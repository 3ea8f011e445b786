// How flags and permissions are translated, files and their positions, identifiers.
#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vyx/sys.h>

#include "transcript.h"

namespace transcript {

namespace {

// The platform's flags by name: their numbers are its own.
std::string FlagNames(int32_t iFlags) {
    std::string names = (iFlags & O_ACCMODE) == O_RDWR ? "rw" : (iFlags & O_ACCMODE) == O_WRONLY ? "w" : "r";
    const struct {
        int32_t iFlag;
        const char *szName;
    } flags[] = {{O_CREAT, " create"}, {O_APPEND, " append"}, {O_TRUNC, " truncate"}, {O_EXCL, " exclusive"}};
    for (const auto &flag : flags)
        names += (iFlags & flag.iFlag) != 0 ? flag.szName : "";
    return iFlags < 0 ? "none" : names;
}

// The first three groups of an identifier are numbers in the processor's byte order, here from little-endian ones.
void ToOwnOrder(uint8_t *pUuid) {
    const uint16_t nOne = 1;
    if (*reinterpret_cast<const uint8_t *>(&nOne) == 1)
        return;
    std::reverse(pUuid, pUuid + 4);
    std::reverse(pUuid + 4, pUuid + 6);
    std::reverse(pUuid + 6, pUuid + 8);
}

void Positions() {
    Section("positions");
    char szPath[] = "/tmp/vyx_transcript_XXXXXX";
    (void)close(mkstemp(szPath));
    const VYX_FILE_T hFile =
        VYX_OpenFile(szPath, VYX_OPEN_READ | VYX_OPEN_WRITE | VYX_OPEN_TRUNCATE, VYX_UREAD | VYX_UWRITE);
    for (int i = 0; i < 40; ++i) {
        char szBytes[33] = "0123456789abcdef0123456789abcdef";
        int32_t iCount = -7;
        int64_t iPosition = -7;
        const uint32_t nSize = Random(32);
        switch (Random(3)) {
        case 0: {
            const int32_t iResult = VYX_WriteFile(hFile, szBytes, nSize, &iCount);
            Line("write %u: %d %d", nSize, iResult, iCount);
            break;
        }
        case 1: {
            const int32_t iResult = VYX_ReadFile(hFile, szBytes, nSize, &iCount);
            Line("read %u: %d %d %s", nSize, iResult, iCount,
                 Hex(szBytes, iCount > 0 ? static_cast<size_t>(iCount) : 0).c_str());
            break;
        }
        default: {
            const auto iWhence = static_cast<int32_t>(Random(4));
            const auto iOffset = static_cast<int64_t>(Random(40)) - 10;
            const int32_t iResult = VYX_FileSeek(hFile, iOffset, iWhence, &iPosition);
            Line("seek %lld from %d: %d %lld, end %d", static_cast<long long>(iOffset), iWhence, iResult,
                 static_cast<long long>(iPosition), VYX_FileIsEOF(hFile));
        }
        }
    }
    const int64_t iFar = INT64_C(5) << 30;
    int64_t iPosition = -7;
    const int32_t iResult = VYX_FileSeek(hFile, iFar, SEEK_SET, &iPosition);
    Line("seek beyond 4 GiB: %d %lld", iResult, static_cast<long long>(iPosition));
    VYX_FINFO_T info;
    const int32_t iStat = VYX_FileStat(hFile, &info);
    Line("stat: %d type %u perm %x links %u size %lld", iStat, info.type, info.perm, info.nlink,
         static_cast<long long>(info.size));
    (void)VYX_CloseFile(hFile);
    Line("delete: %d", VYX_DeleteFile(szPath));
    Line("delete again: %d", VYX_DeleteFile(szPath));
}

} // namespace

void Files() {
    Section("flags");
    for (uint32_t nFlags = 0; nFlags < 0x80; nFlags += nFlags < 8 ? 1 : 5)
        Line("open flags %02x: %s", nFlags, FlagNames(VYX_GetOFlagByFlag(nFlags)).c_str());
    for (int i = 0; i < 24; ++i) {
        const uint32_t nBits = i < 16 ? 1u << i : Random();
        Line("permission %x: mode %o; mode %o: permission %x", nBits, VYX_GetModeByPerm(nBits), nBits & 07777,
             VYX_GetPermByMode(nBits & 07777));
    }
    Section("identifiers");
    for (int i = 0; i < 8; ++i) {
        uint8_t byUuid[16];
        for (uint8_t &by : byUuid)
            by = static_cast<uint8_t>(Random());
        const std::string given = Hex(byUuid, 16);
        ToOwnOrder(byUuid);
        char szText[48] = "";
        const int32_t iResult = VYX_StringFromUUID(byUuid, szText, static_cast<int32_t>(30 + Random(15)));
        Line("uuid %s: %d %s", given.c_str(), iResult, Quoted(szText).c_str());
    }
    Positions();
}

} // namespace transcript
