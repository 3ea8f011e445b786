// Names in a directory: any bytes but a slash, any length that the platform takes, files and directories, sizes, and links that
// lead nowhere. Every entry is found once, with its name and what it is.
#include <cstring>
#include <map>
#include <unistd.h>
#include <vyx/sys.h>

#include "input.h"
#include "support/temp_dir.h"

enum Kind : unsigned { Directory, LostLink }; // the others are files of so many thousand bytes

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *pData, size_t nSize) {
    static const support::TempDir s_folder("/dev/shm");
    static const bool s_bQuiet =
        std::freopen("/dev/null", "w", stdout) != nullptr; // a lost link is told of there
    REQUIRE(s_bQuiet);
    fuzz::Input input(pData, nSize);
    std::string sFolder = s_folder / ("d" + std::string(input.Pick(250), 'x'));
    sFolder += input.Pick(2) == 0 ? "/" : "";
    REQUIRE(VYX_MakeDir(sFolder.c_str()) == VYX_OK);
    std::map<std::string, unsigned> expected = {{".", Directory}, {"..", Directory}};
    while (!input.AtEnd()) {
        const unsigned nKind = input.Pick(8);
        const unsigned nRepeat = 1 + input.Pick(20);
        const std::string sPart = input.Text(1 + input.Pick(16)).c_str(); // as far as a zero
        std::string sName;
        for (unsigned n = 0; n < nRepeat; ++n)
            sName += sPart;
        sName = sName.substr(0, 255);
        std::replace(sName.begin(), sName.end(), '/', '\\');
        if (sName.empty() || !expected.emplace(sName, nKind).second)
            continue;
        const std::string sPath = sFolder + "/" + sName;
        if (nKind == Directory) {
            REQUIRE(VYX_MakeDir(sPath.c_str()) == VYX_OK);
        } else if (nKind == LostLink) {
            REQUIRE(symlink("nowhere/at/all", sPath.c_str()) == 0);
        } else {
            VYX_FILE_T hFile = VYX_OpenFile(sPath.c_str(), VYX_OPEN_WRITE | VYX_OPEN_CREATE, VYX_UREAD);
            REQUIRE(hFile >= 0 && ftruncate(hFile, nKind * 1000) == 0 && VYX_CloseFile(hFile) == VYX_OK);
        }
    }
    VYX_DIR_T hDir = VYX_OpenDir(sFolder.c_str());
    REQUIRE(hDir != nullptr);
    _FILE_FIND_INFO info;
    while (std::memset(&info, 0xEE, sizeof info), VYX_FindFileInDir(hDir, &info) == VYX_OK) {
        REQUIRE(std::memchr(info.name, 0, sizeof info.name) != nullptr);
        const std::string sName = info.name;
        const auto found = expected.find(sName);
        REQUIRE(found != expected.end());
        const unsigned nKind = found->second;
        expected.erase(found);
        REQUIRE(info.finfo.type == (nKind == Directory  ? VYX_TYPE_DIR
                                    : nKind == LostLink ? 0
                                                        : VYX_TYPE_REG));
        REQUIRE(nKind == Directory || info.finfo.size == (nKind == LostLink ? 0 : nKind * 1000));
        REQUIRE(nKind <= LostLink || info.finfo.perm == VYX_UREAD);
        REQUIRE(sName == "." || sName == ".." || VYX_DeleteFile((sFolder + "/" + sName).c_str()) == VYX_OK);
    }
    REQUIRE(expected.empty());
    REQUIRE(VYX_CloseDir(hDir) == VYX_OK && VYX_RemoveDir(sFolder.c_str()) == VYX_OK);
    return 0;
}
