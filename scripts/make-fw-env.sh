#!/usr/bin/env bash
# Writes a U-Boot environment image and its fw_env.config below ROOT (a sandbox root).
#   scripts/make-fw-env.sh ROOT [name=value ...]     (default: movie_resource=1)
set -euo pipefail
root=${1:?usage: $0 ROOT [name=value ...]}
shift
here=$(cd "$(dirname "$0")/.." && pwd)
mkdir -p "$root/etc" "$root/var/lib/zolo"
cp "$here/data/fw_env.config" "$root/etc/fw_env.config"
vars=$(mktemp)
trap 'rm -f "$vars"' EXIT
if [ $# -eq 0 ]; then set -- movie_resource=1; fi
printf '%s\n' "$@" >"$vars"
mkenvimage -s 0x4000 -o "$root/var/lib/zolo/uboot.env" "$vars"
