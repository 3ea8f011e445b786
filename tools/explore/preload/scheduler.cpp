#include "scheduler.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <linux/futex.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "races.h"
#include "real.h"

namespace explore {

Scheduler g;
namespace {
uint32_t s_dead = 0;
}
const volatile uint32_t *g_live = &s_dead;
thread_local Thread *t_self __attribute__((tls_model("initial-exec")));

namespace {

// The holder's word: a count that grows with every pass, the thread's number, and where it is.
constexpr uint32_t kRunning = 0; // the program's code
constexpr uint32_t kInside = 1;  // the scheduler
constexpr uint32_t kNumberShift = 2;
constexpr uint32_t kCountShift = 12;

std::atomic<uint32_t> s_returned[kMaxThreads]; // threads that came back from outside
std::atomic<uint32_t> s_event;                 // grows when one does
int64_t s_start;                               // real time of the start
volatile uint32_t *s_live_page;
bool s_settled; // sockets were given time to deliver since the last point

uint32_t Holder(const Thread *thread, uint32_t mode, uint32_t before) {
    return (((before >> kCountShift) + 1) << kCountShift) | (thread->number << kNumberShift) | mode;
}

// A thread that ends still works where no call shows it: it runs the destructors of keys, and gives its stack and memory
// arena back to the C library. Waiting for that keeps addresses the same from run to run.
void AwaitLeaving() {
    if (g.leaving == 0)
        return;
    const Real &real = GetReal();
    const int saved = errno;
    const int64_t limit = RealNow() + 2 * kSecond;
    while (real.syscall(SYS_tgkill, getpid(), g.leaving, 0) == 0 && RealNow() < limit)
        real.sched_yield();
    g.leaving = 0;
    errno = saved;
}

void HandTo(Thread *next) {
    Baton &baton = g.mapping->baton;
    baton.holder.store(Holder(next, kInside, baton.holder.load(std::memory_order_relaxed)));
    baton.go[next->number].store(1);
    FutexWake(&baton.go[next->number]);
}

Thread *Choose(Thread *me);

// The baton was taken from a thread that stayed away, and given to this one, which waits for something: it decides
// who goes on.
Thread *AfterTaking(Thread *me) {
    Thread *away = &g.threads[g.mapping->baton.taken.exchange(0) - 1];
    away->state = State::Outside;
    g.outside++;
    g.mapping->answer.outside++;
    return Choose(me);
}

// Waits for the baton.
void Park(Thread *me) {
    Baton &baton = g.mapping->baton;
    std::atomic<uint32_t> &go = baton.go[me->number];
    baton.parked[me->number].store(1);
    for (;;) {
        while (go.load() == 0)
            FutexWait(&go, 0, -1);
        go.store(0);
        if (baton.taken.load() == 0)
            break;
        Thread *next = AfterTaking(me);
        if (next == me)
            break;
        HandTo(next);
    }
    baton.parked[me->number].store(0);
    AwaitLeaving();
}

void ComeBack(Thread *me) {
    s_returned[me->number].store(1);
    s_event.fetch_add(1);
    FutexWake(&s_event);
    Park(me);
}

// Threads that came back from outside can run again.
void TakeBack() {
    for (uint32_t i = 0; g.outside > 0 && i < g.alive_count; i++) {
        Thread &thread = g.threads[g.alive[i]];
        if (thread.state == State::Outside && s_returned[thread.number].exchange(0) != 0) {
            thread.state = State::Runnable;
            g.outside--;
        }
    }
}

int64_t NextDeadline() {
    int64_t next = kNever;
    for (uint32_t i = 0; i < g.alive_count; i++) {
        const Thread &thread = g.threads[g.alive[i]];
        if (thread.state == State::Blocked && thread.deadline < next)
            next = thread.deadline;
    }
    return next;
}

void Expire() {
    const int64_t now = Now();
    for (uint32_t i = 0; i < g.alive_count; i++) {
        Thread &thread = g.threads[g.alive[i]];
        if (thread.state == State::Blocked && thread.deadline <= now)
            WakeThread(&thread, Wake::TimedOut);
    }
}

// A semaphore can be posted where the scheduler does not see it: in a signal handler, in a forked child.
void LookAtSemaphores() {
    for (uint32_t i = 0; i < g.alive_count; i++) {
        Thread &thread = g.threads[g.alive[i]];
        int value = 0;
        if (thread.state == State::Blocked && thread.kind == Kind::Semaphore &&
            sem_getvalue(static_cast<sem_t *>(const_cast<void *>(thread.object)), &value) == 0 && value > 0)
            WakeThread(&thread, Wake::Retry);
    }
}

// Time passes for real until something happens outside or the next deadline is there.
void AwaitOutside(int64_t deadline) {
    const uint32_t event = s_event.load();
    TakeBack();
    const int64_t slice = 2000000;
    const int64_t before = RealNow();
    int64_t rest = deadline == kNever ? slice : deadline - Now();
    if (rest > slice)
        rest = slice;
    if (rest > 0 && event == s_event.load()) {
        FutexWait(&s_event, event, rest);
    }
    (void)PollWaiting(0);
    LookAtSemaphores();
    if (g.mapping->order.real_time == 0)
        g.now += RealNow() - before;
}

[[noreturn]] void Deadlock() {
    Stop(Fault::Deadlock, nullptr, "no thread can go on");
}

// Nobody can run: lets time pass, or finds that nobody ever will.
void Idle() {
    if (PollWaiting(0))
        return;
    const int64_t next = NextDeadline();
    if (g.outside > 0 || OutsidePossible() || (g.mapping->order.real_time != 0 && next != kNever)) {
        AwaitOutside(next);
        return;
    }
    if (next != kNever) {
        g.now = next > g.now ? next : g.now;
        return;
    }
    if (!s_settled) { // what was sent over the loopback interface may still be on its way
        s_settled = true;
        if (PollWaiting(20))
            return;
    }
    Deadlock();
}

// The clock runs ahead of threads that can run.
void PassDeadlines(Thread *me) {
    if (g.mapping->order.real_time != 0)
        return;
    const int64_t next = NextDeadline();
    if (next == kNever || g.late + (next - g.now) > g.mapping->order.lateness)
        return;
    if (!StrategyLate(me))
        return;
    g.late += next > g.now ? next - g.now : 0;
    g.now = next > g.now ? next : g.now;
    Expire();
}

// Who goes on after `me`: itself if it can run and is picked.
Thread *Choose(Thread *me) {
    Thread *enabled[kMaxThreads];
    Answer &answer = g.mapping->answer;
    if (++answer.points > g.mapping->order.max_points)
        Stop(Fault::Endless, me->site, "no end after %llu points",
             static_cast<unsigned long long>(g.mapping->order.max_points));
    g.now += kPointTime;
    s_settled = false;
    if (g.polls_stale) {
        g.polls_stale = false;
        (void)PollWaiting(0);
    }
    Expire();
    PassDeadlines(me);
    for (;;) {
        TakeBack();
        if (g.foreign) {
            g.foreign = false;
            LookAtSemaphores();
        }
        uint32_t count = 0;
        for (uint32_t i = 0; i < g.alive_count; i++) {
            Thread *thread = &g.threads[g.alive[i]];
            if (thread->state == State::Runnable)
                enabled[count++] = thread;
        }
        if (count > 0) {
            Thread *next = StrategyPick({me, enabled, count, me->state == State::Runnable});
            me->moments[Decision::Switch]++;
            if (next != me)
                next->in_row = 0;
            return next;
        }
        Idle();
        Expire();
    }
}

void Mix(uint64_t value) {
    uint64_t &hash = g.mapping->answer.hash;
    hash = (hash ^ value) * 0x9E3779B97F4A7C15u;
    hash ^= hash >> 29;
}

// Goes on as the strategy wants, and returns when it is this thread's turn again.
void GoOn(Thread *me, const Point &point, bool able) {
    const int saved = errno;
    me->site = point.site;
    me->in_row++;
    const uint32_t number = NumberOf(point.kind, point.object);
    const uint32_t made = g.mapping->answer.decisions;
    me->record =
        Trace(me, point, number,
              static_cast<uint8_t>((able ? 0 : Record::Blocked) | (point.after ? Record::After : 0)));
    Thread *next = Choose(me);
    Mix((uint64_t{me->number} << 48) | (uint64_t{next->number} << 32) |
        (uint64_t{static_cast<uint8_t>(point.op)} << 24) | (number & 0xFFFFFFu));
    uint8_t flags = 0;
    for (uint32_t i = made; i < g.mapping->answer.decisions && i < kMaxDecisions; i++)
        flags =
            static_cast<uint8_t>(flags | (g.mapping->made[i].type == Decision::Switch ? Record::Forced : 0) |
                                 (g.mapping->made[i].type == Decision::Late ? Record::WasLate : 0));
    TraceNext(me, next->number, flags);
    if (next != me) {
        HandTo(next);
        Park(me);
    }
    errno = saved;
}

// Finds a circle of threads, each of which waits without limit for a mutex that the next one holds.
void CheckCircle(const Thread *me) {
    const Thread *thread = me;
    for (uint32_t steps = 0; steps < g.alive_count; steps++) {
        if (thread->kind != Kind::Mutex || thread->deadline != kNever || thread->state != State::Blocked)
            return;
        const uint32_t owner = OwnerOf(Kind::Mutex, thread->object);
        if (owner == kNobody || g.threads[owner].state == State::Finished)
            return;
        thread = &g.threads[owner];
        if (thread == me)
            Stop(Fault::Deadlock, me->site,
                 steps == 0 ? "a thread waits for a mutex that it holds"
                            : "threads wait for each other's mutexes");
    }
}

} // namespace

int64_t RealNow() {
    timespec now;
    (void)GetReal().clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

int64_t Now() {
    if (g.forked || (g.mapping != nullptr && g.mapping->order.real_time != 0))
        return (g.forked ? g.now : 0) + RealNow() - s_start;
    return g.now;
}

// A negative time: no limit.
void FutexWait(std::atomic<uint32_t> *word, uint32_t value, int64_t nanoseconds) {
    timespec limit;
    limit.tv_sec = static_cast<time_t>(nanoseconds / kSecond);
    limit.tv_nsec = static_cast<long>(nanoseconds % kSecond);
    const int saved = errno;
    (void)GetReal().syscall(SYS_futex, word, FUTEX_WAIT, value, nanoseconds < 0 ? nullptr : &limit, nullptr,
                            0);
    errno = saved;
}

void FutexWake(std::atomic<uint32_t> *word) {
    const int saved = errno;
    (void)GetReal().syscall(SYS_futex, word, FUTEX_WAKE, 1, nullptr, nullptr, 0);
    errno = saved;
}

Thread *Enter() {
    Thread *me = t_self;
    if (me == nullptr || me->inside || !Active())
        return nullptr;
    me->inside = true;
    std::atomic<uint32_t> &holder = g.mapping->baton.holder;
    uint32_t word = holder.load();
    const uint32_t mine = (me->number << kNumberShift) | kRunning;
    if ((word & ((1u << kCountShift) - 1)) != mine || !holder.compare_exchange_strong(word, word | kInside))
        ComeBack(me);
    return me;
}

void Leave(Thread *me) {
    std::atomic<uint32_t> &holder = g.mapping->baton.holder;
    holder.store(Holder(me, kRunning, holder.load(std::memory_order_relaxed)));
    me->inside = false;
}

void PassPoint(Thread *me, const Point &point) {
    me->state = State::Runnable;
    me->wake = Wake::None;
    GoOn(me, point, true);
}

// pthread_cancel was called for this thread, and it has not switched that off.
static bool IsCancelDue(const Thread *me) {
    if (!me->cancelled)
        return false;
    int state = PTHREAD_CANCEL_ENABLE;
    (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    (void)pthread_setcancelstate(state, nullptr);
    return state == PTHREAD_CANCEL_ENABLE;
}

bool EndsByCancel(Op op) {
    return op == Op::Wait || op == Op::TimedWait || op == Op::Sleep || op == Op::Join || op == Op::Read ||
           op == Op::Write || op == Op::Poll || op == Op::Accept || op == Op::Connect;
}

Wake Block(Thread *me, const Point &point, int64_t deadline) {
    if (EndsByCancel(point.op) && IsCancelDue(me))
        return Wake::Cancelled;
    me->state = State::Blocked;
    me->wake = Wake::None;
    me->op = point.op;
    me->kind = point.kind;
    me->object = point.object;
    me->object_number = NumberOf(point.kind, point.object);
    me->deadline = deadline;
    me->order = ++g.waits;
    me->site = point.site;
    CheckCircle(me);
    GoOn(me, point, false);
    const Wake why = me->wake;
    me->wake = Wake::None;
    me->kind = Kind::None;
    me->object = nullptr;
    return why;
}

void WakeThread(Thread *thread, Wake why) {
    thread->state = State::Runnable;
    thread->wake = why;
    // Not before its mutex is free: it would only wait again.
    if (thread->mutex != nullptr && thread->kind == Kind::Condition &&
        OwnerOf(Kind::Mutex, thread->mutex) != kNobody) {
        thread->state = State::Blocked;
        thread->kind = Kind::Mutex;
        thread->op = Op::Relock;
        thread->object = thread->mutex;
        thread->object_number = NumberOf(Kind::Mutex, thread->mutex);
        thread->deadline = kNever;
    }
}

void WakeAll(const void *object, Wake why) {
    for (uint32_t i = 0; i < g.alive_count; i++) {
        Thread *thread = &g.threads[g.alive[i]];
        if (thread->state != State::Blocked || thread->object != object)
            continue;
        if (thread->op == Op::Relock) // why it was woken is already known
            thread->state = State::Runnable;
        else
            WakeThread(thread, why);
    }
}

Thread *PickWaiter(Thread *me, const void *object, Op op, Op other) {
    Thread *waiters[kMaxThreads];
    uint32_t count = 0;
    for (uint32_t i = 0; i < g.alive_count; i++) {
        Thread *thread = &g.threads[g.alive[i]];
        if (thread->state != State::Blocked || thread->object != object ||
            (thread->op != op && thread->op != other))
            continue;
        uint32_t place = count++;
        for (; place > 0 && waiters[place - 1]->order > thread->order; place--)
            waiters[place] = waiters[place - 1];
        waiters[place] = thread;
    }
    if (count == 0)
        return nullptr;
    return count == 1 ? waiters[0] : StrategyWaiter(me, waiters, count);
}

bool FailNow(Thread *me, uint32_t call) {
    return me != nullptr && (g.mapping->order.fail_calls & call) != 0 && StrategyFail(me);
}

Thread *NewThread() {
    if (g.count >= kMaxThreads)
        return nullptr;
    Thread *thread = &g.threads[g.count];
    *thread = Thread();
    thread->number = g.count++;
    thread->state = State::Runnable;
    thread->deadline = kNever;
    g.alive[g.alive_count++] = thread->number;
    g.mapping->answer.threads++;
    StrategyThread(thread);
    return thread;
}

Thread *FindThread(pthread_t handle) {
    for (uint32_t i = g.count - 1; i > 0; i--) // the newest first: handles are used again
        if (g.threads[i].handle == handle && !g.threads[i].joined)
            return &g.threads[i];
    return nullptr;
}

void ThreadReady(Thread *me) {
    me->tid = static_cast<pid_t>(::syscall(SYS_gettid));
    g.mapping->baton.task[me->number].store(me->tid);
    me->inside = true;
    t_self = me;
    Park(me);
    Leave(me);
}

void FinishThread(Thread *me) {
    if (g.alive_count == 1)
        return; // the process ends with it
    if (Enter() == nullptr)
        return;
    WakeAll(me, Wake::Signalled);
    RaceRelease(me, me);
    const Point point = {Op::Exit, Kind::Thread, me, nullptr, false};
    const uint32_t number = NumberOf(Kind::Thread, me);
    me->record = Trace(me, point, number, 0);
    me->state = State::Finished;
    uint32_t place = 0;
    while (g.alive[place] != me->number)
        place++;
    g.alive_count--;
    for (; place < g.alive_count; place++)
        g.alive[place] = g.alive[place + 1];
    Thread *next = Choose(me);
    Mix((uint64_t{me->number} << 48) | next->number);
    TraceNext(me, next->number, 0);
    g.leaving = me->number == 1 ? 0 : me->tid; // the first thread's entry stays as long as the process
    t_self = nullptr;
    HandTo(next);
}

void SetActive(bool active) {
    if (s_live_page == nullptr) {
        void *page = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (page == MAP_FAILED || madvise(page, 4096, MADV_WIPEONFORK) != 0)
            return;
        s_live_page = static_cast<volatile uint32_t *>(page);
        g_live = s_live_page;
    }
    *s_live_page = active ? 1 : 0;
}

void StartSchedule(Mapping *mapping) {
    g.mapping = mapping;
    g.now = 0;
    s_start = RealNow();
    g.count = 1; // numbers begin with 1
    g.mapping->answer.fault = Fault::None;
    StartTrace();
    StartStrategy();
    RaceStart();
    Thread *me = NewThread();
    me->handle = pthread_self();
    me->tid = getpid();
    mapping->baton.task[me->number].store(me->tid);
    t_self = me;
    mapping->baton.taken.store(0);
    mapping->baton.holder.store(Holder(me, kRunning, 0));
    SetActive(true);
}

void EndInChild() {
    if (t_self == nullptr || g.forked)
        return;
    g.now = Now();
    s_start = RealNow();
    g.forked = true;
}

namespace {
void FillWaiting() {
    Answer &answer = g.mapping->answer;
    answer.waiting = 0;
    for (uint32_t i = 0; i < g.alive_count && answer.waiting < kMaxWaiting; i++) {
        const Thread &thread = g.threads[g.alive[i]];
        Waiting &entry = g.mapping->waiting[answer.waiting++];
        const bool blocked = thread.state == State::Blocked;
        entry = Waiting();
        entry.thread = static_cast<uint16_t>(thread.number);
        entry.op = blocked ? thread.op : Op::None;
        entry.kind = blocked ? thread.kind : Kind::None;
        entry.object = thread.object_number;
        entry.owner = static_cast<uint16_t>(blocked ? OwnerOf(thread.kind, thread.object) : kNobody);
        if (blocked && thread.kind == Kind::Thread)
            entry.owner = static_cast<uint16_t>(static_cast<const Thread *>(thread.object)->number);
        entry.record = thread.record;
        entry.site = reinterpret_cast<uintptr_t>(thread.site);
    }
}
} // namespace

void Stop(Fault fault, const void *site, const char *format, ...) {
    SetActive(false);
    Answer &answer = g.mapping->answer;
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf(answer.text, sizeof answer.text, format, arguments);
    va_end(arguments);
    answer.site = reinterpret_cast<uintptr_t>(site);
    FillWaiting();
    answer.fault = fault;
    (void)GetReal().syscall(SYS_exit_group, kStoppedStatus);
    for (;;) {
    }
}

void NoteMisuse(const char *format, ...) {
    Answer &answer = g.mapping->answer;
    size_t used = strnlen(answer.notes, sizeof answer.notes - 1);
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(answer.notes + used, sizeof answer.notes - used, format, arguments);
    va_end(arguments);
    used += length > 0 ? static_cast<size_t>(length) : 0;
    if (used + 1 < sizeof answer.notes) {
        answer.notes[used] = '\n';
        answer.notes[used + 1] = 0;
    }
    if (answer.fault == Fault::None)
        answer.fault = Fault::Misuse;
}

} // namespace explore
