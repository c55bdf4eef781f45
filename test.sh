#!/usr/bin/env bash
# Builds and tests the project: natively, natively under AddressSanitizer with UndefinedBehaviorSanitizer, and as
# the real DLL under Wine; then the checks of scripts/lint.sh. Installs what is missing where it may. Usage:
#     ./test.sh [--require-windows] [--tsan] [TARGET…]
# TARGET: native, native-asan, native-tsan, native-clang, windows, windows-clang, lint
# (default: native native-asan windows lint).
# --require-windows makes a Windows half that cannot run a failure; --tsan adds native-tsan.
set -u
cd "$(dirname "$0")" || exit 1
. scripts/install-tools.sh
. scripts/wine-prefix.sh

require_windows=no
targets=()
for argument in "$@"; do
    case $argument in
    --require-windows) require_windows=yes ;;
    --tsan) targets+=(native native-asan native-tsan windows lint) ;;
    native | native-asan | native-tsan | native-clang | windows | windows-clang | lint) targets+=("$argument") ;;
    -h | --help)
        sed -n '2,8s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *)
        echo "test.sh: unknown argument '$argument' (see --help)" >&2
        exit 2
        ;;
    esac
done
[ ${#targets[@]} -gt 0 ] || targets=(native native-asan windows lint)

summary=()
total_passed=0
total_failed=0
windows_ran=yes
trap 'sndx_prefix_end' EXIT
trap 'exit 130' INT TERM

# result TEXT PASSED FAILED
result() {
    summary+=("$1: $2 passed, $3 failed")
    total_passed=$((total_passed + $2))
    total_failed=$((total_failed + $3))
}

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
    output=$(scripts/run-ctest.sh "$log" --preset "$target")
    counts=$(tail -1 <<<"$output")
    [ "$(wc -l <<<"$output")" = 1 ] || echo "$output"
    read -r passed _ failed _ <<<"$counts"
    result "$target (built in $((built - start)) s, tested in $((SECONDS - built)) s)" "$passed" "$failed"
}

run_lint() {
    local check passed=0 failed=0 start=$SECONDS
    for check in format shell includes messages contract posix tidy; do
        echo "== lint: $check"
        if scripts/lint.sh "$check"; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
    done
    result "lint (in $((SECONDS - start)) s)" "$passed" "$failed"
}

sndx_need native || exit 1
for target in "${targets[@]}"; do
    case $target in
    lint)
        if sndx_need lint; then run_lint; else result "lint: its tools are missing" 0 1; fi
        continue
        ;;
    windows*)
        if ! sndx_need windows || { [ "$target" = windows-clang ] && ! sndx_need clang; }; then
            windows_ran=no
            continue
        fi
        unset DISPLAY # no window of a test appears on the user's screen
        sndx_prefix_end
        rm -rf build/test-wineprefix*
        sndx_prefix_begin "$PWD/build/test-wineprefix" 2
        ;;
    native-clang) sndx_need clang || exit 1 ;;
    esac
    run_target "$target"
done

echo
printf '%s\n' "${summary[@]}"
if [ "$windows_ran" = no ]; then
    echo "The Windows half did NOT run: its tools are missing and could not be installed."
    [ "$require_windows" = yes ] && total_failed=$((total_failed + 1))
fi
echo "$total_passed passed, $total_failed failed"
[ "$total_failed" -eq 0 ]
