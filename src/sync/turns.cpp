#include "sync/turns.h"

#include "base/uncancelled.h"

namespace vyx_inter {

namespace {

constexpr int64_t kPatience = 20 * kMicrosPerMilli; // after it a thread is given the turn
// How often a thread looks by itself, in milliseconds: in a child that was forked in its signal handler nobody wakes it.
constexpr uint32_t kLook = 1000;

} // namespace

void Turns::Enter() {
    const LockGuard guard(m_hLock);
    if (m_bTaken) {
        const Uncancelled uncancelled;
        Waiter self(Now(Clock::Monotonic));
        m_waiting.Append(&self);
        while (m_bTaken && !self.bGiven) {
            self.bWoken = false;
            (void)self.wake.WaitUntil(m_hLock, Deadline::In(kLook, Clock::Monotonic));
        }
        if (!self.bGiven)
            m_waiting.Remove(&self);
    }
    m_bTaken = true;
}

void Turns::Leave() {
    const LockGuard guard(m_hLock);
    Waiter *pFirst = m_waiting.pFirst;
    const bool bGives = pFirst != nullptr && Now(Clock::Monotonic) - pFirst->iSince > kPatience;
    m_bTaken = bGives;
    if (pFirst == nullptr || (pFirst->bWoken && !bGives))
        return;
    if (bGives)
        m_waiting.Remove(pFirst);
    pFirst->bGiven = bGives;
    pFirst->bWoken = true;
    pFirst->wake.Signal();
}

void Turns::InChild() {
    if (!m_forkHold.InChild())
        return;
    m_bTaken = false;
    for (Waiter *pWaiter = m_waiting.pFirst; pWaiter != nullptr; pWaiter = m_waiting.Next(pWaiter))
        pWaiter->bGiven = true; // the forking thread may be one: it finds nobody before it
    m_waiting = {};
}

} // namespace vyx_inter
