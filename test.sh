#!/usr/bin/env bash
# Builds and tests the project: natively, natively under AddressSanitizer with UndefinedBehaviorSanitizer, and as
# the real DLL under Wine. Installs what is missing where it may. Usage:
#     ./test.sh [--require-windows] [--tsan] [TARGET…]
# TARGET: native, native-asan, native-tsan, windows (default: native native-asan windows).
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
    --tsan) targets+=(native native-asan native-tsan windows) ;;
    native | native-asan | native-tsan | windows) targets+=("$argument") ;;
    -h | --help)
        sed -n '2,7s/^# \{0,1\}//p' "$0"
        exit 0
        ;;
    *)
        echo "test.sh: unknown argument '$argument' (see --help)" >&2
        exit 2
        ;;
    esac
done
[ ${#targets[@]} -gt 0 ] || targets=(native native-asan windows)

summary=()
total_passed=0
total_failed=0
windows_ran=yes
trap 'sndx_prefix_end' EXIT
trap 'exit 130' INT TERM

# fail TARGET TEXT: a target that got no as far as its tests counts as one failure.
fail() {
    summary+=("$1: 0 passed, 1 failed ($2)")
    total_failed=$((total_failed + 1))
}

run_target() {
    local target=$1 log=build/$1/test.log passed failed line
    echo "== $target: building"
    mkdir -p "build/$target"
    if ! { cmake --preset "$target" && cmake --build --preset "$target"; } >"build/$target/build.log" 2>&1; then
        grep -E 'error|Error' "build/$target/build.log" | head -20
        tail -20 "build/$target/build.log"
        fail "$target" "did not build, see build/$target/build.log"
        return
    fi
    echo "== $target: testing"
    ctest --preset "$target" >"$log" 2>&1 </dev/null
    line=$(grep -E '% tests passed, [0-9]+ tests failed out of [0-9]+' "$log" | tail -1)
    if [ -z "$line" ]; then
        tail -20 "$log"
        fail "$target" "no test ran, see $log"
        return
    fi
    local all
    all=$(sed -E 's/.*out of ([0-9]+).*/\1/' <<<"$line")
    failed=$(sed -E 's/.* ([0-9]+) tests failed out of.*/\1/' <<<"$line")
    # A few failures are tried once more, so that a busy machine is told from a fault; both tries are shown.
    if [ "$failed" -gt 0 ] && [ "$failed" -le 3 ]; then
        echo "== $target: $failed failed at the first try:"
        sed -n '/The following tests FAILED/,$p' "$log" | grep -E '^[[:space:]]+[0-9]+ - '
        ctest --preset "$target" --rerun-failed >"$log.2" 2>&1 </dev/null
        line=$(grep -E '% tests passed, [0-9]+ tests failed out of [0-9]+' "$log.2" | tail -1)
        [ -z "$line" ] || failed=$(sed -E 's/.* ([0-9]+) tests failed out of.*/\1/' <<<"$line")
        echo "== $target: $failed failed at the second try"
        log=$log.2
    fi
    passed=$((all - failed))
    [ "$passed" -gt 0 ] || failed=$((failed + 1))
    if [ "$failed" -gt 0 ]; then
        sed -n '/The following tests FAILED/,$p' "$log"
        grep -E 'Failure|ERROR: |WARNING: ThreadSanitizer|runtime error' -A8 "$log" | head -120
    fi
    summary+=("$target: $passed passed, $failed failed")
    total_passed=$((total_passed + passed))
    total_failed=$((total_failed + failed))
}

sndx_need native || exit 1
for target in "${targets[@]}"; do
    if [ "$target" = windows ]; then
        if ! sndx_need windows; then
            windows_ran=no
            continue
        fi
        unset DISPLAY # no window of a test appears on the user's screen
        rm -rf build/test-wineprefix
        sndx_prefix_begin "$PWD/build/test-wineprefix"
    fi
    run_target "$target"
done

for check in scripts/check-*.sh; do
    [ -x "$check" ] || continue
    echo "== $check"
    if ! "$check"; then
        summary+=("$(basename "$check" .sh): failed")
        total_failed=$((total_failed + 1))
    fi
done

echo
printf '%s\n' "${summary[@]}"
if [ "$windows_ran" = no ]; then
    echo "The Windows half did NOT run: its tools are missing and could not be installed."
    [ "$require_windows" = yes ] && total_failed=$((total_failed + 1))
fi
echo "$total_passed passed, $total_failed failed"
[ "$total_failed" -eq 0 ]
