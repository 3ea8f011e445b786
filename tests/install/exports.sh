#!/bin/sh
# Compares the names that the library is to export (the file LIST, linkage names) with
#   exports.sh library LIBRARY          those that the built library does export, each of version VYX_1.0
#   exports.sh headers SOURCE           those that the headers under SOURCE mark with VYX_API
#   exports.sh called LIBRARY PROGRAM   and those of its C functions with the ones that PROGRAM calls
# CXX, CXXFILT, READELF and LIST are in the environment.
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

# Dynamic symbols of $1, "TYPE SECTION NAME[@VERSION]" a line; section UND is undefined.
symbols() { "$READELF" --dyn-syms --wide "$1" | awk '$1 ~ /^[0-9]+:$/ && NF >= 8 && $5 != "LOCAL" { print $4, $7, $8 }'; }

library() {
    sed 's/$/@@VYX_1.0/' "$LIST" >"$work/listed"
    symbols "$1" | awk '$2 ~ /^[0-9]+$/ { print $3 }' >"$work/in_library"
    same listed in_library
}

called() {
    symbols "$1" | sed -n '/ _Z/d; s/^FUNC [0-9]* \(.*\)@@.*/\1/p' >"$work/c_functions"
    symbols "$2" | sed -n 's/@.*//; s/.* UND //p' >"$work/undefined"
    grep -xFf "$work/c_functions" "$work/undefined" >"$work/in_program"
    same c_functions in_program
}

# Qualified names, one for each overload. Of a class with virtual functions the compiler makes tables by itself.
listed_qualified() {
    "$CXXFILT" <"$LIST" | sort -u | sed -E '/^(vtable|typeinfo|typeinfo name) for /d; s/\(.*//; s/\[abi:.*//'
}

# The same from the preprocessed headers: one statement a line, then those marked, and members of marked classes.
declared_qualified() {
    (cd "$1" && grep -rlw VYX_API include src --include='*.h') | sed 's|^include/||; s|^src/||; s|.*|#include "&"|' |
        "$CXX" -std=c++17 -I "$1/include" -iquote "$1/src" -x c++ -E -P - |
        tr '\n' ' ' | awk '{ gsub(/[;{}]/, "&\n"); print }' | awk '
        function declare(text, scope) {
            gsub(/__attribute__ *\(\((visibility\("default"\)|noreturn)\)\)/, "", text)
            sub(/ *[[(;].*/, "", text)
            if (match(text, /operator[^a-z]+$/)) text = substr(text, RSTART)
            sub(/.*[ *&]/, "", text)
            print scope text
        }
        { marked = index($0, "visibility(\"default\")") > 0 }
        /namespace vyx *{/ { space = "vyx::"; space_depth = depth }
        marked && /class .*{/ {
            class = $0
            sub(/ *(final *)?(:.*)?{$/, "", class); sub(/.* /, "", class)
            class_depth = depth
        }
        /;$/ && class != "" && depth == class_depth + 1 && /\(/ && !/= *delete/ { declare($0, space class "::") }
        /;$/ && class == "" && marked { declare($0, space) }
        /{$/ { depth++ }
        /}$/ { depth-- }
        /}$/ && depth == class_depth { class = "" }
        /}$/ && depth == space_depth { space = "" }'
}

headers() {
    listed_qualified >"$work/listed"
    declared_qualified "$1" >"$work/in_headers"
    same listed in_headers
}

"$@"
