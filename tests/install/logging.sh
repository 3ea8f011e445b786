#!/bin/sh
# logging.sh PREFIX LIBDIR SOURCE SCRATCH CC: does with what is installed what docs/logging.md tells: a service that is killed
# and started again, in both ways; no line of either run is lost.
set -eu
prefix=$1 libdir=$2 page=$3/docs/logging.md scratch=$4 cc=$5
rm -rf "$scratch"
mkdir -p "$scratch"
cd "$scratch"
fail() { echo "$*"; exit 1; }
block() { sed -n "/^\`\`\`[a-z]* $1\$/,/^\`\`\`\$/p" "$page" | sed '/^```/d'; }

block service.c >service.c
"$cc" -std=c11 -I "$prefix/include" service.c -o service -L "$libdir" -Wl,-rpath,"$libdir" -lvyx
export PATH="$prefix/bin:$PATH"
mkfifo input
vyx-sem --help >/dev/null || fail "vyx-sem does not start"
lines() { vyx-log --chmod "$@" 2>/dev/null | wc -l; } # a run may just rename a file

# run_and_kill START LINES FOLDERS: waits until all lines are there, then kills the service.
run_and_kill() {
    block "$1" >"$1"
    sh "./$1" 0<>input & # whose end never comes
    service=$!
    for _ in $(seq 300); do
        [ "$(lines $3)" -ne "$2" ] || break
        sleep 0.2 # between two looks
    done
    [ "$(lines $3)" -eq "$2" ] || fail "$1: $(lines $3) lines instead of $2"
    kill -KILL "$service"
    wait "$service" || true
}
for start in start-in-one start-in-new; do
    folders='runs/*'
    [ $start = start-in-new ] || folders=logs
    run_and_kill $start 1000 "$folders"
    run_and_kill $start 2000 "$folders"
    vyx-log --check $folders || fail "$start: the check finds something"
    for folder in $folders; do vyx-log --finish "$folder" >/dev/null; done
    vyx-log --archive $folders >/dev/null
    [ "$(lines $folders)" -eq 2000 ] || fail "$start: the archives have $(lines $folders) lines"
    [ "$(vyx-log $folders | grep -c 'request 1000$')" -eq 2 ] || fail "$start: the last line of a run is missing"
done
