#!/usr/bin/env bash
# Ingests every example machine (examples/machines/*/) with `aimctl ingest` of the sanitizer
# build, LeakSanitizer on: a leak, a memory error, undefined behaviour or a failed ingest
# fails the check.
#
# usage: scripts/leak-check.sh [ASAN_BUILD]   (default build-asan)
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${1:-build-asan}
AIMCTL="$BUILD/bin/aimctl"
[ -x "$AIMCTL" ] || { echo "leak-check: no $AIMCTL (make build-asan)" >&2; exit 1; }
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:exitcode=86}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1:exitcode=86}
export LSAN_OPTIONS=${LSAN_OPTIONS:-exitcode=23}
case ":$ASAN_OPTIONS:" in *:detect_leaks=0:*) echo "leak-check: ASAN_OPTIONS turns leak detection off" >&2; exit 1 ;; esac

if ! "$AIMCTL" ingest --help >/dev/null 2>&1; then
    echo "leak-check: aimctl has no ingest command yet: nothing to check"
    exit 0
fi

# The AIM file of a machine: examples/aim/NAME.xml for examples/machines/NAME/, else
# aim.xml beside machine.json, else the controller's copy in the machine's tree
# (pstorage/cmr/aim.xml), else the first other XML file there.
aim_file() {
    local d=${1%/} f
    for f in "examples/aim/$(basename "$d").xml" "$d/aim.xml" "$d/pstorage/cmr/aim.xml"; do
        [ -f "$f" ] && { echo "$f"; return; }
    done
    find "$d" -name '*.xml' -type f | LC_ALL=C sort | head -n1
}

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
passed=0
failed=0
for dir in examples/machines/*/; do
    [ -f "$dir/machine.json" ] || continue
    name=$(basename "$dir")
    aim=$(aim_file "$dir")
    if [ -z "$aim" ]; then
        echo "leak-check: $name: no AIM file" >&2
        failed=$((failed + 1))
        continue
    fi
    status=0
    "$AIMCTL" ingest --db "$tmp/$name.db" --machine "$dir" "$aim" >"$tmp/$name.out" 2>"$tmp/$name.err" || status=$?
    if [ "$status" = 0 ] && ! grep -qE 'Sanitizer|runtime error:' "$tmp/$name.err"; then
        echo "leak-check: $name: ok ($aim)"
        passed=$((passed + 1))
    else
        echo "leak-check: $name: FAILED, exit status $status ($aim)" >&2
        cat "$tmp/$name.err" >&2
        failed=$((failed + 1))
    fi
done
if [ $((passed + failed)) = 0 ]; then
    echo "leak-check: no example machine in examples/machines/"
fi
echo "leak-check: $passed passed, $failed failed"
[ "$failed" = 0 ]
