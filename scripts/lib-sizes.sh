#!/usr/bin/env bash
# Prints the stripped size of libvqmdb_aim_parser.so of each given build (a copy is stripped;
# the build is left alone), with the strip of the build's own toolchain.
#
# usage: scripts/lib-sizes.sh BUILD...
set -euo pipefail
for build in "$@"; do
    lib=$build/lib/libvqmdb_aim_parser.so
    [ -f "$lib" ] || { echo "lib-sizes: no $lib" >&2; exit 1; }
    strip=$(sed -n 's/^CMAKE_STRIP:FILEPATH=//p' "$build/CMakeCache.txt")
    copy=$(mktemp)
    "${strip:-strip}" --strip-all -o "$copy" "$(readlink -f "$lib")"
    machine=$(file -b "$copy" | cut -d, -f2 | sed 's/^ *//')
    printf '%s\t%s\t%d bytes\n' "$build" "$machine" "$(stat -c %s "$copy")"
    rm -f "$copy"
done
