#!/usr/bin/env bash
# Runs ctest and tries tests that ran out of time once more, so that a busy machine is told from a fault. Any other
# failure counts at once, and so does whatever a sanitizer wrote: a finding that comes and goes is still one.
#     scripts/run-ctest.sh LOG CTEST-ARGUMENT…
# Shows what failed at which try. The last line is "N passed, N failed"; the output of ctest goes to LOG and LOG.2.
set -u
log=$1
shift
finding='ERROR: [A-Za-z]*Sanitizer|WARNING: ThreadSanitizer|: runtime error: '

# failures LOG: "name" or "name (Timeout)" of each failed test.
failures() {
    sed -n '/The following tests FAILED/,$p' "$1" |
        sed -nE 's/^[[:space:]]+[0-9]+ - (.*) \(([A-Za-z0-9_ ]+)\)$/\1 (\2)/p' | sed -E '/ \(Timeout\)$/!s/ \([^()]*\)$//'
}
details() {
    sed -n '/The following tests FAILED/,$p' "$1"
    grep -E "Failure|$finding" -A8 "$1" | head -120
}

ctest "$@" >"$log" 2>&1 </dev/null
all=$(sed -nE 's/.*% tests passed, [0-9]+ tests failed out of ([0-9]+).*/\1/p' "$log" | tail -1)
if [ -z "$all" ] || [ "$all" = 0 ]; then
    tail -20 "$log"
    echo "0 passed, 1 failed (no test ran, see $log)"
    exit 1
fi
mapfile -t failed < <(failures "$log")
mapfile -t late < <(printf '%s\n' "${failed[@]}" | sed -n 's/ (Timeout)$//p')
count=${#failed[@]}
if [ "$count" -gt 0 ]; then
    echo "Failed at the first try:"
    printf '    %s\n' "${failed[@]}"
    details "$log"
fi
# More than a few late ones are no accident.
if [ ${#late[@]} -gt 0 ] && [ ${#late[@]} -le 3 ] && ! grep -qE "$finding" "$log"; then
    # shellcheck disable=SC2016
    pattern=$(printf '%s\n' "${late[@]}" | sed 's/[][\.*^$()+?{}|]/\\&/g' | paste -sd '|')
    ctest "$@" -R "^($pattern)\$" >"$log.2" 2>&1 </dev/null
    again=$(sed -nE 's/.*% tests passed, ([0-9]+) tests failed out of '"${#late[@]}"'.*/\1/p' "$log.2" | tail -1)
    echo "Second try of ${#late[@]} that ran out of time: ${again:-all} failed"
    if [ "${again:-1}" != 0 ] || grep -qE "$finding" "$log.2"; then
        details "$log.2"
    else
        count=$((count - ${#late[@]}))
    fi
fi
echo "$((all - count)) passed, $count failed"
[ "$count" -eq 0 ]
