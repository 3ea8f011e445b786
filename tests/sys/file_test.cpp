// Files: translation of flags and permissions, the calls on one file, and copying.
#include <atomic>
#include <cerrno>
#include <csignal>
#include <dlfcn.h>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>
#include <vyx/sys.h>

#include "support/temp_dir.h"

static bool s_bOneHole = false; // what lseek says of every file

// Takes the place of the platform's in this program.
extern "C" off_t lseek(int iFd, off_t iOffset, int iWhence) noexcept {
    if (s_bOneHole && iWhence == SEEK_DATA) {
        errno = ENXIO;
        return -1;
    }
    static const auto fnReal = reinterpret_cast<off_t (*)(int, off_t, int)>(dlsym(RTLD_NEXT, "lseek64"));
    return fnReal(iFd, iOffset, iWhence);
}

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
    EXPECT_EQ(VYX_GetModeByPerm(0x4000), 0100);
    EXPECT_EQ(VYX_GetModeByPerm(VYX_GetPermByMode(02000)), 0100)
        << "set-group-id becomes a right of the owner";
    EXPECT_EQ(VYX_GetModeByPerm(0xFFFFFFFF), 0400) << "read-only wins";
    EXPECT_EQ(VYX_GetModeByPerm(0xFFFF0888), 0);
    EXPECT_EQ(VYX_GetPermByMode(01000 | S_IFDIR), 0U);
}

TEST(File, PermissionsUnderAMask) {
    const support::TempDir dir;
    const std::string path = dir / "f";
    umask(027);
    EXPECT_EQ(VYX_CloseFile(VYX_OpenFile(path.c_str(), kNew | VYX_OPEN_EXCL, 0xFFFF0777)), VYX_OK);
    EXPECT_EQ(ModeOf(path), 0750U);
    EXPECT_EQ(VYX_OpenFile(path.c_str(), kNew | VYX_OPEN_EXCL, 0x0777), VYX_INVALID_FILE);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(VYX_OpenFile((dir / "x").c_str(), VYX_OPEN_CREATE, 0x0777), VYX_INVALID_FILE);
    EXPECT_EQ(VYX_AccessFile((dir / "x").c_str(), F_OK), VYX_ERROR) << "nothing was made";
}

TEST(File, AppendsBeyondFourGiBWhereverThePositionIs) {
    const support::TempDir dir;
    const std::string path = dir / "f";
    const int64_t iFar = (int64_t{5} << 30) + 7;
    WriteFile(path, "");
    ASSERT_EQ(truncate(path.c_str(), iFar), 0);
    const VYX_FILE_T hFile =
        VYX_OpenFile(path.c_str(), VYX_OPEN_READ | VYX_OPEN_WRITE | VYX_OPEN_APPEND, 0x0600);
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
    char c = 0;
    EXPECT_EQ(VYX_ReadFile(aPipe[1], &c, 1, &iCount), VYX_ERROR);
    EXPECT_EQ(iCount, -1);
    iCount = 5;
    EXPECT_EQ(VYX_WriteFile(aPipe[0], &c, 1, &iCount), VYX_ERROR);
    EXPECT_EQ(iCount, -1);
    testing::internal::CaptureStdout();
    int64_t iPosition = 5;
    EXPECT_EQ(VYX_FileSeek(aPipe[0], 0, SEEK_SET, &iPosition), VYX_ERROR);
    EXPECT_EQ(errno, ESPIPE);
    EXPECT_EQ(iPosition, -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "last error = " + std::to_string(ESPIPE) + "\n");
    EXPECT_EQ(VYX_CloseFile(aPipe[0]), VYX_OK);
    EXPECT_EQ(VYX_CloseFile(aPipe[1]), VYX_OK);
}

TEST(File, NullAndInvalid) {
    int32_t iCount = 5;
    char c = 0;
    VYX_FINFO_T info = {};
    EXPECT_EQ(VYX_OpenFile(nullptr, VYX_OPEN_READ, 0), VYX_INVALID_FILE);
    EXPECT_EQ(VYX_ReadFile(0, nullptr, 1, &iCount), VYX_ERROR);
    EXPECT_EQ(VYX_ReadFile(VYX_INVALID_FILE, &c, 1, &iCount), VYX_ERROR);
    EXPECT_EQ(VYX_WriteFile(1, nullptr, 1, &iCount), VYX_ERROR);
    EXPECT_EQ(VYX_WriteFile(VYX_INVALID_FILE, &c, 1, &iCount), VYX_ERROR);
    EXPECT_EQ(iCount, 5) << "nothing was done that could be counted";
    EXPECT_EQ(VYX_FileStat(0, nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_FileStat(VYX_INVALID_FILE, &info), VYX_ERROR);
    EXPECT_EQ(VYX_FileFlush(VYX_INVALID_FILE), VYX_ERROR);
    EXPECT_EQ(VYX_AccessFile(nullptr, 0), VYX_ERROR);
    EXPECT_EQ(VYX_RenameFile(nullptr, "x"), VYX_ERROR);
    EXPECT_EQ(VYX_RenameFile("x", nullptr), VYX_ERROR);
    EXPECT_EQ(VYX_CopyFile(nullptr, "x", 0), VYX_ERROR);
    EXPECT_EQ(VYX_CopyFile("x", nullptr, 0), VYX_ERROR);
    EXPECT_EQ(VYX_FileIsEOF(0), 1);
}

class FileCopy : public testing::Test {
  protected:
    int32_t Copy(int32_t bFailIfExists = 0) {
        const long nBefore = support::OpenDescriptors();
        const int32_t iResult = VYX_CopyFile(m_source.c_str(), m_target.c_str(), bFailIfExists);
        const int iError = errno;
        EXPECT_EQ(support::OpenDescriptors(), nBefore);
        errno = iError;
        return iResult;
    }
    support::TempDir m_dir;
    std::string m_source = m_dir / "source";
    std::string m_target = m_dir / "target";
};

TEST_F(FileCopy, ContentOfEachSizeWithinAndAcrossFileSystems) {
    const support::TempDir other(access("/dev/shm", W_OK) == 0 ? "/dev/shm" : testing::TempDir());
    for (const size_t nSize : {1U, 4097U, 600001U}) {
        const std::string text = Bytes(nSize);
        for (const std::string &source : {m_source, other / "source"}) {
            m_source = source;
            WriteFile(m_source, text);
            for (const bool bOneHole :
                 {false, true}) { // a file system that does not count data it has yet to write
                WriteFile(m_target, "");
                s_bOneHole = bOneHole;
                EXPECT_EQ(Copy(), 1) << m_source << " of " << nSize;
                EXPECT_TRUE(ReadFile(m_target) == text) << m_source << " of " << nSize;
            }
            s_bOneHole = false;
        }
        m_source = m_dir / "source";
    }
}

TEST_F(FileCopy, LongGaps) {
    const int64_t iGap = VYX_TESTS_GAP;
    const int64_t iSize = iGap + iGap / 4 + 3;
    const int64_t aMarks[] = {0, iGap - 1, iGap + 4096};
    const int iFd = open(m_source.c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(ftruncate(iFd, iSize), 0);
    for (const int64_t iMark : aMarks)
        ASSERT_EQ(pwrite(iFd, &iMark, sizeof iMark, iMark), 8);
    close(iFd);
    s_bOneHole = VYX_TESTS_HIDDEN_HOLES;
    EXPECT_EQ(Copy(), 1);
    s_bOneHole = false;
    const int iCopy = open(m_target.c_str(), O_RDONLY);
    struct stat status = {};
    EXPECT_EQ(fstat(iCopy, &status), 0);
    EXPECT_EQ(status.st_size, iSize);
    EXPECT_LT(status.st_blocks * 512, iSize / 8) << "gaps stay gaps";
    for (const int64_t iMark : aMarks) {
        int64_t iFound[2] = {-1, -1};
        EXPECT_EQ(pread(iCopy, iFound, sizeof iFound, iMark), 16);
        EXPECT_EQ(iFound[0], iMark);
        EXPECT_EQ(iFound[1], 0);
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
    WriteFile(m_source, "new");
    const timespec in2100[2] = {{4102444802, 0}, {4102444802, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, m_source.c_str(), in2100, 0), 0);
    ASSERT_EQ(chmod(m_source.c_str(), 0575), 0);
    WriteFile(m_target, "longer and older");
    ASSERT_EQ(chmod(m_target.c_str(), 0640), 0);
    EXPECT_EQ(Copy(1), VYX_ERROR);
    EXPECT_EQ(ReadFile(m_target), "longer and older");
    EXPECT_EQ(Copy(0), 1);
    EXPECT_EQ(ReadFile(m_target), "new");
    EXPECT_EQ(ModeOf(m_target), 0640U) << "an existing file keeps its permissions";
    (void)unlink(m_target.c_str());
    umask(027);
    EXPECT_EQ(Copy(1), 1);
    EXPECT_EQ(ModeOf(m_target), 0575U & ~027U) << "a new one has the source's less the mask";
}

TEST_F(FileCopy, OntoItselfIsRefused) {
    WriteFile(m_source, "the only copy");
    ASSERT_EQ(link(m_source.c_str(), (m_dir / "hard").c_str()), 0);
    for (const char *szName : {"source", "hard"}) {
        m_target = m_dir / szName;
        EXPECT_EQ(Copy(), VYX_ERROR) << szName;
        EXPECT_EQ(ReadFile(m_source), "the only copy") << szName;
    }
}

TEST_F(FileCopy, WhatCannotBeCopied) {
    EXPECT_EQ(Copy(), VYX_ERROR);
    EXPECT_NE(access(m_target.c_str(), F_OK), 0) << "no source, no target";
    WriteFile(m_source, "text");
    for (const char *szTarget : {"/dev/null", "/dev/full", "/"}) {
        m_target = szTarget;
        EXPECT_EQ(Copy(), VYX_ERROR) << szTarget;
    }
    m_source = m_dir.Path();
    m_target = m_dir / "target";
    EXPECT_EQ(Copy(), VYX_ERROR) << "a directory";
}

TEST_F(FileCopy, NoRoomForTheTarget) {
    WriteFile(m_source, Bytes(100000));
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit limit = {50000, before.rlim_max};
    (void)std::signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_EQ(Copy(), VYX_ERROR);
    EXPECT_EQ(errno, EFBIG);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
}

TEST_F(FileCopy, SourceThatIsShorterThanItSaid) {
    m_source = "/sys/devices/system/cpu/online"; // says 4096 bytes and has a few
    if (access(m_source.c_str(), R_OK) != 0)
        GTEST_SKIP() << "there is no " << m_source;
    EXPECT_EQ(Copy(), VYX_ERROR);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(ReadFile(m_target).size(), 4096U);
}

TEST_F(FileCopy, SourceThatIsCutShortMeanwhile) {
    const std::string text = Bytes(size_t{8} << 20);
    WriteFile(m_source, text);
    std::atomic<bool> bStop{false};
    std::thread cutter([&] {
        while (!bStop) {
            EXPECT_EQ(truncate(m_source.c_str(), 100), 0);
            EXPECT_EQ(truncate(m_source.c_str(), static_cast<off_t>(text.size())), 0);
        }
    });
    for (int i = 0; i < 100; ++i)
        EXPECT_TRUE(VYX_CopyFile(m_source.c_str(), m_target.c_str(), 0) == 1 || errno == EIO) << errno;
    bStop = true;
    cutter.join();
    EXPECT_EQ(ReadFile(m_target).substr(0, 100), text.substr(0, 100));
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
}

} // namespace
