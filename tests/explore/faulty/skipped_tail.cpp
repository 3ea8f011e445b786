// Fault: a ring of lines that lie in one piece. What is skipped at its end, where a line does not fit, is not counted as
// taken, so a later line may be put where the writer still reads an earlier one.
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <semaphore.h>

constexpr unsigned kRing = 14;
constexpr unsigned kLengths[] = {7, 4, 4, 4};
static pthread_mutex_t s_mutex = PTHREAD_MUTEX_INITIALIZER;
static sem_t s_filled;
static char s_ring[kRing];
static unsigned s_ends[4]; // of the lines, counted from the first byte ever put in
static unsigned s_put;
static unsigned s_free = kRing;

static bool Put(unsigned line) {
    const unsigned length = kLengths[line];
    pthread_mutex_lock(&s_mutex);
    const bool room = s_free >= length;
    if (room) {
        const unsigned tail = kRing - s_put % kRing;
        s_put += (tail < length ? tail : 0) + length;
        s_free -= length; // and the tail
        s_ends[line] = s_put;
        memset(s_ring + (s_put - length) % kRing, static_cast<int>('A' + line), length);
    }
    pthread_mutex_unlock(&s_mutex);
    return room;
}

static void *Write(void *) {
    for (unsigned line = 0; line < 4; line++) {
        sem_wait(&s_filled);
        pthread_mutex_lock(&s_mutex);
        const unsigned end = s_ends[line];
        pthread_mutex_unlock(&s_mutex);
        for (unsigned i = kLengths[line]; i > 0; i--)
            if (s_ring[(end - i) % kRing] != static_cast<char>('A' + line))
                abort();
        pthread_mutex_lock(&s_mutex);
        s_free = kRing - (s_put - end);
        pthread_mutex_unlock(&s_mutex);
    }
    return nullptr;
}

int main() {
    pthread_t writer;
    sem_init(&s_filled, 0, 0);
    pthread_create(&writer, nullptr, Write, nullptr);
    for (unsigned line = 0; line < 4; line++) {
        while (!Put(line))
            sched_yield();
        sem_post(&s_filled);
    }
    pthread_join(writer, nullptr);
    return 0;
}
