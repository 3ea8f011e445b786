#!/usr/bin/env bash
# scripts_test.sh SOURCE SCRATCH LOGMILL: what the scripts do where tools are missing, and what the demo says of a log that is
# not as it should be; in a PATH in which each tool is there, missing or a fake.
set -eu
source=$1 scratch=$2
rm -rf "$scratch"
mkdir -p "$scratch/bin" "$scratch/build/demo/examples/logmill"
failed=0

for tool in awk basename bash cat chmod cmp cut dirname env find flock grep head ln mkdir mkfifo nproc \
    printf readlink rm sed sh sort tail timeout tr wc xargs; do
    ln -s "$(command -v $tool)" "$scratch/bin/$tool"
done
fake() { # NAME [LINE...]: a script with these lines
    local name=$1
    shift
    rm -f "$scratch/bin/$name"
    printf '%s\n' '#!/bin/sh' "$@" >"$scratch/bin/$name"
    chmod +x "$scratch/bin/$name"
}
for tool in abidiff ctest g++ gcc gdb mandoc patch pigz pkgconf python3 valgrind; do fake $tool; done
fake cmake '[ "$1" != --version ] || echo cmake version 3.25.1'
fake id 'echo 1000'

# expect STATUS TEXT COMMAND...: a script of the project in this PATH.
expect() {
    local wanted=$1 text=$2 status=0
    shift 2
    out=$(PATH=$scratch/bin VYX_BUILD_DIR=${builds:-$scratch/build} "$@" 2>&1) || status=$?
    [[ $status -eq $wanted && $out = *"$text"* ]] && return
    printf 'FAILED %s: exit status %s, and not %s with "%s":\n%s\n' "$*" "$status" "$wanted" "$text" "$out"
    failed=1
}

for script in abi bench darwin demo docs explore lint matrix package proven test torture; do
    expect 0 "scripts/$script" "$source/scripts/$script" --help
done
for script in demo test bench lint; do
    expect 1 "scripts/$script: this machine lacks: " "$source/scripts/$script"
done
expect 1 'there is no apt-get here' "$source/scripts/demo"
fake apt-get 'echo apt-get was called' 'exit 1'
expect 1 'this user is not root, and there is no sudo' "$source/scripts/demo"
[[ $out = *'--no-install-recommends ninja-build'* && $out != *'was called'* && $out != *Building* ]] || { echo "$out"; failed=1; }
fake sudo 'exec "$@"'
expect 1 'sudo apt-get failed' "$source/scripts/demo"
fake apt-get "case \"\$*\" in *install*ninja-build) ln -s /bin/true $scratch/bin/ninja ;; *install*) exit 1 ;; esac"
expect 0 'iproute2' "$source/scripts/test" # it goes on without what is optional
[[ $out != *'lacks'*ninja* ]] || { echo "$out"; failed=1; }
expect 0 '| `i686` | Linux, 32-bit x86 | GCC, libstdc++ | on the x86_64 kernel | not run: a package or the compiler' \
    env VYX_MATRIX_TIME=1000 "$source/scripts/matrix" --ci
expect 1 i686 "$source/scripts/matrix" i686
builds=/proc/none expect 1 'cannot write into /proc/none; set VYX_BUILD_DIR' "$source/scripts/test"

ln -s "$3" "$scratch/build/demo/examples/logmill/logmill"
printf 'one\ntwo\nthree\n' >"$scratch/odd"
expect 0 'check: each of 12 lines' "$source/scripts/demo" "$scratch/odd"
while IFS='|' read -r change said; do # in the folder of the log files
    fake xargs 'names=$(cat)' "$change" "echo \"\$names\" | $(command -v xargs) \"\$@\""
    expect 1 "$said" "$source/scripts/demo" "$scratch/odd"
done <<'END'
sed -i 2d *|lines are missing, double or not in the order
sed -i 2s/two/TWO/ *|is not what was sent
more=$(sed -n s/1-odd/9-odd/p *); echo "$more" >>vyx_log_1_w.log|lines that nobody sent
END
exit $failed
