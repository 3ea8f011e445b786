#!/usr/bin/env bash
# needs.sh SOURCE SCRATCH: what the scripts do where tools are missing: they install them or say clearly what is missing.
. "$(dirname "$0")/fakes.sh"
line='apt-get update && apt-get install --no-install-recommends ninja-build'
user() { fake id 'echo 1000'; }
refuse() { fake "$1" "echo $1 was called" 'exit 1'; }

case='nothing is missing: the package manager is not called, nor is a graphics package looked for'
refuse apt-get
refuse sudo
run "$source/scripts/test"
expect 0
[[ $out != *'was called'* ]] || complain 'it was called'

case='help needs nothing'
for script in abi bench darwin demo docs explore lint matrix package proven test torture; do
    run env PATH="$scratch/bin" "$source/scripts/$script" --help
    expect 0 "scripts/$script"
done

lose ninja
for script in demo test bench lint; do
    case="$script without network"
    fake id 'echo 0'
    fake apt-get 'echo "Could not resolve host" >&2' 'exit 100'
    run "$source/scripts/$script"
    expect 1 'Could not resolve' "scripts/$script: this machine lacks: " 'ninja-build' 'apt-get failed; it says above why'
    case="$script where there is no apt-get"
    lose apt-get
    run "$source/scripts/$script"
    expect 1 'there is no apt-get here' "${line% *} "
done

case='an ordinary user without sudo'
user
refuse apt-get
lose sudo
run "$source/scripts/demo"
expect 1 'this user is not root, and there is no sudo' "$line"
[[ $out != *'was called'* && $out != *Building* ]] || complain 'it goes on'

case='sudo refuses'
refuse sudo
run "$source/scripts/demo"
expect 1 'sudo was called' 'sudo apt-get failed' "$line"

case='sudo installs it'
fake apt-get "case \"\$*\" in *install*ninja-build) printf '#!/bin/sh\n' >$scratch/bin/ninja; chmod +x $scratch/bin/ninja ;; esac"
fake sudo 'exec "$@"'
run "$source/scripts/test"
expect 0 'Installing ninja-build'
[[ $out != *lacks* ]] || complain 'it is said to be missing'

case='CMake is too old, and no newer one comes'
fake cmake 'echo cmake version 3.18.4'
run "$source/scripts/test"
expect 1 'lacks: cmake' '3.25'
fake cmake '[ "$1" != --version ] || echo cmake version 3.25.1'

case='a missing optional tool is no obstacle'
fake apt-get 'exit 100'
lose ip
run "$source/scripts/test"
expect 0 'lacks: iproute2' 'goes on without'
fake ip

case='rows whose compiler is not available are not run'
run env VYX_MATRIX_TIME=1000 "$source/scripts/matrix" --ci
expect 0 '| `i686` | Linux, 32-bit x86 | GCC, libstdc++ | on the x86_64 kernel | not run: a package or the compiler'
expect 0 '| `darwin` | Darwin, x86_64 and 64-bit ARM | Zig (Clang 16), libc++ | built and checked only | not run: a package'
run "$source/scripts/matrix" i686
expect 1

case='a folder for the builds that cannot be written'
run env VYX_BUILD_DIR=/proc/none "$source/scripts/test"
expect 1 'cannot write into /proc/none; set VYX_BUILD_DIR'

exit $failed
