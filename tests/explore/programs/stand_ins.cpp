// Every call that vyx-explore stands in for, with the results that the platform's own has: run alone and explored, the
// program ends with 0.
#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/futex.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <threads.h>
#include <time.h>
#include <unistd.h>

#define CHECK(condition)                                                                                     \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            std::fprintf(stderr, "line %d: not so: %s (errno %d)\n", __LINE__, #condition, errno);           \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (false)

namespace {

timespec After(clockid_t clock, long milliseconds) {
    timespec at;
    CHECK(clock_gettime(clock, &at) == 0);
    at.tv_nsec += milliseconds * 1000000;
    at.tv_sec += at.tv_nsec / 1000000000;
    at.tv_nsec %= 1000000000;
    return at;
}

template <class Routine>
pthread_t Start(Routine *routine) {
    pthread_t thread;
    CHECK(pthread_create(
              &thread, nullptr, [](void *it) -> void * { return (*static_cast<Routine *>(it))(), it; },
              routine) == 0);
    return thread;
}

void Join(pthread_t thread) {
    CHECK(pthread_join(thread, nullptr) == 0);
}

void Mutexes() {
    pthread_mutexattr_t attributes;
    pthread_mutex_t recursive;
    pthread_mutex_t checking;
    CHECK(pthread_mutexattr_init(&attributes) == 0);
    CHECK(pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE) == 0);
    CHECK(pthread_mutex_init(&recursive, &attributes) == 0);
    CHECK(pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK) == 0);
    CHECK(pthread_mutex_init(&checking, &attributes) == 0);
    CHECK(pthread_mutex_lock(&recursive) == 0 && pthread_mutex_lock(&recursive) == 0);
    CHECK(pthread_mutex_lock(&checking) == 0 && pthread_mutex_lock(&checking) == EDEADLK);
    auto other = [&] {
        const timespec at = After(CLOCK_REALTIME, 5);
        CHECK(pthread_mutex_trylock(&recursive) == EBUSY);
        CHECK(pthread_mutex_timedlock(&recursive, &at) == ETIMEDOUT);
        const timespec monotonic = After(CLOCK_MONOTONIC, 5);
        CHECK(pthread_mutex_clocklock(&checking, CLOCK_MONOTONIC, &monotonic) == ETIMEDOUT);
        CHECK(pthread_mutex_unlock(&checking) == EPERM);
    };
    Join(Start(&other));
    CHECK(pthread_mutex_unlock(&recursive) == 0 && pthread_mutex_unlock(&recursive) == 0);
    CHECK(pthread_mutex_unlock(&recursive) == EPERM && pthread_mutex_unlock(&checking) == 0);
    CHECK(pthread_mutex_destroy(&recursive) == 0 && pthread_mutex_destroy(&checking) == 0);
}

void Conditions() {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    int stage = 0;
    auto other = [&] {
        CHECK(pthread_mutex_lock(&mutex) == 0);
        while (stage == 0)
            CHECK(pthread_cond_wait(&condition, &mutex) == 0);
        stage = 2;
        CHECK(pthread_mutex_unlock(&mutex) == 0 && pthread_cond_signal(&condition) == 0);
    };
    const pthread_t thread = Start(&other);
    CHECK(pthread_mutex_lock(&mutex) == 0);
    stage = 1;
    CHECK(pthread_cond_broadcast(&condition) == 0);
    while (stage != 2)
        CHECK(pthread_cond_wait(&condition, &mutex) == 0);
    timespec at = After(CLOCK_REALTIME, 5);
    CHECK(pthread_cond_timedwait(&condition, &mutex, &at) == ETIMEDOUT);
    at = After(CLOCK_MONOTONIC, 5);
    CHECK(pthread_cond_clockwait(&condition, &mutex, CLOCK_MONOTONIC, &at) == ETIMEDOUT);
    at.tv_nsec = -1;
    CHECK(pthread_cond_timedwait(&condition, &mutex, &at) == EINVAL);
    CHECK(pthread_mutex_unlock(&mutex) == 0);
    Join(thread);
    CHECK(pthread_cond_destroy(&condition) == 0 && pthread_mutex_destroy(&mutex) == 0);
}

void Semaphores() {
    sem_t sem;
    int value = -1;
    CHECK(sem_init(&sem, 0, 1) == 0 && sem_wait(&sem) == 0 && sem_trywait(&sem) == -1 && errno == EAGAIN);
    const timespec at = After(CLOCK_REALTIME, 5);
    CHECK(sem_timedwait(&sem, &at) == -1 && errno == ETIMEDOUT);
    auto poster = [&] { CHECK(sem_post(&sem) == 0); };
    const pthread_t thread = Start(&poster);
    const timespec later = After(CLOCK_MONOTONIC, 50000);
    CHECK(sem_clockwait(&sem, CLOCK_MONOTONIC, &later) == 0);
    Join(thread);
    CHECK(sem_getvalue(&sem, &value) == 0 && value == 0 && sem_destroy(&sem) == 0);
    char name[64];
    std::snprintf(name, sizeof name, "/stand_ins_%d", getpid());
    sem_t *named = sem_open(name, O_CREAT | O_EXCL, 0600, 2);
    CHECK(named != SEM_FAILED && sem_open(name, O_CREAT | O_EXCL, 0600, 1) == SEM_FAILED && errno == EEXIST);
    CHECK(sem_open(name, 0) == named && sem_close(named) == 0 && sem_unlink(name) == 0);
    CHECK(sem_unlink(name) == -1 && errno == ENOENT && sem_open(name, 0) == SEM_FAILED && errno == ENOENT);
    CHECK(sem_wait(named) == 0 && sem_trywait(named) == 0 && sem_close(named) == 0);
    CHECK(sem_open("/a/b", O_CREAT, 0600, 1) == SEM_FAILED && errno == EINVAL);
}

std::atomic<int> s_once_calls;
thread_local int s_local;

void Threads() {
    pthread_once_t once = PTHREAD_ONCE_INIT;
    static pthread_once_t *const control = &once;
    auto routine = [&] { CHECK(pthread_once(control, [] { s_once_calls++; }) == 0); };
    const pthread_t first = Start(&routine);
    const pthread_t second = Start(&routine);
    Join(first);
    Join(second);
    CHECK(s_once_calls == 1);
    static std::atomic<int> destroyed;
    pthread_key_t key;
    CHECK(pthread_key_create(&key, [](void *) { destroyed++; }) == 0);
    auto holder = [&] { CHECK(pthread_setspecific(key, &destroyed) == 0 && s_local++ == 0); };
    Join(Start(&holder));
    CHECK(destroyed == 1 && s_local == 0);
    sem_t never;
    CHECK(sem_init(&never, 0, 0) == 0);
    auto waiter = [&] { sem_wait(&never); };
    pthread_t waiting = Start(&waiter);
    void *result = nullptr;
    const timespec at = After(CLOCK_REALTIME, 5);
    CHECK(pthread_tryjoin_np(waiting, &result) == EBUSY &&
          pthread_timedjoin_np(waiting, &result, &at) == ETIMEDOUT);
    CHECK(pthread_cancel(waiting) == 0 && pthread_join(waiting, &result) == 0 && result == PTHREAD_CANCELED);
    auto leaver = [] { pthread_exit(nullptr); };
    Join(Start(&leaver));
    CHECK(pthread_detach(Start(&leaver)) == 0);
    mtx_t mutex;
    CHECK(mtx_init(&mutex, mtx_plain) == thrd_success && mtx_lock(&mutex) == thrd_success);
    thrd_t thread;
    const auto c_routine = [](void *it) { return mtx_lock(static_cast<mtx_t *>(it)) + 5; };
    CHECK(thrd_create(&thread, c_routine, &mutex) == thrd_success && mtx_unlock(&mutex) == thrd_success);
    int status = 0;
    CHECK(thrd_join(thread, &status) == thrd_success && status == thrd_success + 5);
}

void Others() {
    pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
    pthread_barrier_t barrier;
    pthread_spinlock_t spin;
    CHECK(pthread_barrier_init(&barrier, nullptr, 2) == 0 && pthread_spin_init(&spin, 0) == 0);
    CHECK(pthread_rwlock_rdlock(&lock) == 0 && pthread_rwlock_tryrdlock(&lock) == 0);
    CHECK(pthread_rwlock_trywrlock(&lock) == EBUSY && pthread_rwlock_unlock(&lock) == 0);
    std::atomic<int> serial{0};
    uint32_t word = 0;
    auto other = [&] {
        CHECK(pthread_rwlock_wrlock(&lock) == 0 && pthread_rwlock_unlock(&lock) == 0);
        CHECK(pthread_spin_lock(&spin) == 0 && pthread_spin_unlock(&spin) == 0);
        serial += pthread_barrier_wait(&barrier) == PTHREAD_BARRIER_SERIAL_THREAD ? 1 : 0;
        __atomic_store_n(&word, 1, __ATOMIC_SEQ_CST);
        CHECK(syscall(SYS_futex, &word, FUTEX_WAKE, 1, nullptr, nullptr, 0) >= 0);
    };
    const pthread_t thread = Start(&other);
    CHECK(pthread_rwlock_unlock(&lock) == 0);
    serial += pthread_barrier_wait(&barrier) == PTHREAD_BARRIER_SERIAL_THREAD ? 1 : 0;
    while (__atomic_load_n(&word, __ATOMIC_SEQ_CST) == 0)
        CHECK(syscall(SYS_futex, &word, FUTEX_WAIT, 0, nullptr, nullptr, 0) == 0 || errno == EAGAIN);
    uint32_t quiet = 0;
    const timespec span = {0, 5000000};
    CHECK(syscall(SYS_futex, &quiet, FUTEX_WAIT, 0, &span, nullptr, 0) == -1 && errno == ETIMEDOUT);
    Join(thread);
    CHECK(serial == 1 && pthread_barrier_destroy(&barrier) == 0 && pthread_rwlock_destroy(&lock) == 0);
}

void Descriptors() {
    int ends[2];
    char text[8] = {};
    CHECK(pipe(ends) == 0);
    const int counter = eventfd(0, 0);
    static char block[200000];
    static char copy[sizeof block];
    auto writer = [&] {
        CHECK(write(ends[1], "ab", 2) == 2);
        const uint64_t one = 1;
        CHECK(write(counter, &one, sizeof one) == sizeof one);
        CHECK(write(ends[1], block, sizeof block) == sizeof block); // more than a pipe holds
        CHECK(close(ends[1]) == 0);
    };
    const pthread_t thread = Start(&writer);
    CHECK(read(ends[0], text, 2) == 2 && memcmp(text, "ab", 2) == 0);
    const int watched = epoll_create1(0);
    epoll_event event = {EPOLLIN, {}};
    CHECK(epoll_ctl(watched, EPOLL_CTL_ADD, counter, &event) == 0 && epoll_wait(watched, &event, 1, -1) == 1);
    uint64_t count = 0;
    CHECK(read(counter, &count, sizeof count) == sizeof count && count == 1 &&
          epoll_wait(watched, &event, 1, 5) == 0);
    for (size_t done = 0; done < sizeof block;) {
        const ssize_t got = read(ends[0], copy + done, sizeof block - done);
        CHECK(got > 0);
        done += static_cast<size_t>(got);
    }
    fd_set set;
    FD_ZERO(&set);
    FD_SET(ends[0], &set);
    timeval limit = {1, 0};
    CHECK(select(ends[0] + 1, &set, nullptr, nullptr, &limit) == 1 && read(ends[0], text, 1) == 0);
    pollfd poll_counter = {counter, POLLIN, 0};
    CHECK(poll(&poll_counter, 1, 5) == 0);
    Join(thread);
    CHECK(close(ends[0]) == 0 && close(counter) == 0 && close(watched) == 0);
}

void Sockets() {
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    CHECK(bind(listener, reinterpret_cast<sockaddr *>(&address), length) == 0 && listen(listener, 1) == 0);
    CHECK(getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length) == 0);
    auto server = [&] {
        const int peer = accept(listener, nullptr, nullptr);
        char letter = 0;
        CHECK(peer >= 0 && recv(peer, &letter, 1, 0) == 1 && send(peer, &letter, 1, 0) == 1 &&
              close(peer) == 0);
    };
    const pthread_t thread = Start(&server);
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    CHECK(connect(client, reinterpret_cast<sockaddr *>(&address), length) == 0 &&
          send(client, "x", 1, 0) == 1);
    char letter = 0;
    CHECK(recv(client, &letter, 1, 0) == 1 && letter == 'x' && recv(client, &letter, 1, 0) == 0);
    Join(thread);
    const int quiet = socket(AF_INET, SOCK_DGRAM, 0);
    const timeval limit = {0, 5000};
    CHECK(setsockopt(quiet, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit) == 0);
    CHECK(recv(quiet, &letter, 1, 0) == -1 && errno == EAGAIN);
    CHECK(close(client) == 0 && close(listener) == 0 && close(quiet) == 0);
}

void Clocks() {
    timespec before;
    timespec now;
    CHECK(clock_gettime(CLOCK_MONOTONIC, &before) == 0);
    const timespec span = {0, 1000000};
    // Here and below it is the sleeping calls themselves that are tried.
    CHECK(nanosleep(&span, nullptr) == 0 && usleep(1000) == 0 && clock_gettime(CLOCK_MONOTONIC, &now) == 0);
    CHECK(now.tv_sec - before.tv_sec >= span.tv_sec && now.tv_sec - before.tv_sec < span.tv_sec + 100);
    const timespec at = After(CLOCK_REALTIME, 5);
    CHECK(clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &at, nullptr) == 0); // tried itself
    timeval day_time;
    CHECK(gettimeofday(&day_time, nullptr) == 0 && day_time.tv_sec >= at.tv_sec &&
          time(nullptr) + 1 >= day_time.tv_sec); // a coarser clock
}

void Children() {
    sem_t *shared = sem_open("/stand_ins_child", O_CREAT, 0600, 0);
    CHECK(shared != SEM_FAILED && sem_unlink("/stand_ins_child") == 0);
    const pid_t child = fork();
    if (child == 0) {
        timespec now;
        const timespec span = {0, 1000000};
        CHECK(clock_gettime(CLOCK_REALTIME, &now) == 0 && nanosleep(&span, nullptr) == 0); // tried itself
        const timespec at = After(CLOCK_REALTIME, 5);
        sem_t never;
        CHECK(sem_init(&never, 0, 0) == 0 && sem_timedwait(&never, &at) == -1 && errno == ETIMEDOUT);
        _exit(sem_post(shared) == 0 ? 7 : 1);
    }
    int status = 0;
    CHECK(sem_wait(shared) == 0 && waitpid(child, &status, 0) == child && WEXITSTATUS(status) == 7);
    CHECK(sem_close(shared) == 0);
}

} // namespace

int main() {
    Mutexes();
    Conditions();
    Semaphores();
    Threads();
    Others();
    Descriptors();
    Sockets();
    Clocks();
    Children();
    return 0;
}
