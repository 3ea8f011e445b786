// Calls made under a condition, or with a look at what they do beside their result.
#ifndef VYX_TESTS_CALLS_H
#define VYX_TESTS_CALLS_H

#include <cerrno>
#include <functional>
#include <pthread.h>
#include <string>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

namespace support {

// What a call writes to standard error.
inline std::string ErrorsOf(const std::function<void()> &fnCall) {
    testing::internal::CaptureStderr();
    fnCall();
    return testing::internal::GetCapturedStderr();
}

// errno after a call whose lines standard error does not take.
inline int ErrnoOf(const std::function<void()> &fnCall) {
    int iError = 0;
    (void)ErrorsOf([&] {
        (void)close(STDERR_FILENO);
        fnCall();
        iError = errno;
    });
    return iError;
}

// Makes a call on a thread that is being cancelled. Result: true if the call came to its end all the same.
inline bool EndsThoughCancelled(const std::function<void()> &fnCall) {
    bool bEnded = false;
    std::thread([&] {
        (void)pthread_cancel(
            pthread_self()); // no check: AddressSanitizer takes what it leaves on the stack for live
        fnCall();
        bEnded = true;
    }).join();
    return bEnded;
}

} // namespace support

#endif
