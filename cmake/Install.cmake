# Installation: headers, both libraries, the CMake package, the pkg-config file and the license.

include(CMakePackageConfigHelpers)

set(vyx_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vyx)
configure_package_config_file(cmake/vyxConfig.cmake.in ${PROJECT_BINARY_DIR}/vyxConfig.cmake
                              INSTALL_DESTINATION ${vyx_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vyxConfigVersion.cmake COMPATIBILITY SameMajorVersion)

# The pkg-config file names its folders by its own place, so that the installed tree can be moved.
file(RELATIVE_PATH VYX_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" VYX_PC_TO_PREFIX "${VYX_PC_TO_PREFIX}")
set(VYX_PC_LIBDIR \${prefix})
set(VYX_PC_INCLUDEDIR \${prefix})
cmake_path(APPEND VYX_PC_LIBDIR ${CMAKE_INSTALL_LIBDIR})
cmake_path(APPEND VYX_PC_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR})
set(VYX_PC_PRIVATE_LIBRARIES ${VYX_CXX_LIBRARY} ${VYX_PLATFORM_LIBRARIES})
list(TRANSFORM VYX_PC_PRIVATE_LIBRARIES PREPEND -l)
list(JOIN VYX_PC_PRIVATE_LIBRARIES " " VYX_PC_PRIVATE_LIBRARIES)
configure_file(cmake/vyx.pc.in ${PROJECT_BINARY_DIR}/vyx.pc @ONLY)

install(TARGETS vyx vyx_static EXPORT vyxTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY include/vyx DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} FILES_MATCHING PATTERN "*.h")
install(EXPORT vyxTargets NAMESPACE vyx:: DESTINATION ${vyx_package_dir})
install(FILES ${PROJECT_BINARY_DIR}/vyxConfig.cmake ${PROJECT_BINARY_DIR}/vyxConfigVersion.cmake
        DESTINATION ${vyx_package_dir})
install(FILES ${PROJECT_BINARY_DIR}/vyx.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
install(FILES LICENSE docs/inspection.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
if(VYX_HAVE_SDT)
  install(FILES tools/bpftrace/queues.bt tools/bpftrace/waits.bt DESTINATION ${CMAKE_INSTALL_DATADIR}/vyx/bpftrace)
endif()

if("linux" IN_LIST VYX_PLATFORM_HAS)
  install(FILES tools/gdb/vyx.py DESTINATION ${CMAKE_INSTALL_LIBDIR} RENAME libvyx.so.${PROJECT_VERSION}-gdb.py)
endif()
if(VYX_BUILD_STAT)
  install(TARGETS vyx-stat RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES tools/stat/vyx-stat.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
endif()
if(VYX_BUILD_EXPLORE)
  install(TARGETS vyx-explore RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  # Nothing that a program links.
  install(TARGETS vyx_explore_runtime vyx_explore_heap LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}/vyx)
  install(TARGETS vyx_explore_tsan ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
  install(FILES docs/explore.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
endif()
