# For the tests of the scripts: a PATH in which each tool is there, missing or a fake, as the test says.
# Sourced with SOURCE and SCRATCH, a folder that is made anew.
set -eu
source=$1 scratch=$2
rm -rf "$scratch"
mkdir -p "$scratch/bin"
failed=0

for tool in awk basename bash cat chmod cmp cut dirname env find flock grep head id ln ls mkdir mkfifo nproc printf \
    readlink rm sed sh sleep sort tail timeout tr wc xargs; do
    ln -s "$(command -v $tool)" "$scratch/bin/$tool"
done

fake() { # NAME [LINE...]: a script with these lines
    local name=$1
    shift
    rm -f "$scratch/bin/$name"
    printf '%s\n' '#!/bin/sh' "$@" >"$scratch/bin/$name"
    chmod +x "$scratch/bin/$name"
}
lose() { rm -f "$scratch/bin/$1"; }

for tool in abidiff clang clang++ ctest g++ gcc gdb ip mandoc ninja patch pigz pkgconf python3 valgrind; do fake $tool; done
fake cmake '[ "$1" != --version ] || echo cmake version 3.25.1'

# run COMMAND...: a script of the project in this PATH; leaves its output in `out` and its exit status in `status`.
run() {
    status=0
    out=$(PATH=$scratch/bin VYX_BUILD_DIR=$scratch/build "$@" 2>&1) || status=$?
}

# expect STATUS [TEXT...]: of the last run.
expect() {
    local wanted=$1 text
    shift
    [ "$status" -eq "$wanted" ] || complain "exit status $status instead of $wanted"
    for text in "$@"; do
        [[ $out = *"$text"* ]] || complain "this is missing: $text"
    done
}
complain() {
    printf 'FAILED %s: %s\n%s\n' "$case" "$1" "$out"
    failed=1
}
