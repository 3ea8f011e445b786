# The static probes: that they are in the library, and that tracers see at them what happens.
if(NOT VYX_HAVE_SDT)
  return()
endif()
set(script sh ${CMAKE_CURRENT_SOURCE_DIR}/probes.sh)
# LLVM's prints them otherwise.
find_program(VYX_READELF NAMES readelf)
add_test(NAME Probes.AreInTheLibrary
         COMMAND ${script} notes ${VYX_READELF} $<TARGET_FILE:vyx> ${PROJECT_SOURCE_DIR}/docs/inspection.md)
if(CMAKE_CROSSCOMPILING OR "${CMAKE_CXX_FLAGS}" MATCHES "-fsanitize") # gdb cannot follow, or the sanitizer not be traced
  return()
endif()
add_executable(install_probes_test probes_test.c)
target_link_libraries(install_probes_test PRIVATE vyx_flags vyx::vyx)
set_target_properties(install_probes_test PROPERTIES C_STANDARD 11 C_EXTENSIONS OFF)
set(scratch ${CMAKE_CURRENT_BINARY_DIR}/probes)
add_test(NAME Probes.Gdb COMMAND ${script} gdb $<TARGET_FILE:install_probes_test> ${scratch}/gdb)
# Not in the usual run: on a busy machine the kernel takes minutes to attach to the probes and let them go.
option(VYX_TEST_BPFTRACE "Run the scripts of bpftrace, where the kernel lets this user" OFF)
if(VYX_TEST_BPFTRACE)
  add_test(NAME Probes.Bpftrace COMMAND ${script} bpftrace $<TARGET_FILE:install_probes_test> ${scratch}/bpftrace
           ${PROJECT_SOURCE_DIR}/tools/bpftrace)
  set_tests_properties(Probes.Bpftrace PROPERTIES SKIP_RETURN_CODE 77)
else()
  message(STATUS "The scripts of bpftrace are not run (VYX_TEST_BPFTRACE)")
endif()
