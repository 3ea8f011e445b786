// For programs that end with a message and a signal where something is not so.
#ifndef VYX_TESTS_CHECK_H
#define VYX_TESTS_CHECK_H

#include <cstdio>
#include <cstdlib>

#define CHECK(condition)                                                                                     \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            std::fprintf(stderr, "%s:%d: not so: %s\n", __FILE__, __LINE__, #condition);                     \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (false)

#endif
