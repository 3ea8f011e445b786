#!/bin/sh
# pkgconfig.sh LIBDIR CONSUMER SCRATCH VERSION: builds and runs the consumer's programs by plain compiler calls.
# The compilers, their flags, PKG_CONFIG and EMULATOR, which starts what they make, are in the environment.
set -eux
libdir=$1 consumer=$2 scratch=$3 version=$4
mkdir -p "$scratch/static"
PKG_CONFIG_LIBDIR=$libdir/pkgconfig
export PKG_CONFIG_LIBDIR

[ "$("$PKG_CONFIG" --modversion vyx)" = "$version" ]
flags=$("$PKG_CONFIG" --cflags vyx)
libs=$("$PKG_CONFIG" --libs vyx)
# Unquoted below: these are lists of words.
$CC $CFLAGS -std=c11 $flags "$consumer/program.c" -o "$scratch/c11" $LDFLAGS $libs
$CXX $CXXFLAGS -std=c++17 $flags "$consumer/program.cpp" -o "$scratch/cxx17" $LDFLAGS $libs
LD_LIBRARY_PATH=$libdir DYLD_LIBRARY_PATH=$libdir $EMULATOR "$scratch/c11"
LD_LIBRARY_PATH=$libdir DYLD_LIBRARY_PATH=$libdir $EMULATOR "$scratch/cxx17"

# The archive, by the C compiler: --static has to name the C++ library. A folder without the shared one comes first.
cp "$libdir/libvyx.a" "$scratch/static"
libs=$("$PKG_CONFIG" --static --libs vyx)
$CC $CFLAGS -std=c11 $flags "$consumer/program.c" -o "$scratch/archive" $LDFLAGS "-L$scratch/static" $libs
$EMULATOR "$scratch/archive"
