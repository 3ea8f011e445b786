// Files and directories: permissions, the calls on one file, copying, listing. What short and interrupted calls make of a copy,
// the scenarios "copy" and "copy through a buffer" of the failing resources show.
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <gtest/gtest.h>
#include <vyx/sys.h>

#include "support/calls.h"
#include "support/temp_dir.h"

static size_t s_nPath = 0;            // not 0: the length of the program's path
static size_t s_nName = 0;            // not 0: the length of the next entry's name, which there is no file of
static const char *s_szCut = nullptr; // the file that is cut to 100 bytes when the next call comes
static int s_nUntilFailure = 0;       // calls up to one that fails; 0: none does

static bool Fails() {
    if (s_nUntilFailure == 0 || --s_nUntilFailure > 0)
        return false;
    errno = EIO;
    return true;
}

// These take the place of the platform's in this program.
extern "C" {

off_t lseek(int iFd, off_t iOffset, int iWhence) noexcept {
    static const auto fnReal = reinterpret_cast<decltype(&lseek)>(dlsym(RTLD_NEXT, "lseek64"));
    if (s_szCut != nullptr)
        (void)truncate(std::exchange(s_szCut, nullptr), 100);
    return Fails() ? -1 : fnReal(iFd, iOffset, iWhence);
}
int ftruncate(int iFd, off_t iLength) noexcept {
    static const auto fnReal = reinterpret_cast<decltype(&ftruncate)>(dlsym(RTLD_NEXT, "ftruncate64"));
    return Fails() ? -1 : fnReal(iFd, iLength);
}
ssize_t write(int iFd, const void *pBuf, size_t nLength) {
    static const auto fnReal = reinterpret_cast<decltype(&write)>(dlsym(RTLD_NEXT, "write"));
    return Fails() ? -1 : fnReal(iFd, pBuf, nLength);
}
char *realpath(const char *szPath, char *szOut) noexcept {
    static const auto fnReal = reinterpret_cast<decltype(&realpath)>(dlsym(RTLD_NEXT, "realpath"));
    return s_nPath == 0 ? fnReal(szPath, szOut) : strdup(std::string(s_nPath, 'n').c_str());
}
struct dirent *readdir(DIR *pDir) {
    static const auto fnReal = reinterpret_cast<decltype(&readdir)>(dlsym(RTLD_NEXT, "readdir64"));
    if (s_nName == 0)
        return fnReal(pDir);
    alignas(struct dirent) static char szEntry[offsetof(struct dirent, d_name) + 1024];
    std::memset(szEntry + offsetof(struct dirent, d_name), 'n', s_nName);
    szEntry[offsetof(struct dirent, d_name) + s_nName] = '\0';
    s_nName = 0;
    return reinterpret_cast<struct dirent *>(szEntry);
}

} // extern "C"

namespace {

using support::ReadFile;
using support::WriteFile;

constexpr uint32_t kNew = VYX_OPEN_READ | VYX_OPEN_WRITE | VYX_OPEN_CREATE;

mode_t ModeOf(const std::string &path) {
    struct stat status = {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

// Bytes that repeat nowhere near.
std::string Bytes(size_t nLength) {
    std::string text(nLength, 0);
    uint32_t nState = 1;
    for (char &c : text)
        c = static_cast<char>((nState = nState * 1664525U + 1013904223U) >> 24);
    return text;
}

TEST(FileMapping, ModeByPerm) {
    EXPECT_EQ(VYX_GetModeByPerm(VYX_GetPermByMode(02000)), 0100)
        << "set-group-id becomes a right of the owner";
    EXPECT_EQ(VYX_GetModeByPerm(0xFFFFFFFF), 0400) << "read-only wins";
}

TEST(File, PermissionsUnderAMaskAndSizesAboveFourGiB) {
    const support::TempDir dir;
    const std::string path = dir / "f";
    umask(027);
    EXPECT_EQ(VYX_OpenFile(path.c_str(), VYX_OPEN_CREATE, 0x0777), VYX_INVALID_FILE);
    EXPECT_EQ(VYX_AccessFile(path.c_str(), F_OK), VYX_ERROR) << "nothing was made";
    EXPECT_EQ(VYX_CloseFile(VYX_OpenFile(path.c_str(), kNew | VYX_OPEN_EXCL, 0xFFFF0777)), VYX_OK);
    EXPECT_EQ(ModeOf(path), 0750U);
    EXPECT_EQ(VYX_AccessFile(path.c_str(), W_OK), VYX_OK);
    EXPECT_EQ(VYX_OpenFile(path.c_str(), kNew | VYX_OPEN_EXCL, 0x0777), VYX_INVALID_FILE);
    EXPECT_EQ(errno, EEXIST);
    const int64_t iFar = (int64_t{5} << 30) + 7;
    ASSERT_EQ(truncate(path.c_str(), iFar), 0);
    const VYX_FILE_T hFile = VYX_OpenFile(path.c_str(), kNew | VYX_OPEN_APPEND, 0);
    EXPECT_EQ(VYX_FileSeek(hFile, 0, SEEK_SET, nullptr), VYX_OK);
    EXPECT_EQ(VYX_WriteFile(hFile, "abc", 3, nullptr), VYX_OK);
    EXPECT_EQ(VYX_FileFlush(hFile), VYX_OK);
    VYX_FINFO_T info = {};
    EXPECT_EQ(VYX_FileStat(hFile, &info), VYX_OK);
    EXPECT_EQ(info.size, iFar + 3);
    EXPECT_TRUE(support::EndsThoughCancelled([&] { EXPECT_EQ(VYX_CloseFile(hFile), VYX_OK); }));
}

TEST(File, CountIsStoredAfterFailure) {
    int aPipe[2];
    ASSERT_EQ(pipe(aPipe), 0);
    int32_t iCount = 5;
    int64_t iPosition = 5;
    char c = 0;
    EXPECT_EQ(VYX_ReadFile(aPipe[1], &c, 1, &iCount), VYX_ERROR);
    EXPECT_EQ(iCount, -1);
    testing::internal::CaptureStdout();
    EXPECT_EQ(VYX_FileSeek(aPipe[0], 0, SEEK_SET, &iPosition), VYX_ERROR);
    EXPECT_EQ(iPosition, -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "last error = " + std::to_string(ESPIPE) + "\n");
}

TEST(File, NullAndInvalid) {
    int32_t iCount = 5;
    char c = 0;
    VYX_FINFO_T info = {};
    const int32_t kResults[] = {VYX_ReadFile(0, nullptr, 1, &iCount),
                                VYX_ReadFile(VYX_INVALID_FILE, &c, 1, &iCount),
                                VYX_WriteFile(1, nullptr, 1, &iCount),
                                VYX_WriteFile(VYX_INVALID_FILE, &c, 1, &iCount),
                                VYX_FileStat(0, nullptr),
                                VYX_FileStat(VYX_INVALID_FILE, &info),
                                VYX_FileFlush(VYX_INVALID_FILE),
                                VYX_AccessFile(nullptr, 0),
                                VYX_RenameFile(nullptr, "x"),
                                VYX_RenameFile("x", nullptr),
                                VYX_CopyFile(nullptr, "x", 0),
                                VYX_CopyFile("x", nullptr, 0)};
    for (const int32_t &iResult : kResults)
        EXPECT_EQ(iResult, -1) << &iResult - kResults;
    EXPECT_EQ(iCount, 5) << "nothing was done that could be counted";
    EXPECT_EQ(VYX_FileIsEOF(0), 1);
}

class FileCopy : public testing::Test {
  protected:
    int32_t Copy(int32_t bFailIfExists = 0) {
        return VYX_CopyFile(m_source.c_str(), m_target.c_str(), bFailIfExists);
    }
    support::TempDir m_dir;
    std::string m_source = m_dir / "source";
    std::string m_target = m_dir / "target";
};

TEST_F(FileCopy, ContentUnlessACallFails) {
    const std::string text = std::string(100000, 0) + Bytes(300001);
    WriteFile(m_source, "");
    ASSERT_EQ(truncate(m_source.c_str(), 100000), 0);
    std::ofstream(m_source, std::ios::binary | std::ios::app) << text.substr(100000);
    ASSERT_EQ(truncate(m_source.c_str(), 1 << 20), 0); // gaps at both ends
    int32_t iResult = VYX_ERROR;
    for (int n = 1; iResult != 1 || s_nUntilFailure == 0; ++n) {
        s_nUntilFailure = 0;
        WriteFile(m_target, "old");
        s_nUntilFailure = n;
        iResult = Copy();
        if (iResult != 1)
            ASSERT_TRUE(iResult == VYX_ERROR && errno == EIO && s_nUntilFailure == 0) << n;
        else
            ASSERT_TRUE(ReadFile(m_target) == text + std::string((1 << 20) - text.size(), 0)) << n;
    }
    s_nUntilFailure = 0;
}

TEST_F(FileCopy, LongGaps) {
    const int64_t iGap = VYX_TESTS_GAP;
    const int64_t iSize = iGap + iGap / 4 + 3;
    const int64_t aMarks[] = {0, iGap - 1, iGap + 4096};
    WriteFile(m_source, "");
    ASSERT_EQ(truncate(m_source.c_str(), iSize), 0);
    const int iFd = open(m_source.c_str(), O_RDWR);
    for (const int64_t iMark : aMarks)
        ASSERT_EQ(pwrite(iFd, &iMark, sizeof iMark, iMark), 8);
    close(iFd);
    EXPECT_EQ(Copy(), 1);
    const int iCopy = open(m_target.c_str(), O_RDONLY);
    struct stat status = {};
    EXPECT_EQ(fstat(iCopy, &status), 0);
    EXPECT_EQ(status.st_size, iSize);
    EXPECT_LT(status.st_blocks * 512, iSize / 8) << "gaps stay gaps";
    for (const int64_t iMark : aMarks) {
        int64_t iFound[2] = {-1, -1};
        EXPECT_EQ(pread(iCopy, iFound, sizeof iFound, iMark), 16);
        EXPECT_TRUE(iFound[0] == iMark && iFound[1] == 0) << iMark;
    }
    close(iCopy);
}

TEST_F(FileCopy, EmptyFileFails) {
    WriteFile(m_source, "");
    WriteFile(m_target, "old");
    EXPECT_EQ(Copy(), VYX_ERROR);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(access(m_target.c_str(), F_OK), 0);
    EXPECT_EQ(ReadFile(m_target), "") << "emptied before it failed";
}

TEST_F(FileCopy, ExistingAndNewTarget) {
    const std::string text = Bytes(600001);
    WriteFile(m_source, text);
    const timespec in2100[2] = {{4102444802, 0}, {4102444802, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, m_source.c_str(), in2100, 0), 0);
    ASSERT_EQ(chmod(m_source.c_str(), 0575), 0);
    WriteFile(m_target, "longer and older");
    ASSERT_EQ(chmod(m_target.c_str(), 0640), 0);
    EXPECT_EQ(Copy(1), VYX_ERROR);
    EXPECT_EQ(ReadFile(m_target), "longer and older");
    EXPECT_EQ(Copy(), 1);
    EXPECT_TRUE(ReadFile(m_target) == text);
    EXPECT_EQ(ModeOf(m_target), 0640U) << "an existing file keeps its permissions";
    (void)unlink(m_target.c_str());
    umask(027);
    EXPECT_EQ(Copy(1), 1);
    EXPECT_EQ(ModeOf(m_target), 0575U & ~027U) << "a new one has the source's less the mask";
}

TEST_F(FileCopy, WhatCannotBeCopied) {
    EXPECT_EQ(Copy(), VYX_ERROR);
    EXPECT_NE(access(m_target.c_str(), F_OK), 0) << "no source, no target";
    WriteFile(m_source, "the only copy");
    ASSERT_EQ(link(m_source.c_str(), (m_dir / "hard").c_str()), 0);
    for (const std::string &target : {m_source, m_dir / "hard", std::string("/dev/null"), std::string("/")}) {
        m_target = target;
        EXPECT_EQ(Copy(), VYX_ERROR) << target;
        EXPECT_EQ(ReadFile(m_source), "the only copy") << target;
    }
    m_source = m_dir.Path();
    m_target = m_dir / "target";
    EXPECT_EQ(Copy(), VYX_ERROR);
    EXPECT_EQ(errno, ENODEV) << "a directory";
}

TEST_F(FileCopy, SourceThatIsCutShortMeanwhile) {
    for (const size_t nBytes : {0U, 100000U}) { // before a gap; without any data nothing would be read
        WriteFile(m_source, Bytes(nBytes));
        ASSERT_EQ(truncate(m_source.c_str(), 1 << 20), 0);
        s_szCut = m_source.c_str();
        EXPECT_EQ(Copy(), VYX_ERROR);
        EXPECT_EQ(errno, EIO);
        EXPECT_EQ(s_szCut, nullptr);
    }
}

TEST(ExePath, RoomForThePathAndItsZero) {
    char szPath[1024];
    ASSERT_EQ(VYX_GetCurExePath(szPath, sizeof szPath), VYX_OK);
    const std::string path = szPath;
    EXPECT_EQ(path, std::filesystem::read_symlink("/proc/self/exe"));
    szPath[0] = '?';
    EXPECT_EQ(VYX_GetCurExePath(szPath, static_cast<uint32_t>(path.size())), VYX_ERROR);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(szPath[0], '?');
    EXPECT_EQ(VYX_GetCurExePath(szPath, static_cast<uint32_t>(path.size()) + 1), VYX_OK);
    EXPECT_EQ(szPath, path);
    EXPECT_EQ(VYX_GetCurExePath(nullptr, 1024), VYX_ERROR);
    EXPECT_EQ(errno, EINVAL);
    s_nPath = 1023;
    EXPECT_EQ(VYX_GetCurExePath(szPath, sizeof szPath), VYX_OK);
    s_nPath = 1024;
    EXPECT_EQ(VYX_GetCurExePath(szPath, sizeof szPath), VYX_ERROR);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

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
    const support::TempDir dir;
    const std::string inside = dir / "before";
    ASSERT_EQ(VYX_MakeDir(inside.c_str()), VYX_OK);
    WriteFile(inside + "/file", "text");
    (void)!chown((inside + "/file").c_str(), getuid(), getuid() == 0 ? 1 : getgid()); // a group other than 0
    ASSERT_EQ(chmod((inside + "/file").c_str(), 04751), 0);
    const timespec times[2] = {{1000000001, 999999999}, {4102444802, 999999999}}; // 2001 and 2100
    ASSERT_EQ(utimensat(AT_FDCWD, (inside + "/file").c_str(), times, 0), 0);
    ASSERT_EQ(link((inside + "/file").c_str(), (inside + "/hard").c_str()), 0);
    ASSERT_EQ(mkfifo((inside + "/pipe").c_str(), 0600), 0);
    ASSERT_EQ(mknod((inside + "/socket").c_str(), S_IFSOCK | 0600, 0), 0);
    std::string longest(255, '\n'); // any bytes, as many as there can be
    for (size_t n = 1; n < longest.size(); ++n)
        longest[n] = n == '/' ? '\\' : static_cast<char>(n);
    WriteFile(inside + "/" + longest, "");
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
    const support::TempDir dir;
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
    WriteFile(path, "a file");
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
