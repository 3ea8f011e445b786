// Static probes, for tracers from outside: a no-op at each place and a note of it in the library's file. Built in where
// the platform's header for them is installed; elsewhere they are nothing at all.
//
// The arguments are values that the place has at hand, so that a probe costs the no-op alone. docs/inspection.md lists the
// probes with their arguments; whoever adds one adds it there and to tests/stat/printed.cpp.
#ifndef VYX_BASE_PROBES_H
#define VYX_BASE_PROBES_H

#ifdef VYX_HAVE_SDT

#include <sys/sdt.h>

#define VYX_PROBE1(name, a) STAP_PROBE1(vyx, name, a)
#define VYX_PROBE2(name, a, b) STAP_PROBE2(vyx, name, a, b)
#define VYX_PROBE3(name, a, b, c) STAP_PROBE3(vyx, name, a, b, c)

#else

#define VYX_PROBE1(name, a) (void)(a)
#define VYX_PROBE2(name, a, b) ((void)(a), (void)(b))
#define VYX_PROBE3(name, a, b, c) ((void)(a), (void)(b), (void)(c))

#endif

#endif
