# The tools in Python need nothing to be built: a folder of modules each, and a small program that starts it,
# one for here and one to be installed.
set(VYX_PYTHON_TOOLS log)
if("linux" IN_LIST VYX_PLATFORM_HAS)
  list(APPEND VYX_PYTHON_TOOLS sem) # elsewhere the system does not list its semaphores
endif()
set(vyx_tool_modules ${CMAKE_INSTALL_LIBDIR}/vyx/tools)
file(RELATIVE_PATH to_modules ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR}/vyx/tools)
# vyx_python_tool(FILE MODULES): the program FILE, which starts the tool ${TOOL} in the folder MODULES.
function(vyx_python_tool file TO_MODULES)
  configure_file(tools/python-tool.py.in ${file} @ONLY
                 FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endfunction()
foreach(TOOL IN LISTS VYX_PYTHON_TOOLS)
  vyx_python_tool(${PROJECT_BINARY_DIR}/tools/vyx-${TOOL} ${PROJECT_SOURCE_DIR}/tools)
  vyx_python_tool(${PROJECT_BINARY_DIR}/tools/installed/vyx-${TOOL} ${to_modules})
  if(VYX_BUILD_TOOLS)
    install(PROGRAMS ${PROJECT_BINARY_DIR}/tools/installed/vyx-${TOOL} DESTINATION ${CMAKE_INSTALL_BINDIR})
    install(DIRECTORY tools/${TOOL} DESTINATION ${vyx_tool_modules} FILES_MATCHING PATTERN "*.py")
    install(FILES tools/${TOOL}/vyx-${TOOL}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endif()
endforeach()
install(FILES docs/log.md docs/logging.md DESTINATION ${CMAKE_INSTALL_DOCDIR})
