// The names behind semaphores. This program's own sem_open, sem_close and sem_unlink stand before the
// system's: they record, fail where a test wants it, and pass on.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <new>
#include <string>
#include <unistd.h>
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
int s_iFailCode = 0;  // if not 0, the next opening fails with this errno
int s_iOnlyFree = -1; // the number of the one name that is free; -1: the system tells
int s_iSystem = 0;    // a count the system gives instead of the one asked for, if above 0
int s_iLooks = 0;     // at single names
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
        s_iFailCode = s_iSystem = s_iLooks = 0;
        s_iOnlyFree = -1;
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
    const int iTaken = s_iOnlyFree >= 0 && s_iOnlyFree != NumberIn(szName) ? EEXIST : 0;
    if (s_iFailCode != 0 || iTaken != 0) {
        errno = s_iFailCode != 0 ? s_iFailCode : iTaken;
        s_iFailCode = 0;
        return SEM_FAILED;
    }
    return pSystems(szName, iFlags, nMode, s_iSystem > 0 ? static_cast<unsigned int>(s_iSystem) : nCount);
}

int access(const char *szPath, int iMode) {
    ++s_iLooks;
    return faccessat(AT_FDCWD, szPath, iMode, 0);
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

TEST_F(Seam, EachNameIsTriedOnceInOrder) {
    VYX_SEM_T hSem = nullptr;
    ASSERT_EQ(VYX_SemCreate(&hSem, 0), VYX_OK);
    const int iFirst = NumberIn(hSem->szName);
    EXPECT_EQ(VYX_SemDestroy(&hSem), VYX_OK);
    for (const bool bFree : {false, true}) { // the last name that is tried, where all others are taken
        s_opens.clear();
        s_iOnlyFree = bFree ? iFirst : kNames;
        const auto hMark = reinterpret_cast<VYX_SEM_T>(&hSem);
        hSem = hMark;
        const int32_t iResult = VYX_SemCreate(&hSem, 1);
        int iLast = 0;
        for (const Open &open : s_opens) { // from 32766 on to 0; without those that were seen to be taken
            const int iBehind = (NumberIn(open.name) - iFirst - 1 + kNames) % kNames + 1;
            ASSERT_GT(iBehind, iLast);
            iLast = iBehind;
        }
        EXPECT_GT(s_opens.size(), kNames / 2U);
        if (iResult == VYX_OK) {
            EXPECT_EQ(NumberIn(hSem->szName), iFirst);
            EXPECT_EQ(VYX_SemDestroy(&hSem), VYX_OK);
        } else {
            EXPECT_EQ(errno, EEXIST); // also if another process was quick to take the name
            EXPECT_EQ(hSem, hMark);
        }
        EXPECT_EQ(s_closes.size(), iResult == VYX_OK ? 2U : 1U);
    }
}

// What others have left behind is skipped: some names by a look each, the rest by one look at all, none by an opening.
TEST_F(Seam, TakenNamesCostTwoOpeningsInAll) {
    constexpr int kTaken = 40;
    VYX_SEM_T hSem = nullptr;
    s_iOnlyFree = kNames / 2 + getpid() % (kNames / 3); // far from the low numbers that other processes use
    ASSERT_EQ(VYX_SemCreate(&hSem, 0), VYX_OK);
    const int iFirst = NumberIn(hSem->szName);
    s_iOnlyFree = -1;
    EXPECT_EQ(VYX_SemDestroy(&hSem), VYX_OK);
    const auto behind = [iFirst](int i) { return "vyx_named_semaphore_" + std::to_string(iFirst + i); };
    for (int i = 1; i <= kTaken + 1; ++i)
        (void)sem_close(sem_open(behind(i).c_str(), O_CREAT, 0600U, 0U)); // or it is already
    (void)sem_unlink(behind(kTaken).c_str());
    s_opens.clear();
    s_iLooks = 0;
    ASSERT_EQ(VYX_SemCreate(&hSem, 1), VYX_OK);
    ASSERT_GE(s_opens.size(), 2U);
    EXPECT_LE(s_opens.size(), 3U) << "one more if another process was quick to take the name";
    EXPECT_EQ(s_opens[1].name, behind(kTaken));
    EXPECT_LE(s_iLooks, kTaken / 2);
    EXPECT_EQ(VYX_SemDestroy(&hSem), VYX_OK);
    for (int i = 1; i <= kTaken + 1; ++i)
        (void)sem_unlink(behind(i).c_str());
}

TEST_F(Seam, OtherFailuresAreNotRetried) {
    for (const int iCode : {EACCES, EMFILE, EINTR}) {
        s_opens.clear();
        s_iFailCode = iCode;
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
        ASSERT_EQ(sem_post(hSem->pSem), 0); // as a wake whose sleeper has left without it
        hSem->nWakes = 1;
        uint32_t nTaken = 0;
        while (VYX_SemTimedWait(&hSem, 0) == VYX_OK)
            ++nTaken;
        EXPECT_EQ(nTaken, nAsked);
        EXPECT_EQ(VYX_SemDestroy(&hSem), VYX_OK);
    }
}

} // namespace
