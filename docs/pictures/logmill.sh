#!/usr/bin/env bash
# What the recording of logmill shows:
#   docs/terminal.py record docs/pictures/logmill.cast docs/pictures/logmill.sh FOLDER-OF-LOGMILL
#   docs/terminal.py draw docs/pictures/logmill.cast > docs/pictures/logmill.svg
set -eu
PATH=$1:$PATH
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"
for name in web mail database backup; do
    awk -v name=$name 'BEGIN { for (n = 1; n <= 600000; ++n)
        print name, n, (n % 97 == 0 ? "error: no answer" : n % 31 == 0 ? "warning: slow" : "request served"), n * 7 % 1000 " ms" }' \
        >$name.log
done
pause() { read -rt "$1" <> <(:) || true; } # SECONDS
type_in() { # COMMAND as somebody types it
    local n
    printf '$ '
    for ((n = 0; n < ${#1}; ++n)); do printf %s "${1:n:1}" && pause 0.03; done
    echo
}
type_in 'logmill collect --directory logs --file-size 67108864 &'
exec {said}< <(exec logmill collect --directory logs --file-size 67108864)
collector=$!
read -r -u "$said" line
echo "$line"
port=${line#*port } port=${port%% *}
type_in "for log in *.log; do logmill send --port $port \$log & done; wait"
cat <&"$said" &
printer=$!
senders=()
for log in *.log; do logmill send --port "$port" "$log" & senders+=($!); done
wait "${senders[@]}"
pause 1.5 # until the last line of progress
type_in 'kill -INT %1'
kill -INT $collector
wait $printer
type_in 'ls logs'
ls logs | column -c 88
pause 1
