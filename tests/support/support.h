// What the tests share: waiting for a condition, time bounds, and threads that meet.
#ifndef VYX_TESTS_SUPPORT_H
#define VYX_TESTS_SUPPORT_H

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include <vyx/thread.h>

namespace support {

using Clock = std::chrono::steady_clock;

// ThreadSanitizer cannot follow threads that a forked child starts, nor can the emulator; and AddressSanitizer may fork
// while another thread holds a lock of its allocator. ThreadSanitizer's _exit also flushes standard output, unless it saw
// the fork of several threads: what the parent had not flushed would be written twice.
#if defined(__has_feature) // Clang's way to tell
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#define VYX_TESTS_SANITIZED
#endif
#endif
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__) || defined(VYX_TESTS_SANITIZED) ||         \
    defined(VYX_TESTS_EMULATED)
#define VYX_TESTS_NO_THREADS_AROUND_FORK
constexpr bool kThreadsAfterFork = false;
#else
constexpr bool kThreadsAfterFork = true;
#endif

// The tests run in an emulator of the processor: the process that the kernel shows is the emulator.
#if defined(VYX_TESTS_EMULATED)
constexpr bool kEmulated = true;
#else
constexpr bool kEmulated = false;
#endif

// In the emulator of PowerPC the C++ runtime aborts when a thread is cancelled in its sleep: it does not find its way out
// of the signal's frame, also without this library.
#if defined(VYX_TESTS_EMULATED) && defined(__powerpc__)
constexpr bool kCancelsSleepers = false;
#else
constexpr bool kCancelsSleepers = true;
#endif

// How many times longer than on an idle native machine things may take; VYX_TEST_TIME_SCALE sets it.
inline int TimeScale() {
    const char *szScale = std::getenv("VYX_TEST_TIME_SCALE");
    const int iScale = szScale == nullptr ? 1 : std::atoi(szScale);
    return iScale < 1 ? 1 : iScale;
}

// Polls until the predicate holds; false after half a (scaled) minute, as a crowded machine may need for a thread.
// For what no condition can be waited on.
template <class Predicate>
bool WaitUntil(Predicate predicate) {
    const auto end = Clock::now() + std::chrono::seconds(30) * TimeScale();
    while (!predicate()) {
        if (Clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1)); // the poll's own pause
    }
    return true;
}

// Milliseconds that a call took, on the monotonic clock.
template <class Call>
double MillisecondsOf(Call call) {
    const auto start = Clock::now();
    call();
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

} // namespace support

#endif
