# Which tools can be built here. Each says by name why it is left out; asked for all the same, it is refused.

# vyx_tool_option(OPTION NAME): the option for a tool that cannot be built here if ${why} says why.
function(vyx_tool_option option name)
  if(why STREQUAL "")
    option(${option} "Build ${name}" ${VYX_BUILD_TOOLS})
    return()
  endif()
  option(${option} "Build ${name}" OFF)
  if(${option})
    message(FATAL_ERROR "${option}: ${why}")
  elseif(VYX_BUILD_TOOLS)
    message(STATUS "${name} is left out: ${why}")
  endif()
endfunction()

# vyx-stat reads the memory of other processes as Linux lets it.
set(why "")
if(NOT "linux" IN_LIST VYX_PLATFORM_HAS)
  set(why "it is for Linux")
endif()
vyx_tool_option(VYX_BUILD_STAT vyx-stat)

# vyx-explore stands in for calls of the GNU C library on 64-bit Linux, in the process that it explores. A sanitizer's
# own stand-ins would come between, and code for another processor would run in an emulator.
set(why "")
if(NOT "linux" IN_LIST VYX_PLATFORM_HAS OR NOT CMAKE_SIZEOF_VOID_P EQUAL 8)
  set(why "it is for 64-bit Linux")
elseif(CMAKE_CROSSCOMPILING)
  set(why "it is not cross-built")
elseif("${CMAKE_CXX_FLAGS} ${CMAKE_C_FLAGS}" MATCHES "-fsanitize|--coverage")
  set(why "it cannot be built with a sanitizer or for coverage")
endif()
vyx_tool_option(VYX_BUILD_EXPLORE vyx-explore)
