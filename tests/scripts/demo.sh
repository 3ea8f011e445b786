#!/usr/bin/env bash
# demo.sh SOURCE SCRATCH LOGMILL: scripts/demo with a program that is built already.
. "$(dirname "$0")/fakes.sh"
mill=$scratch/build/demo/examples/logmill/logmill
demo=$source/scripts/demo
mkdir -p "$(dirname "$mill")" "$scratch/files"
mkfifo "$scratch/pause"
ln -s "$3" "$mill"
cd "$scratch/files"

odd=$'-a\nb \'$(false)*"\\'
printf 'one\ntwo\n' >"$odd"
printf 'no line end' >'-'
: >empty
case='odd names, standard input, an empty file'
run "$demo" -- "$odd" ./- - empty "$scratch/files/$odd" < <(printf 'x\n%.0s' {1..1000})
expect 0 'check: each of 1005 lines' "left on the disk: 1 log files, 1 MiB, in $scratch/build/demo/run-1/logs"
[ "$(ls "$scratch/build/demo/run-1")" = logs ] || complain 'copies are left'

case='one runs within the time of another; a third removes what both left'
mkfifo input
PATH=$scratch/bin VYX_BUILD_DIR=../build "$demo" - <input >"$scratch/first" 2>&1 &
exec {input}>input
for ((tries = 0; tries < 600; ++tries)); do
    [ ! -p "$scratch/build/demo/run-1/tick" ] || break
    read -rt 0.1 <>"$scratch/pause" || true
done
run "$demo" -- "$odd"
expect 0 'check: each of 8 lines' "$scratch/build/demo/run-2/logs"
echo first >&"$input"
exec {input}>&-
wait $! || complain "the first one failed: $(cat "$scratch/first")"
grep -q 'check: each of 4 lines' "$scratch/first" || complain "$(cat "$scratch/first")"
[ "$(cd "$scratch/build/demo" && echo run-*)" = 'run-1 run-2' ] || complain "$(ls "$scratch/build/demo")"
run "$demo" empty "$odd"
expect 0 'check: each of 2 lines'
[ "$(cd "$scratch/build/demo" && echo run-*)" = run-1 ] || complain "$(ls "$scratch/build/demo")"

case='no reason to start'
run "$demo" -x
expect 2 'there is no option -x'
run "$demo" $'no\nfile'
expect 1 "there is no file" "no\\nfile"
run "$demo" "$scratch"
expect 1 'is a folder'

# What the demo says after COMMAND has changed the log files.
mapfile -t spoiled <<'END'
sed -i 2d *|lines are missing, double or not in the order
sed -i 2s/two/TWO/ *|what is stored of 1-odd is not what was sent
sed -i /three/d *|what is stored of 1-odd is not what was sent
more=$(sed s/1-odd/9-odd/ *); echo "$more" >>vyx_log_1_w.log|lines that nobody sent
rm *|cannot read the log files
echo three >>vyx_log_1_w.log|not a record: three
END
printf 'one\ntwo\nthree\n' >odd
for pair in "${spoiled[@]}"; do
    case="after ${pair%|*}"
    fake xargs 'names=$(cat)' "${pair%|*}" "echo \"\$names\" | $(command -v xargs) \"\$@\"" # called in the logs' folder
    run "$demo" odd empty
    expect 1 "${pair##*|}"
done

case='a collector that does not start'
rm "$mill"
ln -s "$scratch/bin/none" "$mill"
run "$demo" odd
expect 1 'the collector did not start'

exit $failed
