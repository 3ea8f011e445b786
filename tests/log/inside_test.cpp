// What cannot be seen from outside: short memory, a missing thread, a service of one's own.
#include <atomic>

#include "log/faults.h"
#include "log/log_support.h"
#include "logmodule.h"
#include "support/support.h"

using namespace log_support;

namespace {

class LogInside : public testing::Test {
  protected:
    support::TempDir dir;
};

TEST_F(LogInside, NoMemoryOrNoThreadIsTriedAgain) {
    EnableTarget(kFile, dir.Path().c_str(), 0, 0);
    for (std::atomic<bool> *pFault : {&faults::noMemory, &faults::noThread}) {
        *pFault = true;
        const int32_t iResult = WriteLog(kInf, "f", 1, "x");
        *pFault = false;
        EXPECT_EQ(iResult, -1);
        EXPECT_FALSE(GetLogService().m_bStarted);
    }
    EXPECT_EQ(WriteLog(kInf, "f", 1, "x"), 0);
    StopLogService(true);
    EXPECT_EQ(Lines(AllLogText(dir.Path())).size(), 1U);
}

// The queue has no memory for more lines: that is reported by a line, which is queued the same way.
TEST_F(LogInside, FailedQueueingIsReportedAndLosesNoLine) {
    EnableTarget(kFile, dir.Path().c_str(), 0, 0);
    ASSERT_EQ(WriteLog(kInf, "f", 1, "0"), 0);
    int n = 1;
    int nDropped = 0;
    std::vector<std::string> taken{"0"};
    for (; n < 5000; ++n) {
        const std::string text = std::to_string(n);
        faults::noMemory = n % 500 < 300;
        const int32_t iResult = WriteLog(kInf, "f", 1, "%d", n);
        faults::noMemory = false;
        EXPECT_TRUE(iResult == 0 || iResult == -4) << iResult;
        nDropped += iResult == 0 ? 0 : 1;
        if (iResult == 0)
            taken.push_back(text);
    }
    StopLogService(true);
    std::vector<std::string> found;
    int nReports = 0;
    for (const std::string &line : Lines(AllLogText(dir.Path())))
        if (line.find("[ERR][FILE:logmodule.cpp][LINE:421] push_back allo exception") == 25)
            ++nReports;
        else
            found.push_back(TextOf(line));
    EXPECT_GT(nReports, 0);
    EXPECT_LT(nReports, 5000) << "not for each line";
    EXPECT_EQ(found, taken);
}

TEST_F(LogInside, DestructorWaitsForTheWriter) {
    constexpr int kLines = 20000;
    int nTaken = 0;
    {
        LogService service;
        ASSERT_EQ(service.SwitchFileService(true, dir.Path().c_str(), 0xFFFFFFFF, false), 0);
        EXPECT_EQ(service.PushData("[x\r\n", 5), -2) << "not started";
        ASSERT_EQ(service.ServiceStart(), 0);
        ASSERT_EQ(service.ServiceStart(), 0) << "started already";
        const std::string line = "[" + std::string(70, 'x') + "\r\n";
        for (int n = 0; n < kLines; ++n)
            nTaken += service.PushData(line.c_str(), static_cast<unsigned>(line.size() + 1)) == 0 ? 1 : 0;
    }
    EXPECT_GT(nTaken, kLines / 2);
    EXPECT_EQ(Lines(AllLogText(dir.Path())).size(), static_cast<size_t>(nTaken));
}

// One line longer than the room in which the writer gathers lines, then one that fills the ring, then one too long.
TEST_F(LogInside, AnyLengthThatTheRingHolds) {
    LogService service;
    const std::string path = dir.Path();
    ASSERT_EQ(service.SwitchFileService(true, path.c_str(), 0xFFFFFFFF, false), 0);
    ASSERT_EQ(service.ServiceStart(), 0);
    size_t nTotal = 0;
    for (const uint32_t nLength : {65536U, 65537U, 100000U, 2097152U}) {
        std::string line(nLength - 1, 'x');
        line.replace(0, 1, "[");
        line.replace(line.size() - 2, 2, "\r\n");
        int iResult = 0;
        EXPECT_TRUE(support::WaitUntil([&] {
            return (iResult = service.PushData(line.c_str(), nLength)) == 0;
        })) << nLength
            << ": " << iResult;
        if (iResult == 0)
            nTotal += nLength - 1;
        if (nLength == 2097152U)
            continue;
        EXPECT_TRUE(support::WaitUntil([&] { return LogText(path + "/vyx_log_1_w.log").size() == nTotal; }));
    }
    EXPECT_EQ(service.PushData("", 2097153), -4);
    service.ServiceStop(true);
    EXPECT_EQ(LogText(path + "/vyx_log_1_w.log").size(), nTotal);
}

TEST_F(LogInside, FilesOnTheCallersThread) {
    LogService service;
    EXPECT_EQ(service.InputDataToFile("[a\r\n", 4), 0) << "the target is off";
    EXPECT_EQ(service.SwitchFileService(true, std::string(257, 'x').c_str(), 0, true), -6);
    const std::string missing = dir / "no/folder";
    EXPECT_EQ(service.SwitchFileService(true, missing.c_str(), 0, true), 0);
    {
        const Capture err(stderr, dir / "err");
        EXPECT_EQ(service.InputDataToFile("[a\r\n", 4), -8);
        EXPECT_EQ(err.Text(), "LogService OpenFile[" + missing + "/vyx_log_1_w.log] failed\n");
    }
    EXPECT_EQ(service.SwitchFileService(true, dir.Path().c_str(), 0, true), 0);
    EXPECT_EQ(service.InputDataToFile("[a\r\n", 4), 0);
    EXPECT_EQ(LogText(dir / "vyx_log_1_w.log"), "[a\r\n");
    // The longest name: nothing may be written behind it.
    const std::string longest = std::string(255, 'd') + "x";
    EXPECT_EQ(service.SwitchFileService(true, longest.c_str(), 0, false), 0);
    const vyx_inter::LockGuard guard(service.m_fileLock);
    service.m_iFileIndex = INT32_MAX - 1;
    EXPECT_EQ(service.MakeFileName(true), longest + "/vyx_log_2147483647_w.log");
    EXPECT_EQ(service.MakeFileName(false), longest + "/vyx_log_2147483647.log");
}

} // namespace
