# What the shared library exports, from the one list src/exports.txt.
#
# vyx_limit_exports(TARGET) makes an ELF version script, or the export list of Darwin's linker, and links with it.
# The list holds linkage names. Where a name depends on the target, the list has a placeholder:
#   @I64@  how int64_t is mangled      @STD@  the tag that libstdc++ gives functions that return std::string

include(CheckCXXSourceCompiles)
set(VYX_EXPORT_LIST ${PROJECT_SOURCE_DIR}/src/exports.txt)

check_cxx_source_compiles("#include <cstdint>
  int64_t *p = static_cast<long *>(nullptr); int main() { return p != nullptr; }" VYX_INT64_IS_LONG)
check_cxx_source_compiles("#include <string>
  #if !defined(_GLIBCXX_USE_CXX11_ABI) || !_GLIBCXX_USE_CXX11_ABI
  #error
  #endif
  int main() {}" VYX_STRING_IS_TAGGED)
if(VYX_INT64_IS_LONG)
  set(I64 l)
else()
  set(I64 x)
endif()
if(VYX_STRING_IS_TAGGED)
  set(STD B5cxx11)
else()
  set(STD "")
endif()

# The names as this target spells them, one a line, for the linker and for the test that compares.
function(vyx_export_names result)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${VYX_EXPORT_LIST})
  file(STRINGS ${VYX_EXPORT_LIST} lines REGEX "^[^#]")
  string(CONFIGURE "${lines}" lines @ONLY)
  set(${result} ${lines} PARENT_SCOPE)
endfunction()

vyx_export_names(names)
list(JOIN names "\n" text)
file(GENERATE OUTPUT ${PROJECT_BINARY_DIR}/exports.names CONTENT "${text}\n")
if(NOT "elf" IN_LIST VYX_PLATFORM_HAS)
  list(TRANSFORM names PREPEND "_")
  list(JOIN names "\n" text)
  set(VYX_EXPORT_FILE ${PROJECT_BINARY_DIR}/exports.darwin)
  set(VYX_EXPORT_OPTION LINKER:-exported_symbols_list,${VYX_EXPORT_FILE})
  file(GENERATE OUTPUT ${VYX_EXPORT_FILE} CONTENT "${text}\n")
else()
  list(TRANSFORM names REPLACE "(.+)" "    \\1\\\;")
  list(JOIN names "\n" text)
  set(VYX_EXPORT_FILE ${PROJECT_BINARY_DIR}/exports.map)
  set(VYX_EXPORT_OPTION LINKER:--version-script=${VYX_EXPORT_FILE})
  file(GENERATE OUTPUT ${VYX_EXPORT_FILE} CONTENT "VYX_1.0 {\n  global:\n${text}\n  local:\n    *;\n};\n")
endif()

function(vyx_limit_exports target)
  target_link_options(${target} PRIVATE ${VYX_EXPORT_OPTION})
  set_target_properties(${target} PROPERTIES LINK_DEPENDS ${VYX_EXPORT_FILE})
endfunction()
