#!/usr/bin/env bash
# Holds the POSIX layer, the product's calls and the table of failing calls against each other; scripts/check-posix.py
# says how. A machine without Python fails here: a check that does not run is not passed.
set -u
cd "$(dirname "$0")/.." || exit 1
if ! command -v python3 >/dev/null; then
    echo "check-posix: python3 is missing (apt-get install -y --no-install-recommends python3)" >&2
    exit 1
fi
exec python3 scripts/check-posix.py
