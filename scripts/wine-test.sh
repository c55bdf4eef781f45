#!/usr/bin/env bash
# Runs a Windows program as wine-run.sh does, in a prefix that no other program started so has at the moment: tests
# share nothing then and may run side by side. SENDORA_WINEPREFIXES names the prefixes, separated by colons; without
# it there is the one of wine-run.sh, for which one program waits after the other.
#
# What the program writes to standard error goes to a file beside the prefix and is shown behind its end. The system's
# desktop, a program that the first use of windows starts and that the next test in the prefix finds there, keeps the
# standard error that it was started with: whoever waits for the end of a pipe, as ctest does, would wait for the last of
# these tests.
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
            SENDORA_WINEPREFIX=$prefix "$top/scripts/wine-run.sh" "$@" 8>&- 2>"$prefix.stderr" || code=$?
            cat "$prefix.stderr" >&2
            exit "$code"
        fi
    done
    sleep 0.05 # until a test ends; ctest's time-out bounds it
done
