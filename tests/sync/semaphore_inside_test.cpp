// The names behind semaphores. This program's own sem_open, sem_close and sem_unlink stand before the
// system's: they record, fail where a test wants it, and pass on.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <new>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sync/sem_record.h"

namespace {

struct Open {
    std::string name;
    int iFlags;
    unsigned int nMode;
    unsigned int nCount;
};

// What the library asked of the system, and how its next openings fail. Used by one thread at a time.
std::vector<Open> s_opens;
std::vector<std::string> s_unlinks;
std::vector<sem_t *> s_closes;
int s_iFailures = 0; // openings that fail from now on; -1 all
int s_iFailCode = 0; // with this errno
int s_iSystem = 0;   // a count the system gives instead of the one asked for, if above 0
bool s_bNoMemory = false;

template <class Function>
Function *Systems(const char *szName) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, szName));
}

class Seam : public testing::Test {
  protected:
    Seam() {
        s_opens.clear();
        s_unlinks.clear();
        s_closes.clear();
        s_iFailures = s_iSystem = 0;
    }
    static void Fail(int iTimes, int iCode) {
        s_iFailures = iTimes;
        s_iFailCode = iCode;
    }
};

int NumberIn(const std::string &name) {
    int iNumber = -1;
    char szTail[2] = {};
    const int iRead = std::sscanf(name.c_str(), "vyx_named_semaphore_%5d%1s", &iNumber, szTail);
    return iRead == 1 && name.size() == 25 ? iNumber : -1;
}

constexpr int kNames = 32767;

} // namespace

extern "C" {

sem_t *sem_open(const char *szName, int iFlags, ...) {
    static auto *const pSystems = Systems<sem_t *(const char *, int, ...)>("sem_open");
    unsigned int nMode = 0;
    unsigned int nCount = 0;
    if ((iFlags & O_CREAT) != 0) {
        va_list args;
        va_start(args, iFlags);
        nMode = va_arg(args, unsigned int);
        nCount = va_arg(args, unsigned int);
        va_end(args);
    }
    s_opens.push_back({szName, iFlags, nMode, nCount});
    if (s_iFailures != 0) {
        s_iFailures -= s_iFailures > 0 ? 1 : 0;
        errno = s_iFailCode;
        return SEM_FAILED;
    }
    return pSystems(szName, iFlags, nMode, s_iSystem > 0 ? static_cast<unsigned int>(s_iSystem) : nCount);
}

int sem_unlink(const char *szName) {
    static auto *const pSystems = Systems<int(const char *)>("sem_unlink");
    s_unlinks.emplace_back(szName);
    return pSystems(szName);
}

int sem_close(sem_t *pSem) {
    static auto *const pSystems = Systems<int(sem_t *)>("sem_close");
    s_closes.push_back(pSem);
    return pSystems(pSem);
}

} // extern "C"

void *operator new(std::size_t nSize, const std::nothrow_t & /*unused*/) noexcept {
    if (s_bNoMemory)
        return nullptr;
    try {
        return ::operator new(nSize);
    } catch (...) {
        return nullptr;
    }
}

namespace {

TEST_F(Seam, OpensANewNameWithTheCountAskedFor) {
    for (const bool bCleanedUp : {false, true}) { // the name, by somebody else
        VYX_SEM_T hSem = nullptr;
        ASSERT_EQ(VYX_SemCreate(&hSem, 7), VYX_OK);
        ASSERT_FALSE(s_opens.empty());
        const Open &last = s_opens.back();
        EXPECT_NE(NumberIn(last.name), -1) << last.name;
        EXPECT_EQ(last.name, hSem->szName);
        EXPECT_EQ(last.iFlags, O_CREAT | O_EXCL);
        EXPECT_EQ(last.nMode, 0777U);
        EXPECT_EQ(last.nCount, 7U);
        EXPECT_TRUE(s_unlinks.empty()) << "the name is to stay";
        if (bCleanedUp) {
            ASSERT_EQ(sem_unlink(hSem->szName), 0);
        }
        s_unlinks.clear();
        sem_t *const pOpened = hSem->pSem;
        EXPECT_EQ(VYX_SemDestroy(&hSem), VYX_OK);
        EXPECT_EQ(s_unlinks, std::vector<std::string>{last.name});
        EXPECT_EQ(s_closes, std::vector<sem_t *>{pOpened});
        s_unlinks.clear();
        s_closes.clear();
    }
}

TEST_F(Seam, AllNamesTakenIsTheEnd) {
    VYX_SEM_T hSem = nullptr;
    ASSERT_EQ(VYX_SemCreate(&hSem, 0), VYX_OK);
    const int iFirst = NumberIn(hSem->szName);
    s_opens.clear();
    Fail(-1, EEXIST);
    const auto hMark = reinterpret_cast<VYX_SEM_T>(&hSem);
    VYX_SEM_T hUntouched = hMark;
    EXPECT_EQ(VYX_SemCreate(&hUntouched, 1), VYX_ERROR);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(hUntouched, hMark);
    // Each name was tried once, in order, from 32766 on to 0.
    ASSERT_EQ(s_opens.size(), static_cast<size_t>(kNames));
    for (int i = 0; i < kNames; ++i)
        ASSERT_EQ(NumberIn(s_opens[static_cast<size_t>(i)].name), (iFirst + 1 + i) % kNames);
    EXPECT_TRUE(s_unlinks.empty());
    EXPECT_TRUE(s_closes.empty());
    // The last attempt may succeed like the first. The one name left is the first semaphore's.
    Fail(0, 0);
    EXPECT_EQ(VYX_SemDestroy(&hSem), VYX_OK);
    Fail(kNames - 1, EEXIST);
    if (VYX_SemCreate(&hSem, 1) == VYX_OK) { // not if another process was quick to take it
        EXPECT_EQ(NumberIn(hSem->szName), iFirst);
        EXPECT_EQ(VYX_SemDestroy(&hSem), VYX_OK);
    }
    EXPECT_EQ(s_opens.size(), 2U * kNames);
}

TEST_F(Seam, OtherFailuresAreNotRetried) {
    for (const int iCode : {EACCES, EMFILE, EINTR}) {
        s_opens.clear();
        Fail(1, iCode);
        const auto hMark = reinterpret_cast<VYX_SEM_T>(&s_opens);
        VYX_SEM_T hUntouched = hMark;
        EXPECT_EQ(VYX_SemCreate(&hUntouched, 1), VYX_ERROR);
        EXPECT_EQ(errno, iCode);
        EXPECT_EQ(hUntouched, hMark);
        EXPECT_EQ(s_opens.size(), 1U);
    }
}

TEST_F(Seam, OutOfMemoryLeavesNothingBehind) {
    const auto hMark = reinterpret_cast<VYX_SEM_T>(&s_opens);
    VYX_SEM_T hUntouched = hMark;
    s_bNoMemory = true;
    const int32_t iResult = VYX_SemCreate(&hUntouched, 1);
    s_bNoMemory = false;
    EXPECT_EQ(iResult, VYX_ERROR);
    EXPECT_EQ(hUntouched, hMark);
    ASSERT_FALSE(s_opens.empty());
    EXPECT_EQ(s_unlinks, std::vector<std::string>{s_opens.back().name});
    EXPECT_EQ(s_closes.size(), 1U);
}

TEST_F(Seam, CountIsRightWhateverTheSystemGave) {
    for (const uint32_t nAsked : {0U, 2U, 9U}) {
        s_iSystem = 5;
        VYX_SEM_T hSem = nullptr;
        ASSERT_EQ(VYX_SemCreate(&hSem, nAsked), VYX_OK);
        uint32_t nTaken = 0;
        while (VYX_SemTimedWait(&hSem, 0) == VYX_OK)
            ++nTaken;
        EXPECT_EQ(nTaken, nAsked);
        EXPECT_EQ(VYX_SemDestroy(&hSem), VYX_OK);
    }
}

} // namespace
