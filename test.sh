#!/usr/bin/env bash
# Builds and tests the project: natively, natively under AddressSanitizer with UndefinedBehaviorSanitizer, and as
# the real DLL under Wine; then the checks of scripts/lint.sh. Installs what is missing where it may. Usage:
#     ./test.sh [--require-windows] [--tsan] [--coverage] [--long] [TARGET…]
# TARGET: native, native-asan, native-tsan, native-clang, native-fuzz, native-coverage, windows, windows-gcc, lint
# (default: native native-asan windows lint; the fuzz targets take some minutes to build).
# --require-windows makes a Windows half that cannot run a failure; --tsan adds native-tsan; --coverage is
# native-coverage alone, which holds what the native tests execute against tests/uncovered.txt; --long gives each fuzz
# target five minutes instead of five seconds.
set -u
cd "$(dirname "$0")" || exit 1
. scripts/install-tools.sh
. scripts/wine-prefix.sh

require_windows=no
fuzz_seconds=5
targets=()
for argument in "$@"; do
    case $argument in
    --require-windows) require_windows=yes ;;
    --tsan) targets+=(native native-asan native-tsan windows lint) ;;
    --coverage) targets+=(native-coverage) ;;
    --long) fuzz_seconds=300 ;;
    native | native-asan | native-tsan | native-clang | native-fuzz | native-coverage | windows | windows-gcc | lint) targets+=("$argument") ;;
    -h | --help)
        sed -n '2,10s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *)
        echo "test.sh: unknown argument '$argument' (see --help)" >&2
        exit 2
        ;;
    esac
done
[ ${#targets[@]} -gt 0 ] || targets=(native native-asan windows lint)

results=$(mktemp) # a line a target: its text, passed, failed
lanes=()          # processes of the lanes beside
trap '[ ${#lanes[@]} -eq 0 ] || kill "${lanes[@]}" 2>/dev/null; rm -f "$results"' EXIT
trap 'exit 130' INT TERM

# result TEXT PASSED FAILED
result() { printf '%s\t%s\t%s\n' "$@" >>"$results"; }

run_target() {
    local target=$1 log=build/$1/test.log start=$SECONDS built output counts
    echo "== $target: building"
    mkdir -p "build/$target"
    if ! { cmake --preset "$target" && cmake --build --preset "$target"; } >"build/$target/build.log" 2>&1; then
        grep -E 'error|Error' "build/$target/build.log" | head -20
        tail -20 "build/$target/build.log"
        result "$target did not build, see build/$target/build.log" 0 1
        return
    fi
    sed -n '/^CMake Warning/,/^$/p' "build/$target/build.log" # what is left out
    built=$SECONDS
    echo "== $target: testing"
    # What the traces of the tests showed of the messages; programs on drive Z: find the folder under the same name.
    rm -rf "build/$target/seen-messages"
    mkdir "build/$target/seen-messages"
    output=$(SNDX_SEEN_MESSAGES=$PWD/build/$target/seen-messages scripts/run-ctest.sh "$log" --preset "$target")
    counts=$(tail -1 <<<"$output")
    [ "$(wc -l <<<"$output")" = 1 ] || echo "$output"
    read -r passed _ failed _ <<<"$counts"
    result "$target (built in $((built - start)) s, tested in $((SECONDS - built)) s)" "$passed" "$failed"
}

run_fuzz() {
    local start=$SECONDS output passed failed
    echo "== native-fuzz: building, then $fuzz_seconds s a target"
    output=$(scripts/fuzz.sh --seconds "$fuzz_seconds")
    grep -vE '^[a-z]+: [0-9]+ cases$' <<<"$output"
    read -r passed _ failed _ < <(tail -1 <<<"$output")
    result "native-fuzz (in $((SECONDS - start)) s)" "$passed" "$failed"
}

# Whether the tests pass is for the target native to say: some do not here, as what counts takes memory in the module.
run_coverage() {
    local log=build/native-coverage/test.log start=$SECONDS
    echo "== native-coverage: building"
    mkdir -p build/native-coverage
    if ! { cmake --preset native-coverage && cmake --build --preset native-coverage; } \
        >build/native-coverage/build.log 2>&1; then
        result "native-coverage did not build, see build/native-coverage/build.log" 0 1
        return
    fi
    echo "== native-coverage: testing"
    find build/native-coverage -name '*.gcda' -delete
    ctest --preset native-coverage >"$log" 2>&1 </dev/null
    if scripts/coverage.py; then
        result "native-coverage (in $((SECONDS - start)) s)" 1 0
    else
        result "native-coverage (in $((SECONDS - start)) s)" 0 1
    fi
}

run_lint() {
    local check passed=0 failed=0 start=$SECONDS
    for check in format shell includes messages contract posix tidy; do
        echo "== lint: $check"
        if scripts/lint.sh "$check"; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
    done
    result "lint (in $((SECONDS - start)) s)" "$passed" "$failed"
}

# Whether the traces showed every message: of a native and a Windows run, for each shows what the other cannot.
run_messages() {
    local folders=()
    for target in "${here[@]}" "${under_wine[@]}"; do
        [ "$target" = lint ] || folders+=("build/$target/seen-messages")
    done
    echo "== messages: held against the traces of all tests"
    if scripts/messages.py seen "${folders[@]}"; then
        result "messages (every one was shown by a trace)" 1 0
    else
        result "messages (see above)" 0 1
    fi
}

# One target after the other.
run_lane() {
    local target
    trap 'sndx_prefix_end' EXIT
    trap 'exit 130' INT TERM
    for target in "$@"; do
        case $target in
        lint)
            run_lint
            continue
            ;;
        native-fuzz)
            run_fuzz
            continue
            ;;
        native-coverage)
            run_coverage
            continue
            ;;
        windows*)
            unset DISPLAY # no window of a test appears on the user's screen
            sndx_prefix_end
            rm -rf build/test-wineprefix*
            sndx_prefix_begin "$PWD/build/test-wineprefix" 2
            ;;
        esac
        run_target "$target"
    done
}

# What is missing is installed before anything starts.
sndx_need native || exit 1
here=()
under_wine=()
lint=()
windows_ran=yes
for target in "${targets[@]}"; do
    case $target in
    windows*)
        if sndx_need windows; then
            under_wine+=("$target")
        else
            windows_ran=no
        fi
        ;;
    lint) if sndx_need lint; then lint=(lint); else result "lint: its tools are missing" 0 1; fi ;;
    native-coverage)
        sndx_need coverage || exit 1
        here+=("$target")
        ;;
    native-clang | native-fuzz)
        sndx_need clang || exit 1
        here+=("$target")
        ;;
    *) here+=("$target") ;;
    esac
done

# Tests wait a good part of their time, most of all under Wine: so that side and the checks of the sources go on beside
# the native one, and show what they did when they are done. The checks only take what the others leave.
mkdir -p build
# beside NAME COMMAND…
beside() {
    echo "== $1: beside the rest, see build/$1-lane.log"
    ("${@:2}") >"build/$1-lane.log" 2>&1 &
    lanes+=($!)
    logs+=("build/$1-lane.log")
}
nice_lane() {
    renice -n 10 -p "$BASHPID" >/dev/null
    run_lane "$@"
}
logs=()
[ ${#under_wine[@]} -eq 0 ] || beside windows run_lane "${under_wine[@]}"
[ ${#lint[@]} -eq 0 ] || beside lint nice_lane lint
[ ${#here[@]} -eq 0 ] || (run_lane "${here[@]}")
for i in "${!logs[@]}"; do
    wait "${lanes[i]}"
    cat "${logs[i]}"
done
lanes=()

[ ${#under_wine[@]} -eq 0 ] || [ -z "${here[*]/lint/}" ] || run_messages

echo
total_passed=0
total_failed=0
while IFS=$'\t' read -r text passed failed; do
    echo "$text: $passed passed, $failed failed"
    total_passed=$((total_passed + passed))
    total_failed=$((total_failed + failed))
done <"$results"
if [ "$windows_ran" = no ]; then
    echo "The Windows half did NOT run: its tools are missing and could not be installed."
    [ "$require_windows" = yes ] && total_failed=$((total_failed + 1))
fi
[ "$total_passed" -gt 0 ] || total_failed=$((total_failed + 1))
echo "$total_passed passed, $total_failed failed"
[ "$total_failed" -eq 0 ]
