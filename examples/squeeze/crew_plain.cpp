// Over the platform's threads: what a program writes that has no library for it.
#include <deque>
#include <pthread.h>
#include <queue>
#include <unistd.h>
#include <vector>

#include "crew.h"

namespace squeeze {

namespace {
struct Later {
    bool operator()(const Block *a, const Block *b) const { return a->number > b->number; }
};
} // namespace

struct Crew::Inside {
    size_t limit = 0;
    size_t idle = 0;
    bool ending = false;
    std::vector<pthread_t> threads;
    std::deque<Block *> given;
    std::priority_queue<Block *, std::vector<Block *>, Later> finished;
    pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER; // of all of the above
    pthread_cond_t work = PTHREAD_COND_INITIALIZER;
    pthread_cond_t result = PTHREAD_COND_INITIALIZER;

    void Work();
};

void Crew::Inside::Work() {
    (void)pthread_mutex_lock(&lock);
    for (;;) {
        idle++;
        while (given.empty() && !ending)
            (void)pthread_cond_wait(&work, &lock);
        idle--;
        if (ending)
            break;
        Block *block = given.front();
        given.pop_front();
        (void)pthread_mutex_unlock(&lock);
        block->Compress();
        (void)pthread_mutex_lock(&lock);
        finished.push(block);
        (void)pthread_cond_signal(&result);
    }
    (void)pthread_mutex_unlock(&lock);
}

Crew::Crew() : m_inside(std::make_unique<Inside>()) {}

Crew::~Crew() {
    (void)pthread_mutex_lock(&m_inside->lock);
    m_inside->ending = true;
    (void)pthread_cond_broadcast(&m_inside->work);
    (void)pthread_mutex_unlock(&m_inside->lock);
    for (const pthread_t thread : m_inside->threads)
        (void)pthread_join(thread, nullptr);
}

int Crew::Processors() {
    return static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN));
}

bool Crew::Start(int threads) {
    m_inside->limit = static_cast<size_t>(threads);
    return true;
}

bool Crew::Give(Block *block) {
    Inside &inside = *m_inside;
    (void)pthread_mutex_lock(&inside.lock);
    inside.given.push_back(block);
    const bool more = inside.idle < inside.given.size() && inside.threads.size() < inside.limit;
    (void)pthread_cond_signal(&inside.work);
    (void)pthread_mutex_unlock(&inside.lock);
    if (!more)
        return true;
    pthread_t thread{};
    const auto run = [](void *self) -> void * {
        static_cast<Inside *>(self)->Work();
        return nullptr;
    };
    if (pthread_create(&thread, nullptr, run, &inside) == 0)
        inside.threads.push_back(thread); // only here and in the destructor, by the one thread that gives
    return !inside.threads.empty();
}

Block *Crew::Take() {
    Inside &inside = *m_inside;
    (void)pthread_mutex_lock(&inside.lock);
    while (inside.finished.empty())
        (void)pthread_cond_wait(&inside.result, &inside.lock);
    Block *block = inside.finished.top();
    inside.finished.pop();
    (void)pthread_mutex_unlock(&inside.lock);
    return block;
}

} // namespace squeeze
