#!/bin/sh
# explore.sh PREFIX LIBDIR SOURCE SCRATCH CXX: does with the installed vyx-explore what its page tells, with the program
# that stands there and with one that is instrumented.
set -eu
prefix=$1 libdir=$2 source=$3 scratch=$4 cxx=$5
rm -rf "$scratch"
mkdir -p "$scratch"
cd "$scratch"
fail() { echo "$*"; exit 1; }

cmp "$source/docs/explore.md" "$prefix/share/doc/vyx/explore.md" || fail "its page is not installed"
sed -n '/^```cpp$/,/^```$/p' "$source/docs/explore.md" | grep -v '^```' >early_signal.cpp
"$cxx" -g early_signal.cpp -o early_signal -pthread
status=0
"$prefix/bin/vyx-explore" --first -- ./early_signal >found || status=$?
[ "$status" -eq 1 ] && grep -q '^deadlock: no thread can go on$' found || fail "the fault of the page is not found"

"$cxx" -g -fsanitize=thread -c "$source/tests/explore/faulty/missing_fence.cpp"
"$cxx" missing_fence.o -o missing_fence -L"$libdir" -lvyx_explore_tsan -pthread
./missing_fence || fail "it does not run alone"
status=0
"$prefix/bin/vyx-explore" --first --races -- ./missing_fence >found || status=$?
[ "$status" -eq 1 ] && grep -q '^race: ' found || fail "the race is not found"
