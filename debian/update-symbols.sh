#!/usr/bin/env bash
# Regenerates debian/libzolo-media2.symbols from the last package build (scripts/package.sh).
# Instantiations of the standard library's templates that the platform libraries happen to
# export are marked optional: they come and go with the compiler, not with the interface.
set -euo pipefail
cd "$(dirname "$0")/.."
src=build-deb/src
version=$(dpkg-parsechangelog -l debian/changelog -S Version)
version=${version%%-*}
raw=$(mktemp)
trap 'rm -f "$raw"' EXIT
(cd "$src" && dpkg-gensymbols -plibzolo-media2 -Pdebian/libzolo-media2 -v"$version" \
    -O"$raw" -q </dev/null)
sed -E 's/^ ((_ZN?K?St|_ZN?K?9__gnu_cxx|_ZT[ISV]N?K?St|_ZT[ISV]N9__gnu_cxx)[^ ]*)/ (optional)\1/' \
  "$raw" >debian/libzolo-media2.symbols
echo "debian/libzolo-media2.symbols: $(grep -c '@Base' debian/libzolo-media2.symbols) symbols"
