/* Calls of the platform that fail on demand, in all of the process; and counts of what they have given out. */
#ifndef VYX_TESTS_FAILING_H
#define VYX_TESTS_FAILING_H

#ifdef __cplusplus
extern "C" {
#endif

/* What can fail. The last four: transfers do half, calls are interrupted (EINTR), there is no more address space,
   there are no more descriptors; the last two also within the C library, and counted in calls of any kind. */
#define FAILING_KINDS(X)                                                                                     \
    X(memory)                                                                                                \
    X(threads)                                                                                               \
    X(locks)                                                                                                 \
    X(semaphores)                                                                                            \
    X(descriptors)                                                                                           \
    X(files)                                                                                                 \
    X(reads)                                                                                                 \
    X(writes)                                                                                                \
    X(sockets)                                                                                               \
    X(pipes)                                                                                                 \
    X(polls)                                                                                                 \
    X(directories)                                                                                           \
    X(names)                                                                                                 \
    X(iconv)                                                                                                 \
    X(random)                                                                                                \
    X(clocks)                                                                                                \
    X(modules)                                                                                               \
    X(shorts)                                                                                                \
    X(interrupts)                                                                                            \
    X(mappings)                                                                                              \
    X(openings)
enum failing_kind {
#define FAILING_ENUM(kind) fails_##kind,
    FAILING_KINDS(FAILING_ENUM)
#undef FAILING_ENUM
        failing_kinds
};

/* From now on calls are counted, and those of the kind fail: the n-th one alone, or it and all after it. n = 0:
   none. */
void failing_arm(enum failing_kind kind, int n, int on);
void failing_disarm(void);

/* Since it was armed: how many calls of the kind there were, or of all kinds (failing_kinds); and how many failed. */
int failing_calls(int kind);
/* Those of the thread that armed. */
int failing_reached(void);
int failing_hits(void);
/* The errno that the last of them left. */
int failing_error(void);

/* The program owns this mutex, condition, semaphore, thread or key: calls that cannot fail for one that only the
   library knows, such as taking a normal mutex, can for this one. */
void failing_own(const void *object);

/* From now on the kernel copies no files, without counting as a failure. */
void failing_refuse_copies(void);

/* Calls of the calling thread neither count nor fail from now on: it plays a part of the outside world. */
void failing_spare(void);

/* From now on this process sees the wall clock so many seconds ahead of the system's. Waits until a moment of that clock
   follow it within 5 ms; conditions do so by waking up, which they may do at any time. */
void failing_set_clock(int ahead);

/* What is there now: blocks of memory, and names of semaphores that this process has made. */
long failing_blocks(void);
long failing_sem_names(void);

#ifdef __cplusplus
}
#endif

#endif
