// Who goes on, and all else that a schedule may decide. What departs from the default schedule is written down.
#include <cstring>

#include "scheduler.h"

namespace explore {
namespace {

uint64_t s_random;

constexpr uint32_t kMaxChanges = 16;
uint64_t s_changes[kMaxChanges]; // pct: points at which the running thread falls behind all others
uint32_t s_change_count;
uint64_t s_late_at;     // pct: the point at which the clock runs ahead; 0: none
int64_t s_lowest;       // pct: every thread that falls behind gets a priority below this
uint32_t s_stay_shift;  // random: a thread is left with a chance of 1 in 2^shift
uint32_t s_late_chance; // random: 1 in so many; 0: never
uint32_t s_cursor[kMaxThreads][Decision::Types]; // replay: the next decision of each thread and type, plus 1

uint64_t Random() { // splitmix64
    s_random += 0x9E3779B97F4A7C15u;
    uint64_t value = s_random;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9u;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EBu;
    return value ^ (value >> 31);
}

uint32_t Below(uint64_t limit) {
    return static_cast<uint32_t>((Random() >> 32) % limit);
}

const Order &TheOrder() {
    return g.mapping->order;
}

void Write(const Thread *me, Decision::Type type, uint32_t value) {
    Answer &answer = g.mapping->answer;
    const uint32_t at = me->moments[type == Decision::Late ? Decision::Switch : type];
    if (answer.decisions < kMaxDecisions)
        g.mapping->made[answer.decisions] = {me->number, at, value, type, {0, 0, 0}};
    answer.decisions++;
}

bool Before(const Decision &decision, uint32_t thread, uint32_t type) {
    return decision.thread != thread ? decision.thread < thread : decision.type < type;
}

// The first of a thread's decisions of one type, or where it would be.
uint32_t FirstGiven(uint32_t thread, uint32_t type) {
    uint32_t low = 0;
    uint32_t high = TheOrder().decisions;
    while (low < high) {
        const uint32_t middle = low + (high - low) / 2;
        if (Before(g.mapping->given[middle], thread, type))
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

// Replay: the decision for this moment, or null.
const Decision *Given(const Thread *me, Decision::Type type) {
    uint32_t &cursor = s_cursor[me->number][type];
    if (cursor == 0)
        cursor = FirstGiven(me->number, type) + 1;
    const uint32_t at = me->moments[type == Decision::Late ? Decision::Switch : type];
    for (; cursor - 1 < TheOrder().decisions; cursor++) {
        const Decision &decision = g.mapping->given[cursor - 1];
        if (decision.thread != me->number || decision.type != type || decision.at > at)
            return nullptr;
        if (decision.at == at)
            return &decision;
    }
    return nullptr;
}

bool PrefersOthers(const Choice &choice) {
    return choice.able && choice.count > 1 && (choice.me->yielded || choice.me->in_row > kLongRow);
}

// The default schedule. The list is sorted by number.
Thread *Default(const Choice &choice) {
    if (choice.able && !PrefersOthers(choice))
        return choice.me;
    for (uint32_t i = 0; i < choice.count; i++)
        if (choice.enabled[i]->number > choice.me->number)
            return choice.enabled[i];
    return choice.enabled[0];
}

Thread *PickRandom(const Choice &choice) {
    if (PrefersOthers(choice)) {
        Thread *const next = choice.enabled[Below(choice.count - 1)];
        return next == choice.me ? choice.enabled[choice.count - 1] : next;
    }
    if (choice.able && s_stay_shift > 0 && Below(uint64_t{1} << s_stay_shift) != 0)
        return choice.me;
    return choice.enabled[Below(choice.count)];
}

Thread *PickPct(const Choice &choice) {
    for (uint32_t i = 0; i < s_change_count; i++)
        if (s_changes[i] == g.mapping->answer.points)
            choice.me->priority = --s_lowest;
    if (PrefersOthers(choice))
        choice.me->priority = --s_lowest;
    Thread *best = choice.enabled[0];
    for (uint32_t i = 1; i < choice.count; i++)
        if (choice.enabled[i]->priority > best->priority)
            best = choice.enabled[i];
    return best;
}

Thread *PickRound(const Choice &choice) {
    const Order &order = TheOrder();
    const uint64_t turn = order.depth > 0 ? order.depth : 1;
    if (!choice.able || (g.mapping->answer.points + order.schedule) % turn != 0)
        return Default(choice);
    for (uint32_t i = 0; i < choice.count; i++)
        if (choice.enabled[i]->number > choice.me->number)
            return choice.enabled[i];
    return choice.enabled[0];
}

Thread *PickGiven(const Choice &choice) {
    const Decision *given = Given(choice.me, Decision::Switch);
    for (uint32_t i = 0; given != nullptr && i < choice.count; i++)
        if (choice.enabled[i]->number == given->value)
            return choice.enabled[i];
    return Default(choice);
}

} // namespace

void StartStrategy() {
    const Order &order = TheOrder();
    s_random = order.seed;
    s_lowest = 0;
    s_change_count = 0;
    s_late_at = 0;
    const uint64_t length = order.length > 0 ? order.length : 1;
    s_stay_shift = Below(4);
    s_late_chance = Below(2) == 0 ? 0 : 16;
    if (order.strategy == Strategy::Pct) {
        s_change_count = order.depth > 0 ? order.depth - 1 : 0;
        s_change_count = s_change_count < kMaxChanges ? s_change_count : kMaxChanges;
        for (uint32_t i = 0; i < s_change_count; i++)
            s_changes[i] = 1 + Random() % length;
        s_late_at = Below(2) == 0 ? 0 : 1 + Random() % length;
    }
    memset(s_cursor, 0, sizeof s_cursor);
}

void StrategyThread(Thread *thread) {
    thread->priority = static_cast<int64_t>(Random() >> 2);
}

Thread *StrategyPick(const Choice &choice) {
    Thread *next = nullptr;
    switch (TheOrder().strategy) {
    case Strategy::Random:
        next = PickRandom(choice);
        break;
    case Strategy::Pct:
        next = PickPct(choice);
        break;
    case Strategy::Round:
        next = PickRound(choice);
        break;
    case Strategy::Replay:
        next = PickGiven(choice);
        break;
    }
    if (next != Default(choice))
        Write(choice.me, Decision::Switch, next->number);
    choice.me->yielded = false;
    return next;
}

bool StrategyLate(Thread *me) {
    bool late = false;
    switch (TheOrder().strategy) {
    case Strategy::Random:
        late = s_late_chance > 0 && Below(s_late_chance) == 0;
        break;
    case Strategy::Pct:
        late = s_late_at != 0 && g.mapping->answer.points >= s_late_at;
        s_late_at = late ? 0 : s_late_at;
        break;
    case Strategy::Round:
        break;
    case Strategy::Replay:
        late = Given(me, Decision::Late) != nullptr;
        break;
    }
    if (late)
        Write(me, Decision::Late, 1);
    return late;
}

Thread *StrategyWaiter(Thread *me, Thread *const *waiters, uint32_t count) {
    Thread *picked = waiters[0];
    const Strategy strategy = TheOrder().strategy;
    if (strategy == Strategy::Replay) {
        const Decision *given = Given(me, Decision::Wake);
        for (uint32_t i = 0; given != nullptr && i < count; i++)
            if (waiters[i]->number == given->value)
                picked = waiters[i];
    } else if (strategy != Strategy::Round) {
        picked = waiters[Below(count)];
    }
    if (picked != waiters[0])
        Write(me, Decision::Wake, picked->number);
    me->moments[Decision::Wake]++;
    return picked;
}

bool StrategyFail(Thread *me) {
    const bool fail = TheOrder().strategy == Strategy::Replay ? Given(me, Decision::Fail) != nullptr
                                                              : Below(1000000) < TheOrder().fail_millions;
    if (fail)
        Write(me, Decision::Fail, 1);
    me->moments[Decision::Fail]++;
    return fail;
}

void StrategyYield(Thread *me) {
    me->yielded = true;
}

} // namespace explore
