// What the tests of events share.
#ifndef VYX_TESTS_MSG_EVENT_SUPPORT_H
#define VYX_TESTS_MSG_EVENT_SUPPORT_H

#include <memory>
#include <sys/resource.h>
#include <type_traits>
#include <utility>

#include <gtest/gtest.h>
#include <vyx/msg.h>

namespace eventtest {

struct Closer {
    void operator()(VYX_EVENT hEvent) const { EXPECT_EQ(VYX_CloseEvent(hEvent), VYX_TRUE); }
};
using Event = std::unique_ptr<std::remove_pointer_t<VYX_EVENT>, Closer>;

inline Event Make(bool bSignalled = false) {
    Event event(VYX_CreateEvent(bSignalled ? 1 : 0));
    EXPECT_NE(event, nullptr);
    return event;
}

// Looks at one event by itself and in company, without waiting.
inline bool Signalled(const Event &event) {
    const VYX_EVENT hEvent = event.get();
    const bool bSingle = VYX_WaitForSingleObject(hEvent, 0) == VYX_WAIT_OBJECT_0;
    EXPECT_EQ(VYX_WaitForMultipleObjects(1, &hEvent, 0, 0), bSingle ? VYX_WAIT_OBJECT_0 : VYX_WAIT_TIMEOUT);
    return bSingle;
}

constexpr char kNoPipe[] = "quelby !!! VYX_WaitForSingleObject (pEvent->iPipeFd[0] == -1) return error 1\n\n";

// Another limit of open descriptors. Result: the one before.
inline rlim_t LimitDescriptors(rlim_t nLimit) {
    struct rlimit limit = {};
    (void)getrlimit(RLIMIT_NOFILE, &limit);
    const rlim_t nBefore = std::exchange(limit.rlim_cur, nLimit);
    (void)setrlimit(RLIMIT_NOFILE, &limit);
    return nBefore;
}

} // namespace eventtest

#endif
