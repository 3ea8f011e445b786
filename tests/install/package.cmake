# Installs this build, moves the result elsewhere, and uses it in the ways open to a program.
find_program(VYX_PKGCONFIG NAMES pkgconf pkg-config REQUIRED)
set(scratch ${CMAKE_CURRENT_BINARY_DIR}/scratch)
set(prefix ${scratch}/moved)
set(libdir ${prefix}/${CMAKE_INSTALL_LIBDIR})
set(here ${CMAKE_CURRENT_SOURCE_DIR})

add_test(NAME Package.Install COMMAND sh ${here}/install.sh ${CMAKE_COMMAND} ${PROJECT_BINARY_DIR} ${scratch} $<CONFIG>)
set_tests_properties(Package.Install PROPERTIES FIXTURES_SETUP vyx_package)

if("elf" IN_LIST VYX_PLATFORM_HAS)
  add_test(NAME Package.Tree COMMAND ${CMAKE_COMMAND} -E env READELF=${CMAKE_READELF} sh ${here}/tree.sh
           ${prefix} ${libdir} ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR} ${PROJECT_VERSION})
endif()

if(VYX_BUILD_EXPLORE)
  add_test(NAME Package.Explore COMMAND sh ${here}/explore.sh ${prefix} ${libdir} ${PROJECT_SOURCE_DIR} ${scratch}/explore
           ${CMAKE_CXX_COMPILER})
endif()

if("linux" IN_LIST VYX_PLATFORM_HAS AND NOT CMAKE_CROSSCOMPILING AND NOT "${CMAKE_CXX_FLAGS}" MATCHES "-fsanitize")
  add_test(NAME Package.LogOverACrash COMMAND sh ${here}/logging.sh ${prefix} ${libdir} ${PROJECT_SOURCE_DIR}
           ${scratch}/logging ${CMAKE_C_COMPILER})
endif()

list(JOIN CMAKE_CROSSCOMPILING_EMULATOR " " emulator)
add_test(NAME Package.PkgConfig COMMAND ${CMAKE_COMMAND} -E env
         PKG_CONFIG=${VYX_PKGCONFIG} "CC=${CMAKE_C_COMPILER}" "CFLAGS=${CMAKE_C_FLAGS}" "CXX=${CMAKE_CXX_COMPILER}"
         "CXXFLAGS=${CMAKE_CXX_FLAGS}" "LDFLAGS=${CMAKE_EXE_LINKER_FLAGS}" "EMULATOR=${emulator}"
         sh ${here}/pkgconfig.sh ${libdir} ${here}/consumer ${scratch}/pkgconfig ${PROJECT_VERSION})

# vyx_add_consumer_test(NAME OPTION...): builds and runs the consumer project with the compilers of this build.
set(toolchain)
if(CMAKE_TOOLCHAIN_FILE)
  set(toolchain -DCMAKE_TOOLCHAIN_FILE=${CMAKE_TOOLCHAIN_FILE})
endif()
function(vyx_add_consumer_test name)
  add_test(NAME Package.${name} COMMAND ${CMAKE_CTEST_COMMAND} --build-and-test ${here}/consumer ${scratch}/${name}
           --build-generator ${CMAKE_GENERATOR} --build-noclean
           --build-options ${ARGN} ${toolchain} -DEXPECTED_VERSION=${PROJECT_VERSION}
           -DCMAKE_C_COMPILER=${CMAKE_C_COMPILER} -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
           --test-command ${CMAKE_CTEST_COMMAND} --output-on-failure --no-tests=error)
endfunction()
# A program needs the sanitizer of the library that it links. One that compiles the library itself does not.
vyx_add_consumer_test(FindPackage -DCMAKE_PREFIX_PATH=${prefix}
                      "-DCMAKE_C_FLAGS=${CMAKE_C_FLAGS}" "-DCMAKE_CXX_FLAGS=${CMAKE_CXX_FLAGS}"
                      "-DCMAKE_EXE_LINKER_FLAGS=${CMAKE_EXE_LINKER_FLAGS}")
vyx_add_consumer_test(FetchContent -DLIBVYX_SOURCE=${PROJECT_SOURCE_DIR})

get_property(tests DIRECTORY PROPERTY TESTS)
list(FILTER tests INCLUDE REGEX "^Package")
list(REMOVE_ITEM tests Package.Install)
set_tests_properties(${tests} PROPERTIES FIXTURES_REQUIRED vyx_package)
