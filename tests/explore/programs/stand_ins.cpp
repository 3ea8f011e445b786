// Calls that vyx-explore stands in for and that the library and an interpreter seldom make, with the results that the
// platform's own have: run alone and explored, the program ends with 0.
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <linux/futex.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <threads.h>
#include <time.h>
#include <unistd.h>

#include "../check.h"
#include "../faulty/run_threads.h"

namespace {

constexpr timespec kPast = {1, 0};

void Mutexes() {
    pthread_mutex_t recursive = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
    pthread_mutex_t checking = PTHREAD_ERRORCHECK_MUTEX_INITIALIZER_NP;
    CHECK(pthread_mutex_lock(&recursive) == 0 && pthread_mutex_lock(&recursive) == 0);
    CHECK(pthread_mutex_lock(&checking) == 0 && pthread_mutex_lock(&checking) == EDEADLK);
    RunThreads([&] {
        CHECK(pthread_mutex_trylock(&recursive) == EBUSY);
        CHECK(pthread_mutex_timedlock(&recursive, &kPast) == ETIMEDOUT);
        CHECK(pthread_mutex_unlock(&checking) == EPERM);
    });
    CHECK(pthread_mutex_unlock(&recursive) == 0 && pthread_mutex_unlock(&recursive) == 0);
    CHECK(pthread_mutex_unlock(&recursive) == EPERM && pthread_mutex_unlock(&checking) == 0);
}

void Limits() {
    const timespec invalid = {0, -1};
    sem_t sem;
    const Guard guard(g_mutex);
    CHECK(pthread_cond_timedwait(g_changed.native_handle(), g_mutex.native_handle(), &invalid) == EINVAL);
    CHECK(pthread_cond_timedwait(g_changed.native_handle(), g_mutex.native_handle(), &kPast) == ETIMEDOUT);
    CHECK(sem_init(&sem, 0, 0) == 0 && sem_timedwait(&sem, &kPast) == -1 && errno == ETIMEDOUT);
}

void NamedSemaphores() {
    char name[64];
    std::snprintf(name, sizeof name, "/stand_ins_%d", getpid());
    sem_t *named = sem_open(name, O_CREAT | O_EXCL, 0600, 2);
    CHECK(named != SEM_FAILED && sem_open(name, O_CREAT | O_EXCL, 0600, 1) == SEM_FAILED && errno == EEXIST);
    CHECK(sem_open(name, 0) == named && sem_close(named) == 0 && sem_unlink(name) == 0);
    CHECK(sem_unlink(name) == -1 && errno == ENOENT && sem_open(name, 0) == SEM_FAILED && errno == ENOENT);
    CHECK(sem_open(name, O_CREAT, 0600, 0) != named && sem_unlink(name) == 0); // the first one is still open
    CHECK(sem_wait(named) == 0 && sem_trywait(named) == 0 && sem_close(named) == 0);
    CHECK(sem_open("/a/b", O_CREAT, 0600, 1) == SEM_FAILED && errno == EINVAL);
}

std::atomic<int> s_once_calls;
std::atomic<int> s_destroyed;

void Threads() {
    pthread_once_t once = PTHREAD_ONCE_INIT;
    pthread_key_t key;
    CHECK(pthread_key_create(&key, [](void *) { s_destroyed++; }) == 0);
    const auto routine = [&] {
        CHECK(pthread_once(&once, [] { s_once_calls += sched_yield() + 1; }) == 0 && s_once_calls == 1);
        CHECK(pthread_setspecific(key, &once) == 0);
    };
    RunThreads(routine, routine);
    CHECK(s_destroyed == 2);
    sem_t never;
    pthread_t waiter;
    const auto wait = [](void *sem) -> void * { return sem_wait(static_cast<sem_t *>(sem)), sem; };
    CHECK(sem_init(&never, 0, 0) == 0 && pthread_create(&waiter, nullptr, wait, &never) == 0);
    void *result = nullptr;
    CHECK(pthread_tryjoin_np(waiter, &result) == EBUSY &&
          pthread_timedjoin_np(waiter, &result, &kPast) == ETIMEDOUT);
    CHECK(pthread_cancel(waiter) == 0 && pthread_join(waiter, &result) == 0 && result == PTHREAD_CANCELED);
    thrd_t thread;
    int status = 0;
    CHECK(thrd_create(
              &thread, [](void *) -> int { thrd_exit(5); }, nullptr) == thrd_success);
    CHECK(thrd_join(thread, &status) == thrd_success && status == 5);
}

void Others() {
    pthread_rwlock_t lock = PTHREAD_RWLOCK_INITIALIZER;
    pthread_barrier_t barrier;
    pthread_spinlock_t spin;
    CHECK(pthread_barrier_init(&barrier, nullptr, 2) == 0 && pthread_spin_init(&spin, 0) == 0);
    std::atomic<int> serial{0};
    int written = 0;
    uint32_t word = 0;
    uint32_t quiet = 0;
    const auto meet = [&] {
        CHECK(pthread_rwlock_rdlock(&lock) == 0 && pthread_rwlock_tryrdlock(&lock) == 0);
        CHECK(pthread_rwlock_trywrlock(&lock) == EBUSY && pthread_rwlock_unlock(&lock) == 0);
        CHECK(pthread_rwlock_unlock(&lock) == 0 && pthread_rwlock_wrlock(&lock) == 0);
        CHECK(++written > 0 && pthread_rwlock_unlock(&lock) == 0);
        CHECK(pthread_spin_lock(&spin) == 0 && sched_yield() == 0 && pthread_spin_unlock(&spin) == 0);
        serial += pthread_barrier_wait(&barrier) == PTHREAD_BARRIER_SERIAL_THREAD ? 1 : 0;
        CHECK(written == 2);
    };
    RunThreads(
        [&] {
            meet();
            __atomic_store_n(&word, 1, __ATOMIC_SEQ_CST);
            CHECK(syscall(SYS_futex, &word, FUTEX_WAKE, 1, nullptr, nullptr, 0) >= 0);
        },
        [&] {
            meet();
            while (__atomic_load_n(&word, __ATOMIC_SEQ_CST) == 0)
                CHECK(syscall(SYS_futex, &word, FUTEX_WAIT, 0, nullptr, nullptr, 0) == 0 || errno == EAGAIN);
            const timespec span = {0, 5000000};
            CHECK(syscall(SYS_futex, &quiet, FUTEX_WAIT, 0, &span, nullptr, 0) == -1 && errno == ETIMEDOUT);
        });
    CHECK(serial == 1);
}

} // namespace

int main() {
    Mutexes();
    Limits();
    NamedSemaphores();
    Threads();
    Others();
}
