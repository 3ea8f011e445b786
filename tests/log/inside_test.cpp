// What cannot be seen from outside: short memory, a missing thread, the ring's end, the last file number.
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <dlfcn.h>
#include <filesystem>
#include <pthread.h>
#include <string>

#include "log/log_files.h"
#include "log/log_ring.h"
#include "log/log_service.h"
#include "log/log_support.h"
#include "support/calls.h"
#include "support/failing_memory.h"

using namespace log_support;

static std::atomic<bool> s_bNoThread{false};

// Takes the place of the platform's in this program.
extern "C" int pthread_create(pthread_t *pThread, const pthread_attr_t *pAttr, void *(*fn)(void *),
                              void *pArg) {
    static const auto fnReal =
        reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
    return s_bNoThread ? EAGAIN : fnReal(pThread, pAttr, fn, pArg);
}

namespace {

using LogInside = LogTest;

TEST_F(LogInside, MemoryAndAThreadAreNeededForTheFirstLineOnly) {
    const long iBlocks = failing_memory::Alive();
    EXPECT_EQ(GetLogService().ServiceStart() + GetLogService().ServiceStop(true), 0);
    EXPECT_EQ(failing_memory::Alive(), iBlocks) << "no memory stays";
    On(kFile);
    for (std::atomic<bool> *pFault : {&failing_memory::g_bNone, &s_bNoThread}) {
        *pFault = true;
        EXPECT_EQ(Write("x"), -1);
        *pFault = false;
    }
    EXPECT_EQ(Write("x"), 0) << "and it is tried again";
    failing_memory::g_bNone = s_bNoThread = true;
    int nTaken = 1;
    while (nTaken < 5000 && WriteLog(kInf, "f", 1, "x") == 0)
        ++nTaken;
    failing_memory::g_bNone = s_bNoThread = false;
    EXPECT_EQ(nTaken, 5000);
    EXPECT_EQ(Logged().size(), 5000U);
}

TEST_F(LogInside, FilesOfTheClassAreWrittenBeforeTheyGoOff) {
    LogService &service = GetLogService();
    EXPECT_EQ(service.SwitchFileService(true, logs.c_str(), 0, true), 0);
    EXPECT_EQ(Write("x"), 0);
    EXPECT_TRUE(support::EndsThoughCancelled(
        [&] { EXPECT_EQ(service.SwitchFileService(false, nullptr, 0, false), 0); }));
    EXPECT_EQ(Lines(AllLogText(logs)), Strings{"x"});
    EXPECT_EQ(Write("x"), -5);
}

// This thread both fills the ring and empties it. What the writer has in hand, and the bytes that a line leaves free at
// the ring's end, are not there for other lines.
TEST_F(LogInside, RingKeepsWhatIsInHandAndWhatWasSkipped) {
    LogRing ring;
    ASSERT_EQ(ring.Prepare(), 0);
    ASSERT_TRUE(ring.Open());
    (void)ring.Switch(0, true);
    const auto put = [&](char cFill, uint32_t nLength) {
        return ring.Put(std::string(nLength - 1, cFill).c_str(), nLength);
    };
    const auto textOf = [](const LogBatch &batch) {
        std::string text;
        for (uint32_t n = 0; n < batch.Size(); ++n)
            text += batch.Text(batch.Line(n));
        return text;
    };
    for (uint32_t n = 0; n < LogRing::kBatchLines; ++n)
        ASSERT_EQ(put('1', 2000), 0);
    for (uint32_t n = 0; n < 500; ++n)
        ASSERT_EQ(put('2', 2000), 0);
    constexpr uint32_t kTail = kRingSize - 2000 * (LogRing::kBatchLines + 500);
    LogBatch batch;
    ASSERT_TRUE(ring.Next(batch));
    EXPECT_EQ(put('x', kTail + 1), -4);
    EXPECT_TRUE(textOf(batch) == std::string(1999U * LogRing::kBatchLines, '1'));
    ASSERT_TRUE(ring.Next(batch)); // now the first ones are given back
    constexpr uint32_t kStart = 2000 * LogRing::kBatchLines;
    EXPECT_EQ(put('x', kStart + 1), -4) << "there is room only together with what would be skipped";
    EXPECT_EQ(put('3', kStart - 1000), 0) << "at the ring's start";
    EXPECT_EQ(put('x', 1001), -4) << "there is room at the ring's end only";
    EXPECT_EQ(put('4', 1000), 0);
    EXPECT_EQ(put('x', 2), -4);
    EXPECT_TRUE(textOf(batch) == std::string(1999U * 500, '2'));
    ASSERT_TRUE(ring.Next(batch));
    EXPECT_TRUE(textOf(batch) == std::string(kStart - 1001, '3') + std::string(999, '4'));
    ring.Close();
    EXPECT_EQ(put('x', 100), -2);
    EXPECT_FALSE(ring.Next(batch));
    ASSERT_EQ(ring.Prepare(), 0);
    ASSERT_TRUE(ring.Open());
    EXPECT_EQ(put('x', kRingSize + 1), -4);
    EXPECT_EQ(put('5', kRingSize), 0) << "empty, it holds a line of its size";
    (void)ring.Switch(0, false);
    EXPECT_EQ(put('x', 100), -5);
    ASSERT_TRUE(ring.Next(batch));
    ring.Close();
    EXPECT_FALSE(ring.Next(batch));
    EXPECT_TRUE(ring.Finish());
    EXPECT_EQ(ring.Prepare(), -2);
}

TEST_F(LogInside, FilesUpToTheLastNumber) {
    char szLine[] = "[a\r\n";
    const auto write = [&](LogFiles &files) {
        iovec line = {szLine, sizeof szLine - 1};
        return files.InputDataToFile(&line, 1);
    };
    LogFiles files(INT32_MAX - 1);
    EXPECT_EQ(write(files), 0) << "they are off";
    EXPECT_EQ(files.StartWriteFile(std::string(257, 'x').c_str(), 0, true), -6);
    const Capture err(stderr, dir / "err");
    const std::string longest =
        std::string(254, 'd') + "/x"; // which cannot be made; nothing may be written behind it
    EXPECT_EQ(files.StartWriteFile(longest.c_str(), 0, true), 0);
    EXPECT_EQ(write(files), -8);
    EXPECT_EQ(err.Text(), "LogService OpenFile[" + longest + "/vyx_log_2147483647_w.log] failed\n");
    EXPECT_EQ(files.StartWriteFile(logs.c_str(), 1, false), 0);
    EXPECT_EQ(write(files), 0);
    EXPECT_EQ(write(files), 0);
    EXPECT_EQ(Names(logs), (Strings{"vyx_log_1_w.log", "vyx_log_2147483647.log"}));
    files.StopWriteFile();
    EXPECT_EQ(files.StartWriteFile(logs.c_str(), 0, false), 0);
    std::string most(2097152 - 3, 'm'); // with one more line the size that a file has without another one
    iovec lines[] = {{most.data(), most.size()}, {szLine, 3}, {szLine, 1}};
    EXPECT_EQ(files.InputDataToFile(lines, 3), 0);
    EXPECT_EQ(std::filesystem::file_size(logs + "/vyx_log_1.log"), 2097152U);
    EXPECT_EQ(std::filesystem::file_size(logs + "/vyx_log_2_w.log"), 1U);
}

} // namespace
