// Clocks and sleeps. The schedule's clock begins at a fixed moment, so that runs are equal.
#include <sys/timeb.h>

#include "calls.h"

namespace explore {
namespace {

constexpr int64_t kEpoch = 1700000000 * kSecond; // real-time clock at the start
constexpr int64_t kSinceBoot = 1000 * kSecond;   // monotonic clock at the start
constexpr int64_t kReadTime = 100;               // nanoseconds that reading a clock takes
constexpr uint32_t kReadsInRow = 1000;           // after which reading one counts as waiting for others

uint32_t s_reads;

bool Explored() {
    return g.mapping != nullptr && g.mapping->order.real_time == 0;
}

timespec ToTimespec(int64_t nanoseconds) {
    timespec time;
    time.tv_sec = static_cast<time_t>(nanoseconds / kSecond);
    time.tv_nsec = static_cast<long>(nanoseconds % kSecond);
    return time;
}

int64_t ToNanoseconds(const timespec *time) {
    return time->tv_sec * kSecond + time->tv_nsec;
}

int64_t PlatformValue(clockid_t clock) {
    timespec now = {};
    (void)GetReal().clock_gettime(clock, &now);
    return ToNanoseconds(&now);
}

// A thread that reads the clock over and over waits for time to pass.
void NoteRead(const void *site) {
    g.now += kReadTime;
    if (++s_reads % kReadsInRow != 0)
        return;
    Thread *me = Enter();
    if (me == nullptr)
        return;
    StrategyYield(me);
    PassPoint(me, {Op::Clock, Kind::None, nullptr, site, false});
    Leave(me);
}

int64_t ReadClock(clockid_t clock, const void *site) {
    if (Active() && t_self != nullptr && !t_self->inside)
        NoteRead(site);
    return ClockValue(clock);
}

// Sleeps until a moment of the schedule's clock. False if it passes through instead.
bool SleepUntil(Thread *me, int64_t deadline, const void *site) {
    const Point point = {Op::Sleep, Kind::None, nullptr, site, false};
    Wake why = Wake::None;
    PassPoint(me, point);
    while (why != Wake::TimedOut && why != Wake::Cancelled)
        why = Block(me, point, deadline);
    Leave(me);
    if (why == Wake::Cancelled) {
        CancelPoint(me);
        if (Enter() != nullptr)
            (void)SleepUntil(me, deadline, site);
    }
    return true;
}

bool SleepFor(int64_t nanoseconds, const void *site) {
    Thread *me = Enter();
    return me != nullptr && SleepUntil(me, Now() + nanoseconds, site);
}

} // namespace

int64_t ClockValue(clockid_t clock) {
    if (!Explored())
        return PlatformValue(clock);
    return Now() + (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_TAI
                        ? kEpoch
                        : kSinceBoot);
}

bool Valid(const timespec *time) {
    return time == nullptr || (time->tv_nsec >= 0 && time->tv_nsec < kSecond);
}

int64_t Deadline(clockid_t clock, const timespec *at) {
    if (at == nullptr)
        return kNever;
    if (at->tv_sec > INT64_MAX / kSecond / 2)
        return kNever - 1;
    return ToNanoseconds(at) - ClockValue(clock) + Now();
}

int64_t After(const timespec *time) {
    if (time == nullptr)
        return kNever;
    return time->tv_sec > INT64_MAX / kSecond / 2 ? kNever - 1 : Now() + ToNanoseconds(time);
}

timespec ToPlatform(clockid_t clock, const timespec *at) {
    if (at == nullptr)
        return {};
    if (!Explored() || !Valid(at))
        return *at;
    const int64_t moment = ToNanoseconds(at) - ClockValue(clock) + PlatformValue(clock);
    return ToTimespec(moment > 0 ? moment : 0);
}

} // namespace explore

using namespace explore;

EXPLORE_API int clock_gettime(clockid_t clock, timespec *time) noexcept {
    if (!Explored())
        return GetReal().clock_gettime(clock, time);
    *time = ToTimespec(ReadClock(clock, EXPLORE_SITE));
    return 0;
}

EXPLORE_API int gettimeofday(timeval *time, void *zone) noexcept {
    if (!Explored())
        return GetReal().gettimeofday(time, zone);
    const int64_t now = ReadClock(CLOCK_REALTIME, EXPLORE_SITE);
    time->tv_sec = static_cast<time_t>(now / kSecond);
    time->tv_usec = static_cast<suseconds_t>(now % kSecond / 1000);
    return 0;
}

EXPLORE_API time_t time(time_t *result) noexcept {
    if (!Explored())
        return GetReal().time(result);
    const auto now = static_cast<time_t>(ReadClock(CLOCK_REALTIME, EXPLORE_SITE) / kSecond);
    if (result != nullptr)
        *result = now;
    return now;
}

EXPLORE_API int timespec_get(timespec *time, int base) noexcept {
    if (!Explored() || base != TIME_UTC)
        return GetReal().timespec_get(time, base);
    *time = ToTimespec(ReadClock(CLOCK_REALTIME, EXPLORE_SITE));
    return base;
}

EXPLORE_API int nanosleep(const timespec *span, timespec *rest) {
    if (span == nullptr || !Valid(span) || span->tv_sec < 0 || !SleepFor(ToNanoseconds(span), EXPLORE_SITE))
        return GetReal().nanosleep(span, rest);
    return 0;
}

EXPLORE_API int clock_nanosleep(clockid_t clock, int flags, const timespec *time, timespec *rest) {
    const Real &real = GetReal();
    Thread *me = Enter();
    if (me == nullptr) {
        const timespec at = (flags & TIMER_ABSTIME) != 0 ? ToPlatform(clock, time) : *time;
        return real.clock_nanosleep(clock, flags, &at, rest);
    }
    if (!Valid(time) || time->tv_sec < 0) {
        Leave(me);
        return EINVAL;
    }
    (void)SleepUntil(me, (flags & TIMER_ABSTIME) != 0 ? Deadline(clock, time) : After(time), EXPLORE_SITE);
    return 0;
}

EXPLORE_API int usleep(useconds_t microseconds) {
    return SleepFor(int64_t{microseconds} * 1000, EXPLORE_SITE) ? 0 : GetReal().usleep(microseconds);
}

EXPLORE_API unsigned sleep(unsigned seconds) {
    return SleepFor(int64_t{seconds} * kSecond, EXPLORE_SITE) ? 0 : GetReal().sleep(seconds);
}

EXPLORE_API int sched_yield() noexcept {
    // A thread that is alone waits for something outside the program, such as a sanitizer's own processes.
    Thread *me = g.alive_count > 1 ? Enter() : nullptr;
    if (me == nullptr)
        return GetReal().sched_yield();
    StrategyYield(me);
    PassPoint(me, {Op::Yield, Kind::None, nullptr, EXPLORE_SITE, false});
    Leave(me);
    return 0;
}
