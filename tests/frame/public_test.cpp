// The frame as an application sees it, through the shared library.
#include <cerrno>
#include <csignal>
#include <thread>

#include <gtest/gtest.h>
#include <vyx/frame.h>

namespace {

// Runs before main: the library must be ready for static constructors.
const int32_t kStartedBeforeMain = VYX_Init();

TEST(Frame, StartsFromAStaticConstructor) {
    EXPECT_EQ(kStartedBeforeMain, VYX_OK);
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
