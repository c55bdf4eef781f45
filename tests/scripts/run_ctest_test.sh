#!/usr/bin/env bash
# What scripts/run-ctest.sh counts as passed: a second try is for tests that ran out of time, and for nothing else.
#     run_ctest_test.sh FOLDER     FOLDER is made for the trials
set -u
run=$(cd "$(dirname "$0")/../../scripts" && pwd)/run-ctest.sh
work=$1
wrong=0

# expect COUNTS SCRIPT: what is counted for one good test and one that runs SCRIPT, whose first try "first" tells.
expect() {
    rm -rf "$work"
    mkdir -p "$work"
    printf '%s\n' 'first() { [ ! -e tried ] && touch tried; }' "$2" >"$work/other.sh"
    printf '%s\n' 'add_test(good "true")' 'add_test("other (one)" "sh" "other.sh")' \
        'set_tests_properties("other (one)" PROPERTIES TIMEOUT 2)' >"$work/CTestTestfile.cmake"
    local counts
    counts=$(cd "$work" && "$run" "$work/log" --output-on-failure | tail -1)
    [ "$counts" = "$1" ] || { echo "\"$counts\" instead of \"$1\" for: $2"; wrong=1; }
}

expect "2 passed, 0 failed" 'true'
expect "2 passed, 0 failed" 'if first; then sleep 20; fi'
expect "1 passed, 1 failed" 'if first; then exit 1; fi'
expect "1 passed, 1 failed" 'sleep 20'
expect "1 passed, 1 failed" 'if first; then sleep 20; fi; exit 1'
expect "1 passed, 1 failed" 'if first; then echo "==1==ERROR: AddressSanitizer: heap-use-after-free"; sleep 20; fi'
expect "1 passed, 1 failed" 'if first; then sleep 20; fi; echo "a.cpp:1:1: runtime error: overflow"; exit 1'
rm -rf "$work"
exit $wrong
