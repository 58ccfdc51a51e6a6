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
for table in VPDs Firmwares PldmDeviceFirmware PCINetwork PCIPhysicalPort PCILogicalPort PCIGPU PCIGPUChip; do
  echo "== aimctl show --db $db $table"
  "$aimctl" show --db "$db" "$table"
done
# The storage example on two machines whose boot adapter holds a 256-byte and a 1 KB card
# VPD memory, read over the simulated IPMI path.
for machine in examples/machines/storage-1u examples/machines/storage-1u-1k; do
  db="$work/$(basename "$machine").db"
  echo "== aimctl ingest --db $db --machine $machine examples/aim/storage-1u.xml"
  "$aimctl" --log-level warn ingest --db "$db" --machine "$machine" examples/aim/storage-1u.xml
  for table in VPDs PldmDeviceFirmware PCIPhysicalPort; do
    echo "== aimctl show --db $db $table"
    "$aimctl" show --db "$db" "$table"
  done
done
