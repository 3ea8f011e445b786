// What both pools need to wait and to hold locks.
#ifndef VYX_POOL_WAITING_H
#define VYX_POOL_WAITING_H

#include <pthread.h>
#include <vyx/sync.h>

#include "sync/mutex_hold.h"

namespace vyx_inter {

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

} // namespace vyx_inter

#endif
