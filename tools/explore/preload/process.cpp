// The process: how exploration begins, the server that forks one child for each schedule, forks of the program's own,
// and what is checked at the exit.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include "calls.h"

namespace explore {

void PrepareThreads();
void PrepareMainThread();

namespace {

using Main = int (*)(int, char **, char **);

Mapping *s_mapping;
int s_commands = -1;
int s_answers = -1;
pid_t s_process;

constexpr int64_t kGrace = kSecond / 10; // after which a thread counts as outside
constexpr uint64_t kGraceTicks = 10;     // the same in the ticks of /proc
constexpr int kLookMilliseconds = 50;    // how often the server looks

Mapping *OpenMapping() {
    const char *text = getenv(kMappingVariable);
    if (text == nullptr)
        return nullptr;
    const int descriptor = atoi(text);
    void *memory = mmap(nullptr, sizeof(Mapping), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
    if (memory == MAP_FAILED)
        return nullptr;
    (void)GetReal().close(descriptor);
    auto *mapping = static_cast<Mapping *>(memory);
    return mapping->order.layout == kLayout ? mapping : nullptr;
}

// Programs that this one starts are not explored.
void CleanEnvironment() {
    (void)unsetenv(kMappingVariable);
    (void)unsetenv(kServerVariable);
    const char *rest = getenv("VYX_EXPLORE_PRELOAD"); // what LD_PRELOAD was before
    if (rest != nullptr && *rest != 0)
        (void)setenv("LD_PRELOAD", rest, 1);
    else
        (void)unsetenv("LD_PRELOAD");
    (void)unsetenv("VYX_EXPLORE_PRELOAD");
}

// The switch of one core is several times cheaper than that between two.
void StayOnOneCore() {
    cpu_set_t cores;
    CPU_ZERO(&cores);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &cores);
    (void)sched_setaffinity(0, sizeof cores, &cores);
}

void BeginSchedule() {
    StayOnOneCore();
    s_process = getpid();
    StartSchedule(s_mapping);
    PrepareMainThread();
}

// The running thread has stayed away for long: a parked one decides who goes on.
void TakeBaton(uint32_t word) {
    Baton &baton = s_mapping->baton;
    const uint32_t away = (word >> 2) & (kMaxThreads - 1);
    for (uint32_t i = 1; i < kMaxThreads; i++) {
        if (i == away || baton.parked[i].load() == 0)
            continue;
        const uint32_t taken = (word & ~0xFFFu) | (i << 2) | 1u;
        if (!baton.holder.compare_exchange_strong(word, taken))
            return;
        baton.taken.store(away + 1);
        baton.go[i].store(1);
        FutexWake(&baton.go[i]);
        return;
    }
}

// A thread as /proc shows it.
struct Sight {
    char state;     // R: it runs, or would if it were given a core; S: it sleeps
    uint64_t ticks; // of a core that it has used
};

Sight LookAt(pid_t child, pid_t task) {
    const Real &real = GetReal();
    char path[64];
    char text[512];
    (void)snprintf(path, sizeof path, "/proc/%d/task/%d/stat", child, task);
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    const ssize_t count = descriptor < 0 ? -1 : real.read(descriptor, text, sizeof text - 1);
    if (descriptor >= 0)
        (void)real.close(descriptor);
    text[count > 0 ? count : 0] = 0;
    const char *rest = strrchr(text, ')'); // after the name, which may hold anything
    Sight sight = {'?', 0};
    unsigned long user = 0;
    unsigned long system = 0;
    if (rest != nullptr && sscanf(rest, ") %c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &sight.state,
                                  &user, &system) == 3)
        sight.ticks = user + system;
    return sight;
}

// Watches the holder of the baton. It is outside when it has slept for long, or used a core for long, without a point;
// not if it is only kept from a core by other processes.
class Watcher {
  public:
    explicit Watcher(pid_t child) : m_child(child) {}

    void Look() {
        const uint32_t word = s_mapping->baton.holder.load();
        const uint32_t number = (word >> 2) & (kMaxThreads - 1);
        if ((word & 3) != 0 || number == 0) {
            m_word = 0;
            return;
        }
        const Sight sight = LookAt(m_child, s_mapping->baton.task[number].load());
        const int64_t now = RealNow();
        if (word != m_word) {
            m_word = word;
            m_ticks = sight.ticks;
            m_awake = now;
        }
        if (sight.state != 'S')
            m_awake = now;
        if (now - m_awake >= kGrace || sight.ticks - m_ticks >= kGraceTicks)
            TakeBaton(word);
    }

  private:
    pid_t m_child;
    uint32_t m_word = 0;  // the holder's, as it was at the last look
    uint64_t m_ticks = 0; // when it became so
    int64_t m_awake = 0;  // when the thread was last seen not to sleep
};

// Waits for the child that runs a schedule; its status as waitpid has it.
int Watch(pid_t child) {
    const Real &real = GetReal();
    const auto descriptor = static_cast<int>(real.syscall(SYS_pidfd_open, child, 0));
    Watcher watcher(child);
    for (;;) {
        pollfd poll = {descriptor, POLLIN, 0};
        if (descriptor < 0 || real.poll(&poll, 1, kLookMilliseconds) != 0)
            break;
        watcher.Look();
    }
    int status = 0;
    while (real.waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (descriptor >= 0)
        (void)real.close(descriptor);
    return status;
}

// Forks a child for each command, in which this returns. The front end closes the pipe when it is done.
void Serve() {
    const Real &real = GetReal();
    char command = 0;
    const int ready = 0;
    if (real.write(s_answers, &ready, sizeof ready) != sizeof ready)
        real.syscall(SYS_exit_group, 1);
    while (real.read(s_commands, &command, 1) == 1) {
        s_mapping->baton.holder.store(0);
        for (std::atomic<uint8_t> &parked : s_mapping->baton.parked)
            parked.store(0);
        const pid_t child = real.fork();
        if (child == 0) {
            (void)prctl(PR_SET_PDEATHSIG, SIGKILL);
            (void)real.close(s_commands);
            (void)real.close(s_answers);
            return;
        }
        s_mapping->child.store(child);
        const int status = child > 0 ? Watch(child) : -1;
        s_mapping->child.store(0);
        if (real.write(s_answers, &status, sizeof status) != sizeof status)
            break;
    }
    real.syscall(SYS_exit_group, 0);
}

__attribute__((constructor)) void Prepare() {
    s_mapping = OpenMapping();
    if (s_mapping == nullptr)
        return;
    const char *server = getenv(kServerVariable);
    const char *comma = server == nullptr ? nullptr : strchr(server, ',');
    if (comma != nullptr) {
        s_commands = atoi(server);
        s_answers = atoi(comma + 1);
    }
    g.mapping = s_mapping;
    CleanEnvironment();
    PrepareThreads();
    FindUnwinder();
    (void)pthread_atfork(nullptr, nullptr, EndInChild);
}

__attribute__((destructor)) void AtExit() {
    if (!Active() || getpid() != s_process)
        return;
    g.mapping->answer.blocks = g.blocks;
    CheckLeaks();
}

// A call that waits for another process. While it is away the others may go on; see scheduler.h.
template <class Call>
auto Outside(const void *site, const Call &call) {
    Thread *me = Enter();
    if (me != nullptr) {
        PassPoint(me, {Op::Outside, Kind::None, nullptr, site, false});
        Leave(me);
    }
    return call();
}

} // namespace

void CheckLeaks() {
    if (g.mapping->order.check_leaks == 0 || g.mapping->answer.fault != Fault::None)
        return;
    for (uint32_t i = 1; i < g.count; i++) {
        const Thread &thread = g.threads[i];
        if (i > 1 && thread.start != nullptr && !thread.detached && !thread.joined)
            Stop(Fault::Leak, nullptr, "thread %u was neither joined nor detached", i);
    }
    if (g.blocks > g.mapping->order.usual_blocks)
        Stop(Fault::Leak, nullptr, "%lld blocks of memory are left, %lld in other schedules",
             static_cast<long long>(g.blocks), static_cast<long long>(g.mapping->order.usual_blocks));
    if (OpenSemaphores() > 0)
        Stop(Fault::Leak, nullptr, "%u semaphores are left", OpenSemaphores());
    if (OpenDescriptors() > 0)
        Stop(Fault::Leak, nullptr, "%u descriptors are left open", OpenDescriptors());
}

} // namespace explore

using namespace explore;

// Constructors of libraries have run, those of the program have not.
EXPLORE_API int __libc_start_main(Main program, int count, char **arguments, void (*init)(), void (*fini)(),
                                  void (*loader_fini)(), void *stack) {
    using Start = int (*)(Main, int, char **, void (*)(), void (*)(), void (*)(), void *);
    auto start = reinterpret_cast<Start>(dlsym(RTLD_NEXT, "__libc_start_main"));
    if (s_mapping != nullptr) {
        if (s_commands >= 0)
            Serve();
        BeginSchedule();
    }
    return start(program, count, arguments, init, fini, loader_fini, stack);
}

EXPLORE_API pid_t fork() noexcept {
    Thread *me = Enter();
    if (me != nullptr) {
        PassPoint(me, {Op::Fork, Kind::None, nullptr, EXPLORE_SITE, false});
        Leave(me);
    }
    return GetReal().fork(); // EndInChild is the first thing that happens in the child
}

EXPLORE_API pid_t waitpid(pid_t child, int *status, int options) {
    return Outside(EXPLORE_SITE, [=] { return GetReal().waitpid(child, status, options); });
}

EXPLORE_API pid_t wait(int *status) {
    return Outside(EXPLORE_SITE, [=] { return GetReal().wait(status); });
}

EXPLORE_API pid_t wait4(pid_t child, int *status, int options, rusage *usage) noexcept {
    return Outside(EXPLORE_SITE, [=] { return GetReal().wait4(child, status, options, usage); });
}

EXPLORE_API int waitid(idtype_t type, id_t id, siginfo_t *information, int options) {
    return Outside(EXPLORE_SITE, [=] { return GetReal().waitid(type, id, information, options); });
}
