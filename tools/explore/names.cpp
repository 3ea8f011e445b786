#include "mapping.h"

namespace explore {

const char *OpText(Op op) {
    static const char *const texts[] = {
        "-",          "start",   "exit",       "create",     "join",       "detach",     "cancel",
        "lock",       "trylock", "timed lock", "unlock",     "read lock",  "write lock", "wait",
        "timed wait", "signal",  "broadcast",  "post",       "trywait",    "open",       "close",
        "barrier",    "once",    "yield",      "sleep",      "read",       "write",      "accept",
        "connect",    "poll",    "shutdown",   "futex wait", "futex wake", "fork",       "outside",
        "load",       "store",   "exchange",   "fence",      "clock",      "lock again", "free"};
    static_assert(sizeof texts / sizeof *texts == static_cast<size_t>(Op::Count));
    return op < Op::Count ? texts[static_cast<size_t>(op)] : "?";
}

const char *KindText(Kind kind) {
    static const char *const texts[] = {"",       "thread",   "mutex",   "condition", "semaphore",
                                        "rwlock", "spinlock", "barrier", "once",      "descriptor",
                                        "futex",  "memory",   "stream"};
    static_assert(sizeof texts / sizeof *texts == static_cast<size_t>(Kind::Count));
    return kind < Kind::Count ? texts[static_cast<size_t>(kind)] : "?";
}

} // namespace explore
