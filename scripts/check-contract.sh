#!/usr/bin/env bash
# What tools and tests hold for agreed with the product (tools/contract.h), compared with the product itself and with
# the copies that scripts have. The registration is made from the header; nothing else there may name a class.
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
exit $failed
