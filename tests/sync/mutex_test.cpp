// Mutexes: the flat functions, and the three classes over them.
#include <gtest/gtest.h>
#include <thread>
#include <vyx/sync.h>

namespace {

// The flat functions under the names of the class.
struct Flat {
    VYX_MUTEX_T hMutex;
    explicit Flat(uint32_t nType) { EXPECT_EQ(VYX_MutexCreate(&hMutex, nType), VYX_OK); }
    ~Flat() { EXPECT_EQ(VYX_MutexDestroy(&hMutex), VYX_OK); }
    Flat(const Flat &) = delete;
    Flat &operator=(const Flat &) = delete;
    int Lock() { return VYX_MutexLock(&hMutex); }
    int TryLock() { return VYX_MutexTryLock(&hMutex); }
    int Unlock() { return VYX_MutexUnlock(&hMutex); }
};

template <class T>
void ExpectBehaves(const char *szName, T &&mutex, bool bRecursive, int (T::*fnLock)(), int (T::*fnTry)(),
                   int (T::*fnUnlock)()) {
    SCOPED_TRACE(szName);
    const auto tryElsewhere = [&] {
        int iResult = 99;
        std::thread([&] {
            iResult = (mutex.*fnTry)();
            if (iResult == VYX_OK)
                (void)(mutex.*fnUnlock)();
        }).join();
        return iResult;
    };
    EXPECT_EQ((mutex.*fnLock)(), VYX_OK);
    EXPECT_EQ(tryElsewhere(), VYX_ERROR);
    EXPECT_EQ((mutex.*fnTry)(), bRecursive ? VYX_OK : VYX_ERROR);
    if (bRecursive) {
        EXPECT_EQ((mutex.*fnUnlock)(), VYX_OK);
        EXPECT_EQ(tryElsewhere(), VYX_ERROR) << "each lock needs its own unlock";
    }
    EXPECT_EQ((mutex.*fnUnlock)(), VYX_OK);
    EXPECT_EQ(tryElsewhere(), VYX_OK);
}

TEST(Mutex, TypeDecidesWhetherTheOwnerMayLockAgain) {
    const auto expectFlat = [](const char *szName, uint32_t nType, bool bRecursive) {
        ExpectBehaves(szName, Flat(nType), bRecursive, &Flat::Lock, &Flat::TryLock, &Flat::Unlock);
    };
    expectFlat("recursive", VYX_MUTEX_RECURSIVE, true);
    expectFlat("normal", VYX_MUTEX_NORMAL, false);
    expectFlat("platform's recursive", static_cast<uint32_t>(PTHREAD_MUTEX_RECURSIVE), true);

    using Upper = VYX_Mutex;
    ExpectBehaves("class", Upper(), true, &Upper::Lock, &Upper::TryLock, &Upper::Unlock);
    ExpectBehaves("normal class", Upper(VYX_MUTEX_NORMAL), false, &Upper::Lock, &Upper::TryLock,
                  &Upper::Unlock);
    using Lower = vyx::vyx_mutex;
    ExpectBehaves("lower", Lower(), true, &Lower::lock, &Lower::trylock, &Lower::unlock);
    ExpectBehaves("normal lower", Lower(0), false, &Lower::lock, &Lower::trylock, &Lower::unlock);
    ExpectBehaves("recursive lower", Lower(-1), true, &Lower::lock, &Lower::trylock, &Lower::unlock);
    using Always = vyx::vyx_recursive_mutex;
    ExpectBehaves("always recursive", Always(), true, &Always::lock, &Always::trylock, &Always::unlock);
}

TEST(Mutex, UnknownTypeStillCreates) {
    for (const uint32_t nType : {7U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFEU}) {
        Flat mutex(nType);
        EXPECT_EQ(mutex.Lock(), VYX_OK) << nType;
        EXPECT_EQ(mutex.Unlock(), VYX_OK);
    }
}

} // namespace
