#!/usr/bin/env bash
# Wine prefixes for one run. Source it, then
#     sndx_prefix_begin FOLDER [COUNT]    makes a prefix, or several (FOLDER, FOLDER.2, …), with a server kept for each
#     sndx_prefix_end                     ends every process in them and removes them
# The user's own prefix is never touched.

sndx_prefixes=() # those that this shell has made

sndx_wineserver() {
    local server=/usr/lib/wine/wineserver64
    [ -x "$server" ] || server=/usr/lib/wine/wineserver
    [ -x "$server" ] || server=wineserver
    WINEPREFIX=$SENDORA_WINEPREFIX "$server" "$@"
}

sndx_prefix_begin() {
    local run number
    run=$(dirname "${BASH_SOURCE[0]}")/wine-run.sh
    export SENDORA_WINEPREFIX=$1 SENDORA_WINEPREFIXES=$1
    sndx_prefixes=("$1")
    mkdir -p "$SENDORA_WINEPREFIX"
    "$run" cmd /c exit >/dev/null 2>&1 </dev/null
    sndx_wineserver -w
    # The system's own files are the same for all; of the registry, which is written, each has a copy.
    for ((number = 2; number <= ${2:-1}; number++)); do
        cp -al "$1" "$1.$number" && cp --remove-destination "$1"/*.reg "$1.$number"
        SENDORA_WINEPREFIXES+=:$1.$number
        sndx_prefixes+=("$1.$number")
    done
    # One server for the whole run: without it every test would start its own. The first program then starts
    # the system's services, which keep its standard handles open as long as the server lives: none of ours.
    sndx_each_prefix sndx_keep_server "$run"
}

sndx_keep_server() {
    sndx_wineserver -p >/dev/null 2>&1 </dev/null
    "$1" cmd /c exit >/dev/null 2>&1 </dev/null
}

sndx_end_server() {
    sndx_wineserver -k 2>/dev/null
    # Wait until the server is gone; it writes its files at the end and would bring the folder back.
    timeout 20 bash -c "$(declare -f sndx_wineserver); SENDORA_WINEPREFIX='$SENDORA_WINEPREFIX' sndx_wineserver -w" 2>/dev/null
    rm -rf "$SENDORA_WINEPREFIX" "$SENDORA_WINEPREFIX".{lock,taken,stderr}
}

sndx_each_prefix() { # sndx_each_prefix COMMAND…: with each of the prefixes as the current one
    local -x SENDORA_WINEPREFIX=$SENDORA_WINEPREFIX
    local prefixes=("${sndx_prefixes[@]}")
    [ ${#prefixes[@]} -gt 0 ] || prefixes=("$SENDORA_WINEPREFIX")
    for SENDORA_WINEPREFIX in "${prefixes[@]}"; do
        "$@"
    done
}

sndx_prefix_end() {
    [ -z "${SENDORA_WINEPREFIX:-}" ] || sndx_each_prefix sndx_end_server
}
