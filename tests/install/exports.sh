#!/bin/sh
# Compares the names that the library is to export (the file LIST, linkage names) with
#   exports.sh library LIBRARY          those that the shared library exports, each of version VYX_1.0
#   exports.sh marked ARCHIVE           those that the headers mark with VYX_API, and so are visible in the objects
# READELF and LIST are in the environment.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# same LEFT RIGHT: fails and prints the differences of two files, both in any order.
same() {
    sort "$work/$1" >"$work/$1.sorted"
    sort "$work/$2" >"$work/$2.sorted"
    diff -U0 "$work/$1.sorted" "$work/$2.sorted"
    [ -s "$work/$1" ] || { echo "nothing to compare"; exit 1; }
    echo "$(wc -l <"$work/$1") names"
}

# symbols OPTION FILE: "TYPE SECTION NAME[@VERSION]" of each visible symbol; section UND is undefined.
symbols() {
    "$READELF" "$1" --wide "$2" | awk '$1 ~ /^[0-9]+:$/ && $5 != "LOCAL" && $6 == "DEFAULT" && NF >= 8 { print $4, $7, $8 }'
}

library() {
    sed 's/$/@@VYX_1.0/' "$LIST" >"$work/listed"
    symbols --dyn-syms "$1" | awk '$2 ~ /^[0-9]+$/ { print $3 }' >"$work/in_library"
    same listed in_library
}

# Left out: what the compiler adds to the objects, namely functions of std and a sanitizer's own names.
marked() {
    cp "$LIST" "$work/listed"
    symbols --symbols "$1" | awk '$2 != "UND" && $3 !~ /^_Z[A-Z]*St|^__/ { print $3 }' | sort -u >"$work/in_archive"
    same listed in_archive
}

"$@"
