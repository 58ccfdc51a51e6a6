#!/usr/bin/env bash
# Runs aimctl on the example AIM file: checks and dumps it, then ingests it into a fresh
# inventory database on the example machine and shows the adapter rows.
set -euo pipefail
build=${1:-build}
aimctl="$build/bin/aimctl"
file=examples/aim/server-2u.xml
machine=examples/machines/server-2u
echo "== aimctl check $file"
"$aimctl" check "$file"
echo "== aimctl dump $file"
"$aimctl" dump "$file"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
db="$work/inventory.db"
echo "== aimctl ingest --db $db --machine $machine $file"
"$aimctl" --log-level warn ingest --db "$db" --machine "$machine" "$file"
echo "== aimctl show --db $db PCIAdapter"
"$aimctl" show --db "$db" PCIAdapter
echo "== aimctl show --db $db PCIMisc"
"$aimctl" show --db "$db" PCIMisc
