# CMake gives a library an install name by @rpath only where the host's own version of the system has such. Included
# after CMake's own settings, this says that the target has.
set(CMAKE_SHARED_LIBRARY_RUNTIME_C_FLAG -Wl,-rpath,)
set(CMAKE_SHARED_LIBRARY_RUNTIME_CXX_FLAG -Wl,-rpath,)
