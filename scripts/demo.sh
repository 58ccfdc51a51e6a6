#!/usr/bin/env bash
# The demo: checks and dumps an example AIM file, then ingests example machines into fresh
# inventory databases and shows their adapter tables.
set -euo pipefail
build=${1:-build}
aimctl="$build/bin/aimctl"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

file=examples/aim/server-2u.xml
echo "== aimctl check $file"
"$aimctl" check "$file"
echo "== aimctl dump $file (first 40 lines)"
"$aimctl" dump "$file" > "$work/dump.xml"
head -n 40 "$work/dump.xml"
echo "... ($(wc -l < "$work/dump.xml") lines in all)"

# ingest MACHINE TABLE...: ingests examples/aim/MACHINE.xml on examples/machines/MACHINE
# and shows the given tables.
ingest() {
    local name=$1
    shift
    local db="$work/$name.db"
    echo
    echo "== aimctl ingest --db $db --machine examples/machines/$name examples/aim/$name.xml"
    "$aimctl" --log-level warn ingest --db "$db" --machine "examples/machines/$name" "examples/aim/$name.xml"
    for table in "$@"; do
        echo "== aimctl show --db $db $table"
        "$aimctl" show --db "$db" "$table"
    done
}

ingest server-2u PCIAdapter PCIMisc PCIGPU PCIGPUChip
ingest rack-2u-nic PCIAdapter PCIMisc VPDs Firmwares PCINetwork PCIPhysicalPort PCIPhysicalPortStat \
    PCILogicalPort PldmDeviceFirmware
ingest pcie-gpu PCIAdapter VPDs Firmwares
# A boot adapter whose card VPD memory (256 bytes, then 1 KB) is read over the simulated IPMI path.
ingest storage-1u VPDs Firmwares PldmDeviceFirmware PCIPhysicalPort
ingest storage-1u-1k VPDs PldmDeviceFirmware
# FPGA cards read from their FRU EEPROMs, drives behind RAID controllers, a storage expansion unit.
ingest accel-2u PCIAdapter VPDs Firmwares AimDisks
