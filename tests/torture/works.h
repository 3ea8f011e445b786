// Works: the calls that block or hold something, in rounds whose every result is checked and whose turns, items and lines
// are counted exactly. What storms.cpp disturbs.
#ifndef VYX_TORTURE_WORKS_H
#define VYX_TORTURE_WORKS_H

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <pthread.h>
#include <string>
#include <vector>

namespace torture {

// What the storm does, as far as the calls' results depend on it.
enum Weather : unsigned {
    kStops = 1,        // the library stops and starts: bounded waits fail, queues go
    kLittle = 2,       // the system grants little: what makes something may fail
    kClock = 4,        // the wall clock is set: bounded waits end early or late
    kSignals = 8,      // signal handlers run
    kInterrupted = 16, // they do not have calls restarted
    kCancels = 32,     // threads are cancelled in their rounds
    kLoad = 64, // works run many times at once; targets of the log are switched, its disk is slow at times
};
extern unsigned g_weather;
inline bool In(unsigned weather) {
    return (g_weather & weather) != 0;
}

extern std::atomic<bool> g_end; // rounds are to end
extern std::string g_folder;    // for files

struct Work {
    std::string name;
    std::function<bool()> round; // false: the system did not grant what it needs
    int many = 1;                // threads that do it at once under load
};
const std::vector<Work> &Works();

// Has the calling thread cancelled before one of its next calls that block: 1 is the next one.
void CancelBeforeCall(int number);

// A limit of the library. Under load each round keeps what it has made until all that the limit allows are made; then one
// more is asked for.
struct Limit {
    const char *name;
    int most;
    bool (*more)(); // asks for one more: whether it is granted
    std::atomic<int64_t> refused{0};
    int held = 0;
    std::mutex mutex{};
    std::condition_variable reached{};
    // Hold returns when all are held. Both do nothing except under load.
    void Hold(int count);
    void GiveBack(int count);
};
extern std::array<Limit, 3> g_limits;

// Switches the log off. Lines that it has taken since the beginning, those in its files, those refused, those that had no
// target; how often targets were switched and files were full and followed by the next.
struct Lines {
    int64_t taken, written, refused, off, switches, rotations;
};
Lines EndLog();

// Gives something back at the end of a scope, and when the thread is cancelled in it.
template <class Give>
class Finally {
  public:
    explicit Finally(Give give) : m_give(give) {}
    ~Finally() {
        int state = 0;
        (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
        m_give();
        (void)pthread_setcancelstate(state, nullptr);
    }
    Finally(const Finally &) = delete;
    Finally &operator=(const Finally &) = delete;

  private:
    Give m_give;
};

} // namespace torture

#endif
