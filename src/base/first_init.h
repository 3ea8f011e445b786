// Order of construction of the library's static objects.
#ifndef VYX_BASE_FIRST_INIT_H
#define VYX_BASE_FIRST_INIT_H

// Constructs a static object before any application code runs, and destroys it after all of that has ended,
// also when the library is linked into the program as an archive. Where the platform has no such order the
// library is a shared one, whose objects come before the program's in any case.
#if defined(__ELF__)
#define VYX_FIRST_INIT __attribute__((init_priority(101)))
#else
#define VYX_FIRST_INIT
#endif

#endif
