# Compile settings of this project's own targets. Nothing here reaches a program that uses the library.

find_package(Threads REQUIRED)

add_library(vyx_flags INTERFACE)
target_compile_features(vyx_flags INTERFACE cxx_std_17 c_std_11)
target_compile_options(vyx_flags INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion
                       $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor>
                       $<$<BOOL:${VYX_WARNINGS_AS_ERRORS}>:-Werror>)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  target_compile_options(vyx_flags INTERFACE $<$<COMPILE_LANGUAGE:CXX>:-Wthread-safety$<SEMICOLON>-Wthread-safety-beta>)
endif()
target_link_libraries(vyx_flags INTERFACE Threads::Threads)

# The C++ library that the compiler links.
set(VYX_CXX_LIBRARY stdc++)
if("c++" IN_LIST CMAKE_CXX_IMPLICIT_LINK_LIBRARIES)
  set(VYX_CXX_LIBRARY c++)
endif()
