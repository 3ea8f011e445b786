#!/bin/sh
# The static probes.
#   probes.sh notes READELF LIBRARY DOCUMENT
#       those in the library's notes are those of the list below and of the document
#   probes.sh gdb PROGRAM SCRATCH
#       gdb sees at them what the program says
#   probes.sh bpftrace PROGRAM SCRATCH SCRIPTS
#       the scripts of bpftrace see what the program does. Exit status 77: they cannot be run here
set -eu
here=$(CDPATH='' cd "$(dirname "$0")" && pwd)
# Name, arguments, places in the source. A compiler may make several of one.
list='cond_wait_begin 1 3
cond_wait_end 2 3
event_set 1 1
event_wait_begin 1 2
event_wait_end 2 2
flex_hand_over 2 1
log_line 3 1
log_written 1 1
pool_hand_over 3 2
queue_receive 2 1
queue_send 1 1
sem_post 1 1
sem_wait_begin 1 2
sem_wait_end 2 3
start 1 1
stop 1 1
timer_begin 2 1
timer_end 1 1'
fail() { echo "$*"; exit 1; }

notes() {
    found=$("$1" -n "$2" | awk '
        /^ *Provider:/ { provider = $2 }
        /^ *Name:/ { name = $2 }
        /^ *Arguments:/ && provider == "vyx" { print name, gsub(/[0-9]@/, "") }')
    [ "$(echo "$found" | cut -d' ' -f1 | sort -u)" = "$(echo "$list" | cut -d' ' -f1)" ] ||
        fail "the library has the probes" $(echo "$found" | sort -u)
    echo "$list" | while read -r name arguments places; do
        [ "$(echo "$found" | grep -cx "$name $arguments")" -ge "$places" ] ||
            fail "probe $name is not at $places places with $arguments arguments"
        grep -q "^| \`$name\`" "$3" || fail "$3 does not tell of $name"
    done
}

scratch() {
    rm -rf "$1"
    mkdir -p "$1"
    cd "$1"
}

with_gdb() {
    scratch "$2"
    printf '\n\n' >input
    timeout 200 gdb -nx -batch -x "$here/probes_gdb.py" "$1" >gdb.out 2>&1 || { cat gdb.out; fail "gdb failed"; }
    sed "/^ready/d" said | sort -u >said.sorted
    sort -u seen >seen.sorted
    [ "$(wc -l <said.sorted)" -ge 20 ] || fail "the program says too little"
    comm -23 said.sorted seen.sorted >missing
    [ ! -s missing ] || { echo "not seen:"; cat missing; echo "but:"; cat seen.sorted; exit 1; }
}

# trace SCRIPT [TEXT]: runs the program under it, until it says TEXT at last; leaves what the program says in "said", what the
# script says in "traced".
trace() {
    rm -f go traced
    mkfifo go
    "$program" <go >said &
    traced=$!
    exec 3>go
    await ready said
    bpftrace -p "$traced" "$1" >traced 2>&1 &
    tracer=$!
    await Tracing traced
    echo >&3
    await '^stop 0' said
    await "${2:-Tracing}" traced
    kill -INT "$tracer"
    wait "$tracer" || { cat traced; fail "$1 failed"; }
    exec 3>&-
    wait "$traced"
}
await() { # TEXT FILE: fails after a minute
    for _ in $(seq 600); do
        if grep -qs "$1" "$2"; then return; fi
        sleep 0.1 # between two looks
    done
    cat "$2"
    fail "$2 does not say $1"
}

with_bpftrace() {
    program=$1
    scratch "$2"
    if ! timeout 60 bpftrace -e 'BEGIN { exit(); }' >why 2>&1; then
        echo "not run: bpftrace says: $(cat why)"
        exit 77
    fi
    trace "$3/waits.bt"
    semaphore=$(sed -n 's/^sem_post 0x//p' said)
    # Beside the two of Sync, those for the items and ticks that the program awaits.
    grep -Eq "^@waits\[semaphore, $((0x$semaphore))\]: 6\$" traced || { cat traced; fail "the semaphore's waits"; }
    grep -q '^@conditions_us:' traced && grep -q '^@events_us:' traced || { cat traced; fail "other waits"; }
    trace "$3/queues.bt" '^@now.*: 1$'
    queue=$((0x$(sed -n 's/^queue_send 0x//p' said)))
    for text in "now[$queue]: 1" "sent[$queue]: 2" "received[$queue]: 1" "deepest[$queue]: 2"; do
        grep -Fqx "@$text" traced || { cat traced; fail "$text is missing"; }
    done
}

mode=$1
shift
case $mode in
notes) notes "$@" ;;
gdb) with_gdb "$@" ;;
bpftrace) with_bpftrace "$@" ;;
esac
