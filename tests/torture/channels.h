// Ways in which one thread waits for another one, with every call that blocks: what storms.cpp disturbs.
#ifndef VYX_TORTURE_CHANNELS_H
#define VYX_TORTURE_CHANNELS_H

#include <atomic>
#include <cstddef>
#include <memory>
#include <vector>

namespace torture {

// What the storm does, as far as the calls' results depend on it.
struct Weather {
    bool stops = false;       // the library stops and starts: bounded waits fail, queues go
    bool little = false;      // the system grants little: what makes something may fail
    bool clock = false;       // the wall clock is set: bounded waits end early or late
    bool interrupted = false; // signal handlers run, and do not have calls restarted
    bool signals = false;     // signal handlers run
};
extern Weather g_weather;

// Two threads, 0 and 1, give each other turns.
class Channel {
  public:
    virtual ~Channel() = default;
    // False if the system does not grant it.
    virtual bool Open() = 0;
    virtual bool Give(size_t to) = 0;
    // Waits for a turn. False if there was none yet although the call may say so now; it is then called again.
    virtual bool Take(size_t me) = 0;
    // After the last turn: nothing is left.
    virtual bool Empty() { return true; }

    std::atomic<bool> over{
        false}; // given up: the library took the channel, or what a turn needs is not granted
};

struct ChannelKind {
    const char *name;
    std::unique_ptr<Channel> (*make)();
};
const std::vector<ChannelKind> &ChannelKinds();

} // namespace torture

#endif
