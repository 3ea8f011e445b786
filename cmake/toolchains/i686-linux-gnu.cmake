# 32-bit x86, from Debian's g++-i686-linux-gnu. What it makes runs on a 64-bit x86 kernel as it is, with Debian's
# packages libc6-i386 and lib32stdc++6.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER i686-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER i686-linux-gnu-g++)
