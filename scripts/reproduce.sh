#!/usr/bin/env bash
# Shows that the packages depend on the commit alone: builds it from two clones, in two folders, at two times, in two
# time zones and with two masks for new files, and compares what comes out. Prints the checksums. Takes a few minutes.
set -eu
cd "$(dirname "$0")/.."
. scripts/install-tools.sh
sndx_need native
sndx_need windows
unset SOURCE_DATE_EPOCH
[ -z "$(git status --porcelain --untracked-files=no)" ] || echo "Note: what is not committed is left out."
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# build FOLDER
build() {
    git clone -q . "$1"
    (cd "$1" && cmake --preset windows -DSNDX_TESTS=OFF && cmake --build --preset windows --target package) >"$1.log" 2>&1 ||
        { tail -20 "$1.log"; exit 1; }
}
(umask 022; TZ=UTC build "$work/one")
sleep 61 # a minute, the coarsest that a build might keep
(umask 077; TZ=Asia/Tokyo build "$work/another folder")
cat "$work/one/build/windows/package/SHA256SUMS"
diff -r "$work/one/build/windows/package" "$work/another folder/build/windows/package"
cmp "$work/one/build/windows/sndxdll.dll" "$work/another folder/build/windows/sndxdll.dll"
echo "The same bytes twice."
