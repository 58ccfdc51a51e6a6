#!/usr/bin/env bash
# Installs the Debian packages that building and testing need (Debian 12). Safe to re-run:
# packages already present are not fetched again.
set -euo pipefail
PKGS=(build-essential cmake pkg-config libpugixml-dev libsqlite3-dev nlohmann-json3-dev
      libgtest-dev libgmock-dev libbenchmark-dev libxml2-utils sqlite3)
missing=()
for p in "${PKGS[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""; [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
