#!/usr/bin/env bash
# Installs the Debian packages in scripts/packages.txt (or the lists given) that are not
# installed yet.
#   scripts/setup.sh [LIST…]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
lists=("$@")
[ ${#lists[@]} -gt 0 ] || lists=("$here/packages.txt")
mapfile -t wanted < <(cat "${lists[@]}" | grep -v -E '^\s*(#|$)')
missing=()
for pkg in "${wanted[@]}"; do
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || missing+=("$pkg")
done
[ ${#missing[@]} -eq 0 ] && exit 0
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
echo "setup: installing ${missing[*]}"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
