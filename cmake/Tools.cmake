# Which tools can be built here. Each says by name why it is left out; asked for all the same, it is refused.

# vyx-explore stands in for calls of the GNU C library on 64-bit Linux, in the process that it explores. A sanitizer's
# own stand-ins would come between, and code for another processor would run in an emulator.
set(why "")
if(NOT VYX_PLATFORM STREQUAL "linux" OR NOT CMAKE_SIZEOF_VOID_P EQUAL 8)
  set(why "it is for 64-bit Linux")
elseif(CMAKE_CROSSCOMPILING)
  set(why "it is not cross-built")
elseif("${CMAKE_CXX_FLAGS} ${CMAKE_C_FLAGS}" MATCHES "-fsanitize|--coverage")
  set(why "it cannot be built with a sanitizer or for coverage")
endif()
if(why STREQUAL "")
  option(VYX_BUILD_EXPLORE "Build vyx-explore" ${VYX_BUILD_TOOLS})
else()
  option(VYX_BUILD_EXPLORE "Build vyx-explore" OFF)
  if(VYX_BUILD_EXPLORE)
    message(FATAL_ERROR "VYX_BUILD_EXPLORE: ${why}")
  elseif(VYX_BUILD_TOOLS)
    message(STATUS "vyx-explore is left out: ${why}")
  endif()
endif()
