# All that the build knows of platforms. A new one gets a line in the first list and a block of its own below;
# docs/porting.md says what else it needs.

set(VYX_PLATFORM_OF_Linux linux)
set(VYX_PLATFORM_OF_Darwin darwin)
if(NOT DEFINED VYX_PLATFORM_OF_${CMAKE_SYSTEM_NAME})
  message(FATAL_ERROR "libvyx has no platform files for ${CMAKE_SYSTEM_NAME}; see docs/porting.md")
endif()
set(VYX_PLATFORM ${VYX_PLATFORM_OF_${CMAKE_SYSTEM_NAME}})

# The files of src/ that define what base/platform.h declares, without _PLATFORM.cpp at their end.
set(VYX_PLATFORM_FILES base/deadline base/mutex log/log_memory net/adapter net/send_now string/fold sync/sem_open
    sync/sem_sleep sys/charset sys/exe_path sys/file_copy sys/system thread/service_thread time/calendar)

set(VYX_PLATFORM_OPTIONS)        # to compile the library's sources with
set(VYX_PLATFORM_WIDE_TIME)      # those of the files above that are compiled with 64-bit times on 32-bit processors, too
set(VYX_PLATFORM_LINK_OPTIONS)   # of the shared library
set(VYX_PLATFORM_LIBRARIES)      # that the library needs beside the C and C++ libraries
set(VYX_PLATFORM_MODULE_OPTIONS) # to link a module that needs symbols of another one
# What exports, tests, benchmarks and tools ask for: elf (its linker options and readelf; else Darwin's linker), linux (the
# kernel's own calls and /proc, with the GNU C library).
set(VYX_PLATFORM_HAS)

if(VYX_PLATFORM STREQUAL "linux")
  set(VYX_PLATFORM_HAS elf linux)
  # Most functions are one platform call with a check before it, and cost little more than that call: no detour on the
  # way to it, and the library's own functions may be inlined into each other (see -Bsymbolic-functions).
  set(VYX_PLATFORM_OPTIONS -fno-semantic-interposition)
  if(NOT CMAKE_SYSTEM_PROCESSOR MATCHES "^(ppc|powerpc)") # where such calls miss the linker's form of thread-local access
    list(APPEND VYX_PLATFORM_OPTIONS -fno-plt)
  endif()
  # Nothing of the public interface, whose time_t is the platform's, passes through these. A struct stat comes to the last
  # one from files that are compiled so as well.
  set(VYX_PLATFORM_WIDE_TIME base/deadline sync/sem_sleep sys/file_copy)
  # The library's calls among its own functions stay its own, whatever names an application has; and as it has threads
  # of its own, it is never unloaded while they run.
  set(VYX_PLATFORM_LINK_OPTIONS LINKER:-Bsymbolic-functions LINKER:-z,nodelete)
endif()

if(VYX_PLATFORM STREQUAL "darwin")
  set(VYX_PLATFORM_LIBRARIES iconv)
  set(VYX_PLATFORM_MODULE_OPTIONS LINKER:-undefined,dynamic_lookup)
endif()
