#!/bin/sh
# Compares the names that the library is to export (the file LIST, linkage names) with
#   exports.sh library LIBRARY          those that the shared library exports, each of version VYX_1.0
#   exports.sh marked ARCHIVE           those that the headers mark with VYX_API, and so are visible in the objects
# and
#   exports.sh bound LIBRARY            looks that the library's calls of its own functions do not reach those of the same name
#                                       in a program, and that it stays loaded when a plug-in that brought it is closed
# READELF and LIST are in the environment.
set -eu
if [ "$1" = bound ]; then
    "$READELF" -d "$2" | grep -w NODELETE || { echo "the library may be unloaded while its threads run"; exit 1; }
    # Data is left out: a program that defines a variable of that name gets its own, as anywhere in ELF.
    "$READELF" -r --wide "$2" | grep -o '[A-Za-z0-9_]*@@VYX_1.0' | grep -Ev '^(_ZT|s_|vyx_|VYX_HSEARCH_)' || exit 0
    echo "the loader binds these, perhaps to functions of the program"
    exit 1
fi
found=$(mktemp)
trap 'rm -f "$found"' EXIT

# symbols OPTION FILE: NAME[@VERSION] of each visible symbol that is defined in a section.
symbols() {
    "$READELF" "$1" --wide "$2" | awk '$5 != "LOCAL" && $6 == "DEFAULT" && $7 ~ /^[0-9]+$/ { print $8 }'
}

case $1 in
library) symbols --dyn-syms "$2" ;;
# Left out: what the compiler adds to the objects, namely functions of std and a sanitizer's own names.
marked) symbols --symbols "$2" | awk '!/^_Z[A-Z]*St|^__/ { print $1 "@@VYX_1.0" }' | sort -u ;;
esac | sort >"$found"
[ -s "$found" ] || { echo "nothing to compare"; exit 1; }
sed 's/$/@@VYX_1.0/' "$LIST" | sort | diff -U0 - "$found"
