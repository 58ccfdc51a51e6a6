#!/usr/bin/env bash
# DMTF's validators against 'aimctl serve --tls --users FILE': a users file with one
# Administrator (made with htpasswd -B, a random password) in a temporary folder, and the
# validators' script run over HTTPS with those credentials.
#
# usage: scripts/dmtf-secure.sh VALIDATORS AIMCTL [MACHINE...]
#   VALIDATORS  ../shared/tools/dmtf-validators/run.sh (its environment settings apply)
set -euo pipefail
[ $# -ge 2 ] || { echo "usage: $0 VALIDATORS AIMCTL [MACHINE...]" >&2; exit 2; }
validators=$1
shift
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
password=$(openssl rand -hex 12)
htpasswd -c -b -B "$tmp/users" validator "$password" 2>/dev/null
sed -i 's/$/:Administrator/' "$tmp/users"
# requests prefers a CA bundle named in the environment to the validators' --no-cert-check.
env -u REQUESTS_CA_BUNDLE -u CURL_CA_BUNDLE OUT="${OUT:-/tmp/rsv-secure}" \
    SERVE_ARGS="--tls --users $tmp/users" SCHEME=https RF_USER=validator RF_PASSWORD="$password" \
    "$validators" "$@"
