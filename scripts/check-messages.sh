#!/usr/bin/env bash
# Whether the message catalogue is whole and its page the one made from it; the tests hold traces against it.
# A machine without Python fails here: a check that does not run is not passed.
set -u
cd "$(dirname "$0")/.." || exit 1
if ! command -v python3 >/dev/null; then
    echo "check-messages: python3 is missing (apt-get install -y --no-install-recommends python3)" >&2
    exit 1
fi
exec python3 scripts/messages.py check
