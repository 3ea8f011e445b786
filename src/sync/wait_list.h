// Bounded waits in the order in which they began.
#ifndef VYX_SYNC_WAIT_LIST_H
#define VYX_SYNC_WAIT_LIST_H

namespace vyx_inter {

template <class T>
struct WaitLinks {
    T *pPrev;
    T *pNext;
};

// A list through its members, which lie on their waiters' stacks. Needs no construction and no destruction: waits are
// possible before main.
template <class T, WaitLinks<T> T::*kLinks>
struct WaitList {
    T *pFirst = nullptr;
    T *pLast = nullptr;

    void Append(T *pWait) {
        (pWait->*kLinks) = {pLast, nullptr};
        (pLast == nullptr ? pFirst : (pLast->*kLinks).pNext) = pWait;
        pLast = pWait;
    }
    void Remove(T *pWait) {
        const WaitLinks<T> links = pWait->*kLinks;
        (links.pPrev == nullptr ? pFirst : (links.pPrev->*kLinks).pNext) = links.pNext;
        (links.pNext == nullptr ? pLast : (links.pNext->*kLinks).pPrev) = links.pPrev;
    }
    static T *Next(const T *pWait) { return (pWait->*kLinks).pNext; }
};

} // namespace vyx_inter

#endif
