// Semaphores and their names, and VYX_Sema. The library is not started unless a test says so. This program's own sem_open
// stands before the system's.
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <dlfcn.h>
#include <fcntl.h>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sync/sem_record.h"
#include "sync/timed_wait_support.h"

using support::Semaphore;

namespace {

constexpr int kNames = 32767;

std::vector<std::string> s_opened; // the names that were asked for, by one thread at a time
int s_nLooks = 0;                  // at single names
enum class System { Real, HasAnyName, IsSlow, HasNoName } s_eSystem = System::Real;

std::string Name(int iNumber) {
    const std::string digits = std::to_string(iNumber);
    return "vyx_named_semaphore_" + std::string(5 - digits.size(), '0') + digits;
}

} // namespace

extern "C" int access(const char *szPath, int iMode) {
    ++s_nLooks;
    return faccessat(AT_FDCWD, szPath, iMode, 0);
}

extern "C" sem_t *sem_open(const char *szName, int iFlags, ...) {
    static auto *const pSystems =
        reinterpret_cast<sem_t *(*)(const char *, int, ...)>(dlsym(RTLD_NEXT, "sem_open"));
    va_list args;
    va_start(args, iFlags);
    const auto nMode = va_arg(args, unsigned int);
    const auto nCount = va_arg(args, unsigned int);
    va_end(args);
    EXPECT_TRUE(iFlags == (O_CREAT | O_EXCL) && nMode == 0777);
    s_opened.emplace_back(szName);
    static sem_t s_any;
    const auto end = support::Clock::now() + std::chrono::milliseconds(s_eSystem == System::IsSlow ? 5 : 0);
    while (support::Clock::now() < end) {
    }
    errno = EEXIST;
    return s_eSystem == System::Real        ? pSystems(szName, iFlags, nMode, nCount)
           : s_eSystem != System::HasNoName ? &s_any
                                            : SEM_FAILED;
}

namespace {

TEST(Semaphore, NullPointersAndEmptySlotsAreRefused) {
    VYX_SEM_T hEmpty = nullptr;
    for (VYX_SEM_T *pSem : {static_cast<VYX_SEM_T *>(nullptr), &hEmpty}) {
        EXPECT_EQ(VYX_SemDestroy(pSem), VYX_ERROR);
        EXPECT_EQ(VYX_SemWait(pSem), VYX_ERROR);
        EXPECT_EQ(VYX_SemPost(pSem), VYX_ERROR);
        EXPECT_EQ(VYX_SemTimedWait(pSem, 5), VYX_ERROR);
    }
}

TEST(Semaphore, CountsWhatItWasGiven) {
    VYX_SEM_T hSem = nullptr;
    ASSERT_EQ(VYX_SemCreate(&hSem, 1), VYX_OK);
    EXPECT_EQ(VYX_SemPost(&hSem), VYX_OK);
    EXPECT_EQ(VYX_SemWait(&hSem), VYX_OK);
    EXPECT_EQ(VYX_SemTimedWait(&hSem, 0), VYX_OK);
    errno = 0;
    EXPECT_EQ(VYX_SemTimedWait(&hSem, 0), VYX_ERROR);
    EXPECT_EQ(errno, EAGAIN);
    const VYX_SEM_T hBefore = hSem;
    EXPECT_EQ(VYX_SemDestroy(&hSem), VYX_OK);
    EXPECT_EQ(hSem, hBefore) << "the slot is not cleared";
}

TEST(Semaphore, CountIsRightWhateverTheSystemGave) {
    for (const int iAsked : {0, 2, 9}) {
        Semaphore semaphore(5);
        VYX_SemSetCount_Inter(semaphore.h->pSem, static_cast<uint32_t>(iAsked));
        EXPECT_EQ(semaphore.Post(), VYX_OK); // as a wake whose sleeper has left without it
        semaphore.h->nWakes = 1;
        EXPECT_EQ(semaphore.Drain(), iAsked);
    }
}

TEST(Semaphore, PlatformsMaximumIsQuickAndOneMoreIsRefused) {
    const auto nMaximum = static_cast<uint32_t>(sysconf(_SC_SEM_VALUE_MAX));
    const auto start = support::Clock::now();
    Semaphore full(nMaximum);
    EXPECT_LT(support::Clock::now() - start, std::chrono::seconds(support::TimeScale()));
    EXPECT_EQ(full.Post(), VYX_ERROR); // so the count is the one asked for
    EXPECT_EQ(errno, EOVERFLOW);
    const Semaphore above(nMaximum + 1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(above.h, nullptr);
}

// The name that comes next.
std::string GoOn() {
    VYX_SEM_T hSem = nullptr;
    s_eSystem = System::HasAnyName;
    EXPECT_EQ(VYX_SemCreate(&hSem, 0), VYX_OK);
    s_eSystem = System::Real;
    return hSem->szName; // not destroyed, which would take away the name that another process may have
}

TEST(Semaphore, NamesComeInTurn) {
    std::set<std::string> names;
    while (names.insert(GoOn()).second) {
    }
    EXPECT_EQ(names.size(), kNames);
    EXPECT_EQ(*names.begin(), Name(0));
    EXPECT_EQ(*names.rbegin(), Name(kNames - 1));
}

// What others have left behind is skipped without an opening.
TEST(Semaphore, TakenNamesCostTwoOpeningsInAll) {
    const int iFirst =
        kNames / 2 + getpid() % (kNames / 3); // far from the low numbers that other processes use
    while (GoOn() != Name(iFirst)) {
    }
    const std::vector<Semaphore> taken(40);
    while (GoOn() != Name(iFirst)) {
    }
    s_opened.clear();
    s_nLooks = 0;
    const Semaphore one;
    EXPECT_LE(s_nLooks, 20) << "then one at all";
    ASSERT_EQ(s_opened.size(), 2U);
    EXPECT_EQ(s_opened[0], Name(iFirst + 1));
    EXPECT_GE(s_opened[1], Name(iFirst + 41)) << "other processes may have some";
}

// A thread that makes one after the other does not keep another from its first.
TEST(Semaphore, NobodyIsLeftBehind) {
    s_eSystem = System::IsSlow;
    std::atomic<int> nMade{0};
    std::atomic<bool> bEnd{false};
    const auto make = [&nMade] {
        VYX_SEM_T hSem = nullptr; // not destroyed either
        (void)(VYX_SemCreate(&hSem, 0) + ++nMade);
    };
    const support::Async greedy([&] {
        while (!bEnd)
            make();
        return 0;
    });
    EXPECT_TRUE(support::WaitUntil([&] { return nMade > 0; }));
    const support::Async modest([&] {
        make();
        bEnd = true;
        return 0;
    });
    EXPECT_TRUE(support::WaitUntil([&] { return modest.Asleep() || bEnd; }));
    const int nBefore = nMade;
    EXPECT_TRUE(support::WaitUntil([&] { return greedy.Done() && modest.Done(); }));
    EXPECT_LE(nMade - nBefore, 15);
    bEnd = true;
    s_eSystem = System::Real;
}

TEST(Semaphore, EachNameIsTriedOnce) {
    s_opened.clear();
    s_eSystem = System::HasNoName;
    const Semaphore none;
    s_eSystem = System::Real;
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(none.h, nullptr);
    EXPECT_EQ(std::set<std::string>(s_opened.begin(), s_opened.end()).size(), s_opened.size());
    EXPECT_GT(s_opened.size(), kNames / 2U) << "but for those that others have";
}

TEST(Sema, RefusesPostsAtItsMaximum) {
    VYX_Sema sema(1, 2);
    EXPECT_EQ(sema.Post(), VYX_OK);
    EXPECT_EQ(sema.Post(), VYX_ERROR);
    EXPECT_EQ(sema.TimedWait(0), VYX_OK);
    EXPECT_EQ(sema.Wait(), VYX_OK);
    EXPECT_EQ(sema.TimedWait(0), VYX_ERROR);
    EXPECT_EQ(sema.Post(), VYX_OK);
    EXPECT_EQ(sema.Post(), VYX_OK) << "a wait that took nothing was counted";
    EXPECT_EQ(sema.Post(), VYX_ERROR);

    VYX_Sema above(3, 1);
    for (const int iExpected : {VYX_ERROR, VYX_ERROR, VYX_ERROR, VYX_OK}) {
        EXPECT_EQ(above.Post(), iExpected);
        EXPECT_EQ(above.Wait(), VYX_OK);
    }
}

TEST(Sema, RefusedPostAnswersZeroUncounted) {
    const auto nMaximum = static_cast<uint32_t>(sysconf(_SC_SEM_VALUE_MAX));
    VYX_Sema full(nMaximum, nMaximum + 1);
    EXPECT_EQ(full.Post(), VYX_OK);
    EXPECT_EQ(full.Post(), VYX_OK) << "the refused post was counted";
}

TEST(Sema, MaximumHoldsAndCountsAgreeUnderThreads) {
    constexpr int kMaximum = 5;
    VYX_Sema sema(0, kMaximum);
    const auto work = [&] {
        for (int i = 0; i < 300000; ++i)
            (void)(i % 7 < 4 ? sema.Post() : sema.TimedWait(0));
        return 0;
    };
    { support::Async first(work), second(work), third(work); }
    while (sema.TimedWait(0) == VYX_OK) {
    }
    for (int i = 0; i < kMaximum; ++i)
        EXPECT_EQ(sema.Post(), VYX_OK);
    EXPECT_EQ(sema.Post(), VYX_ERROR);
}

TEST(LowerSem, IsNotAvailable) {
    vyx::vyx_sem counted(4);
    vyx::vyx_sem uncounted;
    for (vyx::vyx_sem *pSem : {&counted, &uncounted})
        for (const int iResult :
             {pSem->init(1), pSem->destroy(), pSem->post(1), pSem->wait(0), pSem->post_1()})
            EXPECT_EQ(iResult, -2);
}

} // namespace
