#!/usr/bin/env bash
# Runs aimctl on the example AIM file.
set -euo pipefail
build=${1:-build}
aimctl="$build/bin/aimctl"
file=examples/aim/server-2u.xml
echo "== aimctl check $file"
"$aimctl" check "$file"
echo "== aimctl dump $file"
"$aimctl" dump "$file"
