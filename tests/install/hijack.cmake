# A program that has functions of its own under every name of the library that it does not call itself.
# Data is left out: a program that defines a variable of that name gets its own, as anywhere in ELF.
vyx_export_names(names)
list(FILTER names EXCLUDE REGEX "^(_ZT|s_|vyx_|VYX_HSEARCH_)")
list(REMOVE_ITEM names VYX_Init VYX_Fini VYX_SemCreate VYX_SemDestroy VYX_SemTimedWait VYX_CondTimedWait)

set(code "#include <stdio.h>\n#include <stdlib.h>\n")
foreach(name IN LISTS names)
  # The label gives the function its linkage name, so that C++ names can be taken as well.
  string(MAKE_C_IDENTIFIER taken_${name} identifier)
  string(APPEND code "void ${identifier}(void) __asm__(\"${name}\");\n"
         "void ${identifier}(void) { fputs(\"the program's own ${name} was called\\n\", stderr); abort(); }\n")
endforeach()
set(file ${CMAKE_CURRENT_BINARY_DIR}/taken_names.c)
file(GENERATE OUTPUT ${file} CONTENT "${code}")

add_executable(install_hijack_test hijack_test.c ${file})
set_target_properties(install_hijack_test PROPERTIES ENABLE_EXPORTS ON)
target_link_libraries(install_hijack_test PRIVATE vyx_flags vyx::vyx)
add_test(NAME SharedLibrary.KeepsItsOwnCalls COMMAND install_hijack_test)
