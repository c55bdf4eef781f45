#!/usr/bin/env bash
# Which folder may include which: the floors of docs/architecture.md. A line names a folder and a pattern that
# every quoted include in it must match; system headers are free.
set -u
cd "$(dirname "$0")/.." || exit 1
failed=0
while read -r folder allowed; do
    found=$(git ls-files -- "$folder" | xargs -r grep -HnE '^[[:space:]]*#[[:space:]]*include[[:space:]]+"' |
        grep -vE "#[[:space:]]*include[[:space:]]+\"($allowed)" | grep -vE '^gen/com\.h:[0-9]+:#include "win32/mutex\.h"$')
    [ -z "$found" ] || { echo "$folder may include only $allowed:"; echo "$found"; failed=1; }
done <<'EOT'
gen     gen/
win32   gen/|win32/
diag    gen/|win32/|diag/
dll     gen/|win32/|dll/|diag/lifetime\.h
posix   posix/|sndx/|sndxposix\.h|windows\.h
tools   tools/
EOT
exit $failed
