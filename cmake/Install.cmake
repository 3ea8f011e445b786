# Installation: headers, both libraries, the CMake package and the pkg-config file.

include(CMakePackageConfigHelpers)

set(vyx_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vyx)
configure_package_config_file(cmake/vyxConfig.cmake.in ${PROJECT_BINARY_DIR}/vyxConfig.cmake
                              INSTALL_DESTINATION ${vyx_package_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vyxConfigVersion.cmake COMPATIBILITY SameMajorVersion)
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
