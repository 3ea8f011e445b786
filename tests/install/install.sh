#!/bin/sh
# install.sh CMAKE BUILD SCRATCH CONFIG: installs BUILD and moves it to SCRATCH/moved, before anybody uses it.
set -eu
rm -rf "$3"
"$1" --install "$2" --prefix "$3/installed" --config "$4"
mv "$3/installed" "$3/moved"
