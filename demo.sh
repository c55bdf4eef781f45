#!/usr/bin/env bash
# Shows the main job from end to end: settings in the registry, overlay answers, the context menu, a chosen
# command as a request to the main program, a settings change that reaches a running host, and the trace.
#     ./demo.sh             the product over the POSIX layer
#     ./demo.sh --windows   the real DLL under Wine
set -u
cd "$(dirname "$0")" || exit 1
. scripts/install-tools.sh
. scripts/wine-prefix.sh

target=native
case ${1:-} in
"") ;;
--windows) target=windows ;;
-h | --help)
    sed -n '2,5s/^# \{0,1\}//p' "$0"
    exit 0
    ;;
*)
    echo "demo.sh: unknown argument '$1' (see --help)" >&2
    exit 2
    ;;
esac

sndx_need native || exit 1
[ $target = native ] || sndx_need windows || exit 1

bold='' plain=''
[ ! -t 1 ] || { bold=$'\033[1m' plain=$'\033[0m'; }
say() { printf '\n%s== %s%s\n' "$bold" "$*" "$plain"; }
note() { printf '   %s\n' "$*"; }

build=$PWD/build/$target
mkdir -p "$build"
echo "Building the module and its two companions for $target …"
if ! { cmake --preset $target -DSNDX_TESTS=OFF && cmake --build --preset $target --target sndxdll shellhost mainprogram; } \
    >"$build/demo-build.log" 2>&1; then
    tail -20 "$build/demo-build.log"
    exit 1
fi
cmake --preset $target -DSNDX_TESTS=ON >/dev/null 2>&1

work=$PWD/build/demo-$target
rm -rf "$work"
mkdir -p "$work"
main_pid=
host_pid=
cleanup() {
    exec 3>&- 4<&- 2>/dev/null
    [ -z "$main_pid" ] || kill "$main_pid" 2>/dev/null
    [ -z "$host_pid" ] || kill "$host_pid" 2>/dev/null
    [ $target = native ] || sndx_prefix_end
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

# Everything of the demonstration lives in a root folder of its own: a small C: drive, a registry.
if [ $target = native ]; then
    export SENDORA_ROOT=$work/root
    drive_c=$SENDORA_ROOT/drive_c
    mkdir -p "$drive_c"
    host() { "$build/shellhost" "$@"; }
    main_program() { "$build/mainprogram" "$@"; }
    main_path="Z:${build//\//\\}\\mainprogram"
    import() { cp "$1" "$SENDORA_ROOT/registry.reg"; }
else
    echo "Making a Wine prefix of the demonstration's own …"
    sndx_prefix_begin "$work/wineprefix"
    drive_c=$work/wineprefix/drive_c
    host() { scripts/wine-run.sh "$build/shellhost.exe" "$@" | sed -u 's/\r$//'; }
    main_program() { scripts/wine-run.sh "$build/mainprogram.exe" "$@"; }
    main_path="Z:${build//\//\\}\\mainprogram.exe"
    import() { scripts/wine-run.sh regedit /S "Z:${1//\//\\}"; }
fi
requests=$drive_c/Demo/requests.txt
mkdir -p "$drive_c/Demo"

say "1. The settings: two accounts, each bound to a local folder"
mkdir -p "$drive_c/Sendora/Kunden/Angebote" "$drive_c/Sendora/Bilder" "$drive_c/Privat"
echo a >"$drive_c/Sendora/Kunden/Vertrag.txt"
echo b >"$drive_c/Sendora/Kunden/Angebote/Angebot 1.txt"
echo c >"$drive_c/Sendora/Bilder/Urlaub.jpg"
echo d >"$drive_c/Privat/Tagebuch.txt"
product='HKEY_LOCAL_MACHINE\Software\Wow6432Node\Taleno Software\Sendora'
settings() { # settings FILE [ACCOUNT FOLDER]…
    local file=$1
    shift
    {
        echo "Windows Registry Editor Version 5.00"
        echo
        echo "[-$product\\Accounts]"
        echo
        while [ $# -gt 0 ]; do
            echo "[$product\\Accounts\\$1]"
            echo "\"LocalFolder\"=\"${2//\\/\\\\}\""
            echo "\"LastUpdate\"=\"1700000000\""
            echo
            shift 2
        done
        echo "[$product\\Settings]"
        echo "\"InstallerPath\"=\"${main_path//\\/\\\\}\""
    } >"$file"
}
# shellcheck disable=SC1003
settings "$work/accounts.reg" kunden 'C:\Sendora\Kunden' bilder 'C:\Sendora\Bilder\'
grep -E '^\[HK|Folder|Installer' "$work/accounts.reg" | sed 's/^/   /'
import "$work/accounts.reg"

say "2. The overlay: which items does Explorer draw our icon on?"
note "Two members of account folders, an account folder itself, and a file elsewhere."
host overlay 'C:\Sendora\Kunden\Vertrag.txt' 'C:\Sendora\Bilder\Urlaub.jpg' 'C:\Sendora\Kunden' 'C:\Privat\Tagebuch.txt'

say "3. The context menu of a file, of a folder, and of a file elsewhere"
host menu 'C:\Sendora\Kunden\Vertrag.txt'
echo
host menu 'C:\Sendora\Kunden\Angebote'
echo
host menu 'C:\Privat\Tagebuch.txt'

say "4. \"Hochladen\" for three files; the main program is not running"
export SENDORA_MAINPROGRAM_OPTIONS='--output C:\Demo\requests.txt --requests 1 --duration 30000'
host invoke upload 'C:\Sendora\Kunden\Vertrag.txt' 'C:\Sendora\Kunden\Angebote\Angebot 1.txt' 'C:\Sendora\Bilder\Urlaub.jpg'
note "The module started it. It received:"
for _ in $(seq 100); do grep -q 'Urlaub' "$requests" 2>/dev/null && break; sleep 0.1; done
tr -d '\r' <"$requests" | sed 's/^/   | /'

say "5. \"Löschen\" for one file, with the main program running"
rm -f "$requests"
unset SENDORA_MAINPROGRAM_OPTIONS
sleep 0.3 # the first main program ends after its request
main_program --output 'C:\Demo\requests.txt' --requests 1 --duration 30000 --ready 'C:\Demo\ready' >/dev/null 2>&1 &
main_pid=$!
for _ in $(seq 100); do [ -e "$drive_c/Demo/ready" ] && break; sleep 0.1; done
host invoke delete 'C:\Sendora\Bilder\Urlaub.jpg'
for _ in $(seq 100); do grep -q 'Urlaub' "$requests" 2>/dev/null && break; sleep 0.1; done
tr -d '\r' <"$requests" | sed 's/^/   | /'
wait "$main_pid" 2>/dev/null
main_pid=

say "6. An account is removed; a second process announces it to a host that keeps running"
mkfifo "$work/to-host" "$work/from-host"
host shell <"$work/to-host" >"$work/from-host" &
host_pid=$!
exec 3>"$work/to-host" 4<"$work/from-host"
ask() { # sends a command to the running host and prints its answer
    echo "$*" >&3
    while IFS= read -r -t 30 line <&4; do
        case $line in
        "["[0-9]"]") break ;;
        esac
        echo "   host A: $line"
    done
}
question='overlay C:\Sendora\Bilder\Urlaub.jpg'
ask "$question"
settings "$work/accounts2.reg" kunden 'C:\Sendora\Kunden'
import "$work/accounts2.reg"
note "The account \"bilder\" is gone from the settings; nobody has said so yet:"
ask "$question"
note "Process B calls StateChanged:"
host state-changed | sed 's/^/   host B: /'
ask "$question"
echo quit >&3
wait "$host_pid" 2>/dev/null
host_pid=

say "7. The trace files: what a support engineer would see of step 6"
appdata=$(dirname "$(find "$drive_c" -name 'tracedll_Sendorashellhost.txt' | head -1)")
excerpt() { tr -d '\r' | grep -vE 'LSharedSettings32Record|LComDiagnostic' | sed 's/^/   | /'; }
note "In $(basename "$appdata"): $(cd "$appdata" && echo tracedll_*.txt | tr ' ' '\n' | wc -l) trace files, the newest without a number."
note "Host A, from its start on (tracedll_Sendorashellhost.1.txt; the start of host B moved it there):"
excerpt <"$appdata/tracedll_Sendorashellhost.1.txt"
note "Both hosts, from the announcement on (tracedll_Sendorashellhost.txt; the third column tells threads apart):"
sed -n '/  StateChanged/,$p' "$appdata/tracedll_Sendorashellhost.txt" | excerpt
echo
echo "That was the main job. README.md says how to go on."
