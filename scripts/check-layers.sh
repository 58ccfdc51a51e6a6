#!/usr/bin/env bash
# Checks that the library's folders depend on each other one way only: the folders that
# each folder's sources include, taken as edges, must form no cycle (two folders that include
# each other are the shortest one). Prints the edges and the order from the bottom up; exits
# 1 naming the folders of a cycle.
#
# usage: scripts/check-layers.sh [SOURCE_DIR]
set -euo pipefail
cd "${1:-$(dirname "$0")/..}"
FOLDERS=(platform aim fru gpu ingest writers cards)

edges=()
for from in "${FOLDERS[@]}"; do
    for to in $(grep -h -o -E '^#include "[a-z_]+/' "$from"/*.h "$from"/*.cpp 2>/dev/null |
                sed -E 's/#include "([a-z_]+)\//\1/' | sort -u); do
        [ "$to" = "$from" ] && continue
        case " ${FOLDERS[*]} " in
            *" $to "*) edges+=("$from $to") ;;
            *) echo "check-layers: $from includes a header of '$to', which is not part of the library" >&2
               exit 1 ;;
        esac
    done
done

printf 'uses: %s\n' "${edges[@]}"
# tsort lists a graph's nodes in dependency order, and reports the members of a loop.
order=$( { printf '%s\n' "${edges[@]}"; for f in "${FOLDERS[@]}"; do echo "$f $f"; done; } | tsort 2>&1 || true)
if grep -q 'loop' <<<"$order"; then
    echo "check-layers: these folders include each other's headers:" >&2
    grep -v 'loop' <<<"$order" | grep -E '^tsort: ' | sed 's/^tsort: /  /' >&2
    exit 1
fi
echo "layers, top first: $(tr '\n' ' ' <<<"$order")"
