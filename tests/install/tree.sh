#!/bin/sh
# tree.sh PREFIX LIBDIR SOURCE BUILD VERSION: looks at the installed files themselves. READELF is in the environment.
set -eu
prefix=$1 libdir=$2 source=$3 build=$4 version=$5
status=0
fail() { echo "$*"; status=1; }

diff -r "$source/include" "$prefix/include" || fail "the installed headers are not the public ones"
cmp "$source/LICENSE" "$prefix/share/doc/vyx/LICENSE" || fail "the license is not installed"

grep -q '^ "version": "'"$version"'",$' "$prefix/share/vyx/vyx-api.json" || fail "no description of version $version"
for file in man/man3/VYX_SemPost.3 man/man3/WriteLog.3 ../lib/python3/dist-packages/vyx/raw.py \
    ../lib/python3/dist-packages/vyx/py.typed; do
    [ -e "$prefix/share/$file" ] || fail "$file is not installed"
done

# The version comes from CMakeLists.txt; the header, the list of releases and the packages repeat it.
number=$(IFS=.; set -- $version; printf '0x%02x%02x%04xu' "$1" "$2" "$3")
grep -q "^#define VYX_VERSION $number " "$source/include/vyx/frame.h" || fail "VYX_VERSION is not $number"
newest=$(sed -n 's/^## \([0-9.]*\) - 2[0-9-]*$/\1/p' "$source/CHANGELOG.md" | head -n 1)
[ "$newest" = "$version" ] || fail "the newest release in CHANGELOG.md is '$newest', not $version"
head -n 1 "$source/debian/changelog" | grep -qF "libvyx ($version) " || fail "debian/changelog does not begin with $version"

# As whole paths: a source tree in /vyx is not meant by include/vyx.
literal() { printf '%s' "$1" | sed 's/[][\.*^$+?(){}|]/\\&/g'; }
if grep -rIlE "(^|[^[:alnum:]_}.-])($(literal "$source")|$(literal "$build"))([^[:alnum:]_.-]|\$)" "$prefix"; then
    fail "these files hold a path of the source or build tree"
fi

major=${version%%.*}
dynamic=$("$READELF" -d "$libdir/libvyx.so")
echo "$dynamic" | grep -q "SONAME.*\[libvyx.so.$major\]" || fail "SONAME is not libvyx.so.$major"
if echo "$dynamic" | grep -E 'RPATH|RUNPATH'; then
    fail "the library looks for others in a fixed place"
fi
if echo "$dynamic" | grep NEEDED |
    grep -Ev '\[(lib(c|m|pthread|dl|rt|stdc\+\+|c\+\+|c\+\+abi|gcc_s|unwind|asan|ubsan|tsan)\.so|ld-linux|ld\.so\.1\])'; then
    fail "the library needs more than the C and C++ libraries"
fi
exit $status
