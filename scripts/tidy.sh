#!/usr/bin/env bash
# Runs clang-tidy over the product and the tools with the settings in .clang-tidy. Configures the native build when
# it has not been; needs clang-tidy.
set -eu
cd "$(dirname "$0")/.."
[ -f build/native/compile_commands.json ] || cmake --preset native >/dev/null
database=$(mktemp -d)
trap 'rm -rf "$database"' EXIT
# Options of GCC that clang refuses.
sed 's/ -fno-gnu-unique//g; s/ -Wno-restrict//g' build/native/compile_commands.json >"$database/compile_commands.json"
# tools/explorer is for Windows alone; the native build knows no options for it.
git ls-files 'dll/*.cpp' 'diag/*.cpp' 'gen/*.cpp' 'win32/*.cpp' 'tools/*.cpp' ':!tools/explorer/*' |
    xargs -P 2 -n 4 clang-tidy --quiet -p "$database" 2>/dev/null
