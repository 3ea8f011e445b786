#!/bin/sh
# probes.sh READELF LIBRARY DOCUMENT: the static probes in the library's notes are those of the document's table.
set -eu
found=$("$1" -n "$2" | awk '/^ *Provider:/ { provider = $2 } /^ *Name:/ && provider == "vyx" { print $2 }' | sort -u)
told=$(sed -n '/^| Probe (/,/^$/s/^| `\([a-z_]*\)` .*/\1/p' "$3" | sort)
[ "$found" = "$told" ] || { echo "the library has the probes" $found "but $3 tells of" $told; exit 1; }
