// Ways in which threads wait for each other, with every call that blocks.
#ifndef VYX_TORTURE_CHANNELS_H
#define VYX_TORTURE_CHANNELS_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

namespace torture {

// Some threads give turns, others take them.
class Channel {
  public:
    virtual ~Channel() = default;
    virtual bool Give() = 0;
    // Waits for a turn. False if there was none yet although the call may say so now; it is then called again.
    virtual bool Take() = 0;
    // Turns given and not taken, when nobody gives or takes any more; takes them where they can be counted.
    virtual int64_t Left() { return given - taken; }
    // Has a thread that gives or takes look up after `over` has been set.
    virtual void Wake() { given += Give() ? 1 : 0; }

    bool granted = true;           // by the system, when it was made
    std::atomic<bool> over{false}; // given up: the library took it, or what a turn needs is not granted
    std::atomic<int64_t> given{0}, taken{0};
};

struct ChannelKind {
    const char *name;
    std::unique_ptr<Channel> (*make)();
    int many = 1;      // pairs of channels at once under load
    int partners = 1;  // threads at the far side of a pair
    bool alone = true; // a turn that is given waits for nobody
};
constexpr int kMostPartners = 3;
extern const std::vector<ChannelKind> kChannelKinds;

} // namespace torture

#endif
