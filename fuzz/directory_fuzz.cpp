// Names in a directory: any bytes but a slash, any length that the platform takes, files and directories, sizes, and links that
// lead nowhere. Every entry is found once, with its name and what it is.
#include <cstring>
#include <map>
#include <sys/stat.h>
#include <unistd.h>
#include <vyx/sys.h>

#include "folder.h"
#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    static const fuzz::Folder s_folder;
    static const bool s_bQuiet =
        std::freopen("/dev/null", "w", stdout) != nullptr; // a lost link is told of there
    REQUIRE(s_bQuiet);
    fuzz::Input input(pData, nSize);
    const std::string sFolder =
        s_folder / ("d" + std::string(input.Pick(250), 'x')) + (input.Pick(2) == 0 ? "/" : "");
    REQUIRE(VYX_MakeDir(sFolder.c_str()) == VYX_OK);
    std::map<std::string, int64_t> expected = {
        {".", -1}, {"..", -1}}; // sizes of files; -1 a directory, -2 nothing known
    while (!input.AtEnd()) {
        const auto iKind = static_cast<int>(input.Pick(8));
        const unsigned nRepeat = 1 + input.Pick(20);
        std::string sName = input.Repeated(nRepeat, 1 + input.Pick(16)).substr(0, 255);
        std::replace(sName.begin(), sName.end(), '/', '\\');
        if (sName.empty() || expected.count(sName) != 0)
            continue;
        const std::string sPath = sFolder + "/" + sName;
        expected[sName] = iKind == 0 ? -1 : iKind == 1 ? -2 : iKind * 1000;
        if (iKind == 0)
            REQUIRE(VYX_MakeDir(sPath.c_str()) == VYX_OK);
        else if (iKind == 1)
            REQUIRE(symlink("nowhere/at/all", sPath.c_str()) == 0);
        else {
            VYX_FILE_T hFile =
                VYX_OpenFile(sPath.c_str(), VYX_OPEN_WRITE | VYX_OPEN_CREATE | VYX_OPEN_EXCL, VYX_UREAD);
            REQUIRE(hFile >= 0 && ftruncate(hFile, iKind * 1000) == 0 && VYX_CloseFile(hFile) == VYX_OK);
        }
    }
    VYX_DIR_T hDir = VYX_OpenDir(sFolder.c_str());
    REQUIRE(hDir != nullptr);
    _FILE_FIND_INFO info;
    while (std::memset(&info, 0xEE, sizeof info), VYX_FindFileInDir(hDir, &info) == VYX_OK) {
        REQUIRE(std::memchr(info.name, 0, sizeof info.name) != nullptr);
        const auto found = expected.find(info.name);
        REQUIRE(found != expected.end());
        const int64_t iSize = found->second;
        REQUIRE(info.finfo.type == (iSize == -2 ? 0 : iSize == -1 ? VYX_TYPE_DIR : VYX_TYPE_REG));
        REQUIRE(iSize < 0 ? iSize == -1 || info.finfo.size == 0
                          : info.finfo.size == iSize && info.finfo.perm == VYX_UREAD);
        const std::string sPath = sFolder + "/" + info.name;
        expected.erase(found);
        if (info.name != std::string(".") && info.name != std::string(".."))
            REQUIRE(VYX_DeleteFile(sPath.c_str()) == VYX_OK);
    }
    REQUIRE(expected.empty());
    REQUIRE(VYX_CloseDir(hDir) == VYX_OK && VYX_RemoveDir(sFolder.c_str()) == VYX_OK);
    return 0;
}
