#!/usr/bin/env bash
# Runs a Windows program as wine-run.sh does, in a prefix that no other program started so has at the moment: tests
# share nothing then and may run side by side. SENDORA_WINEPREFIXES names the prefixes, separated by colons; without
# it there is the one of wine-run.sh, for which one program waits after the other.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
mkdir -p "$top/build"
IFS=: read -r -a prefixes <<<"${SENDORA_WINEPREFIXES:-${SENDORA_WINEPREFIX:-$top/build/wineprefix}}"
while :; do
    for prefix in "${prefixes[@]}"; do
        exec 8>"$prefix.taken"
        # The lock is this shell's alone: what the program leaves running must not hold it.
        if flock -n 8; then
            code=0
            SENDORA_WINEPREFIX=$prefix "$top/scripts/wine-run.sh" "$@" 8>&- || code=$?
            exit "$code"
        fi
    done
    sleep 0.05 # until a test ends; ctest's time-out bounds it
done
