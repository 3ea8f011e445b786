#!/bin/sh
# The binary interface of the library: its functions and objects with the types that the public headers give them.
#   abi.sh compare LIBRARY SOURCE DESCRIPTION   prints what differs from the checked-in description; 1 if something does
#   abi.sh write LIBRARY SOURCE DESCRIPTION     writes it anew
# LIBRARY has debugging information. Exit status 77: the tools (Debian: abigail-tools) are not here.
set -eu
action=$1 library=$2 source=$3 description=$4
command -v abidw >/dev/null && command -v abidiff >/dev/null || { echo "abidw and abidiff are not here"; exit 77; }
now=$(mktemp)
trap 'rm -f "$now"' EXIT

abidw --headers-dir "$source/include" --drop-private-types --exported-interfaces-only \
    --suppressions "$source/tests/install/abi/private.suppr" --no-show-locs --no-comp-dir-path --no-corpus-path \
    --no-elf-needed --no-parameter-names --no-write-default-sizes --type-id-style hash "$library" |
    sed "s|path='[^']*/src/|path='src/|" >"$now"
[ "$(grep -c '<function-decl' "$now")" -gt 300 ] || { echo "abidw finds no functions in $library"; exit 1; }

case $action in
write) cat "$now" >"$description" ;;
compare)
    # Two descriptions: a description that is compared with a library has no places, and so no public types.
    abidiff --no-show-locs --harmless "$description" "$now" && exit
    echo "The binary interface differs from $description."
    echo "docs/versioning.md says what may change; if this is meant, scripts/abi writes the description anew."
    exit 1
    ;;
esac
