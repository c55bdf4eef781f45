#!/usr/bin/env bash
# A Wine prefix for one run. Source it, then
#     sndx_prefix_begin FOLDER    makes the prefix and keeps one server for it
#     sndx_prefix_end             ends every process in it and removes it
# The user's own prefix is never touched.

sndx_wineserver() {
    local server=/usr/lib/wine/wineserver64
    [ -x "$server" ] || server=/usr/lib/wine/wineserver
    [ -x "$server" ] || server=wineserver
    WINEPREFIX=$SENDORA_WINEPREFIX "$server" "$@"
}

sndx_prefix_begin() {
    local run
    run=$(dirname "${BASH_SOURCE[0]}")/wine-run.sh
    export SENDORA_WINEPREFIX=$1
    mkdir -p "$SENDORA_WINEPREFIX"
    "$run" cmd /c exit >/dev/null 2>&1 </dev/null
    # One server for the whole run: without it every test would start its own. The first program then starts
    # the system's services, which keep its standard handles open as long as the server lives: none of ours.
    sndx_wineserver -w
    sndx_wineserver -p >/dev/null 2>&1 </dev/null
    "$run" cmd /c exit >/dev/null 2>&1 </dev/null
}

sndx_prefix_end() {
    [ -n "${SENDORA_WINEPREFIX:-}" ] || return 0
    sndx_wineserver -k 2>/dev/null
    # Wait until the server is gone; it writes its files at the end and would bring the folder back.
    timeout 20 bash -c "$(declare -f sndx_wineserver); SENDORA_WINEPREFIX='$SENDORA_WINEPREFIX' sndx_wineserver -w" 2>/dev/null
    rm -rf "$SENDORA_WINEPREFIX" "$SENDORA_WINEPREFIX.lock"
}
