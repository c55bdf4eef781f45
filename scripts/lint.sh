#!/usr/bin/env bash
# The checks that need no running program. Each by its name, or all:
#     scripts/lint.sh [format | shell | includes | messages | contract | posix | tidy]…
# tidy configures the native build, and the Windows build where its compiler is installed, if they are not.
set -u
cd "$(dirname "$0")/.." || exit 1

check() {
    case $1 in
    format) git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format --dry-run -Werror ;;
    shell) git ls-files -z '*.sh' .ci/run | xargs -0 shellcheck -x ;;
    includes | messages | contract | posix) scripts/check-"$1".sh ;;
    tidy) scripts/tidy.py ;;
    -h | --help) sed -n '2,4s/^# \{0,1\}//p' "$0" ;;
    *)
        echo "lint.sh: unknown check '$1' (see --help)" >&2
        return 2
        ;;
    esac
}

failed=0
[ $# -gt 0 ] || set -- format shell includes messages contract posix tidy
for name in "$@"; do
    check "$name" || { echo "lint: $name failed" >&2; failed=1; }
done
exit $failed
