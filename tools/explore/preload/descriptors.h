#ifndef VYX_EXPLORE_DESCRIPTORS_H_
#define VYX_EXPLORE_DESCRIPTORS_H_

#include "calls.h"

namespace explore {

void NoteMade(int descriptor);
void NoteClosed(int descriptor);
void NoteUsed(); // threads that wait for a descriptor look again

// False for files and whatever else never makes a thread wait for another one.
bool MayWait(int descriptor);

// Waits until one of the descriptors is ready. Inside.
Wake AwaitReady(Thread *me, const Point &point, pollfd *polls, nfds_t count, int64_t deadline);

// A point, and the wait until the descriptor is ready for `events`, unless it or this call does not wait. False with
// errno set: the socket's own limit has passed. Inside.
bool BeginTransfer(Thread *me, Op op, int descriptor, short events, bool may_wait, const void *site);

// A descriptor that does not wait while this lives. Only its holder runs, so nobody else notices.
class Unblocked {
  public:
    explicit Unblocked(int descriptor);
    void Restore() const;
    bool WasBlocking() const { return (m_flags & 04000) == 0; }

  private:
    int m_descriptor;
    int m_flags;
};

bool IsLocal(const sockaddr *address, socklen_t length);

} // namespace explore

#endif
