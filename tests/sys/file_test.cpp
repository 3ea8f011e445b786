// Files: permissions, the calls on one file, and copying. What failing calls make of a copy, the scenarios "copy" and
// "copy through a buffer" of the failing resources show.
#include <cerrno>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <gtest/gtest.h>
#include <vyx/sys.h>

#include "support/temp_dir.h"

static size_t s_nPath = 0;            // not 0: the length of the program's path
static const char *s_szCut = nullptr; // the file that is cut to 100 bytes when the next call comes
static int s_nUntilFailure = 0;       // calls up to one that fails; 0: none does

static bool Fails() {
    errno = EIO;
    return s_nUntilFailure != 0 && --s_nUntilFailure == 0;
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
    EXPECT_EQ(VYX_CloseFile(hFile), VYX_OK);
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
            EXPECT_TRUE(iResult == VYX_ERROR && errno == EIO && s_nUntilFailure == 0) << n;
        else
            EXPECT_TRUE(ReadFile(m_target) == text + std::string((1 << 20) - text.size(), 0)) << n;
    }
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
    EXPECT_EQ(Copy(), VYX_ERROR) << "a directory";
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

} // namespace
