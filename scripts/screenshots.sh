#!/usr/bin/env bash
# Makes the pictures of docs/pictures afresh: tools/explorer shows folders with the registered module, on a display
# in memory and in a Wine prefix of its own. Installs what is missing where it may.
#     scripts/screenshots.sh [FOLDER]     FOLDER for the pictures, instead of docs/pictures
set -u
cd "$(dirname "$0")/.." || exit 1
. scripts/install-tools.sh
. scripts/wine-prefix.sh

case ${1:-} in
-h | --help)
    sed -n '2,4s/^# \{0,1\}//p' "$0"
    exit 0
    ;;
-*)
    echo "screenshots.sh: unknown option '$1' (see --help)" >&2
    exit 2
    ;;
esac
pictures=${1:-$PWD/docs/pictures}
mkdir -p "$pictures"
pictures=$(cd "$pictures" && pwd)

sndx_need native || exit 1
sndx_need windows || exit 1
sndx_need screenshots || exit 1

python=/usr/bin/python3 # the one that the system's packages are for
build=$PWD/build/windows
work=$PWD/build/screenshots
mkdir -p "$build"
echo "Building the module and the folder window …"
if ! { cmake --preset windows -DSNDX_TESTS=OFF &&
    cmake --build --preset windows --target sndxdll explorer registration; } >"$build/screenshots-build.log" 2>&1; then
    tail -20 "$build/screenshots-build.log"
    exit 1
fi
cmake --preset windows -DSNDX_TESTS=ON >/dev/null 2>&1

rm -rf "$work"
mkdir -p "$work"
display_pid=
window_pids=()
end_windows() {
    [ ${#window_pids[@]} -eq 0 ] || kill "${window_pids[@]}" 2>/dev/null
    window_pids=()
}
cleanup() {
    end_windows
    sndx_prefix_end
    [ -z "$display_pid" ] || kill "$display_pid" 2>/dev/null
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# The server picks a free display and says which, once it answers.
Xvfb -displayfd 9 -screen 0 1024x768x24 -nolisten tcp 9>"$work/display" >/dev/null 2>&1 &
display_pid=$!
for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.1; done
[ -s "$work/display" ] || { echo "screenshots.sh: Xvfb does not start" >&2; exit 1; }
DISPLAY=:$(cat "$work/display")
export DISPLAY

echo "Making a Wine prefix for the pictures …"
sndx_prefix_begin "$work/wineprefix"
drive_c=$work/wineprefix/drive_c
mkdir -p "$drive_c/windows/Fonts"
# What the system draws captions and menus with; Marlett holds the signs on the caption's buttons.
cp /usr/share/wine/fonts/{marlett,tahoma,tahomabd}.ttf "$drive_c/windows/Fonts/"

import_file() {
    scripts/wine-run.sh regedit /S "Z:${1//\//\\}" </dev/null ||
        { echo "screenshots.sh: cannot import $1" >&2; exit 1; }
}
import() { # merges registry text from standard input
    { printf 'Windows Registry Editor Version 5.00\n\n'; cat; } >"$work/import.reg"
    import_file "$work/import.reg"
}

# An account's folder, and one that belongs to none.
mkdir -p "$drive_c/Sendora/Kunden/Angebote" "$drive_c/Privat/Briefe"
touch "$drive_c/Sendora/Kunden/"{Preise.txt,Vertrag.txt} "$drive_c/Privat/"{Rezept.txt,Tagebuch.txt}
import <<'EOF'
[HKEY_LOCAL_MACHINE\Software\Wow6432Node\Taleno Software\Sendora\Accounts\kunden]
"LocalFolder"="C:\\Sendora\\Kunden"
EOF
import_file "$build/install/register.reg"

# desktop NAME WIDTHxHEIGHT: the windows started from now on stand on a desktop of that size; a picture shows it all.
desktop() {
    import <<EOF
[HKEY_CURRENT_USER\\Software\\Wine\\Explorer]
"Desktop"="$1"

[HKEY_CURRENT_USER\\Software\\Wine\\Explorer\\Desktops]
"$1"="$2"
EOF
}

explorer() { scripts/wine-run.sh "$build/explorer.exe" "$@" </dev/null; }

# stand PLACE VIEW FOLDER: a window that stays until the picture is taken.
stand() {
    local ready=$work/ready${#window_pids[@]}
    scripts/wine-run.sh "$build/explorer.exe" "$3" --place "$1" --view "$2" --ready "$ready" </dev/null >/dev/null 2>&1 &
    window_pids+=($!)
    for _ in $(seq 200); do [ -e "$ready" ] && return; sleep 0.1; done
    echo "screenshots.sh: no window for $3" >&2
    exit 1
}

# picture NAME OPTION…: the window that takes the picture.
picture() {
    local name=$1
    shift
    explorer "$@" --wait 1000 --screenshot "$work/picture.bmp" ||
        { echo "screenshots.sh: no picture of $name" >&2; exit 1; }
    $python -c 'import sys; from PIL import Image; Image.open(sys.argv[1]).save(sys.argv[2], optimize=True)' \
        "$work/picture.bmp" "$pictures/$name.png" || exit 1
    end_windows
    echo "   $pictures/$name.png"
}

echo "Taking pictures …"
# Windows side by side: under Wine every file has the archive attribute, and no folder has it, so that one window
# shows either files that all belong to an account and carry the icon, or files that all do not.
desktop overlay 760x400
stand 10,10,365,185 large 'C:\Sendora\Kunden'
stand 385,10,365,185 large 'C:\Privat'
stand 10,205,365,185 small 'C:\Sendora\Kunden'
picture overlay 'C:\Privat' --place 385,205,365,185 --view small

desktop menufile 480x260
picture menu-file 'C:\Sendora\Kunden' --place 10,10,460,240 --select Preise.txt --hover Hochladen

desktop menufolder 480x260
picture menu-folder 'C:\Sendora\Kunden' --place 10,10,460,240 --select Angebote --hover Herunterladen

$python scripts/draw_icon.py dll/sndxdll.ico "$pictures/icon.png" || exit 1
echo "   $pictures/icon.png"
