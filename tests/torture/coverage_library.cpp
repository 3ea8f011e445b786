// Linked into the libraries of the coverage stage: tells the program how their counts are written, see
// coverage_program.cpp.
extern "C" {
void __gcov_dump();
void vyx_coverage_add(void (*dump)()) __attribute__((weak));
}

__attribute__((constructor)) static void Add() {
    if (vyx_coverage_add != nullptr)
        vyx_coverage_add(__gcov_dump);
}
