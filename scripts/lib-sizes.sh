#!/usr/bin/env bash
# Prints the stripped size of libvqmdb_aim_parser.so of each given build (a copy is stripped;
# the build is left alone), with the strip of the build's own toolchain.
#
# The size moves in whole pages: the linker starts each loaded segment after the one before
# it at a page-determined offset (the writable one so that its read-only-after-relocation
# part ends on a page boundary) and fills the file up to it. So the size stays the same
# while a segment grows into the gap after it, then jumps by a page. The last column is the
# smallest such gap: how many bytes any one segment may still grow by without moving the
# size. (On 32-bit ARM there is one gap, after the code and constant data.)
#
# usage: scripts/lib-sizes.sh BUILD...
set -euo pipefail
for build in "$@"; do
    lib=$build/lib/libvqmdb_aim_parser.so
    [ -f "$lib" ] || { echo "lib-sizes: no $lib" >&2; exit 1; }
    strip=$(sed -n 's/^CMAKE_STRIP:FILEPATH=//p' "$build/CMakeCache.txt")
    readelf=${strip%strip}readelf
    command -v "$readelf" >/dev/null || readelf=readelf
    copy=$(mktemp)
    "${strip:-strip}" --strip-all -o "$copy" "$(readlink -f "$lib")"
    machine=$(file -b "$copy" | cut -d, -f2 | sed 's/^ *//')
    # Offset and file size of each loaded segment, in file order.
    loads=($("$readelf" -lW "$copy" | awk '$1 == "LOAD" { print $2, $5 }'))
    room=
    for ((i = 2; i < ${#loads[@]}; i += 2)); do
        gap=$((loads[i] - (loads[i - 2] + loads[i - 1])))
        [ -n "$room" ] && [ "$room" -le "$gap" ] || room=$gap
    done
    printf '%s\t%s\t%d bytes\t%s bytes of room before the next page\n' "$build" "$machine" \
        "$(stat -c %s "$copy")" "${room:-?}"
    rm -f "$copy"
done
