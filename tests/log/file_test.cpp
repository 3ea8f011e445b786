// The file target: directories, names, rotation, failures.
#include <csignal>
#include <cstring>
#include <sys/mount.h>
#include <sys/resource.h>

#include "log/log_support.h"
#include "support/support.h"

using namespace log_support;

namespace {

using Strings = std::vector<std::string>;

class LogFile : public LogTest {
  protected:
    // Goes on from whatever number the process has come to until the next file is number 1.
    LogFile() {
        const auto write = [this](int iLines) {
            EnableTarget(kFile, logs.c_str(), 1, 1); // a file for each line
            for (int n = 0; n < iLines; ++n)
                EXPECT_EQ(WriteLength(49), 0);
            DisableTarget(kFile);
            const auto names = Names(logs);
            std::filesystem::remove_all(logs);
            return std::atoi(names.at(0).c_str() + sizeof "vyx_log_" - 1);
        };
        const int iNumber = write(1);
        if (iNumber != 1)
            (void)write((iNumber + 99) / 100 * 100 - iNumber + 2);
    }
    // Switches the files on, with `limit` bytes each.
    void On(uint32_t nLimit = 0, uint32_t nWrap = 0) {
        EXPECT_EQ(EnableTarget(kFile, logs.c_str(), nLimit, nWrap), 0);
    }
    Strings NamesLeft() const { return Names(logs); }
    size_t Size(const char *szName) const { return LogText(logs + "/" + szName).size(); }
    bool Exists(const char *szName) const { return access((logs + "/" + szName).c_str(), F_OK) == 0; }
    std::string logs = dir / "logs";
};

TEST_F(LogFile, RotatesBeforeALineThatWouldCrossTheLimit) {
    On(1000);
    for (int n = 0; n < 3; ++n)
        EXPECT_EQ(WriteLength(300), 0);
    EXPECT_EQ(WriteLength(100), 0) << "fills the file to the last byte";
    EXPECT_EQ(WriteLength(49), 0);
    EXPECT_EQ(WriteLength(2000), 0) << "longer than a file: has one to itself";
    EXPECT_EQ(WriteLength(300), 0);
    StopLogService(false);
    EXPECT_EQ(NamesLeft().size(), 4U);
    EXPECT_EQ(Size("vyx_log_1.log"), 1000U);
    EXPECT_EQ(Size("vyx_log_2.log"), 49U);
    EXPECT_EQ(Size("vyx_log_3.log"), 2000U);
    EXPECT_EQ(Size("vyx_log_4_w.log"), 300U);
}

TEST_F(LogFile, StopKeepsTheWorkingName) {
    On();
    EXPECT_EQ(WriteLength(300), 0);
    EXPECT_EQ(DisableTarget(kFile), 0);
    EXPECT_EQ(NamesLeft(), Strings{"vyx_log_1_w.log"});
    On();
    EXPECT_EQ(Size("vyx_log_1_w.log"), 300U) << "until a line comes";
    EXPECT_EQ(WriteLength(100), 0);
    EXPECT_EQ(DisableTarget(kFile), 0);
    EXPECT_EQ(Size("vyx_log_1_w.log"), 100U);
}

TEST_F(LogFile, NumbersWrapOrDoNot) {
    const auto write = [this](uint32_t nWrap, int iLines) {
        On(300, nWrap);
        for (int n = 0; n < iLines; ++n)
            EXPECT_EQ(WriteLength(300), 0);
        DisableTarget(kFile);
    };
    write(1, 101);
    EXPECT_EQ(NamesLeft().size(), 100U) << "the old first file was removed";
    EXPECT_TRUE(Exists("vyx_log_1_w.log") && Exists("vyx_log_100.log"));
    std::filesystem::remove_all(logs);
    write(0, 102);
    EXPECT_EQ(NamesLeft().size(), 102U);
    EXPECT_TRUE(Exists("vyx_log_102_w.log"));
    write(1, 2);
    EXPECT_TRUE(Exists("vyx_log_3_w.log")) << "after file 102 comes 3";
}

TEST_F(LogFile, DefaultSizeIsTwoMebibytes) {
    On();
    for (int n = 0; n < 1025;)
        n += WriteLength(2048) == 0 ? 1 : 0;
    DisableTarget(kFile);
    EXPECT_EQ(Size("vyx_log_1.log"), 2097152U);
    EXPECT_EQ(Size("vyx_log_2_w.log"), 2048U);
}

TEST_F(LogFile, DirectoryAsGiven) {
    (void)mkdir((dir / "sub").c_str(), 0700);
    std::filesystem::current_path(dir.Path());
    for (const auto &[szGiven, szUsed] : {std::pair{"one", "one"},
                                          {"two/", "two"},
                                          {"sub\\tail\\", "sub/tail"},
                                          {static_cast<const char *>(nullptr), "vyxlog"}}) {
        EXPECT_EQ(EnableTarget(kFile, szGiven, 0, 0), 0);
        EXPECT_EQ(WriteLog(kInf, "f", 1, "x"), 0);
        DisableTarget(kFile);
        EXPECT_EQ(Names(dir / szUsed), Strings{"vyx_log_1_w.log"}) << szUsed;
    }
    std::filesystem::current_path("/");
}

// A path of nLength bytes below the test's folder, whose own folders exist.
std::string LongPath(const std::string &base, size_t nLength) {
    const std::string path = base + "/" + std::string(100, 'd');
    (void)mkdir(path.c_str(), 0700);
    return path + "/" + std::string(nLength - path.size() - 1, 'e');
}

TEST_F(LogFile, RefusedPathIsNotTold) {
    const std::string tooLong = LongPath(dir.Path(), 257);
    EXPECT_EQ(EnableTarget(kFile, tooLong.c_str(), 0, 0), 0);
    EXPECT_EQ(WriteLog(kInf, "f", 1, "x"), -5) << "the target is still off";
    logs = LongPath(dir.Path(), 256);
    On(60);
    EXPECT_EQ(EnableTarget(kFile, tooLong.c_str(), 0, 0), 0);
    for (int n = 0; n < 3; ++n)
        EXPECT_EQ(WriteLength(60), 0) << "and one that is on stays as it is";
    DisableTarget(kFile);
    EXPECT_EQ(NamesLeft(), (Strings{"vyx_log_1.log", "vyx_log_2.log", "vyx_log_3_w.log"}));
}

// The folder cannot be made, as its parent is missing; then it can.
TEST_F(LogFile, UnopenedFileIsReportedAndTriedAgain) {
    logs = dir / "missing/logs";
    const Capture err(stderr, dir / "err");
    On();
    const std::string message = "LogService OpenFile[" + logs + "/vyx_log_1_w.log] failed\n";
    EXPECT_EQ(WriteLog(kInf, "f", 1, "lost"), 0);
    ASSERT_TRUE(support::WaitUntil([&] { return err.Text() == message; })) << err.Text();
    EXPECT_EQ(WriteLog(kInf, "f", 1, "lost"), 0);
    ASSERT_TRUE(support::WaitUntil([&] { return err.Text() == message + message; })) << err.Text();
    std::filesystem::create_directories(logs);
    EXPECT_EQ(WriteLog(kInf, "f", 1, "there"), 0);
    StopLogService(false);
    EXPECT_EQ(err.Text(), message + message);
    const auto lines = Lines(AllLogText(logs));
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(TextOf(lines[0]), "there");
}

TEST_F(LogFile, FileSizeLimitOfTheProcessLeavesNoTornLine) {
    rlimit old;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    for (const rlim_t nRoom : {0U, 99U, 100U}) { // for three long lines and that much of the fourth
        SCOPED_TRACE(nRoom);
        const rlimit limit = {900 + nRoom, old.rlim_max};
        On();
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit),
                  0); // the signal that goes with it must not end the process
        for (int n = 0; n < 6; ++n)
            EXPECT_EQ(WriteLength(300), 0);
        EXPECT_EQ(WriteLength(100, 's'), 0);
        DisableTarget(kFile);
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &old), 0);
        EXPECT_EQ(Lines(LogText(logs + "/vyx_log_1_w.log")).size(), nRoom == 100 ? 4U : 3U);
        EXPECT_EQ(Size("vyx_log_1_w.log"), nRoom == 100 ? 1000U : 900U);
    }
}

// Lines of 300 bytes, one after the other, until the file does not grow any more. Result: its size.
size_t FillUp(const std::string &file) {
    for (size_t nBefore = 0;;) {
        EXPECT_EQ(WriteLength(300), 0);
        EXPECT_EQ(WriteLength(300), 0);
        EnableTarget(kConsole, nullptr, 0, 0); // switching it off again waits until the lines are written
        DisableTarget(kConsole);
        const size_t nSize = LogText(file).size();
        if (nSize < nBefore + 600)
            return nSize;
        nBefore = nSize;
    }
}

TEST_F(LogFile, FullDiskLosesLinesWhole) {
    std::filesystem::create_directories(logs);
    if (mount("tmpfs", logs.c_str(), "tmpfs", 0, "size=8k,nr_inodes=3") != 0)
        GTEST_SKIP() << "no small file system to fill: mounting is not allowed here (" << std::strerror(errno)
                     << ")";
    const struct Unmount {
        std::string path;
        ~Unmount() { (void)umount2(path.c_str(), MNT_DETACH); }
    } unmount{logs};
    On();
    const std::string file = logs + "/vyx_log_1_w.log";
    EXPECT_EQ(FillUp(file), 8192U / 300U * 300U);
    (void)truncate(file.c_str(), 600); // somebody makes room
    EXPECT_EQ(WriteLength(300, 'y'), 0);
    DisableTarget(kFile);
    const auto lines = Lines(LogText(file));
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(TextOf(lines[2]).front(), 'y');
    // No more files may be made there: the next one cannot be opened.
    support::WriteFile(logs + "/other", "");
    (void)unlink(file.c_str());
    support::WriteFile(logs + "/another", "");
    const Capture err(stderr, dir / "err");
    On();
    EXPECT_EQ(WriteLength(300), 0);
    DisableTarget(kFile);
    EXPECT_EQ(err.Text(), "LogService OpenFile[" + file + "] failed\n");
}

TEST_F(LogFile, FullDeviceTakesNothing) {
    std::filesystem::create_directories(logs);
    if (symlink("/dev/full", (logs + "/vyx_log_1_w.log").c_str()) != 0 || access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "no /dev/full";
    const Capture err(stderr, dir / "err");
    On();
    for (int n = 0; n < 100; ++n)
        EXPECT_EQ(WriteLength(300), 0);
    DisableTarget(kFile);
    EXPECT_EQ(err.Text(), "") << "the lines are lost without a word";
}

} // namespace
