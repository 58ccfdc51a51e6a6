#!/usr/bin/env bash
# Installs the Debian packages that building and testing need (Debian 12). Safe to re-run:
# packages already present are not fetched again.
#
# usage: scripts/install-deps.sh [arm] [fuzz] [web]
#   arm   also the 32-bit ARM cross compiler and the user-mode emulator (make test-arm)
#   fuzz  also clang and libFuzzer's runtime (make fuzz)
#   web   also Debian's Chromium, its driver and Selenium (make test-web)
#   http-bench  also nginx, wrk and curl (make bench-http)
set -euo pipefail
# (pugixml only for the benchmark's memory anchor; Boost (Beast, Asio), OpenSSL and libcrypt for aimctl serve;
# redfishtool, python3-sushy and apache2-utils are the Redfish clients and the load generator of
# the tests)
PKGS=(build-essential cmake pkg-config libexpat1-dev libpugixml-dev libsqlite3-dev nlohmann-json3-dev
      libgtest-dev libgmock-dev valgrind libxml2-utils sqlite3 man-db bsdextrautils
      libboost-dev libcrypt-dev libssl-dev openssl redfishtool python3-sushy apache2-utils)
for group in "$@"; do
  case "$group" in
    arm) PKGS+=(g++-arm-linux-gnueabihf qemu-user) ;;
    fuzz) PKGS+=(clang-14 libclang-rt-14-dev) ;;
    web) PKGS+=(chromium chromium-driver python3-selenium fonts-dejavu-core) ;;
    http-bench) PKGS+=(nginx-light wrk curl) ;;
    *) echo "install-deps: unknown group '$group' (known: arm, fuzz, web, http-bench)" >&2; exit 2 ;;
  esac
done
missing=()
for p in "${PKGS[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""; [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  # Other builds on the machine may hold the package database: wait for it.
  APT=(apt-get -o DPkg::Lock::Timeout=600)
  $SUDO "${APT[@]}" update -qq || echo "install-deps: some package lists could not be fetched" >&2
  DEBIAN_FRONTEND=noninteractive $SUDO "${APT[@]}" install -y -qq --no-install-recommends "${missing[@]}"
fi
