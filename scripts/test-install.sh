#!/usr/bin/env bash
# Installs a build into a temporary prefix and uses it as another project would: two consumer
# programs (tests/consumer) built outside the source tree, one through find_package and one
# through pkg-config, parse an example AIM file and FRU image and check what they read. Then
# the installed manual page must show every command and option of aimctl's help, and the
# installed bash completion must offer the commands and a command's options.
#
# usage: scripts/test-install.sh BUILD [--toolchain FILE --sysroot DIR]
#   with a toolchain and sysroot (the ARM build), the consumers are cross-built and every
#   program runs under qemu-arm with that sysroot.
set -euo pipefail
SRC=$(cd "$(dirname "$0")/.." && pwd)
BUILD=$(cd "${1:?build directory}" && pwd)
shift
TOOLCHAIN="" SYSROOT=""
while [ $# -gt 0 ]; do
    case "$1" in
        --toolchain) TOOLCHAIN=$2; shift 2 ;;
        --sysroot) SYSROOT=$2; shift 2 ;;
        *) echo "test-install: unknown option '$1'" >&2; exit 2 ;;
    esac
done

WORK=$(mktemp -d "${TMPDIR:-/tmp}/aim-install.XXXXXX")
trap 'rm -rf "$WORK"' EXIT
PREFIX=$WORK/prefix
AIM=$SRC/examples/aim/accel-2u.xml
FRU=$SRC/examples/fru/alveo_u50.bin
fail() { echo "test-install: $*" >&2; exit 1; }

cmake --install "$BUILD" --prefix "$PREFIX" >"$WORK/install.log" || { cat "$WORK/install.log" >&2; fail "install failed"; }
LIBDIR=$(dirname "$(find "$PREFIX" -name vqmdb_aim_parser.pc | head -n1)")/..
[ -f "$LIBDIR/pkgconfig/vqmdb_aim_host_platform.pc" ] || fail "no pkg-config file of the host platform"

run=()
CXX=c++
if [ -n "$TOOLCHAIN" ]; then
    run=(qemu-arm -L "$SYSROOT")
    CXX=arm-linux-gnueabihf-g++
fi

# 1. find_package: the consumer's own CMake project, configured against the prefix alone, in
# both orders of the two targets and with a linker that drops unneeded libraries.
# (The package's folder is named directly: a cross toolchain searches for packages only
# below its sysroot.)
for first in OFF ON; do
    dir=$WORK/cmake-consumer-$first
    cmake_args=(-S "$SRC/tests/consumer" -B "$dir" -Dvqmdb_aim_parser_DIR="$LIBDIR/cmake/vqmdb_aim_parser"
                -DAIM_CONSUMER_PLATFORM_FIRST=$first)
    [ -n "$TOOLCHAIN" ] && cmake_args+=(-DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN" -DAIM_ARM_SYSROOT="$SYSROOT")
    log=$WORK/consumer-cmake-$first.log
    cmake "${cmake_args[@]}" >"$log" 2>&1 || { cat "$log" >&2; fail "find_package consumer (platform first: $first): configure failed"; }
    cmake --build "$dir" >>"$log" 2>&1 || { cat "$log" >&2; fail "find_package consumer (platform first: $first): build failed"; }
    "${run[@]}" "$dir/consumer" "$AIM" "$FRU" || fail "find_package consumer (platform first: $first): wrong results"
done

# 2. pkg-config: a plain compiler call with the flags of both files, found from the prefix only,
# the two packages named in either order, with --as-needed.
libdir=$(PKG_CONFIG_LIBDIR="$LIBDIR/pkgconfig" pkg-config --variable=libdir vqmdb_aim_parser)
extra=()
[ -n "$SYSROOT" ] && extra+=(-Wl,-rpath-link,"$SYSROOT/usr/lib/arm-linux-gnueabihf"
                             -Wl,-rpath-link,"$SYSROOT/lib/arm-linux-gnueabihf" -Wno-psabi)
for packages in "vqmdb_aim_parser vqmdb_aim_host_platform" "vqmdb_aim_host_platform vqmdb_aim_parser"; do
    # shellcheck disable=SC2086
    pc_flags=$(PKG_CONFIG_LIBDIR="$LIBDIR/pkgconfig" PKG_CONFIG_SYSROOT_DIR="" pkg-config --cflags --libs $packages)
    # shellcheck disable=SC2086
    "$CXX" -std=c++17 -o "$WORK/pc-consumer" "$SRC/tests/consumer/consumer.cpp" -Wl,--as-needed $pc_flags \
        -Wl,-rpath,"$libdir" "${extra[@]}" || fail "pkg-config consumer ($packages): build failed"
    "${run[@]}" "$WORK/pc-consumer" "$AIM" "$FRU" || fail "pkg-config consumer ($packages): wrong results"
done

# The installed aimctl, run as a user would (under the emulator for ARM).
mkdir -p "$WORK/bin"
printf '#!/bin/sh\nexec %s "%s" "$@"\n' "${run[*]}" "$PREFIX/bin/aimctl" >"$WORK/bin/aimctl"
chmod +x "$WORK/bin/aimctl"
AIMCTL=$WORK/bin/aimctl
"$AIMCTL" --version | grep -q -E '^aimctl [0-9]+\.[0-9]+\.[0-9]+$' || fail "aimctl --version"

# 3. The manual page shows every command of 'aimctl --help' and every option of each command's help.
page=$(find "$PREFIX" -path '*/man1/aimctl.1')
[ -n "$page" ] || fail "no manual page installed"
manual=$(LC_ALL=C MANWIDTH=120 man -l "$page" 2>/dev/null | col -b)
commands=$("$AIMCTL" --help | sed -n '/^commands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p')
[ -n "$commands" ] || fail "aimctl --help lists no command"
for c in $commands; do
    grep -q -E "^ +$c( |$)" <<<"$manual" || fail "the manual page has no section for the command '$c'"
    for o in $("$AIMCTL" "$c" --help | grep -o -E -- '--[a-z][a-z-]*' | sort -u); do
        grep -q -- "$o" <<<"$manual" || fail "the manual page does not name the option $o of '$c'"
    done
done
for o in $("$AIMCTL" --help | grep -o -E -- '--[a-z][a-z-]*' | sort -u); do
    grep -q -- "$o" <<<"$manual" || fail "the manual page does not name the option $o"
done

# 4. Completion, as bash loads it from the installed file.
completion=$(find "$PREFIX" -path '*/bash-completion/completions/aimctl')
[ -n "$completion" ] || fail "no bash completion installed"
complete_words() {
    PATH="$WORK/bin:$PATH" bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _aimctl; echo "${COMPREPLY[*]}"' \
        complete "$completion" "$@"
}
got=$(complete_words aimctl "")
[ "$got" = "$(echo $commands)" ] || fail "completion after 'aimctl ': '$got', not '$(echo $commands)'"
got=$(complete_words aimctl ingest --)
for o in --db --machine --help; do
    grep -q -- "$o" <<<"$got" || fail "completion after 'aimctl ingest --' lacks $o: '$got'"
done
got=$(complete_words aimctl machine --)
for o in --lspci --dmidecode --sysfs --out --aim --format; do
    grep -q -- "$o" <<<"$got" || fail "completion after 'aimctl machine --' lacks $o: '$got'"
done
got=$(complete_words aimctl machine --format "")
[ "$got" = "table json" ] || fail "completion after 'aimctl machine --format ': '$got'"
echo "test-install: both consumers built against $PREFIX and passed; manual page and completion complete"
