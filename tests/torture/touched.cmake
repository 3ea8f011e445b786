# Included by the build that tests/torture/mutants.py makes: the library notes which of its functions a test enters.
cmake_language(DEFER CALL cmake_language EVAL CODE [[
  target_sources(vyx_objects PRIVATE ${PROJECT_SOURCE_DIR}/touched/touched.cpp)
  target_compile_options(vyx_objects PRIVATE -finstrument-functions -g1)
]])
