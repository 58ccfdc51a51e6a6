#!/usr/bin/env bash
# Runs the libFuzzer targets of a fuzz build: first every kept crash input of a target
# (fuzz/regressions/TARGET/, each must now run clean), then the target for SECONDS from its
# seed corpus. The corpus it grows is kept in BUILD/fuzz-corpus/TARGET/; a crashing input is
# written to BUILD/fuzz-crashes/TARGET/ and fails the run.
#
# usage: scripts/fuzz.sh BUILD SECONDS [TARGET...]   (default: every target)
# FUZZ_RUNS=N also stops a target after N executions, whichever comes first.
set -euo pipefail
build=$(cd "$1" && pwd) seconds=$2
shift 2
targets=("$@")
[ ${#targets[@]} -gt 0 ] || targets=(reader parse_aim fru vnic vpd gpu machine http_request redfish_db)
src=$(cd "$(dirname "$0")/.." && pwd)
# A smaller quarantine than ASan's 256 MB still outlives every input many times over, and
# spares a page fault on most allocations.
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:quarantine_size_mb=32} UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1}
# The targets' private sysroots live in the build tree, away from cleaners of /tmp.
export TMPDIR=$build/fuzz-tmp
mkdir -p "$TMPDIR"
status=0
for t in "${targets[@]}"; do
    bin=$build/bin/fuzz_$t corpus=$build/fuzz-corpus/$t crashes=$build/fuzz-crashes/$t
    mkdir -p "$corpus" "$crashes"
    opts=(-timeout=20 -rss_limit_mb=2048 -max_len=65536 -artifact_prefix="$crashes/")
    runs=()
    [ -z "${FUZZ_RUNS:-}" ] || runs=(-runs="$FUZZ_RUNS")
    case $t in reader | parse_aim) opts+=(-dict="$src/fuzz/aim.dict") ;; esac
    regressions=("$src"/fuzz/regressions/"$t"/*)
    if [ -e "${regressions[0]}" ]; then
        echo "=== fuzz $t: ${#regressions[@]} kept crash inputs"
        "$bin" "${opts[@]}" "${regressions[@]}" >"$build/fuzz-$t-regressions.log" 2>&1 ||
            { tail -40 "$build/fuzz-$t-regressions.log"; status=1; continue; }
    fi
    echo "=== fuzz $t: ${seconds}s"
    if ! "$bin" "${opts[@]}" -max_total_time="$seconds" "${runs[@]}" -print_final_stats=1 "$corpus" "$src/fuzz/corpus/$t" \
        >"$build/fuzz-$t.log" 2>&1; then
        tail -60 "$build/fuzz-$t.log"
        echo "fuzz $t: crash input in $crashes/" >&2
        status=1
    fi
    grep -E '^#[0-9]+ *DONE|stat::number_of_executed_units|stat::average_exec_per_sec' "$build/fuzz-$t.log" || true
done
exit $status
