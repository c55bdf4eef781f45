#!/usr/bin/env bash
# Runs a Windows program under Wine in a prefix of this checkout's own (build/wineprefix), never in the
# user's. The prefix is made on first use. SENDORA_WINEPREFIX names another one.
set -eu
top=$(cd "$(dirname "$0")/.." && pwd)
export WINEPREFIX=${SENDORA_WINEPREFIX:-$top/build/wineprefix}
export WINEDEBUG=${WINEDEBUG--all}
# No .NET and HTML engines to install, no menus of the user's desktop to touch, no debugger to start.
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES-mscoree=;mshtml=;winemenubuilder.exe=d;winedbg.exe=d}
loader=/usr/lib/wine/wine64
[ -x "$loader" ] || loader=wine
if [ ! -f "$WINEPREFIX/system.reg" ]; then
    mkdir -p "$WINEPREFIX"
    # Two processes must not create the same prefix at once.
    exec 9>"$WINEPREFIX.lock"
    flock 9
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
        "$loader" wineboot -i >/dev/null 2>&1 9>&-
        # Without a display programs still get their windows, which nobody sees.
        [ -n "${DISPLAY:-}" ] || "$loader" reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f \
            >/dev/null 2>&1 </dev/null 9>&-
        # system.reg is written when the idle server ends.
        wineserver=/usr/lib/wine/wineserver64
        [ -x "$wineserver" ] || wineserver=wineserver
        "$wineserver" -w 9>&-
    fi
    exec 9>&-
fi
exec "$loader" "$@"
