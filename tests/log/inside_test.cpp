// What cannot be seen from outside: short memory, a missing thread, a service of one's own.
#include <atomic>
#include <string>
#include <thread>

#include "log/faults.h"
#include "log/log_support.h"
#include "logmodule.h"
#include "support/support.h"

using namespace log_support;

namespace {

using LogInside = LogTest;

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
    std::vector<std::string> taken{"0"};
    for (; n < 5000; ++n) {
        const std::string text = std::to_string(n);
        faults::noMemory = n % 500 < 300;
        const int32_t iResult = WriteLog(kInf, "f", 1, "%d", n);
        faults::noMemory = false;
        EXPECT_TRUE(iResult == 0 || iResult == -4) << iResult;
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

// The bytes that a line leaves free at the ring's end are not there for others: they lie before lines still queued.
TEST_F(LogInside, BytesSkippedAtTheRingsEndAreTaken) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    std::string text;
    const auto readUpTo = [&](size_t nSize) {
        char buffer[4096];
        ssize_t iRead = 0;
        while (text.size() < nSize && (iRead = read(fds[0], buffer, sizeof buffer)) > 0)
            text.append(buffer, static_cast<size_t>(iRead));
    };
    std::thread reader;
    std::vector<int> results; // nothing may be reported while standard output is stuck
    {
        const Redirect redirect(stdout, fds[1]);
        (void)close(fds[1]);
        LogService service;
        service.m_bConsole = true;
        results.push_back(service.ServiceStart());
        const auto push = [&](char fill, uint32_t nLength) {
            results.push_back(service.PushData(std::string(nLength - 1, fill).c_str(), nLength));
        };
        for (const char fill : {'1', '2', '3'})
            push(fill, 600000);
        readUpTo(600000); // now the writer is done with the first line, and gets stuck in the second
        results.push_back(support::WaitUntil([&] {
            const vyx_inter::LockGuard guard(service.m_hQueueLock);
            return service.m_nFree == 2097152 - 2 * 600000;
        })
                              ? 0
                              : 1);
        push('x', 600001); // there is room only together with what would be skipped
        push('4', 599000); // at the ring's start
        push('5', 1001);   // there is room at the ring's end only
        push('6', 1000);
        reader = std::thread([&] { readUpTo(SIZE_MAX); });
    }
    reader.join();
    (void)close(fds[0]);
    EXPECT_EQ(results, (std::vector<int>{0, 0, 0, 0, 0, -4, 0, -4, 0}));
    EXPECT_TRUE(text == std::string(599999, '1') + std::string(599999, '2') + std::string(599999, '3') +
                            std::string(598999, '4') + std::string(999, '6'));
}

TEST_F(LogInside, FilesOnTheCallersThread) {
    LogService service;
    EXPECT_EQ(service.PushData("[a\r\n", 5), -2) << "not started";
    EXPECT_EQ(service.InputDataToFile("[a\r\n", 4), 0) << "the target is off";
    EXPECT_EQ(service.SwitchFileService(true, std::string(257, 'x').c_str(), 0, true), -6);
    EXPECT_EQ(service.SwitchFileService(true, (dir / "no/folder").c_str(), 0, true), 0);
    EXPECT_EQ(service.InputDataToFile("[a\r\n", 4), -8);
    // The longest name: nothing may be written behind it.
    const std::string longest = std::string(255, 'd') + "x";
    EXPECT_EQ(service.SwitchFileService(true, longest.c_str(), 0, false), 0);
    const vyx_inter::LockGuard guard(service.m_fileLock);
    service.m_iFileIndex = INT32_MAX - 1;
    EXPECT_EQ(service.MakeFileName(true), longest + "/vyx_log_2147483647_w.log");
}

} // namespace
