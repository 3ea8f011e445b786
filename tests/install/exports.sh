#!/bin/sh
# Compares the names that the library is to export (the file LIST, linkage names) with
#   exports.sh library LIBRARY          those that the shared library exports, each of version VYX_1.0
#   exports.sh marked ARCHIVE           those that the headers mark with VYX_API, and so are visible in the objects
# The library's calls of its own functions must not reach those of the same name in a program, and it must stay loaded when
# a plug-in that brought it is closed. READELF and LIST are in the environment.
set -eu
found=$(mktemp)
trap 'rm -f "$found"' EXIT

# symbols OPTION FILE: NAME[@VERSION] of each visible symbol that is defined in a section.
symbols() {
    "$READELF" "$1" --wide "$2" | awk '$5 != "LOCAL" && $6 == "DEFAULT" && $7 ~ /^[0-9]+$/ { print $8 }'
}

if [ "$1" = library ]; then
    symbols --dyn-syms "$2"
    "$READELF" -d "$2" | grep -qw NODELETE || echo "may be unloaded while its threads run"
    # Functions that the loader binds. A program that defines a variable of such a name gets its own, as anywhere in ELF.
    "$READELF" -r --wide "$2" | grep -o '[A-Za-z0-9_]*@@VYX_1.0' | sed -E '/^(_ZT|s_|vyx_|VYX_HSEARCH_)/d; s/^/bound late: /'
else # Left out: what the compiler adds to the objects, namely functions of std and a sanitizer's own names.
    symbols --symbols "$2" | awk '!/^_Z[A-Z]*St|^__/ { print $1 "@@VYX_1.0" }' | sort -u
fi | sort >"$found"
[ -s "$found" ] || { echo "nothing to compare"; exit 1; }
sed 's/$/@@VYX_1.0/' "$LIST" | sort | diff -U0 - "$found"
