// The frame as an application sees it, through the shared library.
#include <cerrno>
#include <csignal>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>
#include <vyx/frame.h>

namespace {

// The library must be ready for static constructors, and still there for their destructors.
struct StartsEarly {
    int32_t iStart = VYX_Init();
    ~StartsEarly() {
        if (VYX_Fini() != VYX_OK)
            _exit(1);
    }
};
const StartsEarly kEarly;

TEST(Frame, StartsFromAStaticConstructor) {
    EXPECT_EQ(kEarly.iStart, VYX_OK);
}

TEST(Frame, VersionAndLogSwitch) {
    EXPECT_EQ(VYX_GetVYXVersion(), 16777217U);
    EXPECT_EQ(VYX_Log(3, nullptr), 0);
    EXPECT_EQ(VYX_Log(0, nullptr), 0);
}

TEST(Frame, StartIgnoresBrokenPipes) {
    struct sigaction action = {};
    ASSERT_EQ(sigaction(SIGPIPE, nullptr, &action), 0);
    EXPECT_EQ(action.sa_handler, SIG_IGN);
}

TEST(LastError, OwnSlotIsAlwaysEmpty) {
    EXPECT_EQ(VYX_SetLastError(5), 0);
    EXPECT_EQ(VYX_GetLastError(), 0U);
}

TEST(LastError, SystemSlotIsTheThreadsOwnErrno) {
    VYX_SetSystemLastError(22);
    std::thread other([] { VYX_SetSystemLastError(7); });
    other.join();
    EXPECT_EQ(VYX_GetSystemLastError(), 22U);
    EXPECT_EQ(errno, 22);
}

} // namespace
