#!/usr/bin/env bash
# Checks built .deb files against contents.txt: each listed file in its package, no file in
# two packages, headers only in the -dev package, shared objects only in the runtime one.
#   check_contents.sh DIR_WITH_DEBS
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
debs=$1
listing=$(mktemp)
trap 'rm -f "$listing"' EXIT
for deb in "$debs"/*.deb; do
  package=$(dpkg-deb -f "$deb" Package)
  case "$package" in *-dbgsym) continue ;; esac
  dpkg-deb -c "$deb" | awk -v p="$package" '$1 !~ /^d/ {sub(/^\./, "", $6); print p, $6}' >>"$listing"
done
status=0
while read -r package pattern; do
  case "$package" in '#'* | '') continue ;; esac
  # shellcheck disable=SC2053
  if ! awk -v p="$package" -v pat="$pattern" '$1 == p {print $2}' "$listing" |
      while read -r file; do [[ $file == $pattern ]] && exit 0; done; then
    echo "missing: $pattern in $package"; status=1
  fi
done <"$here/contents.txt"
dupes=$(awk '{print $2}' "$listing" | sort | uniq -d)
[ -z "$dupes" ] || { echo "in two packages: $dupes"; status=1; }
awk '$2 ~ /^\/usr\/include\// && $1 != "libzolo-media-dev" {print "header outside -dev:", $0}' \
    "$listing" | grep . && status=1
awk '$2 ~ /\.so\.[0-9]/ && $1 != "libzolo-media2" {print "shared object outside runtime:", $0}' \
    "$listing" | grep . && status=1
[ $status -eq 0 ] && echo "package contents: ok ($(wc -l <"$listing") files)"
exit $status
