# Shared by the scripts: the folders, what a script needs of the machine, and how a preset is built.
# A script sources it with its own arguments; for --help its first comment is printed.
set -euo pipefail
caller=$PWD # where the script was called: the files that it is given are relative to this folder
script=$(basename "$(dirname "$(readlink -f "$0")")")/$(basename "$0") # scripts/NAME
CDPATH='' cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.."

case ${1:-} in
-h | --help)
    sed -n '2,${/^#/!q;s/^# \{0,1\}//p}' "$script"
    exit 0
    ;;
esac

say() { printf '\n== %s\n' "$*"; }
fail() {
    printf '%s: %s\n' "$script" "$*" >&2
    exit 1
}

# What is built goes to $builds/PRESET: a folder of the source tree, or the one that the environment variable
# VYX_BUILD_DIR names. Nothing else is written, so that the source tree may be read-only.
builds=${VYX_BUILD_DIR:-$PWD/build}
[[ $builds = /* ]] || builds=$caller/$builds
export VYX_BUILD_DIR=$builds
[ -d "$builds" ] || mkdir -p -- "$builds" 2>/dev/null || true
[ -w "$builds" ] || fail "cannot write into $builds; set VYX_BUILD_DIR to a folder of your own"

any_command() {
    local name
    for name in "$@"; do
        if command -v "$name" >/dev/null; then return 0; fi
    done
    return 1
}
has_header() { $1 -E -x c++ -include "$2" /dev/null >/dev/null 2>&1; } # COMPILER HEADER
has_module() { any_command pkg-config && pkg-config --exists "$1"; }

# has PACKAGE: the machine has what Debian's package of this name brings, wherever it came from.
has() {
    case $1 in
    abigail-tools) any_command abidiff ;;
    clang) any_command clang && any_command clang++ ;;
    cmake) # 3.25 or later, which reads the presets
        any_command cmake &&
            printf '3.25\n%s\n' "$(cmake --version | sed -n '1s/[^0-9]*//p')" | sort --version-sort --check=quiet
        ;;
    debhelper) any_command dh ;;
    dh-python) any_command dh_python3 ;;
    dpkg-dev) any_command dpkg-buildpackage ;;
    g++) any_command gcc && any_command g++ ;;
    g++-*) any_command "${1#g++-}-g++" ;;
    googletest) [ -f /usr/src/googletest/CMakeLists.txt ] ;;
    graphviz) any_command dot ;;
    iproute2) any_command ip ;;
    lib32stdc++6) [ -e /usr/lib32/libstdc++.so.6 ] ;;
    libapr1-dev) has_module apr-1 ;;
    libaprutil1-dev) has_module apr-util-1 ;;
    libbenchmark-dev) has_header g++ benchmark/benchmark.h ;;
    libboost-dev) has_header g++ boost/unordered_map.hpp ;;
    libc++-14-dev) has_header 'clang++ -stdlib=libc++' vector ;;
    libc++abi-14-dev) has_header 'clang++ -stdlib=libc++' cxxabi.h ;;
    libc6-i386) [ -e /lib/ld-linux.so.2 ] ;;
    libglib2.0-dev) has_module glib-2.0 ;;
    libsqlite3-dev) has_header g++ sqlite3.h ;;
    libspdlog-dev) has_module spdlog ;;
    libuv1-dev) has_module libuv ;;
    lld) any_command ld.lld ;;
    llvm) any_command llvm-config ;;
    ninja-build) any_command ninja ninja-build ;;
    nodejs) any_command node ;;
    pkgconf) any_command pkgconf pkg-config ;;
    qemu-user) any_command qemu-aarch64 && any_command qemu-ppc ;;
    zlib1g-dev) has_header g++ zlib.h ;;
    systemtap-sdt-dev) has_header g++ sys/sdt.h ;;
    *) any_command "$1" ;;
    esac
}

# Leaves in `missing` those of the packages that the machine does not have.
look_for() {
    local package
    missing=()
    for package in "$@"; do
        has "$package" || missing+=("$package")
    done
}

# Installs the packages. Otherwise the reason is left in `reason`.
install() {
    local root=() apt=(apt-get -qq -o DPkg::Lock::Timeout=300 -o Acquire::Retries=1)
    [ "$(id -u)" -eq 0 ] || root=(sudo)
    reason="there is no apt-get here, and these are names of Debian packages"
    any_command apt-get || return 1
    reason="this user is not root, and there is no sudo"
    any_command "${root[@]:-true}" || return 1
    say "Installing $*"
    reason="${root:+sudo }apt-get failed; it says above why"
    "${root[@]}" "${apt[@]}" update </dev/null &&
        DEBIAN_FRONTEND=noninteractive "${root[@]}" "${apt[@]}" install --yes --no-install-recommends "$@" \
            </dev/null >/dev/null # what goes wrong is on standard error
}

# need PACKAGE...: installs what is missing. The package manager is looked for only then. Where that fails, says
# what is missing and how an administrator installs it; the result is 1.
need() {
    local missing reason=''
    look_for "$@"
    [ ${#missing[@]} -gt 0 ] || return 0
    if install "${missing[@]}"; then
        look_for "$@"
        [ ${#missing[@]} -gt 0 ] || return 0
        reason="what apt-get installed is not enough (CMake must be 3.25 or later)"
    fi
    cat >&2 <<END

$script: this machine lacks: ${missing[*]}
    Not installed: $reason.
    An administrator of a Debian machine installs them with:
    apt-get update && apt-get install --no-install-recommends ${missing[*]}
END
    return 1
}

# want PACKAGE...: as need, but the script goes on without them.
want() {
    need "$@" || printf '%s goes on without them.\n' "$script" >&2
}

BUILD_PACKAGES=(cmake ninja-build g++)
TEST_PACKAGES=("${BUILD_PACKAGES[@]}" googletest pkgconf python3)
# Without them some tests are skipped or not there.
TOOLS_OF_TESTS=(abigail-tools iproute2 gdb libsqlite3-dev patch pigz zlib1g-dev)
TOOLS_OF_TESTS+=(mandoc systemtap-sdt-dev valgrind) # the same

# What a preset needs beside the above.
packages_of() {
    case $1 in
    release) echo libbenchmark-dev ;;
    clang | fuzz) echo clang ;;
    libcxx) echo clang libc++-14-dev libc++abi-14-dev ;;
    i686) echo g++-i686-linux-gnu libc6-i386 lib32stdc++6 ;;
    powerpc | aarch64) echo "g++-$1-linux-gnu" qemu-user ;;
    esac
}

configure() { cmake --preset "$1" -B "$builds/$1" >/dev/null; }

# build PRESET [TARGET...]: configures, which takes a second where nothing has changed, and builds.
build() {
    local preset=$1
    shift
    configure "$preset"
    cmake --build "$builds/$preset" ${1:+--target "$@"}
}

# run_tests PRESET [CTEST-OPTION...]. More tests at once than processors, as most of them wait most of the time. What
# failed is told again at the end, in the last lines of a log.
run_tests() {
    local preset=$1 code=0
    shift
    ctest --test-dir "$builds/$preset" --output-on-failure --no-tests=error -j $((2 * $(nproc))) "$@" || code=$?
    [ $code -eq 0 ] || ends_of_failed "$builds/$preset/Testing/Temporary/LastTest.log"
    return $code
}
# The last lines of each failed test's output, from CTest's log of a run.
ends_of_failed() {
    awk 'FILENAME ~ /Failed.log$/ { sub(/^[0-9]+:/, ""); failed[$0] = 1; next }
        /^[0-9]+\/[0-9]+ Testing: / { name = $0; sub(/^[^:]*: /, "", name) }
        /^Output:$/ { count = -2 }
        /^<end of output>$/ { last = count }
        /^Test time = / && name in failed {
            print "\n== Failed: " name
            for (i = last > 12 ? last - 11 : 1; i <= last; ++i)
                print substr(lines[i], 1, 500)
        }
        { lines[++count] = $0 }' "${1%.log}sFailed.log" "$1"
}
