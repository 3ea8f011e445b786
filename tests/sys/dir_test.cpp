// Directories: listing with information, making and removing.
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <vyx/sys.h>

#include "support/temp_dir.h"

static size_t s_nName = 0; // not 0: the length of the next entry's name, which there is no file of

// Takes the place of the platform's in this program.
extern "C" struct dirent *readdir(DIR *pDir) {
    static const auto fnReal = reinterpret_cast<decltype(&readdir)>(dlsym(RTLD_NEXT, "readdir64"));
    if (s_nName == 0)
        return fnReal(pDir);
    alignas(struct dirent) static char szEntry[offsetof(struct dirent, d_name) + 1024];
    std::memset(szEntry + offsetof(struct dirent, d_name), 'n', s_nName);
    szEntry[offsetof(struct dirent, d_name) + s_nName] = '\0';
    s_nName = 0;
    return reinterpret_cast<struct dirent *>(szEntry);
}

namespace {

using support::TempDir;
using Entries = std::map<std::string, VYX_FINFO_T>;

// All entries by name; each may come once only. The end is told from a failure by errno.
Entries List(VYX_DIR_T hDir) {
    Entries entries;
    _FILE_FIND_INFO info;
    while (std::memset(&info, 0x55, sizeof info), errno = EDOM, VYX_FindFileInDir(hDir, &info) == VYX_OK)
        EXPECT_TRUE(entries.emplace(info.name, info.finfo).second) << info.name;
    EXPECT_EQ(errno, EDOM);
    return entries;
}

TEST(Dir, InformationOfEachKind) {
    const TempDir dir;
    const std::string inside = dir / "before";
    ASSERT_EQ(VYX_MakeDir(inside.c_str()), VYX_OK);
    support::WriteFile(inside + "/file", "text");
    ASSERT_EQ(chmod((inside + "/file").c_str(), 04751), 0);
    const timespec times[2] = {{1000000001, 999999999}, {4102444802, 999999999}}; // 2001 and 2100
    ASSERT_EQ(utimensat(AT_FDCWD, (inside + "/file").c_str(), times, 0), 0);
    ASSERT_EQ(link((inside + "/file").c_str(), (inside + "/hard").c_str()), 0);
    ASSERT_EQ(mkfifo((inside + "/pipe").c_str(), 0600), 0);
    ASSERT_EQ(mknod((inside + "/socket").c_str(), S_IFSOCK | 0600, 0), 0);
    std::string longest(255, '\n'); // any bytes, as many as there can be
    for (size_t n = 1; n < longest.size(); ++n)
        longest[n] = n == '/' ? '\\' : static_cast<char>(n);
    support::WriteFile(inside + "/" + longest, "");
    ASSERT_EQ(symlink("file", (inside + "/link").c_str()), 0);
    ASSERT_EQ(symlink("/dev/null", (inside + "/device").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (inside + "/broken").c_str()), 0);
    const VYX_DIR_T hDir = VYX_OpenDir(inside.c_str());
    ASSERT_EQ(VYX_RenameFile(inside.c_str(), (dir / "after").c_str()),
              VYX_OK); // what was opened is what counts
    testing::internal::CaptureStdout();
    Entries found = List(hDir);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Get file stat failed! err:" + std::to_string(ENOENT) + "\n"); // the broken link
    EXPECT_EQ(VYX_CloseDir(hDir), VYX_OK);
    const std::pair<std::string, uint32_t> kinds[] = {
        {".", VYX_TYPE_DIR},       {"..", VYX_TYPE_DIR},    {"file", VYX_TYPE_REG},   {"hard", VYX_TYPE_REG},
        {"link", VYX_TYPE_REG},    {"pipe", VYX_TYPE_PIPE}, {"device", VYX_TYPE_CHR}, {"broken", 0},
        {"socket", VYX_TYPE_SOCK}, {longest, VYX_TYPE_REG}};
    EXPECT_EQ(found.size(), std::size(kinds));
    for (const auto &kind : kinds)
        EXPECT_EQ(found[kind.first].type, kind.second) << kind.first;
    const VYX_FINFO_T none = {};
    EXPECT_EQ(std::memcmp(&found["broken"], &none, sizeof none), 0);
    EXPECT_NE(found["device"].rdev, 0U);

    const VYX_FINFO_T &info = found["link"]; // links are followed
    struct stat status = {};
    ASSERT_EQ(stat((dir / "after/file").c_str(), &status), 0);
    EXPECT_EQ(info.perm, 0x8751U);
    EXPECT_EQ(info.uid, getuid());
    EXPECT_EQ(info.gid, status.st_gid);
    EXPECT_EQ(info.nlink, 2U);
    EXPECT_EQ(info.inode, status.st_ino);
    EXPECT_EQ(info.size, 4);
    EXPECT_EQ(info.atime, 1000000001000000) << "microseconds of whole seconds";
    EXPECT_EQ(info.mtime, 4102444802000000);
    EXPECT_EQ(info.ctime, status.st_ctime * int64_t{1000000});
    const VYX_FILE_T hFile = VYX_OpenFile((dir / "after/file").c_str(), VYX_OPEN_READ, 0);
    VYX_FINFO_T seconds = {};
    EXPECT_EQ(VYX_FileStat(hFile, &seconds), VYX_OK);
    EXPECT_EQ(VYX_CloseFile(hFile), VYX_OK);
    EXPECT_EQ(seconds.atime, 1000000001);
    EXPECT_EQ(seconds.mtime, 4102444802);
    EXPECT_EQ(seconds.ctime, status.st_ctime);
    EXPECT_EQ(seconds.inode, info.inode);
}

TEST(Dir, LongNamesAreCut) {
    const VYX_DIR_T hDir = VYX_OpenDir("/");
    for (const size_t nName : {259U, 260U, 1000U}) {
        s_nName = nName;
        struct {
            _FILE_FIND_INFO info;
            char szGuard[16];
        } found;
        std::memset(&found, 0x55, sizeof found);
        EXPECT_EQ(VYX_FindFileInDir(hDir, &found.info), VYX_OK);
        EXPECT_EQ(found.info.name, std::string(nName < 260 ? nName : 259, 'n'));
        EXPECT_EQ(found.info.finfo.type, 0U);
        EXPECT_EQ(found.szGuard[0], 0x55);
    }
    EXPECT_EQ(VYX_CloseDir(hDir), VYX_OK);
}

TEST(Dir, MadeWithoutRegardToTheMask) {
    const TempDir dir;
    const std::string path = dir / "dir";
    for (const mode_t nMask : {0U, 022U, 0777U}) {
        umask(nMask);
        EXPECT_EQ(VYX_MakeDir(path.c_str()), VYX_OK);
        struct stat status = {};
        EXPECT_EQ(stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777, 0766U);
        EXPECT_EQ(VYX_MakeDir(path.c_str()), VYX_ERROR);
        EXPECT_EQ(VYX_RemoveDir(path.c_str()), VYX_OK);
    }
    umask(022);
    support::WriteFile(path, "a file");
    EXPECT_EQ(VYX_RemoveDir(path.c_str()), VYX_OK) << "files too";
    EXPECT_EQ(VYX_RemoveDir(path.c_str()), VYX_ERROR);
}

TEST(Dir, NoHandle) {
    EXPECT_EQ(VYX_OpenDir("/dev/null"), nullptr);
    EXPECT_EQ(errno, ENOTDIR);
    _FILE_FIND_INFO info;
    EXPECT_EQ(VYX_FindFileInDir(nullptr, &info), VYX_ERROR);
    EXPECT_EQ(VYX_CloseDir(nullptr), VYX_ERROR);
    const VYX_DIR_T hDir = VYX_OpenDir("/dev");
    EXPECT_EQ(VYX_FindFileInDir(hDir, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_CloseDir(hDir), VYX_OK);
}

} // namespace
