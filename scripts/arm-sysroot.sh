#!/usr/bin/env bash
# Prepares the armhf sysroot that the ARM build links against and that qemu-arm runs the
# tests in: the Debian armhf packages of the host dependencies (SQLite, expat,
# GoogleTest/GoogleMock, nlohmann-json) and the runtime libraries (libc, libstdc++) are
# downloaded with apt-get and unpacked with dpkg -x. Nothing is installed for armhf and the
# system's apt and dpkg configuration is left alone: apt runs on its own state directory
# (package lists, cache) below the build tree, with armhf as its only architecture.
#
# usage: scripts/arm-sysroot.sh [SYSROOT]   (default build-arm/sysroot)
set -euo pipefail
cd "$(dirname "$0")/.."

SYSROOT=${1:-build-arm/sysroot}
mkdir -p "$SYSROOT"
SYSROOT=$(cd "$SYSROOT" && pwd)
STATE="$(dirname "$SYSROOT")/apt-armhf"

# Development packages: unpacked for their headers, libraries and CMake/pkg-config files.
DEV_PKGS=(libsqlite3-dev libexpat1-dev libgtest-dev libgmock-dev nlohmann-json3-dev)
# Libraries the test programs load at run time, unpacked with their dependencies.
RUNTIME_PKGS=(libsqlite3-0 libexpat1 libstdc++6 libgcc-s1 libc6)

STAMP="$SYSROOT/.packages"
WANT="${DEV_PKGS[*]} ${RUNTIME_PKGS[*]}"
if [ -f "$STAMP" ] && [ "$(head -n1 "$STAMP")" = "$WANT" ]; then
    echo "arm-sysroot: $SYSROOT is ready"
    exit 0
fi

mkdir -p "$STATE/lists/partial" "$STATE/cache/archives/partial" "$STATE/debs"
: > "$STATE/status"
APT_OPTS=(-o "Dir::State::Lists=$STATE/lists" -o "Dir::Cache=$STATE/cache" -o "Dir::State::status=$STATE/status"
          -o APT::Architecture=armhf -o APT::Architectures::=armhf -o Debug::NoLocking=1 -q)

echo "arm-sysroot: fetching the armhf package lists"
if ! apt-get "${APT_OPTS[@]}" update >"$STATE/update.log" 2>&1; then
    # A list that fails (a mirror being synced) leaves the others usable; the main
    # archive's list is what the packages come from.
    sleep 5
    apt-get "${APT_OPTS[@]}" update >"$STATE/update.log" 2>&1 || true
    if ! ls "$STATE"/lists/*_bookworm_main_binary-armhf_Packages* >/dev/null 2>&1; then
        cat "$STATE/update.log" >&2
        echo "arm-sysroot: could not fetch the armhf package lists" >&2
        exit 1
    fi
    grep -E '^(E|W):' "$STATE/update.log" >&2 || true
fi

# The runtime packages and everything they depend on (virtual packages left out).
mapfile -t RUNTIME_ALL < <(apt-cache "${APT_OPTS[@]}" depends --recurse --no-recommends --no-suggests \
    --no-conflicts --no-breaks --no-replaces --no-enhances "${RUNTIME_PKGS[@]}" | grep -E '^[a-z0-9]' | sort -u)
PKGS=("${DEV_PKGS[@]}" "${RUNTIME_ALL[@]}")

echo "arm-sysroot: downloading ${#PKGS[@]} packages"
rm -f "$STATE"/debs/*.deb
(cd "$STATE/debs" && apt-get "${APT_OPTS[@]}" download "${PKGS[@]}" >"$STATE/download.log" 2>&1) || {
    cat "$STATE/download.log" >&2
    exit 1
}

echo "arm-sysroot: unpacking into $SYSROOT"
find "$SYSROOT" -mindepth 1 -delete
for deb in "$STATE"/debs/*.deb; do dpkg -x "$deb" "$SYSROOT"; done

# Absolute symbolic links would point into the build machine's own tree: make them
# relative to the sysroot.
while IFS= read -r link; do
    target=$(readlink "$link")
    case "$target" in
        /*) ln -sfn "$(realpath -m --relative-to="$(dirname "$link")" "$SYSROOT$target")" "$link" ;;
    esac
done < <(find "$SYSROOT" -type l)

{ echo "$WANT"; (cd "$STATE/debs" && ls *.deb); } > "$STAMP"
echo "arm-sysroot: $SYSROOT ready ($(ls "$STATE"/debs/*.deb | wc -l) packages)"
