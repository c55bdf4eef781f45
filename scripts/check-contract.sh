#!/usr/bin/env bash
# What tools and tests hold for agreed with the product (tools/contract.h), compared with the product itself and with
# the copies that scripts have. The registration is made from the header; nothing else there may name a class.
# Tests that the documents name exist, and each row of docs/waits.md names one or says "held" (which two tests are).
set -u
cd "$(dirname "$0")/.." || exit 1
failed=0
fault() { echo "tools/contract.h: $*"; failed=1; }
# agreed NAME: its text, backslashes single.
agreed() { sed -n "s/.* $1\[\] = \"\(.*\)\";/\1/p" tools/contract.h | sed 's/\\\\/\\/g'; }
# has TEXT FILE…: whether one of the files has it, with single or double backslashes.
has() {
    local text=$1
    shift
    [ -n "$text" ] && sed 's/\\\\/\\/g' "$@" | grep -qF -- "$text"
}

for class in overlayClassText menuClassText; do
    digits=$(agreed $class | tr -cd '[:xdigit:]')
    [ ${#digits} -eq 32 ] || fault "$class is no class identifier"
    # The product has it as numbers: 0x12345678, 0x1234, …
    sed 's/0x//g' dll/*.h dll/*.cpp | tr -cd '[:xdigit:]' | grep -qi -- "$digits" || fault "dll/ has no class $class"
    copies=$(git grep -li -- "${digits:0:8}" demo.sh install scripts tools tests/install tests/support tests/tools |
        grep -v '^tools/contract.h$')
    [ -z "$copies" ] || fault "$class stands once more in ${copies//$'\n'/ }"
done

has "TEXT(\"$(agreed pipeName)\")" dll/*.h dll/*.cpp || fault "dll/ opens another pipe than pipeName"
has "TEXT(\"$(agreed stateBlockName)\")" dll/*.cpp || fault "dll/ makes another block than stateBlockName"
has "TEXT(\"$(agreed traceFilePrefix)%s.txt\")" diag/*.cpp || fault "diag/ writes other traces than traceFilePrefix"
key=$(agreed productKey)
has "TEXT(\"$key" win32/*.h win32/*.cpp || fault "win32/ reads other settings than those below productKey"
has "$(agreed companyKey)\\" <(echo "$key") || fault "productKey is not below companyKey"
for script in demo.sh scripts/screenshots.sh tests/install/package_test.py; do
    has "Software\\Wow6432Node\\${key#Software\\}" $script || fault "$script writes other settings than productKey"
done

fault_in() { echo "$1: ${*:2}"; failed=1; }
tests=$(git ls-files -z 'tests/*.cpp' | xargs -0 cat | tr -s '\n ' ' ')
for document in contract waits reliability architecture; do
    for test in $(grep -oE "\`[A-Z][A-Za-z]+\.[A-Z][A-Za-z0-9]+\`" docs/$document.md | tr -d '`' | sort -u); do
        grep -qE "TEST(_F|_P)?\(${test%.*}, ${test#*.}\)" <<<"$tests" ||
            fault_in docs/$document.md "there is no test $test"
    done
done
while read -r row; do
    forced=${row% |}
    grep -qE "\`[A-Z][A-Za-z]+\.[A-Z…]|\bheld\b" <<<"${forced##*| }" ||
        fault_in docs/waits.md "no test forces the row ${row:0:60}…"
done < <(sed -n '/^| call/,/^$/p' docs/waits.md | grep -vE '^(\| call|\|---|$)')
exit $failed
