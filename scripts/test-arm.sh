#!/usr/bin/env bash
# Runs the test suite of the ARM build under qemu-arm (CTest's emulator setting) and checks
# that it is the same suite as the native build's: the same number of tests, leaving out the
# native build's Redfish service tests (label redfish), which is not built for the controller.
#
# usage: scripts/test-arm.sh NATIVE_BUILD ARM_BUILD [JOBS]
set -euo pipefail
NATIVE=${1:?native build directory}
ARM=${2:?ARM build directory}
JOBS=${3:-2}

count() { (cd "$1" && ctest -N -LE redfish) | sed -n 's/^Total Tests: //p'; }
native=$(count "$NATIVE")
arm=$(count "$ARM")
echo "ARM run: $arm tests, native run: $native tests"
if [ -z "$arm" ] || [ "$arm" != "$native" ]; then
    echo "test-arm: the ARM build does not have the native build's tests" >&2
    diff <(cd "$NATIVE" && ctest -N -LE redfish | grep 'Test *#' | sed 's/.*: //') \
         <(cd "$ARM" && ctest -N -LE redfish | grep 'Test *#' | sed 's/.*: //') >&2 || true
    exit 1
fi
echo "test-arm: running the $arm tests under qemu-arm"
cd "$ARM" && exec ctest --output-on-failure -j "$JOBS"
