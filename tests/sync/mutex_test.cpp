// Mutexes: the flat functions, and the three classes over them.
#include <gtest/gtest.h>
#include <thread>
#include <vyx/sync.h>

namespace {

// A call's result on another thread.
template <class Call>
int32_t Elsewhere(Call call) {
    int32_t iResult = 99;
    std::thread([&] { iResult = call(); }).join();
    return iResult;
}

TEST(Mutex, NullPointersAreRefused) {
    EXPECT_EQ(VYX_MutexCreate(nullptr, VYX_MUTEX_RECURSIVE), VYX_ERROR);
    EXPECT_EQ(VYX_MutexCreate(nullptr, VYX_MUTEX_NORMAL), VYX_ERROR);
    for (auto *pCall : {VYX_MutexDestroy, VYX_MutexLock, VYX_MutexTryLock, VYX_MutexUnlock})
        EXPECT_EQ(pCall(nullptr), VYX_ERROR);
}

TEST(Mutex, TypeDecidesWhetherTheOwnerMayLockAgain) {
    const struct {
        const char *szName;
        uint32_t nType;
        int32_t iOwnersTry; // the owner's try to lock again
    } cases[] = {
        {"recursive", VYX_MUTEX_RECURSIVE, VYX_OK},
        {"normal", VYX_MUTEX_NORMAL, VYX_ERROR},
        {"the platform's recursive", static_cast<uint32_t>(PTHREAD_MUTEX_RECURSIVE), VYX_OK},
        {"the platform's checking", static_cast<uint32_t>(PTHREAD_MUTEX_ERRORCHECK), VYX_ERROR},
    };
    for (const auto &row : cases) {
        SCOPED_TRACE(row.szName);
        VYX_MUTEX_T hMutex;
        const auto tryAndLeave = [&] {
            return VYX_MutexTryLock(&hMutex) == VYX_OK ? VYX_MutexUnlock(&hMutex) : VYX_ERROR;
        };
        ASSERT_EQ(VYX_MutexCreate(&hMutex, row.nType), VYX_OK);
        EXPECT_EQ(VYX_MutexLock(&hMutex), VYX_OK);
        EXPECT_EQ(Elsewhere(tryAndLeave), VYX_ERROR);
        EXPECT_EQ(VYX_MutexTryLock(&hMutex), row.iOwnersTry);
        if (row.iOwnersTry == VYX_OK) {
            EXPECT_EQ(VYX_MutexUnlock(&hMutex), VYX_OK);
            EXPECT_EQ(Elsewhere(tryAndLeave), VYX_ERROR) << "each lock needs its own unlock";
        }
        EXPECT_EQ(VYX_MutexUnlock(&hMutex), VYX_OK);
        EXPECT_EQ(Elsewhere(tryAndLeave), VYX_OK);
        EXPECT_EQ(VYX_MutexDestroy(&hMutex), VYX_OK);
    }
}

TEST(Mutex, UnknownTypeStillCreates) {
    for (const uint32_t nType : {7U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU}) {
        VYX_MUTEX_T hMutex;
        EXPECT_EQ(VYX_MutexCreate(&hMutex, nType), VYX_OK) << nType;
        EXPECT_EQ(VYX_MutexLock(&hMutex), VYX_OK);
        EXPECT_EQ(VYX_MutexUnlock(&hMutex), VYX_OK);
        EXPECT_EQ(VYX_MutexDestroy(&hMutex), VYX_OK);
    }
}

// What the platform notices. ThreadSanitizer notices it too: tests/tsan.supp names this function.
[[gnu::noinline]] void MisuseOnPurpose() {
    VYX_MUTEX_T hMutex;
    ASSERT_EQ(VYX_MutexCreate(&hMutex, static_cast<uint32_t>(PTHREAD_MUTEX_ERRORCHECK)), VYX_OK);
    EXPECT_EQ(VYX_MutexUnlock(&hMutex), VYX_ERROR);
    EXPECT_EQ(VYX_MutexLock(&hMutex), VYX_OK);
    EXPECT_EQ(VYX_MutexLock(&hMutex), VYX_ERROR);
    EXPECT_EQ(VYX_MutexDestroy(&hMutex), VYX_ERROR);
    EXPECT_EQ(VYX_MutexUnlock(&hMutex), VYX_OK);
    EXPECT_EQ(VYX_MutexDestroy(&hMutex), VYX_OK);
}

TEST(Mutex, PlatformsErrorsBecomeMinusOne) {
    MisuseOnPurpose();
}

TEST(Mutex, KeepsThreadsApart) {
    VYX_MUTEX_T hMutex;
    ASSERT_EQ(VYX_MutexCreate(&hMutex, VYX_MUTEX_NORMAL), VYX_OK);
    int iCount = 0;
    const auto work = [&] {
        for (int i = 0; i < 20000; ++i) {
            (void)VYX_MutexLock(&hMutex);
            ++iCount;
            (void)VYX_MutexUnlock(&hMutex);
        }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(iCount, 40000);
    EXPECT_EQ(VYX_MutexDestroy(&hMutex), VYX_OK);
}

// The two families of names, for one table of tests.
template <class T>
auto Lock(T &mutex) -> decltype(mutex.Lock()) {
    return mutex.Lock();
}
template <class T>
auto Lock(T &mutex) -> decltype(mutex.lock()) {
    return mutex.lock();
}
template <class T>
auto Try(T &mutex) -> decltype(mutex.TryLock()) {
    return mutex.TryLock();
}
template <class T>
auto Try(T &mutex) -> decltype(mutex.trylock()) {
    return mutex.trylock();
}
template <class T>
auto Unlock(T &mutex) -> decltype(mutex.Unlock()) {
    return mutex.Unlock();
}
template <class T>
auto Unlock(T &mutex) -> decltype(mutex.unlock()) {
    return mutex.unlock();
}

template <class T>
void ExpectBehaves(T &mutex, bool bRecursive) {
    const auto tryAndLeave = [&] { return Try(mutex) == VYX_OK ? Unlock(mutex) : VYX_ERROR; };
    EXPECT_EQ(Lock(mutex), VYX_OK);
    EXPECT_EQ(Elsewhere(tryAndLeave), VYX_ERROR);
    EXPECT_EQ(tryAndLeave(), bRecursive ? VYX_OK : VYX_ERROR);
    EXPECT_EQ(Elsewhere(tryAndLeave), VYX_ERROR);
    EXPECT_EQ(Unlock(mutex), VYX_OK);
    EXPECT_EQ(Elsewhere(tryAndLeave), VYX_OK);
}

TEST(MutexClasses, DefaultIsRecursiveAndTypesAreTakenOver) {
    VYX_Mutex plain;
    VYX_Mutex normal(VYX_MUTEX_NORMAL);
    vyx::vyx_mutex lower;
    vyx::vyx_mutex lowerNormal(0);
    vyx::vyx_mutex lowerRecursive(-1);
    vyx::vyx_recursive_mutex recursive;
    ExpectBehaves(plain, true);
    ExpectBehaves(normal, false);
    ExpectBehaves(lower, true);
    ExpectBehaves(lowerNormal, false);
    ExpectBehaves(lowerRecursive, true);
    ExpectBehaves(recursive, true);
}

TEST(MutexClasses, ObjectIsItsMutex) {
    VYX_Mutex object;
    auto *pMutex = reinterpret_cast<VYX_MUTEX_T *>(&object);
    EXPECT_EQ(VYX_MutexLock(pMutex), VYX_OK);
    EXPECT_EQ(Elsewhere([&] { return object.TryLock(); }), VYX_ERROR);
    EXPECT_EQ(object.Unlock(), VYX_OK);
}

} // namespace
