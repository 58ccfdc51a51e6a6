#!/usr/bin/env bash
# Compares the dynamic symbols that libvqmdb_aim_parser.so exports (demangled, one a line,
# sorted) with the list pinned in the repository, or rewrites the pin with --update.
#
# usage: scripts/check-symbols.sh [--nm NM] [--update] [--any-int-width] LIBRARY PINFILE
#   --nm NM            the nm of the library's toolchain (default nm)
#   --update           write the library's symbols to PINFILE instead of comparing
#   --any-int-width    compare with int, long and long long (signed or unsigned) taken as one
#                      type: the pin is made on a 64-bit build, where size_t and uint64_t are
#                      unsigned long, and this lets a 32-bit build check against it
set -euo pipefail

NM=nm
UPDATE=0
ANY_INT=0
while [ $# -gt 0 ]; do
    case "$1" in
        --nm) NM=$2; shift 2 ;;
        --update) UPDATE=1; shift ;;
        --any-int-width) ANY_INT=1; shift ;;
        -*) echo "check-symbols: unknown option $1" >&2; exit 2 ;;
        *) break ;;
    esac
done
[ $# -eq 2 ] || { echo "usage: $0 [--nm NM] [--update] [--any-int-width] LIBRARY PINFILE" >&2; exit 2; }
LIB=$1
PIN=$2
[ -f "$LIB" ] || { echo "check-symbols: no library at $LIB" >&2; exit 1; }

# Names only (no address, no symbol type); sanitizer instrumentation symbols left out.
exported() {
    "$NM" -D --defined-only "$LIB" | sed -E 's/^[0-9a-fA-F]* +[A-Za-z] +//' | c++filt |
        grep -vE '^(__odr_asan|__asan_|__ubsan_|__sancov_)' | LC_ALL=C sort -u
}

normalize() {
    if [ "$ANY_INT" = 1 ]; then
        sed -E 's/\b(unsigned )?(long long|long|int)\b/\1INT/g' | LC_ALL=C sort -u
    else
        LC_ALL=C sort -u
    fi
}

if [ "$UPDATE" = 1 ]; then
    mkdir -p "$(dirname "$PIN")"
    { echo "# Dynamic symbols exported by $(basename "$LIB"), demangled, sorted; checked by the tests."
      echo "# Regenerate with 'make update-symbols' when the exported surface changes on purpose."
      exported; } > "$PIN"
    echo "check-symbols: wrote $(grep -vc '^#' "$PIN") symbols of $(basename "$LIB") to $PIN"
    exit 0
fi

[ -f "$PIN" ] || { echo "check-symbols: no pinned symbol list at $PIN: run make update-symbols" >&2; exit 1; }
actual=$(exported | normalize)
pinned=$(grep -v '^#' "$PIN" | normalize)
if [ "$actual" = "$pinned" ]; then
    echo "check-symbols: $(basename "$LIB") exports exactly the $(echo "$pinned" | grep -c .) pinned symbols"
    exit 0
fi
echo "The symbols that $(basename "$LIB") exports differ from $PIN:"
LC_ALL=C comm -23 <(echo "$pinned") <(echo "$actual") | sed 's/^/  - pinned, not exported: /'
LC_ALL=C comm -13 <(echo "$pinned") <(echo "$actual") | sed 's/^/  + exported, not pinned: /'
echo "If this change of the exported surface is intended, run 'make update-symbols' and review the"
echo "difference ('git diff symbols/') before committing it with your change."
exit 1
