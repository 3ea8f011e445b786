// Directories: listing with information, making and removing.
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <map>
#include <new>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <vyx/sys.h>

#include "support/temp_dir.h"
#include "sys/file_inter.h"

static std::atomic<bool> s_bMemoryShort{false}; // makes allocations that may fail do so

void *operator new(size_t nSize, const std::nothrow_t & /*tag*/) noexcept {
    return s_bMemoryShort ? nullptr : ::operator new(nSize);
}

namespace {

using support::TempDir;
using Entries = std::map<std::string, VYX_FINFO_T>;

// All entries by name; each may come once only.
Entries List(VYX_DIR_T hDir) {
    Entries entries;
    _FILE_FIND_INFO info;
    std::memset(&info, 0x55, sizeof info);
    errno = 0;
    while (VYX_FindFileInDir(hDir, &info) == VYX_OK) {
        EXPECT_TRUE(entries.emplace(info.name, info.finfo).second) << info.name;
        std::memset(&info, 0x55, sizeof info);
        errno = 0;
    }
    EXPECT_EQ(errno, 0) << "the end is told from a failure by errno";
    return entries;
}

Entries List(const std::string &path) {
    const VYX_DIR_T hDir = VYX_OpenDir(path.c_str());
    EXPECT_NE(hDir, nullptr);
    const Entries entries = List(hDir);
    EXPECT_EQ(VYX_CloseDir(hDir), VYX_OK);
    return entries;
}

std::string NoInformation(int iError, int iTimes) {
    std::string text;
    while (iTimes-- > 0)
        text += "Get file stat failed! err:" + std::to_string(iError) + "\n";
    return text;
}

void ExpectCleared(const VYX_FINFO_T &info) {
    const VYX_FINFO_T none = {};
    EXPECT_EQ(std::memcmp(&info, &none, sizeof none), 0);
}

TEST(Dir, InformationOfEachKind) {
    const TempDir dir;
    support::WriteFile(dir / "file", "text");
    ASSERT_EQ(chmod((dir / "file").c_str(), 04751), 0);
    const timespec times[2] = {{1000000001, 999999999}, {4102444802, 999999999}}; // 2001 and 2100
    ASSERT_EQ(utimensat(AT_FDCWD, (dir / "file").c_str(), times, 0), 0);
    ASSERT_EQ(link((dir / "file").c_str(), (dir / "hard").c_str()), 0);
    ASSERT_EQ(mkfifo((dir / "pipe").c_str(), 0600), 0);
    ASSERT_EQ(symlink("file", (dir / "link").c_str()), 0);
    ASSERT_EQ(symlink("/dev/null", (dir / "device").c_str()), 0);
    ASSERT_EQ(symlink("nowhere", (dir / "broken").c_str()), 0);
    ASSERT_EQ(VYX_MakeDir((dir / "dir").c_str()), VYX_OK);
    testing::internal::CaptureStdout();
    Entries found = List(dir.Path());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), NoInformation(ENOENT, 1)) << "the broken link";
    const std::pair<const char *, uint32_t> kinds[] = {
        {".", VYX_TYPE_DIR},    {"..", VYX_TYPE_DIR},    {"file", VYX_TYPE_REG},   {"hard", VYX_TYPE_REG},
        {"link", VYX_TYPE_REG}, {"pipe", VYX_TYPE_PIPE}, {"device", VYX_TYPE_CHR}, {"dir", VYX_TYPE_DIR}};
    EXPECT_EQ(found.size(), std::size(kinds) + 1);
    for (const auto &kind : kinds)
        EXPECT_EQ(found[kind.first].type, kind.second) << kind.first;
    ExpectCleared(found["broken"]);
    EXPECT_NE(found["device"].rdev, 0U);

    const VYX_FINFO_T &info = found["link"]; // links are followed
    struct stat status = {};
    ASSERT_EQ(stat((dir / "file").c_str(), &status), 0);
    EXPECT_EQ(info.perm, 0x8751U);
    EXPECT_EQ(info.uid, getuid());
    EXPECT_EQ(info.gid, status.st_gid);
    EXPECT_EQ(info.nlink, 2U);
    EXPECT_EQ(info.inode, status.st_ino);
    EXPECT_EQ(info.size, 4);
    EXPECT_EQ(info.atime, 1000000001000000) << "microseconds of whole seconds";
    EXPECT_EQ(info.mtime, 4102444802000000);
    EXPECT_EQ(info.ctime, status.st_ctime * int64_t{1000000});
    const VYX_FILE_T hFile = VYX_OpenFile((dir / "file").c_str(), VYX_OPEN_READ, 0);
    VYX_FINFO_T seconds = {};
    EXPECT_EQ(VYX_FileStat(hFile, &seconds), VYX_OK);
    EXPECT_EQ(VYX_CloseFile(hFile), VYX_OK);
    EXPECT_EQ(seconds.atime, 1000000001);
    EXPECT_EQ(seconds.mtime, 4102444802);
    EXPECT_EQ(seconds.ctime, status.st_ctime);
    EXPECT_EQ(seconds.inode, info.inode);
}

TEST(Dir, KindsThatAreRare) {
    const std::pair<mode_t, uint32_t> kinds[] = {
        {S_IFBLK, VYX_TYPE_BLK}, {S_IFLNK, VYX_TYPE_LINK}, {S_IFSOCK, VYX_TYPE_SOCK}, {0, VYX_TYPE_UNKNOWN}};
    for (const auto &kind : kinds) {
        struct stat status = {};
        VYX_FINFO_T info = {};
        status.st_mode = kind.first | 0777;
        VYX_FileInfoFromStat_Inter(&status, 1, &info);
        EXPECT_EQ(info.type, kind.second);
    }
}

TEST(Dir, EntriesThatVanish) {
    const TempDir dir;
    const std::string names[] = {"a", "b", "c"};
    for (const std::string &name : names)
        support::WriteFile(dir / name, "");
    const VYX_DIR_T hDir = VYX_OpenDir(dir.Path().c_str());
    _FILE_FIND_INFO first;
    ASSERT_EQ(VYX_FindFileInDir(hDir, &first), VYX_OK); // the platform now holds them all
    for (const std::string &name : names)
        ASSERT_EQ(VYX_DeleteFile((dir / name).c_str()), VYX_OK);
    testing::internal::CaptureStdout();
    Entries found = List(hDir);
    const std::string output = testing::internal::GetCapturedStdout();
    int iGone = 0;
    for (const std::string &name : names)
        if (first.name != name) {
            ExpectCleared(found.at(name));
            ++iGone;
        }
    EXPECT_EQ(output, NoInformation(ENOENT, iGone));
    EXPECT_EQ(VYX_CloseDir(hDir), VYX_OK);
}

TEST(Dir, LongNamesAndRenamedDirectory) {
    const TempDir dir;
    const std::string longest(255, 'n');
    ASSERT_EQ(VYX_MakeDir((dir / "before").c_str()), VYX_OK);
    support::WriteFile(dir / ("before/" + longest), "12345");
    const VYX_DIR_T hDir = VYX_OpenDir((dir / "before").c_str());
    ASSERT_EQ(VYX_RenameFile((dir / "before").c_str(), (dir / "after").c_str()), VYX_OK);
    Entries found = List(hDir);
    EXPECT_EQ(VYX_CloseDir(hDir), VYX_OK);
    EXPECT_EQ(found.size(), 3U);
    EXPECT_EQ(found[longest].size, 5);
}

TEST(Dir, HundredThousandEntries) {
    constexpr int kEntries = 100000;
    const TempDir dir(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : testing::TempDir());
    for (int i = 0; i < kEntries; ++i)
        ASSERT_EQ(symlink(".", (dir / std::to_string(i)).c_str()), 0);
    const Entries found = List(dir.Path());
    EXPECT_EQ(found.size(), kEntries + 2U);
    for (const auto &entry : found)
        ASSERT_EQ(entry.second.type, static_cast<uint32_t>(VYX_TYPE_DIR)) << entry.first;
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
        EXPECT_EQ(errno, EEXIST);
        EXPECT_EQ(VYX_RemoveDir(path.c_str()), VYX_OK);
    }
    umask(022);
    support::WriteFile(path, "a file");
    EXPECT_EQ(VYX_RemoveDir(path.c_str()), VYX_OK) << "files too";
    EXPECT_EQ(VYX_RemoveDir(path.c_str()), VYX_ERROR);
    support::WriteFile(path, "keeps its directory");
    EXPECT_EQ(VYX_RemoveDir(dir.Path().c_str()), VYX_ERROR);
    EXPECT_EQ(errno, ENOTEMPTY);
}

TEST(Dir, NullAndWhatIsNoDirectory) {
    const TempDir dir;
    support::WriteFile(dir / "file", "");
    _FILE_FIND_INFO info;
    EXPECT_EQ(VYX_OpenDir(nullptr), nullptr);
    EXPECT_EQ(VYX_OpenDir(""), nullptr);
    EXPECT_EQ(VYX_OpenDir((dir / "none").c_str()), nullptr);
    EXPECT_EQ(VYX_OpenDir((dir / "file").c_str()), nullptr);
    EXPECT_EQ(errno, ENOTDIR);
    EXPECT_EQ(VYX_FindFileInDir(nullptr, &info), VYX_ERROR);
    const VYX_DIR_T hDir = VYX_OpenDir(dir.Path().c_str());
    EXPECT_EQ(VYX_FindFileInDir(hDir, nullptr), VYX_ERROR);
    EXPECT_EQ(List(hDir).size(), 3U) << "no entry was lost to the null";
    EXPECT_EQ(VYX_CloseDir(hDir), VYX_OK);
    EXPECT_EQ(VYX_CloseDir(nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_MakeDir(nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_RemoveDir(nullptr), VYX_ERROR);
}

TEST(Dir, NoHandleWithoutMemory) {
    const long nBefore = support::OpenDescriptors();
    s_bMemoryShort = true;
    const VYX_DIR_T hDir = VYX_OpenDir("/");
    s_bMemoryShort = false;
    EXPECT_EQ(hDir, nullptr);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(support::OpenDescriptors(), nBefore);
}

} // namespace
