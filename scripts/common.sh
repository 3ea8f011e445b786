# Shared by the scripts: where the project is, and how what is missing gets installed.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

say() { printf '\n== %s\n' "$*"; }

# need PACKAGE...: installs those Debian packages that are missing. Asks the package manager only then.
need() {
    local package missing=()
    for package in "$@"; do
        [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null)" = installed ] || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    say "Installing ${missing[*]}"
    local root=()
    [ "$(id -u)" -eq 0 ] || root=(sudo)
    "${root[@]}" apt-get update -qq
    DEBIAN_FRONTEND=noninteractive "${root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# build PRESET [TARGET...]: configures, which takes a second where nothing has changed, and builds.
build() {
    local preset=$1
    shift
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" ${1:+--target "$@"}
}

BUILD_PACKAGES=(cmake ninja-build g++ pkgconf)
TEST_PACKAGES=(googletest libgtest-dev libbenchmark-dev graphviz iproute2 python3 gdb patch pigz)
# Libraries that scripts/bench compares with. The build does without those that are missing.
PEER_PACKAGES=(libapr1-dev libaprutil1-dev libglib2.0-dev libuv1-dev libboost-dev libspdlog-dev)
