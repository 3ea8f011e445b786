// The file target: directories, names, rotation, failures.
#include <csignal>
#include <sys/resource.h>

#include "log/log_support.h"

using namespace log_support;

namespace {

using FileSizes = std::map<std::string, size_t>;

class LogFile : public LogTest {
  protected:
    // Goes on from whatever number the process has come to until the next file is number 1.
    LogFile() {
        const int iNumber = std::atoi(NamesAfter(1, 1, 1).at(0).c_str() + sizeof "vyx_log_" - 1);
        if (iNumber != 1)
            (void)NamesAfter((iNumber + 99) / 100 * 100 - iNumber + 2, 1, 1);
    }
    // The files of so many lines of 300 bytes, which are gone afterwards.
    Strings NamesAfter(int iLines, uint32_t nLimit, uint32_t nWrap) {
        On(kFile, nLimit, nWrap);
        for (int n = 0; n < iLines; ++n)
            EXPECT_EQ(WriteLength(300), 0);
        DisableTarget(kFile);
        const Strings names = Names(logs);
        std::filesystem::remove_all(logs);
        return names;
    }
    FileSizes Sizes() const {
        FileSizes sizes;
        for (const std::string &name : Names(logs))
            sizes[name] = LogText(logs + "/" + name).size();
        return sizes;
    }
};

TEST_F(LogFile, RotatesBeforeALineThatWouldCrossTheLimit) {
    On(kFile, 1000);
    // The fourth fills a file to the last byte; the sixth is longer than a file, and has one to itself.
    for (const size_t nLength : {300U, 300U, 300U, 100U, 49U, 2000U, 300U})
        EXPECT_EQ(WriteLength(nLength), 0);
    StopLogService(false);
    EXPECT_EQ(Sizes(), (FileSizes{{"vyx_log_1.log", 1000},
                                  {"vyx_log_2.log", 49},
                                  {"vyx_log_3.log", 2000},
                                  {"vyx_log_4_w.log", 300}}))
        << "the last one keeps its working name";
    On(kFile); // of 2 MiB
    EXPECT_EQ(Sizes().at("vyx_log_4_w.log"), 300U) << "until a line comes";
    for (int n = 0; n < 1025;)
        n += WriteLength(2048) == 0 ? 1 : 0;
    DisableTarget(kFile);
    EXPECT_EQ(Sizes().at("vyx_log_4.log"), 2097152U);
    EXPECT_EQ(Sizes().at("vyx_log_5_w.log"), 2048U);
}

TEST_F(LogFile, NumbersWrapOrDoNot) {
    Strings names = NamesAfter(101, 300, 1);
    EXPECT_EQ(names.size(), 100U) << "the old first file was removed";
    EXPECT_EQ(names.front() + names.back(), "vyx_log_1_w.logvyx_log_100.log");
    names = NamesAfter(102, 300, 0);
    EXPECT_EQ(names.size(), 102U);
    EXPECT_EQ(names.back(), "vyx_log_102_w.log");
    EXPECT_EQ(NamesAfter(2, 300, 2), (Strings{"vyx_log_3_w.log", "vyx_log_102.log"}));
}

TEST_F(LogFile, DirectoryAsGiven) {
    (void)mkdir((dir / "sub").c_str(), 0700);
    std::filesystem::current_path(dir.Path());
    for (const auto &[szGiven, szUsed] : {std::pair{"one", "one"},
                                          {"two/", "two"},
                                          {"sub\\tail\\", "sub/tail"},
                                          {static_cast<const char *>(nullptr), "vyxlog"}}) {
        EXPECT_EQ(EnableTarget(kFile, szGiven, 0, 0), 0);
        EXPECT_EQ(Write("x"), 0);
        DisableTarget(kFile);
        EXPECT_EQ(Names(dir / szUsed), Strings{"vyx_log_1_w.log"}) << szUsed;
    }
    std::filesystem::current_path("/");
}

TEST_F(LogFile, RefusedPathIsNotTold) {
    const std::string base = dir / std::string(100, 'd') + "/";
    (void)mkdir(base.c_str(), 0700);
    const std::string tooLong = base + std::string(257 - base.size(), 'e');
    EXPECT_EQ(EnableTarget(kFile, tooLong.c_str(), 0, 0), 0);
    EXPECT_EQ(Write("x"), -5) << "the target is still off";
    logs = tooLong.substr(0, 256);
    On(kFile, 60);
    EXPECT_EQ(EnableTarget(kFile, tooLong.c_str(), 0, 0), 0);
    for (int n = 0; n < 3; ++n)
        EXPECT_EQ(WriteLength(60), 0) << "and one that is on stays as it is";
    DisableTarget(kFile);
    EXPECT_EQ(Names(logs), (Strings{"vyx_log_1.log", "vyx_log_2.log", "vyx_log_3_w.log"}));
}

// The folder cannot be made, as its parent is missing; then it can.
TEST_F(LogFile, UnopenedFileIsReportedAndTriedAgain) {
    logs = dir / "missing/logs/"; // has its slash
    const Capture err(stderr, dir / "err");
    On(kFile);
    std::string messages;
    for (int n = 0; n < 2; ++n) {
        messages += "LogService OpenFile[" + logs + "vyx_log_1_w.log] failed\n";
        EXPECT_EQ(Write("lost"), 0);
        ASSERT_TRUE(support::WaitUntil([&] { return err.Text() == messages; })) << err.Text();
    }
    std::filesystem::create_directories(logs);
    EXPECT_EQ(Write("there"), 0);
    EXPECT_EQ(Logged(), Strings{"there"});
    EXPECT_EQ(err.Text(), messages);
}

TEST_F(LogFile, FileSizeLimitOfTheProcessLeavesNoTornLine) {
    rlimit old;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
    for (const rlim_t nRoom : {0U, 1U, 99U, 100U}) { // for three long lines and that much of the fourth
        SCOPED_TRACE(nRoom);
        const rlimit limit = {900 + nRoom, old.rlim_max};
        On(kFile);
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit),
                  0); // the signal that goes with it must not end the process
        for (const size_t nLength : {300U, 300U, 300U, 300U, 300U, 300U, 100U})
            EXPECT_EQ(WriteLength(nLength), 0);
        On(kConsole); // going off, it waits until all is written
        DisableTarget(kConsole);
        ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &old), 0);
        EXPECT_EQ(Sizes(), (FileSizes{{"vyx_log_1_w.log", nRoom == 100 ? 1000 : 900}}));
        (void)truncate((logs + "/vyx_log_1_w.log").c_str(), 600); // somebody makes room
        EXPECT_EQ(Write("y"), 0);
        const Strings lines = Logged();
        ASSERT_EQ(lines.size(), 3U);
        EXPECT_EQ(lines[2], "y");
    }
}

TEST_F(LogFile, FullDeviceTakesNothing) {
    std::filesystem::create_directories(logs);
    if (symlink("/dev/full", (logs + "/vyx_log_1_w.log").c_str()) != 0 || access("/dev/full", W_OK) != 0)
        GTEST_SKIP() << "no /dev/full";
    const Capture err(stderr, dir / "err");
    On(kFile);
    for (int n = 0; n < 100; ++n)
        EXPECT_EQ(WriteLength(300), 0);
    DisableTarget(kFile);
    EXPECT_EQ(err.Text(), "") << "the lines are lost without a word";
}

} // namespace
