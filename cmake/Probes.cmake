# Static probes, see src/base/probes.h. Their header (Debian: systemtap-sdt-dev) is looked for anew while it is missing.
option(VYX_PROBES "Build static probes in, if their header is installed" ON)
if(VYX_PROBES AND "linux" IN_LIST VYX_PLATFORM_HAS)
  if(NOT VYX_HAVE_SDT)
    unset(VYX_HAVE_SDT CACHE)
  endif()
  include(CheckCXXSourceCompiles)
  check_cxx_source_compiles("#include <sys/sdt.h>
    int main(int count, char **) { STAP_PROBE1(vyx, check, count); }" VYX_HAVE_SDT)
else()
  set(VYX_HAVE_SDT OFF)
endif()
if(VYX_HAVE_SDT)
  # What the header's macros expand to is not quite standard C++.
  target_compile_options(vyx_flags INTERFACE $<$<CXX_COMPILER_ID:Clang>:-Wno-gnu-zero-variadic-macro-arguments>)
endif()
