// What both pools need to wait and to hold locks.
#ifndef VYX_POOL_WAITING_H
#define VYX_POOL_WAITING_H

#include <chrono>
#include <pthread.h>
#include <sched.h>
#include <vyx/sync.h>

#include "sync/mutex_hold.h"

namespace vyx_inter {

// Under a steady load the next item, or the next idle worker, is there sooner than a thread falls asleep and is
// woken. So both sides look this often before they sleep. In between they let others run, who may be those that
// they wait for; where these take longer than kBriefTime, the machine is busy with something else.
constexpr uint32_t kBriefTries = 32;
constexpr std::chrono::microseconds kBriefTime{30};

// A worker can be cancelled in its work only, where that ends it as VYX_Thread_Exit does: asleep it may have been
// given an item already.
inline void RefuseCancellation() {
    int iOld = 0;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &iOld);
}

// Does a worker's work.
template <class Work>
void RunCancellable(Work fnWork) {
    struct Refusal { // again, however the work ends
        ~Refusal() { RefuseCancellation(); }
    };
    const Refusal refusal;
    int iOld = 0;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &iOld);
    fnWork();
    pthread_testcancel(); // what was meant for this work does not end the next
}

// Result: true as soon as fnTry succeeds, false when the time is over.
template <class Try>
bool TryBriefly(Try fnTry) {
    if (fnTry())
        return true;
    const auto end = std::chrono::steady_clock::now() + kBriefTime;
    for (uint32_t nTry = 0; nTry < kBriefTries && std::chrono::steady_clock::now() < end; ++nTry) {
        (void)sched_yield();
        if (fnTry())
            return true;
    }
    return false;
}

} // namespace vyx_inter

#endif
