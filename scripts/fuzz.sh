#!/usr/bin/env bash
# Runs the fuzz targets of fuzz/, two at a time, on the committed cases and what earlier runs have found worth keeping:
#     scripts/fuzz.sh [--seconds N] [TARGET…]
# TARGET: paths, charsets, … (default: all, 5 seconds each). Builds them first, as the preset native-fuzz. Shows what
# was violated, and the input that does it; with the mend it belongs to fuzz/corpus/TARGET.
# The last line is "N passed, N failed".
set -u
cd "$(dirname "$0")/.." || exit 1
build=build/native-fuzz

# one NAME SECONDS: a target with a root folder of its own, in memory where that can be had.
one() {
    local name=$1 seconds=$2 root result
    root=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d)
    mkdir -p "$build/corpus/$name" "$build/findings"
    # Bounded: an input has ten seconds.
    SENDORA_ROOT=$root timeout -k 10 $((seconds + 60)) "$build/fuzz/${name}_fuzz" -max_total_time="$seconds" \
        -len_control=0 -max_len=2048 -timeout=10 -artifact_prefix="$build/findings/$name-" \
        "$build/corpus/$name" "fuzz/corpus/$name" >"$build/$name.log" 2>&1
    result=$?
    rm -rf "$root"
    if [ $result -eq 0 ]; then
        echo "$name: $(sed -n 's/^Done \([0-9]*\) runs.*/\1 cases/p' "$build/$name.log")"
    else
        echo "$name: FAILED, see $build/$name.log"
        grep -E 'does not hold|ERROR: |runtime error|Test unit written' "$build/$name.log"
    fi
}

if [ "${1-}" = --one ]; then
    one "$2" "$3"
    exit
fi
seconds=5
targets=()
while [ $# -gt 0 ]; do
    case $1 in
    --seconds)
        seconds=$2
        shift
        ;;
    -h | --help)
        sed -n '2,7s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *) targets+=("$1") ;;
    esac
    shift
done
if [ ${#targets[@]} -eq 0 ]; then
    for source in fuzz/*_fuzz.cpp; do
        source=${source##*/}
        targets+=("${source%_fuzz.cpp}")
    done
fi
mkdir -p "$build"
if ! { cmake --preset native-fuzz && cmake --build --preset native-fuzz; } >"$build/build.log" 2>&1; then
    grep -E 'error|Error' "$build/build.log" | head -20
    echo "0 passed, 1 failed (not built, see $build/build.log)"
    exit 1
fi
output=$(printf '%s\n' "${targets[@]}" | xargs -P 2 -I '{}' "$0" --one '{}' "$seconds")
echo "$output"
failed=$(grep -c ': FAILED' <<<"$output")
echo "$((${#targets[@]} - failed)) passed, $failed failed"
[ "$failed" -eq 0 ]
